// PNG files through libpng. It reports errors by a jump, so the code between setjmp and the last call holds
// nothing that needs destroying.
#include <png.h>

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstring>

#include "formats/format.h"

namespace rastrel::formats {
namespace {

constexpr uint64_t kHighestRatio = 1100;  // of deflate, in bytes to a byte, rounded up
constexpr int kCompressionLevel = 4;      // half the time of the usual 6 for a fifteenth more bytes

using namespace std::string_view_literals;
constexpr std::string_view kSignatures[] = {"\x89PNG\r\n"sv};

struct Message {
  char text[120] = "";
};

void OnError(png_structp png, png_const_charp text) {
  auto& message = *static_cast<Message*>(png_get_error_ptr(png));
  std::snprintf(message.text, sizeof(message.text), "%s", text);
  png_longjmp(png, 1);
}

void OnWarning(png_structp, png_const_charp) {}

void OnRead(png_structp png, png_bytep bytes, size_t count) {
  auto& reader = *static_cast<ByteReader*>(png_get_io_ptr(png));
  if (!reader.Read({bytes, count})) png_error(png, "Read Error");
}

void OnWrite(png_structp png, png_bytep bytes, size_t count) {
  auto& writer = *static_cast<ByteWriter*>(png_get_io_ptr(png));
  if (!writer.Write({bytes, count})) png_error(png, "Write Error");
}

void OnFlush(png_structp) {}

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
    constexpr png_alloc_size_t kMostChunkBytes = 1 << 24;
    constexpr png_uint_32 kMostChunks = 16;
    png_set_chunk_malloc_max(png_, kMostChunkBytes);
    png_set_chunk_cache_max(png_, kMostChunks);
  }
  ~Reader() { png_destroy_read_struct(&png_, &info_, nullptr); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  png_structp png() const { return png_; }
  png_infop info() const { return info_; }
  [[noreturn]] void Fail() const { Damaged(message_.text); }

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
        png_color_16 white{0, 255, 255, 255, 255};
        png_set_background(png_, &white, PNG_BACKGROUND_GAMMA_SCREEN, 0, 1.0);
      }
      if ((kind & PNG_COLOR_MASK_COLOR) != 0) png_set_bgr(png_);
    }
    passes_ = png_set_interlace_handling(png_);
    png_read_update_info(png_, info_);
    return true;
  }
  bool ReadRows(const PageView& page) {
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    for (int pass = 0; pass < passes_; ++pass) {
      for (int y = 0; y < page.height(); ++y) png_read_row(png_, page.PageRow(y), nullptr);
    }
    png_read_end(png_, nullptr);
    return true;
  }

 private:
  Message message_;
  ByteReader bytes_;
  png_structp png_;
  png_infop info_;
  int passes_ = 1;
};

void ReadPalette(const Reader& reader, const PageView& page) {
  png_colorp colours = nullptr;
  png_bytep alphas = nullptr;
  int count = 0, alphaCount = 0;
  png_get_PLTE(reader.png(), reader.info(), &colours, &count);
  png_get_tRNS(reader.png(), reader.info(), &alphas, &alphaCount, nullptr);
  for (RGBQUAD& entry : page.palette()) entry = {255, 255, 255, 0};
  count = std::min(count, static_cast<int>(page.palette().size()));
  for (int i = 0; i < count; ++i) {
    const int alpha = i < alphaCount ? alphas[i] : 255;
    const auto overWhite = [alpha](int value) {
      return static_cast<uint8_t>((value * alpha + 255 * (255 - alpha) + 127) / 255);
    };
    page.palette()[static_cast<size_t>(i)] = {overWhite(colours[i].blue), overWhite(colours[i].green),
                                              overWhite(colours[i].red), 0};
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
  }
  ~Writer() { png_destroy_write_struct(&png_, &info_); }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;
  const char* message() const { return message_.text; }

  bool Write(const PageView& page, const png_color* colours) {
    if (setjmp(png_jmpbuf(png_)) != 0) return false;
    const int kind = page.bits() == 24    ? PNG_COLOR_TYPE_RGB
                     : colours == nullptr ? PNG_COLOR_TYPE_GRAY
                                          : PNG_COLOR_TYPE_PALETTE;
    png_set_IHDR(png_, info_, static_cast<png_uint_32>(page.width()), static_cast<png_uint_32>(page.height()),
                 page.bits() == 24 ? 8 : page.bits(), kind, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    if (colours != nullptr) png_set_PLTE(png_, info_, colours, static_cast<int>(page.palette().size()));
    png_set_pHYs(png_, info_, static_cast<png_uint_32>(page.resolution().x),
                 static_cast<png_uint_32>(page.resolution().y), PNG_RESOLUTION_METER);
    png_set_compression_level(png_, kCompressionLevel);
    png_write_info(png_, info_);
    if (page.bits() == 24) png_set_bgr(png_);
    for (int y = 0; y < page.height(); ++y) png_write_row(png_, page.PageRow(y));
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
  if (!reader->AskForRows()) reader->Fail();
  const int bits = png_get_bit_depth(png, reader->info()) * png_get_channels(png, reader->info());
  return {static_cast<int64_t>(width), static_cast<int64_t>(height), bits, resolution, hasPalette};
}

Dib Read(Bytes* file, uint64_t /*place*/, Metadata* /*metadata*/) {
  Reader reader(file);
  const Head head = ReadHead(&reader, file->size());
  Dib page = MakePage(head.width, head.height, head.bits, head.resolution);
  const PageView view(page);
  if (png_get_rowbytes(reader.png(), reader.info()) > view.stride()) Damaged("");
  for (int y = 0; y < view.height(); ++y) std::memset(view.PageRow(y) + view.stride() - 4, 0, 4);
  if (head.hasPalette) ReadPalette(reader, view);
  if (!reader.ReadRows(view)) reader.Fail();
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

void Write(const Dib& page, const Metadata& /*metadata*/, const Options& /*options*/, Bytes* file) {
  const PageView view(page);
  std::vector<png_color> colours;
  if (!HasGreyRamp(view)) {
    for (const RGBQUAD& entry : view.palette())
      colours.push_back({entry.rgbRed, entry.rgbGreen, entry.rgbBlue});
  }
  Writer writer(file);
  if (!writer.Write(view, colours.empty() ? nullptr : colours.data())) {
    NotWritten(file->problem() != nullptr ? file->problem() : writer.message());
  }
}

}  // namespace

constinit const Format kPng = {.name = "png",
                               .title = "PNG",
                               .extensions = "png",
                               .signatures = kSignatures,
                               .read = Read,
                               .describe = Describe,
                               .write = Write};

}  // namespace rastrel::formats
