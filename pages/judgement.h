// The thresholds by which pages are judged: each with its name, its unit, and why it is what it is.
//
// A *point* is the unit of everything small: a pixel of a page scanned at 300 dpi, 1/300 inch (0.085 mm). At
// other resolutions it is as many pixels as cover the same length; see PixelsPerPoint.
#ifndef RASTREL_PAGES_JUDGEMENT_H
#define RASTREL_PAGES_JUDGEMENT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace rastrel::pages {

constexpr int kPointsPerInch = 300;

// Files claim any resolution. What is outside of these says nothing about a page: less than a screen has, or
// more than paper shows. Such a page is taken for one of 300 dpi.
constexpr int kLeastResolution = 50, kMostResolution = 2400;  // dots per inch

constexpr double PixelsPerPoint(double dotsPerInch) {
  const bool isBelievable = dotsPerInch >= kLeastResolution && dotsPerInch <= kMostResolution;
  return isBelievable ? dotsPerInch / kPointsPerInch : 1;
}

// ---- letters
// ------------------------------------------------------------------------------------------------------
namespace letter {

// Pieces of ink of such a height, in points, may be letters (2 to 36 point type); they are no wider than so
// many times that, and a page with fewer says nothing.
constexpr double kLeastHeight = 7, kMostHeight = 150, kWidest = 3;
constexpr size_t kLeastCount = 30;
// The middle height of the letters of 10 and 11 point type, in points: what a page's resolution is guessed by
// where its file has none. Never more than 300 dpi, nor less than 75.
constexpr double kUsualHeight = 22;
constexpr double kLeastGuess = 0.25;

}  // namespace letter

// ---- pictures
// ---------------------------------------------------------------------------------------------------
namespace picture {

// Side of a cell of the picture map, in points: about half a letter, so that a picture's edge is found to a
// line's width, while a cell still holds several dots of any screen.
constexpr double kCell = 16;
constexpr int kLeastCell = 8;  // pixels
// Dots of a screen or a dither are no larger, in points: 0.7 mm is the pitch of the coarsest newspaper
// screens.
constexpr double kLargestDot = 8;
// A screen or dither has so many dots, or holes in its dark parts, in 3 x 3 cells; the coarsest (65 lines an
// inch) have above 100. Small type with all its points, and any usual soil (a tenth of it), stays below.
constexpr int kDenseDots = 24;
// Where a picture grows pale its dots look like dust. It goes on as far as there are so many in 3 x 3 cells.
constexpr int kPaleDots = 5;
// Fewer dots, from this number on in 3 x 3 cells, are a pattern when they are evenly spread: among dust the
// nearest neighbour is by far nearer than the fourth (the squares of the distances 1 to 4 on average), in a
// screen it is not.
constexpr int kEvenDots = 8;
constexpr int kEvenPercent = 50;  // the squares of the distances, one to the other

// Continuous tone: of the pixels of a cell, this share is neither paper nor ink, and flat.
constexpr int kTonePercent = 45;
// Neither paper nor ink: between these percentages of the paper's brightness. Above the upper are paper and
// what shows through it; below the lower is solid ink.
constexpr int kToneLeast = 12, kToneMost = 85;
// Flat: differs from the pixel two further on by no more than this percentage of the paper's brightness.
// Edges of letters differ by far more.
constexpr int kFlatPercent = 10;
// A tone covers at least so many cells that touch: 8 mm2. Less is a stain or a thick stroke.
constexpr int kLeastToneCells = 12;

// Solid: a piece of ink that fills this much of its box and is this wide and high, in points (5 mm): a black
// area, the dark of a photograph, a border.
constexpr int kSolidPercent = 50;
constexpr double kLeastSolid = 60;
// A rule or frame: longer than this, in points (15 mm), and covering little of its box.
constexpr double kLeastRule = 180;
constexpr int kRulePercent = 12;
constexpr double kThickestRule = 16;  // points

}  // namespace picture

