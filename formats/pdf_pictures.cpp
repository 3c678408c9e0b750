#include "formats/pdf_pictures.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <optional>

#include "formats/exif.h"
#include "formats/general.h"
#include "formats/system.h"
#include "formats/tiff_directory.h"
#include "pages/text.h"

namespace rastrel::formats {
namespace {

int SamplesOf(PdfSpace space) {
  switch (space) {
    case PdfSpace::kRgb:
      return 3;
    case PdfSpace::kCmyk:
      return 4;
    default:
      return 1;
  }
}

uint64_t RowBytes(const PdfPicture& picture) {
  return (static_cast<uint64_t>(picture.width) *
              static_cast<uint64_t>(picture.bits * SamplesOf(picture.space)) +
          7) /
         8;
}

// ---- plain samples ----------------------------------------------------------------------------------------

// The colours of samples of up to 8 bits.
std::vector<RGBQUAD> ColoursOf(const PdfPicture& picture) {
  const size_t count = size_t{1} << std::min(picture.bits, 8);
  std::vector<RGBQUAD> colours;
  for (size_t i = 0; i < count; ++i) {
    if (picture.space == PdfSpace::kIndexed) {
      const size_t entry = 3 * std::min(i, picture.palette.size() / 3 - 1);  // beyond the table: its last
      colours.push_back({picture.palette[entry + 2], picture.palette[entry + 1], picture.palette[entry], 0});
    } else {
      const auto grey = static_cast<uint8_t>((picture.isInverted ? count - 1 - i : i) * 255 / (count - 1));
      colours.push_back({grey, grey, grey, 0});
    }
  }
  return colours;
}

void SetColours(const PageView& page, const PdfPicture& picture) {
  const std::vector<RGBQUAD> colours = ColoursOf(picture);
  std::copy_n(colours.begin(), std::min(colours.size(), page.palette().size()), page.palette().begin());
  UseGreyRamp(page);
}

void CheckKnown(const PdfPicture& picture) {
  const int bits = picture.bits;
  const bool isKnownDepth = bits == 1 || bits == 2 || bits == 4 || bits == 8 || bits == 16;
  if (!isKnownDepth)
    throw PageError(Text("is damaged: its picture has samples of ", bits, " bits"), ErrDamagedFile);
  if (picture.space == PdfSpace::kOther)
    throw NotReadAsStored("its picture's colours are not grey, RGB or CMYK");
  const bool isIndexed = picture.space == PdfSpace::kIndexed;
  if (isIndexed && (bits > 8 || picture.isInverted))
    throw NotReadAsStored("its picture's palette is unusual");
  if (SamplesOf(picture.space) > 1 && bits < 8)
    throw NotReadAsStored("its picture has few bits for a colour");
}

// A row as the file has it to one of a page of 4, 8 or 24 bits.
void CopyRow(const PdfPicture& picture, const uint8_t* in, uint8_t* out) {
  const auto width = static_cast<size_t>(picture.width);
  const size_t step = picture.bits == 16 ? 2 : 1;  // the high byte stands first
  const uint8_t flip = picture.isInverted ? 0xFF : 0;
  switch (picture.space) {
    case PdfSpace::kRgb:
      for (size_t x = 0; x < width; ++x, in += 3 * step, out += 3) {
        for (size_t i = 0; i < 3; ++i) out[2 - i] = static_cast<uint8_t>(in[i * step] ^ flip);
      }
      break;
    case PdfSpace::kCmyk:
      for (size_t x = 0; x < width; ++x, in += 4 * step, out += 3) {
        const unsigned light = 255u - static_cast<uint8_t>(in[3 * step] ^ flip);
        for (size_t i = 0; i < 3; ++i)
          out[2 - i] = static_cast<uint8_t>((255u - static_cast<uint8_t>(in[i * step] ^ flip)) * light / 255);
      }
      break;
    default:
      if (picture.bits == 16) {
        for (size_t x = 0; x < width; ++x) out[x] = in[2 * x];
      } else if (picture.bits == 2) {  // to 4
        for (size_t x = 0; x < width; ++x) {
          const unsigned sample = in[x / 4] >> (6 - x % 4 * 2) & 3u;
          out[x / 2] = static_cast<uint8_t>(x % 2 == 0 ? sample << 4 : out[x / 2] | sample);
        }
      } else {
        std::memcpy(out, in, static_cast<size_t>(RowBytes(picture)));
      }
  }
}

Dib FromSamples(const PdfPicture& picture, std::span<const uint8_t> bytes, const Reading& reading) {
  const auto rowBytes = static_cast<size_t>(RowBytes(picture));
  if (bytes.size() / rowBytes < static_cast<uint64_t>(picture.height)) {
    Damaged(Text(bytes.size(), " bytes are too few for ", picture.width, " x ", picture.height, " pixels"));
  }
  const bool hasTable = SamplesOf(picture.space) == 1;
  const int bits = !hasTable ? 24 : picture.bits == 16 ? 8 : picture.bits == 2 ? 4 : picture.bits;
  Dib page = reading.NewPage(picture.width, picture.height, bits, {}, bytes.size());
  const PageView view(page);
  for (int y = 0; y < view.height(); ++y) {
    uint8_t* row = view.PageRow(y);
    std::memset(row + view.stride() - 4, 0, 4);
    CopyRow(picture, bytes.data() + rowBytes * static_cast<size_t>(y), row);
  }
  if (hasTable) SetColours(view, picture);
  return page;
}

// ---- fax --------------------------------------------------------------------------------------------------

// A TIFF file around the bytes, of which libtiff then makes a page without unpacking it.
Dib FromFax(const PdfPicture& picture, std::span<const uint8_t> bytes, const Reading& reading) {
  if (picture.faxColumns != picture.width) throw NotReadAsStored("its picture's rows are cut");
  const bool isGroup4 = picture.faxK < 0;
  if (picture.isFaxByteAligned && (isGroup4 || picture.faxK > 0))
    throw NotReadAsStored("its fax rows begin at bytes");
  constexpr uint32_t kRle = 2, kGroup3 = 3, kGroup4 = 4, kBlackIsZero = 1;
  const uint32_t compression = isGroup4                                              ? kGroup4
                               : picture.isFaxByteAligned && !picture.hasFaxLineEnds ? kRle
                                                                                     : kGroup3;
  MemoryBytes file;
  constexpr uint8_t kHeader[] = {'I', 'I', 42, 0, 0, 0, 0, 0};
  TiffWriter writer(&file, 0, /*isBig=*/false);
  writer.Add(kHeader);
  const uint64_t start = writer.Add(bytes);
  const uint64_t height = static_cast<uint64_t>(picture.height);
  const TiffReader::Tree tree = {
      {TiffNumber(256, static_cast<uint64_t>(picture.width)), TiffNumber(257, height), TiffNumber(258, 1),
       TiffNumber(259, compression), TiffNumber(262, kBlackIsZero), TiffNumber(kTiffStripOffsets, start),
       TiffNumber(277, 1), TiffNumber(278, height), TiffNumber(kTiffStripByteCounts, bytes.size()),
       TiffNumber(292, picture.faxK > 0 ? 1 : 0)},
      {}};
  const uint64_t directory = writer.Add(tree).at;
  writer.Point(4, directory);
  // Black runs are 1 in this page; in the picture they are 0 unless it says otherwise.
  Dib page = kTiff.read(&file, directory, reading, nullptr);
  const PageView view(page);
  const std::vector<RGBQUAD> colours = ColoursOf(picture);
  view.palette()[0] = colours[picture.isFaxBlack1 ? 0 : 1];
  view.palette()[1] = colours[picture.isFaxBlack1 ? 1 : 0];
  UseGreyRamp(view);
  return page;
}

// ---- programs' pictures -----------------------------------------------------------------------------------

// The word and the numbers that stand before the pixels of a PNM file.
struct PnmHead {
  int64_t width = 0, height = 0;
  size_t bytes = 0;
};
std::optional<PnmHead> HeadOf(std::span<const uint8_t> file, char kind) {
  const std::string text(file.begin(),
                         file.begin() + static_cast<ptrdiff_t>(std::min<size_t>(file.size(), 64)));
  long long width = 0, height = 0;
  int most = 255, end = 0;
  const bool isBits = kind == '4';
  const int found = isBits ? std::sscanf(text.c_str(), "P4 %lld %lld%n", &width, &height, &end) + 1
                           : std::sscanf(text.c_str(), "P6 %lld %lld %d%n", &width, &height, &most, &end);
  if (found != 3 || most != 255 || width < 1 || height < 1) return std::nullopt;
  return PnmHead{width, height, static_cast<size_t>(end) + 1};
}

Dib FromPnm(std::span<const uint8_t> file, char kind, const Reading& reading) {
  const std::optional<PnmHead> head = HeadOf(file, kind);
  if (!head || head->bytes > file.size()) Damaged("a program makes nothing of it");
  PdfPicture picture;
  picture.width = head->width;
  picture.height = head->height;
  picture.bits = kind == '4' ? 1 : 8;
  picture.space = kind == '4' ? PdfSpace::kGrey : PdfSpace::kRgb;
  picture.isInverted = kind == '4';  // 1 is black
  return FromSamples(picture, file.subspan(head->bytes), reading);
}

Dib FromJbig2(const PdfPicture& picture, std::vector<uint8_t> bytes, std::vector<uint8_t> globals,
              const Reading& reading) {
  globals.insert(globals.end(), bytes.begin(), bytes.end());  // segments, one after the other
  BorrowedBytes segments(globals);
  const std::vector<uint8_t> made = RunProgram({"jbig2dec", "-e", "-t", "pbm", "-o", "-", kInputName},
                                               &segments, {MostBytes(picture), reading.secondsLeft()});
  Dib page = FromPnm(made, '4', reading);
  const PageView view(page);
  if (view.width() != picture.width || view.height() != picture.height)
    Damaged("its picture has another size");
  // Black and white of the page: as the stored 0 and 1.
  const std::vector<RGBQUAD> colours = ColoursOf(picture);
  for (RGBQUAD& entry : view.palette()) entry = colours[entry.rgbGreen != 0 ? 1 : 0];
  UseGreyRamp(view);
  return page;
}

// ---- JPEG -------------------------------------------------------------------------------------------------

// Looks through the markers before the picture: a PDF file says itself how a picture lies, so an orientation
// in an EXIF block means nothing there, and who wrote the file decides what 0 of an ink is.
class JpegMarkers {
 public:
  explicit JpegMarkers(std::span<uint8_t> jpeg) {
    constexpr uint8_t kExif = 0xE1, kAdobe = 0xEE, kScan = 0xDA;
    for (size_t at = 2; at + 4 <= jpeg.size() && jpeg[at] == 0xFF;) {
      const uint8_t marker = jpeg[at + 1];
      const size_t size = jpeg[at + 2] * 256u + jpeg[at + 3];
      if (marker == kScan || size < 2 || at + 2 + size > jpeg.size()) break;
      const std::span<uint8_t> body = jpeg.subspan(at + 4, size - 2);
      if (marker == kAdobe && body.size() >= 5 && std::memcmp(body.data(), "Adobe", 5) == 0) hasAdobe_ = true;
      if (marker == kExif && body.size() > kExifIntro.size() &&
          std::memcmp(body.data(), kExifIntro.data(), kExifIntro.size()) == 0) {
        MakeExifUpright(body.subspan(kExifIntro.size()));
      }
      at += 2 + size;
    }
  }
  bool hasAdobe() const { return hasAdobe_; }

