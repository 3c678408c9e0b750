#include "pages/borders.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <utility>

namespace rastrel::pages {
namespace {

constexpr int kMm = 16;  // lengths are in sixteenths of a millimetre

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
    std::vector<uint8_t> values;
    for (int ty = 0; ty < plane_.height(); ++ty) {
      for (int tx = 0; tx < plane_.width(); ++tx) {
        values.clear();
        for (int y = ty * kCells; y < std::min(cells.height(), (ty + 1) * kCells); ++y) {
          for (int x = tx * kCells; x < std::min(cells.width(), (tx + 1) * kCells); ++x) {
            if (sheet.outside.Row(y)[x] == 0) values.push_back(cells.Row(y)[x]);
          }
        }
        if (values.size() < kLeastCells) continue;
        const auto at = values.begin() + static_cast<ptrdiff_t>(values.size() * 3 / 4);
        std::nth_element(values.begin(), at, values.end());
        // What is dark as a whole is no paper.
        if (*at * 2 >= sheet.paper) plane_.Row(ty)[tx] = std::max<uint8_t>(1, *at);
      }
    }
    Spread(sheet.paper);
  }

  uint8_t At(int x, int y) const { return plane_.Row(y >> shift_)[x >> shift_]; }

 private:
  static constexpr int kCells = 8;
  static constexpr size_t kLeastCells = 16;

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

class Masking {
 public:
  template <class IsDark>
  static BitPlane Make(const Sheet& sheet, const IsDark& isDark) {
    Masking masking(sheet);
    masking.FindZones();
    masking.MaskSurround(isDark);
    masking.GrowIntoRim(isDark);
    masking.TakeRagged(isDark);
    return std::move(masking.mask_);
  }

 private:
  explicit Masking(const Sheet& sheet)
      : sheet_(sheet),
        shift_(std::countr_zero(static_cast<unsigned>(sheet.cell))),
        zones_(sheet.outside.width(), sheet.outside.height()),
        mask_(sheet.width, sheet.height) {}

  Zone ZoneAt(int x, int y) const { return static_cast<Zone>(zones_.Row(y >> shift_)[x >> shift_]); }

  void FindZones() {
    const BytePlane& outside = sheet_.outside;
    const int reach = std::max(1, (sheet_.Pixels(kRaggedReach) + sheet_.cell - 1) / sheet_.cell);
    const auto raise = [this](int x, int y, Zone zone) {
      if (x < 0 || y < 0 || x >= zones_.width() || y >= zones_.height()) return;
      uint8_t& at = zones_.Row(y)[x];
      at = std::max(at, static_cast<uint8_t>(zone));
    };
    for (int y = 0; y < outside.height(); ++y) {
      for (int x = 0; x < outside.width(); ++x) {
        if (outside.Row(y)[x] == 0) continue;
        bool isInner = true;
        for (int ny = std::max(0, y - 1); ny <= std::min(outside.height() - 1, y + 1); ++ny) {
          for (int nx = std::max(0, x - 1); nx <= std::min(outside.width() - 1, x + 1); ++nx)
            isInner &= outside.Row(ny)[nx] != 0;
        }
        raise(x, y, isInner ? Zone::kCore : Zone::kBorder);
        if (isInner) continue;
        for (int ny = y - reach; ny <= y + reach; ++ny) {
          for (int nx = x - reach; nx <= x + reach; ++nx)
            raise(nx, ny, std::abs(nx - x) <= 1 && std::abs(ny - y) <= 1 ? Zone::kRim : Zone::kRagged);
        }
        // Where it ends along the image's edge it may run out in a wedge.
        const int run = reach * kWedgeReach;
        if (x < reach || x >= zones_.width() - reach) {
          for (int ny = y - run; ny <= y + run; ++ny) raise(x, ny, Zone::kRagged);
        }
        if (y < reach || y >= zones_.height() - reach) {
          for (int nx = x - run; nx <= x + run; ++nx) raise(nx, y, Zone::kRagged);
        }
      }
    }
  }

  void MaskRun(int left, int right, int y) {
    for (int x = left; x < right; ++x) {
      if (x % 64 == 0 && x + 64 <= right) {
        mask_.Row(y)[x / 64] = ~uint64_t{0};
        x += 63;
      } else {
        mask_.Set(x, y);
      }
    }
  }

  template <class IsDark>
  void MaskSurround(const IsDark& isDark) {
    for (int y = 0; y < sheet_.height; ++y) {
      const uint8_t* zones = zones_.Row(y / sheet_.cell);
      for (int c = 0; c < zones_.width(); ++c) {
        const int left = c * sheet_.cell, right = std::min(sheet_.width, left + sheet_.cell);
        if (zones[c] == static_cast<uint8_t>(Zone::kCore)) {
          MaskRun(left, right, y);
        } else if (zones[c] == static_cast<uint8_t>(Zone::kBorder)) {
          for (int x = left; x < right; ++x) {
            if (isDark(x, y)) Mask(x, y);
          }
        }
      }
    }
  }
  void Mask(int x, int y) {
    mask_.Set(x, y);
    open_.push_back({x, y});
  }

