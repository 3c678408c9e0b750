// PNG files through libpng. It reports errors by a jump, so the code between setjmp and the last call holds
// nothing that needs destroying.
#include <png.h>
#include <tiff.h>

#include <algorithm>
#include <bit>
#include <csetjmp>
#include <cstdio>
#include <cstring>

#include "formats/exif.h"
#include "formats/format.h"
#include "formats/png_texts.h"

namespace rastrel::formats {
namespace {

constexpr uint64_t kHighestRatio = 1100;  // of deflate, in bytes to a byte, rounded up
constexpr int kCompressionLevel = 4;      // half the time of the usual 6 for a fifteenth more bytes

using namespace std::string_view_literals;
constexpr std::string_view kSignatures[] = {"\x89PNG\r\n"sv};

struct Message {
  char text[120] = "";
  bool hasLostChunk = false;  // beyond the limits
};

void OnError(png_structp png, png_const_charp text) {
  auto& message = *static_cast<Message*>(png_get_error_ptr(png));
  std::snprintf(message.text, sizeof(message.text), "%s", text);
  png_longjmp(png, 1);
}

void OnWarning(png_structp png, png_const_charp text) {
  auto& message = *static_cast<Message*>(png_get_error_ptr(png));
  for (const char* const loss :
       {"no space in chunk cache", "exceeds application limits", "chunk data is too large"})
    message.hasLostChunk = message.hasLostChunk || std::strstr(text, loss) != nullptr;
}

void OnRead(png_structp png, png_bytep bytes, size_t count) {
  auto& reader = *static_cast<ByteReader*>(png_get_io_ptr(png));
  if (!reader.Read({bytes, count})) png_error(png, "Read Error");
}

void OnWrite(png_structp png, png_bytep bytes, size_t count) {
  auto& writer = *static_cast<ByteWriter*>(png_get_io_ptr(png));
  if (!writer.Write({bytes, count})) png_error(png, "Write Error");
}

void OnFlush(png_structp) {}

constexpr png_byte kAnimation[] = "acTL";

class Reader {
 public:
  explicit Reader(Bytes* file)
      : bytes_(file),
        png_(png_create_read_struct(PNG_LIBPNG_VER_STRING, &message_, OnError, OnWarning)),
        info_(png_ != nullptr ? png_create_info_struct(png_) : nullptr) {
    if (info_ == nullptr) throw PageError("out of memory", ErrNoMemory);
    png_set_read_fn(png_, &bytes_, OnRead);
    png_set_user_limits(png_, 0x7FFFFFFF, 0x7FFFFFFF);
    // Of texts and profiles, which deflate makes a thousand times larger.
    constexpr png_alloc_size_t kMostChunkBytes = 1 << 22;
    constexpr png_uint_32 kMostChunks = 128;
    png_set_chunk_malloc_max(png_, kMostChunkBytes);
    png_set_chunk_cache_max(png_, kMostChunks);
    png_set_keep_unknown_chunks(png_, PNG_HANDLE_CHUNK_ALWAYS, kAnimation, 1);
  }
  ~Reader() { png_destroy_read_struct(&png_, &info_, nullptr); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  png_structp png() const { return png_; }
  png_infop info() const { return info_; }
  [[noreturn]] void Fail() const { Damaged(message_.text); }
  bool hasLostChunk() const { return message_.hasLostChunk; }

  bool ReadHead() {
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    png_read_info(png_, info_);
    return true;
  }
  // Asks libpng for rows as pages have them: 1, 4 or 8 bits, or blue, green, red; alpha over white.
  bool AskForRows() {
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    const png_byte kind = png_get_color_type(png_, info_);
    const int depth = png_get_bit_depth(png_, info_);
    const bool hasAlpha =
        (kind & PNG_COLOR_MASK_ALPHA) != 0 || png_get_valid(png_, info_, PNG_INFO_tRNS) != 0;
    if (depth == 16) png_set_scale_16(png_);
    if (kind == PNG_COLOR_TYPE_PALETTE) {
      if (depth == 2) png_set_packing(png_);  // a table's alpha is mixed into the table itself
    } else {
      if (depth == 2 || (depth < 8 && hasAlpha)) png_set_expand_gray_1_2_4_to_8(png_);
      if (hasAlpha) {
        if ((kind & PNG_COLOR_MASK_ALPHA) == 0) png_set_tRNS_to_alpha(png_);
        // Mixed as the samples stand, like all other formats: a gamma that is told would have them mixed as
        // light.
        png_set_gamma(png_, 1, 1);
        png_color_16 white{0, 255, 255, 255, 255};
        png_set_background(png_, &white, PNG_BACKGROUND_GAMMA_SCREEN, 0, 1.0);
      }
      if ((kind & PNG_COLOR_MASK_COLOR) != 0) png_set_bgr(png_);
    }
    passes_ = png_set_interlace_handling(png_);
    png_read_update_info(png_, info_);
    return true;
  }
  // Asks for samples as they are, of whole bytes in this machine's order, tables and alpha spelled out.
  bool AskForSamples() {
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    png_set_expand(png_);
    if (std::endian::native == std::endian::little) png_set_swap(png_);
    passes_ = png_set_interlace_handling(png_);
    png_read_update_info(png_, info_);
    return true;
  }
  // `rowAt` needs no destruction.
  template <class RowAt>
  bool ReadRows(int height, RowAt rowAt, const Reading& reading) {
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    for (int pass = 0; pass < passes_; ++pass) {
      for (int y = 0; y < height; ++y) {
        if (reading.isLate()) return false;
        png_read_row(png_, rowAt(y), nullptr);
      }
    }
    png_read_end(png_, info_);
    return true;
  }

 private:
  Message message_;
  ByteReader bytes_;
  png_structp png_;
  png_infop info_;
  int passes_ = 1;
};

void ReadTexts(const Reader& reader, Metadata* metadata) {
  png_textp texts = nullptr;
  int count = 0;
  png_get_text(reader.png(), reader.info(), &texts, &count);
  std::string others;
  for (int i = 0; i < count; ++i) {
    if (texts[i].text == nullptr) continue;
    const bool isUtf8 = texts[i].compression >= PNG_ITXT_COMPRESSION_NONE;
    const std::string_view bytes(texts[i].text, isUtf8 ? texts[i].itxt_length : texts[i].text_length);
    TakePngText(texts[i].key, bytes, isUtf8, metadata, &others);
  }
  if (!others.empty()) metadata->SetText(kPngOtherTexts, others);
}

PngCalibration ReadCalibration(const Reader& reader) {
  PngCalibration calibration;
  if (png_get_valid(reader.png(), reader.info(), PNG_INFO_iCCP | PNG_INFO_sRGB) != 0) return calibration;
  const auto number = [](png_fixed_point value) { return static_cast<uint32_t>(std::max(value, 0)); };
  png_fixed_point gamma = 0, c[8] = {};
  png_get_gAMA_fixed(reader.png(), reader.info(), &gamma);
  png_get_cHRM_fixed(reader.png(), reader.info(), &c[0], &c[1], &c[2], &c[3], &c[4], &c[5], &c[6], &c[7]);
  calibration.gamma = number(gamma);
  std::transform(std::begin(c), std::end(c), calibration.colours.begin(), number);
  return calibration;
}

// What the file has before its rows and no page; to be asked before rows are asked for, which changes it.
struct Beside {
  PngCalibration calibration;
  std::vector<const char*> leftOut;
};
Beside BesideOf(const Reader& reader) {
  std::vector<const char*> leftOut;
  const auto has = [&](png_uint_32 chunk) { return png_get_valid(reader.png(), reader.info(), chunk) != 0; };
  constexpr struct {
    png_uint_32 chunk;
    const char* what;
  } kChunks[] = {{PNG_INFO_sBIT, "numbers of its significant bits"},
                 {PNG_INFO_hIST, "histogram"},
                 {PNG_INFO_oFFs, "position"},
                 {PNG_INFO_pCAL, "calibration of its values"},
                 {PNG_INFO_sPLT, "suggested palette"},
                 {PNG_INFO_sCAL, "physical scale"}};
  for (const auto& [chunk, what] : kChunks) {
    if (has(chunk)) leftOut.push_back(what);
  }
  // It is for what is seen through.
  const bool hasAlpha = (png_get_color_type(reader.png(), reader.info()) & PNG_COLOR_MASK_ALPHA) != 0;
  if (hasAlpha && has(PNG_INFO_bKGD)) leftOut.push_back("background colour");
  png_unknown_chunkp unknown = nullptr;
  if (png_get_unknown_chunks(reader.png(), reader.info(), &unknown) > 0) leftOut.push_back("further frames");
  return {ReadCalibration(reader), std::move(leftOut)};
}

void ReadMetadata(const Reader& reader, const Beside& beside, Metadata* metadata) {
  png_charp name = nullptr;
  png_bytep bytes = nullptr;
  png_uint_32 size = 0;
  int compression = 0;
  ReadTexts(reader, metadata);
  if (png_get_iCCP(reader.png(), reader.info(), &name, &compression, &bytes, &size) != 0)
    metadata->Set("icc", {bytes, size});
  if (png_get_eXIf_1(reader.png(), reader.info(), &size, &bytes) != 0) TakeExif({bytes, size}, metadata);
  SetCalibration(beside.calibration, metadata);
  for (const char* what : beside.leftOut) AddReduction(std::string(what) + " left out", metadata);
  if (reader.hasLostChunk()) AddReduction("more or longer texts than are read left out", metadata);
  png_uint_32 across = 0, down = 0;
  int unit = PNG_RESOLUTION_UNKNOWN;
  if (png_get_pHYs(reader.png(), reader.info(), &across, &down, &unit) != 0 && unit == PNG_RESOLUTION_UNKNOWN)
    TellProportions(across, down, metadata);
}

// As the file has it, before rows are asked for.
Original OriginalOf(const Reader& reader) {
  const png_byte kind = png_get_color_type(reader.png(), reader.info());
  return {.space = kind == PNG_COLOR_TYPE_PALETTE       ? "palette"
                   : (kind & PNG_COLOR_MASK_COLOR) != 0 ? "RGB"
                                                        : "grey",
          .bits = png_get_bit_depth(reader.png(), reader.info()),
          .compression = "deflate",
          .hasAlpha = (kind & PNG_COLOR_MASK_ALPHA) != 0 ||
                      png_get_valid(reader.png(), reader.info(), PNG_INFO_tRNS) != 0};
}

void ReadPalette(const Reader& reader, const PageView& page) {
  png_colorp colours = nullptr;
  png_bytep alphas = nullptr;
  int count = 0, alphaCount = 0;
  png_get_PLTE(reader.png(), reader.info(), &colours, &count);
  png_get_tRNS(reader.png(), reader.info(), &alphas, &alphaCount, nullptr);
  for (RGBQUAD& entry : page.palette()) entry = {255, 255, 255, 0};
  count = std::min(count, static_cast<int>(page.palette().size()));
  for (int i = 0; i < count; ++i) {
    const uint32_t alpha = i < alphaCount ? alphas[i] : 255;
    page.palette()[static_cast<size_t>(i)] = {OverWhite(colours[i].blue, alpha),
                                              OverWhite(colours[i].green, alpha),
                                              OverWhite(colours[i].red, alpha), 0};
  }
}

Resolution ReadResolution(const Reader& reader) {
  png_uint_32 x = 0, y = 0;
  int unit = PNG_RESOLUTION_UNKNOWN;
  if (png_get_pHYs(reader.png(), reader.info(), &x, &y, &unit) == 0 || unit != PNG_RESOLUTION_METER)
    return {};
  constexpr png_uint_32 kMost = 0x7FFFFFFF;
  return {static_cast<int32_t>(std::min(x, kMost)), static_cast<int32_t>(std::min(y, kMost))};
}

class Writer {
 public:
  explicit Writer(Bytes* file)
      : bytes_(file),
        png_(png_create_write_struct(PNG_LIBPNG_VER_STRING, &message_, OnError, OnWarning)),
        info_(png_ != nullptr ? png_create_info_struct(png_) : nullptr) {
    if (info_ == nullptr) throw PageError("out of memory", ErrNoMemory);
    png_set_write_fn(png_, &bytes_, OnWrite, OnFlush);
    png_set_benign_errors(png_, 1);  // a profile that libpng finds fault with is no reason to have no page
  }
  ~Writer() { png_destroy_write_struct(&png_, &info_); }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;
  const char* message() const { return message_.text; }

