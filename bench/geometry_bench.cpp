// Turns of an A4 page at 300 dpi.
#include <benchmark/benchmark.h>
#include <rastrel.h>

#include "bench/support/bench_page.h"

namespace rastrel::bench {
namespace {

void BM_RotateDIB(benchmark::State& state) {
  const testing::TestDib page = BenchPage(static_cast<int>(state.range(0)));
  const double angle = static_cast<double>(state.range(1)) / 10;
  for (auto _ : state) {
    HGLOBAL turned = RotateDIB(page.handle(), angle);
    if (turned == nullptr) return state.SkipWithError("no result");
    GlobalFree(turned);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.pixelBytes()));
}
BENCHMARK(BM_RotateDIB)
    ->ArgNames({"bits", "tenthsOfADegree"})
    ->ArgsProduct({{1, 4, 8, 24}, {0, 37, 100, 450, 900, 1800}})
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace rastrel::bench
