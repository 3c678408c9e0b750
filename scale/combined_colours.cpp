#include "scale/combined_colours.h"

#include <algorithm>
#include <new>

#include "pixels/pixel_runs.h"

namespace rastrel {
namespace {

constexpr int64_t kRun = 512;  // pixels combined at a time

// Reads colours, those of up to 8 bits through `table`.
void ReadRun(unsigned bits, const ColourTable& table, const uint8_t* row, int64_t x, unsigned count,
             Rgb* to) {
  ForBits(bits, [&]<unsigned kBits> {
    const Rgb zero = table.colours[0], one = table.colours[1];
    UnpackPixels<kBits>(row, static_cast<uint64_t>(x), count, [&, to](unsigned i, uint32_t pixel) {
      if constexpr (kBits == 1) to[i] = pixel != 0 ? one : zero;
      if constexpr (kBits == 4 || kBits == 8) to[i] = table.colours[pixel];
      if constexpr (kBits == 16) to[i] = ExpandedFrom555(pixel);
      if constexpr (kBits > 16) to[i] = pixel & 0xFFFFFF;
    });
  });
}

// Writes indices, or from 16 bits on colours.
void WriteRun(unsigned bits, const Rgb* pixels, unsigned count, uint8_t* row, int64_t x) {
  ForBits(bits, [=]<unsigned kBits> {
    PackPixels<kBits>(row, static_cast<uint64_t>(x), count,
                      [=](unsigned i) { return kBits == 16 ? PackedTo555(pixels[i]) : pixels[i]; });
  });
}

// A table that gives white and black for what keeps and what blackens the source.
ColourTable MaskTable(const Source& mask) {
  ColourTable table;
  std::transform(mask.table.colours.begin(), mask.table.colours.end(), table.colours.begin(),
                 [](Rgb colour) { return IsWhite(colour) ? 0xFFFFFF : 0; });
  return table;
}

}  // namespace

bool CombineByColours(const Combination& task) {
  const Source& source = task.source;
  const Destination& destination = task.destination;
  // Copied indices go through a table from source to destination.
  const bool isIndexed = destination.bits <= 8;
  const bool isMapped = isIndexed && source.bits <= 8 && !task.isAnd;
  ColourTable sourceTable = source.table;
  if (isMapped) {
    for (Rgb& colour : sourceTable.colours) colour = NearestIndex(task.target, colour);
  }
  const Rgb black = isMapped ? NearestIndex(task.target, 0) : 0;
  const ColourTable maskTable = task.mask != nullptr ? MaskTable(*task.mask) : ColourTable();
  const bool isSearched = isIndexed && !isMapped;
  const NewBlock memory(isSearched ? sizeof(NearestColours) : 0, Content::kUnset);
  if (isSearched && !memory) return false;
  NearestColours* nearest = isSearched ? new (memory.bytes()) NearestColours(task.target) : nullptr;

  Rgb pixels[kRun], others[kRun];
  for (int64_t y = 0; y < task.down.count; ++y) {
    const auto sourceY = static_cast<int>(task.down.source + y);
    const uint8_t* from = source.rows.PageRow(sourceY);
    const uint8_t* through = task.mask != nullptr ? task.mask->rows.PageRow(sourceY) : nullptr;
    uint8_t* to = destination.rows.PageRow(static_cast<int>(task.down.destination + y));
    for (int64_t x = 0; x < task.across.count; x += kRun) {
      const auto count = static_cast<unsigned>(std::min(kRun, task.across.count - x));
      const int64_t sourceX = task.across.source + x;
      const int64_t destinationX = task.across.destination + x;
      ReadRun(source.bits, sourceTable, from, sourceX, count, pixels);
      if (through != nullptr) {
        ReadRun(task.mask->bits, maskTable, through, sourceX, count, others);
        for (unsigned i = 0; i < count; ++i) pixels[i] = IsWhite(others[i]) ? pixels[i] : black;
      }
      if (task.isAnd) {
        ReadRun(destination.bits, destination.table, to, destinationX, count, others);
        for (unsigned i = 0; i < count; ++i) pixels[i] &= others[i];
      }
      if (nearest != nullptr) nearest->Map(pixels, count);
      WriteRun(destination.bits, pixels, count, to, destinationX);
    }
  }
  return true;
}

}  // namespace rastrel
