#include "bench/page_quality/typesetter.h"

#include <hb-ft.h>

#include <memory>

namespace rastrel::quality {
namespace {

constexpr double kPointMm = 25.4 / 72;

constexpr const char* kFaceFiles[] = {
    "/usr/share/fonts/truetype/liberation/LiberationSerif-Regular.ttf",
    "/usr/share/fonts/truetype/liberation/LiberationSans-Regular.ttf",
    "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
    "/usr/share/fonts/truetype/liberation/LiberationMono-Regular.ttf",
    "/usr/share/fonts/truetype/liberation/LiberationSerif-Italic.ttf",
    "/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf",
    "/usr/share/fonts/truetype/blankenburg/Blankenburg_UNZ1A.ttf",
    "/usr/share/fonts/truetype/fifthhorseman/dkg.ttf",
    "/usr/share/fonts/truetype/breip/Breip.ttf",
    "/usr/share/fonts/opentype/fonts-hosny-amiri/Amiri-Regular.ttf",
    "/usr/share/fonts/truetype/culmus/FrankRuehlCLM-Medium.ttf",
};

// Everyday words, so that a reader that knows the language reads them as it would read a letter.
constexpr const char* kLatinWords[] = {
    "about",    "above",    "account",  "across",    "after",    "again",    "against",   "agree",
    "almost",   "already",  "always",   "among",     "answer",   "around",   "autumn",    "before",
    "begin",    "behind",   "believe",  "between",   "board",    "bottom",   "bridge",    "bring",
    "brother",  "building", "business", "captain",   "carry",    "castle",   "centre",    "century",
    "certain",  "change",   "chapter",  "children",  "church",   "circle",   "clear",     "close",
    "coast",    "colour",   "common",   "company",   "complete", "copper",   "corner",    "country",
    "course",   "cover",    "daughter", "decide",    "depend",   "describe", "different", "direct",
    "district", "double",   "during",   "early",     "earth",    "eastern",  "effect",    "either",
    "engine",   "enough",   "evening",  "every",     "example",  "family",   "farmer",    "father",
    "figure",   "finally",  "follow",   "foreign",   "forest",   "garden",   "general",   "glass",
    "govern",   "great",    "ground",   "group",     "harbour",  "heavy",    "history",   "horse",
    "house",    "however",  "hundred",  "important", "include",  "industry", "inside",    "island",
    "journey",  "kitchen",  "language", "large",     "later",    "learn",    "leave",     "letter",
    "light",    "little",   "machine",  "manner",    "market",   "matter",   "measure",   "meeting",
    "member",   "middle",   "million",  "minute",    "modern",   "moment",   "money",     "month",
    "morning",  "mother",   "mountain", "music",     "nature",   "nearly",   "never",     "night",
    "north",    "nothing",  "number",   "object",    "office",   "often",    "open",      "order",
    "other",    "paper",    "parent",   "pattern",   "people",   "perhaps",  "period",    "person",
    "picture",  "place",    "point",    "position",  "present",  "press",    "price",     "problem",
    "produce",  "public",   "quarter",  "question",  "quick",    "railway",  "rather",    "reach",
    "ready",    "reason",   "receive",  "region",    "remember", "report",   "result",    "return",
    "right",    "river",    "round",    "sail",      "school",   "science",  "season",    "second",
    "sentence", "service",  "several",  "should",    "simple",   "single",   "sister",    "small",
    "soldier",  "south",    "space",    "special",   "spring",   "square",   "station",   "still",
    "stone",    "story",    "street",   "strong",    "student",  "subject",  "summer",    "surface",
    "system",   "table",    "temple",   "thing",     "third",    "though",   "thousand",  "through",
    "together", "toward",   "travel",   "under",     "until",    "valley",   "value",     "village",
    "voice",    "water",    "weather",  "western",   "which",    "while",    "whole",     "window",
    "winter",   "without",  "woman",    "wonder",    "world",    "write",    "yellow",    "young",
    "the",      "of",       "and",      "to",        "in",       "that",     "is",        "was",
    "for",      "on",       "with",     "as",        "by",       "at",       "from",      "his",
    "their",    "it",       "an",       "or"};

constexpr const char* kArabicWords[] = {"كتاب", "مدينة", "الطريق",  "بيت",   "الشمس", "في",     "من",
                                        "على",  "إلى",   "التاريخ", "مدرسة", "الماء", "قديم",   "جديد",
                                        "رجل",  "امرأة", "البحر",   "سنة",   "يوم",   "العالم", "كان",
                                        "هذا",  "ذلك",   "الناس",   "حديقة", "شجرة",  "صغير",   "كبير"};
constexpr const char* kHebrewWords[] = {
    "ספר", "עיר", "הדרך",  "בית", "השמש", "של",    "על", "אל", "מים", "ישן",  "חדש",  "איש", "אישה", "הים",
    "שנה", "יום", "העולם", "היה", "זה",   "אנשים", "גן", "עץ", "קטן", "גדול", "לילה", "ארץ", "חלון", "שולחן"};

template <class List>
std::string Pick(Random& random, const List& list) {
  return list[random.Below(static_cast<int>(std::size(list)))];
}

struct FreeBuffer {
  void operator()(hb_buffer_t* buffer) const { hb_buffer_destroy(buffer); }
  void operator()(hb_font_t* font) const { hb_font_destroy(font); }
};

}  // namespace

const std::span<const char* const> kFaces = kFaceFiles;

std::string Typesetter::Word(Script script) {
  if (script == Script::kArabic) return Pick(random_, kArabicWords);
  if (script == Script::kHebrew) return Pick(random_, kHebrewWords);
  std::string word = Pick(random_, kLatinWords);
  if (random_.Chance(0.04)) return std::to_string(1 + random_.Below(1999));
  if (random_.Chance(0.08)) word[0] = static_cast<char>(word[0] - 'a' + 'A');
  if (random_.Chance(0.1)) word += ",.;:!?"[random_.Below(6)];
  return word;
}

// Returns where the text ends, on the right; it starts on the left whatever way it runs.
double Typesetter::Set(double x, double y, const std::string& text, const Style& style, bool isDrawn) {
  const double scale = page_.dpi() / 25.4;
  FT_Face face = page_.fonts().Face(style.face);
  FT_Set_Char_Size(face, 0, static_cast<FT_F26Dot6>(style.points * 64), static_cast<FT_UInt>(page_.dpi()),
                   static_cast<FT_UInt>(page_.dpi()));
  const std::unique_ptr<hb_font_t, FreeBuffer> font(hb_ft_font_create_referenced(face));
  hb_ft_font_set_load_flags(font.get(), FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP);
  const std::unique_ptr<hb_buffer_t, FreeBuffer> buffer(hb_buffer_create());
  hb_buffer_add_utf8(buffer.get(), text.c_str(), -1, 0, -1);
  hb_buffer_guess_segment_properties(buffer.get());
  hb_shape(font.get(), buffer.get(), nullptr, 0);
  unsigned count = 0;
  const hb_glyph_info_t* infos = hb_buffer_get_glyph_infos(buffer.get(), &count);
  const hb_glyph_position_t* positions = hb_buffer_get_glyph_positions(buffer.get(), &count);
  for (unsigned i = 0; i < count; ++i) {
    const double stray = style.unsteadyMm == 0 ? 0 : random_.In(-style.unsteadyMm, style.unsteadyMm);
    if (isDrawn) {
      page_.Glyph(x + positions[i].x_offset / 64.0 / scale, y - positions[i].y_offset / 64.0 / scale + stray,
                  infos[i].codepoint, style.face, style.points);
    }
    x += positions[i].x_advance / 64.0 / scale;
  }
  return x;
}

double Typesetter::Width(const std::string& text, const Style& style) {
  Style steady = style;
  steady.unsteadyMm = 0;
  return Set(0, 0, text, steady, false);
}

void Typesetter::Text(double x, double y, const std::string& text, const Style& style) {
  Set(style.script == Script::kLatin ? x : x - Width(text, style), y, text, style, true);
  if (words_ != nullptr) words_->push_back(text);
}

void Typesetter::Centred(double y, const std::string& text, const Style& style) {
  const double half = Width(text, style) / 2;
  Text(page_.widthMm() / 2 + (style.script == Script::kLatin ? -half : half), y, text, style);
}

void Typesetter::Line(double left, double right, double y, const Style& style, bool isLast) {
  std::vector<std::string> words;
  std::vector<double> widths;
  const double space = style.points * kPointMm * 0.28;
  const double goal = (right - left) * (isLast ? random_.In(0.2, 0.9) : 1);
  double used = 0;
  for (;;) {
    std::string word = Word(style.script);
    const double width = Width(word, style);
    if (used + width > goal) break;
    used += width + space;
    words.push_back(std::move(word));
    widths.push_back(width);
  }
  const double slack =
      words.size() < 2 || isLast ? 0 : (goal - used + space) / static_cast<double>(words.size() - 1);
  double x = style.script == Script::kLatin ? left : right;
  for (size_t i = 0; i < words.size(); ++i) {
    Text(x, y, words[i], style);
    x += (style.script == Script::kLatin ? 1 : -1) * (widths[i] + space + slack);
  }
}

void Typesetter::Column(double left, double right, double top, double bottom, const Style& style) {
  double y = top + style.points * kPointMm;
  while (y < bottom) {
    const bool isLast = random_.Chance(0.15);
    Line(left, right, y, style, isLast);
    y += style.leadingMm * (isLast && random_.Chance(0.4) ? 1.7 : 1);
  }
}

}  // namespace rastrel::quality
