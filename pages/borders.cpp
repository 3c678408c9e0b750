#include "pages/borders.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "pages/components.h"
#include "pixels/kernels.h"

namespace rastrel::pages {
namespace {

constexpr int kMm = 16;  // lengths are in sixteenths of a millimetre

// Pieces inside of a surround that are no letters: those of 4 point type are higher.
constexpr int kFlattest = kMm / 2;

// Around the surround, marks that lie in this reach as a whole are its ragged rim; so are those along the
// image's edge that it runs out in.
constexpr int kRaggedReach = kMm;
// Of the paper next to it, in percent: below it a grey pixel is not paper yet, and below the second it is the
// blurred rim of something dark.
constexpr int kDarkShare = 80, kRimShare = 93;
constexpr int kRimPixels = 2;

// ---- the paper around, in tiles of cells
// --------------------------------------------------------------------

// Brightness of the sheet's paper, carried on outside of it.
class NearbyPaper {
 public:
  explicit NearbyPaper(const Sheet& sheet)
      : shift_(std::countr_zero(static_cast<unsigned>(sheet.cell * kCells))) {
    const BytePlane& cells = sheet.cells;
    plane_ = BytePlane((cells.width() + kCells - 1) / kCells, (cells.height() + kCells - 1) / kCells);
    for (int ty = 0; ty < plane_.height(); ++ty) {
      for (int tx = 0; tx < plane_.width(); ++tx) {
        uint8_t values[kCells * kCells];
        size_t count = 0;
        const int right = std::min(cells.width(), (tx + 1) * kCells);
        for (int y = ty * kCells; y < std::min(cells.height(), (ty + 1) * kCells); ++y) {
          const uint8_t *row = cells.Row(y), *outside = sheet.outside.Row(y);
          for (int x = tx * kCells; x < right; ++x) {
            values[count] = row[x];
            count += outside[x] == 0;
          }
        }
        if (count < kLeastCells) continue;
        std::fill(values + count, std::end(values), uint8_t{255});
        const uint8_t paper = ValueAt(values, count * 3 / 4);
        // What is dark as a whole is no paper.
        if (paper * 2 >= sheet.paper) plane_.Row(ty)[tx] = std::max<uint8_t>(1, paper);
      }
    }
    Spread(sheet.paper);
  }

  // What is darker than `percent` of the paper at a pixel is below this.
  int Limit(int x, int y, int percent) const {
    return (plane_.Row(y >> shift_)[x >> shift_] * percent + 99) / 100;
  }

 private:
  static constexpr int kCells = 8;
  static constexpr size_t kLeastCells = 16;

  // The value that `rank` others stay at or below: bit by bit, from counts.
  static uint8_t ValueAt(const uint8_t (&values)[kCells * kCells], size_t rank) {
    unsigned found = 0;
    for (unsigned bit = 128; bit != 0; bit /= 2) {
      uint8_t below = 0;
      for (const uint8_t value : values)
        below = static_cast<uint8_t>(below + (value < static_cast<uint8_t>(found + bit)));
      if (below <= rank) found += bit;
    }
    return static_cast<uint8_t>(found);
  }

  // Gives tiles without paper the mean of their neighbours that have it, ring by ring.
  void Spread(uint8_t otherwise) {
    for (bool isChanged = true; isChanged;) {
      isChanged = false;
      const BytePlane before = plane_;
      for (int y = 0; y < plane_.height(); ++y) {
        for (int x = 0; x < plane_.width(); ++x) {
          if (before.Row(y)[x] != 0) continue;
          int sum = 0, count = 0;
          for (int ny = std::max(0, y - 1); ny <= std::min(plane_.height() - 1, y + 1); ++ny) {
            for (int nx = std::max(0, x - 1); nx <= std::min(plane_.width() - 1, x + 1); ++nx) {
              sum += before.Row(ny)[nx];
              count += before.Row(ny)[nx] != 0;
            }
          }
          if (count == 0) continue;
          plane_.Row(y)[x] = static_cast<uint8_t>(sum / count);
          isChanged = true;
        }
      }
    }
    for (uint8_t& value : plane_.bytes()) {
      if (value == 0) value = otherwise;
    }
  }

