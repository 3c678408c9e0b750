// TIFF files through libtiff. Its messages are collected, never printed.
#include <tiffio.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>

#include "formats/format.h"
#include "formats/tiff_document.h"
#include "formats/tiff_fields.h"
#include "formats/tiff_file.h"
#include "formats/tiff_metadata.h"
#include "formats/tiff_raw.h"
#include "pages/text.h"

namespace rastrel::formats {
namespace {

using namespace std::string_view_literals;
constexpr std::string_view kSignatures[] = {"II\x2A\0"sv, "MM\0\x2A"sv, "II\x2B\0"sv,
                                            "MM\0\x2B"sv};  // the last two: 64-bit offsets

constexpr OptionEntry kOptions[] = {
    {.name = "quality",
     .help = "compress grey and colour pages as JPEG of this quality; without it nothing is lost",
     .least = 1,
     .most = 100},
    {.name = "compression",
     .help =
         "g4 is for black-and-white pages, jpeg for grey and colour; the other pages take their usual one",
     .choices = "g4,lzw,deflate,jpeg,zstd,none"}};
constexpr int kJpegQuality = 90;  // where only the compression is asked for

constexpr tmsize_t kMaxTagBytes = tmsize_t{1} << 30;  // of anything that libtiff allocates for itself
constexpr uint64_t kMaxPages = 1u << 20;
constexpr size_t kStripBytes = 1u << 18;

// What libtiff had to say while one file was open: its first error.
struct Messages {
  std::string error;
};

// libtiff calls these, so nothing may be thrown: an error without room for its text is told without text.
void Collect(Messages* messages, std::string_view text) noexcept {
  if (!messages->error.empty()) return;
  while (text.ends_with('.')) text.remove_suffix(1);
  try {
    messages->error = text;
  } catch (...) {
    messages->error = "no memory";  // short enough to need none
  }
}

constexpr size_t kMostMessageBytes = 200;

int CollectError(TIFF*, void* data, const char* /*module*/, const char* format, va_list arguments) {
  char text[kMostMessageBytes];
  std::vsnprintf(text, sizeof(text), format, arguments);
  // Some of its errors say that they are none.
  if (!std::string_view(text).starts_with("Warning ")) Collect(static_cast<Messages*>(data), text);
  return 1;
}

// Fax or JPEG data that ends early or has lost its place, and JPEG strips smaller than the page, are only
// warnings to libtiff: pixels that nobody has written would be shown. So are tags that cannot be read.
int CollectWarning(TIFF*, void* data, const char* /*module*/, const char* format, va_list arguments) {
  char text[kMostMessageBytes];
  std::vsnprintf(text, sizeof(text), format, arguments);
  for (const char* const harm :
       {"remature EOF", "remature EOL", "remature end", "Line length mismatch", "lack of data",
        "Improper JPEG", "extraneous bytes", "bad Huffman code", "found marker", "IO error"}) {
    if (std::string_view(text).find(harm) != std::string_view::npos) {
      Collect(static_cast<Messages*>(data), text);
    }
  }
  return 1;
}

struct TiffCloser {
  void operator()(TIFF* file) const { TIFFClose(file); }
};
using TiffHandle = std::unique_ptr<TIFF, TiffCloser>;

class OpenOptions {
 public:
  explicit OpenOptions(Messages* messages) : options_(TIFFOpenOptionsAlloc()) {
    if (options_ == nullptr) throw std::bad_alloc();
    TIFFOpenOptionsSetMaxSingleMemAlloc(options_, kMaxTagBytes);
    TIFFOpenOptionsSetErrorHandlerExtR(options_, CollectError, messages);
    TIFFOpenOptionsSetWarningHandlerExtR(options_, CollectWarning, messages);
  }
  ~OpenOptions() { TIFFOpenOptionsFree(options_); }
  OpenOptions(const OpenOptions&) = delete;
  OpenOptions& operator=(const OpenOptions&) = delete;
  TIFFOpenOptions* get() const { return options_; }

