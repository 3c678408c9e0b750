#include "cleanup/page_strips.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

#include "cleanup/darkness.h"
#include "pixels/group_sums.h"
#include "pixels/kernels.h"

namespace rastrel {
namespace {

constexpr int kGroup = kGroupPixels;
constexpr int kBeyond = 4;  // cells of 0 above and below each strip

// ---- the grid ---------------------------------------------------------------------------------------------

constexpr int kRowsPerInch = 140;  // a cell is no higher than that
constexpr int kLeastRows = 900;    // on a page that is large enough
constexpr int kMostRows = 6000;
constexpr int kMostStrips = 500;  // sums of their ink fit 15 bits
constexpr int kMostRowsPerCell = 24;
constexpr int kWidestStrip = 3;  // of the usual width
static_assert(kMostStrips * PageInk::kMostInk <= INT16_MAX);

// A page whose shorter side is an A4 sheet's has about this many dots per inch.
int LikelyDotsPerInch(const LockedDib& page) {
  return std::max(1, std::min(page.width(), page.height()) / 8);
}

// What the header says, unless the page would be many times smaller or larger than an A4 sheet.
int DotsPerInch(const LockedDib& page) {
  constexpr int kOff = 5;
  const int likely = LikelyDotsPerInch(page);
  const int64_t dots = (int64_t{page.header().biYPelsPerMeter} * 254 + 5000) / 10000;
  const bool isLikely = dots * kOff >= likely && dots <= int64_t{likely} * kOff;
  return isLikely ? static_cast<int>(dots) : likely;
}

// ---- lightness --------------------------------------------------------------------------------------------

// How light each index of a page is; an index that the colour table lacks is black.
std::array<uint8_t, 256> LightnessTable(const LockedDib& page) {
  RGBQUAD colours[256];
  std::array<uint8_t, 256> table = {};
  const unsigned count = std::min(DIBNumColors(&page.header()), 1u << page.bits());
  page.ReadPalette(count, kBlack, colours);
  for (unsigned i = 0; i < count; ++i) {
    table[i] = static_cast<uint8_t>(ToneOf(colours[i].rgbBlue, colours[i].rgbGreen, colours[i].rgbRed));
  }
  return table;
}

// Adds the groups' lightness over one row.
class GroupReader {
 public:
  explicit GroupReader(const LockedDib& page) : bits_(page.bits()) {
    if (bits_ > 8) return;
    table_ = LightnessTable(page);
    isReversed_ = bits_ == 1 && table_[1] < table_[0];
    isBlank_ = bits_ == 1 && table_[1] == table_[0];
    isPlain_ = bits_ == 8;
    for (unsigned i = 0; i < 256; ++i) {
      isPlain_ = isPlain_ && table_[i] == i;
      ofByte_[i] = static_cast<uint16_t>(bits_ == 8 ? table_[i] : table_[i >> 4] + table_[i & 15]);
    }
  }

  // The sum of a group of the lightest pixels.
  unsigned Most() const { return bits_ == 1 ? kGroup : 255 * kGroup; }
  bool isReversed() const { return isReversed_; }

  void AddRow(const uint8_t* row, int groups, uint16_t* sums) const {
    if (bits_ == 24) return AddTripleGroups(row, groups, sums);
    if (isPlain_) return AddByteGroups(row, groups, sums);
    if (bits_ == 8) return LookUpGroups<8>(row, groups, sums);
    if (bits_ == 4) return LookUpGroups<4>(row, groups, sums);
    if (!isBlank_) AddBitGroups(row, groups, sums);
  }

 private:
  template <int Bytes>
  void LookUpGroups(const uint8_t* row, int groups, uint16_t* sums) const {
    for (int i = 0; i < groups; ++i, row += Bytes) {
      int sum = 0;
      for (int k = 0; k < Bytes; ++k) sum += ofByte_[row[k]];
      sums[i] = static_cast<uint16_t>(sums[i] + sum);
    }
  }

