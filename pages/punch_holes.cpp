#include "pages/punch_holes.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <span>

#include "pixels/kernels.h"

namespace rastrel::pages {
namespace {

// Lengths are in millimetres, unless they say otherwise.
constexpr double kStrip = 24;  // of the margin that is looked at, from the sheet's edge
constexpr double kLeastDiameter = 4.2, kMostDiameter = 10.5;
constexpr double kNearest = -1.2, kFurthest = 19;  // a hole's middle from the sheet's edge
constexpr double kCore = 1.7;        // side of the square that is solid inside of any hole, cut ones included
constexpr double kFleck = 0.4;       // light on a ray that does not end a hole
constexpr double kOutlineOff = 0.3;  // of the outline from a circle, and as a share of the radius:
constexpr double kOutlineOffShare = 0.09;
constexpr double kHalo = 0.4;  // shadow around a hole

// Shares in percent of rays or pixels.
constexpr int kRound = 72, kRoundPartner = 58, kRoundAlone = 92;
constexpr int kLeastRays = 38;  // rays that end inside the sheet: a hole that is cut has fewer
constexpr int kSolid = 93, kSolidAlone = 98;
constexpr int kLightAround = 68, kLightAroundAlone = 97;
// Ink around a hole, up to kFree radii: of one in a punch's spacing, of a centred pair, of one alone.
constexpr double kFree = 2.2;
constexpr double kInkInRow = 22, kInkInPair = 6, kInkAlone = 0.5;
constexpr double kSquare = 1.15;     // a square's diagonal rays to its upright ones are 1.4, a disc's 1
constexpr double kBesideText = 0.5;  // diameters: printed marks have their text as near

// Spacings between neighbours that punches make: two holes and four (ISO 838), US two, three and Swedish four
// holes.
constexpr double kSpacings[] = {80, 108, 70, 21, 69.85, 216, 160, 240};
constexpr double kSpacingOff = 0.8, kSpacingOffShare = 0.012;

constexpr int kRays = 64;
constexpr double kRayScale = 16384;
// kRayScale * cos of k / 64 of a turn, for a quarter turn.
constexpr int kCosines[kRays / 4 + 1] = {16384, 16305, 16069, 15679, 15137, 14449, 13623, 12665, 11585,
                                         10394, 9102,  7723,  6270,  4756,  3196,  1606,  0};
double RayX(int ray) {
  const int k = ray % kRays;
  if (k <= 16) return kCosines[k] / kRayScale;
  if (k <= 32) return -kCosines[32 - k] / kRayScale;
  if (k <= 48) return -kCosines[k - 32] / kRayScale;
  return kCosines[64 - k] / kRayScale;
}
double RayY(int ray) { return RayX(ray + 3 * kRays / 4); }

// ---- the page, by how far it differs from paper
// ---------------------------------------------------------------

struct InkPage {
  const BitPlane& ink;
  int width() const { return ink.width(); }
  int height() const { return ink.height(); }
  auto Differing(int /*level*/, bool /*isLighter*/) const {
    return [this](int x, int y) { return ink.Get(x, y); };
  }
};
struct GreyPage {
  const BytePlane& grey;
  int width() const { return grey.width(); }
  int height() const { return grey.height(); }
  auto Differing(int level, bool isLighter) const {
    const int flip = isLighter ? 255 : 0, limit = isLighter ? 255 - level : level;
    return [first = grey.Row(0), width = static_cast<ptrdiff_t>(grey.width()), flip, limit](int x, int y) {
      return (first[y * width + x] ^ flip) < limit;
    };
  }
};

// std::floor, which is a call on processors that are not known to have it.
int RoundDown(double value) {
  const int whole = static_cast<int>(value);
  return whole - (value < whole);
}

// ---- one mark ---------------------------------------------------------------------------------------------

struct Mark {
  double x = 0, y = 0, radius = 0;  // pixels; the middle may lie outside the sheet
  double fromX = 0, fromY = 0;      // where rays start: the middle, or a place inside
  double boxWidth = 0, boxHeight = 0;
  int level = 128;  // grey between it and the paper
  bool isLighter = false, isRing = false;
  int round = 0, rays = 0, solid = 0, light = 0;  // percent
  double diagonal = 1;                            // diagonal rays to upright ones
  double place = 0, depth = 0;                    // millimetres along the side, and from the sheet's edge
  bool isTaken = false;
  bool isBinding = false;  // of any shape, known by the row that it stands in
};

// What may be a mark: the box of cells that differ from paper as a whole.
struct Candidate {
  double x, y, boxWidth, boxHeight;  // pixels
};

// The sheet's side, in millimetres.
class SideFrame {
 public:
  SideFrame(const Sheet& sheet, SheetSide side)
      : sheet_(sheet), side_(side), scale_(sheet.pixelsPerMm16 / 16.0) {}
  bool IsUpright() const { return side_ == SheetSide::kLeft || side_ == SheetSide::kRight; }
  int places() const { return IsUpright() ? sheet_.height : sheet_.width; }
  int across() const { return IsUpright() ? sheet_.width : sheet_.height; }
  double scale() const { return scale_; }

  int EdgeAt(int place) const {
    const SheetSideFit& fit = sheet_.side(side_);
    place = std::clamp(place, 0, places() - 1);
    if (fit.kind != SideKind::kCertain) return 0;
    if (fit.hasLine) return std::max(0, fit.LineDepthAt(place, places()));
    return fit.depth.empty() ? 0 : std::max(0, fit.depth[static_cast<size_t>(place)]);
  }
  double Place(double x, double y) const { return (IsUpright() ? y : x) / scale_; }
  double Depth(double x, double y) const {
    const double depth = side_ == SheetSide::kLeft    ? x
                         : side_ == SheetSide::kRight ? sheet_.width - 1 - x
                         : side_ == SheetSide::kTop   ? y
                                                      : sheet_.height - 1 - y;
    return (depth - EdgeAt(RoundDown(IsUpright() ? y : x))) / scale_;
  }
  // The sheet's extent along this side.
  std::pair<double, double> Extent() const {
    const SideFrame before(sheet_, IsUpright() ? SheetSide::kTop : SheetSide::kLeft);
    const SideFrame after(sheet_, IsUpright() ? SheetSide::kBottom : SheetSide::kRight);
    const int middle = before.places() / 2;
    return {before.EdgeAt(middle) / scale_, (places() - after.EdgeAt(middle)) / scale_};
  }

