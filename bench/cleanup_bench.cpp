// Page cleanup of an A4 page at 300 dpi.
#include <benchmark/benchmark.h>
#include <rastrel.h>

#include "bench/support/bench_page.h"

namespace rastrel::bench {
namespace {

using testing::TestDib;

void BM_DetectSkewAngle(benchmark::State& state) {
  const TestDib page = BenchPage(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    if (DetectSkewAngle(page.handle(), 1, 0, nullptr) != 2) return state.SkipWithError("wrong angle");
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.pixelBytes()));
}
BENCHMARK(BM_DetectSkewAngle)->ArgName("bits")->Arg(1)->Arg(8)->Arg(24)->Unit(benchmark::kMillisecond);

void BM_PunchHoleRemover(benchmark::State& state) {
  const TestDib page = BenchPage(static_cast<int>(state.range(0)));
  const auto holeSize = static_cast<int>(state.range(1));
  TimeOperation(state, page, [&](HGLOBAL dib) { return PunchHoleRemover(dib, holeSize, 0, nullptr); });
}
BENCHMARK(BM_PunchHoleRemover)
    ->ArgNames({"bits", "size"})
    ->ArgsProduct({{1, 8, 24}, {0, -3}})
    ->Unit(benchmark::kMillisecond);

void BM_AutoPunchHoleRemover(benchmark::State& state) {
  const TestDib page = BenchPage(static_cast<int>(state.range(0)));
  TimeOperation(state, page, [&](HGLOBAL dib) { return AutoPunchHoleRemover(dib, 0, nullptr); });
}
BENCHMARK(BM_AutoPunchHoleRemover)->ArgName("bits")->Arg(1)->Arg(8)->Arg(24)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace rastrel::bench
