#include "pixels/bit_rows.h"

#include <cstring>

#include "pixels/bit_runs.h"
#include "pixels/kernels.h"

namespace rastrel {
namespace {

void CopyShifted(const uint8_t* row, uint64_t bit, uint64_t count, uint8_t* to) {
  CombineBits(to, 0, row, bit, count, [](uint8_t /*to*/, uint8_t from) { return from; });
}

}  // namespace

void CopyBits(const uint8_t* row, uint64_t bit, uint64_t count, uint8_t* to, size_t stride) {
  const auto whole = static_cast<size_t>(count / 8);
  std::memset(to + whole, 0, stride - whole);
  if (bit % 8 != 0) return Widest<CopyShifted>(row, bit, count, to);
  row += static_cast<size_t>(bit / 8);
  std::memcpy(to, row, whole);
  if (count % 8 != 0) to[whole] = static_cast<uint8_t>(row[whole] & 0xFF00u >> count % 8);
}

}  // namespace rastrel
