// JPEG files through libjpeg. It reports errors by a jump, so what stands between setjmp and the last call
// holds nothing that needs destroying.
#include <algorithm>
#include <csetjmp>
#include <cstdio>  // jpeglib.h needs it first
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

#include <jerror.h>
#include <jpeglib.h>

#include "formats/colour_profile.h"
#include "formats/exif.h"
#include "formats/format.h"
#include "formats/jpeg_markers.h"
#include "pages/text.h"

namespace rastrel::formats {
namespace {

using namespace std::string_view_literals;
constexpr std::string_view kSignatures[] = {"\xFF\xD8\xFF"sv};

// Where errors go: the text of the first one.
struct ErrorManager {
  jpeg_error_mgr base;
  std::jmp_buf jump;
  char text[JMSG_LENGTH_MAX];
  Bytes* file = nullptr;  // that rows are read from
};

// Whether what libjpeg skipped after the rows is but filling: one byte again and again. Else the decoder has
// lost its place, and the rows are not those of the picture.
bool IsFilling(const jpeg_decompress_struct& jpeg, Bytes* file);

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
    case JWRN_EXTRANEOUS_DATA: {
      // Between headers it does no harm.
      const auto* manager = reinterpret_cast<const ErrorManager*>(jpeg->err);
      const auto& reader = *reinterpret_cast<const jpeg_decompress_struct*>(jpeg);
      if (manager->file != nullptr && !IsFilling(reader, manager->file)) OnError(jpeg);
      break;
    }
    default:
      break;
  }
}

// What follows `intro` in the first marker of a kind that begins with it.
std::span<const uint8_t> MarkerBytes(const jpeg_decompress_struct& jpeg, int kind, std::string_view intro) {
  for (const jpeg_marker_struct* marker = jpeg.marker_list; marker != nullptr; marker = marker->next) {
    const std::span<const uint8_t> bytes(marker->data, marker->data_length);
    if (marker->marker == kind && bytes.size() > intro.size() &&
        std::memcmp(bytes.data(), intro.data(), intro.size()) == 0) {
      return bytes.subspan(intro.size());
    }
  }
  return {};
}

ExifLie ExifOf(const jpeg_decompress_struct& jpeg) {
  return ReadExif(MarkerBytes(jpeg, kJpegExif, kExifIntro));
}

// What libjpeg calls now and then.
struct Progress {
  jpeg_progress_mgr base;
  const Reading* reading;
};

// A scan of a few bytes costs as much time as the whole picture. Encoders write about ten.
void OnProgress(j_common_ptr jpeg) {
  constexpr int kMostScans = 100;
  const auto& progress = *reinterpret_cast<const Progress*>(jpeg->progress);
  const bool isLate = progress.reading != nullptr && progress.reading->isLate();
  if (!isLate && reinterpret_cast<j_decompress_ptr>(jpeg)->input_scan_number <= kMostScans) return;
  auto* manager = reinterpret_cast<ErrorManager*>(jpeg->err);
  std::snprintf(manager->text, sizeof(manager->text), "it has more than %d scans", kMostScans);
  std::longjmp(manager->jump, 1);
}

// Hands libjpeg the bytes of a file.
struct Supply {
  jpeg_source_mgr base;
  ByteReader* bytes;
};

bool IsFilling(const jpeg_decompress_struct& jpeg, Bytes* file) {
  const auto& supply = *reinterpret_cast<const Supply*>(jpeg.src);
  const uint64_t end = supply.bytes->position() - supply.base.bytes_in_buffer;
  const auto count = static_cast<uint64_t>(std::max(jpeg.err->msg_parm.i[0], 0));
  uint8_t skipped[64];
  uint8_t first = 0;
  for (uint64_t done = 0, at = end - std::min(count, end); at < end; at += sizeof(skipped)) {
    const auto wanted = static_cast<size_t>(std::min<uint64_t>(sizeof(skipped), end - at));
    if (file->ReadAt(at, {skipped, wanted}) < wanted) return false;
    if (done == 0) first = skipped[0];
    done += wanted;
    if (!std::all_of(skipped, skipped + wanted, [first](uint8_t byte) { return byte == first; }))
      return false;
  }
  return true;
}

boolean OnNeed(j_decompress_ptr jpeg) {
  auto& supply = *reinterpret_cast<Supply*>(jpeg->src);
  const std::span<const uint8_t> next = supply.bytes->Next();
  if (next.empty()) WARNMS(jpeg, JWRN_JPEG_EOF);  // which does not come back
  supply.base.next_input_byte = next.data();
  supply.base.bytes_in_buffer = next.size();
  return TRUE;
}

