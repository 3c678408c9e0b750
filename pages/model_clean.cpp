#include "pages/model_clean.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <optional>
#include <utility>

#include "pages/black_and_white.h"
#include "pages/blankness.h"
#include "pages/borders.h"
#include "pages/check.h"
#include "pages/flatten.h"
#include "pages/grow.h"
#include "pages/judgement.h"
#include "pages/model.h"
#include "pages/operations.h"
#include "pages/overlay.h"
#include "pages/painted.h"
#include "pages/polarity.h"
#include "pages/punch_holes.h"
#include "pages/safeguards.h"
#include "pages/skew.h"
#include "pages/speck_removal.h"
#include "pages/text.h"

namespace rastrel::pages {
namespace {

// ---- painting
// -----------------------------------------------------------------------------------------------------

// Visits the columns of each run of bits that are set in a row: from, and the first after.
template <class Visit>
void ForEachRunOf(const BitPlane& plane, int y, Visit visit) {
  const uint64_t* row = plane.Row(y);
  int from = -1;
  for (size_t i = 0; i < plane.wordsPerRow(); ++i) {
    const uint64_t word = row[i];
    const auto base = static_cast<int>(i) * 64;
    if (word == (from < 0 ? 0 : ~uint64_t{0})) continue;
    for (int bit = 0; bit < 64;) {
      const uint64_t rest = (from < 0 ? word : ~word) << bit;
      if (rest == 0) break;
      bit += std::countl_zero(rest);
      if (from < 0) {
        from = base + bit;
      } else {
        visit(from, base + bit);
        from = -1;
      }
    }
  }
  if (from >= 0) visit(from, plane.width());
}

// Replaces what a mask names by paper. Greys are looked at as they came in.
void PaintMask(const PageModel& model, const BitPlane& mask, const PageView& page, Painted* painted) {
  for (int y = 0; y < page.height(); ++y) {
    ForEachRunOf(mask, y, [&](int first, int end) { painted->Keep(page, y, first, end); });
  }
  if (page.bits() == 1 || (page.bits() == 8 && !HasGreyRamp(page))) {
    const Ink ground = GroundInk(page, model.isTextDark);
    for (int y = 0; y < page.height(); ++y) {
      ForEachRunOf(mask, y, [&](int first, int end) { PaintRow(page, y, first, end, ground); });
    }
    return;
  }
  const ptrdiff_t down = -static_cast<ptrdiff_t>(page.stride());  // rows lie upside down
  PaintedPage rows = {page.PageRow(0),  down, page.PageRow(0), down, page.bits() / 8, !model.isTextDark,
                      !model.isTextDark};
  if (page.bits() == 8) {  // the ramp's indices are its greys
    rows.from = model.grey.Row(0);
    rows.fromStride = model.grey.width();
    rows.isFromNegative = false;
  }
  PaintPaper(rows, mask, model.ink);
}

// Columns from the first up to the end; none where that is not further right.
struct Columns {
  int first, end;
};

// Those of a row of a turned page that the page covers. Along the row its places go steadily one way.
Columns ColumnsOfPage(const PageModel& model, const Movement& movement, int width, int y) {
  Columns columns = {0, width};
  const auto narrow = [&](double Movement::Place::*coordinate, double most) {
    const auto at = [&](int x) { return movement.Before(x, y).*coordinate; };
    const auto firstWhere = [&](const auto& isBeyond) {
      int low = 0, high = width;
      while (low < high) {
        const int middle = low + (high - low) / 2;
        isBeyond(at(middle)) ? high = middle : low = middle + 1;
      }
      return low;
    };
    const bool isRising = at(0) <= at(width - 1);
    const auto isIn = [&](double value) { return isRising ? value >= 0 : value <= most; };
    const auto isPast = [&](double value) { return isRising ? value > most : value < 0; };
    columns.first = std::max(columns.first, firstWhere(isIn));
    columns.end = std::min(columns.end, firstWhere(isPast));
  };
  narrow(&Movement::Place::x, model.width - 1);
  narrow(&Movement::Place::y, model.height - 1);
  return {columns.first, std::max(columns.first, columns.end)};
}

// Of each band of rows, the columns that lie `reach` pixels or more away from what is not in the columns of a
// row.
constexpr int kBand = 16;  // rows
std::vector<Columns> BandsAwayFrom(const std::vector<Columns>& rows, int reach) {
  const auto unite = [](Columns* columns, const Columns& other) {
    columns->first = std::max(columns->first, other.first);
    columns->end = std::min(columns->end, other.end);
  };
  std::vector<Columns> bands((rows.size() + kBand - 1) / kBand, {0, INT32_MAX});
  for (size_t y = 0; y < rows.size(); ++y) unite(&bands[y / kBand], rows[y]);
  std::vector<Columns> away = bands;
  const auto count = static_cast<int>(bands.size()), around = (reach + kBand - 1) / kBand;
  for (int band = 0; band < count; ++band) {
    Columns& columns = away[static_cast<size_t>(band)];
    for (int other = std::max(0, band - around); other <= std::min(count - 1, band + around); ++other)
      unite(&columns, bands[static_cast<size_t>(other)]);
    columns = {columns.first + reach, columns.end - reach};
  }
  return away;
}

// Paints what a turn uncovered as the paper beside it: in one colour it would be a patch where light is
// uneven.
void PaintUncovered(const PageModel& model, const Movement& movement, const PageView& page) {
  if (page.bits() == 1 || (page.bits() == 8 && !HasGreyRamp(page))) return;
  BitPlane uncovered(page.width(), page.height()), ink(page.width(), page.height());
  std::vector<Columns> rows;
  for (int y = 0; y < page.height(); ++y) {
    rows.push_back(ColumnsOfPage(model, movement, page.width(), y));
    for (int x = 0; x < rows.back().first; ++x) uncovered.Set(x, y);
    for (int x = rows.back().end; x < page.width(); ++x) uncovered.Set(x, y);
  }
  const std::vector<Columns> bands =
      BandsAwayFrom(rows, kPaperReach + 1);  // ink reaches a pixel further by being widened
  std::vector<Movement::Place> columns;
  for (int x = 0; x < model.width; ++x) columns.push_back(movement.ColumnOf(x));
  const auto rowAt = [&](int x, const Movement::Place& along) {
    return std::clamp(static_cast<int>(columns[static_cast<size_t>(x)].y + along.y), 0, page.height() - 1);
  };
  for (int y = 0; y < model.height; ++y) {
    const Movement::Place along = movement.RowOf(y);
    const auto draw = [&](int first, int end) {
      for (int x = first; x < end; ++x) {
        const Movement::Place& place = columns[static_cast<size_t>(x)];
        const auto column = static_cast<int>(place.x + along.x), row = static_cast<int>(place.y + along.y);
        if (column >= 0 && row >= 0 && column < page.width() && row < page.height()) ink.Set(column, row);
      }
    };
    // What lies away from all that is uncovered is not asked for.
    const auto [top, bottom] = std::minmax({rowAt(0, along), rowAt(model.width - 1, along)});
    Columns away = {0, page.width()};
    for (int band = top / kBand; band <= bottom / kBand; ++band) {
      away.first = std::max(away.first, bands[static_cast<size_t>(band)].first);
      away.end = std::min(away.end, bands[static_cast<size_t>(band)].end);
    }
    const auto columnFrom = [&](int column) {
      return static_cast<int>(std::partition_point(columns.begin(), columns.end(),
                                                   [&](const Movement::Place& place) {
                                                     return static_cast<int>(place.x + along.x) < column;
                                                   }) -
                              columns.begin());
    };
    const int left = columnFrom(away.first), right = std::max(left, columnFrom(away.end));
    ForEachRunOf(model.ink, y, [&](int first, int end) {
      draw(first, std::min(end, left));
      draw(std::max(first, right), end);
    });
  }
  // What ink at the image's edge is smoothed into stays.
  ink = Widened(std::move(ink), 1);
  for (size_t i = 0; i < ink.words().size(); ++i) uncovered.words()[i] &= ~ink.words()[i];
  const ptrdiff_t down = -static_cast<ptrdiff_t>(page.stride());  // rows lie upside down
  PaintPaper(
      {page.PageRow(0), down, page.PageRow(0), down, page.bits() / 8, !model.isTextDark, !model.isTextDark},
      uncovered, ink);
}

// A speck and its soft rim become what lies beside them, mirrored, so that the paper's grain goes on.
void PaintSpeck(const PageModel& model, const Box& speck, const PageView& page, Painted* painted) {
  if (page.bits() == 1) return;
  const int rim = std::max(1, static_cast<int>(model.pixelsPerPoint + 0.5));
  const Box box = {std::max(speck.left - rim, 0), std::max(speck.top - rim, 0),
                   std::min(speck.right + rim, page.width()), std::min(speck.bottom + rim, page.height())};
  const size_t bytes = page.bits() / 8u;
  const auto isClear = [&](int left, int right) {
    if (left < 0 || right > page.width()) return false;
    for (int y = box.top; y < box.bottom; ++y) {
      for (int x = left; x < right; ++x) {
        if (model.ink.Get(x, y)) return false;
      }
    }
    return true;
  };
  const bool isLeftClear = isClear(box.left - box.width(), box.left);
  const bool isRightClear = isClear(box.right, box.right + box.width());
  for (int y = box.top; y < box.bottom; ++y) {
    painted->Keep(page, y, box.left, box.right);
    uint8_t* row = page.PageRow(y);
    for (int x = box.left; x < box.right; ++x) {
      // Other ink may reach into the rim.
      const bool isOwn = x >= speck.left && x < speck.right && y >= speck.top && y < speck.bottom;
      if (!isOwn && model.ink.Get(x, y)) continue;
      int from = isLeftClear ? 2 * box.left - 1 - x : isRightClear ? 2 * box.right - 1 - x : -1;
      if (from < 0) {
        // Ink on both sides: the nearest pixels without.
        from = x < (speck.left + speck.right) / 2 ? box.left : box.right - 1;
        if (model.ink.Get(from, y)) from = from == box.left ? box.right - 1 : box.left;
      }
      std::memcpy(row + static_cast<size_t>(x) * bytes, row + static_cast<size_t>(from) * bytes, bytes);
    }
  }
}

void Unite(const BitPlane& mask, BitPlane* all) {
  if (mask.isEmpty()) return;
  if (all->isEmpty()) {
    *all = mask;
    return;
  }
  for (size_t i = 0; i < mask.words().size(); ++i) all->words()[i] |= mask.words()[i];
}

// ---- the chain
// ----------------------------------------------------------------------------------------------------

class ModelCleaning {
 public:
  ModelCleaning(Dib page, const CleanOptions& options, CleanRecord* record, Overlay* overlay)
      : page_(std::move(page)), options_(options), record_(*record), overlay_(overlay) {
    const PageView view(page_);
    record_.widthIn = view.width();
    record_.heightIn = view.height();
    record_.isTextDark = options.text == TextTone::kAuto ? IsTextDark() : options.text == TextTone::kDark;
  }

