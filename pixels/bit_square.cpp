#include "pixels/bit_square.h"

#include <initializer_list>

#include "pixels/processor.h"

namespace rastrel {
namespace {

// Of two rows of a square, exchanges the pieces of `Size` bits that lie off its diagonal.
template <int Size>
inline void ExchangePieces(uint64_t& upper, uint64_t& lower) {
  constexpr uint64_t kLow = ~uint64_t{0} / ((uint64_t{1} << Size) + 1);
  const uint64_t exchanged = (upper >> Size ^ lower) & kLow;
  lower ^= exchanged;
  upper ^= exchanged << Size;
}

// Three of the six steps of a transposition, for the rows first[i * Stride]. The last three also put each
// byte's columns into order.
template <int Stride>
inline void ExchangeSteps(uint64_t* first) {
  uint64_t row[8];
  for (int i = 0; i < 8; ++i) row[i] = first[i * Stride];
  for (int i = 0; i < 4; ++i) ExchangePieces<4 * Stride>(row[i], row[i + 4]);
  for (const int i : {0, 1, 4, 5}) ExchangePieces<2 * Stride>(row[i], row[i + 2]);
  for (const int i : {0, 2, 4, 6}) ExchangePieces<Stride>(row[i], row[i + 1]);
  for (int i = 0; i < 8; ++i) first[i * Stride] = row[Stride == 1 ? 7 - i : i];
}

// Compiled twice, which only names of this file can be: others would be exported.
RASTREL_ALSO_AVX2 void Transpose(uint64_t* square) {
  for (int i = 0; i < 8; ++i) ExchangeSteps<8>(square + i);
  for (int i = 0; i < 64; i += 8) ExchangeSteps<1>(square + i);
}

}  // namespace

void TransposeBits(uint64_t square[64]) { Transpose(square); }

}  // namespace rastrel