  int shift_;  // tiles are powers of two
  BytePlane plane_;
};

// ---- the mask, pixel by pixel
// -------------------------------------------------------------------------------

// What may be done in a cell.
enum class Zone : uint8_t {
  kSheet,   // nothing
  kRagged,  // marks that lie in such cells as a whole go
  kRim,     // what is dark and hangs together with the surround goes
  kBorder,  // what is dark goes
  kCore,    // everything goes
};

// The bits of word `word` that columns from `left` up to, not including, `right` have.
uint64_t WordMask(int word, int left, int right) {
  const int first = std::max(0, left - word * 64), end = std::min(64, right - word * 64);
  return ~uint64_t{0} >> first & ~uint64_t{0} << (64 - end);
}

// What is dark, on pages of either kind: pixel by pixel, and added to a plane along a part of a row.
struct DarkInk {
  const BitPlane& ink;
  bool Is(int x, int y) const { return ink.Get(x, y); }
  void AddRun(int left, int right, int y, BitPlane* plane) const {
    for (int w = left / 64; w * 64 < right; ++w) plane->Row(y)[w] |= ink.Row(y)[w] & WordMask(w, left, right);
  }
};
struct DarkGrey {
  const BytePlane& grey;
  const NearbyPaper& paper;
  int cellShift;
  bool Is(int x, int y) const { return grey.Row(y)[x] < paper.Limit(x, y, kDarkShare); }
  void AddRun(int left, int right, int y, BitPlane* plane) const {
    const uint8_t* row = grey.Row(y);
    for (int x = left; x < right;) {
      const int end = std::min(right, ((x >> cellShift) + 1) << cellShift);
      const int limit = paper.Limit(x, y, kDarkShare);
      for (; x < end; ++x) {
        if (row[x] < limit) plane->Set(x, y);
      }
    }
  }
};

// The pixels of a word that are set or have a neighbour that is.
uint64_t NearSet(const BitPlane& plane, int y, size_t w) {
  uint64_t near = 0;
  for (int ny = std::max(0, y - 1); ny <= std::min(plane.height() - 1, y + 1); ++ny) {
    const uint64_t* row = plane.Row(ny);
    near |= row[w] | row[w] << 1 | row[w] >> 1;
    if (w > 0) near |= row[w - 1] << 63;
    if (w + 1 < plane.wordsPerRow()) near |= row[w + 1] >> 63;
  }
  return near;
}

// What three rows have in common. Returns other than 0 if the first has anything.
uint8_t AllOfThree(const uint8_t* __restrict row, const uint8_t* above, const uint8_t* below, int count,
                   uint8_t* __restrict all) {
  uint8_t any = 0;
  for (int x = 0; x < count; ++x) {
    any |= row[x];
    all[x] = row[x] & above[x] & below[x];
  }
  return any;
}

class Masking {
 public:
  template <class Dark>
  static BitPlane Make(const Sheet& sheet, const Dark& dark) {
    Masking masking(sheet);
    masking.FindZones();
    masking.MaskSurround(dark);
    masking.GrowIntoRim();
    masking.TakeRagged(dark);
    return std::move(masking.mask_);
  }

 private:
  explicit Masking(const Sheet& sheet)
      : sheet_(sheet),
        shift_(std::countr_zero(static_cast<unsigned>(sheet.cell))),
        zones_(sheet.outside.width(), sheet.outside.height()),
        mask_(sheet.width, sheet.height),
        open_(sheet.width, sheet.height) {}

  Zone ZoneAt(int x, int y) const { return static_cast<Zone>(zones_.Row(y >> shift_)[x >> shift_]); }

  void FindZones() {
    const BytePlane& outside = sheet_.outside;
    const int width = outside.width(), height = outside.height();
    const int reach = std::max(1, (sheet_.Pixels(kRaggedReach) + sheet_.cell - 1) / sheet_.cell);
    const auto raise = [this](int left, int right, int y, Zone zone) {
      if (y < 0 || y >= zones_.height()) return;
      uint8_t* row = zones_.Row(y);
      for (int x = std::max(0, left); x <= std::min(zones_.width() - 1, right); ++x)
        row[x] = std::max(row[x], static_cast<uint8_t>(zone));
    };
    std::vector<uint8_t> allThree(static_cast<size_t>(width) + 2, 255);
    for (int y = 0; y < height; ++y) {
      const uint8_t *row = outside.Row(y), *above = outside.Row(std::max(0, y - 1)),
                    *below = outside.Row(std::min(height - 1, y + 1));
      if (Widest<AllOfThree>(row, above, below, width, allThree.data() + 1) == 0) continue;
      for (int x = NextNotZero(row, 0); x < width; x = NextNotZero(row, x + 1)) {
        const uint8_t* around = allThree.data() + x;
        const bool isInner = (around[0] & around[1] & around[2]) != 0;
        raise(x, x, y, isInner ? Zone::kCore : Zone::kBorder);
        if (isInner) continue;
        for (int ny = y - reach; ny <= y + reach; ++ny) raise(x - reach, x + reach, ny, Zone::kRagged);
        for (int ny = y - 1; ny <= y + 1; ++ny) raise(x - 1, x + 1, ny, Zone::kRim);
        // Where it ends along the image's edge it may run out in a wedge.
        const int run = reach * kWedgeReach;
        if (x < reach || x >= width - reach) {
          for (int ny = y - run; ny <= y + run; ++ny) raise(x, x, ny, Zone::kRagged);
        }
        if (y < reach || y >= height - reach) raise(x - run, x + run, y, Zone::kRagged);
      }
    }
  }

