// Scaling A4 pages at 300 dpi.
#include <benchmark/benchmark.h>
#include <rastrel.h>

#include "bench/support/bench_page.h"

namespace rastrel::bench {
namespace {

using testing::TestDib;

HGLOBAL Scale(HGLOBAL page, int cubic, int64_t percent) {
  const auto part = static_cast<int>(percent);
  return ScaleDIB(page, cubic, kPageWidth * part / 100, kPageHeight * part / 100);
}

void BM_ScaleDIB(benchmark::State& state) {
  const auto bits = static_cast<int>(state.range(0));
  TimeOperation(state, bits == 1 ? BenchPage(bits) : BenchPhoto(bits),
                [&](HGLOBAL page) { return Scale(page, static_cast<int>(state.range(1)), state.range(2)); });
}
BENCHMARK(BM_ScaleDIB)
    ->ArgNames({"bits", "cubic", "percent"})
    ->Args({24, 0, 50})
    ->Args({24, 0, 45})
    ->Args({24, 0, 150})
    ->Args({24, 1, 50})
    ->Args({24, 1, 45})
    ->Args({24, 1, 150})
    ->Args({8, 0, 50})
    ->Args({8, 0, 45})
    ->Args({8, 0, 150})
    ->Args({8, 1, 150})
    ->Args({4, 0, 150})
    ->Args({1, 0, 50})
    ->Args({1, 0, 150})
    ->Args({1, 0, 100})
    ->Unit(benchmark::kMillisecond);

void BM_ScaleDIBColours(benchmark::State& state) {
  TimeOperation(state, BenchColours(), [&](HGLOBAL page) { return Scale(page, 0, state.range(0)); });
}
BENCHMARK(BM_ScaleDIBColours)->ArgName("percent")->Arg(50)->Arg(150)->Unit(benchmark::kMillisecond);

void BM_ScaleGrayDIB(benchmark::State& state) {
  const auto factor = static_cast<int16_t>(state.range(1));
  TimeOperation(state, BenchPhoto(8), [&](HGLOBAL page) {
    return ScaleGrayDIB(page, 0, 0, kPageWidth, kPageHeight, factor, factor,
                        static_cast<int16_t>(state.range(0)));
  });
}
BENCHMARK(BM_ScaleGrayDIB)
    ->ArgNames({"cubic", "factor"})
    ->ArgsProduct({{0, 1}, {1, 2}})
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace rastrel::bench
