#include "pixels/bit_square.h"

#include <initializer_list>

#include "pixels/kernels.h"
#include "pixels/words.h"

namespace rastrel {
namespace {

// Three of the six steps of a transposition, for the rows first[i * Stride]. The last three also put each
// byte's columns into order.
template <int Stride>
inline void ExchangeSteps(uint64_t* first) {
  uint64_t row[8];
  for (int i = 0; i < 8; ++i) row[i] = first[i * Stride];
  for (int i = 0; i < 4; ++i) ExchangeOffDiagonal<4 * Stride>(row[i], row[i + 4]);
  for (const int i : {0, 1, 4, 5}) ExchangeOffDiagonal<2 * Stride>(row[i], row[i + 2]);
  for (const int i : {0, 2, 4, 6}) ExchangeOffDiagonal<Stride>(row[i], row[i + 1]);
  for (int i = 0; i < 8; ++i) first[i * Stride] = row[Stride == 1 ? 7 - i : i];
}

void Transpose(uint64_t* square) {
  for (int i = 0; i < 8; ++i) ExchangeSteps<8>(square + i);
  for (int i = 0; i < 64; i += 8) ExchangeSteps<1>(square + i);
}

}  // namespace

void TransposeBits(uint64_t square[64]) { Widest<Transpose>(square); }

}  // namespace rastrel
