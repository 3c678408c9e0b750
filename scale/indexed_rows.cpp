#include "scale/indexed_rows.h"

#include <cstring>

#include "pixels/kernels.h"

namespace rastrel {
namespace {

bool IsSum(const ByteMap::Table& table, uint8_t inverted, uint8_t added) {
  for (size_t i = 0; i < table.size(); ++i) {
    if (table[i] != static_cast<uint8_t>((i ^ inverted) + added)) return false;
  }
  return true;
}

void AddToAll(const uint8_t* from, uint8_t inverted, uint8_t added, size_t count, uint8_t* to) {
  for (size_t i = 0; i < count; ++i) to[i] = static_cast<uint8_t>((from[i] ^ inverted) + added);
}

}  // namespace

ByteMap::ByteMap(const Table& table) : table_(table) {
  inverted_ = static_cast<uint8_t>(table[1] - table[0]) == 1 ? 0 : 0xFF;
  added_ = static_cast<uint8_t>(table[0] - inverted_);
  isSum_ = IsSum(table, inverted_, added_);
}

void ByteMap::Map(const uint8_t* from, size_t count, uint8_t* to) const {
  if (isIdentity()) {
    if (to != from) std::memcpy(to, from, count);
  } else if (isSum_) {
    Widest<AddToAll>(from, inverted_, added_, count, to);
  } else {
    for (size_t i = 0; i < count; ++i) to[i] = table_[from[i]];
  }
}

void ReadLevels(const uint8_t* row, unsigned bits, size_t first, size_t count, const ByteMap& levels,
                uint8_t* to) {
  if (bits == 8) return levels.Map(row + first, count, to);
  row += first / 2;
  size_t x = 0;
  if (first % 2 != 0) to[x++] = levels[*row++ & 15];
  for (; x + 2 <= count; x += 2, ++row) {
    to[x] = levels[*row >> 4];
    to[x + 1] = levels[*row & 15];
  }
  if (x < count) to[x] = levels[*row >> 4];
}

void WriteIndices(const uint8_t* levels, size_t count, unsigned bits, const ByteMap& indices, size_t stride,
                  uint8_t* row) {
  if (bits == 8) {
    indices.Map(levels, count, row);
    std::memset(row + count, 0, stride - count);
    return;
  }
  for (size_t i = 0; i < count / 2; ++i) {
    row[i] = static_cast<uint8_t>(indices[levels[2 * i]] << 4 | (indices[levels[2 * i + 1]] & 15));
  }
  if (count % 2 != 0) row[count / 2] = static_cast<uint8_t>(indices[levels[count - 1]] << 4);
  std::memset(row + (count + 1) / 2, 0, stride - (count + 1) / 2);
}

}  // namespace rastrel
