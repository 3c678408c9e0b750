// Sets words as text: shaped, so that Arabic joins and Hebrew runs leftward, and kept, so that what a reader
// makes of the page can be compared with what it says.
#ifndef RASTREL_BENCH_PAGE_QUALITY_TYPESETTER_H
#define RASTREL_BENCH_PAGE_QUALITY_TYPESETTER_H

#include <string>
#include <vector>

#include "bench/drawing/painter.h"

namespace rastrel::quality {

using drawing::Painter;
using drawing::Random;

enum class Script { kLatin, kArabic, kHebrew };

// Faces by their place in kFaces.
enum Face {
  kSerif,
  kSans,
  kWideSans,
  kTypewriter,
  kItalic,
  kBold,
  kBlackLetter,
  kHand,
  kSlantedHand,
  kArabicFace,
  kHebrewFace,
};
extern const std::span<const char* const> kFaces;

struct Style {
  Face face;
  double points, leadingMm;
  Script script = Script::kLatin;
  double unsteadyMm = 0;  // how far a hand strays from the line
};

class Typesetter {
 public:
  Typesetter(Painter& page, Random& random, std::vector<std::string>* words)
      : page_(page), random_(random), words_(words) {}

  Painter& page() { return page_; }
  Random& random() { return random_; }

  std::string Word(Script script);
  double Width(const std::string& text, const Style& style);
  // Flush left at x; flush right at x for scripts that run leftward. Keeps its words.
  void Text(double x, double y, const std::string& text, const Style& style);
  // From the middle of the sheet to both sides.
  void Centred(double y, const std::string& text, const Style& style);
  // Words from `left` to `right`; justified unless it is a paragraph's last.
  void Line(double left, double right, double y, const Style& style, bool isLast);
  // Paragraphs from `top` down to `bottom`.
  void Column(double left, double right, double top, double bottom, const Style& style);

 private:
  double Set(double x, double y, const std::string& text, const Style& style, bool isDrawn);

  Painter& page_;
  Random& random_;
  std::vector<std::string>* words_;
};

}  // namespace rastrel::quality

#endif
