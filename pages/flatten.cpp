#include "pages/flatten.h"

#include <algorithm>
#include <array>
#include <vector>

#include "pages/grow.h"

namespace rastrel::pages {
namespace {

constexpr int kWhite = 255;
constexpr int kUnit = 256;  // the paper's own brightness, where brightness is a share of the paper's

// Paper is white from this share of its brightness on; grain and creases are above it.
constexpr int kWhiteFrom = 225;  // 88 %
// Up to here a pixel is ink and stays; between the two it is brought to white by degrees, as the rims of
// letters are.
constexpr int kInkUpTo = 128;  // 50 %
constexpr int kShowThroughLeft =
    4;                        // a quarter of what shows through is left: it fades, and nothing is cut out
constexpr int kRimOfInk = 2;  // pixels beside ink that belong to its edge

// 65536 times the quotient of a numerator and each brightness of paper, rounded.
std::array<uint32_t, 256> Quotients(uint32_t numerator) {
  std::array<uint32_t, 256> quotients{};
  for (uint32_t i = 1; i < 256; ++i) quotients[i] = (numerator * 65536 + i / 2) / i;
  return quotients;
}

int Channels(const PixelRows& page) { return std::min(page.bytesPerPixel, 3); }

// Calls change(value, paper) for each byte of each pixel that is in no picture. `ground(channel)` is the map
// of the paper that a channel is held against.
template <class Ground, class Change>
void ForEachByte(const PixelRows& page, const PaperMap& paper, const BitPlane* pictures, Ground ground,
                 Change change) {
  std::vector<uint8_t> bright(static_cast<size_t>(paper.width()));
  for (int y = 0; y < paper.height(); ++y) {
    uint8_t* row = page.topRow + y * page.stride;
    for (int channel = 0; channel < Channels(page); ++channel) {
      paper.SpreadRow(ground(channel), y, bright);
      for (int x = 0; x < paper.width(); ++x) {
        if (pictures != nullptr && pictures->Get(x, y)) continue;
        uint8_t& value = row[static_cast<ptrdiff_t>(x) * page.bytesPerPixel + channel];
        value = change(x, y, value, bright[static_cast<size_t>(x)]);
      }
    }
  }
}

// The paper's map for each channel: its colour where it is known.
std::array<BytePlane, 3> GroundOfChannels(const PixelRows& page, const PaperMap& paper) {
  std::array<BytePlane, 3> grounds;
  if (page.bytesPerPixel == 1) {
    grounds[0] = paper.brightness();
    return grounds;
  }
  for (BytePlane& ground : grounds) ground = BytePlane(paper.columns(), paper.rows());
  for (int r = 0; r < paper.rows(); ++r) {
    for (int c = 0; c < paper.columns(); ++c) {
      const PaperColour colour = paper.ColourOfCell(c, r);
      const std::array<uint8_t, 3> bytes = {colour.blue, colour.green, colour.red};
      for (size_t i = 0; i < 3; ++i) grounds[i].Row(r)[c] = std::max(bytes[i], uint8_t{1});
    }
  }
  return grounds;
}

}  // namespace

void EvenLight(const PixelRows& page, const PaperMap& paper, const BitPlane* pictures) {
  if (paper.isEmpty()) return;
  const std::array<uint32_t, 256> factors = Quotients(paper.level());
  ForEachByte(
      page, paper, pictures, [&](int) -> const BytePlane& { return paper.brightness(); },
      [&](int, int, uint8_t value, uint8_t ground) {
        const uint32_t lit = (value * factors[ground] + 32768) >> 16;
        return static_cast<uint8_t>(std::min<uint32_t>(lit, kWhite));
      });
}

void WhitenPaper(const PixelRows& page, const PaperMap& paper, const BitPlane* pictures) {
  if (paper.isEmpty()) return;
  const std::array<BytePlane, 3> grounds = GroundOfChannels(page, paper);
  const std::array<uint32_t, 256> shares = Quotients(kUnit);
  ForEachByte(
      page, paper, pictures,
      [&](int channel) -> const BytePlane& { return grounds[static_cast<size_t>(channel)]; },
      [&](int, int, uint8_t value, uint8_t ground) {
        const int share = static_cast<int>(value * shares[ground] >> 16);
        const int white = std::clamp(share - kInkUpTo, 0, kWhiteFrom - kInkUpTo);
        return static_cast<uint8_t>(value + (kWhite - value) * white / (kWhiteFrom - kInkUpTo));
      });
}

void WeakenShowThrough(const PixelRows& page, const PaperMap& paper, const BitPlane& ink,
                       const BitPlane* pictures) {
  if (paper.isEmpty()) return;
  const BitPlane kept = Widened(ink, kRimOfInk);
  const std::array<BytePlane, 3> grounds = GroundOfChannels(page, paper);
  ForEachByte(
      page, paper, pictures,
      [&](int channel) -> const BytePlane& { return grounds[static_cast<size_t>(channel)]; },
      [&](int x, int y, uint8_t value, uint8_t ground) {
        if (value >= ground || kept.Get(x, y)) return value;
        return static_cast<uint8_t>(ground - (ground - value) / kShowThroughLeft);
      });
}

}  // namespace rastrel::pages
