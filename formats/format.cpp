#include "formats/format.h"

#include <charconv>
#include <cmath>

#include "pages/text.h"

namespace rastrel::formats {
namespace {

// The parts of a list between separators.
std::vector<std::string_view> Split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  while (true) {
    const size_t end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

std::string Lower(std::string_view text) {
  std::string lower;
  for (const char c : text) lower += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return lower;
}

// A whole number in the option's range.
double NumberOf(const OptionEntry& entry, std::string_view text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !(value >= entry.least) ||
      value > entry.most || value != std::trunc(value)) {
    throw PageError(Text("cannot be written: option ", entry.name, " is a whole number from ",
                         static_cast<int64_t>(entry.least), " to ", static_cast<int64_t>(entry.most)),
                    ErrOption);
  }
  return value;
}

}  // namespace

bool HasWord(std::string_view list, std::string_view word) {
  for (const std::string_view part : Split(list, ',')) {
    if (part == word) return true;
  }
  return false;
}

Options::Options(std::span<const OptionEntry> entries, std::string_view text) {
  if (text.empty()) return;
  for (const std::string_view part : Split(text, ',')) {
    const size_t equals = std::min(part.find('='), part.size());
    const std::string_view name = part.substr(0, equals);
    const std::string_view value = equals < part.size() ? part.substr(equals + 1) : "";
    const OptionEntry* found = nullptr;
    for (const OptionEntry& entry : entries) {
      if (entry.name == name) found = &entry;
    }
    if (found == nullptr) {
      throw PageError(Text("cannot be written: the format has no option '", name, "'"), ErrOption);
    }
    if (found->choices != nullptr && !HasWord(found->choices, value)) {
      throw PageError(Text("cannot be written: option ", name, " is one of ", found->choices), ErrOption);
    }
    const double number = found->choices == nullptr ? NumberOf(*found, value) : 0;
    values_.push_back({std::string(name), std::string(value), number});
  }
}

const Options::Value* Options::Find(std::string_view name) const {
  for (const Value& value : values_) {
    if (value.name == name) return &value;
  }
  return nullptr;
}

double Options::Number(std::string_view name, double otherwise) const {
  const Value* value = Find(name);
  return value != nullptr ? value->number : otherwise;
}

std::string_view Options::Choice(std::string_view name, std::string_view otherwise) const {
  const Value* value = Find(name);
  return value != nullptr ? std::string_view(value->text) : otherwise;
}

void Reading::CheckPixels(int64_t width, int64_t height) const {
  if (width < 1 || height < 1 || height <= options_.mostPixels / width) return;
  throw PageError(Text("has ", width, " x ", height, " pixels, more than the limit of ", options_.mostPixels),
                  ErrTooLarge);
}

void Reading::CheckBytes(uint64_t bytes) const {
  if (bytes <= static_cast<uint64_t>(options_.mostBytes)) return;
  throw PageError(Text("needs ", bytes, " bytes of memory, more than the limit of ", options_.mostBytes),
                  ErrTooLarge);
}

void Reading::FailLate() const {
  const int decimals = options_.mostSeconds < 1 ? 3 : 0;
  const std::string limit = Fixed(options_.mostSeconds, decimals);
  throw PageError(Text("takes longer to read than the limit of ", limit, " seconds"), ErrTooLarge);
}

Dib Reading::NewPage(int64_t width, int64_t height, int bits, Resolution resolution,
                     uint64_t workBytes) const {
  CheckSize(width, height, bits);
  CheckPixels(width, height);
  CheckBytes(StrideOf(width, bits) * static_cast<uint64_t>(height) + workBytes);
  return MakePage(width, height, bits, resolution);
}

const Format* FindFormat(std::string_view extension) {
  const std::string wanted = Lower(extension);
  for (const Format* format : Formats()) {
    if (HasWord(format->extensions, wanted)) return format;
  }
  return nullptr;
}

void Tell(const Original& original, Metadata* metadata) {
  std::string reduced;
  const auto add = [&](std::string_view text) { reduced += Text(reduced.empty() ? "" : "\n", text); };
  const int bits = original.bits;
  if (original.isFloat) {
    add(Text("floating-point numbers of ", bits, " bits to 8 bits"));
  } else if (bits > 8) {
    add(Text(bits, " bits to 8"));
  }
  if (original.isSigned) add("numbers with a sign to numbers without");
  if (original.isMixed) add(Text(original.space, " to RGB"));
  if (original.hasAlpha) add("alpha laid over white");
  if (original.others > 0) add(Text(Count(original.others, "further sample"), " left out"));
  metadata->SetText("space", original.space);
  metadata->SetText("depth", Text(bits));
  if (!original.compression.empty()) metadata->SetText("compression", original.compression);
  if (!reduced.empty()) metadata->SetText("reduced", reduced);
}

void AddReduction(std::string_view text, Metadata* metadata) {
  const std::string before = metadata->Find("reduced") != nullptr ? metadata->TextOf("reduced") + "\n" : "";
  metadata->SetText("reduced", before + std::string(text));
}

void TellProportions(double across, double down, Metadata* metadata) {
  if (across > 0 && down > 0 && across != down)
    AddReduction("proportions of its pixels, which are no squares, left out", metadata);
}

void CannotHold(uint64_t fileBytes, int64_t width, int64_t height) {
  Damaged(Text(fileBytes, " bytes cannot hold ", width, " x ", height, " pixels"));
}

void NotWritten(std::string_view why) {
  throw PageError(Text("cannot be written", why.empty() ? "" : ": ", why), ErrFileIO);
}

}  // namespace rastrel::formats
