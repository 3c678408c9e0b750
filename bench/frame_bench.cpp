#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "bench/support/bench_page.h"

namespace rastrel::bench {
namespace {

using testing::TestDib;

// On a memory disk where there is one, so that the figure is the library's and not the disk's.
std::string PagePath() {
  return (access("/dev/shm", W_OK) == 0 ? "/dev/shm/rastrel-bench-" : "/tmp/rastrel-bench-") +
         std::to_string(getpid());
}

void BM_LoadDIBFromFile(benchmark::State& state) {
  const TestDib page = BenchPage(static_cast<int>(state.range(0)));
  const std::string path = PagePath();
  SaveDIB(path.c_str(), page.handle());
  for (auto _ : state) {
    HGLOBAL loaded = LoadDIBFromFile(path.c_str());
    if (loaded == nullptr) return state.SkipWithError("no result");
    GlobalFree(loaded);
  }
  std::remove(path.c_str());
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.pixelBytes()));
}
BENCHMARK(BM_LoadDIBFromFile)->ArgName("bits")->Arg(1)->Arg(8)->Arg(24)->Unit(benchmark::kMillisecond);

void BM_SaveDIB(benchmark::State& state) {
  const TestDib page = BenchPage(static_cast<int>(state.range(0)));
  const std::string path = PagePath();
  for (auto _ : state) {
    if (SaveDIB(path.c_str(), page.handle()) == 0) return state.SkipWithError("not saved");
  }
  std::remove(path.c_str());
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.pixelBytes()));
}
BENCHMARK(BM_SaveDIB)->ArgName("bits")->Arg(1)->Arg(8)->Arg(24)->Unit(benchmark::kMillisecond);

// What SaveDIB is measured against.
void BareWrite(benchmark::State& state) {
  const TestDib page = BenchPage(static_cast<int>(state.range(0)));
  const testing::Bytes block = page.block();
  const std::string path = PagePath();
  for (auto _ : state) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    std::fwrite(block.data(), 1, block.size(), file);
    std::fclose(file);
  }
  std::remove(path.c_str());
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.pixelBytes()));
}
BENCHMARK(BareWrite)->ArgName("bits")->Arg(1)->Arg(8)->Arg(24)->Unit(benchmark::kMillisecond);

void BM_DuplicateDIB(benchmark::State& state) {
  const TestDib page = BenchPage(static_cast<int>(state.range(0)));
  for (auto _ : state) GlobalFree(DuplicateDIB(page.handle()));
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.pixelBytes()));
}
BENCHMARK(BM_DuplicateDIB)->ArgName("bits")->Arg(1)->Arg(8)->Arg(24)->Unit(benchmark::kMillisecond);

// A page of grey, as scanners make them, and one with a table of other colours.
void BM_Convert8to24(benchmark::State& state) {
  const TestDib page = BenchPage(8);
  testing::Bytes block = page.block();
  if (state.range(0) != 0) block[40] = 1;
  const TestDib coloured(block);
  TimeOperation(state, coloured, Convert8to24);
}
BENCHMARK(BM_Convert8to24)->ArgName("coloured")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// A run-length page of runs, or of literal pixels, of 3 to 62 pixels.
TestDib RunLengthPage(int bits, bool isLiteral) {
  BITMAPINFOHEADER header = testing::MakeHeader(bits, kPageWidth, kPageHeight);
  testing::Bytes block = TestDib(testing::MakeHeader(bits, 0, 0)).block();
  const size_t headBytes = block.size();
  std::mt19937 random(1);
  const auto add = [&block](unsigned value) { block.push_back(static_cast<uint8_t>(value)); };
  for (int y = 0; y < kPageHeight; ++y) {
    for (int x = 0; x < kPageWidth;) {
      const auto count = 3 + static_cast<unsigned>(random() % 60);
      const unsigned bytes = bits == 8 ? count : (count + 1) / 2;
      add(isLiteral ? 0 : count);
      add(isLiteral ? count : static_cast<unsigned>(random()));
      for (unsigned i = 0; isLiteral && i < bytes + bytes % 2; ++i) add(static_cast<unsigned>(random()));
      x += static_cast<int>(count);
    }
    add(0);
    add(0);
  }
  header.biCompression = bits == 8 ? BI_RLE8 : BI_RLE4;
  header.biSizeImage = static_cast<uint32_t>(block.size() - headBytes);
  std::memcpy(block.data(), &header, sizeof(header));
  return TestDib(block);
}

// Bytes are those of the result.
void BM_ExpandCompressedDIB(benchmark::State& state) {
  const int bits = static_cast<int>(state.range(0));
  const TestDib page = RunLengthPage(bits, state.range(1) != 0);
  for (auto _ : state) {
    HGLOBAL result = ExpandCompressedDIB(page.handle());
    if (result == nullptr) return state.SkipWithError("no result");
    GlobalFree(result);
  }
  const TestDib plain(testing::MakeHeader(bits, kPageWidth, kPageHeight));
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(plain.pixelBytes()));
}
BENCHMARK(BM_ExpandCompressedDIB)
    ->ArgNames({"bits", "literal"})
    ->ArgsProduct({{4, 8}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace rastrel::bench
