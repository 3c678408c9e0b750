#include "scale/combined_bits.h"

#include <algorithm>
#include <cstring>

#include "pixels/kernels.h"
#include "pixels/words.h"

namespace rastrel {
namespace {

constexpr uint64_t AllBits(bool bit) { return bit ? ~uint64_t{0} : 0; }

// A function of a source bit and a destination bit, for 64 of them at a time: the XOR of those of its terms
// that are 1. Every function of two bits is one of these.
struct BitFunction {
  uint64_t constant, source, destination, both;

  uint64_t operator()(uint64_t s, uint64_t d) const {
    return constant ^ (s & source) ^ (d & destination) ^ (s & d & both);
  }
};

// What happens to the bits: AND of both by itself, what most pages laid on one another ask for and as fast as
// memory, any other function, or two by a mask.
enum class Way { kAnd, kAny, kThroughMask };

struct BitTask {
  BitFunction kept;
  BitFunction blackened;  // what the source becomes where the mask is black
  uint64_t maskConstant, maskBits;

  bool IsAnd() const { return (kept.constant | kept.source | kept.destination | ~kept.both) == 0; }

  template <Way kWay>
  uint64_t Combined(uint64_t s, uint64_t m, uint64_t d) const {
    if constexpr (kWay == Way::kAnd) return s & d;
    if constexpr (kWay == Way::kAny) return kept(s, d);
    const uint64_t white = maskConstant ^ (m & maskBits);
    return (kept(s, d) & white) | (blackened(s, d) & ~white);
  }
};

// What becomes of the destination's indices under source pixels that are `zero` or `one` in colour.
BitFunction BitFunctionFor(const Combination& task, Rgb zero, Rgb one) {
  const auto outcome = [&](Rgb source, size_t destination) {
    const Rgb other = task.isAnd ? task.destination.table.colours[destination] : 0xFFFFFF;
    return AllBits(NearestIndex(task.target, source & other) != 0);
  };
  const uint64_t constant = outcome(zero, 0);
  const uint64_t source = constant ^ outcome(one, 0);
  const uint64_t destination = constant ^ outcome(zero, 1);
  return {constant, source, destination, constant ^ source ^ destination ^ outcome(one, 1)};
}

BitTask BitTaskFor(const Combination& task) {
  const unsigned bits = task.source.bits;
  if (bits > 1) {
    const uint64_t pixels = bits == 16 ? 0x7FFF7FFF7FFF7FFF : bits == 32 ? 0x00FFFFFF00FFFFFF : AllBits(true);
    const BitFunction function = task.isAnd ? BitFunction{0, 0, 0, pixels} : BitFunction{0, pixels, 0, 0};
    return {function, {}, AllBits(true), 0};
  }
  const auto& colours = task.source.table.colours;
  const BitFunction kept = BitFunctionFor(task, colours[0], colours[1]);
  if (task.mask == nullptr) return {kept, {}, AllBits(true), 0};
  const bool white[2] = {IsWhite(task.mask->table.colours[0]), IsWhite(task.mask->table.colours[1])};
  return {kept, BitFunctionFor(task, 0, 0), AllBits(white[0]), AllBits(white[0] ^ white[1])};
}

// Grey from black to white in whole steps of 255 / n: combining indices is combining colours.
bool IsGreyRamp(const ColourTable& table, unsigned bits) {
  if (table.count != 1u << bits) return false;
  const unsigned step = 255 / (table.count - 1);
  for (unsigned i = 0; i < table.count; ++i) {
    if (table.colours[i] != i * step * 0x010101) return false;
  }
  return true;
}

// Whether each entry is the nearest to itself: no two are equal.
bool IsOwnNearest(const ColourTable& table, unsigned bits) {
  auto sorted = table.colours;
  const auto end = sorted.begin() + table.count;
  std::sort(sorted.begin(), end);
  return table.count == 1u << bits && std::adjacent_find(sorted.begin(), end) == end;
}

bool CombinesAsBits(const Combination& task) {
  const unsigned bits = task.source.bits;
  if (bits != task.destination.bits) return false;
  if (bits == 1) return task.mask == nullptr || task.mask->bits == 1;
  if (task.mask != nullptr) return false;
  if (bits > 8) return true;
  if (task.source.table.colours != task.target.colours) return false;
  if (!task.isAnd) return IsOwnNearest(task.target, bits);
  return task.destination.table.colours == task.target.colours && IsGreyRamp(task.target, bits);
}

// The bytes of the rows that are touched.
struct TouchedBytes {
  int64_t first, count;  // in the destination
  int64_t source;        // the source's byte whose bits come first
  unsigned left;         // by how many bits, 0 to 7, the source's move
  size_t followingByte;  // behind the last word: 8, or 7 again where the source's row ends
  uint8_t firstBits;     // of the first byte
  uint64_t lastBits;     // of the last word

