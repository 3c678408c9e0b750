// Dithering by error diffusion: each pixel's error goes to the pixels to its right and below. Rows are taken
// as stored, from the bottom of the picture up, always from left to right.
#include <algorithm>

#include "frame/rastrel.h"
#include "tone/diffusion_kernels.h"
#include "tone/dither_frame.h"
#include "tone/wavefront.h"

namespace rastrel {
namespace {

struct FloydSteinbergDither {
  static constexpr bool kFirstPixelIsRed = false;
  using Binary = FloydSteinberg<BlackOrWhite, 1>;
  using RedOrGreen = FloydSteinberg<Steps<5, 7>, 2>;
  using Blue = FloydSteinberg<Steps<6, 3>, 2>;
};

struct JarvisDither {
  // In grey, the first stored pixel of a page counts by its red alone. Kept: callers of DitherJJN compare
  // its pages with stored ones.
  static constexpr bool kFirstPixelIsRed = true;
  using Binary = Jarvis<BlackOrWhite, 1, 3>;
  using RedOrGreen = Jarvis<Steps<5, 7>, 1, 3>;
  using Blue = Jarvis<Steps<6, 4>, 1, 3>;
};

// Calls do(first, count) for the strips of a page.
template <class Do>
void ForStrips(int height, Do&& doStrip) {
  for (int first = 0; first < height; first += kLanes) doStrip(first, std::min(kLanes, height - first));
}

template <class Method>
bool DitherGrey(const PagePlanes& page, const Rows& result) {
  const WavefrontMemory memory(page.width(), page.height(), 1, Method::Binary::kKept);
  if (!memory) return false;
  ForStrips(page.height(), [&](int first, int count) {
    for (int i = 0; i < count; ++i) page.ReadGrey(first + i, memory.Row(0, i));
    if (Method::kFirstPixelIsRed && first == 0) *memory.Row(0, 0) = page.FirstRed(0);
    DiffuseStrip<typename Method::Binary>(memory, 0, count, page.width());
    for (int i = 0; i < count; ++i) PackBlackAndWhite(memory.Row(0, i), result, first + i);
  });
  return true;
}

using PackColours = void (*)(const uint8_t*, const uint8_t*, const uint8_t*, const Rows&, int);

// Red, green and blue each by their own; the kernels keep equally much.
template <class RedOrGreen, class Blue>
bool DitherColours(const PagePlanes& page, const Rows& result, PackColours pack) {
  const WavefrontMemory memory(page.width(), page.height(), 3, Blue::kKept);
  if (!memory) return false;
  ForStrips(page.height(), [&](int first, int count) {
    for (int i = 0; i < count; ++i) {
      page.ReadColours(first + i, memory.Row(0, i), memory.Row(1, i), memory.Row(2, i));
    }
    DiffuseStrip<RedOrGreen>(memory, 0, count, page.width());
    DiffuseStrip<RedOrGreen>(memory, 1, count, page.width());
    DiffuseStrip<Blue>(memory, 2, count, page.width());
    for (int i = 0; i < count; ++i) {
      pack(memory.Row(0, i), memory.Row(1, i), memory.Row(2, i), result, first + i);
    }
  });
  return true;
}

template <class Method>
bool DiffuseErrors(const PagePlanes& page, int bits, const Rows& result) {
  using Binary = typename Method::Binary;
  switch (bits) {
    case 1:
      return DitherGrey<Method>(page, result);
    case 4:
      return DitherColours<Binary, Binary>(page, result, PackEightColours);
    default:
      return DitherColours<typename Method::RedOrGreen, typename Method::Blue>(page, result, PackCube);
  }
}

}  // namespace
}  // namespace rastrel

HGLOBAL RASTREL_CALL DitherFS4(HGLOBAL dib, int bits) {
  using namespace rastrel;
  constexpr DitherRules kRules = {.nullHandle = ErrParameter, .cannotLock = ErrLockMemory};
  return Dither(dib, bits, kRules, DiffuseErrors<FloydSteinbergDither>);
}

HGLOBAL RASTREL_CALL DitherJJN(HGLOBAL dib, int bits) {
  using namespace rastrel;
  constexpr DitherRules kRules = {.nullHandle = ErrLockMemory, .cannotLock = ErrNoMemory};
  return Dither(dib, bits, kRules, DiffuseErrors<JarvisDither>);
}