 private:
  bool hasAdobe_ = false;
};

Dib FromJpeg(const PdfPicture& picture, std::vector<uint8_t> bytes, const Reading& reading,
             Metadata* metadata) {
  const JpegMarkers markers(bytes);
  const bool isCmyk = picture.space == PdfSpace::kCmyk;
  if (picture.space == PdfSpace::kOther || picture.space == PdfSpace::kIndexed) {
    throw NotReadAsStored("its JPEG picture's colours are not grey, RGB or CMYK");
  }
  if ((isCmyk && picture.isInverted != markers.hasAdobe()) ||
      (picture.space == PdfSpace::kRgb &&
       (picture.isInverted || (picture.jpegColours == 0 && !markers.hasAdobe())))) {
    throw NotReadAsStored("its JPEG picture's colours are exchanged");
  }
  BorrowedBytes jpeg(bytes);
  Dib page = kJpeg.read(&jpeg, 0, reading, metadata);
  const PageView view(page);
  if ((view.bits() == 8) != (picture.space == PdfSpace::kGrey))
    Damaged("its JPEG picture has other colours than told");
  if (picture.isInverted && view.bits() == 8) {
    for (uint8_t& byte : view.pixels()) byte = static_cast<uint8_t>(~byte);
  }
  return page;
}

Dib FromJpeg2000(const PdfPicture& picture, std::span<const uint8_t> bytes, const Reading& reading,
                 Metadata* metadata) {
  if (picture.space == PdfSpace::kOther || picture.space == PdfSpace::kIndexed || picture.isInverted)
    throw NotReadAsStored("its JPEG 2000 picture's colours are not grey, RGB or CMYK");
  try {
    return ReadJpeg2000(bytes, reading, metadata);
  } catch (const PageError& error) {
    if (error.code() != ErrUnsupported) throw;
    throw NotReadAsStored("its picture is JPEG 2000");
  }
}

// ---- writing ----------------------------------------------------------------------------------------------

uint32_t BigEndian(std::span<const uint8_t> bytes) {
  return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

// The one strip of a TIFF file of one page, as kTiff writes black and white.
std::vector<uint8_t> StripOf(const std::vector<uint8_t>& file) {
  BorrowedBytes bytes(file);
  const TiffReader reader(&bytes);
  uint64_t offset = 0, count = 0;
  for (const TiffReader::Entry& entry : reader.Directory(reader.first())) {
    if (entry.tag == kTiffStripOffsets) offset = reader.Numbers(entry).at(0);
    if (entry.tag == kTiffStripByteCounts) count = reader.Numbers(entry).at(0);
  }
  if (offset == 0 || offset > file.size() || count > file.size() - offset)
    throw PageError("the fax strip is not found", ErrInternal);
  const auto start = file.begin() + static_cast<ptrdiff_t>(offset);
  return {start, start + static_cast<ptrdiff_t>(count)};
}

StoredPicture AsFax(const Dib& page) {
  const PageView view(page);
  StoredPicture stored;
  stored.picture = {.width = view.width(), .height = view.height(), .bits = 1, .filter = "CCITTFaxDecode"};
  stored.parameters = Text("<</K -1/Columns ", view.width(), "/Rows ", view.height(), ">>");
  stored.bytes = StripOf(kTiff.encode(page, {}, {}));
  return stored;
}

// The picture data of a PNG file is that of a PDF file with a predictor.
StoredPicture AsDeflate(const Dib& page) {
  const PageView view(page);
  MemoryBytes memory;
  kPng.write(page, {}, {}, &memory);
  const std::vector<uint8_t> png = memory.Take();
  StoredPicture stored;
  const bool isColour = view.bits() == 24;
  const bool isGrey = !isColour && HasGreyRamp(view);
  stored.picture = {.width = view.width(),
                    .height = view.height(),
                    .bits = isColour ? 8 : view.bits(),
                    .space = isColour ? PdfSpace::kRgb
                             : isGrey ? PdfSpace::kGrey
                                      : PdfSpace::kIndexed,
                    .filter = "FlateDecode"};
  constexpr size_t kSignatureBytes = 8, kFrameBytes = 12;
  for (size_t at = kSignatureBytes; at + kFrameBytes <= png.size();) {
    const std::span<const uint8_t> chunk(png.data() + at, png.size() - at);
    const size_t size = BigEndian(chunk);
    const std::string_view name(reinterpret_cast<const char*>(chunk.data()) + 4, 4);
    const std::span<const uint8_t> body = chunk.subspan(8, size);
    if (name == "IDAT") stored.bytes.insert(stored.bytes.end(), body.begin(), body.end());
    if (name == "PLTE") stored.picture.palette.assign(body.begin(), body.end());
    if (name == "IHDR" && body[8] != stored.picture.bits)
      throw PageError("PNG took another depth", ErrInternal);
    at += kFrameBytes + size;
  }
  stored.parameters = Text("<</Predictor 15/Colors ", isColour ? 3 : 1, "/BitsPerComponent ",
                           stored.picture.bits, "/Columns ", view.width(), ">>");
  return stored;
}

StoredPicture AsJpeg(const Dib& page, int quality) {
  if (kJpeg.write == nullptr) throw PageError("cannot be written: JPEG is not", ErrUnsupported);
  const PageView view(page);
  MemoryBytes memory;
  kJpeg.write(page, {}, Options(kJpeg.options, Text("quality=", quality)), &memory);
  StoredPicture stored;
  stored.picture = {.width = view.width(),
                    .height = view.height(),
                    .bits = 8,
                    .space = view.bits() == 24 ? PdfSpace::kRgb : PdfSpace::kGrey,
                    .filter = "DCTDecode"};
  stored.bytes = memory.Take();
  return stored;
}

}  // namespace

uint64_t MostBytes(const PdfPicture& picture) {
  constexpr uint64_t kSlackBytes = 1 << 16;  // behind the last row, or for a header
  return RowBytes(picture) * static_cast<uint64_t>(picture.height) + kSlackBytes;
}

Dib PageOf(const PdfPicture& picture, std::vector<uint8_t> bytes, std::vector<uint8_t> globals,
           const Reading& reading, Metadata* metadata) {
  const std::string& filter = picture.filter;
  if (filter == "DCTDecode") return FromJpeg(picture, std::move(bytes), reading, metadata);
  if (filter == "JPXDecode") return FromJpeg2000(picture, bytes, reading, metadata);
  CheckKnown(picture);
  if (filter.empty()) return FromSamples(picture, bytes, reading);
  if (SamplesOf(picture.space) != 1) Damaged("its picture of two colours has samples of several");
  if (filter == "CCITTFaxDecode") return FromFax(picture, bytes, reading);
  return FromJbig2(picture, std::move(bytes), std::move(globals), reading);
}

Dib FromProgram(std::span<const uint8_t> file, const Reading& reading) { return FromPnm(file, '6', reading); }

StoredPicture Stored(const Dib& page, int quality) {
  const PageView view(page);
  const bool isGrey = view.bits() <= 8 && HasGreyRamp(view);
  if (view.bits() == 1 && isGrey) return AsFax(page);
  if (quality > 0 && (view.bits() == 24 || (view.bits() == 8 && isGrey))) return AsJpeg(page, quality);
  return AsDeflate(page);
}

}  // namespace rastrel::formats