  Dib Finish() {
    Report("model");
    Understand();
    Report("trim");
    if (options_.trims) PlanTrim();
    Report("holes");
    if (options_.erasesHoles) PlanHoles();
    Report("specks");
    if (options_.removesSpecks) RemoveSpecks();
    CheckPainting();
    Brighten();
    Report("deskew");
    if (options_.deskew != Deskewing::kOff) Try("deskew", &ModelCleaning::PlanTurn);
    if (options_.cropsSheet) Try("sheet", &ModelCleaning::PlanCrop);
    Move();
    record_.isChecked = true;
    TellBlank();
    return std::move(page_);
  }

  // Afterwards.
  InkBefore TakeInk() {
    return {std::move(model_.ink), std::move(model_.grey), std::move(named_), movement_};
  }

 private:
  // Thrown by a step that has no business with a page.
  struct NotHere {
    std::string reason;
  };
  // Only dark pages are asked for their text: it is light on few of them, as dark paper is paper.
  bool IsTextDark() const {
    constexpr int kLeastConfidence = 20;  // less: hardly any text
    if (!IsDarkPage(page_)) return true;
    const PageView view(page_);
    const Polarity polarity = view.bits() == 1 ? FindPolarity(InkOf1Bit(view)) : FindPolarity(GreyOf(view));
    // Without text, a dark page is most often a negative on 1 bit, and dark paper or a photograph otherwise.
    if (polarity.confidence < kLeastConfidence) return view.bits() != 1;
    return !polarity.textIsLight;
  }

