// JPEG files through libjpeg. It reports errors by a jump, so what stands between setjmp and the last call
// holds nothing that needs destroying.
#include <cerrno>
#include <csetjmp>
#include <cstdio>  // jpeglib.h needs it first
#include <cstring>
#include <memory>
#include <span>

#include <jerror.h>
#include <jpeglib.h>
#include <sys/stat.h>

#include "formats/page_io.h"
#include "pages/text.h"

namespace rastrel::formats {
namespace {

constexpr int kExifMarker = JPEG_APP0 + 1;

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<std::FILE, FileCloser>;

// Where errors go: the text of the first one.
struct ErrorManager {
  jpeg_error_mgr base;
  std::jmp_buf jump;
  char text[JMSG_LENGTH_MAX];
};

void OnError(j_common_ptr jpeg) {
  auto* manager = reinterpret_cast<ErrorManager*>(jpeg->err);
  jpeg->err->format_message(jpeg, manager->text);
  std::longjmp(manager->jump, 1);
}

// Missing or broken data is only a warning to libjpeg, which makes something up for it.
void OnMessage(j_common_ptr jpeg, int level) {
  if (level >= 0) return;
  switch (jpeg->err->msg_code) {
    case JWRN_JPEG_EOF:
    case JWRN_HIT_MARKER:
    case JWRN_HUFF_BAD_CODE:
    case JWRN_MUST_RESYNC:
      OnError(jpeg);
      break;
    default:
      break;
  }
}

// The orientation in an EXIF block, 1 when there is none: "Exif\0\0", then a small TIFF file.
int ExifOrientation(std::span<const uint8_t> marker) {
  constexpr size_t kIntro = 6;
  constexpr size_t kEntryBytes = 12;
  constexpr unsigned kOrientationTag = 0x0112;
  if (marker.size() < kIntro + 8 || std::memcmp(marker.data(), "Exif\0\0", kIntro) != 0) return 1;
  const std::span<const uint8_t> tiff = marker.subspan(kIntro);
  const bool isBigEndian = tiff[0] == 'M';
  const auto word = [&](size_t at) -> unsigned {
    if (at + 2 > tiff.size()) return 0;
    return isBigEndian ? tiff[at] * 256u + tiff[at + 1] : tiff[at + 1] * 256u + tiff[at];
  };
  const size_t directory =
      isBigEndian ? word(4) * size_t{65536} + word(6) : word(6) * size_t{65536} + word(4);
  if (directory >= tiff.size()) return 1;
  const unsigned entries = word(directory);
  for (unsigned i = 0; i < entries; ++i) {
    const size_t entry = directory + 2 + i * kEntryBytes;
    if (entry + kEntryBytes > tiff.size()) break;
    if (word(entry) == kOrientationTag) return static_cast<int>(word(entry + 8));
  }
  return 1;
}

class Reader {
 public:
  explicit Reader(std::FILE* file) {
    jpeg_.err = jpeg_std_error(&errors_.base);
    errors_.base.error_exit = OnError;
    errors_.base.emit_message = OnMessage;
    errors_.text[0] = '\0';
    if (!Start(file)) throw PageError("out of memory");
  }
  ~Reader() { jpeg_destroy_decompress(&jpeg_); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;
  jpeg_decompress_struct& jpeg() { return jpeg_; }
  [[noreturn]] void Damaged() const { throw PageError(Text("is damaged: ", errors_.text)); }

  bool ReadHead() {
    if (setjmp(errors_.jump) != 0) return false;
    jpeg_read_header(&jpeg_, TRUE);
    switch (jpeg_.jpeg_color_space) {
      case JCS_GRAYSCALE:
        jpeg_.out_color_space = JCS_GRAYSCALE;
        break;
      case JCS_CMYK:
      case JCS_YCCK:
        jpeg_.out_color_space = JCS_CMYK;
        break;
      default:
        jpeg_.out_color_space = JCS_EXT_BGR;
    }
    jpeg_calc_output_dimensions(&jpeg_);
    return true;
  }
  // `inkRow` holds a row of cyan, magenta, yellow and black where the file has those.
  bool ReadRows(const PageView& page, uint8_t* inkRow) {
    if (setjmp(errors_.jump) != 0) return false;
    jpeg_start_decompress(&jpeg_);
    while (jpeg_.output_scanline < jpeg_.output_height) {
      uint8_t* out = page.PageRow(static_cast<int>(jpeg_.output_scanline));
      uint8_t* row = inkRow != nullptr ? inkRow : out;
      jpeg_read_scanlines(&jpeg_, &row, 1);
      if (inkRow != nullptr) MixInks(inkRow, out, page.width());
    }
    jpeg_finish_decompress(&jpeg_);
    return true;
  }

 private:
  bool Start(std::FILE* file) {
    if (setjmp(errors_.jump) != 0) return false;
    jpeg_create_decompress(&jpeg_);
    jpeg_stdio_src(&jpeg_, file);
    jpeg_save_markers(&jpeg_, kExifMarker, 0xFFFF);
    return true;
  }
  // Files with an Adobe marker store the inks inverted.
  void MixInks(const uint8_t* inks, uint8_t* out, int width) const {
    const uint8_t flip = jpeg_.saw_Adobe_marker ? 0 : 0xFF;
    for (int x = 0; x < width; ++x, inks += 4, out += 3) {
      const unsigned light = inks[3] ^ flip;
      for (int i = 0; i < 3; ++i) out[2 - i] = static_cast<uint8_t>((inks[i] ^ flip) * light / 255);
    }
  }

  ErrorManager errors_{};
  jpeg_decompress_struct jpeg_{};
};

Resolution ReadResolution(const jpeg_decompress_struct& jpeg) {
  if (jpeg.density_unit != 1 && jpeg.density_unit != 2) return {};
  const double perInch = jpeg.density_unit == 2 ? 2.54 : 1;
  return {PixelsPerMetre(jpeg.X_density * perInch), PixelsPerMetre(jpeg.Y_density * perInch)};
}

}  // namespace

Dib ReadJpeg(const std::string& path) {
  const FileHandle file(std::fopen(path.c_str(), "rbe"));
  if (!file) throw PageError(std::strerror(errno));
  Reader reader(file.get());
  if (!reader.ReadHead()) reader.Damaged();
  const jpeg_decompress_struct& jpeg = reader.jpeg();
  int orientation = 1;
  for (const jpeg_marker_struct* marker = jpeg.marker_list; marker != nullptr; marker = marker->next) {
    if (marker->marker != kExifMarker) continue;
    orientation = ExifOrientation({marker->data, marker->data_length});
    break;
  }
  // Each block of 8 x 8 pixels takes a bit at least. A lying size is refused before memory is asked for.
  struct stat status {};
  const uint64_t blocks = uint64_t{jpeg.image_width} * jpeg.image_height / 64;
  if (::fstat(::fileno(file.get()), &status) != 0 || blocks / 8 > static_cast<uint64_t>(status.st_size)) {
    throw PageError(Text("is damaged: ", status.st_size, " bytes cannot hold ", jpeg.image_width, " x ",
                         jpeg.image_height, " pixels"));
  }
  const int bits = jpeg.out_color_space == JCS_GRAYSCALE ? 8 : 24;
  Dib page = MakePage(jpeg.output_width, jpeg.output_height, bits, ReadResolution(jpeg));
  const PageView view(page);
  for (int y = 0; y < view.height(); ++y) std::memset(view.PageRow(y) + view.stride() - 4, 0, 4);
  std::vector<uint8_t> inkRow(jpeg.out_color_space == JCS_CMYK ? size_t{jpeg.output_width} * 4 : 0);
  if (!reader.ReadRows(view, inkRow.empty() ? nullptr : inkRow.data())) reader.Damaged();
  return Upright(std::move(page), orientation);
}

}  // namespace rastrel::formats
