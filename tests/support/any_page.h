// Pages that are the same everywhere, made with the public header alone.
#ifndef RASTREL_TESTS_SUPPORT_ANY_PAGE_H
#define RASTREL_TESTS_SUPPORT_ANY_PAGE_H

#include <rastrel.h>

#include <cstring>
#include <vector>

namespace rastrel::testing {

class Random {
 public:
  explicit Random(uint32_t seed) : state_(seed * 2654435761u + 1) {}
  uint32_t Below(uint32_t bound) {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 17;
    state_ ^= state_ << 5;
    return state_ % bound;
  }

 private:
  uint32_t state_;
};

enum class Content { kNoise, kText, kTones };

// How light a pixel is, 0 to 255: noise, slanted lines with a dark margin and holes, or a slope with a little
// noise.
inline uint32_t LightAt(Content content, int x, int y, int width, int height, Random& random) {
  if (content == Content::kNoise) return random.Below(256);
  if (content == Content::kTones)
    return static_cast<uint32_t>(x * 200 / width + y * 40 / height) + random.Below(16);
  const int line = y * 8 + x;  // about 7 degrees
  const bool isText = line / 8 % 12 < 3 && x % 7 != 0 && x > width / 6;
  const int fromHole = (x - 14) * (x - 14) + (y % 90 - 45) * (y % 90 - 45);
  const bool isHole = fromHole < 110, isMargin = x < 3 || y < 2 || y >= height - 2,
             isSpeck = random.Below(211) == 0;
  return isText || isHole || isMargin || isSpeck ? random.Below(60) : 255 - random.Below(40);
}

inline HGLOBAL MakePage(int bits, int width, int height, Content content, uint32_t seed) {
  BITMAPINFOHEADER header = {};
  header.biSize = sizeof(header);
  header.biWidth = width;
  header.biHeight = height;
  header.biPlanes = 1;
  header.biBitCount = static_cast<uint16_t>(bits);
  header.biClrUsed = bits <= 8 ? 1u << bits : 0;
  header.biXPelsPerMeter = header.biYPelsPerMeter = 5000;
  const size_t stride = (static_cast<size_t>(width) * static_cast<size_t>(bits) + 31) / 32 * 4;
  header.biSizeImage = static_cast<uint32_t>(stride * static_cast<size_t>(height));
  std::vector<uint8_t> page(sizeof(header) + header.biClrUsed * 4);
  std::memcpy(page.data(), &header, sizeof(header));
  for (uint32_t i = 0; i < header.biClrUsed; ++i) {
    const auto grey = static_cast<uint8_t>(i * 255 / (header.biClrUsed - 1));
    std::memset(&page[sizeof(header) + i * 4], grey, 3);
  }
  Random random(seed);
  for (int y = 0; y < height; ++y) {
    std::vector<uint8_t> row(stride);
    for (int x = 0; x < width; ++x) {
      const uint32_t light = LightAt(content, x, y, width, height, random);
      if (bits < 8) {
        const int perByte = 8 / bits;
        row[static_cast<size_t>(x / perByte)] |=
            static_cast<uint8_t>(light >> (8 - bits) << (perByte - 1 - x % perByte) * bits);
        continue;
      }
      for (int byte = 0; byte < bits / 8; ++byte) {
        row[static_cast<size_t>(x * bits / 8 + byte)] =
            static_cast<uint8_t>(byte == 1 ? light : light * (7 + random.Below(2)) / 8);
      }
    }
    page.insert(page.end(), row.begin(), row.end());
  }
  HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, page.size());
  if (void* bytes = GlobalLock(block)) std::memcpy(bytes, page.data(), page.size());
  GlobalUnlock(block);
  return block;
}

inline BITMAPINFOHEADER HeaderOf(HGLOBAL page) {
  BITMAPINFOHEADER header;
  std::memcpy(&header, GlobalLock(page), sizeof(header));
  GlobalUnlock(page);
  return header;
}