  void Report(const char* step) const {
    constexpr double kSteps = 7;
    options_.Report(step, std::min(1.0, static_cast<double>(record_.times.size()) / kSteps));
  }
  void Try(const char* step, void (ModelCleaning::*work)()) {
    const StepTimer timer(&record_, step);
    try {
      (this->*work)();
    } catch (const NotHere& notHere) {
      record_.skipped.push_back({step, notHere.reason});
    } catch (const PageError& error) {
      record_.skipped.push_back({step, error.what()});
    }
  }

  void Paint(const BitPlane& mask) { PaintMask(model_, mask, PageView(page_), &painted_); }

  void Understand() {
    const StepTimer timer(&record_, "model");
    const PageView view(page_);
    const int dpi =
        record_.isResolutionAssumed ? 0 : static_cast<int>(DotsPerInch(view.resolution().x) + 0.5);
    model_ = UnderstandPage(view, record_.isTextDark, dpi);
    if (!options_.explain) return;
    for (ModelPicture& picture : PicturesOfModel(model_)) {
      options_.explain(picture.name, std::move(picture.picture));
    }
  }

  // ---- what is painted over ----

  void PlanTrim() {
    const StepTimer timer(&record_, "trim");
    constexpr int kLeastSide = 32;  // of a page that has an edge and a middle
    if (model_.width < kLeastSide || model_.height < kLeastSide) {
      record_.skipped.push_back({"trim", "the page is too small"});
      return;
    }
    BorderPlan plan =
        model_.isBitonal() ? PlanBorders(model_.sheet, model_.ink) : PlanBorders(model_.sheet, model_.grey);
    for (const SideLeftAlone& side : plan.leftAlone) {
      record_.sidesLeft.push_back({std::string(NameOf(side.side)), side.reason});
    }
    if (plan.IsEmpty()) return;
    const Missing cut =
        FindCutText(*model_.components, model_.ink, model_.grey,
                    model_.isBitonal() ? 255 : model_.paper.level(), plan.mask, model_.letterHeight);
    const size_t firstItem = record_.regions.size();
    for (const BorderRegion& region : plan.regions) {
      record_.regions.push_back({"border", region.left, region.top, region.right, region.bottom, 0,
                                 region.confidence / 100.0, region.reason, !cut.isNothing()});
    }
    if (!cut.isNothing()) {
      record_.takenBack.push_back({"trim", Text("letters would go at ", cut.box.left, ", ", cut.box.top)});
      return;
    }
    if (record_.regions.size() > firstItem) record_.regions[firstItem].pixels = plan.pixels;
    CountTrimmed(plan.mask);
    Paint(plan.mask);
    if (overlay_ != nullptr) overlay_->Paint(Removed::kBorder, plan.mask);
    Unite(plan.mask, &named_);
    border_ = std::move(plan.mask);
  }

