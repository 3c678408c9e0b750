// Grey pages and the blank page test, on A4 pages at 300 dpi.
#include <benchmark/benchmark.h>
#include <rastrel.h>

#include "bench/support/bench_page.h"

namespace rastrel::bench {
namespace {

using testing::TestDib;

void BM_ConvertMonoDIBtoGrayscale(benchmark::State& state) {
  const auto method = static_cast<uint32_t>(state.range(0));
  TimeOperation(state, BenchPage(1),
                [method](HGLOBAL dib) { return ConvertMonoDIBtoGrayscale(dib, method); });
}
BENCHMARK(BM_ConvertMonoDIBtoGrayscale)->ArgName("method")->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

void BM_ConvColorDIBtoGrayscale(benchmark::State& state) {
  const auto weighted = static_cast<int>(state.range(1));
  TimeOperation(state, BenchPhoto(static_cast<int>(state.range(0))), [weighted](HGLOBAL dib) {
    HGLOBAL result = ConvColorDIBtoGrayscale(dib, weighted, 0);
    if (result != nullptr) GlobalUnlock(dib);
    return result;
  });
}
BENCHMARK(BM_ConvColorDIBtoGrayscale)
    ->ArgNames({"bits", "weighted"})
    ->ArgsProduct({{4, 8, 24}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

// The verdict is certain only at the end of the page. `runs` is into how many runs of indices the colour
// table of an 8-bit page has the background's fall, one for a ramp of greys.
void BM_IsImageBlank(benchmark::State& state) {
  TestDib page = BenchPage(static_cast<int>(state.range(0)));
  if (state.range(1) > 1) {
    testing::Bytes block = page.block();
    const auto length = 256 / static_cast<size_t>(state.range(1));
    for (size_t i = 0; i < 1024; ++i) block[40 + i] = i / 4 % length < length / 2 ? 255 : 0;
    page.SetBlock(block);
  }
  const int tolerance = page.header().biBitCount == 1 ? 1000 : 0;
  const int expected = page.header().biBitCount == 1 ? 1 : 0;
  for (auto _ : state) {
    if (IsImageBlank(page.handle(), tolerance, 0x808080) != expected) return state.SkipWithError("verdict");
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.pixelBytes()));
}
BENCHMARK(BM_IsImageBlank)
    ->ArgNames({"bits", "runs"})
    ->ArgsProduct({{1, 8, 24}, {1}})
    ->Args({8, 8})
    ->Args({8, 64})
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace rastrel::bench
