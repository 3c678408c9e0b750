// PNG files: pixels through the system's codec, everything else by their chunks.
#include <algorithm>
#include <array>

#include "formats/exif.h"
#include "formats/format.h"
#include "formats/png_texts.h"
#include "formats/windows/codecs.h"
#include "pages/text.h"

namespace rastrel::formats {
namespace {

using namespace std::string_view_literals;
constexpr std::string_view kSignature = "\x89PNG\r\n\x1A\n"sv;
constexpr std::string_view kSignatures[] = {"\x89PNG\r\n"sv};

constexpr uint64_t kHighestRatio = 1100;      // of deflate, in bytes to a byte, rounded up
constexpr size_t kMostChunkBytes = 1u << 22;  // of what is kept
constexpr size_t kMostChunks = 128;

enum : int { kGrey = 0, kColours = 2, kPalette = 3, kGreyAlpha = 4, kColoursAlpha = 6 };

// The remainder that closes each chunk: of its kind and bytes, by the polynomial of IEEE 802.3.
class Crc {
 public:
  void Add(std::span<const uint8_t> bytes) {
    static const std::array<uint32_t, 256> kTable = [] {
      std::array<uint32_t, 256> table{};
      for (uint32_t i = 0; i < table.size(); ++i) {
        uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit) value = value >> 1 ^ ((value & 1) != 0 ? 0xEDB88320u : 0);
        table[i] = value;
      }
      return table;
    }();
    for (const uint8_t byte : bytes) value_ = value_ >> 8 ^ kTable[(value_ ^ byte) & 255];
  }
  uint32_t value() const { return ~value_; }

 private:
  uint32_t value_ = UINT32_MAX;
};

uint32_t BigEndian(std::span<const uint8_t> bytes) {
  return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}
void AppendBigEndian(uint32_t number, std::vector<uint8_t>* bytes) {
  for (int shift = 24; shift >= 0; shift -= 8) bytes->push_back(static_cast<uint8_t>(number >> shift));
}

struct Chunk {
  std::string kind;
  std::vector<uint8_t> bytes;
};

// The chunks of a whole file, but for the rows.
class Chunks {
 public:
  explicit Chunks(Bytes* file) : fileBytes_(file->size()) {
    ByteReader reader(file);
    std::array<uint8_t, kSignature.size()> signature{};
    if (!reader.Read(signature)) Damaged("it ends early");
    while (kind_ != "IEND") TakeNext(&reader);
    const Chunk* head = Find("IHDR");
    if (head == nullptr || head->bytes.size() != 13) Damaged("it has no size");
    std::copy(head->bytes.begin(), head->bytes.end(), head_.begin());
    constexpr std::string_view kDepths[] = {"\1\2\4\x8\x10", "", "\x8\x10", "\1\2\4\x8",
                                            "\x8\x10",       "", "\x8\x10"};
    const int colours = head_[9];
    if (colours > kColoursAlpha ||
        kDepths[colours].find(static_cast<char>(head_[8])) == std::string_view::npos)
      Damaged("its pixels are of no known kind");
    const uint64_t samples = colours == kColours        ? 3
                             : colours == kColoursAlpha ? 4
                             : colours == kGreyAlpha    ? 2
                                                        : 1;
    const uint64_t rowBytes = (width() * samples * static_cast<uint64_t>(depth()) + 7) / 8;
    if (width() > INT32_MAX || height() > INT32_MAX || rowBytes * height() / kHighestRatio > fileBytes_)
      CannotHold(fileBytes_, static_cast<int64_t>(width()), static_cast<int64_t>(height()));
  }