  // To which side what is trimmed belongs: that which it is nearest to.
  void CountTrimmed(const BitPlane& mask) {
    for (int y = 0; y < mask.height(); ++y) {
      const int down = std::min(y, mask.height() - 1 - y);
      ForEachRunOf(mask, y, [&](int first, int end) {
        const int fromLeft = first, fromRight = mask.width() - end;
        int64_t* side = y < mask.height() / 2 ? &record_.trimmedTop : &record_.trimmedBottom;
        if (std::min(fromLeft, fromRight) <= down)
          side = fromLeft <= fromRight ? &record_.trimmedLeft : &record_.trimmedRight;
        *side += end - first;
      });
    }
  }

  void PlanHoles() {
    const StepTimer timer(&record_, "holes");
    if (options_.holeSize) {
      EraseHolesOfSize();
      return;
    }
    const HolePlan plan = model_.isBitonal() ? pages::PlanHoles(model_.sheet, model_.ink)
                                             : pages::PlanHoles(model_.sheet, model_.grey);
    if (plan.IsEmpty()) return;
    for (const PunchHole& hole : plan.holes) {
      const double radius = hole.diameter / 2;
      record_.holes.push_back({hole.x, hole.y, hole.diameter, SideOf(hole.side)});
      record_.regions.push_back({"hole", static_cast<int>(hole.x - radius), static_cast<int>(hole.y - radius),
                                 static_cast<int>(hole.x + radius) + 1, static_cast<int>(hole.y + radius) + 1,
                                 0, hole.confidence / 100.0, hole.reason, false});
    }
    TakeHoles(plan.mask);
  }

