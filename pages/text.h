// Messages put together of words and numbers, in the same letters whatever the locale is.
#ifndef RASTREL_PAGES_TEXT_H
#define RASTREL_PAGES_TEXT_H

#include <charconv>
#include <concepts>
#include <string>
#include <string_view>

namespace rastrel::pages {

// With that many decimals: "-0.50".
inline std::string Fixed(double value, int decimals) {
  char text[400];
  const auto end = std::to_chars(text, text + sizeof(text), value, std::chars_format::fixed, decimals).ptr;
  return {text, end};
}

inline void Append(std::string* text, std::string_view part) { text->append(part); }
template <std::integral Number>
void Append(std::string* text, Number number) {
  text->append(std::to_string(number));
}

// Text("has ", 3, " bits") is "has 3 bits".
template <class... Parts>
std::string Text(const Parts&... parts) {
  std::string text;
  (Append(&text, parts), ...);
  return text;
}

// "1 page", "2 pages".
inline std::string Count(int64_t number, std::string_view thing) {
  return Text(number, " ", thing, number == 1 ? "" : "s");
}

}  // namespace rastrel::pages

#endif
