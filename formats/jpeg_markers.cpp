#include "formats/jpeg_markers.h"

#include "pages/text.h"

namespace rastrel::formats {

std::vector<JpegMarker> JpegMarkersFor(const Metadata& metadata, Resolution resolution) {
  constexpr size_t kMostBytes = 0xFFFF - 2;  // its length takes two
  std::vector<JpegMarker> markers;
  const auto add = [&](const char* name, int kind, std::string_view intro, std::span<const uint8_t> bytes) {
    if (bytes.empty()) return;
    JpegMarker marker = {kind, {intro.begin(), intro.end()}};
    marker.bytes.insert(marker.bytes.end(), bytes.begin(), bytes.end());
    if (marker.bytes.size() > kMostBytes) {
      throw PageError(Text("cannot be written: JPEG files have no room for so much ", name), ErrTooLarge);
    }
    markers.push_back(std::move(marker));
  };
  const auto item = [&](const char* name) {
    const Metadata::Item* found = metadata.Find(name);
    return found != nullptr ? std::span<const uint8_t>(found->bytes) : std::span<const uint8_t>();
  };
  add("exif", kJpegExif, kExifIntro, ExifFor(metadata, resolution, RASTREL_EXIF_TEXTS));
  add("xmp", kJpegExif, kXmpIntro, item("xmp"));
  add("photoshop", kJpegPhotoshop, kPhotoshopIntro, item("photoshop"));
  add("comment", kJpegComment, "", item("comment"));
  return markers;
}

void CheckJpegSize(const PageView& page) {
  constexpr int kMostSide = 65500;
  if (page.width() > kMostSide || page.height() > kMostSide) {
    throw PageError("cannot be written: JPEG files have at most 65500 pixels a side", ErrTooLarge);
  }
}

}  // namespace rastrel::formats
