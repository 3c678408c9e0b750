#include "formats/png_texts.h"

#include <algorithm>
#include <sstream>

#include "formats/exif.h"
#include "pages/text.h"

namespace rastrel::formats {
namespace {

struct TextItem {
  const char* keyword;
  const char* item;
};
constexpr TextItem kTexts[] = {
    {"Description", "description"}, {"Author", "artist"},   {"Copyright", "copyright"},
    {"Creation Time", "date"},      {"Title", "document"},  {"Software", "software"},
    {"History", "history"},         {"Comment", "comment"}, {"XML:com.adobe.xmp", "xmp"}};
constexpr const char* kXmpKeyword = "XML:com.adobe.xmp";

std::string Utf8(std::string_view latin1) {
  std::string text;
  for (const char c : latin1) {
    const auto byte = static_cast<uint8_t>(c);
    if (byte >= 0x80) text += static_cast<char>(0xC0 | byte >> 6);
    text += static_cast<char>(byte < 0x80 ? byte : 0x80 | (byte & 0x3F));
  }
  return text;
}

// How ImageMagick and others write blocks for which PNG had no chunk: a name, a length, and digits.
std::vector<uint8_t> RawProfile(std::string_view text) {
  const auto skipLine = [&] { text.remove_prefix(std::min(text.size(), text.find('\n') + 1)); };
  for (int line = 0; line < 3 && text.find('\n') != std::string_view::npos; ++line) skipLine();
  std::vector<uint8_t> bytes;
  int digits = 0;
  for (const char c : text) {
    const int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
    if (digit < 0) continue;
    if (digits++ % 2 == 0) bytes.push_back(0);
    bytes.back() = static_cast<uint8_t>(bytes.back() << 4 | digit);
  }
  return bytes;
}

constexpr std::string_view kRawProfile = "Raw profile type ";

// The same the other way round.
std::string RawProfileText(std::string_view kind, std::span<const uint8_t> bytes) {
  constexpr size_t kBytesInALine = 36;
  std::string text = Text("\n", kind, "\n", bytes.size());
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i % kBytesInALine == 0) text += '\n';
    text += "0123456789abcdef"[bytes[i] >> 4];
    text += "0123456789abcdef"[bytes[i] & 15];
  }
  return text + '\n';
}

bool TakeRawProfile(std::string_view keyword, std::string_view text, Metadata* metadata) {
  if (!keyword.starts_with(kRawProfile)) return false;
  const std::string_view kind = keyword.substr(kRawProfile.size());
  const std::vector<uint8_t> bytes = RawProfile(text);
  const std::string_view all(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  if (kind == "exif" || (kind == "APP1" && all.starts_with(kExifIntro))) {
    TakeExif(bytes, metadata);
  } else if (kind == "xmp") {
    metadata->Set("xmp", bytes);
  } else if (kind == "APP1" && all.starts_with(kXmpIntro)) {
    metadata->SetText("xmp", all.substr(kXmpIntro.size()));
  } else if (kind == "iptc" || kind == "8bim") {
    metadata->Set(all.starts_with("8BIM") ? "photoshop" : "iptc", bytes);
  } else if (kind == "icc" || kind == "icm") {
    metadata->Set("icc", bytes);
  } else {
    return false;
  }
  return true;
}

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    const auto first = static_cast<uint8_t>(text[0]);
    const size_t more = first < 0x80                     ? 0
                        : first >= 0xC2 && first <= 0xDF ? 1
                        : first >= 0xE0 && first <= 0xEF ? 2
                        : first >= 0xF0 && first <= 0xF4 ? 3
                                                         : text.size();
    if (more >= text.size()) return false;
    const auto isNext = [](char c) { return (c & 0xC0) == 0x80; };
    if (!std::all_of(text.begin() + 1, text.begin() + 1 + static_cast<ptrdiff_t>(more), isNext)) return false;
    text.remove_prefix(1 + more);
  }
  return true;
}

// Parts of `text` up to the next 0, which goes with it.
std::string_view TakePart(std::string_view* text) {
  const std::string_view part = text->substr(0, text->find('\0'));
  text->remove_prefix(std::min(text->size(), part.size() + 1));
  return part;
}

}  // namespace

void TakePngText(std::string_view keyword, std::string_view text, bool isUtf8, Metadata* metadata,
                 std::string* others) {
  if (TakeRawProfile(keyword, text, metadata)) return;
  const std::string taken = isUtf8 ? std::string(text) : Utf8(text);
  const auto entry = std::find_if(std::begin(kTexts), std::end(kTexts),
                                  [&](const TextItem& known) { return keyword == known.keyword; });
  if (entry != std::end(kTexts)) {
    metadata->SetText(entry->item, taken);
  } else {
    *others += std::string(keyword) + '\0' + taken.substr(0, taken.find('\0')) + '\0';
  }
}

std::vector<PngText> PngTextsOf(const Metadata& metadata) {
  std::vector<PngText> texts;
  const auto add = [&texts](std::string_view keyword, std::string_view text) {
    std::string value = IsUtf8(text) ? std::string(text) : Utf8(text);
    const bool isAscii = std::all_of(value.begin(), value.end(), [](char c) { return (c & 0x80) == 0; });
    texts.push_back({std::string(keyword), std::move(value), !isAscii || keyword == kXmpKeyword});
  };
  for (const TextItem& entry : kTexts) {
    const std::string text = metadata.TextOf(entry.item);
    if (!text.empty()) add(entry.keyword, text);
  }
  constexpr std::pair<const char*, const char*> kRawBlocks[] = {{"iptc", "iptc"}, {"photoshop", "8bim"}};
  for (const auto& [item, kind] : kRawBlocks) {
    const Metadata::Item* block = metadata.Find(item);
    if (block != nullptr && !block->bytes.empty())
      add(std::string(kRawProfile) + kind, RawProfileText(kind, block->bytes));
  }
  const std::string packed = metadata.TextOf(kPngOtherTexts);
  for (std::string_view others = packed; !others.empty();) {
    constexpr size_t kMostLetters = 79;
    const std::string_view keyword = TakePart(&others), text = TakePart(&others);
    if (!keyword.empty() && keyword.size() <= kMostLetters) add(keyword, text);  // files lie
  }
  return texts;
}

void SetCalibration(const PngCalibration& calibration, Metadata* metadata) {
  constexpr uint32_t kUsualGamma = 45455, kNear = 1000;
  constexpr std::array<uint32_t, 8> kSrgb = {31270, 32900, 64000, 33000, 30000, 60000, 15000, 6000};
  const auto isNear = [](uint32_t a, uint32_t b) { return (a > b ? a - b : b - a) < kNear; };
  const bool isUsual = (calibration.gamma == 0 || isNear(calibration.gamma, kUsualGamma)) &&
                       (!calibration.hasColours() ||
                        std::equal(kSrgb.begin(), kSrgb.end(), calibration.colours.begin(), isNear));
  if (isUsual) return;
  std::string text = Text(calibration.gamma);
  for (const uint32_t colour : calibration.colours) text += Text(" ", colour);
  metadata->SetText("calibration", text);
}

PngCalibration CalibrationOf(const Metadata& metadata) {
  PngCalibration calibration;
  std::istringstream text(metadata.Find("icc") == nullptr ? metadata.TextOf("calibration") : "");
  text >> calibration.gamma;
  for (uint32_t& colour : calibration.colours) text >> colour;
  return text ? calibration : PngCalibration{};
}

}  // namespace rastrel::formats
