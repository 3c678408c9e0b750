#include "bench/page_quality/contents.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace rastrel::quality {
namespace {

constexpr double kPointMm = 25.4 / 72;
constexpr double kMarginMm = 19;

Style PrintStyle(Random& random, double smallest = 8.5, double largest = 12) {
  constexpr Face kBookFaces[] = {kSerif, kSans, kWideSans, kTypewriter, kItalic};
  const double points = random.In(smallest, largest);
  return {kBookFaces[random.Below(5)], points, points * kPointMm * random.In(1.2, 1.5)};
}

Style Larger(const Style& style, double times) {
  Style larger = style;
  larger.points *= times;
  larger.leadingMm *= times;
  return larger;
}

std::string Words(Typesetter& set, int count) {
  std::string words = set.Word(Script::kLatin);
  for (int i = 1; i < count; ++i) words += " " + set.Word(Script::kLatin);
  return words;
}

void PageNumber(Drawing& d, const Style& style) {
  d.set.Centred(d.page.heightMm() - 10, std::to_string(1 + d.random.Below(400)), style);
}

void SetText(Drawing& d, const Style& style) {
  if (style.script == Script::kLatin && d.random.Chance(0.5))
    d.set.Text(kMarginMm, 17, Words(d.set, 3), Larger(style, 1.6));
  d.set.Column(kMarginMm, d.page.widthMm() - kMarginMm, 22, d.page.heightMm() - 22, style);
  PageNumber(d, style);
}

void Text(Drawing& d) { SetText(d, PrintStyle(d.random)); }

// As near to the sheet's edges as print goes.
void NarrowMargins(Drawing& d) {
  const Style style = PrintStyle(d.random, 9, 11);
  d.set.Column(7, d.page.widthMm() - 7, 8, d.page.heightMm() - 12, style);
  d.set.Text(d.page.widthMm() - 14, d.page.heightMm() - 5, std::to_string(100 + d.random.Below(800)), style);
}

void Columns(Drawing& d) {
  const Style style = PrintStyle(d.random, 7.5, 9.5);
  const int count = 2 + d.random.Below(2);
  const double pitch = (d.page.widthMm() - 2 * kMarginMm + 5) / count;
  for (int i = 0; i < count; ++i) {
    const double left = kMarginMm + i * pitch;
    d.set.Column(left, left + pitch - 5, 20 + d.random.In(0, 12), d.page.heightMm() - 20, style);
    if (i > 0 && d.random.Chance(0.5)) d.page.Rule(left - 2.5, 20, left - 2.5, d.page.heightMm() - 20, 0.25);
  }
  PageNumber(d, style);
}

void BlackLetter(Drawing& d) {
  const double points = d.random.In(11, 14);
  SetText(d, {kBlackLetter, points, points * kPointMm * 1.25});
}

void Arabic(Drawing& d) { SetText(d, {kArabicFace, 14, 14 * kPointMm * 1.7, Script::kArabic}); }

void Hebrew(Drawing& d) { SetText(d, {kHebrewFace, 13, 13 * kPointMm * 1.4, Script::kHebrew}); }

void Handwriting(Drawing& d) {
  const double points = d.random.In(13, 17);
  const Style style = {d.random.Chance(0.5) ? kHand : kSlantedHand, points, points * kPointMm * 1.5,
                       Script::kLatin, 0.25};
  for (double y = 25; y < d.page.heightMm() - 25; y += style.leadingMm) {
    const double left = kMarginMm + d.random.In(-2, 3);
    d.set.Line(left, d.page.widthMm() - kMarginMm, y, style, d.random.Chance(0.2));
  }
}

void RuledHandwriting(Drawing& d) {
  for (double y = 26; y < d.page.heightMm() - 15; y += 8) d.page.Rule(4, y, d.page.widthMm() - 4, y, 0.15);
  const Style style = {kHand, 15, 8, Script::kLatin, 0.2};
  for (double y = 25; y < d.page.heightMm() - 40; y += 8)
    d.set.Line(kMarginMm, d.page.widthMm() - 12, y, style, d.random.Chance(0.2));
}

void Table(Drawing& d) {
  const Style style = PrintStyle(d.random, 8, 10);
  const double left = 15, right = d.page.widthMm() - 15, top = 32, row = style.leadingMm * 1.4;
  const int columns = 3 + d.random.Below(3);
  const int rows = static_cast<int>((d.page.heightMm() - 60) / row);
  d.set.Text(left, 24, Words(d.set, 2), Larger(style, 1.5));
  for (int r = 0; r <= rows; ++r) {
    const double y = top + r * row;
    d.page.Rule(left, y, right, y, 0.25);
    for (int c = 0; c < columns && r < rows; ++c) {
      if (d.random.Chance(0.15)) continue;
      const std::string entry =
          c == 0 ? d.set.Word(Script::kLatin) : std::to_string(100 + d.random.Below(99900));
      d.set.Text(left + 2 + (right - left) * c / columns, y + row * 0.7, entry, style);
    }
  }
  for (int c = 0; c <= columns; ++c) {
    const double x = left + (right - left) * c / columns;
    d.page.Rule(x, top, x, top + rows * row, 0.25);
  }
}

void Music(Drawing& d) {
  const double gap = d.random.In(1.5, 1.9), left = 12, right = d.page.widthMm() - 12;
  Painter& page = d.page;
  for (double top = 25; top < page.heightMm() - 30; top += gap * d.random.In(10, 13)) {
    for (int line = 0; line < 5; ++line) page.Rule(left, top + line * gap, right, top + line * gap, 0.16);
    for (double x = left + 12; x < right - 3; x += d.random.In(4, 9)) {
      const double y = top + gap * (d.random.Below(11) - 1) / 2.0;
      page.Disc(x, y, gap * 0.5);
      const double side = d.random.Chance(0.5) ? -1 : 1;
      page.Rule(x - side * 0.45 * gap, y, x - side * 0.45 * gap, y + side * 3.3 * gap, 0.2);
      if (d.random.Chance(0.3)) page.Disc(x + gap, y + gap * 0.2, 0.25);
    }
    for (double x = left; x <= right + 0.1; x += (right - left) / 4) page.Rule(x, top, x, top + 4 * gap, 0.2);
  }
}

// A table of contents: dots lead the eye to the page numbers.
void Leaders(Drawing& d) {
  const Style style = PrintStyle(d.random, 9, 11);
  d.set.Centred(22, "Contents", Larger(style, 1.8));
  for (double y = 36; y < d.page.heightMm() - 25; y += style.leadingMm * 1.4) {
    const std::string title = Words(d.set, 2 + d.random.Below(3));
    const double right = d.page.widthMm() - kMarginMm;
    d.set.Text(kMarginMm, y, title, style);
    const double pitch = 2.2;
    double x = std::ceil((kMarginMm + d.set.Width(title, style) + 2) / pitch) * pitch;
    for (; x < right - 9; x += pitch) d.page.Disc(x, y - 0.2, 0.2);
    const std::string number = std::to_string(1 + d.random.Below(300));
    d.set.Text(right - d.set.Width(number, style), y, number, style);
  }
}

void Pictures(Drawing& d) {
  const Style style = PrintStyle(d.random);
  const double left = kMarginMm, right = d.page.widthMm() - kMarginMm, bottom = d.page.heightMm() - 22;
  const double height = d.random.In(45, 80), top = d.random.In(45, bottom - height - 30);
  d.set.Column(left, right, 20, top - 8, style);
  d.page.Picture(left, top, right - left, height, d.random);
  d.set.Column(left, right, top + height + 3, bottom, style);
  PageNumber(d, style);
}

// A picture that runs off the sheet on the right.
void BleedingPicture(Drawing& d) {
  const Style style = PrintStyle(d.random);
  d.set.Column(kMarginMm, d.page.widthMm() - kMarginMm, 20, 80, style);
  d.page.Picture(d.page.widthMm() * 0.55, 92, d.page.widthMm() * 0.45 + 1, 70, d.random);
  d.set.Column(kMarginMm, d.page.widthMm() * 0.52, 92, d.page.heightMm() - 22, style);
}

// Boxes, bullets, filled marks at the margins, a logo: round and dark things that belong to the page.
void Form(Drawing& d) {
  const Style style = PrintStyle(d.random, 9, 11);
  const double right = d.page.widthMm() - 12;
  d.decoys.Disc(right - 10, 16, 6);  // a logo
  d.set.Text(kMarginMm, 20, Words(d.set, 3), Larger(style, 1.7));
  for (double y = 38; y < d.page.heightMm() - 60; y += 11) {
    d.set.Text(kMarginMm + 8, y, Words(d.set, 2), style);
    for (const double side : {-2.2, 2.2}) {
      d.page.Rule(kMarginMm, y - 1.5 + side, kMarginMm + 4.4, y - 1.5 + side, 0.25);
      d.page.Rule(kMarginMm + 2.2 + side, y - 3.7, kMarginMm + 2.2 + side, y + 0.7, 0.25);
    }
    if (d.random.Chance(0.3)) d.decoys.Disc(kMarginMm + 2.2, y - 1.5, 1.5);
    d.page.Rule(kMarginMm + 50, y + 0.6, right, y + 0.6, 0.2);
  }
  // Marks to be read by a machine, at the very margin, and bullets before the last lines.
  for (int i = 0; i < 8; ++i) {
    const double y = 50 + i * 12.0;
    d.decoys.Polygon({{2, y}, {5, y}, {5, y + 2.5}, {2, y + 2.5}});
  }
  for (double y = d.page.heightMm() - 45; y < d.page.heightMm() - 15; y += 8) {
    d.decoys.Disc(14, y - 1.3, 1.6);
    d.set.Text(kMarginMm, y, Words(d.set, 4), style);
  }
}

// A large full disc and a ring in the margins, ornaments that stand where holes might.
void Ornaments(Drawing& d) {
  SetText(d, PrintStyle(d.random));
  const double x = d.page.widthMm() / 2;
  d.decoys.Disc(x, d.page.heightMm() - 7, 1.8);
  d.decoys.Disc(x - 9, d.page.heightMm() - 7, 1.2);
  d.decoys.Disc(x + 9, d.page.heightMm() - 7, 1.2);
  d.set.Text(8, 70, "O", {kSans, 26, 10});
  d.set.Text(8, 100, "Q", {kBold, 22, 10});
}

void Title(Drawing& d) {
  const Style style = PrintStyle(d.random);
  d.set.Centred(45, Words(d.set, 2), Larger(style, 2.4));
  d.set.Centred(60, Words(d.set, 3), Larger(style, 1.6));
  d.set.Centred(90, Words(d.set, 3), style);
  d.set.Centred(d.page.heightMm() - 30, Words(d.set, 2) + " 1924", style);
}

void OneLine(Drawing& d) {
  const Style style = PrintStyle(d.random, 10, 12);
  d.set.Line(kMarginMm, d.page.widthMm() - kMarginMm, d.random.In(60, 120), style, false);
}

// Coasts, rivers, places: lines in all directions.
void Map(Drawing& d) {
  const double w = d.page.widthMm(), h = d.page.heightMm();
  for (const double inset : {8.0, 10.0}) {
    d.page.Rule(inset, inset, w - inset, inset, 0.3);
    d.page.Rule(inset, h - inset, w - inset, h - inset, 0.3);
    d.page.Rule(inset, inset, inset, h - inset, 0.3);
    d.page.Rule(w - inset, inset, w - inset, h - inset, 0.3);
  }
  for (int line = 0; line < 14; ++line) {
    double x = d.random.In(15, w - 15), y = d.random.In(15, h - 15), turn = d.random.In(0, 6.28);
    for (int i = 0; i < 60; ++i) {
      turn += d.random.In(-0.5, 0.5);
      const double nx = x + 2.5 * std::cos(turn), ny = y + 2.5 * std::sin(turn);
      if (nx < 12 || ny < 12 || nx > w - 12 || ny > h - 12) break;
      d.page.Rule(x, y, nx, ny, line % 3 == 0 ? 0.35 : 0.18);
      x = nx;
      y = ny;
    }
  }
  const Style style = {kItalic, 8, 4};
  for (int place = 0; place < 22; ++place) {
    const double x = d.random.In(18, w - 45), y = d.random.In(20, h - 20);
    d.page.Disc(x, y, 0.45);
    d.set.Text(x + 1.5, y, d.set.Word(Script::kLatin), style);
  }
}

void Blank(Drawing&) {}

constexpr Content kContents[] = {
    {"text", true, true, Text},
    {"narrow margins", true, true, NarrowMargins},
    {"columns", true, true, Columns},
    {"black letter", true, false, BlackLetter},
    {"arabic", true, false, Arabic},
    {"hebrew", true, false, Hebrew},
    {"handwriting", true, false, Handwriting},
    {"ruled handwriting", true, false, RuledHandwriting},
    {"table", true, true, Table},
    {"music", true, false, Music},
    {"leaders", true, true, Leaders},
    {"pictures", true, true, Pictures},
    {"bleeding picture", true, true, BleedingPicture},
    {"form", true, true, Form},
    {"ornaments", true, true, Ornaments},
    {"title", true, true, Title},
    {"one line", true, true, OneLine},
    {"map", true, false, Map},
    {"blank", false, false, Blank},
};

}  // namespace

const Content& FindContent(const char* name) {
  for (const Content& content : kContents)
    if (std::strcmp(content.name, name) == 0) return content;
  std::fprintf(stderr, "no content %s\n", name);
  std::exit(2);
}

}  // namespace rastrel::quality
