// JSON text, put together value by value.
#ifndef RASTREL_PAGES_JSON_H
#define RASTREL_PAGES_JSON_H

#include <charconv>
#include <cmath>
#include <concepts>
#include <string>
#include <string_view>

namespace rastrel::pages {

// To that many steps a unit, and never -0.
inline double Rounded(double value, double steps) { return std::round(value * steps) / steps + 0.0; }

// An object or array under way. Members are added in order; in an array names are empty.
class JsonText {
 public:
  static JsonText Object() { return JsonText('{', '}'); }
  static JsonText Array() { return JsonText('[', ']'); }

  template <std::integral Number>
  JsonText& Add(std::string_view name, Number value) {
    return AddText(name, std::to_string(value));
  }
  JsonText& Add(std::string_view name, bool value) { return AddText(name, value ? "true" : "false"); }
  // The shortest text that reads back the same, and always one of a number with a fraction.
  JsonText& Add(std::string_view name, double value) {
    char digits[40];
    std::string text(digits, std::to_chars(digits, digits + sizeof(digits), value).ptr);
    if (text.find_first_of(".en") == std::string::npos) text += ".0";
    return AddText(name, std::isfinite(value) ? text : "null");
  }
  JsonText& Add(std::string_view name, std::string_view value) { return AddText(name, Quoted(value)); }
  JsonText& Add(std::string_view name, const char* value) { return Add(name, std::string_view(value)); }
  JsonText& Add(std::string_view name, const JsonText& value) { return AddText(name, value.Text()); }

  std::string Text() const { return text_ + closing_; }

 private:
  JsonText(char opening, char closing) : text_(1, opening), closing_(closing) {}
  JsonText& AddText(std::string_view name, std::string_view value) {
    if (text_.size() > 1) text_ += ',';
    if (!name.empty()) (text_ += Quoted(name)) += ':';
    text_ += value;
    return *this;
  }
  static std::string Quoted(std::string_view value) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text = "\"";
    for (const char c : value) {
      const auto byte = static_cast<unsigned char>(c);
      if (c == '"' || c == '\\') {
        (text += '\\') += c;
      } else if (byte < 0x20) {
        ((text += "\\u00") += kDigits[byte >> 4]) += kDigits[byte & 15];
      } else {
        text += c;
      }
    }
    return text + '"';
  }

  std::string text_;
  char closing_;
};

}  // namespace rastrel::pages

#endif