 private:
  const Sheet& sheet_;
  SheetSide side_;
  double scale_;
};

// ---- rows of cells ----

// Marks what is below a limit, or what is not.
void MarkBelow(const uint8_t* __restrict row, int count, uint8_t limit, bool isTurned,
               uint8_t* __restrict marks) {
  const auto flip = static_cast<uint8_t>(isTurned ? 1 : 0);
  for (int i = 0; i < count; ++i) marks[i] = static_cast<uint8_t>((row[i] < limit ? 1 : 0) ^ flip);
}
void TakeOut(const uint8_t* __restrict taken, int count, uint8_t* __restrict marks) {
  for (int i = 0; i < count; ++i) marks[i] = taken[i] == 0 ? marks[i] : uint8_t{0};
}
void AddRow(const uint8_t* __restrict row, int count, uint16_t* __restrict sums) {
  for (int i = 0; i < count; ++i) sums[i] = static_cast<uint16_t>(sums[i] + row[i]);
}
void TakeRow(const uint8_t* __restrict row, int count, uint16_t* __restrict sums) {
  for (int i = 0; i < count; ++i) sums[i] = static_cast<uint16_t>(sums[i] - row[i]);
}
// Marks where so many columns from a place on sum up to the least of what is full. `sums` is for work.
// Returns other than 0 if there are such places.
uint8_t MarkFull(const uint16_t* __restrict columns, int count, int side, int least,
                 uint16_t* __restrict sums, uint8_t* __restrict full) {
  for (int x = 0; x < count; ++x) sums[x] = columns[x];
  for (int i = 1; i < side; ++i) {
    for (int x = 0; x < count; ++x) sums[x] = static_cast<uint16_t>(sums[x] + columns[x + i]);
  }
  const auto leastSum = static_cast<uint16_t>(least);
  uint8_t any = 0;
  for (int x = 0; x < count; ++x) {
    const auto isFull = static_cast<uint8_t>(sums[x] >= leastSum ? 1 : 0);
    full[x] = isFull;
    any |= isFull;
  }
  return any;
}

template <class Page>
class HoleFinder {
 public:
  HoleFinder(const Sheet& sheet, const Page& page)
      : sheet_(sheet),
        page_(page),
        scale_(sheet.pixelsPerMm16 / 16.0),
        shift_(std::countr_zero(static_cast<unsigned>(sheet.cell))) {}

  HolePlan Find(bool hasGrey) {
    constexpr double kLeastScale = 1.9;  // pixels a millimetre, below which nothing can be told round
    if (scale_ < kLeastScale || sheet_.cells.isEmpty()) return {};
    for (const SheetSide side : kSheetSides) LookAlong(side, hasGrey);
    for (const SheetSide side : kSheetSides) Choose(side);
    return Plan();
  }

 private:
  // ---- candidates -----------------------------------------------------------------------------------------

  struct Level {
    int percent;  // of the paper's brightness
    bool isLighter;
  };

  void LookAlong(SheetSide side, bool hasGrey) {
    constexpr Level kInk[] = {{45, false}}, kGrey[] = {{52, false}, {86, false}, {107, true}};
    const SideFrame frame(sheet_, side);
    std::vector<Mark>& marks = rows_[static_cast<size_t>(side)];
    for (const Level& level : hasGrey ? std::span<const Level>(kGrey) : std::span<const Level>(kInk)) {
      const std::vector<Candidate> candidates = FindCandidates(frame, side, level);
      if (TakeBinding(candidates, frame, side, level)) {
        marks.clear();
        return;
      }
      for (const Candidate& candidate : candidates) {
        Mark mark = MarkOf(candidate, level);
        Measure(frame, &mark);
        const bool isKnown = std::any_of(marks.begin(), marks.end(), [&](const Mark& other) {
          return std::abs(other.x - mark.x) + std::abs(other.y - mark.y) < other.radius &&
                 other.round >= mark.round;
        });
        if (!isKnown && mark.rays > 0) marks.push_back(mark);
      }
    }
  }

  Mark MarkOf(const Candidate& candidate, const Level& level) const {
    Mark mark;
    mark.x = mark.fromX = candidate.x;
    mark.y = mark.fromY = candidate.y;
    mark.boxWidth = candidate.boxWidth;
    mark.boxHeight = candidate.boxHeight;
    mark.isLighter = level.isLighter;
    mark.level = sheet_.paper * (level.percent + 100) / 200;
    return mark;
  }