  // The first place from `c` on that is not 0, as the sheet's zone is, or the row's end.
  int NextNotZero(const uint8_t* zones, int c) const {
    static_assert(static_cast<uint8_t>(Zone::kSheet) == 0);
    for (uint64_t eight = 0; c + 8 <= zones_.width(); c += 8) {
      std::memcpy(&eight, zones + c, sizeof eight);
      if (eight != 0) break;
    }
    while (c < zones_.width() && zones[c] == 0) ++c;
    return c;
  }

  void MaskRun(int left, int right, int y) {
    for (int w = left / 64; w * 64 < right; ++w) mask_.Row(y)[w] |= WordMask(w, left, right);
  }

  // What is dark in the zones around stays open.
  template <class Dark>
  void MaskSurround(const Dark& dark) {
    for (int r = 0; r < zones_.height(); ++r) {
      const uint8_t* zones = zones_.Row(r);
      const int bottom = std::min(sheet_.height, (r + 1) << shift_);
      for (int c = NextNotZero(zones, 0); c < zones_.width(); c = NextNotZero(zones, c)) {
        const int first = c;
        while (c < zones_.width() && zones[c] == zones[first]) ++c;
        const int left = first << shift_, right = std::min(sheet_.width, c << shift_);
        for (int y = r << shift_; y < bottom; ++y) {
          if (zones[first] == static_cast<uint8_t>(Zone::kCore))
            MaskRun(left, right, y);
          else
            dark.AddRun(left, right, y,
                        zones[first] == static_cast<uint8_t>(Zone::kBorder) ? &mask_ : &open_);
        }
      }
    }
  }

  template <class Visit>
  void ForNeighbours(int x, int y, const Visit& visit) const {
    for (int ny = std::max(0, y - 1); ny <= std::min(sheet_.height - 1, y + 1); ++ny) {
      for (int nx = std::max(0, x - 1); nx <= std::min(sheet_.width - 1, x + 1); ++nx) visit(nx, ny);
    }
  }

  // The open pixels of the rim that hang together with the mask.
  void GrowIntoRim() {
    const size_t words = mask_.wordsPerRow();
    for (int y = 0; y < sheet_.height; ++y) {
      const uint64_t* open = open_.Row(y);
      for (size_t w = 0; w < words; ++w) {
        if (open[w] == 0) continue;
        uint64_t near = NearSet(mask_, y, w) & open[w];
        while (near != 0) {
          const int bit = std::countl_zero(near);
          near &= ~(uint64_t{1} << 63 >> bit);
          Grow(static_cast<int>(w) * 64 + bit, y);
        }
      }
    }
  }
  void Grow(int startX, int startY) {
    const auto take = [this](int x, int y) {
      if (!open_.Get(x, y) || ZoneAt(x, y) != Zone::kRim) return;
      open_.Clear(x, y);
      mask_.Set(x, y);
      mark_.push_back({x, y});
    };
    mark_.clear();
    take(startX, startY);
    while (!mark_.empty()) {
      const auto [x, y] = mark_.back();
      mark_.pop_back();
      ForNeighbours(x, y, take);
    }
  }

  // Marks all of whose pixels lie near the surround.
  template <class Dark>
  void TakeRagged(const Dark& dark) {
    for (int y = 0; y < sheet_.height; ++y) {
      const uint64_t* open = open_.Row(y);
      for (size_t w = 0; w < open_.wordsPerRow(); ++w) {
        while (open[w] != 0) {
          const bool isNear = FollowMark(static_cast<int>(w) * 64 + std::countl_zero(open[w]), y, dark);
          if (!isNear) continue;
          for (const auto& [x, markY] : mark_) mask_.Set(x, markY);
        }
      }
    }
  }
  template <class Dark>
  bool FollowMark(int startX, int startY, const Dark& dark) {
    bool isNear = true;
    mark_.assign(1, {startX, startY});
    open_.Clear(startX, startY);
    for (size_t i = 0; i < mark_.size(); ++i) {
      const auto [x, y] = mark_[i];
      ForNeighbours(x, y, [&](int nx, int ny) {
        if (open_.Get(nx, ny)) {
          open_.Clear(nx, ny);
          mark_.push_back({nx, ny});
        } else if (isNear && ZoneAt(nx, ny) == Zone::kSheet && dark.Is(nx, ny)) {
          isNear = false;
        }
      });
    }
    return isNear;
  }

  static constexpr int kWedgeReach = 12;  // times the ragged reach, along the image's edge

