#include "pages/blank.h"

#include <cmath>
#include <cstring>
#include <vector>

#include "pages/operations.h"

namespace rastrel::pages {
namespace {

constexpr unsigned kInkBelow = 80;  // percent of the paper's brightness

// The library's count of ink on 1-bit pages takes in padding. Whitens it, and puts it back at the end.
class WhitePadding {
 public:
  explicit WhitePadding(const PageView& page) : page_(page) {
    if (page.bits() != 1 || start_ == page.stride()) return;
    for (int y = 0; y < page.height(); ++y) {
      uint8_t* row = page.PageRow(y);
      before_.insert(before_.end(), row + start_, row + page.stride());
      row[start_] = static_cast<uint8_t>(row[start_] | 0xFF >> page.width() % 8);
      std::memset(row + start_ + 1, 0xFF, page.stride() - start_ - 1);
    }
  }
  ~WhitePadding() {
    const size_t count = page_.stride() - start_;
    for (size_t i = 0; i < before_.size(); i += count) {
      std::memcpy(page_.PageRow(static_cast<int>(i / count)) + start_, &before_[i], count);
    }
  }
  WhitePadding(const WhitePadding&) = delete;
  WhitePadding& operator=(const WhitePadding&) = delete;

 private:
  const PageView& page_;
  size_t start_ = static_cast<size_t>(page_.width() / 8);  // of bytes with padding
  std::vector<uint8_t> before_;
};

// The brightness below which the dark text of a page is ink.
unsigned InkLimit(const PageView& page, const std::vector<uint8_t>& table) {
  const Ink ground = GroundInk(page, /*light=*/true);
  const unsigned paper =
      page.bits() == 24 ? (ground.bytes[0] + ground.bytes[1] + ground.bytes[2]) / 3u : table[ground.bytes[0]];
  return paper * kInkBelow / 100;
}

}  // namespace

bool IsBlank(const Dib& page, bool isTextDark, double percent) {
  const Dib negative = isTextDark ? Dib() : Invert(page);
  const Dib& dark = isTextDark ? page : negative;
  const PageView view(dark);
  const WhitePadding padding(view);
  const COLORREF ink = InkLimit(view, BrightnessTable(view)) * 0x010101u;
  return IsImageBlank(dark.handle(), static_cast<int>(std::lround(percent * 10)), ink) == 1;
}

double InkPercent(const Dib& page, bool isTextDark) {
  const Dib negative = isTextDark ? Dib() : Invert(page);
  const PageView view(isTextDark ? page : negative);
  const std::vector<uint8_t> table = BrightnessTable(view);
  const unsigned limit = InkLimit(view, table);
  std::vector<uint8_t> row(static_cast<size_t>(view.width()));
  int64_t ink = 0;
  for (int y = 0; y < view.height(); ++y) {
    RowBrightness(view, table, y, 0, view.width(), row.data());
    ink += std::count_if(row.begin(), row.end(), [limit](uint8_t value) { return value < limit; });
  }
  return 100.0 * static_cast<double>(ink) / (static_cast<double>(view.width()) * view.height());
}

}  // namespace rastrel::pages
