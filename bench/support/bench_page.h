// The pages that the benchmarks work on: A4 at 300 dpi, the same in every run.
#ifndef RASTREL_BENCH_SUPPORT_BENCH_PAGE_H
#define RASTREL_BENCH_SUPPORT_BENCH_PAGE_H

#include <benchmark/benchmark.h>

#include "tests/support/test_dib.h"

namespace rastrel::bench {

constexpr int kPageWidth = 2480;
constexpr int kPageHeight = 3508;

// A page of text-like lines, some specks, two punch holes, a black right edge, turned by about 2 degrees. At
// 8 and 24 bits ink and ground have a little noise. The seed decides where specks and noise are.
testing::TestDib BenchPage(int bits, unsigned seed = 1);

// A page full of soft shapes of every tone, as a photograph has them.
testing::TestDib BenchPhoto(int bits);

// One of 8 bits in 256 colours that are no greys.
testing::TestDib BenchColours();

// Times an operation that returns a new page. Bytes are those of `page`.
template <class Operation>
void TimeOperation(benchmark::State& state, const testing::TestDib& page, Operation operation) {
  for (auto _ : state) {
    HGLOBAL result = operation(page.handle());
    if (result == nullptr) return state.SkipWithError("no result");
    GlobalFree(result);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.pixelBytes()));
}

// Times copying the bytes of such a page, to set the operations' figures beside.
void CopyPage(benchmark::State& state);

}  // namespace rastrel::bench

#endif