  const Sheet& sheet_;
  int shift_;
  BytePlane zones_;
  BitPlane mask_, open_;  // open: dark, and not judged yet
  std::vector<std::pair<int32_t, int32_t>> mark_;
};

// Takes the blurred rim along: pixels next to the mask that are not quite paper.
void TakeRim(const BytePlane& grey, const NearbyPaper& paper, BitPlane* mask) {
  for (int pass = 0; pass < kRimPixels; ++pass) {
    // Found by the mask as it is before the pass, so that a row is put down after the next one was looked at.
    struct Rim {
      int x, y;
    };
    std::vector<Rim> above, found;
    std::vector<uint64_t> around(mask->wordsPerRow());  // of a row and those beside it
    const auto word = [&](size_t w, int by) {
      return w + static_cast<size_t>(by) < around.size() ? around[w + static_cast<size_t>(by)] : 0;
    };
    const auto putDown = [mask](std::vector<Rim>* rims) {
      for (const Rim& rim : *rims) mask->Set(rim.x, rim.y);
      rims->clear();
    };
    for (int y = 0; y < grey.height(); ++y) {
      const uint64_t* row = mask->Row(y);
      const uint64_t* before = mask->Row(std::max(0, y - 1));
      const uint64_t* after = mask->Row(std::min(grey.height() - 1, y + 1));
      uint64_t any = 0;
      for (size_t w = 0; w < around.size(); ++w) any |= around[w] = before[w] | row[w] | after[w];
      for (size_t w = 0; any != 0 && w < around.size(); ++w) {
        if (row[w] == ~uint64_t{0}) continue;
        const uint64_t here = around[w];
        uint64_t near = (here | here << 1 | here >> 1 | word(w, -1) << 63 | word(w, 1) >> 63) & ~row[w];
        while (near != 0) {
          const int bit = std::countl_zero(near);
          near &= ~(uint64_t{1} << 63 >> bit);
          const int x = static_cast<int>(w) * 64 + bit;
          if (x < grey.width() && grey.Row(y)[x] < paper.Limit(x, y, kRimShare)) found.push_back({x, y});
        }
      }
      putDown(&above);
      above.swap(found);
    }
    putDown(&above);
  }
}

// Takes what is left inside of the mask: streaks of a book's edge, light flecks. No side of such a piece
// touches the sheet or the image's edge, and it is too flat for letters.
void TakeEnclosed(const Sheet& sheet, BitPlane* mask) {
  const int flat = sheet.Pixels(kFlattest);
  BitPlane open(mask->width(), mask->height());
  for (int y = 0; y < open.height(); ++y) {
    for (size_t i = 0; i < open.wordsPerRow(); ++i) open.Row(y)[i] = ~mask->Row(y)[i];
    if (open.width() % 64 != 0)
      open.Row(y)[open.wordsPerRow() - 1] &= ~uint64_t{0} << (64 - open.width() % 64);
  }
  const Components pieces(open);
  for (const Component& piece : pieces.all()) {
    const Box& box = piece.box;
    if (std::min(box.width(), box.height()) <= flat && box.left > 0 && box.top > 0 &&
        box.right < open.width() && box.bottom < open.height()) {
      DrawComponent(pieces, piece, mask);
    }
  }
}

// Most words of a mask are empty or full.
int64_t CountSet(const BitPlane& mask) {
  int64_t count = 0;
  for (const uint64_t word : mask.words())
    count += word == 0 ? 0 : word == ~uint64_t{0} ? 64 : std::popcount(word);
  return count;
}

BorderPlan Describe(const Sheet& sheet, BitPlane mask) {
  BorderPlan plan;
  for (const Surround& surround : sheet.surrounds) {
    if (!surround.isCertain) continue;
    plan.regions.push_back(
        {surround.reason, surround.confidence, surround.left, surround.top, surround.right, surround.bottom});
  }
  for (const SheetSide side : kSheetSides) {
    const SheetSideFit& fit = sheet.side(side);
    if (fit.kind == SideKind::kNotCertain) plan.leftAlone.push_back({side, fit.reason});
    if (fit.kind != SideKind::kCertain) continue;
    // Beside what is certain there may be more that is not.
    for (const Surround& surround : sheet.surrounds) {
      if (surround.isCertain || !surround.touches[static_cast<size_t>(side)]) continue;
      plan.leftAlone.push_back({side, surround.reason});
      break;
    }
  }
  plan.pixels = CountSet(mask);
  if (plan.pixels > 0) plan.mask = std::move(mask);
  return plan;
}

// ---- paper ------------------------------------------------------------------------------------------------

constexpr int kTileSide = 16;  // pixels

const uint8_t* PixelOf(const PaintedPage& page, int x, int y) {
  return page.from + y * page.fromStride + static_cast<ptrdiff_t>(x) * page.channels;
}
uint8_t FlipOf(const PaintedPage& page) { return page.isFromNegative ? 255 : 0; }

// One channel of the pixels from (x, y) on along a row of a tile.
template <int kChannels>
void ReadEvery(const uint8_t* from, uint8_t flip, uint8_t (&row)[kTileSide]) {
  for (int i = 0; i < kTileSide; ++i) row[i] = from[i * kChannels] ^ flip;
}
void ReadRow(const PaintedPage& page, int channel, int x, int y, uint8_t (&row)[kTileSide]) {
  const uint8_t* from = PixelOf(page, x, y) + channel;
  page.channels == 1 ? ReadEvery<1>(from, FlipOf(page), row) : ReadEvery<3>(from, FlipOf(page), row);
}

// What three tiles in a row count at the pixels of the middle one, in 1/kTileSide.
struct TileWeights {
  int before[kTileSide] = {}, here[kTileSide] = {}, after[kTileSide] = {};
};
constexpr TileWeights kWeights = [] {
  TileWeights weights;
  for (int i = 0; i < kTileSide; ++i) {
    weights.before[i] = std::max(0, kTileSide / 2 - i);
    weights.after[i] = std::max(0, i - kTileSide / 2);
    weights.here[i] = kTileSide - weights.before[i] - weights.after[i];
  }
  return weights;
}();

// The page in square tiles: which are clean paper, and the mean of each plane in them.
class Tiles {
 public:
  static constexpr int kSide = kTileSide;
  static constexpr int kReach = 14;       // tiles around the mask that are looked at
  static constexpr int kLeastShare = 25;  // percent of a tile's pixels
  static_assert((kReach + 1) * kSide == kPaperReach);

