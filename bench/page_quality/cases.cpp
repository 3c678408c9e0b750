#include "bench/page_quality/cases.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace rastrel::quality {
namespace {

void Photographed(Soil& s) {
  s.paper = {214, 198, 168};
  s.ink = {52, 44, 38};
  s.gradient = 0.4;
  s.vignette = 0.3;
  s.blotches = 7;
  s.blurPixels = 0.8;
  s.noise = 3;
  s.jpegQuality = 72;
}

void HolesAt(Soil& s, Holes holes, HoleLook look, Side side) {
  s.holes = holes;
  s.holeLook = look;
  s.holeSide = side;
}

constexpr Condition kConditions[] = {
    {"clean", [](Soil&) {}},
    // Light and paper.
    {"gradient", [](Soil& s) { s.gradient = 0.55, s.noise = 2; }},
    {"vignette", [](Soil& s) { s.vignette = 0.7, s.noise = 2; }},
    {"gutter", [](Soil& s) { s.gutter = 0.75, s.gutterMm = 16, s.curlMm = 2, s.noise = 2; }},
    {"tint",
     [](Soil& s) {
       s.paper = {236, 220, 180}, s.blotches = 4;
     }},
    {"coloured",
     [](Soil& s) {
       s.paper = {150, 205, 190}, s.ink = {20, 30, 60};
     }},
    {"parchment",
     [](Soil& s) {
       s.paper = {205, 180, 135}, s.ink = {70, 45, 30}, s.blotches = 22, s.grain = 5, s.noise = 3;
     }},
    {"dark paper",
     [](Soil& s) {
       s.paper = {108, 92, 70}, s.ink = {28, 22, 18}, s.blotches = 9, s.noise = 2, s.blurPixels = 0.6;
     }},
    {"bleed",
     [](Soil& s) {
       s.bleed = 0.22, s.paper = {240, 234, 220}, s.blurPixels = 0.5, s.noise = 1.5;
     }},
    {"strong bleed",
     [](Soil& s) {
       s.bleed = 0.42, s.paper = {225, 212, 185}, s.blotches = 8, s.blurPixels = 0.7;
     }},
    {"faint",
     [](Soil& s) {
       s.ink = {165, 165, 165}, s.inkStrength = 0.75, s.blurPixels = 0.7, s.noise = 2;
     }},
    {"negative", [](Soil& s) { s.isNegative = true, s.noise = 2; }},
    // What lies around.
    {"dark surround",
     [](Soil& s) {
       s.around = {14, 12, 16, 10}, s.edgeShadowMm = 1;
     }},
    {"dark right",
     [](Soil& s) {
       s.around = {0, 0, 18, 0};
     }},
    {"dark left and top",
     [](Soil& s) {
       s.around = {12, 9, 0, 0}, s.raggedMm = 0.4;
     }},
    {"flecked surround",
     [](Soil& s) {
       s.around = {15, 15, 15, 15}, s.flecksPerSquareCm = 25, s.raggedMm = 0.8, s.surround = {6, 6, 6};
     }},
    {"ragged surround",
     [](Soil& s) {
       s.around = {10, 12, 14, 12}, s.raggedMm = 2, s.surround = {30, 28, 26};
     }},
    {"grey surround",
     [](Soil& s) {
       s.around = {12, 12, 12, 12}, s.surround = {125, 125, 128}, s.edgeShadowMm = 1.5;
     }},
    {"light surround",
     [](Soil& s) {
       s.around = {12, 14, 10, 16}, s.paper = {228, 216, 190}, s.surround = {251, 251, 251},
       s.surroundGrain = 1, s.edgeShadowMm = 1;
     }},
    {"wooden table",
     [](Soil& s) {
       Photographed(s);
       s.around = {20, 18, 24, 16}, s.surround = {110, 72, 44}, s.surroundGrain = 14, s.edgeShadowMm = 2;
     }},
    {"bars", [](Soil& s) { s.barsMm = 11; }},
    {"next page",
     [](Soil& s) {
       s.around = {0, 0, 16, 0}, s.neighbourMm = 16, s.paper = {232, 222, 200}, s.gutter = 0, s.blotches = 4;
     }},
    {"photographed next page",
     [](Soil& s) {
       Photographed(s);
       s.around = {8, 6, 14, 6}, s.neighbourMm = 14, s.surround = {34, 28, 24}, s.edgeShadowMm = 2;
     }},
    {"photographed", Photographed},
    {"photographed dark surround",
     [](Soil& s) {
       Photographed(s);
       s.around = {16, 10, 18, 12}, s.surround = {30, 26, 24}, s.surroundGrain = 6, s.edgeShadowMm = 2;
     }},
    {"keystone", [](Soil& s) { s.keystone = 3, s.gradient = 0.3, s.noise = 3, s.blurPixels = 0.7; }},
    {"curl", [](Soil& s) { s.curlMm = 4, s.gutter = 0.5, s.noise = 2; }},
    // Holes.
    {"two holes", [](Soil& s) { HolesAt(s, Holes::kTwo, HoleLook::kDark, kLeft); }},
    {"two soiled holes",
     [](Soil& s) { HolesAt(s, Holes::kTwo, HoleLook::kSoiled, kLeft), s.specksPerSquareCm = 1; }},
    {"four grey holes", [](Soil& s) { HolesAt(s, Holes::kFour, HoleLook::kGrey, kLeft); }},
    {"three flecked holes", [](Soil& s) { HolesAt(s, Holes::kThree, HoleLook::kFlecked, kLeft); }},
    {"three cut holes", [](Soil& s) { HolesAt(s, Holes::kThree, HoleLook::kCut, kLeft); }},
    {"two cut holes right", [](Soil& s) { HolesAt(s, Holes::kTwo, HoleLook::kCut, kRight); }},
    {"two white holes",
     [](Soil& s) {
       HolesAt(s, Holes::kTwo, HoleLook::kWhite, kLeft), s.paper = {235, 230, 215};
     }},
    {"swedish holes",
     [](Soil& s) {
       HolesAt(s, Holes::kSwedish, HoleLook::kDark, kLeft), s.paper = {238, 230, 205};
     }},
    {"top holes", [](Soil& s) { HolesAt(s, Holes::kTopTwo, HoleLook::kDark, kTop); }},
    {"bottom holes", [](Soil& s) { HolesAt(s, Holes::kTwo, HoleLook::kSoiled, kBottom); }},
    {"six rings", [](Soil& s) { HolesAt(s, Holes::kSixRings, HoleLook::kDark, kRight); }},
    {"one hole", [](Soil& s) { HolesAt(s, Holes::kOne, HoleLook::kDark, kLeft); }},
    {"spiral", [](Soil& s) { HolesAt(s, Holes::kSpiral, HoleLook::kDark, kLeft); }},
    {"wire", [](Soil& s) { HolesAt(s, Holes::kWire, HoleLook::kDark, kTop); }},
    {"comb", [](Soil& s) { HolesAt(s, Holes::kComb, HoleLook::kGrey, kLeft); }},
    {"holes in a dark surround",
     [](Soil& s) {
       HolesAt(s, Holes::kTwo, HoleLook::kDark, kLeft), s.around = {12, 12, 12, 12};
     }},
    {"holes on tinted paper",
     [](Soil& s) {
       HolesAt(s, Holes::kThree, HoleLook::kSoiled, kLeft);
       s.paper = {224, 208, 166}, s.blotches = 7, s.gradient = 0.25, s.noise = 2;
     }},
    // Dirt and the scanner.
    {"specks", [](Soil& s) { s.specksPerSquareCm = 4; }},
    {"large specks", [](Soil& s) { s.specksPerSquareCm = 4, s.largeSpecks = 0.15, s.blotches = 3; }},
    {"noise", [](Soil& s) { s.noise = 12; }},
    {"jpeg", [](Soil& s) { s.blurPixels = 1, s.jpegQuality = 40; }},
    {"soft", [](Soil& s) { s.blurPixels = 1.4, s.noise = 2; }},
    {"screened", [](Soil& s) { s.isScreened = true, s.blurPixels = 0.4; }},
    // What comes together on old copies.
    {"copied",
     [](Soil& s) {
       HolesAt(s, Holes::kTwo, HoleLook::kSoiled, kLeft);
       s.around = {6, 5, 12, 0}, s.specksPerSquareCm = 3, s.surround = {8, 8, 8}, s.flecksPerSquareCm = 8;
       s.raggedMm = 0.3, s.blurPixels = 0.6;
     }},
    {"yellowed",
     [](Soil& s) {
       HolesAt(s, Holes::kTwo, HoleLook::kDark, kLeft);
       s.paper = {226, 208, 164}, s.blotches = 9, s.gutter = 0.35, s.bleed = 0.15, s.specksPerSquareCm = 1.5;
       s.around = {0, 0, 9, 7}, s.noise = 2, s.blurPixels = 0.5, s.largeSpecks = 0.1;
     }},
};

}  // namespace