  template <class Visit>
  void ForNeighbours(int x, int y, const Visit& visit) const {
    for (int ny = std::max(0, y - 1); ny <= std::min(sheet_.height - 1, y + 1); ++ny) {
      for (int nx = std::max(0, x - 1); nx <= std::min(sheet_.width - 1, x + 1); ++nx) visit(nx, ny);
    }
  }

  template <class IsDark>
  void GrowIntoRim(const IsDark& isDark) {
    while (!open_.empty()) {
      const auto [x, y] = open_.back();
      open_.pop_back();
      ForNeighbours(x, y, [&](int nx, int ny) {
        if (!mask_.Get(nx, ny) && ZoneAt(nx, ny) >= Zone::kRim && isDark(nx, ny)) Mask(nx, ny);
      });
    }
  }

  // Marks all of whose pixels lie near the surround.
  template <class IsDark>
  void TakeRagged(const IsDark& isDark) {
    BitPlane seen(sheet_.width, sheet_.height);
    std::vector<std::pair<int32_t, int32_t>> mark;
    for (int y = 0; y < sheet_.height; ++y) {
      const uint8_t* zones = zones_.Row(y / sheet_.cell);
      for (int c = 0; c < zones_.width(); ++c) {
        if (zones[c] != static_cast<uint8_t>(Zone::kRagged) && zones[c] != static_cast<uint8_t>(Zone::kRim))
          continue;
        for (int x = c * sheet_.cell; x < std::min(sheet_.width, (c + 1) * sheet_.cell); ++x) {
          if (seen.Get(x, y) || mask_.Get(x, y) || !isDark(x, y)) continue;
          bool isNear = true;
          mark.assign(1, {x, y});
          seen.Set(x, y);
          for (size_t i = 0; i < mark.size(); ++i) {
            const auto [mx, my] = mark[i];
            ForNeighbours(mx, my, [&](int nx, int ny) {
              if (seen.Get(nx, ny) || mask_.Get(nx, ny) || !isDark(nx, ny)) return;
              if (ZoneAt(nx, ny) == Zone::kSheet) {
                isNear = false;
                return;
              }
              seen.Set(nx, ny);
              mark.push_back({nx, ny});
            });
          }
          if (!isNear) continue;
          for (const auto& [mx, my] : mark) mask_.Set(mx, my);
        }
      }
    }
  }

  static constexpr int kWedgeReach = 12;  // times the ragged reach, along the image's edge

  const Sheet& sheet_;
  int shift_;
  BytePlane zones_;
  BitPlane mask_;
  std::vector<std::pair<int32_t, int32_t>> open_;
};

// Takes the blurred rim along: pixels next to the mask that are not quite paper.
void TakeRim(const BytePlane& grey, const NearbyPaper& paper, BitPlane* mask) {
  for (int pass = 0; pass < kRimPixels; ++pass) {
    const BitPlane before = *mask;
    for (int y = 0; y < grey.height(); ++y) {
      const uint64_t* rows[3] = {before.Row(std::max(0, y - 1)), before.Row(y),
                                 before.Row(std::min(grey.height() - 1, y + 1))};
      for (size_t w = 0; w < before.wordsPerRow(); ++w) {
        uint64_t near = 0;
        for (const uint64_t* row : rows) {
          near |= row[w] | row[w] << 1 | row[w] >> 1;
          if (w > 0) near |= row[w - 1] << 63;
          if (w + 1 < before.wordsPerRow()) near |= row[w + 1] >> 63;
        }
        near &= ~rows[1][w];
        while (near != 0) {
          const int bit = std::countl_zero(near);
          near &= ~(uint64_t{1} << 63 >> bit);
          const int x = static_cast<int>(w) * 64 + bit;
          if (x < grey.width() && grey.Row(y)[x] * 100 < paper.At(x, y) * kRimShare) mask->Set(x, y);
        }
      }
    }
  }
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
  }
  for (const uint64_t word : mask.words()) plan.pixels += std::popcount(word);
  if (plan.pixels > 0) plan.mask = std::move(mask);
  return plan;
}

// ---- paper ------------------------------------------------------------------------------------------------

// The page in square tiles: which are clean paper, and the mean of each plane in them.
class Tiles {
 public:
  static constexpr int kSide = 16;        // pixels
  static constexpr int kReach = 14;       // tiles around the mask that are looked at
  static constexpr int kLeastShare = 25;  // percent of a tile's pixels

  Tiles(const PaintedPlanes& page, const BitPlane& mask, const BitPlane& avoid)
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