// ---- specks
// -----------------------------------------------------------------------------------------------------
namespace speck {

// The largest speck, in points, either way: what dust on the glass leaves. Larger marks may mean something.
constexpr double kLargest = 3;
// Type with letters of half the usual height has dots of half the size. So specks are no larger than this
// many times what the page's letters would have, were they of the usual height.
constexpr double kLargestByLetters = 1.3;
// A group of marks that touch may be longer by a pixel, if it has no more ink than a full one.
constexpr int kLongerBy = 1;  // pixels

// On greys and colours a speck is darker than the ground around it by at least this percentage of that, and
// by so many times as the ground itself varies (from its lightest fifth to its darkest): dust is dark on
// plain paper.
constexpr int kLeastContrast = 25;
constexpr int kContrastOfSpread = 4;

// Letters, in points: higher or wider than the least (4 point type has 8), not larger than the most (2
// inches).
constexpr double kLeastLetter = 7, kMostLetter = 600;

// A dot of a letter is about as thick as the letter's strokes. A mark whose side (root of its pixels) is at
// least this share of their thickness, less the share of a pixel that scanning rounds off, may be one.
constexpr double kDotOfStroke = 0.62, kDotRounding = 0.15;

// In places where dots stand for certain, above a small letter or behind one at its foot, this share is
// enough: thin dots lose more of their ink in a scan than strokes.
constexpr double kDotInPlace = 0.38;
constexpr double kFoot = 0.2, kBehind = 0.5, kJustAbove = 0.5;  // parts of the letter's height

// Where dots of a letter stand, in parts of its height: above (i, accents), below (points, question marks),
// beside (full stops, colons, hyphens).
constexpr double kAbove = 0.7, kBelow = 0.55, kBeside = 0.8, kBesideBelow = 0.3;
// Letters that are flat or tiny (a dash, a comma) have a reach of their own, in points.
constexpr double kLeastReach = 10, kMostReach = 60;

// The page's own dots, where there are enough that are too large for specks: their size in parts of the
// height of the letters beside them, the least tenth left out. What is smaller than this share of it is none
// of them, provided that there are near text no more of its size than dust would leave there.
constexpr int kLeastDots = 30, kMostDotsAsked = 1000;
constexpr double kDotOfDots = 0.85;
constexpr double kDustDeviations = 3;  // roots of the number to be expected: chance

// Fragments of broken strokes: marks so near to a letter, in points.
constexpr double kAttached = 2.5;
// Marks smaller than dots, near letters, go when they are dust: when the open parts of the page have as many,
// area for area. Up to this many times as many, and a few more, is chance.
constexpr double kDustRatio = 3;
constexpr int kDustSlack = 4;

// Marks in the open that stand together are something: faint print, stippling. So many others within the
// radius.
constexpr double kClusterRadius = 24;  // points
constexpr int kClusterMarks = 4;

// Leaders and dotted rules: dots with equal distances up to this, in points (6 mm), in line within an eighth.
constexpr double kFurthestDot = 70;
constexpr int kRowSlope = 8;
// Three in a row are enough up to this distance, in points: the points of an ellipsis.
constexpr double kEllipsisStep = 16;

// A page with more than this share of its pixels in specks is no soiled page but a pattern: it is left alone.
constexpr double kMostOfPage = 0.03;

}  // namespace speck

// The longest side of a speck in points. `letterHeight` in pixels, 0 where there are no letters.
constexpr double LargestSpeck(double pixelsPerPoint, double letterHeight) {
  const double byLetters = letterHeight / (letter::kUsualHeight * pixelsPerPoint) * speck::kLargestByLetters;
  return speck::kLargest * (letterHeight > 0 ? std::min(1.0, byLetters) : 1.0);
}

// ---- the check
// --------------------------------------------------------------------------------------------------
namespace check {

// Ink is looked for in cells of so many pixels and the eight around: a turn and its smoothing move edges by
// less.
constexpr int kCell = 4;
// Cells with less ink than this, in pixels, may fall between the pixels of the page that goes out: half a
// pixel's turn can take a mark of two pixels below half of any one.
constexpr int kLeastInk = 4;
// Of the darkness that ink had against the paper, this share must be left, in percent: smoothing takes half
// of that of a stroke one pixel thin.
constexpr int kLeftPercent = 35;
// Ink paler than this against the paper, in percent of it, is not looked for in cells: noise is as strong.
constexpr int kPalePercent = 12;

// Pieces of a usual letter's height, in parts of it, and not longer than this many heights, count as letters.
constexpr double kLeastLetter = 0.6, kMostLetter = 3.5, kLongestLetter = 6;
// Letters of one line: heights within this ratio, middles within this part of a height, this many heights
// apart.
constexpr double kAlikeHeights = 1.6, kOneLine = 0.7, kNextLetter = 2;
// So many of them make text of what would be removed; fewer may be flecks of a ragged surround.
constexpr int kLeastLetters = 4;
// Around a letter so much is no ink, in percent, and lighter than it by so much of the paper's brightness, in
// percent: the grain of a dark surround makes differences of a few percent.
constexpr int kLeastLightAround = 40, kLeastContrast = 14;
// A letter is cut when a border takes more than the first and less than the second percentage of it.
constexpr int kCutLeast = 10, kCutMost = 90;

}  // namespace check

}  // namespace rastrel::pages

#endif