const Condition& FindCondition(const char* name) {
  for (const Condition& condition : kConditions)
    if (std::strcmp(condition.name, name) == 0) return condition;
  std::fprintf(stderr, "no condition %s\n", name);
  std::exit(2);
}

const std::vector<Case> kCases = {
    {"clean", "text", 300, 1, 0},
    {"clean", "text", 300, 8, 1.3},
    {"clean", "narrow margins", 200, 8, 0},
    {"clean", "columns", 200, 1, -0.7},
    {"clean", "black letter", 200, 8, 2.1},
    {"clean", "arabic", 200, 8, -2.6},
    {"clean", "hebrew", 200, 8, 1.7},
    {"clean", "arabic", 300, 1, 3.4},
    {"clean", "hebrew", 150, 1, -1.1},
    {"clean", "handwriting", 200, 8, 1.9},
    {"clean", "handwriting", 200, 1, -3.2},
    {"clean", "ruled handwriting", 150, 24, 0.8},
    {"clean", "table", 200, 1, 0.45},
    {"clean", "music", 200, 1, -1.6},
    {"clean", "music", 150, 8, 2.4},
    {"clean", "leaders", 300, 1, 0},
    {"clean", "leaders", 200, 8, 0.6},
    {"clean", "pictures", 200, 24, 0},
    {"clean", "pictures", 300, 1, 1.1},
    {"clean", "bleeding picture", 200, 8, 0},
    {"clean", "bleeding picture", 200, 1, 0},
    {"clean", "form", 200, 1, 0},
    {"clean", "form", 200, 8, -0.4},
    {"clean", "ornaments", 200, 1, 0},
    {"clean", "title", 200, 8, 1.2},
    {"clean", "one line", 200, 8, 1.4},
    {"clean", "one line", 200, 1, -2.2},
    {"clean", "map", 200, 24, 0},
    {"clean", "blank", 200, 8, 0},
    {"clean", "text", 75, 8, 1.8},
    {"clean", "text", 400, 1, -0.25},
    {"gradient", "text", 200, 8, 1.2},
    {"gradient", "columns", 200, 24, -1.8},
    {"gradient", "blank", 150, 8, 0},
    {"vignette", "narrow margins", 200, 8, 0.7},
    {"vignette", "handwriting", 150, 24, 2.2},
    {"gutter", "text", 200, 8, 1.1},
    {"gutter", "narrow margins", 200, 24, -0.6},
    {"gutter", "blank", 150, 8, 0},
    {"tint", "text", 200, 24, 0},
    {"tint", "form", 200, 24, 0.9},
    {"coloured", "table", 150, 24, -1.4},
    {"coloured", "text", 75, 24, 2.3},
    {"parchment", "handwriting", 200, 24, 1.4},
    {"parchment", "black letter", 200, 24, -2.1},
    {"parchment", "narrow margins", 150, 24, 0.5},
    {"dark paper", "text", 200, 8, 1.6},
    {"dark paper", "title", 150, 24, -0.9},
    {"dark paper", "blank", 150, 24, 0},
    {"bleed", "text", 200, 8, 0.8},
    {"bleed", "handwriting", 200, 24, -1.2},
    {"bleed", "map", 200, 24, 0},
    {"strong bleed", "text", 200, 24, 1.9},
    {"strong bleed", "leaders", 200, 24, 0},
    {"faint", "text", 200, 8, 1.1},
    {"faint", "one line", 200, 8, 0},
    {"faint", "handwriting", 300, 8, -1.7},
    {"negative", "text", 200, 8, 1.5},
    {"dark surround", "text", 200, 8, 2.2},
    {"dark surround", "text", 300, 1, -1.3},
    {"dark surround", "narrow margins", 200, 8, 0.6},
    {"dark surround", "bleeding picture", 200, 24, 1.0},
    {"dark surround", "music", 200, 1, 3.1},
    {"dark surround", "blank", 150, 8, 1},
    {"dark right", "text", 200, 8, 0.3},
    {"dark right", "narrow margins", 200, 1, 1.2},
    {"dark left and top", "columns", 200, 1, -0.8},
    {"dark left and top", "narrow margins", 200, 8, 1.9},
    {"flecked surround", "text", 200, 8, 1.7},
    {"flecked surround", "narrow margins", 300, 1, -2.4},
    {"ragged surround", "text", 200, 24, 0.9},
    {"ragged surround", "handwriting", 200, 8, -1.5},
    {"grey surround", "text", 200, 8, 1.2},
    {"grey surround", "narrow margins", 150, 24, -1.9},
    {"light surround", "text", 200, 24, 1.3},
    {"light surround", "narrow margins", 200, 8, -0.9},
    {"wooden table", "text", 150, 24, 2.6},
    {"wooden table", "handwriting", 150, 24, -3.3},
    {"bars", "text", 200, 1, 0.4},
    {"bars", "columns", 200, 8, 0},
    {"next page", "text", 200, 24, 0.7},
    {"next page", "narrow margins", 200, 8, -0.5},
    {"photographed next page", "narrow margins", 200, 24, 1.1},
    {"photographed next page", "columns", 150, 24, -1.4},
    {"photographed", "columns", 150, 24, 1.6},
    {"photographed", "narrow margins", 200, 24, -0.8},
    {"photographed", "text", 75, 24, 2.1},
    {"photographed", "map", 150, 24, 0},
    {"photographed dark surround", "narrow margins", 200, 24, 1.8},
    {"photographed dark surround", "black letter", 150, 24, -2.7},
    {"photographed dark surround", "pictures", 150, 24, 0.9},
    {"keystone", "text", 200, 8, 1.0},
    {"keystone", "columns", 150, 8, -2.0},
    {"curl", "text", 200, 8, 0.9},
    {"two holes", "text", 200, 1, 0},
    {"two holes", "form", 200, 8, 0.7},
    {"two soiled holes", "text", 200, 1, 1.1},
    {"two soiled holes", "form", 300, 1, 0},
    {"four grey holes", "text", 150, 8, -0.6},
    {"three flecked holes", "text", 300, 1, 0.4},
    {"three flecked holes", "table", 200, 8, 0},
    {"three cut holes", "text", 200, 1, 0},
    {"three cut holes", "columns", 200, 8, 0},
    {"two cut holes right", "text", 200, 8, 0},
    {"two white holes", "text", 200, 24, 0.5},
    {"swedish holes", "handwriting", 200, 24, 0},
    {"top holes", "table", 200, 1, 0},
    {"bottom holes", "text", 200, 8, 0},
    {"six rings", "handwriting", 200, 1, 0.9},
    {"one hole", "text", 200, 8, 0},
    {"spiral", "text", 200, 1, 0.5},
    {"spiral", "handwriting", 150, 8, 0},
    {"wire", "text", 200, 8, 0.6},
    {"comb", "text", 200, 24, 0},
    {"holes in a dark surround", "text", 200, 8, 1.4},
    {"holes in a dark surround", "columns", 200, 1, -0.7},
    {"holes on tinted paper", "text", 200, 24, 0.8},
    {"specks", "text", 300, 1, 0},
    {"specks", "leaders", 200, 1, 0.5},
    {"specks", "table", 200, 8, 0},
    {"specks", "handwriting", 200, 1, 0},
    {"specks", "music", 200, 1, 0},
    {"specks", "arabic", 300, 1, 0.8},
    {"specks", "pictures", 200, 1, 0},
    {"specks", "text", 150, 24, 0},
    {"large specks", "text", 300, 8, 0.9},
    {"large specks", "leaders", 300, 1, 0},
    {"specks", "map", 200, 1, 0},
    {"noise", "text", 200, 8, 1.5},
    {"noise", "blank", 200, 8, 0},
    {"jpeg", "columns", 150, 24, 0.8},
    {"jpeg", "leaders", 200, 8, 0},
    {"soft", "text", 100, 8, 1.3},
    {"soft", "table", 150, 8, -0.6},
    {"screened", "pictures", 300, 8, 1.0},
    {"screened", "pictures", 300, 1, 0},
    {"copied", "text", 200, 1, 1.2},
    {"copied", "columns", 300, 1, -0.9},
    {"copied", "form", 200, 8, 0.5},
    {"copied", "table", 200, 8, -1.6},
    {"yellowed", "text", 200, 24, 0.8},
    {"yellowed", "columns", 200, 24, -1.1},
    {"yellowed", "leaders", 200, 8, 0.4},
};

}  // namespace rastrel::quality