  // The first of that kind; null for none.
  const Chunk* Find(std::string_view kind) const {
    for (const Chunk& chunk : chunks_) {
      if (chunk.kind == kind) return &chunk;
    }
    return nullptr;
  }
  const std::vector<Chunk>& all() const { return chunks_; }
  bool hasLostChunk() const { return hasLostChunk_; }
  uint64_t width() const { return BigEndian(std::span(head_).first(4)); }
  uint64_t height() const { return BigEndian(std::span(head_).subspan(4, 4)); }
  int depth() const { return head_[8]; }
  int colours() const { return head_[9]; }
  bool hasAlpha() const { return colours() >= kGreyAlpha || Find("tRNS") != nullptr; }
  Claim claim() const {
    const bool isPacked = depth() == 1 || depth() == 4;
    const bool isGrey = colours() == kGrey || colours() == kGreyAlpha;
    const bool staysPacked = isPacked && (colours() == kPalette || (isGrey && !hasAlpha()));
    const int bits = staysPacked ? depth() : isGrey || colours() == kPalette ? 8 : 24;
    Claim claim = {
        .width = static_cast<int64_t>(width()), .height = static_cast<int64_t>(height()), .bits = bits};
    const Chunk* sizes = Find("pHYs");
    constexpr uint32_t kMost = 0x7FFFFFFF;
    if (sizes != nullptr && sizes->bytes.size() == 9 && sizes->bytes[8] == 1) {
      const std::span<const uint8_t> bytes(sizes->bytes);
      claim.resolution = {static_cast<int32_t>(std::min(BigEndian(bytes), kMost)),
                          static_cast<int32_t>(std::min(BigEndian(bytes.subspan(4)), kMost))};
    }
    return claim;
  }

 private:
  void TakeNext(ByteReader* reader) {
    std::array<uint8_t, 8> head{};
    if (!reader->Read(head)) Damaged("it ends early");
    uint64_t left = BigEndian(head);
    kind_.assign(head.begin() + 4, head.end());
    if (left > fileBytes_) Damaged("it ends early");
    Crc crc;
    crc.Add(std::span(head).subspan(4));
    // Texts and the like beyond what anybody writes are passed by.
    const bool isRows = kind_ == "IDAT";
    const bool isKept = !isRows && left <= kMostChunkBytes && chunks_.size() < kMostChunks;
    hasLostChunk_ = hasLostChunk_ || (!isRows && !isKept);
    Chunk chunk = {kind_, {}};
    std::array<uint8_t, 4096> piece{};
    while (left > 0) {
      const std::span<uint8_t> next =
          std::span(piece).first(static_cast<size_t>(std::min<uint64_t>(left, piece.size())));
      if (!reader->Read(next)) Damaged("it ends early");
      crc.Add(next);
      if (isKept) chunk.bytes.insert(chunk.bytes.end(), next.begin(), next.end());
      left -= next.size();
    }
    std::array<uint8_t, 4> expected{};
    if (!reader->Read(expected)) Damaged("it ends early");
    if (BigEndian(expected) != crc.value()) Damaged(Text("its ", kind_, " is not as it was written"));
    if (isKept) chunks_.push_back(std::move(chunk));
  }

