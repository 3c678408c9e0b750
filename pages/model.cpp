#include "pages/model.h"

#include <algorithm>

#include "pages/judgement.h"
#include "pages/text_lines.h"

namespace rastrel::pages {
namespace {

void TurnRound(BytePlane* plane) {
  for (uint8_t& byte : plane->bytes()) byte = static_cast<uint8_t>(255 - byte);
}

void TurnRound(BitPlane* plane) {
  if (plane->isEmpty()) return;
  const unsigned rest = static_cast<unsigned>(plane->width()) % 64;
  const uint64_t lastMask = rest == 0 ? ~uint64_t{0} : ~uint64_t{0} << (64 - rest);
  for (int y = 0; y < plane->height(); ++y) {
    uint64_t* row = plane->Row(y);
    for (size_t i = 0; i < plane->wordsPerRow(); ++i) row[i] = ~row[i];
    row[plane->wordsPerRow() - 1] &= lastMask;
  }
}

// The middle height of the pieces of ink that may be letters.
double LetterHeightOf(const Components& components, double pixelsPerPoint) {
  std::vector<int32_t> heights;
  for (const Component& component : components.all()) {
    const Box& box = component.box;
    if (box.height() >= letter::kLeastHeight * pixelsPerPoint &&
        box.height() <= letter::kMostHeight * pixelsPerPoint &&
        box.width() <= letter::kWidest * box.height()) {
      heights.push_back(box.height());
    }
  }
  if (heights.size() < letter::kLeastCount) return 0;
  const auto middle = heights.begin() + static_cast<ptrdiff_t>(heights.size() / 2);
  std::nth_element(heights.begin(), middle, heights.end());
  return *middle;
}

}  // namespace

PageModel UnderstandPage(const PageView& page, bool isTextDark, int dpi) {
  PageModel model;
  model.width = page.width();
  model.height = page.height();
  model.dpi = dpi;
  model.pixelsPerPoint = PixelsPerPoint(dpi);
  model.isTextDark = isTextDark;
  if (page.bits() == 1) {
    model.ink = InkOf1Bit(page);
    if (!isTextDark) TurnRound(&model.ink);
    model.sheet = FindSheet(model.ink, dpi);
  } else {
    model.grey = GreyOf(page);
    if (!isTextDark) TurnRound(&model.grey);
    model.paper = FindPaper(model.grey, dpi);
    model.ink = FindInk(model.grey, model.paper);
    model.sheet = FindSheet(model.grey, dpi);
  }
  model.components = std::make_unique<Components>(model.ink);
  model.letterHeight = LetterHeightOf(*model.components, model.pixelsPerPoint);
  if (dpi == 0 && model.letterHeight > 0) {
    model.pixelsPerPoint = std::clamp(model.letterHeight / letter::kUsualHeight, letter::kLeastGuess, 1.0);
  }
  const bool isBitonal = model.isBitonal();
  model.pictures = FindPictures(model.ink, *model.components, isBitonal ? nullptr : &model.grey,
                                isBitonal ? nullptr : &model.paper, model.pixelsPerPoint);
  return model;
}

namespace {

Dib PageOf(const BytePlane& plane) {
  Dib page = MakePage(plane.width(), plane.height(), 8, {});
  const PageView view(page);
  for (int y = 0; y < plane.height(); ++y) std::copy_n(plane.Row(y), plane.width(), view.PageRow(y));
  return page;
}

// Pictures of the model are an eighth to all of the page's size, by how large that is.
int FactorFor(const PageModel& model) {
  constexpr int kLargest = 1600;  // pixels
  int factor = 1;
  while (factor < 8 && std::max(model.width, model.height) / factor > kLargest) factor *= 2;
  return factor;
}

// White paper; tones, screens, solid ink and lines each in a grey of its own.
BytePlane PictureOfPictures(const PageModel& model, int factor) {
  constexpr uint8_t kGreyOf[] = {255, 160, 200, 0, 100};
  BytePlane picture(std::max(model.width / factor, 1), std::max(model.height / factor, 1));
  for (int y = 0; y < picture.height(); ++y) {
    for (int x = 0; x < picture.width(); ++x) {
      picture.Row(y)[x] = kGreyOf[static_cast<size_t>(model.pictures.At(x * factor, y * factor))];
    }
  }
  return picture;
}

}  // namespace

std::vector<ModelPicture> PicturesOfModel(const PageModel& model) {
  const int factor = FactorFor(model);
  const BytePlane ink = PictureOfInk(model.ink);
  std::vector<ModelPicture> pictures;
  if (!model.isBitonal()) pictures.push_back({"paper", PageOf(PictureOfPaper(model.paper, factor))});
  pictures.push_back({"ink", PageOf(ink)});
  pictures.push_back({"pictures", PageOf(PictureOfPictures(model, factor))});
  constexpr double kSteepest = 0.27;  // 15 degrees, as far as skew is looked for
  pictures.push_back({"lines", PageOf(PictureOfLines(model.ink, FindTextLines(model.ink, kSteepest)))});
  pictures.push_back(
      {"sheet", PageOf(PictureOfSheet(model.sheet, model.isBitonal() ? ink : model.grey, factor))});
  return pictures;
}

}  // namespace rastrel::pages