  static Side SideOf(SheetSide side) {
    switch (side) {
      case SheetSide::kTop:
        return Side::kTop;
      case SheetSide::kRight:
        return Side::kRight;
      case SheetSide::kBottom:
        return Side::kBottom;
      default:
        return Side::kLeft;
    }
  }

  void TakeHoles(const BitPlane& mask) {
    Paint(mask);
    if (overlay_ != nullptr) overlay_->Paint(Removed::kHole, mask);
    Unite(mask, &named_);
    holes_ = mask;
  }

  // Holes of one size, which somebody asked for: as the operation of the core finds them.
  void EraseHolesOfSize() {
    if (!record_.isTextDark) {
      record_.skipped.push_back({"holes", "the page is dark"});
      return;
    }
    try {
      const Dib tried = Duplicate(page_);
      record_.holes = EraseHoles(tried, options_.holeSize, GroundInk(PageView(tried), true));
      if (record_.holes.empty()) return;
      BitPlane mask(model_.width, model_.height);
      const PageView before(page_), after(tried);
      for (int y = 0; y < model_.height; ++y) {
        const uint8_t *old = before.PageRow(y), *now = after.PageRow(y);
        if (std::memcmp(old, now, before.stride()) == 0) continue;
        for (int x = 0; x < model_.width; ++x) {
          if (!SamePixel(before, old, now, x)) mask.Set(x, y);
        }
      }
      for (const Hole& hole : record_.holes) {
        const double radius = hole.diameter / 2;
        record_.regions.push_back({"hole", static_cast<int>(hole.x - radius),
                                   static_cast<int>(hole.y - radius), static_cast<int>(hole.x + radius) + 1,
                                   static_cast<int>(hole.y + radius) + 1, 0, 1,
                                   "a disc of the size that was asked for", false});
      }
      TakeHoles(mask);
    } catch (const PageError& error) {
      record_.skipped.push_back({"holes", error.what()});
    }
  }

  void RemoveSpecks() {
    const StepTimer timer(&record_, "specks");
    if (options_.filtersFully) {
      FilterFully();
      return;
    }
    constexpr double kUsualLevel = 30;  // at which the largest specks are removed that are usual
    const double largest =
        LargestSpeck(model_.pixelsPerPoint, model_.letterHeight) * options_.speckLevel / kUsualLevel;
    const SpeckPlan plan = PlanSpecks(*model_.components, model_.ink, model_.grey, model_.pictures,
                                      model_.pixelsPerPoint, largest);
    if (!plan.leftAlone.empty()) record_.skipped.push_back({"specks", plan.leftAlone});
    if (plan.components.empty()) return;
    BitPlane mask(model_.width, model_.height);
    Box all = (*model_.components)[plan.components.front()].box;
    const PageView page(page_);
    const Ink ground = page.bits() == 1 ? GroundInk(page, model_.isTextDark) : Ink{};
    for (const uint32_t index : plan.components) {
      const Component& speck = (*model_.components)[index];
      if (!border_.isEmpty() && border_.Get(speck.box.left, speck.box.top)) continue;
      if (!holes_.isEmpty() && holes_.Get(speck.box.left, speck.box.top)) continue;
      DrawComponent(*model_.components, speck, &mask);
      PaintSpeck(model_, speck.box, page, &painted_);
      if (page.bits() == 1) {
        for (const uint32_t run : model_.components->RunsOf(speck)) {
          const InkRun& ink = model_.components->runs()[run];
          painted_.Keep(page, ink.row, ink.left, ink.right);
          PaintRow(page, ink.row, ink.left, ink.right, ground);
        }
      }
      all = {std::min(all.left, speck.box.left), std::min(all.top, speck.box.top),
             std::max(all.right, speck.box.right), std::max(all.bottom, speck.box.bottom)};
      ++record_.specks;
      record_.speckPixels += speck.pixelCount;
    }
    record_.regions.push_back({"specks", all.left, all.top, all.right, all.bottom, record_.speckPixels, 1,
                               Text(record_.specks, " marks, none of which fits a letter or a row of dots"),
                               false});
    if (overlay_ != nullptr) overlay_->Paint(Removed::kSpeck, mask);
    Unite(mask, &named_);
  }

