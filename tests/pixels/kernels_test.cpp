#include "pixels/kernels.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <random>
#include <vector>

#include "pixels/bit_rows.h"
#include "pixels/bit_square.h"
#include "pixels/colours.h"
#include "pixels/group_sums.h"
#include "pixels/thresholds.h"
#include "tests/support/processors.h"

namespace rastrel::testing {
namespace {

std::vector<uint8_t> RandomBytes(size_t count, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<uint8_t> bytes(count);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
  return bytes;
}

bool BitAt(const uint8_t* row, size_t x) { return (row[x / 8] >> (7 - x % 8) & 1) != 0; }

int Version(int number) { return number; }
template <int kNumber>
int VersionOf(int /*number*/) {
  return kNumber;
}

TEST(Kernels, TheVersionForTheProcessorIsTheLastThatAsksForNoMore) {
  constexpr Kernel kSome =
      Kernel(VersionOf<0>).With(Processor::kSse2, VersionOf<1>).With(Processor::kAvx2, VersionOf<3>);
  constexpr int kWanted[] = {0, 1, 1, 3};
  OnEveryProcessor([&] { EXPECT_EQ(kWanted[UsedProcessor()], kSome(9)); });
  EXPECT_EQ(9, Widest<Version>(9));
  LimitProcessor(Processor::kAny);
  EXPECT_EQ(0, kSome.Best()(9));
  LimitProcessor(Processor::kAvx2);  // or what there is
  EXPECT_EQ(static_cast<size_t>(MachinesProcessor()), UsedProcessor());
}

TEST(Kernels, SquaresAreTransposedBitByBit) {
  const std::vector<uint8_t> rows = RandomBytes(64 * 8, 1);
  OnEveryProcessor([&] {
    uint64_t square[64];
    std::memcpy(square, rows.data(), sizeof(square));
    TransposeBits(square);
    for (size_t x = 0; x < 64; ++x) {
      for (size_t y = 0; y < 64; ++y)
        ASSERT_EQ(BitAt(&rows[8 * y], x), (square[x] >> y & 1) != 0) << x << ", " << y;
    }
  });
}

TEST(Kernels, BytesUpToTheirLimitsAreMarked) {
  const std::vector<uint8_t> bytes = RandomBytes(300, 8);
  std::vector<uint8_t> limits = RandomBytes(300, 9);
  for (size_t i = 0; i < 300; i += 3) limits[i] = bytes[i];  // a limit itself is not above it
  OnEveryProcessor([&] {
    for (const size_t count : {1, 31, 63, 64, 65, 128, 191, 300}) {
      std::vector<uint64_t> words((count + 63) / 64, ~uint64_t{0});
      kMarkUpTo(bytes.data(), limits.data(), count, words.data());
      for (size_t x = 0; x < 64 * words.size(); ++x) {
        ASSERT_EQ(x < count && bytes[x] <= limits[x], (words[x / 64] >> (63 - x % 64) & 1) != 0)
            << count << ", " << x;
      }
    }
  });
}

TEST(Kernels, StretchesRunEvenly) {
  // From 10 up by a quarter a byte, and from 200 down by a half, with 8 bits after the point.
  const uint16_t starts[] = {10 * 256, 200 * 256}, steps[] = {64, static_cast<uint16_t>(-128)};
  uint8_t bytes[32];
  RunStretches<16>(starts, steps, 2, bytes);
  for (int i = 0; i < 16; ++i) {
    EXPECT_EQ(10 + i / 4, bytes[i]) << i;
    EXPECT_EQ(200 - (i + 1) / 2, bytes[16 + i]) << i;
  }
  RunStretches<2>(starts, steps, 2, bytes);
  EXPECT_EQ(10, bytes[1]);
  EXPECT_EQ(199, bytes[3]);

  // Their sums wrap round in 16 bits.
  std::mt19937 random(11);
  std::vector<uint16_t> from(21), by(from.size());
  for (size_t i = 0; i < from.size(); ++i)
    from[i] = static_cast<uint16_t>(random()), by[i] = static_cast<uint16_t>(random());
  OnEveryProcessor([&] {
    for (const size_t side : {4, 8}) {
      for (const size_t count : {1, 4, 7, 8, 21}) {
        std::vector<uint8_t> run(side * count + 1, 0xAA);
        side == 4 ? kRunStretches<4>(from.data(), by.data(), count, run.data())
                  : kRunStretches<8>(from.data(), by.data(), count, run.data());
        for (size_t i = 0; i < side * count; ++i)
          ASSERT_EQ(static_cast<uint16_t>(from[i / side] + i % side * by[i / side]) / 256, run[i])
              << side << ", " << count << ", " << i;
        ASSERT_EQ(0xAA, run.back());
      }
    }
  });
}

TEST(Kernels, BitsAreCopiedFromAnyPlace) {
  const std::vector<uint8_t> row = RandomBytes(80, 2);
  OnEveryProcessor([&] {
    for (const size_t first : {0, 1, 7, 8, 13}) {
      for (const size_t count : {0, 1, 7, 8, 9, 63, 64, 65, 300, 599}) {
        std::vector<uint8_t> copy(84, 0xAA);
        CopyBits(row.data(), first, count, copy.data(), copy.size());
        for (size_t x = 0; x < 8 * copy.size(); ++x) {
          ASSERT_EQ(x < count && BitAt(row.data(), first + x), BitAt(copy.data(), x))
              << first << ", " << count << ", " << x;
        }
      }
    }
  });
}

TEST(Kernels, GroupsAreAddedToWhatIsThere) {
  const std::vector<uint8_t> bytes = RandomBytes(24 * 37, 3);
  OnEveryProcessor([&] {
    for (const int groups : {0, 1, 7, 8, 9, 37}) {
      std::vector<uint16_t> bits(38, 65530), eights(38, 65530), triples(38, 65530);
      AddBitGroups(bytes.data(), groups, bits.data());
      AddByteGroups(bytes.data(), groups, eights.data());
      AddTripleGroups(bytes.data(), groups, triples.data());
      for (int i = 0; i < 38; ++i) {
        int eight = 0, triple = 0;
        for (int k = 0; k < 8 && i < groups; ++k) eight += bytes[8 * i + k];
        for (int k = 0; k < 24 && i < groups; ++k) triple += bytes[24 * i + k];
        const int set = i < groups ? std::popcount(bytes[i]) : 0;
        ASSERT_EQ(static_cast<uint16_t>(65530 + set), bits[i]) << groups << ", " << i;
        ASSERT_EQ(static_cast<uint16_t>(65530 + eight), eights[i]) << groups << ", " << i;
        ASSERT_EQ(static_cast<uint16_t>(65530 + triple / 3), triples[i]) << groups << ", " << i;
      }
    }
  });
}

TEST(Kernels, TheNearestColourIsTheFirstOfTheNearest) {
  std::mt19937 random(4);
  OnEveryProcessor([&] {
    for (const unsigned count : {1u, 2u, 15u, 256u}) {
      ColourTable table;
      table.count = count;
      // Few levels, so that many are equally near.
      for (unsigned i = 0; i < count; ++i) table.colours[i] = random() & 0xC0C0C0;
      for (int n = 0; n < 200; ++n) {
        const Rgb colour = random() & 0xFFFFFF;
        unsigned nearest = 0;
        for (unsigned i = count; i-- > 0;) {
          if (SquaredDistance(table.colours[i], colour) <= SquaredDistance(table.colours[nearest], colour))
            nearest = i;
        }
        ASSERT_EQ(nearest, NearestIndex(table, colour));
      }
    }
    EXPECT_EQ(0u, NearestIndex(ColourTable(), 0x123456));
  });
}

}  // namespace
}  // namespace rastrel::testing