  Tiles(const PaintedPage& page, const BitPlane& mask, const BitPlane& avoid)
      : page_(page),
        mask_(mask),
        avoid_(avoid),
        columns_((mask.width() + kSide - 1) / kSide),
        rows_((mask.height() + kSide - 1) / kSide),
        tiles_(static_cast<size_t>(columns_) * static_cast<size_t>(rows_)) {
    FindNeeded();
    Measure();
    KeepClean();
    Spread();
  }

  int columns() const { return columns_; }
  int rows() const { return rows_; }
  bool IsMasked(int column, int row) const { return at(column, row).isMasked; }

  // The means of a tile and those around it, in 1/256; beyond the page the last tiles go on.
  struct Around {
    int means[3][3];  // by row, column
  };
  Around MeansAround(int plane, int column, int row) const {
    Around around;
    for (int r = 0; r < 3; ++r) {
      for (int c = 0; c < 3; ++c) {
        around.means[r][c] =
            at(std::clamp(column + c - 1, 0, columns_ - 1), std::clamp(row + r - 1, 0, rows_ - 1))
                .mean[plane];
      }
    }
    return around;
  }
  // The smooth paper in one row of a tile, in 1/256: between the middles of four tiles.
  static void PaperRow(const Around& around, int dy, int (&paper)[kSide]) {
    int values[3];
    for (int c = 0; c < 3; ++c) {
      values[c] = around.means[0][c] * kWeights.before[dy] + around.means[1][c] * kWeights.here[dy] +
                  around.means[2][c] * kWeights.after[dy];
    }
    for (int i = 0; i < kSide; ++i) {
      const int sum =
          values[0] * kWeights.before[i] + values[1] * kWeights.here[i] + values[2] * kWeights.after[i];
      paper[i] = sum >> 8;  // by kSide, twice
    }
  }

  // A tile of whole clean paper to copy the grain from, or -1.
  int GrainFor(int column, int row) const {
    if (grain_.empty()) return -1;
    constexpr uint32_t kTries = 8;
    int best = -1, leastOff = INT32_MAX;
    for (uint32_t i = 0; i < kTries; ++i) {
      const uint32_t hash = Hash(static_cast<uint32_t>(column), static_cast<uint32_t>(row), i);
      const int candidate = grain_[hash % grain_.size()];
      const int off =
          std::abs(tiles_[static_cast<size_t>(candidate)].mean[0] - at(column, row).mean[0]) / 64 +
          std::abs(candidate % columns_ - column) + std::abs(candidate / columns_ - row);
      if (off < leastOff) leastOff = off, best = candidate;
    }
    return best;
  }

  // The bits of a plane in one row of a tile, the last column's the lowest.
  static unsigned BitsOf(const BitPlane& plane, int column, int y) {
    constexpr int kTilesInWord = 64 / kSide;
    const uint64_t word = plane.Row(y)[column / kTilesInWord];
    return static_cast<unsigned>(word >> (64 - kSide * (column % kTilesInWord + 1))) & 0xFFFFu;
  }

  static uint32_t Hash(uint32_t a, uint32_t b, uint32_t c) {
    uint32_t hash = a * 0x9E3779B1u ^ b * 0x85EBCA77u ^ c * 0xC2B2AE3Du;
    hash = (hash ^ hash >> 15) * 0x2C1B3C6Du;
    hash = (hash ^ hash >> 12) * 0x297A2D39u;
    return hash ^ hash >> 15;
  }

