#include "bench/support/bench_page.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>

namespace rastrel::bench {
namespace {

using testing::TestDib;

constexpr double kSlope = 0.035;  // about 2 degrees
constexpr int kMargin = 260;
constexpr int kLinePitch = 58;
constexpr int kLetterHeight = 28;

// Whether (x, y) is ink: letters are strokes and bars picked by a hash of their place in the text.
bool IsInk(int x, int y) {
  const int u = x - static_cast<int>(y * kSlope);
  const int v = y + static_cast<int>(x * kSlope);
  if (x > kPageWidth - 40) return true;
  for (const int centre : {900, 2600}) {
    if ((x - 110) * (x - 110) + (y - centre) * (y - centre) < 35 * 35) return true;
  }
  if (u < kMargin || u > kPageWidth - kMargin || v < 300 || v > kPageHeight - 300) return false;
  const int line = v / kLinePitch;
  const int top = v % kLinePitch;
  if (top >= kLetterHeight || line % 12 == 0) return false;
  const int letter = u / 22;
  const int left = u % 22;
  const uint32_t hash =
      (static_cast<uint32_t>(letter) * 2654435761u) ^ (static_cast<uint32_t>(line) * 40503u * 65537u);
  if (hash >> 29 == 0 || left > 16) return false;  // the gap of a word or a letter
  const bool stem = left < 4 || (left > 12 && (hash >> 8 & 1) != 0);
  const bool bar = (top < 4 && (hash >> 9 & 1) != 0) || (top > 23 && (hash >> 10 & 1) != 0) ||
                   (top > 11 && top < 15 && (hash >> 11 & 1) != 0);
  return stem || bar;
}

uint8_t PhotoTone(int x, int y, int channel) {
  const double phase = channel * 1.3;
  return static_cast<uint8_t>(127.5 + 70 * std::sin(x / 210.0 + phase) * std::cos(y / 170.0) +
                              50 * std::sin((x + y) / 37.0 + phase));
}

// Fills the page with `toneOf(x, y, channel)`; a 1-bit page is white from 128 on.
template <class Tone>
TestDib MakePage(int bits, Tone toneOf) {
  TestDib page(testing::MakeHeader(bits, kPageWidth, kPageHeight));
  auto* bytes = static_cast<uint8_t*>(GlobalLock(page.handle()));
  const size_t pixels = page.pixelBytes();
  const size_t stride = pixels / kPageHeight;
  uint8_t* rows = bytes + 40 + page.header().biClrUsed * 4;
  for (int y = 0; y < kPageHeight; ++y) {
    uint8_t* row = rows + static_cast<size_t>(kPageHeight - 1 - y) * stride;
    for (int x = 0; x < kPageWidth; ++x) {
      const uint8_t tone = toneOf(x, y, 1);
      if (bits == 24) {
        for (int channel = 0; channel < 3; ++channel) row[3 * x + channel] = toneOf(x, y, channel);
      } else if (bits == 8) {
        row[x] = tone;
      } else if (bits == 4) {
        row[x / 2] = static_cast<uint8_t>(row[x / 2] | (tone >> 4) << (x % 2 == 0 ? 4 : 0));
      } else if (tone >= 128) {
        row[x / 8] = static_cast<uint8_t>(row[x / 8] | 0x80 >> x % 8);
      }
    }
  }
  GlobalUnlock(page.handle());
  page.Settle();
  return page;
}

}  // namespace

TestDib BenchPage(int bits, unsigned seed) {
  std::mt19937 random(seed);
  return MakePage(bits, [&random](int x, int y, int) {
    const auto noise = static_cast<uint32_t>(random());
    if (noise % 20000 == 0) return static_cast<uint8_t>(IsInk(x, y) ? 255 : 0);
    const auto soft = static_cast<uint8_t>(noise >> 8 & 7);
    return static_cast<uint8_t>(IsInk(x, y) ? 20 + soft : 255 - soft);
  });
}

TestDib BenchPhoto(int bits) { return MakePage(bits, PhotoTone); }

TestDib BenchColours() {
  TestDib photo = BenchPhoto(8);
  testing::Bytes block = photo.block();
  for (size_t i = 0; i < 256; ++i) {
    block[40 + 4 * i] = static_cast<uint8_t>(i % 4 * 85);
    block[41 + 4 * i] = static_cast<uint8_t>(i / 4 % 8 * 36);
    block[42 + 4 * i] = static_cast<uint8_t>(i / 32 * 36);
  }
  photo.SetBlock(block);
  return photo;
}

void CopyPage(benchmark::State& state) {
  const TestDib page(testing::MakeHeader(static_cast<int>(state.range(0)), kPageWidth, kPageHeight));
  const testing::Bytes from = page.block();
  testing::Bytes to(from.size());
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), from.size());
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(page.pixelBytes()));
}
BENCHMARK(CopyPage)->ArgName("bits")->Arg(1)->Arg(4)->Arg(8)->Arg(24)->Unit(benchmark::kMillisecond);

}  // namespace rastrel::bench