  // Looks for squares of cells that differ from paper as a whole.
  std::vector<Candidate> FindCandidates(const SideFrame& frame, SheetSide side, const Level& level) const {
    const BytePlane& cells = sheet_.cells;
    const int cell = sheet_.cell;
    int deepestEdge = 0;
    for (int place = 0; place < frame.places(); place += 16)
      deepestEdge = std::max(deepestEdge, frame.EdgeAt(place));
    const int depth = std::min(frame.across() / 2, deepestEdge + RoundDown(kStrip * scale_)) / cell;
    int left = 0, top = 0, right = cells.width(), bottom = cells.height();
    switch (side) {
      case SheetSide::kLeft:
        right = std::min(right, depth);
        break;
      case SheetSide::kRight:
        left = std::max(0, right - depth);
        break;
      case SheetSide::kTop:
        bottom = std::min(bottom, depth);
        break;
      case SheetSide::kBottom:
        top = std::max(0, bottom - depth);
        break;
    }
    const int width = right - left, height = bottom - top;
    const int limit = sheet_.paper * level.percent / 100;
    if (width < 4 || height < 4 || (level.isLighter && limit > 255)) return {};
    const int core = std::max(2, RoundDown(kCore * scale_ / cell));
    // With a rim of the core's size in which all cells differ: a hole may be cut by the edge.
    const int w = width + 2 * core, h = height + 2 * core;
    BytePlane differs(w, h, 1);
    for (int y = 0; y < height; ++y)
      MarkDiffering(left, top + y, width, limit, level.isLighter, differs.Row(y + core) + core);
    // Where the rim reaches into the image it is looked at like the rest.
    for (int y = 0; y < h; ++y) {
      const int cy = top + y - core;
      if (cy < 0 || cy >= cells.height()) continue;
      const int first = std::max(0, left - core), end = std::min(cells.width(), right + core);
      const bool isRimRow = y < core || y >= core + height;
      if (isRimRow) {
        MarkDiffering(first, cy, end - first, limit, level.isLighter, differs.Row(y) + (first - left + core));
      } else {
        MarkDiffering(first, cy, left - first, limit, level.isLighter,
                      differs.Row(y) + (first - left + core));
        MarkDiffering(right, cy, end - right, limit, level.isLighter, differs.Row(y) + (right - left + core));
      }
    }
    // How many cells of the square from here on differ: running sums down the columns, then along the row.
    constexpr int kFleckShare = 16;  // 1 / kFleckShare of the core may be light
    const int least = core * core - core * core / kFleckShare;
    BytePlane full(w, h);
    bool hasAny = false;
    std::vector<uint16_t> columns(static_cast<size_t>(w), uint16_t{0}), squares(columns.size());
    for (int y = 0; y < h; ++y) {
      const int from = y - core + 1;
      Widest<AddRow>(differs.Row(y), w, columns.data());
      if (from < 0) continue;
      // The square's middle must lie on the page.
      const int my = from + core / 2, first = core - core / 2;
      if (my >= core && my < core + height)
        hasAny |= Widest<MarkFull>(columns.data() + first, width, core, least, squares.data(),
                                   full.Row(my) + core) != 0;
      Widest<TakeRow>(differs.Row(from), w, columns.data());
    }
    if (!hasAny) return {};
    return BoxesOf(full, left - core, top - core, core);
  }

  void MarkDiffering(int x, int y, int count, int limit, bool isLighter, uint8_t* out) const {
    Widest<MarkBelow>(sheet_.cells.Row(y) + x, count, static_cast<uint8_t>(std::min(limit, 255)), isLighter,
                      out);
    if (sheet_.HasOutside()) Widest<TakeOut>(sheet_.outside.Row(y) + x, count, out);
  }

  // Of each group of squares' middles.
  std::vector<Candidate> BoxesOf(BytePlane& full, int offsetX, int offsetY, int core) const {
    std::vector<Candidate> boxes;
    std::vector<std::pair<int, int>> open;
    for (int y = 0; y < full.height(); ++y) {
      uint8_t* row = full.Row(y);
      for (int x = 0; x < full.width(); ++x) {
        const void* next = std::memchr(row + x, 1, static_cast<size_t>(full.width() - x));
        if (next == nullptr) break;
        x = static_cast<int>(static_cast<const uint8_t*>(next) - row);
        int minX = x, maxX = x, minY = y, maxY = y;
        full.Row(y)[x] = 2;
        open.assign(1, {x, y});
        while (!open.empty()) {
          const auto [ox, oy] = open.back();
          open.pop_back();
          minX = std::min(minX, ox), maxX = std::max(maxX, ox), minY = std::min(minY, oy),
          maxY = std::max(maxY, oy);
          for (int ny = std::max(0, oy - 1); ny <= std::min(full.height() - 1, oy + 1); ++ny) {
            for (int nx = std::max(0, ox - 1); nx <= std::min(full.width() - 1, ox + 1); ++nx) {
              if (full.Row(ny)[nx] != 1) continue;
              full.Row(ny)[nx] = 2;
              open.push_back({nx, ny});
            }
          }
        }
        const double boxWidth = (maxX - minX + core) * sheet_.cell,
                     boxHeight = (maxY - minY + core) * sheet_.cell;
        if (std::max(boxWidth, boxHeight) > 1.15 * kMostDiameter * scale_) continue;
        boxes.push_back({((minX + maxX) / 2.0 + 0.5 + offsetX) * sheet_.cell,
                         ((minY + maxY) / 2.0 + 0.5 + offsetY) * sheet_.cell, boxWidth, boxHeight});
      }
    }
    return boxes;
  }

  bool IsInside(int x, int y) const { return x >= 0 && y >= 0 && x < page_.width() && y < page_.height(); }
  bool IsOnSheet(int x, int y) const {
    return IsInside(x, y) && (!sheet_.HasOutside() || sheet_.outside.Row(y >> shift_)[x >> shift_] == 0);
  }
  bool Differs(int x, int y, const Mark& mark) const {
    return page_.Differing(mark.level, mark.isLighter)(x, y);
  }