 private:
  struct Tile {
    bool isMasked = false, isNeeded = false, hasPaper = false, isWhole = false;
    int spread = 0;    // its brightest pixel to its darkest
    int mean[3] = {};  // in 1/256
  };
  Tile& at(int column, int row) {
    return tiles_[static_cast<size_t>(row) * static_cast<size_t>(columns_) + static_cast<size_t>(column)];
  }
  const Tile& at(int column, int row) const {
    return tiles_[static_cast<size_t>(row) * static_cast<size_t>(columns_) + static_cast<size_t>(column)];
  }

  void FindNeeded() {
    for (int y = 0; y < mask_.height(); ++y) {
      const uint64_t* row = mask_.Row(y);
      for (size_t w = 0; w < mask_.wordsPerRow(); ++w) {
        if (row[w] == 0) continue;
        for (int part = 0; part < 64 / kSide; ++part) {
          if ((row[w] >> (64 - kSide * (part + 1)) & ((uint64_t{1} << kSide) - 1)) != 0)
            at(static_cast<int>(w) * (64 / kSide) + part, y / kSide).isMasked = true;
        }
      }
    }
    // Around the masked tiles, along rows and then along columns.
    std::vector<uint8_t> along(tiles_.size(), 0);
    for (int r = 0; r < rows_; ++r) {
      for (int c = 0, last = -kReach - 1; c < columns_; ++c) {
        if (at(c, r).isMasked) last = c;
        if (c - last <= kReach) along[Index(c, r)] = 1;
      }
      for (int c = columns_ - 1, last = columns_ + kReach; c >= 0; --c) {
        if (at(c, r).isMasked) last = c;
        if (last - c <= kReach) along[Index(c, r)] = 1;
      }
    }
    for (int c = 0; c < columns_; ++c) {
      for (int r = 0, last = -kReach - 1; r < rows_; ++r) {
        if (along[Index(c, r)] != 0) last = r;
        if (r - last <= kReach) at(c, r).isNeeded = true;
      }
      for (int r = rows_ - 1, last = rows_ + kReach; r >= 0; --r) {
        if (along[Index(c, r)] != 0) last = r;
        if (last - r <= kReach) at(c, r).isNeeded = true;
      }
    }
  }
  size_t Index(int column, int row) const {
    return static_cast<size_t>(row) * static_cast<size_t>(columns_) + static_cast<size_t>(column);
  }

  void Measure() {
    const auto measure = Widest<MeasureTile>.Best();
    for (int r = 0; r < rows_; ++r) {
      for (int c = 0; c < columns_; ++c) {
        Tile& tile = at(c, r);
        if (tile.isNeeded) measure(*this, c, r, &tile);
      }
    }
  }

  static void MeasureTile(const Tiles& tiles, int column, int row, Tile* tile) {
    tiles.MeasureOne(column, row, tile);
  }
  void MeasureOne(int column, int row, Tile* tile) const {
    const int left = column * kSide, right = std::min(mask_.width(), left + kSide),
              bottom = std::min(mask_.height(), (row + 1) * kSide);
    const int all = (right - left) * (bottom - row * kSide);
    int count = 0, low = INT32_MAX, high = 0;  // the last two of the planes' sum
    int sums[3] = {};
    WholeRows whole;
    for (int y = row * kSide; y < bottom; ++y) {
      const unsigned taken = (tile->isMasked ? BitsOf(mask_, column, y) : 0) |
                             (avoid_.isEmpty() ? 0 : BitsOf(avoid_, column, y));
      if (taken == 0xFFFFu) continue;
      if (right - left == kSide) {
        count += kSide - std::popcount(taken);
        page_.channels == 1 ? AddRow<1>(left, y, taken, &whole) : AddRow<3>(left, y, taken, &whole);
        continue;
      }
      for (int x = left; x < right; ++x) {
        if ((taken >> (kSide - 1 - (x - left)) & 1) != 0) continue;
        ++count;
        int sum = 0;
        const uint8_t* pixel = PixelOf(page_, x, y);
        for (int p = 0; p < page_.channels; ++p) {
          const int value = pixel[p] ^ FlipOf(page_);
          sums[p] += value;
          sum += value;
        }
        low = std::min(low, sum);
        high = std::max(high, sum);
      }
    }
    for (int i = 0; i < kSide; ++i) {
      for (int p = 0; p < page_.channels; ++p) sums[p] += whole.sums[p][i];
      low = std::min<int>(low, whole.low[i]);
      high = std::max<int>(high, whole.high[i]);
    }
    if (count * 100 < all * kLeastShare) return;
    tile->hasPaper = true;
    tile->isWhole = count == kSide * kSide;
    tile->spread = high / page_.channels - low / page_.channels;
    for (int p = 0; p < page_.channels; ++p) tile->mean[p] = sums[p] * 256 / count;
  }
  // What the rows of a tile have in each of its columns, where nothing is taken.
  using Columns = uint16_t __attribute__((vector_size(2 * kSide)));
  struct WholeRows {
    Columns sums[3] = {};                        // of the planes
    Columns low = ~Columns{}, high = Columns{};  // of the planes' sum
  };
  template <int kChannels>
  void AddRow(int left, int y, unsigned taken, WholeRows* rows) const {
    using Bytes = uint8_t __attribute__((vector_size(kSide)));
    constexpr Columns kBits = {0x8000, 0x4000, 0x2000, 0x1000, 0x800, 0x400, 0x200, 0x100,
                               0x80,   0x40,   0x20,   0x10,   0x8,   0x4,   0x2,   0x1};
    const uint8_t* pixels = PixelOf(page_, left, y);
    const auto kept = reinterpret_cast<Columns>((kBits & static_cast<uint16_t>(taken)) == 0);
    Columns all = {};
    for (int p = 0; p < kChannels; ++p) {
      uint8_t row[kSide];
      ReadEvery<kChannels>(pixels + p, FlipOf(page_), row);
      Bytes bytes;
      std::memcpy(&bytes, row, kSide);
      const Columns values = __builtin_convertvector(bytes, Columns);
      rows->sums[p] += values & kept;
      all += values;
    }
    const Columns light = all | ~kept, dark = all & kept;
    rows->low = light < rows->low ? light : rows->low;
    rows->high = dark > rows->high ? dark : rows->high;
  }

