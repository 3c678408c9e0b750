// Text to standard output and standard error. Nothing here throws, whatever becomes of them, and no name of a
// file reaches a terminal as a command to it.
#ifndef RASTREL_TOOLS_CONSOLE_H
#define RASTREL_TOOLS_CONSOLE_H

#include <cstdio>
#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace rastrel::tool {

// The text with line feeds, escapes and other control characters, and bytes that are no UTF-8, as \n, \x1b.
std::string Printable(std::string_view text);

// As it is.
void Put(std::FILE* file, std::string_view text) noexcept;

// A line, made printable but for the line feed that the format ends in.
template <class... Values>
void Print(std::FILE* file, fmt::format_string<Values...> format, Values&&... values) noexcept {
  try {
    const std::string line = fmt::format(format, std::forward<Values>(values)...);
    const bool isWhole = line.ends_with('\n');
    Put(file, Printable(std::string_view(line).substr(0, line.size() - (isWhole ? 1 : 0))));
    if (isWhole) Put(file, "\n");
  } catch (...) {
    Put(file, "(no memory for a line)\n");
  }
}

// All of standard input. Throws PageError.
std::string ReadStandardInput(uint64_t mostBytes);

// Whether something that was put there did not arrive. What happens to standard error is nobody's concern.
bool IsOutputLost() noexcept;
// To be returned by main: `code`, or 1 with a word to standard error when standard output was lost.
int ExitCode(int code) noexcept;

}  // namespace rastrel::tool

#endif
