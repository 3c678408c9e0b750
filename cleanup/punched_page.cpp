#include "cleanup/punched_page.h"

#include <cmath>

namespace rastrel {
namespace {

constexpr double kInchesPerMetre = 39.37;  // rounded: they are 39.3701
constexpr double kBandMillimetres = 19;    // punch holes have their middle 12 mm from the edge

}  // namespace

int64_t HalfChord(int64_t radius, int64_t across) {
  const int64_t left = radius * radius - across * across;
  if (left <= 0) return -1;
  auto half = static_cast<int64_t>(std::sqrt(static_cast<double>(left)));
  while (half * half >= left) --half;
  return half;
}

PunchedPage::PunchedPage(HGLOBAL dib)
    : dib_(dib),
      page_(dib),
      window_(ProgressWindow::Kind::kPunchHoles),
      measurable_(page_ && page_.FindRows(PixelOffset(page_), &rows_) &&
                  page_.header().biXPelsPerMeter == page_.header().biYPelsPerMeter),
      dpi_(static_cast<int>(page_.header().biXPelsPerMeter / kInchesPerMetre + 0.5)),
      band_(static_cast<int>(dpi_ * Inches(kBandMillimetres) + 0.5)) {}

bool PunchedPage::Start(uint32_t work, int showProgress, HWND parent) {
  if (showProgress != 0 && !window_.Open(static_cast<int>(work), parent)) return false;
  return ForegroundTest::Takes(page_.bits());
}

}  // namespace rastrel
