// Texts in parts.
#ifndef RASTREL_TOOLS_WORDS_H
#define RASTREL_TOOLS_WORDS_H

#include <span>
#include <string_view>
#include <vector>

namespace rastrel::tool {

// The known word that somebody may have meant; "" where none is near.
std::string_view Nearest(std::string_view word, std::span<const std::string_view> known);

// The parts between separators, one at least.
inline std::vector<std::string_view> Split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  while (true) {
    const size_t end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

}  // namespace rastrel::tool

#endif