  // Ink, edges and pictures spread brightness more than the page's paper does, and are darker.
  void KeepClean() {
    std::vector<int> spreads, levels;
    for (const Tile& tile : tiles_) {
      if (tile.hasPaper) spreads.push_back(tile.spread), levels.push_back(tile.mean[0]);
    }
    if (spreads.empty()) return;
    const auto third = static_cast<ptrdiff_t>(spreads.size() / 3);
    std::nth_element(spreads.begin(), spreads.begin() + third, spreads.end());
    const auto upper = static_cast<ptrdiff_t>(levels.size() * 2 / 3);
    std::nth_element(levels.begin(), levels.begin() + upper, levels.end());
    constexpr int kSpreadTimes2 = 3, kLeastSpread = 4;
    const int mostSpread = spreads[static_cast<size_t>(third)] * kSpreadTimes2 / 2 + kLeastSpread;
    const int leastLevel = levels[static_cast<size_t>(upper)] / 2;
    for (size_t i = 0; i < tiles_.size(); ++i) {
      Tile& tile = tiles_[i];
      if (!tile.hasPaper) continue;
      tile.hasPaper = tile.spread <= mostSpread && tile.mean[0] >= leastLevel;
      if (tile.hasPaper && tile.isWhole) grain_.push_back(static_cast<int>(i));
    }
  }

  // Carries the paper on into tiles that have none, ring by ring, as the mean of their neighbours, as far as
  // it takes for those of the mask and beside it. What a ring has depends on the one before alone.
  void Spread() {
    std::vector<uint8_t> isWanted(tiles_.size(), 0);
    int64_t wanted = 0;
    for (int r = 0; r < rows_; ++r) {
      for (int c = 0; c < columns_; ++c) {
        if (!at(c, r).isMasked) continue;
        for (int nr = std::max(0, r - 1); nr <= std::min(rows_ - 1, r + 1); ++nr) {
          for (int nc = std::max(0, c - 1); nc <= std::min(columns_ - 1, c + 1); ++nc) {
            const size_t n = Index(nc, nr);
            if (isWanted[n] != 0 || tiles_[n].hasPaper) continue;
            isWanted[n] = 1;
            ++wanted;
          }
        }
      }
    }
    std::vector<size_t> open;
    std::vector<uint8_t> isOpen(tiles_.size(), 0);
    const auto openAround = [&](size_t i) {
      const int c = static_cast<int>(i) % columns_, r = static_cast<int>(i) / columns_;
      for (int nr = std::max(0, r - 1); nr <= std::min(rows_ - 1, r + 1); ++nr) {
        for (int nc = std::max(0, c - 1); nc <= std::min(columns_ - 1, c + 1); ++nc) {
          const size_t n = Index(nc, nr);
          if (tiles_[n].hasPaper || isOpen[n] != 0) continue;
          isOpen[n] = 1;
          open.push_back(n);
        }
      }
    };
    bool hasAny = false;
    for (size_t i = 0; i < tiles_.size(); ++i) {
      if (tiles_[i].hasPaper) openAround(i), hasAny = true;
    }
    if (!hasAny) {
      for (Tile& tile : tiles_) std::fill(std::begin(tile.mean), std::end(tile.mean), 255 * 256);
      return;
    }
    while (wanted > 0 && !open.empty()) {
      std::vector<size_t> ring;
      std::swap(ring, open);
      for (const size_t i : ring) {
        const int c = static_cast<int>(i) % columns_, r = static_cast<int>(i) / columns_;
        int sums[3] = {}, count = 0;
        for (int nr = std::max(0, r - 1); nr <= std::min(rows_ - 1, r + 1); ++nr) {
          for (int nc = std::max(0, c - 1); nc <= std::min(columns_ - 1, c + 1); ++nc) {
            const Tile& tile = at(nc, nr);
            if (!tile.hasPaper) continue;
            ++count;
            for (int p = 0; p < 3; ++p) sums[p] += tile.mean[p];
          }
        }
        for (int p = 0; p < 3; ++p) tiles_[i].mean[p] = sums[p] / std::max(1, count);
      }
      for (const size_t i : ring) {
        tiles_[i].hasPaper = true;
        wanted -= isWanted[i];
      }
      for (const size_t i : ring) openAround(i);
    }
  }