  // How far a ray goes through the mark; -1 when it leaves the sheet before.
  double RayLength(const Mark& mark, int ray, double most, bool isAllOnSheet) const {
    // From the middle of a candidate, all that is computed below is exact, in integers as in floating point.
    constexpr double kMostExact = 1 << 16;  // pixels
    const bool isExact =
        mark.fromX * 2 == RoundDown(mark.fromX * 2) && mark.fromY * 2 == RoundDown(mark.fromY * 2) &&
        std::max(mark.fromX, mark.fromY) < kMostExact && std::min(mark.fromX, mark.fromY) >= 0;
    if (isExact)
      return isAllOnSheet ? ExactRayLength<true>(mark, ray, most) : ExactRayLength<false>(mark, ray, most);
    return isAllOnSheet ? RayLength<true>(mark, ray, most) : RayLength<false>(mark, ray, most);
  }
  // `kIsAllOnSheet`: no ray leaves the sheet, nor comes near the image's edges.
  template <bool kIsAllOnSheet>
  double RayLength(const Mark& mark, int ray, double most) const {
    const double dx = RayX(ray), dy = RayY(ray);
    const auto differs = page_.Differing(mark.level, mark.isLighter);
    const int fleck = std::max(2, RoundDown(kFleck * scale_));
    int light = 0;
    double end = 0;
    for (double t = 0; t <= most; t += 1) {
      const double rayX = mark.fromX + dx * t + 0.5, rayY = mark.fromY + dy * t + 0.5;
      const int x = kIsAllOnSheet ? static_cast<int>(rayX) : RoundDown(rayX);
      const int y = kIsAllOnSheet ? static_cast<int>(rayY) : RoundDown(rayY);
      if (!kIsAllOnSheet && !IsOnSheet(x, y)) return -1;
      if (differs(x, y)) {
        light = 0;
        end = t + 0.5;
      } else if (++light >= fleck) {
        return end;
      }
    }
    return most;
  }

  template <bool kIsAllOnSheet>
  double ExactRayLength(const Mark& mark, int ray, double most) const {
    constexpr int kShift = 14, kScale = 1 << kShift;
    static_assert(kScale == kRayScale);
    const int dx = static_cast<int>(RayX(ray) * kRayScale), dy = static_cast<int>(RayY(ray) * kRayScale);
    const int fleck = std::max(2, RoundDown(kFleck * scale_)), last = RoundDown(most);
    const auto differs = page_.Differing(mark.level, mark.isLighter);
    int x = static_cast<int>(mark.fromX * 2) * (kScale / 2) + kScale / 2;
    int y = static_cast<int>(mark.fromY * 2) * (kScale / 2) + kScale / 2;
    int light = 0, end = -1;
    for (int t = 0; t <= last; ++t, x += dx, y += dy) {
      if (!kIsAllOnSheet && !IsOnSheet(x >> kShift, y >> kShift)) return -1;
      if (differs(x >> kShift, y >> kShift)) {
        light = 0;
        end = t;
      } else if (++light >= fleck) {
        return end < 0 ? 0 : end + 0.5;
      }
    }
    return most;
  }

  // Whether all that is within reach of a mark's rays lies on the sheet.
  bool IsAllOnSheet(const Mark& mark, double most) const {
    const int reach = RoundDown(most) + 2;
    const int left = RoundDown(mark.fromX) - reach, right = RoundDown(mark.fromX) + reach;
    const int top = RoundDown(mark.fromY) - reach, bottom = RoundDown(mark.fromY) + reach;
    if (!IsInside(left, top) || !IsInside(right, bottom)) return false;
    if (!sheet_.HasOutside()) return true;
    for (int row = top >> shift_; row <= bottom >> shift_; ++row) {
      const uint8_t* outside = sheet_.outside.Row(row);
      uint8_t any = 0;
      for (int cell = left >> shift_; cell <= right >> shift_; ++cell) any |= outside[cell];
      if (any != 0) return false;
    }
    return true;
  }

  // Fits a circle to the outline, and tells how well it fits.
  void Measure(const SideFrame& frame, Mark* mark) const {
    constexpr int kMostEndless = 3;  // 1 / kMostEndless of the rays
    const double most = 0.75 * kMostDiameter * scale_;
    double lengths[kRays];
    double pointsX[kRays], pointsY[kRays];
    double lengthsFromX = 0, lengthsFromY = 0;
    mark->radius = std::max(mark->boxWidth, mark->boxHeight) / 2;
    for (int pass = 0; pass < 4; ++pass) {
      int count = 0;
      std::vector<double> known;
      const bool isAllOnSheet = IsAllOnSheet(*mark, most);
      int endless = 0;
      lengthsFromX = mark->fromX, lengthsFromY = mark->fromY;
      for (int ray = 0; ray < kRays; ++ray) {
        lengths[ray] = RayLength(*mark, ray, most, isAllOnSheet);
        endless += lengths[ray] == most;
        // No hole goes on like that on a good part of its sides: a letter's stroke, a bar.
        if (endless * kMostEndless > kRays) {
          mark->rays = 0;
          return;
        }
        if (lengths[ray] < 0) continue;
        pointsX[ray] = mark->fromX + RayX(ray) * lengths[ray];
        pointsY[ray] = mark->fromY + RayY(ray) * lengths[ray];
        known.push_back(lengths[ray]);
        ++count;
      }
      mark->rays = count * 100 / kRays;
      if (mark->rays < kLeastRays || endless * kMostEndless > count) {
        mark->rays = 0;
        return;
      }
      // The circle by least squares through the points near the one so far: x² + y² = 2 a x + 2 b y + c.
      std::nth_element(known.begin(), known.begin() + static_cast<ptrdiff_t>(known.size() / 2), known.end());
      const double median = known[known.size() / 2];
      const double off =
          pass == 0 ? 0.35 * median : std::max(kOutlineOff * scale_, 2 * kOutlineOffShare * median);
      double n = 0, sx = 0, sy = 0;
      for (int ray = 0; ray < kRays; ++ray) {
        if (lengths[ray] < 0 ||
            std::abs(Distance(*mark, pointsX[ray], pointsY[ray]) - (pass == 0 ? median : mark->radius)) > off)
          continue;
        n += 1, sx += pointsX[ray], sy += pointsY[ray];
      }
      if (n < kRays * 0.3) break;
      const double mx = sx / n, my = sy / n;
      double xx = 0, xy = 0, yy = 0, xz = 0, yz = 0, z = 0;
      for (int ray = 0; ray < kRays; ++ray) {
        if (lengths[ray] < 0 ||
            std::abs(Distance(*mark, pointsX[ray], pointsY[ray]) - (pass == 0 ? median : mark->radius)) > off)
          continue;
        const double x = pointsX[ray] - mx, y = pointsY[ray] - my, square = x * x + y * y;
        xx += x * x, xy += x * y, yy += y * y, xz += x * square, yz += y * square, z += square;
      }
      const double det = xx * yy - xy * xy;
      if (det <= 1e-3 * xx * yy) break;
      const double a = (xz * yy - yz * xy) / (2 * det), b = (yz * xx - xz * xy) / (2 * det);
      const double radius = std::sqrt(std::max(0.0, z / n + a * a + b * b));
      if (!(radius < most) || std::abs(a) + std::abs(b) > most) break;
      mark->x = mx + a;
      mark->y = my + b;
      mark->radius = radius;
      // The middle of a hole that is cut may lie a little outside.
      constexpr double kMostOutside = 0.35;  // radii
      if (IsOnSheet(RoundDown(mark->x), RoundDown(mark->y))) {
        mark->fromX = mark->x;
        mark->fromY = mark->y;
      } else if (!IsOnSheet(RoundDown(mark->x + kMostOutside * radius), RoundDown(mark->y)) &&
                 !IsOnSheet(RoundDown(mark->x - kMostOutside * radius), RoundDown(mark->y)) &&
                 !IsOnSheet(RoundDown(mark->x), RoundDown(mark->y + kMostOutside * radius)) &&
                 !IsOnSheet(RoundDown(mark->x), RoundDown(mark->y - kMostOutside * radius))) {
        mark->rays = 0;
        return;
      }
    }
    if (mark->fromX != lengthsFromX || mark->fromY != lengthsFromY) {
      const bool isAllOnSheet = IsAllOnSheet(*mark, most);
      for (int ray = 0; ray < kRays; ++ray) lengths[ray] = RayLength(*mark, ray, most, isAllOnSheet);
    }
    Judge(lengths, mark);
    mark->place = frame.Place(mark->x, mark->y);
    mark->depth = frame.Depth(mark->x, mark->y);
  }
  static double Distance(const Mark& mark, double x, double y) {
    return std::sqrt((x - mark.x) * (x - mark.x) + (y - mark.y) * (y - mark.y));
  }