  // The filter of the core on every pixel: somebody asked for it by name.
  void FilterFully() {
    if (model_.isBitonal() ? !model_.isTextDark
                           : PageView(page_).bits() == 24 || !HasGreyRamp(PageView(page_))) {
      record_.skipped.push_back({"specks", "only dark text on black-and-white and grey pages is filtered"});
      return;
    }
    const Dib filtered = Despeckle(page_, options_.speckLevel, /*filtersFully=*/true);
    const PageView page(page_), after(filtered);
    BitPlane mask(model_.width, model_.height);
    for (int y = 0; y < model_.height; ++y) {
      uint8_t *row = page.PageRow(y), *now = after.PageRow(y);
      if (std::memcmp(row, now, page.stride()) == 0) continue;
      painted_.Keep(page, y, 0, model_.width);
      for (int x = 0; x < model_.width; ++x) {
        if (SamePixel(page, row, now, x)) continue;
        mask.Set(x, y);
        ++record_.speckPixels;
      }
      std::memcpy(row, now, page.stride());
    }
    if (overlay_ != nullptr) overlay_->Paint(Removed::kSpeck, mask);
    Unite(mask, &named_);
  }

  // Everything that was painted is taken back when ink has gone that no step named.
  void CheckPainting() {
    if (painted_.isEmpty()) return;
    const StepTimer timer(&record_, "check");
    const PageView page(page_);
    const Missing missing = painted_.PaintedOver(page, model_.ink, named_);
    if (missing.isNothing()) {
      painted_ = Painted();
      return;
    }
    record_.takenBack.push_back({"paint", Text(missing.pixels, " pixels of ink were painted over at ",
                                               missing.box.left, ", ", missing.box.top)});
    for (Region& item : record_.regions) item.isTakenBack = true;
    record_.trimmedLeft = record_.trimmedTop = record_.trimmedRight = record_.trimmedBottom = 0;
    record_.holes.clear();
    record_.specks = record_.speckPixels = 0;
    named_ = border_ = holes_ = BitPlane();
    painted_.TakeBack(page);
  }

  // ---- light and paper ----

  void Brighten() {
    if (!options_.evensLight && !options_.whitensPaper && !options_.weakensShowThrough) return;
    const StepTimer timer(&record_, "paper");
    const bool isTrueColour = PageView(page_).bits() == 24;
    if (!isTrueColour && (model_.isBitonal() || !HasGreyRamp(PageView(page_)))) {
      record_.skipped.push_back({"paper", "only pages of greys and colours have their paper changed"});
      return;
    }
    if (!record_.isTextDark) {
      record_.skipped.push_back({"paper", "the text is light"});
      return;
    }
    Dib before = Duplicate(page_);
    const PageView view(page_);
    const PixelRows rows = {view.PageRow(0), -static_cast<ptrdiff_t>(view.stride()), isTrueColour ? 3 : 1};
    const BitPlane pictures = Screened();
    if (isTrueColour && options_.whitensPaper) {
      FindPaperColour(model_.paper, model_.grey, {rows.topRow, rows.stride, rows.bytesPerPixel});
    }
    if (options_.weakensShowThrough) WeakenShowThrough(rows, model_.paper, model_.ink, &pictures);
    if (options_.evensLight) EvenLight(rows, model_.paper, &pictures);
    if (options_.whitensPaper) WhitenPaper(rows, model_.paper, &pictures);
    const Missing missing = FindLost(model_.ink, model_.grey, named_, view, model_.isTextDark, Movement());
    if (missing.isNothing()) return;
    record_.takenBack.push_back({"paper", Text(missing.pixels, " pixels of ink were too pale at ",
                                               missing.box.left, ", ", missing.box.top)});
    page_ = std::move(before);
  }

