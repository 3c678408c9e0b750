// Pictures in plain memory, apart from any DIB: what the page model is worked out on. Row 0 is the top of
// the page.
#ifndef RASTREL_PAGES_PLANES_H
#define RASTREL_PAGES_PLANES_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

namespace rastrel::pages {

enum class PlaneContent : uint8_t {
  kZeroed,
  kUnset,  // for what is written in full: fresh memory costs as much as most work on it
};

// Memory of planes: as that of pages is had, on pages of the system that suit large blocks. Work on a page
// makes many planes, one after the other, and fresh memory is dear: of the large ones that a thread gives up
// a few are kept for its next ones of about their size (planes.cpp says how many). Throws std::bad_alloc.
class PlaneBlock {
 public:
  PlaneBlock() = default;
  PlaneBlock(size_t bytes, PlaneContent content);
  ~PlaneBlock();
  PlaneBlock(PlaneBlock&& other) noexcept : memory_(std::exchange(other.memory_, {})) {}
  PlaneBlock& operator=(PlaneBlock&& other) noexcept {
    std::swap(memory_, other.memory_);
    return *this;
  }
  void* data() const { return memory_.data; }

  struct Memory {
    void* block = nullptr;  // its handle
    void* data = nullptr;
    size_t size = 0;
  };

 private:
  Memory memory_;
};

// So many numbers.
template <class Number>
class PlaneNumbers {
 public:
  PlaneNumbers() = default;
  PlaneNumbers(size_t count, PlaneContent content) : block_(count * sizeof(Number), content), count_(count) {}
  PlaneNumbers(const PlaneNumbers& other) : PlaneNumbers(other.count_, PlaneContent::kUnset) {
    std::copy_n(other.data(), count_, data());
  }
  PlaneNumbers(PlaneNumbers&& other) noexcept
      : block_(std::move(other.block_)), count_(std::exchange(other.count_, 0)) {}
  PlaneNumbers& operator=(PlaneNumbers other) noexcept {
    block_ = std::move(other.block_);
    count_ = other.count_;
    return *this;
  }

  size_t size() const { return count_; }
  Number* data() const { return static_cast<Number*>(block_.data()); }

 private:
  PlaneBlock block_;
  size_t count_ = 0;
};

// One byte a pixel, rows without padding. Grey values, or a map of any meaning.
class BytePlane {
 public:
  BytePlane() = default;
  BytePlane(int width, int height, PlaneContent content)
      : width_(width),
        height_(height),
        bytes_(static_cast<size_t>(width) * static_cast<size_t>(height), content) {}
  BytePlane(int width, int height, uint8_t value = 0)
      : BytePlane(width, height, value == 0 ? PlaneContent::kZeroed : PlaneContent::kUnset) {
    if (value != 0) std::fill_n(bytes_.data(), bytes_.size(), value);
  }

  int width() const { return width_; }
  int height() const { return height_; }
  bool isEmpty() const { return bytes_.size() == 0; }
  uint8_t* Row(int y) { return bytes_.data() + static_cast<size_t>(y) * static_cast<size_t>(width_); }
  const uint8_t* Row(int y) const {
    return bytes_.data() + static_cast<size_t>(y) * static_cast<size_t>(width_);
  }
  std::span<uint8_t> bytes() { return {bytes_.data(), bytes_.size()}; }
  std::span<const uint8_t> bytes() const { return {bytes_.data(), bytes_.size()}; }

 private:
  int width_ = 0, height_ = 0;
  PlaneNumbers<uint8_t> bytes_;
};

// One bit a pixel, 64 to a word, the leftmost in the highest bit. Bits beyond the width are 0.
class BitPlane {
 public:
  BitPlane() = default;
  BitPlane(int width, int height, PlaneContent content = PlaneContent::kZeroed)
      : width_(width),
        height_(height),
        wordsPerRow_((static_cast<size_t>(width) + 63) / 64),
        words_(wordsPerRow_ * static_cast<size_t>(height), content) {}

  int width() const { return width_; }
  int height() const { return height_; }
  bool isEmpty() const { return words_.size() == 0; }
  size_t wordsPerRow() const { return wordsPerRow_; }
  uint64_t* Row(int y) { return words_.data() + static_cast<size_t>(y) * wordsPerRow_; }
  const uint64_t* Row(int y) const { return words_.data() + static_cast<size_t>(y) * wordsPerRow_; }
  std::span<uint64_t> words() { return {words_.data(), words_.size()}; }
  std::span<const uint64_t> words() const { return {words_.data(), words_.size()}; }

  bool Get(int x, int y) const {
    return (Row(y)[static_cast<size_t>(x) / 64] >> (63 - static_cast<unsigned>(x) % 64) & 1) != 0;
  }
  void Set(int x, int y) { Row(y)[static_cast<size_t>(x) / 64] |= Bit(x); }
  void Clear(int x, int y) { Row(y)[static_cast<size_t>(x) / 64] &= ~Bit(x); }

 private:
  static uint64_t Bit(int x) { return uint64_t{1} << (63 - static_cast<unsigned>(x) % 64); }

  int width_ = 0, height_ = 0;
  size_t wordsPerRow_ = 0;
  PlaneNumbers<uint64_t> words_;
};

}  // namespace rastrel::pages

#endif
