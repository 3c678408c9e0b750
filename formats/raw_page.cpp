#include "formats/raw_page.h"

#include <cstring>
#include <utility>

#include "pages/text.h"

namespace rastrel::formats {
namespace {

// A page of which each pixel comes from that of `page` whose number from(x, y) is.
template <class From>
Raw Moved(const Raw& page, int32_t width, int32_t height, From from) {
  Raw result = RawLike(page, width, height);
  const size_t pixel = page.sampleBytes() * static_cast<size_t>(page.samples);
  uint8_t* out = result.bytes.data();
  for (int64_t y = 0; y < height; ++y) {
    for (int64_t x = 0; x < width; ++x, out += pixel) {
      std::memcpy(out, page.bytes.data() + static_cast<size_t>(from(x, y)) * pixel, pixel);
    }
  }
  return result;
}

}  // namespace

Raw RawLike(const Raw& page, int32_t width, int32_t height) {
  Raw result;
  result.width = width;
  result.height = height;
  result.bits = page.bits;
  result.samples = page.samples;
  result.resolution = page.resolution;
  result.photometric = page.photometric;
  result.sampleFormat = page.sampleFormat;
  result.extras = page.extras;
  result.colours = page.colours;
  result.white = page.white;
  result.bytes.resize(result.rowBytes() * static_cast<size_t>(height));
  return result;
}

Raw Flipped(const Raw& page, bool isVertical) {
  const int64_t width = page.width, right = width - 1, bottom = page.height - 1;
  return Moved(page, page.width, page.height, [=](int64_t x, int64_t y) {
    return isVertical ? (bottom - y) * width + x : y * width + right - x;
  });
}

Raw Turned(const Raw& page, int quarters) {
  const int64_t width = page.width, right = width - 1, bottom = page.height - 1;
  Raw result;
  switch (quarters & 3) {
    case 1:
      result =
          Moved(page, page.height, page.width, [=](int64_t x, int64_t y) { return x * width + right - y; });
      break;
    case 2:
      return Moved(page, page.width, page.height,
                   [=](int64_t x, int64_t y) { return (bottom - y) * width + right - x; });
    case 3:
      result = Moved(page, page.height, page.width,
                     [=](int64_t x, int64_t y) { return (bottom - x) * width + y; });
      break;
    default:
      return page;
  }
  std::swap(result.resolution.x, result.resolution.y);
  return result;
}

Raw Cropped(const Raw& page, int left, int top, int width, int height) {
  const auto length = [](int from, int given, int side) { return given == 0 ? int64_t{side} - from : given; };
  const int64_t columns = length(left, width, page.width), rows = length(top, height, page.height);
  if (left < 0 || top < 0 || columns < 1 || rows < 1 || left + columns > page.width ||
      top + rows > page.height) {
    throw PageError(Text("the rectangle does not lie inside the ", page.width, " x ", page.height,
                         " pixels of the page"));
  }
  Raw result = RawLike(page, static_cast<int32_t>(columns), static_cast<int32_t>(rows));
  const size_t pixel = page.sampleBytes() * static_cast<size_t>(page.samples);
  for (int32_t y = 0; y < result.height; ++y) {
    std::memcpy(result.Row(y), page.Row(y + top) + static_cast<size_t>(left) * pixel, result.rowBytes());
  }
  return result;
}

Raw Upright(Raw page, int orientation) {
  // How each from 2 on came about, undone: a flip, then quarter turns.
  constexpr struct {
    bool isFlipped, isVertical;
    int quarters;
  } kWays[] = {{true, false, 0},   {false, false, 2}, {true, true, 0},  {true, true, -1},
               {false, false, -1}, {true, false, -1}, {false, false, 1}};
  if (orientation < 2 || orientation > 8) return page;
  const auto [isFlipped, isVertical, quarters] = kWays[orientation - 2];
  if (isFlipped) page = Flipped(page, isVertical);
  return quarters == 0 ? page : Turned(page, quarters);
}

}  // namespace rastrel::formats
