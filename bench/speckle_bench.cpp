// Removing specks from an A4 page at 300 dpi.
#include <benchmark/benchmark.h>
#include <rastrel.h>

#include "bench/support/bench_page.h"

namespace rastrel::bench {
namespace {

void BM_CleanImage(benchmark::State& state) {
  const testing::TestDib page = BenchPage(static_cast<int>(state.range(0)));
  const auto level = static_cast<int>(state.range(1));
  const auto full = static_cast<int>(state.range(2));
  TimeOperation(state, page, [&](HGLOBAL dib) { return CleanImage(dib, level, full); });
}
BENCHMARK(BM_CleanImage)
    ->ArgNames({"bits", "level", "full"})
    ->ArgsProduct({{1, 8}, {20, 50, 100}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace rastrel::bench