  // What stands in front of the rows.
  struct Head {
    int width, height, depth, kind;
    Resolution resolution;
    const png_color* colours = nullptr;
    int colourCount = 0;
    const Metadata::Item* profile = nullptr;
    PngCalibration calibration = {};
    std::span<const uint8_t> exif = {};
    std::span<png_text> texts = {};
  };
  // `rowAt` needs no destruction.
  template <class RowAt>
  bool Write(const Head& head, RowAt rowAt, void (*order)(png_structp)) {
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    png_set_IHDR(png_, info_, static_cast<png_uint_32>(head.width), static_cast<png_uint_32>(head.height),
                 head.depth, head.kind, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    if (head.colours != nullptr) png_set_PLTE(png_, info_, head.colours, head.colourCount);
    if (head.resolution.x > 0 && head.resolution.y > 0) {
      png_set_pHYs(png_, info_, static_cast<png_uint_32>(head.resolution.x),
                   static_cast<png_uint_32>(head.resolution.y), PNG_RESOLUTION_METER);
    }
    png_set_compression_level(png_, kCompressionLevel);
    if (head.profile != nullptr) {
      png_set_iCCP(png_, info_, "ICC profile", PNG_COMPRESSION_TYPE_BASE, head.profile->bytes.data(),
                   static_cast<png_uint_32>(head.profile->bytes.size()));
    }
    const auto number = [&head](size_t i) {
      return static_cast<png_fixed_point>(head.calibration.colours[i]);
    };
    if (head.calibration.gamma != 0)
      png_set_gAMA_fixed(png_, info_, static_cast<png_fixed_point>(head.calibration.gamma));
    if (head.calibration.hasColours()) {
      png_set_cHRM_fixed(png_, info_, number(0), number(1), number(2), number(3), number(4), number(5),
                         number(6), number(7));
    }
    if (!head.exif.empty()) {
      png_set_eXIf_1(png_, info_, static_cast<png_uint_32>(head.exif.size()),
                     const_cast<png_bytep>(head.exif.data()));
    }
    if (!head.texts.empty())
      png_set_text(png_, info_, head.texts.data(), static_cast<int>(head.texts.size()));
    png_write_info(png_, info_);
    if (order != nullptr) order(png_);
    for (int y = 0; y < head.height; ++y) png_write_row(png_, rowAt(y));
    png_write_end(png_, nullptr);
    return bytes_.Flush();
  }

 private:
  Message message_;
  ByteWriter bytes_;
  png_structp png_;
  png_infop info_;
};

// Size and depth, after the rows have been asked for.
struct Head {
  int64_t width, height;
  int bits;
  Resolution resolution;
  bool hasPalette;
  Original original;
  Beside beside;
};

Head ReadHead(Reader* reader, uint64_t fileBytes) {
  if (!reader->ReadHead()) reader->Fail();
  const png_structp png = reader->png();
  const uint64_t width = png_get_image_width(png, reader->info());
  const uint64_t height = png_get_image_height(png, reader->info());
  const bool hasPalette = png_get_color_type(png, reader->info()) == PNG_COLOR_TYPE_PALETTE;
  if (png_get_rowbytes(png, reader->info()) * height / kHighestRatio > fileBytes) {
    CannotHold(fileBytes, static_cast<int64_t>(width), static_cast<int64_t>(height));
  }
  const Resolution resolution = ReadResolution(*reader);
  Original original = OriginalOf(*reader);
  Beside beside = BesideOf(*reader);
  if (!reader->AskForRows()) reader->Fail();
  const int bits = png_get_bit_depth(png, reader->info()) * png_get_channels(png, reader->info());
  return {static_cast<int64_t>(width),
          static_cast<int64_t>(height),
          bits,
          resolution,
          hasPalette,
          std::move(original),
          std::move(beside)};
}

Dib Read(Bytes* file, uint64_t /*place*/, const Reading& reading, Metadata* metadata) {
  Reader reader(file);
  const Head head = ReadHead(&reader, file->size());
  Dib page = reading.NewPage(head.width, head.height, head.bits, head.resolution);
  const PageView view(page);
  if (png_get_rowbytes(reader.png(), reader.info()) > view.stride()) Damaged("");
  for (int y = 0; y < view.height(); ++y) std::memset(view.PageRow(y) + view.stride() - 4, 0, 4);
  if (head.hasPalette) ReadPalette(reader, view);
  const bool isRead = reader.ReadRows(
      view.height(), [&view](int y) { return view.PageRow(y); }, reading);
  reading.CheckTime();
  if (!isRead) reader.Fail();
  if (metadata != nullptr) {
    Tell(head.original, metadata);
    ReadMetadata(reader, head.beside, metadata);
  }
  UseGreyRamp(view);
  return page;
}

PageInfo Describe(Bytes* file, uint64_t /*place*/) {
  Reader reader(file);
  const Head head = ReadHead(&reader, file->size());
  return InfoFromHeader(head.width, head.height, head.bits, head.resolution, 1, [&](const PageView& page) {
    if (head.hasPalette) ReadPalette(reader, page);
  });
}

// Texts as libpng takes them.
struct Texts {
  std::vector<std::string> kept;  // what the others point to
  std::vector<png_text> texts;

