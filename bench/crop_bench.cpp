// Cutting pieces out of an A4 page at 300 dpi.
#include <benchmark/benchmark.h>
#include <rastrel.h>

#include "bench/support/bench_page.h"

namespace rastrel::bench {
namespace {

using testing::TestDib;

constexpr int kMargin = 120;

// A scan of a page that is smaller than the glass.
TestDib BenchScan() {
  TestDib page = BenchPage(1);
  page.Fill(0, 0, kMargin, kPageHeight, 0);
  page.Fill(kPageWidth - kMargin, 0, kMargin, kPageHeight, 0);
  page.Fill(0, 0, kPageWidth, kMargin, 0);
  page.Fill(0, kPageHeight - kMargin, kPageWidth, kMargin, 0);
  page.Settle();
  return page;
}

void BM_CropToEdges(benchmark::State& state) {
  const TestDib page = BenchScan();
  for (auto _ : state) {
    uint32_t x = 0;
    HGLOBAL sheet = CropToEdges(page.handle(), 0.5, &x, 10, 0, 1);
    if (sheet == nullptr || x != kPageWidth - kMargin + 10) return state.SkipWithError("wrong edge");
    GlobalFree(sheet);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.pixelBytes()));
}
BENCHMARK(BM_CropToEdges)->Unit(benchmark::kMillisecond);

void BM_CropDIB(benchmark::State& state) {
  const TestDib page = BenchPage(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    HGLOBAL piece =
        CropDIB(page.handle(), kMargin + 1, kMargin, kPageWidth - kMargin - 1, kPageHeight - kMargin);
    if (piece == nullptr) return state.SkipWithError("no result");
    GlobalUnlock(piece);
    GlobalFree(piece);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.pixelBytes()));
}
BENCHMARK(BM_CropDIB)->ArgName("bits")->Arg(1)->Arg(4)->Arg(8)->Arg(24)->Unit(benchmark::kMillisecond);

void BM_CutDIB(benchmark::State& state) {
  const TestDib page = BenchPage(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    HGLOBAL lower = nullptr;
    HGLOBAL upper = nullptr;
    if (CutDIB(page.handle(), kPageHeight / 2, &lower, &upper) == 0) return state.SkipWithError("no result");
    GlobalFree(lower);
    GlobalFree(upper);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.pixelBytes()));
}
BENCHMARK(BM_CutDIB)->ArgName("bits")->Arg(1)->Arg(8)->Arg(24)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace rastrel::bench
