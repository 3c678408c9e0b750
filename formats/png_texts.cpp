#include "formats/png_texts.h"

#include <algorithm>

#include "formats/exif.h"

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

bool TakeRawProfile(std::string_view keyword, std::string_view text, Metadata* metadata) {
  constexpr std::string_view kIntro = "Raw profile type ";
  if (!keyword.starts_with(kIntro)) return false;
  const std::string_view kind = keyword.substr(kIntro.size());
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
  const std::string packed = metadata.TextOf(kPngOtherTexts);
  for (std::string_view others = packed; !others.empty();) {
    const std::string_view keyword = TakePart(&others);
    add(keyword, TakePart(&others));
  }
  return texts;
}

}  // namespace rastrel::formats
