#include "tools/console.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "tools/handles.h"

namespace rastrel::tool {
namespace {

// Of the first write to standard output that failed.
std::atomic<int> outputError{0};

// How many bytes the character has that the text begins with; 0 where it is no UTF-8.
size_t CharacterBytes(std::string_view text) {
  const auto byte = [&](size_t i) { return i < text.size() ? static_cast<uint8_t>(text[i]) : 0u; };
  const unsigned first = byte(0);
  const size_t length = first < 0x80                     ? 1
                        : first >= 0xC2 && first <= 0xDF ? 2
                        : first >= 0xE0 && first <= 0xEF ? 3
                        : first >= 0xF0 && first <= 0xF4 ? 4
                                                         : 0;
  for (size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  return length;
}

// Control characters, those of Unicode too, and those that change the direction of a line.
bool IsControl(std::string_view character) {
  const auto byte = [&](size_t i) { return static_cast<uint8_t>(character[i]); };
  if (character.size() == 1) return byte(0) < 0x20 || byte(0) == 0x7F;
  if (character.size() == 2) return byte(0) == 0xC2 && byte(1) < 0xA0;
  if (character.size() != 3 || byte(0) != 0xE2) return false;
  return (byte(1) == 0x80 && byte(2) >= 0xAA && byte(2) <= 0xAE) ||
         (byte(1) == 0x81 && byte(2) >= 0xA6 && byte(2) <= 0xA9);
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string printable;
  while (!text.empty()) {
    const size_t length = CharacterBytes(text);
    const std::string_view character = text.substr(0, length == 0 ? 1 : length);
    text.remove_prefix(character.size());
    if (length != 0 && !IsControl(character)) {
      printable += character;
    } else if (character == "\n") {
      printable += "\\n";
    } else {
      for (const char c : character) printable += fmt::format("\\x{:02x}", static_cast<uint8_t>(c));
    }
  }
  return printable;
}

void Put(std::FILE* file, std::string_view text) noexcept {
  const bool isDone = std::fwrite(text.data(), 1, text.size(), file) == text.size() && std::fflush(file) == 0;
  if (isDone || file != stdout) return;
  int none = 0;
  outputError.compare_exchange_strong(none, errno != 0 ? errno : EIO);
}

std::string ReadStandardInput(uint64_t mostBytes) {
  std::string bytes;
  constexpr size_t kPieceBytes = 1 << 20;
  for (size_t got = 1; got > 0;) {
    const size_t before = bytes.size();
    bytes.resize(before + kPieceBytes);
    got = std::fread(&bytes[before], 1, kPieceBytes, stdin);
    bytes.resize(before + got);
    if (bytes.size() > mostBytes)
      throw PageError(fmt::format("standard input has more than the limit of {} bytes", mostBytes));
  }
  if (std::ferror(stdin) != 0) throw PageError(std::strerror(errno));
  return bytes;
}

bool IsOutputLost() noexcept { return outputError != 0; }

int ExitCode(int code) noexcept {
  Put(stdout, "");
  if (!IsOutputLost()) return code;
  // A reader who has seen enough is no news.
  if (outputError != EPIPE) Print(stderr, "rastrel: standard output: {}\n", std::strerror(outputError));
  return code == 0 ? 1 : code;
}

}  // namespace rastrel::tool