  uint64_t fileBytes_;
  std::string kind_;
  std::vector<Chunk> chunks_;
  std::array<uint8_t, 13> head_{};
  bool hasLostChunk_ = false;
};

PngCalibration ReadCalibration(const Chunks& chunks) {
  PngCalibration calibration;
  if (chunks.Find("iCCP") != nullptr || chunks.Find("sRGB") != nullptr) return calibration;
  const auto number = [&chunks](const char* kind, size_t count, size_t i) {
    const Chunk* chunk = chunks.Find(kind);
    return chunk != nullptr && chunk->bytes.size() == 4 * count
               ? BigEndian(std::span(chunk->bytes).subspan(4 * i))
               : 0;
  };
  calibration.gamma = number("gAMA", 1, 0);
  const size_t count = calibration.colours.size();
  for (size_t i = 0; i < count; ++i) calibration.colours[i] = number("cHRM", count, i);
  return calibration;
}

// Parts of `bytes` up to the next 0, which goes with it.
std::string_view TakeWord(std::string_view* bytes) {
  const std::string_view word = bytes->substr(0, bytes->find('\0'));
  bytes->remove_prefix(std::min(bytes->size(), word.size() + 1));
  return word;
}

// Returns whether some are compressed, and so not read.
bool ReadTexts(const Chunks& chunks, Metadata* metadata) {
  std::string others;
  bool hasCompressed = chunks.Find("zTXt") != nullptr;
  for (const Chunk& chunk : chunks.all()) {
    std::string_view left(reinterpret_cast<const char*>(chunk.bytes.data()), chunk.bytes.size());
    const bool isUtf8 = chunk.kind == "iTXt";
    if (chunk.kind != "tEXt" && !isUtf8) continue;
    const std::string_view keyword = TakeWord(&left);
    if (isUtf8) {
      const bool isCompressed = !left.empty() && left[0] != 0;
      hasCompressed = hasCompressed || isCompressed;
      if (isCompressed || left.size() < 2) continue;
      left.remove_prefix(2);
      TakeWord(&left);  // its language
      TakeWord(&left);  // and the keyword in that
    }
    TakePngText(keyword, left, isUtf8, metadata, &others);
  }
  if (!others.empty()) metadata->SetText(kPngOtherTexts, others);
  return hasCompressed;
}

void ReadMetadata(const Chunks& chunks, std::span<const uint8_t> profile, Metadata* metadata) {
  Tell({.space = chunks.colours() == kPalette  ? "palette"
                 : (chunks.colours() & 2) != 0 ? "RGB"
                                               : "grey",
        .bits = chunks.depth(),
        .compression = "deflate",
        .hasAlpha = chunks.hasAlpha()},
       metadata);
  const bool hasCompressed = ReadTexts(chunks, metadata);
  if (!profile.empty()) metadata->Set("icc", profile);
  const Chunk* exif = chunks.Find("eXIf");
  if (exif != nullptr) TakeExif(exif->bytes, metadata);
  const auto tell = [metadata](std::string_view what) { AddReduction(Text(what, " left out"), metadata); };
  SetCalibration(ReadCalibration(chunks), metadata);
  constexpr std::pair<const char*, const char*> kLost[] = {{"sBIT", "numbers of its significant bits"},
                                                           {"hIST", "histogram"},
                                                           {"oFFs", "position"},
                                                           {"pCAL", "calibration of its values"},
                                                           {"sPLT", "suggested palette"},
                                                           {"sCAL", "physical scale"},
                                                           {"acTL", "further frames"}};
  for (const auto& [kind, what] : kLost) {
    if (chunks.Find(kind) != nullptr) tell(what);
  }
  if (chunks.colours() >= kGreyAlpha && chunks.Find("bKGD") != nullptr) tell("background colour");
  if (hasCompressed) tell("compressed texts");
  if (profile.empty() && chunks.Find("iCCP") != nullptr) tell("colour profile");
  if (chunks.hasLostChunk()) tell("more or longer texts than are read");
  const Chunk* sizes = chunks.Find("pHYs");
  if (sizes != nullptr && sizes->bytes.size() == 9 && sizes->bytes[8] == 0)
    TellProportions(BigEndian(sizes->bytes), BigEndian(std::span(sizes->bytes).subspan(4)), metadata);
}

Dib Read(Bytes* file, uint64_t /*place*/, const Reading& reading, Metadata* metadata) {
  const Chunks chunks(file);
  std::vector<uint8_t> profile;
  Dib page = DecodePage(Codec::Png, file, chunks.claim(), reading, &profile);
  if (metadata != nullptr) ReadMetadata(chunks, profile, metadata);
  return page;
}

PageInfo Describe(Bytes* file, uint64_t /*place*/) {
  const Chunks chunks(file);
  const Claim claim = chunks.claim();
  return InfoFromHeader(
      claim.width, claim.height, claim.bits, claim.resolution, 1, [&chunks](const PageView& page) {
        const Chunk* colours = chunks.Find("PLTE");
        const Chunk* alphas = chunks.Find("tRNS");
        if (chunks.colours() != kPalette || colours == nullptr) return;
        for (size_t i = 0; i < page.palette().size(); ++i) {
          RGBQUAD& entry = page.palette()[i];
          entry = {255, 255, 255, 0};
          if (3 * i + 3 > colours->bytes.size()) continue;
          const uint8_t* colour = &colours->bytes[3 * i];
          const uint32_t alpha = alphas != nullptr && i < alphas->bytes.size() ? alphas->bytes[i] : 255;
          entry = {OverWhite(colour[2], alpha), OverWhite(colour[1], alpha), OverWhite(colour[0], alpha), 0};
        }
      });
}

// ---- writing ----------------------------------------------------------------------------------------------

void AddChunk(std::string_view kind, std::span<const uint8_t> bytes, std::vector<uint8_t>* file) {
  AppendBigEndian(static_cast<uint32_t>(bytes.size()), file);
  const size_t from = file->size();
  file->insert(file->end(), kind.begin(), kind.end());
  file->insert(file->end(), bytes.begin(), bytes.end());
  Crc crc;
  crc.Add(std::span(*file).subspan(from));
  AppendBigEndian(crc.value(), file);
}

// In the form of zlib, without making them smaller: profiles are a few thousand bytes.
std::vector<uint8_t> Stored(std::span<const uint8_t> bytes) {
  constexpr size_t kMostPiece = 65535;
  constexpr uint32_t kModulus = 65521;  // of Adler-32
  std::vector<uint8_t> stored = {0x78, 0x01};
  for (size_t at = 0; at < bytes.size(); at += kMostPiece) {
    const std::span<const uint8_t> piece = bytes.subspan(at, std::min(kMostPiece, bytes.size() - at));
    stored.push_back(at + piece.size() == bytes.size() ? 1 : 0);
    AppendLittleEndian(&stored, piece.size(), 2);
    AppendLittleEndian(&stored, ~piece.size(), 2);
    stored.insert(stored.end(), piece.begin(), piece.end());
  }
  uint32_t sum = 1, sums = 0;
  for (const uint8_t byte : bytes) {
    sum = (sum + byte) % kModulus;
    sums = (sums + sum) % kModulus;
  }
  AppendBigEndian(sums << 16 | sum, &stored);
  return stored;
}

void AddHead(const Metadata& metadata, Resolution resolution, std::vector<uint8_t>* file) {
  const auto add = [file](std::string_view kind, std::string_view intro, std::span<const uint8_t> bytes) {
    std::vector<uint8_t> whole(intro.begin(), intro.end());
    whole.insert(whole.end(), bytes.begin(), bytes.end());
    AddChunk(kind, whole, file);
  };
  const Metadata::Item* profile = metadata.Find("icc");
  if (profile != nullptr && !profile->bytes.empty()) add("iCCP", "ICC profile\0\0"sv, Stored(profile->bytes));
  const PngCalibration calibration = CalibrationOf(metadata);
  const auto addNumbers = [file](std::string_view kind, std::span<const uint32_t> numbers) {
    std::vector<uint8_t> bytes;
    for (const uint32_t number : numbers) AppendBigEndian(number, &bytes);
    AddChunk(kind, bytes, file);
  };
  if (calibration.gamma != 0) addNumbers("gAMA", {&calibration.gamma, 1});
  if (calibration.hasColours()) addNumbers("cHRM", calibration.colours);
  if (resolution.x > 0 && resolution.y > 0) {
    std::vector<uint8_t> sizes;
    AppendBigEndian(static_cast<uint32_t>(resolution.x), &sizes);
    AppendBigEndian(static_cast<uint32_t>(resolution.y), &sizes);
    sizes.push_back(1);  // pixels a metre
    AddChunk("pHYs", sizes, file);
  }
  const std::vector<uint8_t> exif = ExifFor(metadata, resolution, kPngExifTexts);
  if (!exif.empty()) AddChunk("eXIf", exif, file);
  for (const PngText& text : PngTextsOf(metadata)) {
    const std::span bytes(reinterpret_cast<const uint8_t*>(text.text.data()), text.text.size());
    // Of UTF-8: not compressed, in no language that is told.
    add(text.isUtf8 ? "iTXt" : "tEXt", text.keyword + std::string(text.isUtf8 ? 5 : 1, '\0'), bytes);
  }
}

// What the codec made, with what we have to say instead of what it says beside the rows.
void WriteFile(std::span<const uint8_t> made, const Metadata& metadata, Resolution resolution, Bytes* file) {
  std::vector<uint8_t> whole(kSignature.begin(), kSignature.end());
  for (size_t at = kSignature.size(); at + 12 <= made.size();) {
    const size_t length = BigEndian(made.subspan(at));
    const std::string_view kind(reinterpret_cast<const char*>(&made[at + 4]), 4);
    if (length > made.size() - at - 12) NotWritten("the system's codec made no file");
    const bool isKept = kind == "IHDR" || kind == "PLTE" || kind == "IDAT" || kind == "IEND";
    const std::span<const uint8_t> chunk = made.subspan(at, length + 12);
    if (isKept) whole.insert(whole.end(), chunk.begin(), chunk.end());
    if (kind == "IHDR") AddHead(metadata, resolution, &whole);
    at += chunk.size();
  }
  if (!file->WriteAt(0, whole)) NotWritten(file->problem());
}

void Write(const Dib& page, const Metadata& metadata, const Options& /*options*/, Bytes* file) {
  const PageView view(page);
  WriteFile(EncodePage(Codec::Png, view, {}), FittingProfile(metadata, view), view.resolution(), file);
}

}  // namespace

constinit const Format kPng = {.name = "png",
                               .title = "PNG",
                               .extensions = "png",
                               .signatures = kSignatures,
                               .metadata = kPngMetadata,
                               .read = Read,
                               .describe = Describe,
                               .write = Write};

}  // namespace rastrel::formats
