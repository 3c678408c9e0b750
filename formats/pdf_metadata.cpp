#include "formats/pdf_metadata.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include "pages/text.h"

namespace rastrel::formats {
namespace {

using pages::Metadata;
using pages::Text;

struct Entry {
  const char* item;
  const char* info;
};
constexpr Entry kTexts[] = {{"document", "Title"},    {"artist", "Author"},   {"description", "Subject"},
                            {"keywords", "Keywords"}, {"creator", "Creator"}, {"software", "Producer"}};

void Set(Metadata* metadata, std::string_view item, std::string_view text) {
  if (!text.empty()) metadata->SetText(item, text);
}

// ---- dates ------------------------------------------------------------------------------------------------

// Year, month, day, hour, minute, second: 14 digits. TIFF has "2001:02:03 04:05:06", PDF
// "D:20010203040506+01'00'"; other orders mean something else.
std::optional<std::string> DigitsOf(std::string_view date) {
  if (date.starts_with("D:")) date.remove_prefix(2);
  constexpr size_t kWanted = 14, kYearDigits = 4;
  std::string digits;
  for (const char c : date) {
    if (digits.size() == kWanted) break;
    if (c >= '0' && c <= '9') {
      digits += c;
    } else if (digits.size() < kYearDigits || digits.size() % 2 != 0 ||
               std::string_view(":-T ").find(c) == std::string_view::npos) {
      break;  // of a time zone, or no date
    }
  }
  if (digits.size() < 8 || digits.size() % 2 != 0) return std::nullopt;
  digits.resize(kWanted, '0');
  const auto isWithin = [&](size_t at, int least, int most) {
    const int value = (digits[at] - '0') * 10 + digits[at + 1] - '0';
    return value >= least && value <= most;
  };
  if (!isWithin(4, 1, 12) || !isWithin(6, 1, 31) || !isWithin(8, 0, 23) || !isWithin(10, 0, 59) ||
      !isWithin(12, 0, 59))
    return std::nullopt;
  return digits;
}

// With `marks` between year, month, day, hour, minute and second.
std::string Dated(const std::string& digits, std::string_view marks) {
  std::string text = digits.substr(0, 4);
  for (size_t i = 0; i < marks.size(); ++i) text += marks[i] + digits.substr(4 + 2 * i, 2);
  return text;
}

// ---- XMP --------------------------------------------------------------------------------------------------

std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      default:
        if (static_cast<unsigned char>(c) >= ' ' || c == '\t' || c == '\n')
          escaped += c;  // XML has no others
    }
  }
  return escaped;
}

std::string Unescaped(std::string text) {
  constexpr std::pair<std::string_view, std::string_view> kMarks[] = {
      {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&apos;", "'"}, {"&amp;", "&"}};
  for (const auto& [mark, meant] : kMarks) {
    for (size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1))
      text.replace(at, mark.size(), meant);
  }
  return text;
}

// What stands between the first pair of tags of a list's entry after `property`.
std::string EntryOf(std::string_view xmp, std::string_view property) {
  const size_t start = xmp.find(property);
  if (start == std::string_view::npos) return "";
  const std::string_view end = "</rdf:li>";
  const size_t open = xmp.find("<rdf:li", start), from = xmp.find('>', open), to = xmp.find(end, open);
  if (open == std::string_view::npos || from == std::string_view::npos || to == std::string_view::npos ||
      from >= to)
    return "";
  return Unescaped(std::string(xmp.substr(from + 1, to - from - 1)));
}

// A packet that says what Info says.
std::string NewXmp(const Metadata& metadata, const std::string& archival) {
  std::string body = "<dc:format>application/pdf</dc:format>";
  const auto add = [&](std::string_view item, std::string_view property, std::string_view before,
                       std::string_view after) {
    const std::string text = metadata.TextOf(item);
    if (!text.empty()) body += Text("\n<", property, ">", before, Escaped(text), after, "</", property, ">");
  };
  constexpr std::string_view kAlt = "<rdf:Alt><rdf:li xml:lang=\"x-default\">",
                             kAltEnd = "</rdf:li></rdf:Alt>";
  add("document", "dc:title", kAlt, kAltEnd);
  add("artist", "dc:creator", "<rdf:Seq><rdf:li>", "</rdf:li></rdf:Seq>");
  add("description", "dc:description", kAlt, kAltEnd);
  add("copyright", "dc:rights", kAlt, kAltEnd);
  add("keywords", "pdf:Keywords", "", "");
  add("creator", "xmp:CreatorTool", "", "");
  add("software", "pdf:Producer", "", "");
  if (const auto date = DigitsOf(metadata.TextOf("date")))
    body += Text("\n<xmp:CreateDate>", Dated(*date, "--T::"), "</xmp:CreateDate>");
  if (!archival.empty()) {
    const auto level = static_cast<char>(archival[1] - 'a' + 'A');
    body += Text("\n<pdfaid:part>", archival.substr(0, 1), "</pdfaid:part>\n<pdfaid:conformance>",
                 std::string(1, level), "</pdfaid:conformance>");
  }
  return Text(
      "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n"
      "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">\n"
      "<rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n"
      "<rdf:Description rdf:about=\"\" xmlns:dc=\"http://purl.org/dc/elements/1.1/\" "
      "xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\" xmlns:pdf=\"http://ns.adobe.com/pdf/1.3/\" "
      "xmlns:pdfaid=\"http://www.aiim.org/pdfa/ns/id/\">\n",
      body, "\n</rdf:Description>\n</rdf:RDF>\n</x:xmpmeta>\n<?xpacket end=\"w\"?>");
}

}  // namespace