// Tables of greys either way round, of colours, of two colours, short ones and ones that are too long; runs
// and noise, in the padding and behind the rows too; fields that lie. The block is a multiple of 8 bytes, as
// no system rounds it then.
inline HGLOBAL MakeAnyPage(Random& random, int depth, bool mayLie) {
  const auto oneIn = [&](uint32_t n) { return random.Below(n) == 0; };
  constexpr int kDepths[] = {1, 1, 1, 4, 8, 8, 8, 24, 24, 24, 2, 16, 32};
  const int bits = depth != 0 ? depth : kDepths[random.Below(13)];
  const bool isWide = oneIn(30);
  const int width = 1 + static_cast<int>(random.Below(isWide ? 3000 : 160)),
            height = 1 + static_cast<int>(random.Below(isWide ? 4 : 70));
  const auto content = static_cast<Content>(random.Below(3));
  HGLOBAL plain = MakePage(bits, width, height, content, random.Below(9999));
  BITMAPINFOHEADER header = HeaderOf(plain);
  const size_t image = header.biSizeImage, tableBytes = size_t{4} * header.biClrUsed;
  std::vector<uint8_t> page(40 + tableBytes + image);
  std::memcpy(page.data(), GlobalLock(plain), page.size());
  GlobalFree(plain);

  const uint32_t kind = random.Below(6), runs = random.Below(3);
  for (size_t i = 40; i < 40 + tableBytes; ++i) {
    const size_t entry = (i - 40) / 4;
    if (kind == 1) page[i] = static_cast<uint8_t>(255 - page[i]);
    if (kind == 2 || (kind == 3 && i % 4 == 0)) page[i] = static_cast<uint8_t>(random.Below(256));
    if (kind == 3 && i % 4 != 0) page[i] = page[i - 1];
    if (kind == 4) page[i] = static_cast<uint8_t>(entry % 2 * 255);
  }
  uint8_t run = 0;
  for (size_t i = 40 + tableBytes; i < page.size() && runs != 0; ++i) {
    if (random.Below(9) == 0)
      run = static_cast<uint8_t>(oneIn(3) ? random.Below(256) : random.Below(2) * 255);
    page[i] = runs == 1 ? run : static_cast<uint8_t>(oneIn(3) ? 0 : random.Below(oneIn(5) ? 256 : 12));
  }
  if (oneIn(5) || bits > 8) {
    header.biClrUsed = oneIn(2) ? 0 : random.Below(8);
    if (bits <= 8 && oneIn(2)) header.biClrUsed = 300;
    page.insert(page.begin() + 40, header.biClrUsed > tableBytes / 4 ? 4 * header.biClrUsed - tableBytes : 0,
                77);
  }
  if (oneIn(3)) header.biYPelsPerMeter = static_cast<int32_t>(random.Below(12000));
  if (oneIn(3)) header.biXPelsPerMeter = header.biYPelsPerMeter = static_cast<int32_t>(random.Below(4000));
  if (oneIn(4)) header.biSizeImage = random.Below(700);
  if (mayLie) {
    constexpr int32_t kSizes[] = {0, -1, INT32_MIN, INT32_MAX, 0x10000, 0x10005};
    if (oneIn(25)) header.biWidth = kSizes[random.Below(6)];
    if (oneIn(25)) header.biHeight = kSizes[random.Below(6)];
    if (oneIn(25)) header.biHeight += 1 + static_cast<int32_t>(random.Below(2)) * 0x10000;
    if (oneIn(25)) header.biClrUsed = oneIn(2) ? 0x40000000 : 2000;
    if (oneIn(25)) header.biCompression = 1 + random.Below(2);
    if (oneIn(25)) header.biPlanes = static_cast<uint16_t>(random.Below(4));
    if (oneIn(25)) header.biBitCount = static_cast<uint16_t>(random.Below(40));
    if (oneIn(40)) header.biSize = oneIn(2) ? 12 : 108;
  }
  std::memcpy(page.data(), &header, sizeof(header));
  page.resize((page.size() + 7 + 8 * random.Below(3)) / 8 * 8);
  if (mayLie && oneIn(20)) page.resize(40 + random.Below(static_cast<uint32_t>(page.size() - 39)) / 8 * 8);
  HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, page.size());
  std::memcpy(GlobalLock(block), page.data(), page.size());
  GlobalUnlock(block);
  return block;
}

}  // namespace rastrel::testing

#endif
