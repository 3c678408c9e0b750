#include <unistd.h>

#include <cstdio>
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

}  // namespace
}  // namespace rastrel::bench
