// Combining A4 pages at 300 dpi.
#include <benchmark/benchmark.h>
#include <rastrel.h>

#include "bench/support/bench_page.h"

namespace rastrel::bench {
namespace {

using testing::TestDib;

void Combine(benchmark::State& state, const TestDib& source, const TestDib& destination, HGLOBAL mask, int x,
             int andFlag) {
  HGLOBAL page = destination.handle();
  for (auto _ : state) {
    if (CombineDIB(x, 0, &page, source.handle(), mask, andFlag) == 0) return state.SkipWithError("failed");
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(destination.pixelBytes()));
}

// The depths of source and destination, then x and whether colours are combined by AND.
void BM_CombineDIB(benchmark::State& state) {
  Combine(state, BenchPage(static_cast<int>(state.range(0))), BenchPage(static_cast<int>(state.range(1))),
          nullptr, static_cast<int>(state.range(2)), static_cast<int>(state.range(3)));
}
BENCHMARK(BM_CombineDIB)
    ->ArgNames({"from", "to", "x", "and"})
    ->Args({1, 1, 0, 1})
    ->Args({1, 1, 13, 1})
    ->Args({8, 8, 0, 1})
    ->Args({24, 24, 0, 1})
    ->Args({1, 1, 13, 0})
    ->Args({8, 8, 0, 0})
    ->Args({24, 24, 0, 0})
    ->Args({1, 8, 0, 1})
    ->Args({1, 24, 0, 1})
    ->Args({8, 24, 0, 0})
    ->Args({8, 1, 0, 0})
    ->Args({24, 1, 0, 0})
    ->Args({24, 8, 0, 0})
    ->Unit(benchmark::kMillisecond);

void BM_CombineDIBThroughMask(benchmark::State& state) {
  const auto bits = static_cast<int>(state.range(0));
  const TestDib mask = TestDib::Random(1, kPageWidth, kPageHeight, 1);
  Combine(state, BenchPage(bits), BenchPage(bits), mask.handle(), 13, 1);
}
BENCHMARK(BM_CombineDIBThroughMask)->ArgName("bits")->Arg(1)->Arg(8)->Arg(24)->Unit(benchmark::kMillisecond);

// Colours as photographs have them, and tables in which indices cannot be combined.
void BM_CombineDIBPhoto(benchmark::State& state) {
  const TestDib source = BenchPhoto(static_cast<int>(state.range(0)));
  const TestDib destination = BenchColours();
  Combine(state, source, destination, nullptr, 0, static_cast<int>(state.range(1)));
}
BENCHMARK(BM_CombineDIBPhoto)
    ->ArgNames({"from", "and"})
    ->ArgsProduct({{8, 24}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace rastrel::bench
