// Rows of 4- or 8-bit indices turned into levels of grey and back.
#ifndef RASTREL_SCALE_INDEXED_ROWS_H
#define RASTREL_SCALE_INDEXED_ROWS_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace rastrel {

// What every byte turns into. Tables that only invert or add, as those of usual ramps do, are not looked up.
class ByteMap {
 public:
  using Table = std::array<uint8_t, 256>;
  explicit ByteMap(const Table& table);

  uint8_t operator[](size_t value) const { return table_[value]; }
  bool isIdentity() const { return isSum_ && inverted_ == 0 && added_ == 0; }
  // `to` may be `from`.
  void Map(const uint8_t* from, size_t count, uint8_t* to) const;

 private:
  Table table_;
  bool isSum_;  // each entry is (its number ^ inverted_) + added_
  uint8_t inverted_;
  uint8_t added_;
};

// Writes the levels of `count` pixels from column `first` on.
void ReadLevels(const uint8_t* row, unsigned bits, size_t first, size_t count, const ByteMap& levels,
                uint8_t* to);

// Writes a row of `stride` bytes: the indices of `count` levels, zeros behind them. `row` may be `levels` at
// 8 bits.
void WriteIndices(const uint8_t* levels, size_t count, unsigned bits, const ByteMap& indices, size_t stride,
                  uint8_t* row);

}  // namespace rastrel

#endif
