// Cleaning a page by what is understood of it, without reading and writing a file.
#include <rastrel_pages.h>

#include "bench/support/bench_page.h"

namespace rastrel::bench {
namespace {

// The page stays, so that a copy of it is part of the time.
void BM_CleanPage(benchmark::State& state) {
  const testing::TestDib page = BenchPage(static_cast<int>(state.range(0)));
  TimeOperation(state, page, [](HGLOBAL dib) { return CleanPage(dib, nullptr, nullptr, nullptr); });
}
BENCHMARK(BM_CleanPage)->ArgName("bits")->Arg(1)->Arg(8)->Arg(24)->Unit(benchmark::kMillisecond);

void BM_BinarizePage(benchmark::State& state) {
  const testing::TestDib page = BenchPage(static_cast<int>(state.range(0)));
  TimeOperation(state, page, [](HGLOBAL dib) { return BinarizePage(dib, BinarizeFast, 0, 0); });
}
BENCHMARK(BM_BinarizePage)->ArgName("bits")->Arg(8)->Arg(24)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace rastrel::bench
