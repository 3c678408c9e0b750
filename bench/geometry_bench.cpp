// Turns, mirror images and tiles of an A4 page at 300 dpi.
#include <benchmark/benchmark.h>
#include <rastrel.h>

#include "bench/support/bench_page.h"

namespace rastrel::bench {
namespace {

void BM_RotateDIB(benchmark::State& state) {
  const testing::TestDib page = BenchPage(static_cast<int>(state.range(0)));
  const double angle = static_cast<double>(state.range(1)) / 10;
  TimeOperation(state, page, [&](HGLOBAL dib) { return RotateDIB(dib, angle); });
}
BENCHMARK(BM_RotateDIB)
    ->ArgNames({"bits", "tenthsOfADegree"})
    ->ArgsProduct({{1, 4, 8, 24}, {0, 37, 100, 450, 900, 1800}})
    ->Unit(benchmark::kMillisecond);

void BM_StraightenDIB(benchmark::State& state) {
  const testing::TestDib page = BenchPage(static_cast<int>(state.range(0)));
  const double angle = static_cast<double>(state.range(1)) / 10;
  const auto quality = static_cast<int>(state.range(2));
  TimeOperation(state, page, [&](HGLOBAL dib) { return StraightenDIB(dib, angle, quality, 0xFFFFFF); });
}
BENCHMARK(BM_StraightenDIB)
    ->ArgNames({"bits", "tenthsOfADegree", "quality"})
    ->ArgsProduct({{1, 8, 24}, {4, 37, 450}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

void TimePage(benchmark::State& state, HGLOBAL (*operation)(HGLOBAL)) {
  const testing::TestDib page = BenchPage(static_cast<int>(state.range(0)));
  TimeOperation(state, page, operation);
}

// A device bitmap of the page's size, with its rows as they are stored.
class BenchBitmap {
 public:
  explicit BenchBitmap(int bits) {
    const testing::TestDib page = BenchPage(bits);
    const testing::Bytes block = page.block();
    bytes_ = page.pixelBytes();  // A4 rows of both kinds are equally long
    handle_ =
        CreateBitmap(kPageWidth, kPageHeight, 1, static_cast<unsigned>(bits), &block[block.size() - bytes_]);
  }
  ~BenchBitmap() { DeleteObject(handle_); }
  BenchBitmap(const BenchBitmap&) = delete;
  BenchBitmap& operator=(const BenchBitmap&) = delete;

  HBITMAP handle() const { return handle_; }
  int64_t bytes() const { return static_cast<int64_t>(bytes_); }

 private:
  HBITMAP handle_;
  size_t bytes_;
};

void TimeBitmap(benchmark::State& state, HBITMAP (*operation)(HBITMAP)) {
  const BenchBitmap bitmap(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    HBITMAP result = operation(bitmap.handle());
    if (result == nullptr) return state.SkipWithError("no result");
    DeleteObject(result);
  }
  state.SetBytesProcessed(state.iterations() * bitmap.bytes());
}

void TimeBitmapInPlace(benchmark::State& state, int (*operation)(HBITMAP)) {
  const BenchBitmap bitmap(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    if (operation(bitmap.handle()) == 0) return state.SkipWithError("no result");
  }
  state.SetBytesProcessed(state.iterations() * bitmap.bytes());
}

constexpr int kTileSide = 512;

// Frees what SplitDIB has made.
void FreeTiles(HGLOBAL array, const int* gridCounts) {
  auto* tiles = static_cast<HGLOBAL*>(GlobalLock(array));
  for (int i = 0; i < gridCounts[0] * gridCounts[1]; ++i) GlobalFree(tiles[i]);
  GlobalFree(array);
}

void BM_SplitDIB(benchmark::State& state) {
  const testing::TestDib page = BenchPage(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    HGLOBAL tiles = nullptr;
    int gridCounts[2];
    if (SplitDIB(page.handle(), kTileSide, kTileSide, &tiles, gridCounts) == 0) {
      return state.SkipWithError("no result");
    }
    FreeTiles(tiles, gridCounts);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.pixelBytes()));
}

void BM_MergeDIBs(benchmark::State& state) {
  const testing::TestDib page = BenchPage(static_cast<int>(state.range(0)));
  HGLOBAL tiles = nullptr;
  int gridCounts[2];
  if (SplitDIB(page.handle(), kTileSide, kTileSide, &tiles, gridCounts) == 0) {
    return state.SkipWithError("no tiles");
  }
  for (auto _ : state) {
    HGLOBAL merged = MergeDIBs(tiles, gridCounts[0], gridCounts[1]);
    if (merged == nullptr) {
      state.SkipWithError("no result");
      break;
    }
    GlobalFree(merged);
  }
  FreeTiles(tiles, gridCounts);
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.pixelBytes()));
}

void UsualDepths(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgName("bits")->Arg(1)->Arg(8)->Arg(24)->Unit(benchmark::kMillisecond);
}

void BM_TurnDIB(benchmark::State& state) {
  TimePage(state, [](HGLOBAL dib) { return TurnDIB(dib, 1); });
}

BENCHMARK_CAPTURE(TimePage, FlipDIBVertical, FlipDIBVertical)->Apply(UsualDepths);
BENCHMARK_CAPTURE(TimePage, FlipDIBHorizontal, FlipDIBHorizontal)->Apply(UsualDepths);
BENCHMARK(BM_TurnDIB)->Apply(UsualDepths);
BENCHMARK_CAPTURE(TimeBitmap, RotateBitmap90, RotateBitmap90)->Apply(UsualDepths);
BENCHMARK_CAPTURE(TimeBitmap, RotateBitmap270, RotateBitmap270)->Apply(UsualDepths);
BENCHMARK_CAPTURE(TimeBitmapInPlace, RotateBitmap180, RotateBitmap180)->Apply(UsualDepths);
BENCHMARK_CAPTURE(TimeBitmapInPlace, FlipBitmapVertical, FlipBitmapVertical)->Apply(UsualDepths);
BENCHMARK_CAPTURE(TimeBitmapInPlace, FlipBitmapHorizontal, FlipBitmapHorizontal)->Apply(UsualDepths);
BENCHMARK_CAPTURE(TimeBitmapInPlace, InvertBitmap, InvertBitmap)->Apply(UsualDepths);
BENCHMARK(BM_SplitDIB)->Apply(UsualDepths);
BENCHMARK(BM_MergeDIBs)->Apply(UsualDepths);

}  // namespace
}  // namespace rastrel::bench