void OnSkip(j_decompress_ptr jpeg, long count) {
  jpeg_source_mgr& source = *jpeg->src;
  auto left = static_cast<size_t>(count < 0 ? 0 : count);
  while (left > source.bytes_in_buffer) {
    left -= source.bytes_in_buffer;
    OnNeed(jpeg);
  }
  source.next_input_byte += left;
  source.bytes_in_buffer -= left;
}

class Reader {
 public:
  // `reading` limits the time that the rows may take; null where none are read.
  explicit Reader(Bytes* file, const Reading* reading = nullptr) : file_(file), bytes_(file) {
    progress_.reading = reading;
    jpeg_.err = jpeg_std_error(&errors_.base);
    errors_.base.error_exit = OnError;
    errors_.base.emit_message = OnMessage;
    errors_.text[0] = '\0';
    if (!Start()) throw PageError("out of memory", ErrNoMemory);
  }
  ~Reader() { jpeg_destroy_decompress(&jpeg_); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;
  jpeg_decompress_struct& jpeg() { return jpeg_; }
  // What the file has of an ICC profile; empty for none.
  std::vector<uint8_t> Profile() {
    JOCTET* bytes = nullptr;
    unsigned size = 0;
    if (!ReadProfile(&bytes, &size)) return {};
    const std::unique_ptr<JOCTET, decltype(&std::free)> owned(bytes, std::free);
    return {bytes, bytes + size};
  }
  [[noreturn]] void Fail() const { Damaged(errors_.text); }

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
  bool ReadRows(const PageView& page, uint8_t* inkRow, ToRgb* toRgb) {
    if (setjmp(errors_.jump) != 0) return false;
    errors_.file = file_;
    jpeg_start_decompress(&jpeg_);
    while (jpeg_.output_scanline < jpeg_.output_height) {
      uint8_t* out = page.PageRow(static_cast<int>(jpeg_.output_scanline));
      uint8_t* row = inkRow != nullptr ? inkRow : out;
      jpeg_read_scanlines(&jpeg_, &row, 1);
      if (inkRow != nullptr) MixInks(inkRow, out, page.width(), toRgb);
    }
    jpeg_finish_decompress(&jpeg_);
    return true;
  }

 private:
  bool ReadProfile(JOCTET** bytes, unsigned* size) {
    if (setjmp(errors_.jump) != 0) return false;
    return jpeg_read_icc_profile(&jpeg_, bytes, size) != 0;
  }
  bool Start() {
    if (setjmp(errors_.jump) != 0) return false;
    jpeg_create_decompress(&jpeg_);
    const auto nothing = [](j_decompress_ptr) {};
    supply_ = {{nullptr, 0, nothing, OnNeed, OnSkip, jpeg_resync_to_restart, nothing}, &bytes_};
    jpeg_.src = &supply_.base;
    progress_.base.progress_monitor = OnProgress;
    jpeg_.progress = &progress_.base;
    for (const int marker : {kJpegExif, kJpegProfile, kJpegPhotoshop, kJpegComment})
      jpeg_save_markers(&jpeg_, marker, 0xFFFF);
    return true;
  }
  // Files with an Adobe marker store the inks inverted.
  void MixInks(uint8_t* inks, uint8_t* out, int width, ToRgb* toRgb) const {
    const auto samples = static_cast<size_t>(width) * 4;
    for (size_t i = 0; jpeg_.saw_Adobe_marker && i < samples; ++i) inks[i] = static_cast<uint8_t>(~inks[i]);
    toRgb->Convert(inks, static_cast<size_t>(width), out);
  }

  Bytes* file_;
  ByteReader bytes_;
  Supply supply_{};
  Progress progress_{};
  ErrorManager errors_{};
  jpeg_decompress_struct jpeg_{};
};

// Cameras and phones tell it in their EXIF block only.
Resolution ReadResolution(const jpeg_decompress_struct& jpeg) {
  if (jpeg.density_unit != 1 && jpeg.density_unit != 2) return ExifOf(jpeg).resolution;
  const double perInch = jpeg.density_unit == 2 ? 2.54 : 1;
  return {PixelsPerMetre(jpeg.X_density * perInch), PixelsPerMetre(jpeg.Y_density * perInch)};
}

int OrientationOf(const jpeg_decompress_struct& jpeg) { return ExifOf(jpeg).orientation; }

std::string SpaceOf(const jpeg_decompress_struct& jpeg) {
  switch (jpeg.jpeg_color_space) {
    case JCS_GRAYSCALE:
      return "grey";
    case JCS_CMYK:
    case JCS_YCCK:
      return "CMYK";
    case JCS_RGB:
      return "RGB";
    default:
      return "YCbCr";
  }
}

void ReadMetadata(Reader* reader, Metadata* metadata) {
  const jpeg_decompress_struct& jpeg = reader->jpeg();
  const std::string space = SpaceOf(jpeg);
  Tell({.space = space,
        .compression = jpeg.progressive_mode != 0 ? "progressive JPEG" : "JPEG",
        .isMixed = space == "CMYK"},
       metadata);
  const std::vector<uint8_t> profile = reader->Profile();
  if (!profile.empty()) metadata->Set("icc", profile);
  TakeJpegMarkers([&jpeg](int kind, std::string_view intro) { return MarkerBytes(jpeg, kind, intro); },
                  metadata);
  if (jpeg.density_unit == 0) TellProportions(jpeg.X_density, jpeg.Y_density, metadata);
}

// Each block of 8 x 8 pixels takes a bit at least. A lying size is refused before memory is asked for.
void CheckClaim(const jpeg_decompress_struct& jpeg, uint64_t fileBytes) {
  const uint64_t blocks = uint64_t{jpeg.image_width} * jpeg.image_height / 64;
  if (blocks / 8 > fileBytes) CannotHold(fileBytes, jpeg.image_width, jpeg.image_height);
}

// The coefficients of a file of several scans are all in memory until the last.
uint64_t WorkBytes(jpeg_decompress_struct* jpeg) {
  if (jpeg_has_multiple_scans(jpeg) == 0) return 0;
  constexpr uint64_t kBytesPerCoefficient = 2;
  return uint64_t{jpeg->image_width} * jpeg->image_height * static_cast<uint64_t>(jpeg->num_components) *
         kBytesPerCoefficient;
}

int BitsOf(const jpeg_decompress_struct& jpeg) { return jpeg.out_color_space == JCS_GRAYSCALE ? 8 : 24; }

Dib Read(Bytes* file, uint64_t /*place*/, const Reading& reading, Metadata* metadata) {
  Reader reader(file, &reading);
  if (!reader.ReadHead()) reader.Fail();
  const jpeg_decompress_struct& jpeg = reader.jpeg();
  CheckClaim(jpeg, file->size());
  const int orientation = OrientationOf(jpeg);  // the markers go when the rows are read
  if (metadata != nullptr) ReadMetadata(&reader, metadata);
  std::unique_ptr<ToRgb> toRgb;
  if (jpeg.out_color_space == JCS_CMYK) {
    toRgb = NewInkToRgb(reader.Profile());
    if (metadata != nullptr) metadata->Remove("icc");  // it has done its work
  }
  Dib page = reading.NewPage(jpeg.output_width, jpeg.output_height, BitsOf(jpeg), ReadResolution(jpeg),
                             WorkBytes(&reader.jpeg()));
  const PageView view(page);
  for (int y = 0; y < view.height(); ++y) std::memset(view.PageRow(y) + view.stride() - 4, 0, 4);
  std::vector<uint8_t> inkRow(jpeg.out_color_space == JCS_CMYK ? size_t{jpeg.output_width} * 4 : 0);
  const bool isRead = reader.ReadRows(view, inkRow.empty() ? nullptr : inkRow.data(), toRgb.get());
  reading.CheckTime();
  if (!isRead) reader.Fail();
  return Upright(std::move(page), orientation);
}

PageInfo Describe(Bytes* file, uint64_t /*place*/) {
  Reader reader(file);
  if (!reader.ReadHead()) reader.Fail();
  const jpeg_decompress_struct& jpeg = reader.jpeg();
  CheckClaim(jpeg, file->size());
  return InfoFromHeader(jpeg.output_width, jpeg.output_height, BitsOf(jpeg), ReadResolution(jpeg),
                        OrientationOf(jpeg), [](const PageView&) {});
}

// ---- writing ----------------------------------------------------------------------------------------------

// Takes libjpeg's bytes.
struct Drain {
  jpeg_destination_mgr base;
  ByteWriter* bytes;
  uint8_t buffer[1 << 14];
};

void OnStart(j_compress_ptr jpeg) {
  auto& drain = *reinterpret_cast<Drain*>(jpeg->dest);
  drain.base.next_output_byte = drain.buffer;
  drain.base.free_in_buffer = sizeof(drain.buffer);
}

boolean OnFull(j_compress_ptr jpeg) {
  auto& drain = *reinterpret_cast<Drain*>(jpeg->dest);
  if (!drain.bytes->Write(drain.buffer)) ERREXIT(jpeg, JERR_FILE_WRITE);
  OnStart(jpeg);
  return TRUE;
}

void OnEnd(j_compress_ptr jpeg) {
  auto& drain = *reinterpret_cast<Drain*>(jpeg->dest);
  const size_t left = sizeof(drain.buffer) - drain.base.free_in_buffer;
  if (!drain.bytes->Write({drain.buffer, left}) || !drain.bytes->Flush()) ERREXIT(jpeg, JERR_FILE_WRITE);
}

class Writer {
 public:
  explicit Writer(Bytes* file) : bytes_(file) {
    jpeg_.err = jpeg_std_error(&errors_.base);
    errors_.base.error_exit = OnError;
    errors_.base.output_message = [](j_common_ptr) {};
    errors_.text[0] = '\0';
    if (!Start()) throw PageError("out of memory", ErrNoMemory);
  }
  ~Writer() { jpeg_destroy_compress(&jpeg_); }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;
  const char* message() const { return errors_.text; }

