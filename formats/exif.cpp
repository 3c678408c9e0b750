#include "formats/exif.h"

#include <algorithm>
#include <cstring>

#include "formats/format.h"
#include "formats/tiff_directory.h"

namespace rastrel::formats {
namespace {

constexpr uint16_t kOrientation = 0x0112, kAcross = 0x011A, kDown = 0x011B, kUnit = 0x0128;
constexpr uint64_t kCentimetres = 3;

std::span<const uint8_t> WithoutIntro(std::span<const uint8_t> block) {
  const bool hasIntro = block.size() > kExifIntro.size() &&
                        std::memcmp(block.data(), kExifIntro.data(), kExifIntro.size()) == 0;
  return hasIntro ? block.subspan(kExifIntro.size()) : block;
}

const TiffField* FieldOf(const TiffReader::Tree& tree, uint16_t tag) {
  for (const TiffField& field : tree.fields) {
    if (field.tag == tag) return &field;
  }
  return nullptr;
}

uint64_t NumberOf(const TiffField* field, uint64_t otherwise) {
  return field != nullptr && field->type == kTiffShort && field->count == 1 ? LittleEndian(field->value)
                                                                            : otherwise;
}

double FractionOf(const TiffField* field) {
  if (field == nullptr || field->type != kTiffFraction || field->count != 1) return 0;
  const std::span<const uint8_t> value(field->value);
  const uint64_t below = LittleEndian(value.last(4));
  return below != 0 ? static_cast<double>(LittleEndian(value.first(4))) / static_cast<double>(below) : 0;
}

ExifLie LieOf(const TiffReader::Tree& tree) {
  const double perInch = NumberOf(FieldOf(tree, kUnit), 0) == kCentimetres ? 2.54 : 1;
  return {static_cast<int>(NumberOf(FieldOf(tree, kOrientation), 1)),
          {PixelsPerMetre(FractionOf(FieldOf(tree, kAcross)) * perInch),
           PixelsPerMetre(FractionOf(FieldOf(tree, kDown)) * perInch)}};
}

// The first directory. Those that it points to are numbers in it, unless they are loaded as well. A damaged
// block has none.
TiffReader::Tree Load(std::span<const uint8_t> block, bool isWhole) {
  BorrowedBytes bytes(block);
  try {
    const TiffReader reader(&bytes);
    if (isWhole) return reader.LoadTree(reader.first());
    TiffReader::Tree tree;
    for (const TiffReader::Entry& entry : reader.Directory(reader.first())) {
      tree.fields.push_back(reader.Load(entry));
      if (tree.fields.back().type == 0) tree.fields.pop_back();
    }
    return tree;
  } catch (const PageError&) {
    return {};
  }
}

std::string TextOf(const TiffField* field) {
  if (field == nullptr || field->type != kTiffAscii) return "";
  const std::string text(field->value.begin(), field->value.end());
  return text.substr(0, text.find('\0'));
}

void Set(TiffField field, TiffReader::Tree* tree) {
  std::erase_if(tree->fields, [&](const TiffField& old) { return old.tag == field.tag; });
  tree->fields.push_back(std::move(field));
}

TiffField Fraction(uint16_t tag, uint64_t above, uint64_t below) {
  TiffField field = {tag, kTiffFraction, 1};
  AppendLittleEndian(&field.value, above, 4);
  AppendLittleEndian(&field.value, below, 4);
  return field;
}

TiffField Short(uint16_t tag, uint64_t number) {
  TiffField field = {tag, kTiffShort, 1};
  AppendLittleEndian(&field.value, number, 2);
  return field;
}

// Brings the directory up to the page. Returns whether something is different now.
bool Update(const Metadata& metadata, Resolution resolution, std::string_view texts, TiffReader::Tree* tree) {
  const ExifLie old = LieOf(*tree);
  bool isChanged = false;
  const auto set = [&](TiffField field) {
    Set(std::move(field), tree);
    isChanged = true;
  };
  if (old.orientation != 1) set(Short(kOrientation, 1));
  if (resolution.x > 0 && resolution.y > 0 &&
      (old.resolution.x != resolution.x || old.resolution.y != resolution.y)) {
    constexpr uint64_t kCentimetresInAMetre = 100;
    set(Fraction(kAcross, static_cast<uint64_t>(resolution.x), kCentimetresInAMetre));
    set(Fraction(kDown, static_cast<uint64_t>(resolution.y), kCentimetresInAMetre));
    set(Short(kUnit, kCentimetres));
  }
  for (const auto& [tag, item, isInExif] : kTiffTexts) {
    const std::string text = metadata.TextOf(item);
    if (!isInExif || !HasWord(texts, item) || text.empty() || text == TextOf(FieldOf(*tree, tag))) continue;
    TiffField field = {tag, kTiffAscii, text.size() + 1, {text.begin(), text.end()}};
    field.value.push_back(0);
    set(std::move(field));
  }
  return isChanged;
}

}  // namespace

ExifLie ReadExif(std::span<const uint8_t> block) { return LieOf(Load(WithoutIntro(block), false)); }

void MakeExifUpright(std::span<uint8_t> block) {
  BorrowedBytes bytes(block);
  try {
    const TiffReader reader(&bytes);
    for (const TiffReader::Entry& entry : reader.Directory(reader.first())) {
      if (entry.tag == kOrientation && entry.type == kTiffShort && entry.count == 1)
        block[static_cast<size_t>(entry.at) + (reader.isBigEndian() ? 1 : 0)] = 1;
    }
  } catch (const PageError&) {
    // What cannot be read turns nothing.
  }
}

void TakeExif(std::span<const uint8_t> block, Metadata* metadata) {
  block = WithoutIntro(block);
  if (block.empty()) return;
  std::vector<uint8_t> upright(block.begin(), block.end());
  MakeExifUpright(upright);
  metadata->Set("exif", upright);
  const TiffReader::Tree tree = Load(upright, false);
  for (const auto& [tag, item, isInExif] : kTiffTexts) {
    const std::string text = isInExif ? TextOf(FieldOf(tree, tag)) : "";
    if (!text.empty() && metadata->Find(item) == nullptr) metadata->SetText(item, text);
  }
}

std::vector<uint8_t> ExifFor(const Metadata& metadata, Resolution resolution, std::string_view texts,
                             bool isOnlyPlace) {
  const Metadata::Item* item = metadata.Find("exif");
  std::vector<uint8_t> block = item != nullptr ? item->bytes : std::vector<uint8_t>();
  // Makers' notes point to places in the block, so what is there stays, and a new first directory follows it.
  // In the other order of bytes all is laid out anew.
  const bool isLaidAnew = block.empty() || block[0] == 'M';
  TiffReader::Tree tree = Load(block, isLaidAnew);
  if (!block.empty() && tree.fields.empty() && tree.below.empty()) return block;  // nobody can read it
  const Resolution none;
  const bool isBegun = !block.empty() || isOnlyPlace;
  if (!isBegun && !Update(metadata, none, texts, &tree)) return {};
  if (!Update(metadata, resolution, texts, &tree) && isBegun) return block;
  constexpr uint8_t kHeader[] = {'I', 'I', 42, 0, 0, 0, 0, 0};
  if (isLaidAnew) block.assign(std::begin(kHeader), std::end(kHeader));
  const uint64_t end = block.size();
  MemoryBytes bytes;
  if (!bytes.WriteAt(0, block)) throw PageError("out of memory", ErrNoMemory);
  TiffWriter writer(&bytes, end, /*isBig=*/false);
  constexpr uint64_t kFirstAt = 4;
  writer.Point(kFirstAt, writer.Add(tree).at);
  return bytes.Take();
}

}  // namespace rastrel::formats