  // Photographs, tints and screens, pixel by pixel.
  BitPlane Screened() const {
    BitPlane pictures(model_.width, model_.height);
    for (int y = 0; y < model_.height; ++y) {
      for (int x = 0; x < model_.width; x += model_.pictures.cell()) {
        if (!model_.pictures.IsScreened(x, y)) continue;
        for (int i = x; i < std::min(x + model_.pictures.cell(), model_.width); ++i) pictures.Set(i, y);
      }
    }
    return pictures;
  }

  // ---- how it is moved ----

  BitPlane InkThatStays() const {
    BitPlane ink = model_.ink;
    if (!named_.isEmpty()) {
      for (size_t i = 0; i < ink.words().size(); ++i) ink.words()[i] &= ~named_.words()[i];
    }
    return ink;
  }

  void PlanTurn() {
    constexpr double kAlike = 0.02, kUsualRange = 15, kLeastTurn = 0.05;
    const Resolution resolution = PageView(page_).resolution();
    if (std::abs(resolution.x - resolution.y) > kAlike * resolution.x) {
      throw NotHere{"its resolutions across and down differ"};
    }
    if (options_.deskew == Deskewing::kWhole) {
      const int degrees = DetectSkewAngle(page_.handle(), record_.isTextDark, 0, nullptr);
      record_.skew = degrees;
      RequireLessThanMost(degrees);
      turn_ = -degrees;
      return;
    }
    const PageSkew skew = FindSkew(InkThatStays(), std::clamp(options_.mostSkew, kUsualRange, 30.0));
    record_.skewConfidence = skew.confidence;
    if (skew.isSeveral) throw NotHere{"its parts differ in skew: " + skew.reason};
    if (skew.confidence == 0) throw NotHere{"the page shows no lines to go by"};
    record_.skew = skew.angle;
    if (std::abs(skew.angle) <= kLeastTurn) return;
    if (skew.confidence < kSureOfSkew) {
      throw NotHere{Text(Fixed(skew.angle, 2), " degrees are not certain (confidence ",
                         Fixed(skew.confidence, 2), ")")};
    }
    RequireLessThanMost(skew.angle);
    turn_ = -skew.angle;
    record_.regions.push_back(
        {"turn", 0, 0, model_.width, model_.height, 0, skew.confidence, skew.reason, false});
  }

  void RequireLessThanMost(double degrees) const {
    if (std::abs(degrees) > options_.mostSkew) {
      throw NotHere{Text(Fixed(degrees, 1), " degrees are too many for skew")};
    }
  }

  // The sheet's box on the page as it came in, sides that are not certain at the image's edge.
  void PlanCrop() {
    const Sheet& sheet = model_.sheet;
    const auto isCertain = [&](SheetSide side) {
      return sheet.side(side).kind == SideKind::kCertain && sheet.side(side).hasLine;
    };
    if (std::none_of(std::begin(kSheetSides), std::end(kSheetSides), isCertain)) {
      throw NotHere{"no side of the sheet is certain"};
    }
    crop_ = Crop::kSheet;
  }

  Area SheetOnTurned(const Movement& movement, int width, int height) const {
    const Sheet& sheet = model_.sheet;
    Area area = {0, 0, width, height};
    const int right = model_.width - 1, bottom = model_.height - 1;
    for (const SheetSide side : kSheetSides) {
      const SheetSideFit& fit = sheet.side(side);
      if (fit.kind != SideKind::kCertain || !fit.hasLine) continue;
      const bool isUpright = side == SheetSide::kLeft || side == SheetSide::kRight;
      const int places = isUpright ? model_.height : model_.width;
      const int first = fit.LineDepthAt(0, places), last = fit.LineDepthAt(places - 1, places);
      const auto place = [&](int depth, int along) {
        const double x = side == SheetSide::kLeft ? depth : side == SheetSide::kRight ? right - depth : along;
        const double y = side == SheetSide::kTop      ? depth
                         : side == SheetSide::kBottom ? bottom - depth
                                                      : along;
        return isUpright ? movement.XOf(x, y) : movement.YOf(x, y);
      };
      // Outermost, so that nothing of the sheet goes; what of the surround stays in the wedge was painted.
      const double a = place(first, 0), b = place(last, places - 1);
      if (side == SheetSide::kLeft) area.left = std::max(area.left, static_cast<int>(std::min(a, b)));
      if (side == SheetSide::kTop) area.top = std::max(area.top, static_cast<int>(std::min(a, b)));
      if (side == SheetSide::kRight) area.right = std::min(area.right, static_cast<int>(std::max(a, b)) + 1);
      if (side == SheetSide::kBottom)
        area.bottom = std::min(area.bottom, static_cast<int>(std::max(a, b)) + 1);
    }
    return area;
  }