  // `row` has room for a row of greys or colours where the page has indices; else it is null.
  bool Write(const PageView& page, int quality, const Metadata::Item* profile,
             std::span<const JpegMarker> markers, bool isGrey, uint8_t* row) {
    if (setjmp(errors_.jump) != 0) return false;
    jpeg_.image_width = static_cast<JDIMENSION>(page.width());
    jpeg_.image_height = static_cast<JDIMENSION>(page.height());
    jpeg_.input_components = isGrey ? 1 : 3;
    jpeg_.in_color_space = isGrey ? JCS_GRAYSCALE : JCS_EXT_BGR;
    jpeg_set_defaults(&jpeg_);
    jpeg_set_quality(&jpeg_, quality, TRUE);
    jpeg_.optimize_coding = TRUE;
    constexpr double kMostDensity = 65535;
    jpeg_.density_unit = 1;
    jpeg_.X_density = static_cast<UINT16>(std::min(DotsPerInch(page.resolution().x) + 0.5, kMostDensity));
    jpeg_.Y_density = static_cast<UINT16>(std::min(DotsPerInch(page.resolution().y) + 0.5, kMostDensity));
    if (jpeg_.X_density == 0 || jpeg_.Y_density == 0) jpeg_.density_unit = 0;
    if (jpeg_.density_unit == 0) jpeg_.X_density = jpeg_.Y_density = 1;
    jpeg_start_compress(&jpeg_, TRUE);
    for (const JpegMarker& marker : markers) {
      jpeg_write_marker(&jpeg_, marker.kind, marker.bytes.data(), static_cast<unsigned>(marker.bytes.size()));
    }
    if (profile != nullptr && !profile->bytes.empty()) {
      jpeg_write_icc_profile(&jpeg_, profile->bytes.data(), static_cast<unsigned>(profile->bytes.size()));
    }
    const std::span<const RGBQUAD> table = page.palette();
    for (int y = 0; y < page.height(); ++y) {
      uint8_t* in = page.PageRow(y);
      for (int x = 0; row != nullptr && x < page.width(); ++x) {
        const RGBQUAD& colour = table[GetIndex(in, page.bits(), x)];
        uint8_t* pixel = row + static_cast<size_t>(x) * (isGrey ? 1 : 3);
        pixel[0] = colour.rgbBlue;
        if (isGrey) continue;
        pixel[1] = colour.rgbGreen;
        pixel[2] = colour.rgbRed;
      }
      JSAMPROW rows = row != nullptr ? row : in;
      jpeg_write_scanlines(&jpeg_, &rows, 1);
    }
    jpeg_finish_compress(&jpeg_);
    return true;
  }

