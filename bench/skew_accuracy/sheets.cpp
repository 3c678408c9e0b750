#include "bench/skew_accuracy/sheets.h"

#include <algorithm>
#include <cmath>

namespace rastrel::accuracy {
namespace {

constexpr double kPointMm = 25.4 / 72;

std::string Word(Random& random) {
  constexpr char kLetters[] = "eeeeeetttttaaaaooooiiiinnnnssshhhrrrddllcuumwfggyypbbvkjxqz";
  std::string word;
  for (int n = 1 + random.Below(5) + random.Below(5); n > 0; --n)
    word += kLetters[random.Below(static_cast<int>(sizeof(kLetters)) - 1)];
  if (random.Chance(0.1)) word[0] = static_cast<char>(word[0] - 'a' + 'A');
  if (random.Chance(0.05)) word = std::to_string(random.Below(5000));
  if (random.Chance(0.1)) word += ",.;:"[random.Below(4)];
  return word;
}

// One line, flush left; justified unless it is a paragraph's last.
void Line(Painter& page, Random& random, double left, double right, double y, int font, double points,
          bool isLast) {
  std::vector<std::string> words;
  double used = 0;
  const double space = page.Text(0, 0, " ", font, points, false);
  const double goal = isLast ? (right - left) * random.In(0.15, 0.9) : right - left;
  for (;;) {
    std::string word = Word(random);
    const double width = page.Text(0, 0, word, font, points, false);
    if (used + width > goal) break;
    used += width + space;
    words.push_back(std::move(word));
  }
  const double slack =
      words.size() < 2 || isLast ? 0 : (goal - used + space) / static_cast<double>(words.size() - 1);
  double x = left;
  for (const std::string& word : words) x = page.Text(x, y, word, font, points) + space + slack;
}

struct Style {
  explicit Style(Random& random)
      : font(random.Below(5)), points(random.In(8, 13)), leading(points * kPointMm * random.In(1.15, 1.5)) {}
  int font;
  double points, leading;
};

// Paragraphs from `top` down to `bottom`.
void Column(Painter& page, Random& random, const Style& style, double left, double right, double top,
            double bottom) {
  const bool isRagged = random.Chance(0.3);
  double y = top + style.leading;
  while (y < bottom) {
    const bool isLast = random.Chance(0.15);
    Line(page, random, left, isRagged ? right - random.In(0, 12) : right, y, style.font, style.points,
         isLast);
    y += style.leading * (isLast && random.Chance(0.5) ? 1.7 : 1);
  }
}

void Text(Painter& page, Random& random) {
  const Style style(random);
  const double margin = random.In(18, 30);
  if (random.Chance(0.5))
    page.Text(margin, 22, Word(random) + " " + Word(random), style.font, style.points * 1.8);
  Column(page, random, style, margin, page.widthMm() - margin, 28, page.heightMm() - random.In(25, 100));
  if (random.Chance(0.5)) page.Text(page.widthMm() / 2, page.heightMm() - 15, "17", style.font, style.points);
}

void Columns(Painter& page, Random& random) {
  const Style style(random);
  const int count = 2 + random.Below(2);
  const double pitch = (page.widthMm() - 36) / count;
  for (int i = 0; i < count; ++i) {
    const double left = 20 + i * pitch, top = 25 + random.In(0, 20);
    Column(page, random, style, left, left + pitch - 6, top, page.heightMm() - random.In(20, 60));
    if (i > 0 && random.Chance(0.5)) page.Rule(left - 3, 25, left - 3, page.heightMm() - 25, 0.3);
  }
}

void Table(Painter& page, Random& random) {
  const Style style(random);
  const double left = 20, right = page.widthMm() - 20, top = 40, row = style.leading * 1.4;
  const int columns = 3 + random.Below(4), rows = 10 + random.Below(20);
  const bool hasRules = random.Chance(0.7);
  page.Text(left, 30, Word(random) + " " + Word(random), style.font, style.points * 1.5);
  for (int r = 0; r <= rows; ++r) {
    const double y = top + r * row;
    if (hasRules) page.Rule(left, y, right, y, 0.25);
    if (r == rows) break;
    for (int c = 0; c < columns; ++c) {
      if (random.Chance(0.2)) continue;
      const std::string entry = c == 0 ? Word(random) : std::to_string(random.Below(100000));
      page.Text(left + 2 + (right - left) * c / columns, y + row * 0.7, entry, style.font,
                style.points * 0.9);
    }
  }
  for (int c = 0; hasRules && c <= columns; ++c) {
    const double x = left + (right - left) * c / columns;
    page.Rule(x, top, x, top + rows * row, 0.25);
  }
}

void Music(Painter& page, Random& random) {
  const double gap = random.In(1.5, 2.1), left = 18, right = page.widthMm() - 18;
  for (double top = 30; top < page.heightMm() - 30; top += gap * random.In(10, 13)) {
    for (int line = 0; line < 5; ++line) page.Rule(left, top + line * gap, right, top + line * gap, 0.15);
    for (double x = left + 12; x < right - 3; x += random.In(3, 9)) {
      const double y = top + gap * (random.Below(11) - 1) / 2.0;
      page.Disc(x, y, gap * 0.5);
      const double stem = random.Chance(0.5) ? -3.3 * gap : 3.3 * gap;
      page.Rule(x + (stem < 0 ? 0.45 : -0.45) * gap, y, x + (stem < 0 ? 0.45 : -0.45) * gap, y + stem, 0.2);
      // A beam, usually slanted.
      if (random.Chance(0.3)) page.Rule(x, y + stem, x + 7, y + stem + random.In(-1.5, 1.5), 0.7);
    }
    for (double x = left; x <= right + 0.1; x += (right - left) / 4) page.Rule(x, top, x, top + 4 * gap, 0.2);
  }
}

void Pictures(Painter& page, Random& random) {
  const Style style(random);
  const double left = 20, right = page.widthMm() - 20, bottom = page.heightMm() - 25;
  const double height = random.In(60, 130), top = random.In(30, bottom - height - 30);
  const double width = random.In(60, right - left);
  Column(page, random, style, left, right, 22, top - 5);
  page.Picture(left, top, width, height, random);
  if (width < 110) Column(page, random, style, left + width + 5, right, top, top + height);
  Column(page, random, style, left, right, top + height + 2, bottom);
}

void Sparse(Painter& page, Random& random) {
  const Style style(random);
  double y = random.In(30, 200);
  const int lines = 2 + random.Below(4);
  for (int i = 0; i < lines; ++i, y += style.leading)
    Line(page, random, 30, page.widthMm() - 30, y, style.font, style.points, i == lines - 1);
}

void Title(Painter& page, Random& random) {
  const Style style(random);
  double y = random.In(50, 90);
  for (int i = 1 + random.Below(3); i >= 0; --i, y += 16) {
    const std::string words = Word(random) + " " + Word(random) + (i == 0 ? " " + Word(random) : "");
    const double points = i == 0 ? 14 : random.In(18, 30);
    const double width = page.Text(0, 0, words, style.font, points, false);
    page.Text((page.widthMm() - width) / 2, y, words, style.font, points);
  }
  if (random.Chance(0.7)) {
    const std::string words = Word(random) + " " + Word(random) + " 1924";
    page.Text((page.widthMm() - page.Text(0, 0, words, style.font, 11, false)) / 2, 265, words, style.font,
              11);
  }
}

void Noisy(Painter& page, Random& random) {
  Text(page, random);
  page.Speckle(random, random.In(0.002, 0.02), 1 + random.Below(4));
  page.Unsteady(random, 10 + random.Below(40));
}

void Edges(Painter& page, Random& random) {
  random.Chance(0.5) ? Text(page, random) : Columns(page, random);
  if (random.Chance(0.4)) return page.BlackenAroundSheet();
  const int w = page.width(), h = page.height();
  const auto depth = [&random, w] { return static_cast<int>(w * random.In(0, 0.06)); };
  // Ragged bars along the edges, in blocks.
  const int left = depth(), right = depth(), top = depth(), bottom = depth(), block = std::max(3, w / 100);
  for (int y = 0; y < h; y += block) {
    page.Blacken(0, y, left + random.Below(block), y + block);
    page.Blacken(w - right - random.Below(block), y, w, y + block);
  }
  for (int x = 0; x < w; x += block) {
    page.Blacken(x, 0, x + block, top + random.Below(block));
    page.Blacken(x, h - bottom - random.Below(block), x + block, h);
  }
  if (random.Chance(0.5)) {
    for (double y : {0.25, 0.75}) page.Disc(10, page.heightMm() * y, 3);
  }
}

void LightOnDark(Painter& page, Random& random) {
  random.Chance(0.5) ? Text(page, random) : Columns(page, random);
  page.Negate();
}

void Faint(Painter& page, Random& random) {
  Text(page, random);
  page.Fade(150 + random.Below(100), 20 + random.Below(110));
  page.Unsteady(random, 4 + random.Below(12));
}

// ---- pages without a skew ---------------------------------------------------------------------------------

void Blank(Painter& page, Random& random) {
  page.Fade(200 + random.Below(55), 20);
  if (random.Chance(0.7)) page.Unsteady(random, 3 + random.Below(30));
  if (random.Chance(0.5)) page.Speckle(random, random.In(0, 0.0003), 4);
}

void Black(Painter& page, Random& random) {
  page.Blacken(0, 0, page.width(), page.height());
  if (random.Chance(0.7)) page.Unsteady(random, 3 + random.Below(60));
}

void Noise(Painter& page, Random& random) {
  page.Speckle(random, random.In(0.01, 0.5), 1 + random.Below(9));
  if (random.Chance(0.5)) page.Unsteady(random, 250);
}

void Photograph(Painter& page, Random& random) {
  page.Picture(0, 0, page.widthMm(), page.heightMm(), random);
}

// Strokes and blots in all directions.
void Scribble(Painter& page, Random& random) {
  for (int i = 10 + random.Below(60); i > 0; --i) {
    const double x = random.In(20, 190), y = random.In(20, 270), turn = random.In(0, 6.28),
                 length = random.In(5, 60);
    page.Rule(x, y, x + length * std::cos(turn), y + length * std::sin(turn), random.In(0.2, 1));
    page.Disc(random.In(20, 190), random.In(20, 270), random.In(0.5, 3));
  }
}

}  // namespace

const Kind kKinds[] = {
    {"text", true, Text},
    {"columns", true, Columns},
    {"table", true, Table},
    {"music", true, Music},
    {"pictures", true, Pictures},
    {"sparse", true, Sparse},
    {"title page", true, Title},
    {"noise", true, Noisy},
    {"black edges", true, Edges},
    {"light on dark", true, LightOnDark},
    {"faint", true, Faint},
    {"blank", false, Blank},
    {"black", false, Black},
    {"only noise", false, Noise},
    {"photograph", false, Photograph},
    {"scribble", false, Scribble},
};
const int kKindCount = sizeof(kKinds) / sizeof(kKinds[0]);

}  // namespace rastrel::accuracy