  void Judge(const double (&lengths)[kRays], Mark* mark) const {
    int known = 0, round = 0;
    const double off = std::max(kOutlineOff * scale_, kOutlineOffShare * mark->radius);
    for (int ray = 0; ray < kRays; ++ray) {
      if (lengths[ray] < 0) continue;
      ++known;
      const double distance =
          Distance(*mark, mark->fromX + RayX(ray) * lengths[ray], mark->fromY + RayY(ray) * lengths[ray]);
      round += std::abs(distance - mark->radius) <= off;
    }
    mark->diagonal = mark->fromX == mark->x && mark->fromY == mark->y ? Diagonal(lengths) : 1;
    mark->rays = known * 100 / kRays;
    mark->round = known == 0 ? 0 : round * 100 / known;
    if (mark->round < kRoundPartner) return;
    // Pixels inside, and in a ring around.
    const double inner = 0.88 * mark->radius, ringFrom = 1.12 * mark->radius + 1,
                 ringTo = 1.45 * mark->radius + 1;
    const auto differs = page_.Differing(mark->level, mark->isLighter);
    int64_t inside = 0, dark = 0, around = 0, light = 0;
    for (int y = RoundDown(mark->y - ringTo); y <= RoundDown(mark->y + ringTo) + 1; ++y) {
      for (int x = RoundDown(mark->x - ringTo); x <= RoundDown(mark->x + ringTo) + 1; ++x) {
        if (!IsOnSheet(x, y)) continue;
        const double distance = Distance(*mark, x, y);
        if (distance <= inner) {
          ++inside;
          dark += differs(x, y);
        } else if (distance >= ringFrom && distance <= ringTo) {
          ++around;
          light += !differs(x, y);
        }
      }
    }
    mark->solid = inside == 0 ? 0 : static_cast<int>(dark * 100 / inside);
    mark->light = around == 0 ? 0 : static_cast<int>(light * 100 / around);
  }

  // Medians, as flecks of light end rays early.
  static double Diagonal(const double (&lengths)[kRays]) {
    std::vector<double> upright, diagonal;
    for (int ray = 0; ray < kRays; ++ray) {
      const int off = ray % (kRays / 4);
      if (lengths[ray] < 0) continue;
      if (off <= 1 || off >= kRays / 4 - 1) upright.push_back(lengths[ray]);
      if (off >= kRays / 8 - 1 && off <= kRays / 8 + 1) diagonal.push_back(lengths[ray]);
    }
    if (upright.empty() || diagonal.empty()) return 1;
    return Median(std::move(diagonal)) / std::max(1.0, Median(std::move(upright)));
  }

  // ---- rows -----------------------------------------------------------------------------------------------

  bool MayBeHole(const Mark& mark, int round) const {
    const double diameter = 2 * mark.radius / scale_;
    return mark.round >= round && mark.solid >= kSolid && mark.light >= kLightAround &&
           mark.depth >= kNearest && mark.depth <= kFurthest && diameter >= kLeastDiameter &&
           diameter <= kMostDiameter && mark.diagonal < kSquare;
  }

  bool AreAlike(const Mark& a, const Mark& b) const {
    constexpr double kLargest = 1.16, kDepthOff = 1.4, kDepthOffShare = 0.02;
    const auto [smaller, larger] = std::minmax({a.radius, b.radius});
    const double apart = std::abs(a.place - b.place);
    return larger <= kLargest * smaller + 1 &&
           std::abs(a.depth - b.depth) <= kDepthOff + kDepthOffShare * apart &&
           apart >= 3 * larger / scale_ && a.isLighter == b.isLighter;
  }

  static bool IsKnownSpacing(double apart) {
    return std::any_of(std::begin(kSpacings), std::end(kSpacings), [apart](double spacing) {
      return std::abs(apart - spacing) <= kSpacingOff + kSpacingOffShare * spacing;
    });
  }