  // The smooth paper at a pixel, in 1/256.
  int PaperAt(int plane, int x, int y) const {
    // Between the middles of four tiles.
    const int fx = std::clamp(x - kSide / 2, 0, (columns_ - 1) * kSide),
              fy = std::clamp(y - kSide / 2, 0, (rows_ - 1) * kSide);
    const int c = fx / kSide, r = fy / kSide, dx = fx % kSide, dy = fy % kSide;
    const int c1 = std::min(columns_ - 1, c + 1), r1 = std::min(rows_ - 1, r + 1);
    const auto value = [&](int column, int row) { return at(column, row).mean[plane]; };
    const int upper = value(c, r) * (kSide - dx) + value(c1, r) * dx;
    const int lower = value(c, r1) * (kSide - dx) + value(c1, r1) * dx;
    return (upper * (kSide - dy) + lower * dy) / (kSide * kSide);
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
    for (int r = 0; r < rows_; ++r) {
      for (int c = 0; c < columns_; ++c) {
        Tile& tile = at(c, r);
        if (tile.isNeeded) MeasureTile(c, r, &tile);
      }
    }
  }

  void MeasureTile(int column, int row, Tile* tile) const {
    int counts[256] = {}, count = 0;
    int sums[3] = {};
    const int right = std::min(mask_.width(), (column + 1) * kSide),
              bottom = std::min(mask_.height(), (row + 1) * kSide);
    const int all = (right - column * kSide) * (bottom - row * kSide);
    for (int y = row * kSide; y < bottom; ++y) {
      for (int x = column * kSide; x < right; ++x) {
        if (tile->isMasked && mask_.Get(x, y)) continue;
        if (!avoid_.isEmpty() && avoid_.Get(x, y)) continue;
        ++count;
        int sum = 0;
        for (int p = 0; p < page_.count; ++p) {
          const int value = page_.planes[p]->Row(y)[x];
          sums[p] += value;
          sum += value;
        }
        ++counts[sum / page_.count];
      }
    }
    if (count * 100 < all * kLeastShare) return;
    int low = 0, high = 255;
    while (counts[low] == 0) ++low;
    while (counts[high] == 0) --high;
    tile->hasPaper = true;
    tile->isWhole = count == kSide * kSide;
    tile->spread = high - low;
    for (int p = 0; p < page_.count; ++p) tile->mean[p] = sums[p] * 256 / count;
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

  // Carries the paper on into tiles that have none, ring by ring, as the mean of their neighbours.
  void Spread() {
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
    while (!open.empty()) {
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
      for (const size_t i : ring) tiles_[i].hasPaper = true;
      for (const size_t i : ring) openAround(i);
    }
  }

  const PaintedPlanes& page_;
  const BitPlane& mask_;
  const BitPlane& avoid_;
  int columns_, rows_;
  std::vector<Tile> tiles_;
  std::vector<int> grain_;
};

}  // namespace

BorderPlan PlanBorders(const Sheet& sheet, const BytePlane& grey) {
  if (!sheet.HasOutside()) return Describe(sheet, {});
  const NearbyPaper paper(sheet);
  BitPlane mask =
      Masking::Make(sheet, [&](int x, int y) { return grey.Row(y)[x] * 100 < paper.At(x, y) * kDarkShare; });
  TakeRim(grey, paper, &mask);
  return Describe(sheet, std::move(mask));
}

BorderPlan PlanBorders(const Sheet& sheet, const BitPlane& ink) {
  if (!sheet.HasOutside()) return Describe(sheet, {});
  return Describe(sheet, Masking::Make(sheet, [&](int x, int y) { return ink.Get(x, y); }));
}

void PaintPaper(const PaintedPlanes& page, const BitPlane& mask, const BitPlane& avoid) {
  if (mask.isEmpty() || page.count == 0) return;
  constexpr int kSide = Tiles::kSide;
  const Tiles tiles(page, mask, avoid);
  for (int row = 0; row < tiles.rows(); ++row) {
    for (int column = 0; column < tiles.columns(); ++column) {
      if (!tiles.IsMasked(column, row)) continue;
      const int grain = tiles.GrainFor(column, row);
      const int grainX = grain < 0 ? 0 : grain % tiles.columns() * kSide,
                grainY = grain < 0 ? 0 : grain / tiles.columns() * kSide;
      for (int dy = 0; dy < kSide && row * kSide + dy < mask.height(); ++dy) {
        for (int dx = 0; dx < kSide && column * kSide + dx < mask.width(); ++dx) {
          const int x = column * kSide + dx, y = row * kSide + dy;
          if (!mask.Get(x, y)) continue;
          for (int p = 0; p < page.count; ++p) {
            const int noise = grain < 0 ? 0
                                        : page.planes[p]->Row(grainY + dy)[grainX + dx] * 256 -
                                              tiles.PaperAt(p, grainX + dx, grainY + dy);
            const int value = (tiles.PaperAt(p, x, y) + noise + 128) >> 8;
            page.planes[p]->Row(y)[x] = static_cast<uint8_t>(std::clamp(value, 0, 255));
          }
        }
      }
    }
  }
}

}  // namespace rastrel::pages