  explicit Texts(const std::vector<PngText>& from) {
    kept.reserve(2 * from.size());  // none may move
    for (const PngText& text : from) {
      char* key = kept.emplace_back(text.keyword).data();
      std::string& value = kept.emplace_back(text.text);
      png_text out{};
      out.compression = text.isUtf8 ? PNG_ITXT_COMPRESSION_NONE : PNG_TEXT_COMPRESSION_NONE;
      out.key = key;
      out.text = value.data();
      (text.isUtf8 ? out.itxt_length : out.text_length) = value.size();
      static char none[] = "";
      out.lang = out.lang_key = none;
      texts.push_back(out);
    }
  }
};

template <class RowAt>
void WriteFile(Writer::Head head, const Metadata& metadata, RowAt rowAt, void (*order)(png_structp),
               Bytes* file) {
  Texts texts(PngTextsOf(metadata));
  head.profile = metadata.Find("icc");
  head.calibration = CalibrationOf(metadata);
  const std::vector<uint8_t> exif = ExifFor(metadata, head.resolution, kPngExifTexts);
  head.exif = exif;
  head.texts = texts.texts;
  Writer writer(file);
  if (!writer.Write(head, rowAt, order))
    NotWritten(file->problem() != nullptr ? file->problem() : writer.message());
}

void Write(const Dib& page, const Metadata& metadata, const Options& /*options*/, Bytes* file) {
  const PageView view(page);
  std::vector<png_color> colours;
  if (!HasGreyRamp(view)) {
    for (const RGBQUAD& entry : view.palette())
      colours.push_back({entry.rgbRed, entry.rgbGreen, entry.rgbBlue});
  }
  const bool isRgb = view.bits() == 24;
  WriteFile(
      {.width = view.width(),
       .height = view.height(),
       .depth = isRgb ? 8 : view.bits(),
       .kind = isRgb             ? PNG_COLOR_TYPE_RGB
               : colours.empty() ? PNG_COLOR_TYPE_GRAY
                                 : PNG_COLOR_TYPE_PALETTE,
       .resolution = view.resolution(),
       .colours = colours.empty() ? nullptr : colours.data(),
       .colourCount = static_cast<int>(colours.size())},
      FittingProfile(metadata, view), [&view](int y) { return view.PageRow(y); },
      isRgb ? png_set_bgr : nullptr, file);
}

Raw ReadRaw(Bytes* file, uint64_t /*place*/, const Reading& reading, Metadata* metadata) {
  Reader reader(file);
  if (!reader.ReadHead()) reader.Fail();
  const png_structp png = reader.png();
  Tell(OriginalOf(reader), metadata);
  metadata->Remove("reduced");  // the samples stay as they are
  const Beside beside = BesideOf(reader);
  Raw page;
  page.resolution = ReadResolution(reader);
  if (!reader.AskForSamples()) reader.Fail();
  const uint64_t width = png_get_image_width(png, reader.info());
  const uint64_t height = png_get_image_height(png, reader.info());
  CheckSize(static_cast<int64_t>(width), static_cast<int64_t>(height), 1);
  reading.CheckPixels(static_cast<int64_t>(width), static_cast<int64_t>(height));
  const uint64_t bytes = png_get_rowbytes(png, reader.info()) * height;
  if (bytes / kHighestRatio > file->size()) {
    CannotHold(file->size(), static_cast<int64_t>(width), static_cast<int64_t>(height));
  }
  reading.CheckBytes(bytes);
  page.width = static_cast<int32_t>(width);
  page.height = static_cast<int32_t>(height);
  page.bits = png_get_bit_depth(png, reader.info());
  page.samples = png_get_channels(png, reader.info());
  page.photometric = page.samples >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
  if (page.samples % 2 == 0) page.extras = {EXTRASAMPLE_UNASSALPHA};
  if (page.rowBytes() != png_get_rowbytes(png, reader.info())) Damaged("");
  page.bytes.resize(page.rowBytes() * height);
  const bool isRead = reader.ReadRows(
      page.height, [&page](int y) { return page.Row(y); }, reading);
  reading.CheckTime();
  if (!isRead) reader.Fail();
  ReadMetadata(reader, beside, metadata);
  return page;
}

bool HoldsRaw(const Raw& page) {
  const size_t colours = page.photometric == PHOTOMETRIC_RGB ? 3 : 1;
  return (page.bits == 8 || page.bits == 16) && page.sampleFormat == SAMPLEFORMAT_UINT &&
         (page.photometric == PHOTOMETRIC_RGB || page.photometric == PHOTOMETRIC_MINISBLACK) &&
         static_cast<size_t>(page.samples) == colours + page.extras.size() &&
         (page.extras.empty() || page.extras == std::vector<uint16_t>{EXTRASAMPLE_UNASSALPHA});
}

void WriteRaw(const Raw& page, const Metadata& metadata, const Options& /*options*/, Bytes* file) {
  const bool isSwapped = page.bits == 16 && std::endian::native == std::endian::little;
  WriteFile(
      {.width = page.width,
       .height = page.height,
       .depth = page.bits,
       .kind = (page.photometric == PHOTOMETRIC_RGB ? PNG_COLOR_MASK_COLOR : 0) |
               (page.extras.empty() ? 0 : PNG_COLOR_MASK_ALPHA),
       .resolution = page.resolution},
      metadata, [&page](int y) { return page.Row(y); }, isSwapped ? png_set_swap : nullptr, file);
}

}  // namespace

constinit const Format kPng = {.name = "png",
                               .title = "PNG",
                               .extensions = "png",
                               .signatures = kSignatures,
                               .metadata = kPngMetadata,
                               .read = Read,
                               .describe = Describe,
                               .write = Write,
                               .readRaw = ReadRaw,
                               .holdsRaw = HoldsRaw,
                               .writeRaw = WriteRaw};

}  // namespace rastrel::formats