  void Move() {
    if (turn_ == 0 && crop_ == Crop::kNone) return;
    Dib moved;
    Movement movement;
    bool isCropped = false;
    {
      const StepTimer timer(&record_, "move");
      int width = model_.width, height = model_.height;
      if (turn_ != 0) {
        const Ink ground = GroundInk(PageView(page_), record_.isTextDark);
        moved = options_.deskew == Deskewing::kWhole ? Rotate(page_, turn_, ground)
                                                     : Straighten(page_, turn_, ground);
        const PageView view(moved);
        width = view.width();
        height = view.height();
      }
      movement = Movement(model_.width, model_.height, turn_, width, height, 0, 0);
      if (turn_ != 0) PaintUncovered(model_, movement, PageView(moved));
      if (crop_ == Crop::kSheet) {
        const Area area = SheetOnTurned(movement, width, height);
        isCropped = area.width() < width || area.height() < height;
        if (isCropped && area.width() > 0 && area.height() > 0) {
          moved = pages::Crop(moved ? moved : page_, area);
          movement = Movement(model_.width, model_.height, turn_, width, height, area.left, area.top);
        }
      }
    }
    if (!moved) return;
    const StepTimer timer(&record_, "check");
    const Missing missing =
        FindLost(model_.ink, model_.grey, named_, PageView(moved), model_.isTextDark, movement);
    if (!missing.isNothing()) {
      record_.takenBack.push_back(
          {isCropped ? "sheet" : "deskew",
           Text(missing.pixels, " pixels of ink were missing at ", missing.box.left, ", ", missing.box.top)});
      for (Region& item : record_.regions)
        item.isTakenBack = item.isTakenBack || item.kind == "turn" || item.kind == "crop";
      return;
    }
    page_ = std::move(moved);
    movement_ = movement;
    record_.isTurned = turn_ != 0;
    record_.isCropped = isCropped;
  }

  // By what is written on the page; with more than the usual percentage, by how much that is.
  void TellBlank() {
    constexpr double kUsualPercent = 0.1;
    // Lines of text are never nothing, however pale or small they are.
    const bool hasLines = record_.skewConfidence.value_or(0) >= kSureOfSkew;
    if (hasLines && options_.blankPercent <= kUsualPercent) return;
    const BitPlane ink = InkThatStays();
    if (!hasLines) {
      const Blankness found = model_.isBitonal()
                                  ? FindBlankness(ink, model_.pixelsPerPoint)
                                  : FindBlankness(model_.grey, model_.paper, ink, model_.pixelsPerPoint);
      record_.isBlank = found.isBlank;
    }
    if (options_.blankPercent <= kUsualPercent) return;
    int64_t pixels = 0;
    for (const uint64_t word : ink.words()) pixels += std::popcount(word);
    const double page = static_cast<double>(model_.width) * model_.height;
    if (static_cast<double>(pixels) * 100 < options_.blankPercent * page) record_.isBlank = true;
  }

  enum class Crop { kNone, kSheet };

  Dib page_;         // as it came in, and then as it is to go out
  Painted painted_;  // until that was checked
  const CleanOptions& options_;
  CleanRecord& record_;
  Overlay* overlay_;
  PageModel model_;
  BitPlane named_, border_, holes_;  // what the plan names as removed, in all and by what
  double turn_ = 0;                  // degrees counter-clockwise
  Crop crop_ = Crop::kNone;
  Movement movement_;  // that was carried out
};

}  // namespace

Dib CleanByModel(Dib page, const CleanOptions& options, CleanRecord* record, Dib* overlay,
                 InkBefore* before) {
  return InWorkingForm(std::move(page), overlay, [&](Dib working, Overlay* removed) {
    ModelCleaning cleaning(std::move(working), options, record, removed);
    Dib result = cleaning.Finish();
    *before = cleaning.TakeInk();
    return result;
  });
}

}  // namespace rastrel::pages
