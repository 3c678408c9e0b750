// A page understood: what is worked out of the page that came in, once, and asked by every step.
#ifndef RASTREL_PAGES_MODEL_H
#define RASTREL_PAGES_MODEL_H

#include <memory>
#include <string>
#include <vector>

#include "pages/components.h"
#include "pages/ink.h"
#include "pages/page.h"
#include "pages/paper.h"
#include "pages/pictures.h"
#include "pages/planes.h"
#include "pages/sheet.h"

namespace rastrel::pages {

struct PageModel {
  int width = 0, height = 0;  // pixels
  int dpi = 0;                // 0: not known
  double letterHeight = 0;    // of a usual letter, in pixels; 0 where there are hardly any
  double pixelsPerPoint = 1;  // see judgement.h
  bool isTextDark = true;
  // The brightness of a page of greys or colours, turned round where text is light: ink is dark here. Empty
  // for pages of 1 bit, as is the paper.
  BytePlane grey;
  PaperMap paper;
  // What is printed or written, and what else is as dark.
  BitPlane ink;
  std::unique_ptr<Components> components;
  Pictures pictures;
  Sheet sheet;

  bool isBitonal() const { return grey.isEmpty(); }
};

// `dpi` is 0 where nobody knows.
PageModel UnderstandPage(const PageView& page, bool isTextDark, int dpi);

// A picture of each part of the model, to see why a step did what it did.
struct ModelPicture {
  std::string name;  // paper, ink, pictures, lines, sheet
  Dib picture;
};
std::vector<ModelPicture> PicturesOfModel(const PageModel& model);

}  // namespace rastrel::pages

#endif
