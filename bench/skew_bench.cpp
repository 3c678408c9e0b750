#include "bench/support/bench_page.h"

namespace rastrel::bench {
namespace {

using testing::TestDib;

void BM_SkewDIB(benchmark::State& state) {
  const TestDib page = BenchPage(static_cast<int>(state.range(0)));
  const auto isHorizontal = static_cast<int>(state.range(1));
  for (auto _ : state) {
    HGLOBAL sheared = SkewDIB(page.handle(), isHorizontal, /*shift=*/100, nullptr, nullptr);
    if (sheared == nullptr) return state.SkipWithError("no result");
    GlobalFree(sheared);
    GlobalUnlock(page.handle());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.pixelBytes()));
}
BENCHMARK(BM_SkewDIB)
    ->ArgNames({"bits", "horizontal"})
    ->ArgsProduct({{1, 4, 8, 24}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

void BM_TrimBlackBorder(benchmark::State& state) {
  const TestDib page = BenchPage(static_cast<int>(state.range(0)));
  TimeOperation(state, page, [&](HGLOBAL dib) { return TrimBlackBorder(dib); });
}
BENCHMARK(BM_TrimBlackBorder)->ArgName("bits")->Arg(1)->Arg(8)->Arg(24)->Unit(benchmark::kMillisecond);

void BM_DeskewDIB(benchmark::State& state) {
  const TestDib page = BenchPage(static_cast<int>(state.range(0)));
  TimeOperation(state, page, [&](HGLOBAL dib) {
    return DeskewDIB(dib, /*darkForeground=*/1, /*showProgress=*/0, nullptr, /*trimBorder=*/1);
  });
}
BENCHMARK(BM_DeskewDIB)->ArgName("bits")->Arg(1)->Arg(8)->Arg(24)->Unit(benchmark::kMillisecond);

void BM_DetectSkewAngle(benchmark::State& state) {
  const TestDib page = BenchPage(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    if (DetectSkewAngle(page.handle(), 1, 0, nullptr) == 0) return state.SkipWithError("no skew");
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.pixelBytes()));
}
BENCHMARK(BM_DetectSkewAngle)->ArgName("bits")->Arg(1)->Arg(8)->Arg(24)->Unit(benchmark::kMillisecond);

void BM_MeasureSkew(benchmark::State& state) {
  const TestDib page = BenchPage(static_cast<int>(state.range(0)));
  const SkewOptions options = {static_cast<double>(state.range(1)), 0};
  for (auto _ : state) {
    SkewResult result = {};
    if (MeasureSkew(page.handle(), &options, &result) == 0 || result.confidence < 0.9)
      return state.SkipWithError("no skew");
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.pixelBytes()));
}
BENCHMARK(BM_MeasureSkew)
    ->ArgNames({"bits", "range"})
    ->ArgsProduct({{1, 4, 8, 24}, {15}})
    ->Args({1, 45})
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace rastrel::bench