 private:
  TIFFOpenOptions* options_;
};

TiffHandle Open(TiffFile* file, Messages* messages) {
  const OpenOptions options(messages);
  return TiffHandle(file->Open(options.get()));
}

[[noreturn]] void Damaged(const Messages& messages) { formats::Damaged(messages.error); }

// ---- reading ----------------------------------------------------------------------------------------------

struct Layout {
  uint32_t width = 0, height = 0;
  uint16_t bits = 1, samples = 1, photometric = PHOTOMETRIC_MINISWHITE, planar = PLANARCONFIG_CONTIG;
  uint16_t compression = COMPRESSION_NONE, orientation = ORIENTATION_TOPLEFT;
  uint16_t sampleFormat = SAMPLEFORMAT_UINT;
  Resolution resolution;
};

Resolution ReadResolution(TIFF* file) {
  float x = 0, y = 0;
  uint16_t unit = RESUNIT_INCH;
  if (TIFFGetField(file, TIFFTAG_XRESOLUTION, &x) == 0) return {};
  if (TIFFGetField(file, TIFFTAG_YRESOLUTION, &y) == 0) y = x;
  TIFFGetFieldDefaulted(file, TIFFTAG_RESOLUTIONUNIT, &unit);
  if (unit == RESUNIT_NONE) return {};
  const double perInch = unit == RESUNIT_CENTIMETER ? 2.54 : 1;
  return {PixelsPerMetre(x * perInch), PixelsPerMetre(y * perInch)};
}

Layout ReadLayout(TIFF* file) {
  Layout layout;
  TIFFGetField(file, TIFFTAG_IMAGEWIDTH, &layout.width);
  TIFFGetField(file, TIFFTAG_IMAGELENGTH, &layout.height);
  TIFFGetFieldDefaulted(file, TIFFTAG_BITSPERSAMPLE, &layout.bits);
  TIFFGetFieldDefaulted(file, TIFFTAG_SAMPLESPERPIXEL, &layout.samples);
  TIFFGetFieldDefaulted(file, TIFFTAG_PLANARCONFIG, &layout.planar);
  TIFFGetFieldDefaulted(file, TIFFTAG_ORIENTATION, &layout.orientation);
  TIFFGetFieldDefaulted(file, TIFFTAG_COMPRESSION, &layout.compression);
  TIFFGetFieldDefaulted(file, TIFFTAG_SAMPLEFORMAT, &layout.sampleFormat);
  if (TIFFGetField(file, TIFFTAG_PHOTOMETRIC, &layout.photometric) == 0 && layout.samples >= 3) {
    layout.photometric = PHOTOMETRIC_RGB;
  }
  layout.resolution = ReadResolution(file);
  return layout;
}

// A lying size is refused before memory is asked for.
void CheckClaim(TIFF* file, const Layout& layout) {
  const bool isTiled = TIFFIsTiled(file) != 0;
  CheckTiffClaim(static_cast<uint64_t>(TIFFGetSizeProc(file)(TIFFClientdata(file))),
                 {.width = layout.width,
                  .height = layout.height,
                  .rowBytes = (uint64_t{layout.width} * layout.bits * layout.samples + 7) / 8,
                  .compression = layout.compression,
                  // A tile may be larger than the page.
                  .tileBytes = isTiled ? TIFFTileSize64(file) : 0,
                  .tiles = isTiled ? TIFFNumberOfTiles(file) : 0});
}

// Numbers without a sign.
bool IsPlainNumber(const Layout& layout) {
  return layout.sampleFormat == SAMPLEFORMAT_UINT || layout.sampleFormat == SAMPLEFORMAT_VOID;
}

bool IsPlainIndexed(const Layout& layout) {
  return IsPlainNumber(layout) && layout.samples == 1 &&
         (layout.bits == 1 || layout.bits == 4 || layout.bits == 8) &&
         layout.photometric <= PHOTOMETRIC_PALETTE && layout.photometric != PHOTOMETRIC_RGB;
}

bool IsPlainColour(const Layout& layout) {
  return IsPlainNumber(layout) && layout.samples == 3 && layout.bits == 8 &&
         layout.planar == PLANARCONFIG_CONTIG &&
         (layout.photometric == PHOTOMETRIC_RGB ||
          (layout.photometric == PHOTOMETRIC_YCBCR && layout.compression == COMPRESSION_JPEG));
}

void ReadColourMap(TIFF* file, const PageView& page) {
  uint16_t *red = nullptr, *green = nullptr, *blue = nullptr;
  if (TIFFGetField(file, TIFFTAG_COLORMAP, &red, &green, &blue) == 0)
    throw PageError("has no colour table", ErrDamagedFile);
  const size_t colours = page.palette().size();
  // Some writers store bytes where 16 bits are due.
  bool isWide = false;
  for (size_t i = 0; i < colours; ++i) isWide = isWide || red[i] > 255 || green[i] > 255 || blue[i] > 255;
  const int shift = isWide ? 8 : 0;
  for (size_t i = 0; i < colours; ++i) {
    page.palette()[i] = {static_cast<uint8_t>(blue[i] >> shift), static_cast<uint8_t>(green[i] >> shift),
                         static_cast<uint8_t>(red[i] >> shift), 0};
  }
}

// Rows straight into the page, at the depth that the file has.
Dib ReadRows(TIFF* file, const Layout& layout, const Reading& reading, const Messages& messages) {
  const int bits = layout.samples == 3 ? 24 : layout.bits;
  Dib page = reading.NewPage(layout.width, layout.height, bits, layout.resolution);
  const PageView view(page);
  if (static_cast<size_t>(TIFFScanlineSize(file)) > view.stride()) Damaged(messages);
  for (uint32_t y = 0; y < layout.height; ++y) {
    reading.CheckTime();
    uint8_t* row = view.PageRow(static_cast<int>(y));
    std::memset(row, 0, view.stride());  // a decoder that stops early shows nothing of the memory's past
    if (TIFFReadScanline(file, row, y) < 0 || !messages.error.empty()) Damaged(messages);
    if (bits == 24) {
      for (uint32_t x = 0; x < layout.width; ++x) std::swap(row[3 * size_t{x}], row[3 * size_t{x} + 2]);
    }
  }
  if (bits <= 8 && layout.photometric == PHOTOMETRIC_PALETTE) ReadColourMap(file, view);
  if (bits <= 8 && layout.photometric == PHOTOMETRIC_MINISWHITE) {
    for (uint8_t& byte : view.pixels()) byte = static_cast<uint8_t>(~byte);
  }
  UseGreyRamp(view);
  return page;
}

// Pages of subsampled colours and the like, as libtiff turns them into red, green, blue and alpha; alpha goes
// over white.
Dib ReadThroughRgba(TIFF* file, const Layout& layout, const Reading& reading, const Messages& messages) {
  char reason[1024];
  if (TIFFRGBAImageOK(file, reason) == 0) throw PageError(Text("cannot be read: ", reason), ErrUnsupported);
  Dib page = reading.NewPage(layout.width, layout.height, 24, layout.resolution,
                             uint64_t{4} * layout.width * layout.height);
  Dib raster = MakePage(layout.width, layout.height, 32, {});  // the pixel words of libtiff
  const PageView words(raster);
  const PageView view(page);
  auto* first = reinterpret_cast<uint32_t*>(words.pixels().data());
  std::memset(words.pixels().data(), 0, words.pixels().size());  // as in ReadRows
  if (TIFFReadRGBAImageOriented(file, layout.width, layout.height, first, layout.orientation, 1) == 0 ||
      !messages.error.empty()) {
    Damaged(messages);
  }
  for (uint32_t y = 0; y < layout.height; ++y) {
    const uint32_t* in = first + size_t{y} * layout.width;
    uint8_t* out = view.PageRow(static_cast<int>(y));
    std::memset(out + view.stride() - 4, 0, 4);
    for (uint32_t x = 0; x < layout.width; ++x, ++in, out += 3) {
      const uint32_t paper = 255 - TIFFGetA(*in);  // the colours are already multiplied by alpha
      out[0] = static_cast<uint8_t>(std::min<uint32_t>(255, TIFFGetB(*in) + paper));
      out[1] = static_cast<uint8_t>(std::min<uint32_t>(255, TIFFGetG(*in) + paper));
      out[2] = static_cast<uint8_t>(std::min<uint32_t>(255, TIFFGetR(*in) + paper));
    }
  }
  const bool isGrey =
      layout.photometric == PHOTOMETRIC_MINISWHITE || layout.photometric == PHOTOMETRIC_MINISBLACK;
  return isGrey ? ToGrey(page) : std::move(page);
}

// ---- writing ----------------------------------------------------------------------------------------------

[[noreturn]] void NotWritten(const Messages& messages) { formats::NotWritten(messages.error); }

// How a page stands in the file.
struct Form {
  uint16_t bits, samples, photometric, compression;
};

// What was asked for; 0 for the usual one.
uint16_t CompressionOf(const Options& options) {
  constexpr std::pair<std::string_view, uint16_t> kNames[] = {
      {"g4", COMPRESSION_CCITTFAX4}, {"lzw", COMPRESSION_LZW},   {"deflate", COMPRESSION_ADOBE_DEFLATE},
      {"jpeg", COMPRESSION_JPEG},    {"zstd", COMPRESSION_ZSTD}, {"none", COMPRESSION_NONE}};
  const std::string_view wanted =
      options.Choice("compression", options.Number("quality", 0) > 0 ? "jpeg" : "");
  for (const auto& [name, number] : kNames) {
    if (name != wanted) continue;
    if (TIFFIsCODECConfigured(number) == 0) {
      throw PageError(Text("cannot be written: libtiff has no ", name, " here"), ErrUnsupported);
    }
    return number;
  }
  return 0;
}

// What is wanted where it is for pages of all kinds, else the usual one.
uint16_t ForAll(uint16_t wanted, uint16_t usual) {
  return wanted == 0 || wanted == COMPRESSION_CCITTFAX4 || wanted == COMPRESSION_JPEG ? usual : wanted;
}

Form FormOf(const PageView& page, uint16_t wanted) {
  const bool isGrey = HasGreyRamp(page);
  if (page.bits() == 1 && isGrey)
    return {1, 1, PHOTOMETRIC_MINISWHITE, ForAll(wanted, COMPRESSION_CCITTFAX4)};
  const uint16_t lossless = ForAll(wanted, COMPRESSION_ADOBE_DEFLATE);
  const uint16_t lossy = wanted == COMPRESSION_JPEG ? wanted : lossless;
  if (page.bits() == 24) {
    const uint16_t photometric = lossy == COMPRESSION_JPEG ? PHOTOMETRIC_YCBCR : PHOTOMETRIC_RGB;
    return {8, 3, photometric, lossy};
  }
  const auto bits = static_cast<uint16_t>(page.bits());
  if (!isGrey) return {bits, 1, PHOTOMETRIC_PALETTE, lossless};
  return {bits, 1, PHOTOMETRIC_MINISBLACK, bits == 8 ? lossy : lossless};
}

void SetColourMap(TIFF* file, const PageView& page) {
  std::vector<uint16_t> maps[3];
  for (const RGBQUAD& entry : page.palette()) {
    maps[0].push_back(static_cast<uint16_t>(entry.rgbRed * 257));
    maps[1].push_back(static_cast<uint16_t>(entry.rgbGreen * 257));
    maps[2].push_back(static_cast<uint16_t>(entry.rgbBlue * 257));
  }
  TIFFSetField(file, TIFFTAG_COLORMAP, maps[0].data(), maps[1].data(), maps[2].data());
}

// How every page lies in its file.
void SetLie(TIFF* file, Resolution resolution) {
  TIFFSetField(file, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(file, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
  if (resolution.x <= 0 || resolution.y <= 0) return;
  TIFFSetField(file, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
  TIFFSetField(file, TIFFTAG_XRESOLUTION, DotsPerInch(resolution.x));
  TIFFSetField(file, TIFFTAG_YRESOLUTION, DotsPerInch(resolution.y));
}

uint32_t RowsPerStrip(int64_t height, size_t rowBytes) {
  const size_t rows = std::max<size_t>(16, kStripBytes / std::max<size_t>(rowBytes, 1) / 16 * 16);
  return static_cast<uint32_t>(std::min<uint64_t>(static_cast<uint64_t>(height), rows));
}

bool HasPredictor(uint16_t compression) {
  return compression == COMPRESSION_ADOBE_DEFLATE || compression == COMPRESSION_LZW ||
         compression == COMPRESSION_ZSTD;
}

void SetForm(TIFF* file, const PageView& page, const Form& form, int jpegQuality) {
  TIFFSetField(file, TIFFTAG_IMAGEWIDTH, page.width());
  TIFFSetField(file, TIFFTAG_IMAGELENGTH, page.height());
  TIFFSetField(file, TIFFTAG_BITSPERSAMPLE, form.bits);
  TIFFSetField(file, TIFFTAG_SAMPLESPERPIXEL, form.samples);
  TIFFSetField(file, TIFFTAG_COMPRESSION, form.compression);
  TIFFSetField(file, TIFFTAG_PHOTOMETRIC, form.photometric);
  SetLie(file, page.resolution());
  if (form.photometric == PHOTOMETRIC_PALETTE) SetColourMap(file, page);
  // Readers take a fax page in one strip best; others are split so that none is large.
  TIFFSetField(file, TIFFTAG_ROWSPERSTRIP,
               form.compression == COMPRESSION_CCITTFAX4 ? static_cast<uint32_t>(page.height())
                                                         : RowsPerStrip(page.height(), page.stride()));
  if (form.compression == COMPRESSION_JPEG) {
    TIFFSetField(file, TIFFTAG_JPEGQUALITY, jpegQuality);
    TIFFSetField(file, TIFFTAG_JPEGTABLESMODE, 0);  // each strip complete in itself
    if (form.samples == 3) TIFFSetField(file, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
  } else if (HasPredictor(form.compression) && form.bits == 8 && form.photometric != PHOTOMETRIC_PALETTE) {
    TIFFSetField(file, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
  }
}

// A page row as the file has it.
void CopyRow(const PageView& page, int y, const Form& form, size_t bytes, uint8_t* out) {
  const uint8_t* in = page.PageRow(y);
  if (page.bits() == 24) {
    for (size_t x = 0; x + 2 < bytes; x += 3) {
      out[x] = in[x + 2];
      out[x + 1] = in[x + 1];
      out[x + 2] = in[x];
    }
    return;
  }
  const uint8_t flip = form.photometric == PHOTOMETRIC_MINISWHITE ? 0xFF : 0;
  std::transform(in, in + bytes, out, [flip](uint8_t byte) { return static_cast<uint8_t>(byte ^ flip); });
}

// A strip at a time: libtiff has a faster deflate for that than for rows.
bool WriteStrips(TIFF* file, const PageView& page, const Form& form) {
  uint32_t rowsPerStrip = 0;
  TIFFGetField(file, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
  const auto rowBytes = static_cast<size_t>(TIFFScanlineSize(file));
  std::vector<uint8_t> strip(rowBytes * rowsPerStrip);
  const int rows = static_cast<int>(rowsPerStrip);
  for (int first = 0; first < page.height(); first += rows) {
    const int last = std::min(page.height(), first + rows);
    uint8_t* out = strip.data();
    for (int y = first; y < last; ++y, out += rowBytes) CopyRow(page, y, form, rowBytes, out);
    const auto size = static_cast<tmsize_t>(out - strip.data());
    if (TIFFWriteEncodedStrip(file, static_cast<uint32_t>(first / rows), strip.data(), size) < 0) {
      return false;
    }
  }
  return true;
}

// The one strip of a fax page, without a copy of the page and a buffer of libtiff's that would hold another.
bool WriteFaxRows(TIFF* file, const PageView& page, const Form& form) {
  constexpr tmsize_t kBufferBytes = 1 << 16;
  if (TIFFWriteBufferSetup(file, nullptr, kBufferBytes) == 0) return false;
  std::vector<uint8_t> row(static_cast<size_t>(TIFFScanlineSize(file)));
  for (int y = 0; y < page.height(); ++y) {
    CopyRow(page, y, form, row.size(), row.data());
    if (TIFFWriteScanline(file, row.data(), static_cast<uint32_t>(y), 0) < 0) return false;
  }
  return true;
}

// A file that is read, with one of its pages shown as the only one.
class OpenTiff {
 public:
  // `directory`: of the page; 0 for the first, with those after it.
  explicit OpenTiff(Bytes* bytes, uint64_t directory = 0)
      : page_(directory != 0 ? std::make_unique<TiffPageBytes>(bytes, directory) : nullptr),
        file_(page_ ? page_.get() : bytes, "rm") {
    tiff_ = Open(&file_, &messages_);
    if (!tiff_) Damaged(messages_);
  }
  TIFF* tiff() const { return tiff_.get(); }
  const Messages& messages() const { return messages_; }

 private:
  Messages messages_;
  std::unique_ptr<TiffPageBytes> page_;
  TiffFile file_;
  TiffHandle tiff_;
};

// Whether the file ends before the pointer to the next page, which libtiff takes for the end of the chain.
bool IsCutAfter(Bytes* bytes, uint64_t directory) {
  try {
    TiffReader(bytes).Next(directory);
    return false;
  } catch (const PageError&) {
    return true;
  }
}

PageList List(Bytes* bytes) {
  const OpenTiff file(bytes);
  PageList pages;
  uint64_t last = 0, first = TIFFCurrentDirOffset(file.tiff());
  do {
    last = TIFFCurrentDirOffset(file.tiff());
    uint32_t kind = 0;
    TIFFGetField(file.tiff(), TIFFTAG_SUBFILETYPE, &kind);
    // Thumbnails and masks are no pages.
    if ((kind & (FILETYPE_REDUCEDIMAGE | FILETYPE_MASK)) == 0) {
      pages.places.push_back(last);
    }
  } while (pages.places.size() < kMaxPages && TIFFReadDirectory(file.tiff()) != 0);
  if (!file.messages().error.empty()) pages.damage = "is damaged: " + file.messages().error;
  if (pages.damage.empty() && IsCutAfter(bytes, last)) {
    pages.damage = "is damaged: it ends where the next page is told";
  }
  if (pages.places.empty() && pages.damage.empty()) pages.places.push_back(first);  // better than none
  if (pages.places.empty()) Damaged(file.messages());
  return pages;
}

// Whether rows go straight into a page; others go through libtiff's colours.
bool IsPlain(TIFF* file, const Layout& layout) {
  return TIFFIsTiled(file) == 0 && (IsPlainIndexed(layout) || IsPlainColour(layout));
}

std::string SpaceOf(const Layout& layout) {
  switch (layout.photometric) {
    case PHOTOMETRIC_MINISWHITE:
    case PHOTOMETRIC_MINISBLACK:
      return "grey";
    case PHOTOMETRIC_RGB:
      return "RGB";
    case PHOTOMETRIC_PALETTE:
      return "palette";
    case PHOTOMETRIC_SEPARATED:
      return "CMYK";
    case PHOTOMETRIC_YCBCR:
      return "YCbCr";
    case PHOTOMETRIC_CIELAB:
    case PHOTOMETRIC_ICCLAB:
    case PHOTOMETRIC_ITULAB:
      return "Lab";
    default:
      return Text("photometric ", layout.photometric);
  }
}

std::string CompressionOf(const Layout& layout) {
  if (layout.compression == COMPRESSION_NONE) return "none";
  const TIFFCodec* codec = TIFFFindCODEC(layout.compression);
  return codec != nullptr ? codec->name : Text("compression ", layout.compression);
}

// `isRaw`: the samples stay as they are.
void TellOriginal(TIFF* file, const Layout& layout, bool isRaw, Metadata* metadata) {
  uint16_t extras = 0;
  uint16_t* kinds = nullptr;
  TIFFGetFieldDefaulted(file, TIFFTAG_EXTRASAMPLES, &extras, &kinds);
  const std::string space = SpaceOf(layout);
  const bool hasAlpha = extras > 0 && kinds != nullptr && kinds[0] != EXTRASAMPLE_UNSPECIFIED;
  Tell({.space = space,
        .bits = layout.bits,
        .compression = CompressionOf(layout),
        .isFloat = layout.sampleFormat == SAMPLEFORMAT_IEEEFP,
        .isSigned = layout.sampleFormat == SAMPLEFORMAT_INT && space != "Lab",
        .hasAlpha = hasAlpha,
        .isMixed = space == "CMYK" || space == "Lab",
        .others = extras - (hasAlpha ? 1 : 0)},
       metadata);
  if (isRaw) metadata->Remove("reduced");
  ReadMetadata(file, metadata);
  float across = 0, down = 0;
  uint16_t unit = RESUNIT_INCH;
  TIFFGetFieldDefaulted(file, TIFFTAG_RESOLUTIONUNIT, &unit);
  if (unit == RESUNIT_NONE && TIFFGetField(file, TIFFTAG_XRESOLUTION, &across) != 0 &&
      TIFFGetField(file, TIFFTAG_YRESOLUTION, &down) != 0) {
    TellProportions(across, down, metadata);
  }
}

void ReadExtras(Bytes* bytes, TIFF* file, const Layout& layout, Metadata* metadata) {
  ReadTiffExtras(
      bytes, TIFFCurrentDirOffset(file), SpaceOf(layout) == "Lab",
      [file](uint16_t tag) {
        const TIFFField* known = TIFFFieldWithTag(file, tag);
        return known != nullptr ? std::string(TIFFFieldName(known)) : Text("tag ", tag);
      },
      metadata);
}

Raw ReadRawPage(const OpenTiff& file, const Layout& layout, const Reading& reading) {
  Raw page;
  page.resolution = layout.resolution;
  if (!ReadRawSamples(file.tiff(), reading, &page) || !file.messages().error.empty())
    Damaged(file.messages());
  return page;
}

Dib Read(Bytes* bytes, uint64_t directory, const Reading& reading, Metadata* metadata) {
  const OpenTiff file(bytes, directory);
  const Layout layout = ReadLayout(file.tiff());
  if (metadata != nullptr) {
    TellOriginal(file.tiff(), layout, /*isRaw=*/false, metadata);
    ReadExtras(bytes, file.tiff(), layout, metadata);
  }
  CheckClaim(file.tiff(), layout);
  Dib page;
  if (IsPlain(file.tiff(), layout)) {
    if (IsPlainColour(layout) && layout.photometric == PHOTOMETRIC_YCBCR) {
      TIFFSetField(file.tiff(), TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
    }
    page = ReadRows(file.tiff(), layout, reading, file.messages());
  } else if (HasRawSamples(file.tiff())) {
    const Raw raw = ReadRawPage(file, layout, reading);
    reading.CheckBytes(raw.bytes.size() +
                       StrideOf(raw.width, ReducedBits(raw)) * static_cast<uint64_t>(raw.height));
    uint32_t count = 0;
    const uint8_t* profile = nullptr;
    if (TIFFGetField(file.tiff(), TIFFTAG_ICCPROFILE, &count, &profile) == 0) count = 0;
    page = Reduced(raw, {profile, count});
    // It has done its work.
    if (ReducedBits(raw) == 24 && raw.photometric != PHOTOMETRIC_RGB && metadata != nullptr)
      metadata->Remove("icc");
  } else {
    page = ReadThroughRgba(file.tiff(), layout, reading, file.messages());
  }
  return Upright(std::move(page), layout.orientation);
}

Raw ReadRaw(Bytes* bytes, uint64_t directory, const Reading& reading, Metadata* metadata) {
  const OpenTiff file(bytes, directory);
  const Layout layout = ReadLayout(file.tiff());
  CheckClaim(file.tiff(), layout);
  if (!HasRawSamples(file.tiff())) {
    throw PageError("has no samples of its own for each pixel", ErrUnsupported);
  }
  TellOriginal(file.tiff(), layout, /*isRaw=*/true, metadata);
  ReadExtras(bytes, file.tiff(), layout, metadata);
  return Upright(ReadRawPage(file, layout, reading), layout.orientation);
}

// The depth of the page that Read gives, and its colour table.
int BitsToBe(TIFF* file, const Layout& layout) {
  if (IsPlain(file, layout)) return layout.samples == 3 ? 24 : layout.bits;
  const bool isGrey =
      layout.photometric == PHOTOMETRIC_MINISWHITE || layout.photometric == PHOTOMETRIC_MINISBLACK;
  if (!HasRawSamples(file)) return isGrey ? 8 : 24;
  Raw fields;
  fields.bits = layout.bits;
  fields.samples = layout.samples;
  fields.photometric = layout.photometric;
  return ReducedBits(fields);
}

PageInfo Describe(Bytes* bytes, uint64_t directory) {
  const OpenTiff file(bytes, directory);
  const Layout layout = ReadLayout(file.tiff());
  CheckClaim(file.tiff(), layout);
  const int bits = BitsToBe(file.tiff(), layout);
  return InfoFromHeader(layout.width, layout.height, bits, layout.resolution, layout.orientation,
                        [&](const PageView& page) {
                          if (bits == layout.bits && layout.photometric == PHOTOMETRIC_PALETTE) {
                            ReadColourMap(file.tiff(), page);
                          }
                        });
}

// A file of one page alone: `write` sets fields and writes rows, and returns whether it could.
template <class WritePage>
std::vector<uint8_t> EncodeAlone(uint64_t pixelBytes, const Metadata& metadata, WritePage write) {
  // What compression makes larger is still within it.
  constexpr uint64_t kMostPlainBytes = uint64_t{7} << 29;
  MemoryBytes bytes;
  TiffFile memory(&bytes, pixelBytes > kMostPlainBytes ? "wl8" : "wl");
  Messages messages;
  TiffHandle file = Open(&memory, &messages);
  const auto fail = [&] {
    if (bytes.problem() != nullptr) throw PageError(bytes.problem(), ErrNoMemory);
    NotWritten(messages);
  };
  if (!file || !WriteMetadata(file.get(), metadata) || !write(file.get()) || TIFFFlush(file.get()) == 0 ||
      !messages.error.empty()) {
    fail();
  }
  file.reset();
  WriteTiffExtras(&bytes, metadata);
  return bytes.Take();
}

std::vector<uint8_t> Encode(const Dib& page, const Metadata& metadata, const Options& options) {
  const PageView view(page);
  const Form form = FormOf(view, CompressionOf(options));
  const auto quality = static_cast<int>(options.Number("quality", kJpegQuality));
  return EncodeAlone(view.pixels().size(), FittingProfile(metadata, view), [&](TIFF* file) {
    SetForm(file, view, form, quality);
    return form.compression == COMPRESSION_CCITTFAX4 ? WriteFaxRows(file, view, form)
                                                     : WriteStrips(file, view, form);
  });
}

bool HoldsRaw(const Raw&) { return true; }

// Nothing is lost, whatever is asked for: what is no page of 1 bit or of 8-bit greys and colours takes the
// usual compression instead of those that are for such pages.
std::vector<uint8_t> EncodeRaw(const Raw& page, const Metadata& metadata, const Options& options) {
  const uint16_t compression = ForAll(CompressionOf(options), COMPRESSION_ADOBE_DEFLATE);
  return EncodeAlone(page.bytes.size(), metadata, [&](TIFF* file) {
    SetRawFields(file, page);
    TIFFSetField(file, TIFFTAG_COMPRESSION, compression);
    SetLie(file, page.resolution);
    TIFFSetField(file, TIFFTAG_ROWSPERSTRIP, RowsPerStrip(page.height, page.rowBytes()));
    const bool isWhole = page.bits == 8 || page.bits == 16 || page.bits == 32;
    if (HasPredictor(compression) && isWhole && page.sampleFormat != SAMPLEFORMAT_IEEEFP &&
        page.photometric != PHOTOMETRIC_PALETTE) {
      TIFFSetField(file, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    }
    for (int32_t y = 0; y < page.height; ++y) {
      std::vector<uint8_t> row = PackedRow(page, y);
      if (TIFFWriteScanline(file, row.data(), static_cast<uint32_t>(y), 0) < 0) return false;
    }
    return true;
  });
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
                                .create = Create,
                                .readRaw = ReadRaw,
                                .holdsRaw = HoldsRaw,
                                .encodeRaw = EncodeRaw};

}  // namespace rastrel::formats
