#include "formats/tiff_fields.h"

#include <algorithm>

#include "pages/text.h"

namespace rastrel::formats {
namespace {

// Numbers of fields, beside those of TiffTag.
enum : uint16_t {
  kTiffThresholding = 263,
  kTiffCellWidth = 264,
  kTiffFillOrder = 266,
  kTiffXPosition = 286,
  kTiffYPosition = 287,
  kTiffFreeOffsets = 288,
  kTiffFreeByteCounts = 289,
  kTiffGroup3Options = 292,
  kTiffGroup4Options = 293,
  kTiffHostComputer = 316,
  kTiffPredictor = 317,
  kTiffWhitePoint = 318,
  kTiffPrimaryChromaticities = 319,
  kTiffBadFaxLinesInARow = 328,
  kTiffInkSet = 332,
  kTiffNumberOfInks = 334,
  kTiffTargetPrinter = 337,
  kTiffHighestSample = 341,
  kTiffJpegTables = 347,
  kTiffJpegProcess = 512,
  kTiffJpegAcTables = 521,
  kTiffYcbcrCoefficients = 529,
  kTiffReferenceBlackWhite = 532
};

// The most pixel bytes that a byte of the file can stand for, rounded up; 0 where that cannot be told.
uint64_t HighestRatio(uint16_t compression) {
  switch (compression) {
    case kTiffNone:
      return 1;
    case kTiffPackBits:
      return 64;
    case kTiffJpeg:
    case kTiffOldJpeg:
      return 64 * 8 * 3;  // a bit for 64 samples
    case kTiffLzw:
    case kTiffDeflate:
    case kTiffOldDeflate:
      return 4096;
    case kTiffLzma:
    case kTiffZstd:
      return 50'000;  // blocks of 128 KiB in four bytes
    default:
      return 0;
  }
}

// The item's bytes, or none.
std::span<const uint8_t> ItemOf(const Metadata* metadata, std::string_view name) {
  const Metadata::Item* item = metadata != nullptr ? metadata->Find(name) : nullptr;
  return item != nullptr ? std::span<const uint8_t>(item->bytes) : std::span<const uint8_t>();
}

// Fields that go on into other TIFF files as they are.
bool IsKeptField(uint16_t tag) {
  constexpr uint16_t kTags[] = {kTiffXPosition,     kTiffYPosition,  kTiffHostComputer,
                                kTiffTargetPrinter, kTiffWhitePoint, kTiffPrimaryChromaticities};
  return std::find(std::begin(kTags), std::end(kTags), tag) != std::end(kTags);
}

// Fields of how pixels are stored, and those whose items are read elsewhere.
bool IsUsedField(uint16_t tag) {
  constexpr uint16_t kTags[] = {kTiffThresholding, kTiffFreeOffsets, kTiffFreeByteCounts, kTiffPredictor,
                                kTiffColourMap,    kTiffJpegTables,  kTiffIccProfile,     kTiffXmp,
                                kTiffPhotoshop,    kTiffIptc,        kTiffExif,           kTiffGps,
                                kTiffHistory};
  const auto isWithin = [tag](uint16_t first, uint16_t last) { return tag >= first && tag <= last; };
  return std::find(std::begin(kTags), std::end(kTags), tag) != std::end(kTags) ||
         std::any_of(std::begin(kTiffTexts), std::end(kTiffTexts),
                     [tag](const TiffText& text) { return text.tag == tag; }) ||
         isWithin(kTiffSubfileType, kTiffPhotometric) || isWithin(kTiffCellWidth, kTiffFillOrder) ||
         tag == kTiffStripOffsets || tag == kTiffOrientation || isWithin(kTiffSamplesPerPixel, kTiffPlanar) ||
         isWithin(kTiffGroup3Options, kTiffGroup4Options) || isWithin(kTiffResolutionUnit, kTiffPageNumber) ||
         isWithin(kTiffTileWidth, kTiffBadFaxLinesInARow) || tag == kTiffInkSet || tag == kTiffNumberOfInks ||
         isWithin(kTiffExtraSamples, kTiffHighestSample) || isWithin(kTiffJpegProcess, kTiffJpegAcTables) ||
         isWithin(kTiffYcbcrCoefficients, kTiffReferenceBlackWhite);
}

// A small TIFF file of fields alone, as metadata carries them.
std::vector<uint8_t> BlockOf(const TiffReader::Tree& tree) {
  MemoryBytes block;
  constexpr uint8_t kHeader[8] = {'I', 'I', 42};
  TiffWriter writer(&block, 0, /*isBig=*/false);
  writer.Add(kHeader);
  writer.Point(4, writer.Add(tree).at);
  return block.Take();
}

TiffReader::Tree TreeOf(std::span<const uint8_t> block) {
  if (block.empty()) return {};
  BorrowedBytes bytes(block);
  try {
    const TiffReader reader(&bytes);
    return reader.LoadTree(reader.first());
  } catch (const PageError&) {
    return {};  // a damaged block is as good as none
  }
}

}  // namespace

void CheckTiffClaim(uint64_t fileBytes, const TiffClaim& claim) {
  const bool isFax = claim.compression == kTiffFax4 || claim.compression == kTiffFax3;
  const uint64_t ratio = HighestRatio(claim.compression), most = fileBytes * ratio;
  // A fax row takes a bit at least.
  if ((isFax && claim.height / 8 > fileBytes) ||
      (ratio != 0 && claim.rowBytes > 0 && claim.height > most / claim.rowBytes) ||
      (ratio != 0 && claim.tileBytes > 0 && claim.tiles > most / claim.tileBytes)) {
    CannotHold(fileBytes, static_cast<int64_t>(claim.width), static_cast<int64_t>(claim.height));
  }
}

void ReadTiffExtras(Bytes* bytes, uint64_t directory, bool isLab,
                    const std::function<std::string(uint16_t)>& nameOf, Metadata* metadata) {
  try {
    const TiffReader reader(bytes);
    TiffReader::Tree exif, others;
    std::string leftOut;
    for (const TiffReader::Entry& entry : reader.Directory(directory)) {
      if (entry.tag == kTiffHistory && entry.type == kTiffAscii) {
        std::vector<uint8_t> text = reader.Load(entry).value;
        while (!text.empty() && text.back() == 0) text.pop_back();
        metadata->Set("history", text);
      } else if (entry.tag == kTiffExif || entry.tag == kTiffGps) {
        const std::vector<uint64_t> to = reader.Numbers(entry);
        if (to.size() == 1) exif.below.push_back({entry.tag, reader.LoadTree(to[0], 1)});
      } else if (isLab && entry.tag == kTiffWhitePoint) {
        // It is with the colours.
      } else if (IsKeptField(entry.tag)) {
        others.fields.push_back(reader.Load(entry));
      } else if (!IsUsedField(entry.tag)) {
        leftOut += (leftOut.empty() ? "" : ", ") + nameOf(entry.tag);
      }
    }
    if (!exif.below.empty()) metadata->Set("exif", BlockOf(exif));
    if (!others.fields.empty()) metadata->Set("tiff", BlockOf(others));
    if (!leftOut.empty()) AddReduction(leftOut + " left out", metadata);
  } catch (const PageError&) {
    AddReduction("exif left out: it is damaged", metadata);
  }
}

void WriteTiffExtras(MemoryBytes* bytes, const Metadata& metadata) {
  const std::span<const uint8_t> history = ItemOf(&metadata, "history");
  const TiffReader::Tree exif = TreeOf(ItemOf(&metadata, "exif")), others = TreeOf(ItemOf(&metadata, "tiff"));
  if (exif.below.empty() && history.empty() && others.fields.empty()) return;
  const TiffReader reader(bytes);
  TiffReader::Tree tree = reader.LoadTree(reader.first());
  if (!history.empty()) {
    TiffField field = {kTiffHistory, kTiffAscii, history.size() + 1, {history.begin(), history.end()}};
    field.value.push_back(0);
    tree.fields.push_back(std::move(field));
  }
  for (const TiffField& field : others.fields) {
    const auto isSame = [&](const TiffField& own) { return own.tag == field.tag; };
    if (IsKeptField(field.tag) && std::none_of(tree.fields.begin(), tree.fields.end(), isSame))
      tree.fields.push_back(field);
  }
  tree.below = exif.below;
  TiffWriter writer(bytes, bytes->size(), reader.isBig());
  writer.Point(reader.isBig() ? 8 : 4, writer.Add(tree).at);
}

}  // namespace rastrel::formats
