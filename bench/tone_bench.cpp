// Dithers and halftones of an A4 page at 300 dpi, text and photograph.
#include <benchmark/benchmark.h>
#include <rastrel.h>

#include "bench/support/bench_page.h"

namespace rastrel::bench {
namespace {

using testing::TestDib;

using DitherFunction = HGLOBAL RASTREL_CALL(HGLOBAL, int);

template <DitherFunction* kDither>
void BM_Dither(benchmark::State& state) {
  const auto bits = static_cast<int>(state.range(0));
  const auto target = static_cast<int>(state.range(1));
  TimeOperation(state, state.range(2) == 0 ? BenchPage(bits) : BenchPhoto(bits),
                [target](HGLOBAL dib) { return kDither(dib, target); });
}

void Dithers(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"bits", "to", "photo"})->Unit(benchmark::kMillisecond);
  bench->Args({4, 1, 0})->Args({8, 1, 0})->Args({8, 1, 1})->Args({8, 4, 1});
  bench->Args({24, 1, 0})->Args({24, 4, 1})->Args({24, 8, 1});
}
BENCHMARK(BM_Dither<DitherFS4>)->Apply(Dithers);
BENCHMARK(BM_Dither<DitherJJN>)->Apply(Dithers);

void BlockDithers(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"bits", "to", "photo"})->Unit(benchmark::kMillisecond);
  bench->Args({8, 1, 0})->Args({8, 1, 1})->Args({24, 1, 0})->Args({24, 4, 1});
}
BENCHMARK(BM_Dither<DitherSmooth>)->Apply(BlockDithers);
BENCHMARK(BM_Dither<DitherSharp>)->Apply(BlockDithers);

void BM_Halftone(benchmark::State& state) {
  const auto method = static_cast<uint16_t>(state.range(1));
  const auto brightness = static_cast<int>(state.range(2));
  TimeOperation(state, BenchPage(static_cast<int>(state.range(0))),
                [=](HGLOBAL dib) { return Halftone(dib, method, brightness, nullptr); });
}
BENCHMARK(BM_Halftone)
    ->ArgNames({"bits", "method", "brightness"})
    ->ArgsProduct({{4, 8, 24}, {0, 1, 2}, {20}})
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace rastrel::bench