  // The rings of diaries: two groups of three.
  static constexpr size_t kDiaryHoles = 6;
  static bool IsDiarySpacing(double apart, bool isBetweenGroups) {
    constexpr double kInGroup = 19, kLeastBetween = 25, kMostBetween = 80;
    if (isBetweenGroups) return apart >= kLeastBetween && apart <= kMostBetween;
    return std::abs(apart - kInGroup) <= kSpacingOff + kSpacingOffShare * kInGroup;
  }

  void Take(Mark* mark, int confidence, const char* reason, SheetSide side) {
    if (mark->isTaken) return;
    mark->isTaken = true;
    found_.push_back({{mark->x, mark->y, 2 * mark->radius, side, confidence, reason}, *mark});
  }

  void Choose(SheetSide side) {
    const SideFrame frame(sheet_, side);
    std::vector<Mark>& marks = rows_[static_cast<size_t>(side)];
    const auto [start, end] = frame.Extent();
    const double length = end - start, middle = (start + end) / 2;
    for (Mark& mark : marks) {
      if (mark.isTaken || !MayBeHole(mark, kRound)) continue;
      for (const int round : {kRoundPartner, kRound}) {
        if (ChooseRow(mark, marks, round, side, middle, length)) break;
      }
    }
    const bool hasRow =
        std::any_of(marks.begin(), marks.end(), [](const Mark& mark) { return mark.isTaken; });
    if (!hasRow) ChooseAlone(marks, side);
  }

  // The row of all marks that are like `first`. One that no punch makes is printed.
  bool ChooseRow(Mark& first, std::vector<Mark>& marks, int round, SheetSide side, double middle,
                 double length) {
    constexpr size_t kMostHoles = 4;
    constexpr double kCentred = 0.03, kLongest = 0.8, kLongestPair = 0.62, kShortest = 0.15;  // of the side
    constexpr double kEven = 0.02;
    std::vector<Mark*> row = {&first};
    for (Mark& mark : marks) {
      if (&mark != &first && MayBeHole(mark, round) && AreAlike(first, mark)) row.push_back(&mark);
    }
    const bool isDiary = row.size() == kDiaryHoles;
    if (row.size() < 2 || (row.size() > kMostHoles && !isDiary)) return false;
    std::stable_sort(row.begin(), row.end(),
                     [](const Mark* a, const Mark* b) { return a->place < b->place; });
    bool isKnown = true, isEven = true, isClear = true, isOpen = true;
    const double span = row.back()->place - row.front()->place,
                 step = span / static_cast<double>(row.size() - 1);
    for (size_t i = 0; i < row.size(); ++i) {
      const double ink = InkAround(*row[i]);
      isOpen &= ink <= kInkInRow && !HasTextBeside(*row[i], side);
      isClear &= ink <= kInkInPair;
      if (i == 0) continue;
      const double apart = row[i]->place - row[i - 1]->place;
      isKnown &= isDiary ? IsDiarySpacing(apart, i == kDiaryHoles / 2) : IsKnownSpacing(apart);
      isEven &= std::abs(apart - step) <= kEven * span;
    }
    const bool isCentred =
        std::abs((row.front()->place + row.back()->place) / 2 - middle) <= kCentred * length;
    const bool isInSide =
        span >= kShortest * length && span <= (row.size() == 2 ? kLongestPair : kLongest) * length;
    const bool isPair = !isDiary && isEven && isCentred && isClear && isInSide && round == kRound;
    if (!isOpen || !(isKnown || isPair)) return false;
    for (Mark* mark : row) {
      if (isKnown)
        Take(mark, 95, "a row in a punch's spacing", side);
      else
        Take(mark, 88, "a row about the side's middle", side);
    }
    return true;
  }

  // Whether ink of the page follows inwards, as text follows a bullet.
  bool HasTextBeside(const Mark& mark, SheetSide side) const {
    const double reach = (1 + 2 * kBesideText) * mark.radius, half = 0.7 * mark.radius;
    const int gap = RoundDown(1.12 * mark.radius) + 2;
    int64_t dark = 0, all = 0;
    for (int along = -RoundDown(half); along <= RoundDown(half); ++along) {
      for (int in = gap; in <= RoundDown(reach) + 1; ++in) {
        const bool isUpright = side == SheetSide::kLeft || side == SheetSide::kRight;
        // Text runs along rows, so that under the top it is beside, too.
        const int inwards = side == SheetSide::kRight ? -in : in;
        const int x = RoundDown(mark.x) + (isUpright ? inwards : in), y = RoundDown(mark.y) + along;
        if (!IsOnSheet(x, y)) continue;
        ++all;
        dark += Differs(x, y, mark);
      }
    }
    constexpr int kText = 12;  // percent
    return dark * 100 > all * kText;
  }

  void ChooseAlone(std::vector<Mark>& marks, SheetSide side) {
    constexpr double kLeast = 4.5, kMost = 9, kLeastDepth = 4, kMostDepth = 15;
    Mark* only = nullptr;
    for (Mark& mark : marks) {
      if (mark.round < kRound) continue;
      if (only != nullptr) return;  // several that make no row are marks of the page
      only = &mark;
    }
    if (only == nullptr) return;
    const double diameter = 2 * only->radius / scale_;
    if (only->round < kRoundAlone || only->solid < kSolidAlone || only->light < kLightAroundAlone ||
        diameter < kLeast || diameter > kMost || only->depth < kLeastDepth || only->depth > kMostDepth ||
        only->rays < 100 || InkAround(*only) > kInkAlone)
      return;
    Take(only, 75, "round, solid and alone in the margin", side);
  }

  // Ink near the mark, in percent of the pixels there.
  double InkAround(const Mark& mark) const {
    int64_t dark = 0, all = 0;
    const double from = 1.15 * mark.radius + 1, to = kFree * mark.radius;
    for (int y = RoundDown(mark.y - to); y <= RoundDown(mark.y + to); ++y) {
      for (int x = RoundDown(mark.x - to); x <= RoundDown(mark.x + to); ++x) {
        const double distance = Distance(mark, x, y);
        if (!IsOnSheet(x, y) || distance < from || distance > to) continue;
        ++all;
        dark += Differs(x, y, mark);
      }
    }
    return all == 0 ? 0 : 100.0 * static_cast<double>(dark) / static_cast<double>(all);
  }