void TakeMetadata(const Texts& info, const std::vector<uint8_t>& xmp, Metadata* metadata) {
  if (!xmp.empty()) metadata->Set("xmp", xmp);
  for (const auto& [name, text] : info) {
    for (const Entry& entry : kTexts) {
      if (name == entry.info) Set(metadata, entry.item, text);
    }
    if (name != "CreationDate") continue;
    if (const auto digits = DigitsOf(text)) Set(metadata, "date", Dated(*digits, ":: ::"));
  }
  const std::string_view packet(reinterpret_cast<const char*>(xmp.data()), xmp.size());
  Set(metadata, "copyright", EntryOf(packet, "<dc:rights>"));
}

PdfDocumentInfo DocumentInfo(const Metadata& metadata, const std::string& archival) {
  PdfDocumentInfo document;
  document.archival = archival;
  for (const Entry& entry : kTexts) {
    const std::string text = metadata.TextOf(entry.item);
    if (!text.empty()) document.info.emplace_back(entry.info, text);
  }
  if (const auto date = DigitsOf(metadata.TextOf("date")))
    document.info.emplace_back("CreationDate", "D:" + *date);
  const Metadata::Item* own = metadata.Find("xmp");
  if (own != nullptr && archival.empty()) {
    document.xmp = own->bytes;
  } else {
    const std::string xmp = NewXmp(metadata, archival);
    document.xmp.assign(xmp.begin(), xmp.end());
  }
  return document;
}

bool IsArchivalXmp(const std::vector<uint8_t>& xmp) {
  constexpr std::string_view kKnown[] = {"adobe:ns:meta/",
                                         "http://www.w3.org/1999/02/22-rdf-syntax-ns#",
                                         "http://purl.org/dc/elements/1.1/",
                                         "http://ns.adobe.com/xap/1.0/",
                                         "http://ns.adobe.com/xap/1.0/rights/",
                                         "http://ns.adobe.com/tiff/1.0/",
                                         "http://ns.adobe.com/exif/1.0/",
                                         "http://ns.adobe.com/photoshop/1.0/"};
  const std::string_view packet(reinterpret_cast<const char*>(xmp.data()), xmp.size());
  for (size_t at = packet.find("xmlns:"); at != std::string_view::npos; at = packet.find("xmlns:", at + 1)) {
    const size_t open = packet.find_first_of("\"'", at);
    if (open == std::string_view::npos) return false;
    const size_t close = packet.find(packet[open], open + 1);
    if (close == std::string_view::npos) return false;
    const std::string_view space = packet.substr(open + 1, close - open - 1);
    if (std::find(std::begin(kKnown), std::end(kKnown), space) == std::end(kKnown)) return false;
  }
  return true;
}

}  // namespace rastrel::formats