 private:
  bool Start() {
    if (setjmp(errors_.jump) != 0) return false;
    jpeg_create_compress(&jpeg_);
    drain_.base.init_destination = OnStart;
    drain_.base.empty_output_buffer = OnFull;
    drain_.base.term_destination = OnEnd;
    drain_.bytes = &bytes_;
    jpeg_.dest = &drain_.base;
    return true;
  }

  ByteWriter bytes_;
  Drain drain_{};
  ErrorManager errors_{};
  jpeg_compress_struct jpeg_{};
};

void Write(const Dib& page, const Metadata& metadata, const Options& options, Bytes* file) {
  const PageView view(page);
  CheckJpegSize(view);
  const bool isGrey = HasGreyRamp(view);
  const bool isAsItIs = view.bits() == 24 || (view.bits() == 8 && isGrey);
  std::vector<uint8_t> row(isAsItIs ? 0 : static_cast<size_t>(view.width()) * 3);
  const Metadata fitting = FittingProfile(metadata, view);
  const std::vector<JpegMarker> markers = JpegMarkersFor(fitting, view.resolution());
  Writer writer(file);
  const auto quality = static_cast<int>(options.Number("quality", kJpegQuality));
  if (!writer.Write(view, quality, fitting.Find("icc"), markers, isGrey,
                    row.empty() ? nullptr : row.data())) {
    NotWritten(file->problem() != nullptr ? file->problem() : writer.message());
  }
}

}  // namespace

constinit const Format kJpeg = {.name = "jpg",
                                .title = "JPEG",
                                .extensions = "jpg,jpeg,jpe",
                                .signatures = kSignatures,
                                .options = kJpegOptions,
                                .metadata = kJpegMetadata,
                                .read = Read,
                                .describe = Describe,
                                .write = Write};

}  // namespace rastrel::formats
