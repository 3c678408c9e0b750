#include "cleanup/punched_page.h"

#include <cmath>

namespace rastrel {

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
      dpi_(static_cast<int>(page_.header().biXPelsPerMeter / 39.37 + 0.5)),
      band_(static_cast<int>(dpi_ * 0.7480314960629921 + 0.5)) {}

bool PunchedPage::Start(uint32_t work, int showProgress, HWND parent) {
  if (showProgress != 0 && !window_.Open(static_cast<int>(work), parent)) return false;
  return ForegroundTest::Takes(page_.bits());
}

}  // namespace rastrel