  explicit TouchedBytes(const Combination& task) {
    const int64_t bits = task.source.bits;
    const int64_t begin = task.across.destination * bits;
    const int64_t end = begin + task.across.count * bits;
    const int64_t move = task.across.source * bits - begin;
    first = begin / 8;
    count = (end + 7) / 8 - first;
    source = first + (move >> 3);
    left = static_cast<unsigned>(move & 7);
    followingByte = source + count < static_cast<int64_t>(task.source.rows.stride) ? 8 : 7;
    firstBits = static_cast<uint8_t>(0xFF >> begin % 8);
    lastBits = ~(uint64_t{0x7F} >> (end - 1) % 8 << 56);
  }
};

// A row of the source or the mask, its bits moved to where the destination's lie. In a byte the leftmost bit
// is highest, so that this needs no order of bytes.
template <bool kMoved>
struct MovedRow {
  const uint8_t* row;
  unsigned left;
  uint64_t leftBits;  // which bits of a byte come from it, the others from the byte that follows

  MovedRow(const uint8_t* first, unsigned shift)
      : row(first), left(shift), leftBits((0xFFu << shift & 0xFF) * 0x0101010101010101u) {}

  uint64_t Moved(uint64_t word, uint64_t following) const {
    return (word << left & leftBits) | (following >> (8 - left) & ~leftBits);
  }
  uint64_t At(size_t at) const {
    const uint64_t word = LoadWord(row + at);
    return kMoved ? Moved(word, LoadWord(row + at + 1)) : word;
  }
  // As At, where nothing may lie behind the word.
  uint64_t LastAt(size_t at, size_t followingByte) const {
    const uint64_t word = LoadWord(row + at);
    return kMoved ? Moved(word, word >> 8 | uint64_t{row[at + followingByte]} << 56) : word;
  }
};

template <bool kMoved, Way kWay>
[[gnu::always_inline]] inline void CombineRow(const BitTask& task, const TouchedBytes& bytes,
                                              const uint8_t* source, const uint8_t* mask,
                                              uint8_t* __restrict row) {
  const MovedRow<kMoved> from(source, bytes.left), through(mask, bytes.left);
  const auto combined = [&](uint64_t s, uint64_t m, uint64_t d) __attribute__((always_inline)) {
    return task.Combined<kWay>(s, m, d);
  };
  // The last word overlaps others, so that it is worked out while the row is as it was.
  const size_t last = static_cast<size_t>(bytes.count) - 8;
  const uint8_t firstBefore = row[0];
  const uint64_t lastBefore = LoadWord(row + last);
  const uint64_t lastAfter =
      combined(from.LastAt(last, bytes.followingByte), through.LastAt(last, bytes.followingByte), lastBefore);
  const size_t words = (last + 7) / 8;
  for (size_t i = 0; i < words; ++i) {
    StoreWord(row + 8 * i, combined(from.At(8 * i), through.At(8 * i), LoadWord(row + 8 * i)));
  }
  StoreWord(row + last, (lastAfter & bytes.lastBits) | (lastBefore & ~bytes.lastBits));
  row[0] = static_cast<uint8_t>((row[0] & bytes.firstBits) | (firstBefore & ~bytes.firstBits));
}

template <bool kMoved, Way kWay>
void CombineRows(const Combination& task, const BitTask& bitTask, const TouchedBytes& touched) {
  const BitTask functions = bitTask;  // copies, which no store to a row can change
  const TouchedBytes bytes = touched;
  for (int64_t y = 0; y < task.down.count; ++y) {
    const auto sourceY = static_cast<int>(task.down.source + y);
    const auto destinationY = static_cast<int>(task.down.destination + y);
    const uint8_t* source = task.source.rows.PageRow(sourceY) + bytes.source;
    const uint8_t* mask =
        kWay == Way::kThroughMask ? task.mask->rows.PageRow(sourceY) + bytes.source : source;
    CombineRow<kMoved, kWay>(functions, bytes, source, mask,
                             task.destination.rows.PageRow(destinationY) + bytes.first);
  }
}

// By whether bits move, and by the way.
constexpr Kernel<void (*)(const Combination& task, const BitTask& bitTask, const TouchedBytes& touched)>
    kPasses[2][3] = {{Widest<CombineRows<false, Way::kAnd>>, Widest<CombineRows<false, Way::kAny>>,
                      Widest<CombineRows<false, Way::kThroughMask>>},
                     {Widest<CombineRows<true, Way::kAnd>>, Widest<CombineRows<true, Way::kAny>>,
                      Widest<CombineRows<true, Way::kThroughMask>>}};

}  // namespace

bool CombineAsBits(const Combination& task) {
  const TouchedBytes bytes(task);
  if (bytes.count < 8 || !CombinesAsBits(task)) return false;
  const BitTask bitTask = BitTaskFor(task);
  const Way way = task.mask != nullptr ? Way::kThroughMask : bitTask.IsAnd() ? Way::kAnd : Way::kAny;
  kPasses[bytes.left != 0][static_cast<int>(way)](task, bitTask, bytes);
  return true;
}

}  // namespace rastrel
