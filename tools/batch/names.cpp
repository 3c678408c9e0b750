#include "tools/batch/names.h"

#include <fnmatch.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <utility>

#include <fmt/format.h>

#include "tools/operations.h"
#include "tools/paths.h"

namespace rastrel::tool {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The digits that a text begins with.
std::string_view Number(std::string_view text) {
  size_t length = 0;
  while (length < text.size() && IsDigit(text[length])) ++length;
  return text.substr(0, length);
}

std::string_view WithoutZeros(std::string_view digits) {
  digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
  return digits;
}

constexpr int kMostPageDigits = 9;

}  // namespace

bool NaturallyBefore(std::string_view one, std::string_view other) {
  const std::string_view wholeOne = one, wholeOther = other;
  while (!one.empty() && !other.empty()) {
    if (IsDigit(one.front()) && IsDigit(other.front())) {
      const std::string_view a = Number(one), b = Number(other);
      const std::string_view x = WithoutZeros(a), y = WithoutZeros(b);
      if (x.size() != y.size()) return x.size() < y.size();
      if (x != y) return x < y;
      one.remove_prefix(a.size());
      other.remove_prefix(b.size());
      continue;
    }
    if (one.front() != other.front()) {
      if (one.front() == '/' || other.front() == '/') return one.front() == '/';
      return static_cast<unsigned char>(one.front()) < static_cast<unsigned char>(other.front());
    }
    one.remove_prefix(1);
    other.remove_prefix(1);
  }
  if (one.empty() != other.empty()) return one.empty();
  return wholeOne < wholeOther;  // 01 and 1
}

bool FitsOne(const std::string& path, std::span<const std::string> patterns) {
  const std::string name = path.substr(path.rfind('/') + 1);
  return std::any_of(patterns.begin(), patterns.end(), [&](const std::string& pattern) {
    const std::string& subject = pattern.find('/') == std::string::npos ? name : path;
    return ::fnmatch(pattern.c_str(), subject.c_str(), 0) == 0;
  });
}

std::string OutputName::OfPage(int page) const {
  return hasPage() ? fmt::format("{}{:0{}}{}", before, page, pageDigits, after) : before;
}

std::string OutputName::Text() const {
  return hasPage() ? fmt::format("{}{{page:0{}}}{}", before, pageDigits, after) : before;
}

NamePattern::NamePattern(std::string_view text) {
  const auto refuse = [whole = std::string(text)](std::string_view why) {
    throw UsageError(fmt::format("--name: '{}' {}", whole, why));
  };
  constexpr std::pair<std::string_view, std::string NameParts::*> kParts[] = {{"root", &NameParts::root},
                                                                              {"folder", &NameParts::folder},
                                                                              {"stem", &NameParts::stem},
                                                                              {"ext", &NameParts::ending}};
  if (text.find("{stem}") == std::string_view::npos) refuse("has no {stem}");
  while (!text.empty()) {
    const size_t brace = std::min(text.find_first_of("{}"), text.size());
    if (brace > 0) pieces_.push_back({.text = std::string(text.substr(0, brace))});
    text.remove_prefix(brace);
    if (text.empty()) break;
    const size_t end = text.find('}');
    if (text.front() == '}' || end == std::string_view::npos) refuse("has a brace without the other");
    const std::string_view word = text.substr(1, end - 1);
    text.remove_prefix(end + 1);
    const auto part = std::find_if(std::begin(kParts), std::end(kParts),
                                   [&](const auto& entry) { return entry.first == word; });
    if (part != std::end(kParts)) {
      pieces_.push_back({.text = "", .part = part->second});
      continue;
    }
    std::string_view width = word.substr(std::min<size_t>(word.size(), 4));
    if (!word.starts_with("page") || (!width.empty() && !width.starts_with(":0"))) {
      refuse("knows {root}, {folder}, {stem}, {page}, {page:04} and {ext} only");
    }
    if (std::exchange(hasPage_, true)) refuse("has two numbers of the page");
    if (!width.empty()) width.remove_prefix(2);
    if (width.size() > 1 || (!width.empty() && !IsDigit(width[0]))) refuse("has no width from 1 to 9");
    const int digits = width.empty() ? 1 : width[0] - '0';
    pieces_.push_back({.text = "", .pageDigits = std::clamp(digits, 1, kMostPageDigits)});
    if (text.find('/') != std::string_view::npos) refuse("has a folder after the page's number");
  }
}

OutputName NamePattern::Name(const std::string& output, const NameParts& parts) const {
  OutputName name;
  std::string* text = &name.before;
  for (const Piece& piece : pieces_) {
    if (piece.pageDigits >= 0) {
      name.pageDigits = piece.pageDigits;
      text = &name.after;
    } else {
      *text += piece.part != nullptr ? parts.*piece.part : piece.text;
    }
  }
  // An empty {folder} leaves slashes that lead nowhere.
  namespace fs = std::filesystem;
  const std::string relative =
      name.before.substr(std::min(name.before.find_first_not_of('/'), name.before.size()));
  name.before = NameOf((PathOf(output) / PathOf(relative)).lexically_normal());
  for (const fs::path& part : PathOf(relative + name.after)) {
    if (part == "..") throw UsageError("--name leads out of the output's folder");
  }
  return name;
}

}  // namespace rastrel::tool