  // Spirals, combs and wires: many equal marks in equal steps along most of a side, with no text at them.
  bool TakeBinding(const std::vector<Candidate>& candidates, const SideFrame& frame, SheetSide side,
                   const Level& level) {
    constexpr size_t kLeastMarks = 10;
    constexpr double kDeepest = 10, kSteepest = 0.12;
    constexpr double kLeastAcross = 2.4;  // marks that machines read a form by are thinner
    constexpr double kSizeOff = 0.2, kDepthOff = 1;
    if (candidates.size() < kLeastMarks) return false;
    std::vector<Mark> row;
    for (const Candidate& candidate : candidates) {
      if (std::min(candidate.boxWidth, candidate.boxHeight) < kLeastAcross * scale_) continue;
      Mark mark = MarkOf(candidate, level);
      mark.place = frame.Place(mark.x, mark.y);
      mark.depth = frame.Depth(mark.x, mark.y);
      mark.radius = std::max(mark.boxWidth, mark.boxHeight) / 2;
      mark.isBinding = true;
      row.push_back(mark);
    }
    if (row.size() < kLeastMarks) return false;
    // Alike, and along a line: the sheet may lie askew.
    std::vector<double> widths, heights;
    for (const Mark& mark : row) widths.push_back(mark.boxWidth), heights.push_back(mark.boxHeight);
    const double width = Median(widths), height = Median(heights);
    std::erase_if(row, [&](const Mark& mark) {
      return std::abs(mark.boxWidth - width) > kSizeOff * width + sheet_.cell ||
             std::abs(mark.boxHeight - height) > kSizeOff * height + sheet_.cell;
    });
    if (row.size() < kLeastMarks) return false;
    std::stable_sort(row.begin(), row.end(), [](const Mark& a, const Mark& b) { return a.place < b.place; });
    std::vector<double> slopes, depths;
    for (size_t i = 0, half = row.size() / 2; i + half < row.size(); ++i)
      slopes.push_back((row[i + half].depth - row[i].depth) / (row[i + half].place - row[i].place + 1e-9));
    const double slope = Median(slopes);
    if (std::abs(slope) > kSteepest) return false;
    for (const Mark& mark : row) depths.push_back(mark.depth - slope * mark.place);
    const double depth = Median(depths);
    std::erase_if(
        row, [&](const Mark& mark) { return std::abs(mark.depth - slope * mark.place - depth) > kDepthOff; });
    if (row.size() < kLeastMarks || depth + slope * row[row.size() / 2].place > kDeepest ||
        !AreInEqualSteps(row, frame))
      return false;
    constexpr int kMostBeside = 5;  // 1 / kMostBeside of the marks may have ink next to them
    const auto beside =
        std::count_if(row.begin(), row.end(), [&](const Mark& mark) { return HasInkInwards(mark, side); });
    if (static_cast<size_t>(beside) * kMostBeside > row.size()) return false;
    for (Mark& mark : row) Take(&mark, 90, "one of a binding's marks", side);
    return true;
  }

  static bool AreInEqualSteps(const std::vector<Mark>& row, const SideFrame& frame) {
    constexpr double kLeastStep = 3.5, kMostStep = 15.5, kStepOff = 0.14;
    constexpr double kLeastLength = 0.55;               // of the sheet's side
    constexpr size_t kLeastEven = 90, kLeastFull = 80;  // percent of the marks, and of the steps
    std::vector<double> steps;
    for (size_t i = 1; i < row.size(); ++i) steps.push_back(row[i].place - row[i - 1].place);
    double step = Median(steps);
    if (step < kLeastStep || step > kMostStep) return false;
    const double span = row.back().place - row.front().place;
    const auto [start, end] = frame.Extent();
    if (span < kLeastLength * (end - start)) return false;
    // The whole row in equal steps, not each from the one before: errors do not add up.
    const double count = std::floor(span / step + 0.5);
    step = span / count;
    size_t even = 0;
    for (const Mark& mark : row) {
      const double steps1 = (mark.place - row.front().place) / step;
      even += std::abs(steps1 - std::floor(steps1 + 0.5)) <= kStepOff;
    }
    return even * 100 >= row.size() * kLeastEven &&
           static_cast<double>(row.size()) * 100 >= (count + 1) * kLeastFull;
  }

  // Whether there is ink on the side of a mark that lies towards the page's middle.
  bool HasInkInwards(const Mark& mark, SheetSide side) const {
    constexpr double kFrom = 0.8, kTo = 3.5;  // from the mark's box
    constexpr int kInk = 10;                  // percent
    const double halfWidth = mark.boxWidth / 2, halfHeight = mark.boxHeight / 2;
    double left = mark.x - halfWidth, right = mark.x + halfWidth, top = mark.y - halfHeight,
           bottom = mark.y + halfHeight;
    const double from = kFrom * scale_, to = kTo * scale_;
    switch (side) {
      case SheetSide::kLeft:
        left = mark.x + halfWidth + from, right = mark.x + halfWidth + to;
        break;
      case SheetSide::kRight:
        right = mark.x - halfWidth - from, left = mark.x - halfWidth - to;
        break;
      case SheetSide::kTop:
        top = mark.y + halfHeight + from, bottom = mark.y + halfHeight + to;
        break;
      case SheetSide::kBottom:
        bottom = mark.y - halfHeight - from, top = mark.y - halfHeight - to;
        break;
    }
    int64_t dark = 0, all = 0;
    for (int y = RoundDown(top); y <= RoundDown(bottom); ++y) {
      for (int x = RoundDown(left); x <= RoundDown(right); ++x) {
        if (!IsOnSheet(x, y)) continue;
        ++all;
        dark += Differs(x, y, mark);
      }
    }
    return dark * 100 > all * kInk;
  }