  const PaintedPage& page_;
  const BitPlane& mask_;
  const BitPlane& avoid_;
  int columns_, rows_;
  std::vector<Tile> tiles_;
  std::vector<int> grain_;
};

template <int kChannels>
void PutRow(const uint8_t (&row)[kTileSide], unsigned masked, uint8_t* to) {
  if (masked == 0xFFFFu) {
    for (int i = 0; i < kTileSide; ++i) to[i * kChannels] = row[i];
    return;
  }
  for (unsigned bits = masked; bits != 0; bits &= bits - 1) {
    const int i = kTileSide - 1 - std::countr_zero(bits);
    to[i * kChannels] = row[i];
  }
}

void PaintTile(const PaintedPage& page, const Tiles& tiles, const BitPlane& mask, int column, int row) {
  constexpr int kSide = Tiles::kSide;
  const int grain = tiles.GrainFor(column, row);
  const int grainColumn = grain < 0 ? 0 : grain % tiles.columns(),
            grainRow = grain < 0 ? 0 : grain / tiles.columns();
  const int end = std::min(kSide, mask.height() - row * kSide), flip = page.isNegative ? 255 : 0;
  for (int p = 0; p < page.channels; ++p) {
    const Tiles::Around around = tiles.MeansAround(p, column, row),
                        grainAround = tiles.MeansAround(p, grainColumn, grainRow);
    for (int dy = 0; dy < end; ++dy) {
      const int y = row * kSide + dy;
      const unsigned masked = Tiles::BitsOf(mask, column, y);
      if (masked == 0) continue;
      int paper[kSide];
      Tiles::PaperRow(around, dy, paper);
      if (grain >= 0) {
        uint8_t from[kSide];
        ReadRow(page, p, grainColumn * kSide, grainRow * kSide + dy, from);
        int grainPaper[kSide];
        Tiles::PaperRow(grainAround, dy, grainPaper);
        for (int i = 0; i < kSide; ++i) paper[i] += from[i] * 256 - grainPaper[i];
      }
      uint8_t painted[kSide];
      for (int i = 0; i < kSide; ++i)
        painted[i] = static_cast<uint8_t>(std::clamp((paper[i] + 128) >> 8, 0, 255) ^ flip);
      uint8_t* to = page.to + y * page.toStride + static_cast<ptrdiff_t>(column) * kSide * page.channels + p;
      page.channels == 1 ? PutRow<1>(painted, masked, to) : PutRow<3>(painted, masked, to);
    }
  }
}

}  // namespace

BorderPlan PlanBorders(const Sheet& sheet, const BytePlane& grey) {
  if (!sheet.HasOutside()) return Describe(sheet, {});
  const NearbyPaper paper(sheet);
  const DarkGrey dark{grey, paper, std::countr_zero(static_cast<unsigned>(sheet.cell))};
  BitPlane mask = Masking::Make(sheet, dark);
  TakeRim(grey, paper, &mask);
  TakeEnclosed(sheet, &mask);
  return Describe(sheet, std::move(mask));
}

BorderPlan PlanBorders(const Sheet& sheet, const BitPlane& ink) {
  if (!sheet.HasOutside()) return Describe(sheet, {});
  return Describe(sheet, Masking::Make(sheet, DarkInk{ink}));
}

void PaintPaper(const PaintedPage& page, const BitPlane& mask, const BitPlane& avoid) {
  if (mask.isEmpty()) return;
  const Tiles tiles(page, mask, avoid);
  const auto paintTile = Widest<PaintTile>.Best();
  for (int row = 0; row < tiles.rows(); ++row) {
    for (int column = 0; column < tiles.columns(); ++column) {
      if (tiles.IsMasked(column, row)) paintTile(page, tiles, mask, column, row);
    }
  }
}

}  // namespace rastrel::pages
