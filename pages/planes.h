// Pictures in plain memory, apart from any DIB: what the page model is worked out on. Row 0 is the top of
// the page.
#ifndef RASTREL_PAGES_PLANES_H
#define RASTREL_PAGES_PLANES_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace rastrel::pages {

// One byte a pixel, rows without padding. Grey values, or a map of any meaning.
class BytePlane {
 public:
  BytePlane() = default;
  BytePlane(int width, int height, uint8_t value = 0)
      : width_(width),
        height_(height),
        bytes_(static_cast<size_t>(width) * static_cast<size_t>(height), value) {}

  int width() const { return width_; }
  int height() const { return height_; }
  bool isEmpty() const { return bytes_.empty(); }
  uint8_t* Row(int y) { return bytes_.data() + static_cast<size_t>(y) * static_cast<size_t>(width_); }
  const uint8_t* Row(int y) const {
    return bytes_.data() + static_cast<size_t>(y) * static_cast<size_t>(width_);
  }
  std::span<uint8_t> bytes() { return bytes_; }
  std::span<const uint8_t> bytes() const { return bytes_; }

 private:
  int width_ = 0, height_ = 0;
  std::vector<uint8_t> bytes_;
};

// One bit a pixel, 64 to a word, the leftmost in the highest bit. Bits beyond the width are 0.
class BitPlane {
 public:
  BitPlane() = default;
  BitPlane(int width, int height)
      : width_(width),
        height_(height),
        wordsPerRow_((static_cast<size_t>(width) + 63) / 64),
        words_(wordsPerRow_ * static_cast<size_t>(height), 0) {}

  int width() const { return width_; }
  int height() const { return height_; }
  bool isEmpty() const { return words_.empty(); }
  size_t wordsPerRow() const { return wordsPerRow_; }
  uint64_t* Row(int y) { return words_.data() + static_cast<size_t>(y) * wordsPerRow_; }
  const uint64_t* Row(int y) const { return words_.data() + static_cast<size_t>(y) * wordsPerRow_; }
  std::span<uint64_t> words() { return words_; }
  std::span<const uint64_t> words() const { return words_; }

  bool Get(int x, int y) const {
    return (Row(y)[static_cast<size_t>(x) / 64] >> (63 - static_cast<unsigned>(x) % 64) & 1) != 0;
  }
  void Set(int x, int y) { Row(y)[static_cast<size_t>(x) / 64] |= Bit(x); }
  void Clear(int x, int y) { Row(y)[static_cast<size_t>(x) / 64] &= ~Bit(x); }

 private:
  static uint64_t Bit(int x) { return uint64_t{1} << (63 - static_cast<unsigned>(x) % 64); }

  int width_ = 0, height_ = 0;
  size_t wordsPerRow_ = 0;
  std::vector<uint64_t> words_;
};

}  // namespace rastrel::pages

#endif
