// TIFF files: pixels through the system's codec, everything else by their directories.
#include <algorithm>
#include <cstdio>
#include <set>

#include "formats/format.h"
#include "formats/tiff_document.h"
#include "formats/tiff_fields.h"
#include "formats/windows/codecs.h"
#include "pages/text.h"

namespace rastrel::formats {
namespace {

using namespace std::string_view_literals;
constexpr std::string_view kSignatures[] = {"II\x2A\0"sv, "MM\0\x2A"sv, "II\x2B\0"sv, "MM\0\x2B"sv};

constexpr OptionEntry kOptions[] = {
    {.name = "compression",
     .help = "g4 is for black-and-white pages; the other pages take their usual one",
     .choices = "g4,lzw,deflate,none"}};

constexpr size_t kMaxPages = 1u << 20;

// ---- reading ----------------------------------------------------------------------------------------------

// The fields of one page.
class Fields {
 public:
  Fields(Bytes* bytes, uint64_t directory) : reader_(bytes), entries_(reader_.Directory(directory)) {}
  std::vector<uint64_t> Numbers(uint16_t tag) const {
    const TiffReader::Entry* entry = Find(tag);
    return entry != nullptr ? reader_.Numbers(*entry) : std::vector<uint64_t>();
  }
  uint64_t Number(uint16_t tag, uint64_t otherwise) const {
    const std::vector<uint64_t> numbers = Numbers(tag);
    return numbers.empty() ? otherwise : numbers[0];
  }
  double Fraction(uint16_t tag) const {
    const TiffField field = Load(tag);
    if (field.type != kTiffFraction || field.count == 0) return 0;
    const std::span<const uint8_t> value(field.value);
    const uint64_t below = LittleEndian(value.subspan(4, 4));
    return below != 0 ? static_cast<double>(LittleEndian(value.first(4))) / static_cast<double>(below) : 0;
  }
  // With type 0 where there is none.
  TiffField Load(uint16_t tag) const {
    const TiffReader::Entry* entry = Find(tag);
    return entry != nullptr ? reader_.Load(*entry) : TiffField{};
  }

 private:
  const TiffReader::Entry* Find(uint16_t tag) const {
    const auto found =
        std::find_if(entries_.begin(), entries_.end(), [tag](const auto& entry) { return entry.tag == tag; });
    return found != entries_.end() ? &*found : nullptr;
  }

  TiffReader reader_;
  std::vector<TiffReader::Entry> entries_;
};

struct Layout {
  uint64_t width, height, bits, samples, photometric, compression, orientation, format;
  std::vector<uint64_t> extras;
  bool isTiled;
  double across, down;  // pixels an inch, or of no unit
  bool hasUnit;