  static double Median(std::vector<double> values) {
    const auto at = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), at, values.end());
    return *at;
  }

  // ---- the plan -------------------------------------------------------------------------------------------

  HolePlan Plan() {
    HolePlan plan;
    DropMirrored();
    DropFrames();
    if (found_.empty()) return plan;
    plan.mask = BitPlane(page_.width(), page_.height());
    for (const Found& found : found_) {
      plan.holes.push_back(found.hole);
      MaskMark(found.mark, &plan);
    }
    return plan;
  }

  // The same marks at opposite sides are printed: for machines to find the page by.
  void DropMirrored() {
    const auto isOpposite = [](const Found& a, const Found& b) {
      return (static_cast<int>(a.hole.side) + 2) % 4 == static_cast<int>(b.hole.side);
    };
    std::vector<Found> kept;
    for (const Found& a : found_) {
      const bool isMirrored = std::any_of(found_.begin(), found_.end(), [&](const Found& b) {
        return isOpposite(a, b) && std::abs(a.mark.place - b.mark.place) < 2 * a.mark.radius / scale_ &&
               std::abs(a.mark.depth - b.mark.depth) < a.mark.radius / scale_;
      });
      if (!isMirrored) kept.push_back(a);
    }
    found_ = std::move(kept);
  }

  // Rows like a binding's along several sides are an ornament.
  void DropFrames() {
    bool isBound[4] = {};
    for (const Found& found : found_) isBound[static_cast<size_t>(found.hole.side)] |= found.mark.isBinding;
    if (std::count(std::begin(isBound), std::end(isBound), true) < 2) return;
    std::erase_if(found_, [](const Found& found) { return found.mark.isBinding; });
  }

  // All that hangs together with a binding's mark, whatever its shape, and its rim.
  void MaskBinding(const Mark& mark, HolePlan* plan) const {
    constexpr double kOver = 0.8, kOverShare = 0.1, kRim = 0.15;  // beyond the box's sides; of its length
    const auto over = [&](double length) { return length / 2 + kOver * scale_ + kOverShare * length; };
    const int left = std::max(0, RoundDown(mark.x - over(mark.boxWidth))),
              right = std::min(page_.width(), RoundDown(mark.x + over(mark.boxWidth)) + 1),
              top = std::max(0, RoundDown(mark.y - over(mark.boxHeight))),
              bottom = std::min(page_.height(), RoundDown(mark.y + over(mark.boxHeight)) + 1);
    if (left >= right || top >= bottom) return;
    BytePlane taken(right - left, bottom - top);
    std::vector<std::pair<int, int>> open;
    const auto take = [&](int x, int y) {
      if (x < left || y < top || x >= right || y >= bottom || taken.Row(y - top)[x - left] != 0 ||
          !Differs(x, y, mark))
        return;
      taken.Row(y - top)[x - left] = 1;
      open.push_back({x, y});
    };
    for (int y = RoundDown(mark.y - mark.boxHeight / 4); y <= RoundDown(mark.y + mark.boxHeight / 4); ++y) {
      for (int x = RoundDown(mark.x - mark.boxWidth / 4); x <= RoundDown(mark.x + mark.boxWidth / 4); ++x)
        take(x, y);
    }
    const int rim = 1 + RoundDown(kRim * scale_);
    while (!open.empty()) {
      const auto [x, y] = open.back();
      open.pop_back();
      for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) take(x + dx, y + dy);
      }
      for (int ny = std::max(0, y - rim); ny <= std::min(page_.height() - 1, y + rim); ++ny) {
        for (int nx = std::max(0, x - rim); nx <= std::min(page_.width() - 1, x + rim); ++nx) {
          if (plan->mask.Get(nx, ny)) continue;
          plan->mask.Set(nx, ny);
          ++plan->pixels;
        }
      }
    }
  }

  void MaskMark(const Mark& mark, HolePlan* plan) const {
    if (mark.isBinding) return MaskBinding(mark, plan);
    const double halo = kHalo * scale_ + 1;
    const double reach = std::max({mark.radius, mark.boxWidth / 2, mark.boxHeight / 2}) + halo;
    const bool isRound = mark.round >= kRoundPartner;
    for (int y = RoundDown(mark.y - reach); y <= RoundDown(mark.y + reach) + 1; ++y) {
      for (int x = RoundDown(mark.x - reach); x <= RoundDown(mark.x + reach) + 1; ++x) {
        if (!IsInside(x, y) || plan->mask.Get(x, y)) continue;
        const double distance = Distance(mark, x, y);
        const bool isIn = isRound ? distance <= mark.radius + 1
                                  : std::abs(x - mark.x) <= mark.boxWidth / 2 + 1 &&
                                        std::abs(y - mark.y) <= mark.boxHeight / 2 + 1;
        // What is dark around it is its shadow or its ragged rim.
        const bool isNear = isRound ? distance <= mark.radius + halo
                                    : std::abs(x - mark.x) <= mark.boxWidth / 2 + halo &&
                                          std::abs(y - mark.y) <= mark.boxHeight / 2 + halo;
        if (!isIn && !(isNear && Differs(x, y, mark))) continue;
        plan->mask.Set(x, y);
        ++plan->pixels;
      }
    }
  }

  struct Found {
    PunchHole hole;
    Mark mark;
  };

  const Sheet& sheet_;
  const Page& page_;
  double scale_;
  int shift_;  // a cell's side, as a power of two
  std::vector<Mark> rows_[4];
  std::vector<Found> found_;
};

}  // namespace

HolePlan PlanHoles(const Sheet& sheet, const BytePlane& grey) {
  const GreyPage page{grey};
  return HoleFinder<GreyPage>(sheet, page).Find(/*hasGrey=*/true);
}

HolePlan PlanHoles(const Sheet& sheet, const BitPlane& ink) {
  const InkPage page{ink};
  return HoleFinder<InkPage>(sheet, page).Find(/*hasGrey=*/false);
}

}  // namespace rastrel::pages
