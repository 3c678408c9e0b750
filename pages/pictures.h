// What on a page is no text: photographs and tints, screens and dithers, black areas, rules and frames.
#ifndef RASTREL_PAGES_PICTURES_H
#define RASTREL_PAGES_PICTURES_H

#include <cstdint>
#include <span>
#include <vector>

#include "pages/components.h"
#include "pages/paper.h"
#include "pages/planes.h"

namespace rastrel::pages {

enum class PictureKind : uint8_t {
  kNone,
  kTone,      // continuous: photographs, tints; grey and colour pages
  kHalftone,  // dots: screens, dithers, stippling
  kSolid,     // ink in one piece: black areas, the dark of photographs on 1-bit pages, borders
  kLineArt,   // rules, frames, drawings of lines
};

struct PictureRegion {
  PictureKind kind = PictureKind::kNone;
  Box box = {};           // in pixels
  int64_t cellCount = 0;  // of the map
};

// A map of cells, each with the kind of what stands there, and the regions of cells of one kind that touch.
class Pictures {
 public:
  Pictures() = default;

  int cell() const { return cell_; }  // side in pixels
  const BytePlane& cells() const { return cells_; }
  PictureKind At(int x, int y) const {
    return cells_.isEmpty() ? PictureKind::kNone : static_cast<PictureKind>(cells_.Row(y / cell_)[x / cell_]);
  }
  // Where dots and tones are no marks: tones and halftones.
  bool IsScreened(int x, int y) const {
    const PictureKind kind = At(x, y);
    return kind == PictureKind::kTone || kind == PictureKind::kHalftone;
  }
  // From the top down.
  std::span<const PictureRegion> regions() const { return regions_; }

 private:
  friend Pictures FindPictures(const BitPlane& ink, const Components& components, const BytePlane* grey,
                               const PaperMap* paper, double pixelsPerPoint);

  int cell_ = 1;
  BytePlane cells_;
  std::vector<PictureRegion> regions_;
};

// `grey` and `paper` are null for 1-bit pages.
Pictures FindPictures(const BitPlane& ink, const Components& components, const BytePlane* grey,
                      const PaperMap* paper, double pixelsPerPoint);

}  // namespace rastrel::pages

#endif