  Resolution resolution() const {
    return hasUnit ? Resolution{PixelsPerMetre(across), PixelsPerMetre(down)} : Resolution{};
  }
  bool isGrey() const { return photometric == kWhiteIsZero || photometric == kBlackIsZero; }
  bool isLab() const { return photometric == kCieLab || photometric == kIccLab; }
  bool isSigned() const { return format == kSignedNumber && !isLab(); }
};

Layout LayoutOf(const Fields& fields) {
  constexpr uint64_t kNoUnit = 1, kInches = 2, kCentimetres = 3;
  const uint64_t samples = fields.Number(kTiffSamplesPerPixel, 1);
  const uint64_t unit = fields.Number(kTiffResolutionUnit, kInches);
  const double perInch = unit == kCentimetres ? 2.54 : 1;
  Layout layout = {
      .width = fields.Number(kTiffWidth, 0),
      .height = fields.Number(kTiffHeight, 0),
      .bits = fields.Number(kTiffBitsPerSample, 1),
      .samples = samples,
      .photometric = fields.Number(kTiffPhotometric, samples >= 3 ? kRedGreenBlue : kWhiteIsZero),
      .compression = fields.Number(kTiffCompression, kTiffNone),
      .orientation = fields.Number(kTiffOrientation, 1),
      .format = fields.Number(kTiffSampleFormat, kUnsignedNumber),
      .extras = fields.Numbers(kTiffExtraSamples),
      .isTiled = fields.Number(kTiffTileWidth, 0) != 0,
      .across = fields.Fraction(kTiffXResolution) * perInch,
      .down = fields.Fraction(kTiffYResolution) * perInch,
      .hasUnit = unit != kNoUnit};
  if (layout.down == 0) layout.down = layout.across;
  return layout;
}

// Of the page that becomes of it, as everywhere.
int BitsToBe(const Layout& layout) {
  const bool isOne = layout.samples == 1 && layout.photometric <= kIndexed;
  const auto bits = static_cast<int>(std::min<uint64_t>(layout.bits, 64));
  const bool isPlain = isOne && !layout.isTiled && !layout.isSigned() && layout.format != kFloatNumber &&
                       layout.photometric != kRedGreenBlue;
  if (isPlain && (bits == 1 || bits == 4 || bits == 8)) return bits;
  if (layout.isGrey()) return isOne && bits == 1 ? 1 : 8;
  return layout.photometric == kIndexed ? 8 : 24;
}

// What is refused before the codec sees it: sizes that lie, and rows that are not there.
Claim ClaimOf(Bytes* file, const Fields& fields, const Layout& layout) {
  constexpr uint64_t kMostBits = 64, kMostSamples = 64, kMostSide = INT32_MAX, kMostTileSide = 1 << 17;
  if (layout.width > kMostSide || layout.height > kMostSide || layout.bits > kMostBits ||
      layout.samples > kMostSamples) {
    Damaged("its size makes no sense");
  }
  const uint64_t pixelBits = layout.bits * layout.samples;
  const uint64_t tileWidth = fields.Number(kTiffTileWidth, 0), tileHeight = fields.Number(kTiffTileHeight, 0);
  if (tileWidth > kMostTileSide || tileHeight > kMostTileSide) Damaged("its tiles make no sense");
  const uint64_t tileBytes = (tileWidth * pixelBits + 7) / 8 * tileHeight;
  const std::vector<uint64_t> offsets =
      fields.Numbers(layout.isTiled ? uint16_t{kTiffTileOffsets} : uint16_t{kTiffStripOffsets});
  const std::vector<uint64_t> sizes =
      fields.Numbers(layout.isTiled ? uint16_t{kTiffTileByteCounts} : uint16_t{kTiffStripByteCounts});
  CheckTiffClaim(file->size(), {.width = layout.width,
                                .height = layout.height,
                                .rowBytes = (layout.width * pixelBits + 7) / 8,
                                .compression = static_cast<uint16_t>(layout.compression),
                                .tileBytes = tileBytes,
                                .tiles = layout.isTiled ? offsets.size() : 0});
  for (size_t i = 0; i < offsets.size(); ++i) {
    const uint64_t size = i < sizes.size() ? sizes[i] : 0;
    if (offsets[i] > file->size() || size > file->size() - offsets[i]) Damaged("its rows are cut short");
  }
  return {.width = static_cast<int64_t>(layout.width),
          .height = static_cast<int64_t>(layout.height),
          .bits = BitsToBe(layout),
          .resolution = layout.resolution(),
          .isSigned = layout.isSigned(),
          .workBytes = tileBytes};
}

std::string SpaceOf(const Layout& layout) {
  constexpr const char* kNames[] = {"grey",  "grey",  "RGB", "palette", nullptr, "CMYK",
                                    "YCbCr", nullptr, "Lab", "Lab",     "Lab"};
  if (layout.photometric < std::size(kNames) && kNames[layout.photometric] != nullptr)
    return kNames[layout.photometric];
  return Text("photometric ", layout.photometric);
}

std::string CompressionOf(const Layout& layout) {
  constexpr struct {
    uint16_t number;
    const char* name;
  } kNames[] = {{kTiffNone, "none"},
                {2, "CCITT RLE"},
                {kTiffFax3, "CCITT Group 3"},
                {kTiffFax4, "CCITT Group 4"},
                {kTiffLzw, "LZW"},
                {kTiffOldJpeg, "Old-style JPEG"},
                {kTiffJpeg, "JPEG"},
                {kTiffDeflate, "AdobeDeflate"},
                {kTiffPackBits, "PackBits"},
                {kTiffOldDeflate, "Deflate"}};
  for (const auto& [number, name] : kNames) {
    if (number == layout.compression) return name;
  }
  return Text("compression ", layout.compression);
}

void ReadMetadata(Bytes* file, uint64_t directory, const Fields& fields, const Layout& layout,
                  Metadata* metadata) {
  const std::string space = SpaceOf(layout);
  const bool hasAlpha =
      !layout.extras.empty() && (layout.extras[0] == kMultipliedAlpha || layout.extras[0] == kPlainAlpha);
  Tell({.space = space,
        .bits = static_cast<int>(layout.bits),
        .compression = CompressionOf(layout),
        .isFloat = layout.format == kFloatNumber,
        .isSigned = layout.isSigned(),
        .hasAlpha = hasAlpha,
        .isMixed = space == "CMYK" || space == "Lab",
        .others = static_cast<int>(std::min<size_t>(layout.extras.size(), 99)) - (hasAlpha ? 1 : 0)},
       metadata);
  for (const auto& [tag, item] : kTiffBlocks) {
    const TiffField field = fields.Load(tag);
    if (!field.value.empty()) metadata->Set(item, field.value);
  }
  for (const auto& [tag, item, isInExif] : kTiffTexts) {
    const TiffField field = fields.Load(tag);
    if (field.type != kTiffAscii) continue;
    const std::string text(field.value.begin(), field.value.end());
    if (!text.empty() && text[0] != '\0') metadata->SetText(item, text.substr(0, text.find('\0')));
  }
  const std::vector<uint64_t> number = fields.Numbers(kTiffPageNumber);
  if (number.size() == 2) metadata->SetText("page-number", Text(number[0], "/", number[1]));
  if (!layout.hasUnit) TellProportions(layout.across, layout.down, metadata);
  ReadTiffExtras(
      file, directory, layout.isLab(), [](uint16_t tag) { return Text("tag ", tag); }, metadata);
}

PageList List(Bytes* file) {
  const TiffReader reader(file);
  PageList pages;
  std::set<uint64_t> seen;
  try {
    for (uint64_t at = reader.first(); at != 0 && seen.size() < kMaxPages; at = reader.Next(at)) {
      if (!seen.insert(at).second) Damaged("its pages go round in a circle");
      // Thumbnails and masks are no pages.
      constexpr uint64_t kReduced = 1, kMask = 4;
      const uint64_t kind = Fields(file, at).Number(kTiffSubfileType, 0);
      if ((kind & (kReduced | kMask)) == 0) pages.places.push_back(at);
    }
  } catch (const PageError& error) {
    pages.damage = error.what();
    if (pages.places.empty()) throw;
  }
  if (pages.places.empty() && seen.empty()) Damaged("it has no page");
  if (pages.places.empty()) pages.places.push_back(reader.first());  // better than none
  return pages;
}

Dib Read(Bytes* file, uint64_t directory, const Reading& reading, Metadata* metadata) {
  const Fields fields(file, directory);
  const Layout layout = LayoutOf(fields);
  if (metadata != nullptr) ReadMetadata(file, directory, fields, layout, metadata);
  TiffPageBytes page(file, directory);
  const Claim claim = ClaimOf(file, fields, layout);
  Dib read = DecodePage(Codec::Tiff, &page, claim, reading);
  if (metadata != nullptr && layout.photometric == kInks && metadata->Find("icc") != nullptr) {
    AddReduction("profile of its inks left out", metadata);
    metadata->Remove("icc");
  }
  return Upright(std::move(read), static_cast<int>(std::min<uint64_t>(layout.orientation, 9)));
}

PageInfo Describe(Bytes* file, uint64_t directory) {
  const Fields fields(file, directory);
  const Layout layout = LayoutOf(fields);
  const Claim claim = ClaimOf(file, fields, layout);
  const TiffField map = fields.Load(kTiffColourMap);
  return InfoFromHeader(
      claim.width, claim.height, claim.bits, claim.resolution,
      static_cast<int>(std::min<uint64_t>(layout.orientation, 9)), [&](const PageView& view) {
        if (layout.photometric != kIndexed || map.type != kTiffShort) return;
        Raw palette;
        for (size_t at = 0; at + 2 <= map.value.size(); at += 2)
          palette.colours.push_back(static_cast<uint16_t>(LittleEndian(std::span(map.value).subspan(at, 2))));
        SetPalette(palette, view.palette());
      });
}

// ---- writing ----------------------------------------------------------------------------------------------

struct Compression {
  const char* name;
  uint8_t asked;                  // as the codec numbers them
  std::vector<uint64_t> numbers;  // as TIFF does
};

// The one for this page, and whether it was asked for.
std::pair<Compression, bool> CompressionFor(const PageView& page, const Options& options) {
  const Compression g4 = {"g4", 3, {kTiffFax4}}, deflate = {"deflate", 6, {kTiffDeflate, kTiffOldDeflate}};
  const bool isBlackAndWhite = page.bits() == 1 && HasGreyRamp(page);
  const std::string_view wanted = options.Choice("compression", "");
  if (wanted == "none") return {{"none", 1, {kTiffNone}}, true};
  if (wanted == "lzw") return {{"lzw", 4, {kTiffLzw}}, true};
  if (wanted == "deflate") return {deflate, true};
  return {isBlackAndWhite ? g4 : deflate, wanted == "g4" && isBlackAndWhite};
}

TiffField Shorts(uint16_t tag, std::initializer_list<uint64_t> numbers) {
  TiffField field = {tag, kTiffShort, numbers.size()};
  for (const uint64_t number : numbers) AppendLittleEndian(&field.value, number, 2);
  return field;
}

// As resolutions are told: pixels an inch.
TiffField InchFraction(uint16_t tag, int32_t pixelsPerMetre) {
  constexpr uint64_t kParts = 1000;
  TiffField field = {tag, kTiffFraction, 1};
  const double parts =
      std::min(DotsPerInch(pixelsPerMetre) * static_cast<double>(kParts) + 0.5, double{UINT32_MAX});
  AppendLittleEndian(&field.value, static_cast<uint64_t>(parts), 4);
  AppendLittleEndian(&field.value, kParts, 4);
  return field;
}

// The fields that say how rows are stored; what else the codec writes is told anew.
bool IsOfRows(uint16_t tag) {
  constexpr uint16_t kTags[] = {kTiffWidth,           kTiffHeight,          kTiffBitsPerSample,
                                kTiffCompression,     kTiffPhotometric,     266 /* fill order */,
                                kTiffStripOffsets,    kTiffSamplesPerPixel, 278 /* rows a strip */,
                                kTiffStripByteCounts, kTiffPlanar,          292 /* Group 3 */,
                                293 /* Group 4 */,    317 /* predictor */,  kTiffColourMap,
                                kTiffExtraSamples,    kTiffSampleFormat};
  return std::find(std::begin(kTags), std::end(kTags), tag) != std::end(kTags);
}

void AddFields(const Metadata& metadata, Resolution resolution, std::vector<TiffField>* fields) {
  constexpr uint16_t kUndefined = 7;
  fields->push_back(Shorts(kTiffOrientation, {1}));
  if (resolution.x > 0 && resolution.y > 0) {
    constexpr uint64_t kInches = 2;
    fields->push_back(Shorts(kTiffResolutionUnit, {kInches}));
    fields->push_back(InchFraction(kTiffXResolution, resolution.x));
    fields->push_back(InchFraction(kTiffYResolution, resolution.y));
  }
  for (const auto& [tag, item] : kTiffBlocks) {
    const Metadata::Item* block = metadata.Find(item);
    if (block != nullptr && !block->bytes.empty())
      fields->push_back({tag, kUndefined, block->bytes.size(), block->bytes});
  }
  for (const auto& [tag, item, isInExif] : kTiffTexts) {
    if (metadata.Find(item) == nullptr) continue;
    const std::string text = metadata.TextOf(item);
    fields->push_back({tag, kTiffAscii, text.size() + 1, {text.begin(), text.end()}});
    fields->back().value.push_back(0);
  }
  unsigned page = 0, pages = 0;
  if (std::sscanf(metadata.TextOf("page-number").c_str(), "%5u/%5u", &page, &pages) == 2)
    fields->push_back(Shorts(kTiffPageNumber, {page, pages}));
}

// What the codec made, with what we have to say instead of what it says beside the rows.
std::vector<uint8_t> Completed(std::span<const uint8_t> made, const Metadata& metadata,
                               Resolution resolution) {
  MemoryBytes bytes;
  if (!bytes.WriteAt(0, made)) throw PageError("out of memory", ErrNoMemory);
  const TiffReader reader(&bytes);
  TiffReader::Tree tree = reader.LoadTree(reader.first());
  tree.below.clear();
  std::erase_if(tree.fields, [](const TiffField& field) { return !IsOfRows(field.tag); });
  AddFields(metadata, resolution, &tree.fields);
  TiffWriter writer(&bytes, bytes.size(), reader.isBig());
  writer.Point(reader.FirstAt(), writer.Add(tree).at);
  WriteTiffExtras(&bytes, metadata);
  return bytes.Take();
}

std::vector<uint8_t> Encode(const Dib& page, const Metadata& metadata, const Options& options) {
  const PageView view(page);
  const auto [compression, isAsked] = CompressionFor(view, options);
  const std::vector<uint8_t> made = EncodePage(Codec::Tiff, view, {.tiffCompression = compression.asked});
  BorrowedBytes bytes(made);
  const uint64_t number = Fields(&bytes, TiffReader(&bytes).first()).Number(kTiffCompression, kTiffNone);
  const std::vector<uint64_t>& numbers = compression.numbers;
  if (isAsked && std::find(numbers.begin(), numbers.end(), number) == numbers.end())
    throw PageError(Text("cannot be written: the system's codec has no ", compression.name), ErrUnsupported);
  return Completed(made, FittingProfile(metadata, view), view.resolution());
}

std::unique_ptr<Document> Create(Bytes* bytes) { return std::make_unique<TiffDocument>(bytes); }

}  // namespace

constinit const Format kTiff = {.name = "tif",
                                .title = "TIFF",
                                .extensions = "tif,tiff",
                                .signatures = kSignatures,
                                .options = kOptions,
                                .metadata = kTiffMetadata,
                                .read = Read,
                                .describe = Describe,
                                .list = List,
                                .encode = Encode,
                                .create = Create};

}  // namespace rastrel::formats
