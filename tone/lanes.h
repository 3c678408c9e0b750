// Sixteen 16-bit numbers that are worked on at once, one a row. Written with the compilers' own vector types,
// so that every processor gets its best instructions and the same results.
#ifndef RASTREL_TONE_LANES_H
#define RASTREL_TONE_LANES_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace rastrel {

constexpr int kLanes = 16;

// Two halves of the width that every processor has: wider vectors would be taken apart number by number where
// they are missing.
struct Lanes {
  using Half = int16_t __attribute__((vector_size(16)));
  Half low;
  Half high;

  static Lanes Of(int16_t value) { return {Half{} + value, Half{} + value}; }
  // 0, step, 2 * step ...
  static Lanes Ramp(int16_t step) {
    return {Half{0, 1, 2, 3, 4, 5, 6, 7} * step, Half{8, 9, 10, 11, 12, 13, 14, 15} * step};
  }
  int16_t last() const { return high[7]; }
};

inline Lanes operator+(Lanes a, Lanes b) { return {a.low + b.low, a.high + b.high}; }
inline Lanes operator-(Lanes a, Lanes b) { return {a.low - b.low, a.high - b.high}; }
inline Lanes operator&(Lanes a, Lanes b) { return {a.low & b.low, a.high & b.high}; }
inline Lanes operator|(Lanes a, Lanes b) { return {a.low | b.low, a.high | b.high}; }

// Comparisons give all bits of a lane where they hold.
inline Lanes operator>(Lanes a, Lanes b) { return {a.low > b.low, a.high > b.high}; }
inline Lanes IsZero(Lanes a) { return {a.low == 0, a.high == 0}; }

inline Lanes Smaller(Lanes a, Lanes b) {
  return {a.low < b.low ? a.low : b.low, a.high < b.high ? a.high : b.high};
}

template <int kBits>
Lanes ShiftedLeft(Lanes a) {
  return {a.low << kBits, a.high << kBits};
}

// Rounds down.
template <int kBits>
Lanes ShiftedRight(Lanes a) {
  return {a.low >> kBits, a.high >> kBits};
}

// a * kWeight / kDivisor, truncated towards zero. The product fits 16 bits.
template <int kWeight, int kDivisor>
Lanes Share(Lanes a) {
  constexpr int16_t weight = kWeight;
  constexpr int16_t divisor = kDivisor;
  return {a.low * weight / divisor, a.high * weight / divisor};
}

// Each lane gets the one before it, lane 0 gets *first. The three numbers before *first are read as well.
// (The plain shuffle of 16-bit numbers is slow on the oldest processors; those of 64 bits and shifts are
// not.)
inline Lanes MovedOn(Lanes a, const int16_t* first) {
  using Quads = uint64_t __attribute__((vector_size(16)));
  Quads incoming = {};
  std::memcpy(&incoming, first - 3, sizeof(uint64_t));
  const auto low = reinterpret_cast<Quads>(a.low);
  const auto high = reinterpret_cast<Quads>(a.high);
  const Quads beforeLow = __builtin_shufflevector(incoming, low, 0, 2);
  const Quads beforeHigh = __builtin_shufflevector(low, high, 1, 2);
  return {reinterpret_cast<Lanes::Half>(low << 16 | beforeLow >> 48),
          reinterpret_cast<Lanes::Half>(high << 16 | beforeHigh >> 48)};
}

// ---- tiles of bytes -------------------------------------------------------------------------------------

// 16 rows of 16 bytes, read and written by rows or by columns. The upper and the lower 8 rows stand apart, as
// the two halves of the lanes do.
class Tile {
 public:
  // In rows, part[i] is a row; in columns, part[i] is column 2 * i and then column 2 * i + 1.
  using Bytes = uint8_t __attribute__((vector_size(16)));
  using Part = Bytes[kLanes / 2];

  void SetRow(int row, const uint8_t* from) { std::memcpy(&At(row), from, sizeof(Bytes)); }
  void GetRow(int row, uint8_t* to) { std::memcpy(to, &At(row), sizeof(Bytes)); }

  // Each round interleaves the first half of a part's rows with the second half. That rotates the 7 bits of a
  // byte's place by one: from (row, column) to (column, row) in 3 rounds, and back in 4.
  void RowsToColumns() {
    Interleave<3>(upper_);
    Interleave<3>(lower_);
  }
  void ColumnsToRows() {
    Interleave<4>(upper_);
    Interleave<4>(lower_);
  }

  Lanes EvenColumn(int pair) const { return {First8(upper_[pair]), First8(lower_[pair])}; }
  Lanes OddColumn(int pair) const { return {Last8(upper_[pair]), Last8(lower_[pair])}; }
  // The low bytes of each.
  void SetColumns(int pair, Lanes even, Lanes odd) {
    upper_[pair] = LowBytes(even.low, odd.low);
    lower_[pair] = LowBytes(even.high, odd.high);
  }

 private:
  Bytes& At(int row) { return row < kLanes / 2 ? upper_[row] : lower_[row - kLanes / 2]; }

  static Bytes InterleavedFirst8(Bytes a, Bytes b) {
    return __builtin_shufflevector(a, b, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
  }
  static Bytes InterleavedLast8(Bytes a, Bytes b) {
    return __builtin_shufflevector(a, b, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31);
  }
  static Lanes::Half First8(Bytes a) { return reinterpret_cast<Lanes::Half>(InterleavedFirst8(a, Bytes{})); }
  static Lanes::Half Last8(Bytes a) { return reinterpret_cast<Lanes::Half>(InterleavedLast8(a, Bytes{})); }
  static Bytes LowBytes(Lanes::Half a, Lanes::Half b) {
    return __builtin_shufflevector(reinterpret_cast<Bytes>(a), reinterpret_cast<Bytes>(b), 0, 2, 4, 6, 8, 10,
                                   12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
  }

  template <int kRounds>
  static void Interleave(Part& part) {
    for (int round = 0; round < kRounds; ++round) {
      const Bytes a[4] = {part[0], part[1], part[2], part[3]};
      const Bytes b[4] = {part[4], part[5], part[6], part[7]};
      for (int i = 0; i < 4; ++i) {
        part[2 * i] = InterleavedFirst8(a[i], b[i]);
        part[2 * i + 1] = InterleavedLast8(a[i], b[i]);
      }
    }
  }

  Part upper_ = {};
  Part lower_ = {};
};

}  // namespace rastrel

#endif
