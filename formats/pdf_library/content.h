// Whether all that a page shows is one picture.
#ifndef RASTREL_FORMATS_PDF_LIBRARY_CONTENT_H
#define RASTREL_FORMATS_PDF_LIBRARY_CONTENT_H

#include <qpdf/QPDFPageObjectHelper.hh>

#include "formats/pdf_library/source.h"

namespace rastrel::formats {

// a b c d e f, as PDF has it: x' = a x + c y + e, y' = b x + d y + f.
struct Matrix {
  double a = 1, b = 0, c = 0, d = 1, e = 0, f = 0;
};

struct Box {
  double left = 0, bottom = 0, right = 0, top = 0;
  double width() const { return right - left; }
  double height() const { return top - bottom; }
};

// What is in both.
Box Common(const Box& one, const Box& other);

struct Found {
  std::string reason;  // why it is not one picture; empty if it is
  QPDFObjectHandle image;
  Matrix place;  // of the unit square that the picture fills
  bool hasHiddenText = false;
  bool hasMargins = false;  // the page is larger than the picture
};

Found FindPicture(QPDF* file, QPDFPageObjectHelper page, const Box& shown);

}  // namespace rastrel::formats

#endif