  unsigned bits_;
  std::array<uint8_t, 256> table_ = {};
  std::array<uint16_t, 256> ofByte_ = {};  // the lightness of the pixels in a byte
  bool isReversed_ = false;
  bool isBlank_ = false;
  bool isPlain_ = false;
};

// ---- ink --------------------------------------------------------------------------------------------------

using Histogram = std::array<uint32_t, 256>;

Histogram CountValues(const StripCells& cells) {
  Histogram counts = {};
  for (int i = 0; i < cells.strips; ++i) {
    const uint8_t* const strip = cells.Strip(i);
    int y = 0;
    while (y + 8 <= cells.rows) {
      uint64_t eight;
      std::memcpy(&eight, strip + y, sizeof(eight));
      const int end = y + 8;
      if (eight == 0) {  // as most are, once the ground has been taken off
        counts[0] += 8;
        y = end;
      }
      for (; y < end; ++y) ++counts[strip[y]];
    }
    for (; y < cells.rows; ++y) ++counts[strip[y]];
  }
  return counts;
}

// The least value that `share` of those from `first` on do not exceed; 0 when there are none.
int Quantile(const Histogram& counts, int first, double share) {
  uint64_t all = 0;
  for (int i = first; i < 256; ++i) all += counts[i];
  uint64_t below = 0;
  for (int i = first; i < 256; ++i) {
    below += counts[i];
    if (below > 0 && static_cast<double>(below) >= share * static_cast<double>(all)) return i;
  }
  return 0;
}

struct Least {
  static uint8_t Of(uint8_t a, uint8_t b) { return std::min(a, b); }
};
struct Most {
  static uint8_t Of(uint8_t a, uint8_t b) { return std::max(a, b); }
};

template <class Extreme>
void TakeExtremes(const uint8_t* __restrict values, int step, int count, uint8_t* __restrict extremes) {
  for (int i = 0; i < count; ++i) extremes[i] = Extreme::Of(values[i], values[i + step]);
}

// Makes each value that of the window of `length` that begins with it, where `count` windows begin. The
// windows double in length until they overlap.
template <class Extreme>
void SlideWindow(int count, int length, uint8_t* __restrict values, uint8_t* __restrict other) {
  int reach = 1;
  uint8_t *from = values, *to = other;
  while (reach < length) {
    const int step = std::min(reach, length - reach);
    Widest<TakeExtremes<Extreme>>(from, step, count + length - reach - step, to);
    std::swap(from, to);
    reach += step;
  }
  if (from != values) std::memcpy(values, from, static_cast<size_t>(count));
}

// A quotient by way of a product: exact for numerators whose product with `divisor` is below 2^kQuotientBits.
constexpr int kQuotientBits = 24;
constexpr uint32_t ReciprocalOf(int divisor) {
  return (uint32_t{1} << kQuotientBits) / static_cast<uint32_t>(divisor) + 1;
}

constexpr double kTallestLine = 0.35;      // inches
constexpr int kTallestLineRows = 200;      // at most
constexpr double kSmoothLines = 3.0 / 70;  // wider than the dots of most screens, narrower than a gap
constexpr int kMostSmooth = static_cast<int>(kTallestLineRows * kSmoothLines);

// Means of 2 half + 1 values. `column` goes on by `half` values before the first and behind the last.
void TakeMeans(const uint8_t* __restrict column, int rows, int half, uint8_t* __restrict means) {
  std::array<uint16_t, kMostRows> sums;
  for (int y = 0; y < rows; ++y) sums[y] = column[y];
  for (int i = 1; i <= half; ++i) {
    for (int y = 0; y < rows; ++y) sums[y] = static_cast<uint16_t>(sums[y] + column[y - i] + column[y + i]);
  }
  const uint32_t reciprocal = ReciprocalOf(2 * half + 1);
  for (int y = 0; y < rows; ++y) means[y] = static_cast<uint8_t>(sums[y] * reciprocal >> kQuotientBits);
}

// Means along a column, which goes on as it begins and ends.
void Smooth(const uint8_t* column, int rows, int half, uint8_t* smoothed) {
  std::array<uint8_t, kMostRows + 2 * kMostSmooth> longer;
  std::memset(longer.data(), column[0], static_cast<size_t>(half));
  std::memcpy(longer.data() + half, column, static_cast<size_t>(rows));
  std::memset(longer.data() + half + rows, column[rows - 1], static_cast<size_t>(half));
  Widest<TakeMeans>(longer.data() + half, rows, half, smoothed);
}

// The level below which a column of cells does not fall within any window of `length` around a cell: its
// ground. Beyond its ends it goes on as the darkest. `ground` and `scratch` have room for two windows more.
void FindGround(const uint8_t* column, int rows, int length, int smooth, uint8_t* ground, uint8_t* scratch) {
  const auto beyond = static_cast<size_t>(length - 1);
  std::memset(ground, 255, beyond);
  Smooth(column, rows, smooth, ground + beyond);
  std::memset(ground + beyond + rows, 255, beyond);
  SlideWindow<Least>(rows + length - 1, length, ground, scratch);
  SlideWindow<Most>(rows, length, ground, scratch);
}

// Turns the sums of a row of groups into a row of cells, of which one lies a stride behind the other. The
// usual numbers of groups are known to the compiler.
template <int kGroups>
void PutCells(const uint16_t* group, int groupsPerStrip, uint64_t factor, uint8_t flip,
              const StripCells& cells, int y) {
  uint8_t* cell = cells.first + y;
  for (int strip = 0; strip < cells.strips; ++strip, cell += cells.stride) {
    const int groups = kGroups > 0 ? kGroups : groupsPerStrip;
    uint32_t sum = 0;
    for (int i = 0; i < groups; ++i) sum += *group++;
    *cell = static_cast<uint8_t>((sum * factor >> 32) ^ flip);
  }
}
using CellPutter = decltype(&PutCells<0>);
CellPutter PutterFor(int groupsPerStrip) {
  constexpr CellPutter kPutters[] = {PutCells<0>, PutCells<1>, PutCells<2>, PutCells<3>, PutCells<4>};
  return kPutters[groupsPerStrip < static_cast<int>(std::size(kPutters)) ? groupsPerStrip : 0];
}

// The cells' lightness from 0 to 255. `groupSums` has room for every group of a row.
void ReadLightness(const LockedDib& page, const ConstRows& rows, const StripGrid& grid, uint16_t* groupSums,
                   const StripCells& cells) {
  const GroupReader reader(page);
  const int groups = grid.strips * grid.groupsPerStrip;
  const uint64_t most =
      uint64_t{reader.Most()} * static_cast<unsigned>(grid.groupsPerStrip * grid.rowsPerCell);
  const uint64_t factor = (uint64_t{255} << 32) / most + 1;
  const uint8_t flip = reader.isReversed() ? 255 : 0;
  const size_t offset = static_cast<size_t>(grid.left) / kGroup * page.bits();
  const CellPutter put = PutterFor(grid.groupsPerStrip);
  for (int y = 0; y < cells.rows; ++y) {
    std::fill_n(groupSums, groups, uint16_t{0});
    for (int i = 0; i < grid.rowsPerCell; ++i)
      reader.AddRow(rows.PageRow(grid.top + y * grid.rowsPerCell + i) + offset, groups, groupSums);
    put(groupSums, grid.groupsPerStrip, factor, flip, cells, y);
  }
}

Polarity FindPolarity(const StripCells& lightness) {
  const Histogram counts = CountValues(lightness);
  const int ground = Quantile(counts, 0, 0.5);
  const int darkest = Quantile(counts, 0, 0.01);
  const int lightest = Quantile(counts, 0, 0.99);
  return ground - darkest >= lightest - ground ? Polarity::kDarkInk : Polarity::kLightInk;
}

void FlipCells(int count, uint8_t flip, uint8_t* cells) {
  for (int y = 0; y < count; ++y) cells[y] = static_cast<uint8_t>(cells[y] ^ flip);
}

// Makes `heavy` and what is above it kMostInk, and what is below less in proportion.
void TakeLevels(int count, int heavy, uint8_t* cells) {
  const uint32_t reciprocal = ReciprocalOf(heavy);
  for (int y = 0; y < count; ++y) {
    const auto ink = static_cast<uint32_t>(std::min<int>(cells[y], heavy)) * PageInk::kMostInk;
    cells[y] = static_cast<uint8_t>(ink * reciprocal >> kQuotientBits);
  }
}

// Takes the ground off cells, and all that is there where the ground is at `picture` or above. Returns how
// many cells are such pictures, or have a ground of `pale` or below.
int TakeGroundOff(const uint8_t* __restrict ground, int count, int picture, int pale,
                  uint8_t* __restrict cells) {
  constexpr int kBlack = 215;  // what is around a sheet is no picture
  int pictures = 0;
  for (int y = 0; y < count; ++y) {
    const int here = ground[y];
    pictures += ((here >= picture) & (here < kBlack)) | (here <= pale);
    const int off = std::max(0, cells[y] - here);
    cells[y] = static_cast<uint8_t>(here >= picture ? 0 : off);
  }
  return pictures;
}

// Takes the ground off each strip, and pictures, where the ground is darker than the page's. Returns the
// share of the cells whose ground is not the page's: a photograph that fills the page has a ground of its own
// in many, and as many are lighter as are darker. `scratch` has room for two strips and four lines.
double RemoveGround(const StripCells& cells, int pageGround, int tallestLine, uint8_t* scratch) {
  constexpr int kDarker = 20;
  const int darker = std::max(kDarker, (255 - pageGround) / 8);
  const int picture = pageGround + darker;
  const int smooth = std::max(1, static_cast<int>(tallestLine * kSmoothLines));
  uint8_t* const ground = scratch;
  uint8_t* const other = scratch + cells.rows + 2 * tallestLine;
  int64_t pictures = 0;
  for (int i = 0; i < cells.strips; ++i) {
    uint8_t* const strip = cells.Strip(i);
    FindGround(strip, cells.rows, tallestLine, smooth, ground, other);
    pictures += Widest<TakeGroundOff>(ground, cells.rows, picture, pageGround - darker, strip);
  }
  return static_cast<double>(pictures) / (static_cast<double>(cells.strips) * cells.rows);
}

}  // namespace

StripGrid GridOfPage(const LockedDib& page, double steepest) {
  const int dots = DotsPerInch(page);
  StripGrid grid = {};
  grid.rowsPerCell =
      std::clamp(std::min(dots / kRowsPerInch, page.height() / kLeastRows), 1, kMostRowsPerCell);
  const int usual = IsSteep(steepest) ? (grid.rowsPerCell + 1) / 2 : grid.rowsPerCell;
  const int wanted = page.width() / (kGroup * kMostStrips) + 1;
  grid.groupsPerStrip = std::clamp(wanted, usual, kWidestStrip * grid.rowsPerCell);
  const int allStrips = page.width() / (kGroup * grid.groupsPerStrip);
  const int allRows = page.height() / grid.rowsPerCell;
  grid.strips = std::min(allStrips, kMostStrips);
  grid.rows = std::min(allRows, kMostRows);
  grid.left = (allStrips - grid.strips) / 2 * kGroup * grid.groupsPerStrip;
  grid.top = (allRows - grid.rows) / 2 * grid.rowsPerCell;
  grid.rowsPerInch = std::max(1, dots / grid.rowsPerCell);
  return grid;
}

PageInk::PageInk(const StripGrid& grid) : grid_(grid) {
  tallestLine_ = std::clamp(static_cast<int>(grid.rowsPerInch * kTallestLine), 12, kTallestLineRows);
  const auto stride = (static_cast<size_t>(grid.rows) + 2 * kBeyond) / 64 + 1;
  cells_ = {nullptr, (stride | 1) * 64, grid.strips, grid.rows};
}

uint64_t PageInk::BytesNeeded() const {
  const uint64_t groups = static_cast<unsigned>(grid_.strips * grid_.groupsPerStrip);
  const uint64_t scratch = 2 * (static_cast<unsigned>(grid_.rows) + uint64_t{2} * tallestLine_);
  return groups * sizeof(uint16_t) + scratch + uint64_t{cells_.stride} * static_cast<unsigned>(cells_.strips);
}

InkFound PageInk::Find(const LockedDib& page, const ConstRows& rows, Polarity polarity, uint8_t* bytes) {
  constexpr int kLeastInk = 6;
  constexpr double kHeavy = 0.8;  // of the ink is less
  auto* const groupSums = reinterpret_cast<uint16_t*>(bytes);
  uint8_t* const scratch =
      bytes + static_cast<size_t>(grid_.strips) * grid_.groupsPerStrip * sizeof(uint16_t);
  cells_.first = scratch + 2 * (cells_.rows + 2 * tallestLine_) + kBeyond;
  ReadLightness(page, rows, grid_, groupSums, cells_);
  if (polarity == Polarity::kFound) polarity = FindPolarity(cells_);
  const uint8_t flip = polarity == Polarity::kDarkInk ? 255 : 0;
  for (int i = 0; i < cells_.strips; ++i) Widest<FlipCells>(cells_.rows, flip, cells_.Strip(i));
  // Black and white have no grey ground between them, but pictures of dots.
  const int pageGround = page.bits() == 1 ? 0 : Quantile(CountValues(cells_), 0, 0.5);
  const double pictureShare = RemoveGround(cells_, pageGround, tallestLine_, scratch);

  const int heavy = Quantile(CountValues(cells_), kLeastInk, kHeavy);
  if (heavy == 0) return {polarity, false, pictureShare};
  for (int i = 0; i < cells_.strips; ++i) Widest<TakeLevels>(cells_.rows, heavy, cells_.Strip(i));
  return {polarity, true, pictureShare};
}

}  // namespace rastrel
