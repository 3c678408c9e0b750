// A TIFF file behind libtiff's calls. Its pages are a chain, which libtiff follows from the first page on to
// get to any other: for a file of thousands of pages that takes minutes. Here the pointer to the first page
// is shown differently from how it stands in the file, so that the way is short.
#ifndef RASTREL_FORMATS_TIFF_FILE_H
#define RASTREL_FORMATS_TIFF_FILE_H

#include <tiffio.h>

#include <cstdint>
#include <span>

#include "formats/bytes.h"

namespace rastrel::formats {

class TiffFile {
 public:
  // As libtiff calls what is to be done: "rm", "wl", "wl8".
  TiffFile(Bytes* bytes, const char* mode) : bytes_(bytes), mode_(mode) {}
  TiffFile(const TiffFile&) = delete;
  TiffFile& operator=(const TiffFile&) = delete;

  // Shows the page whose directory lies there as the first.
  void BeginAt(uint64_t directory);
  // Null when libtiff cannot open it. This object must outlive what is returned.
  TIFF* Open(TIFFOpenOptions* options);

 private:
  static tmsize_t Read(thandle_t file, void* buffer, tmsize_t size);
  static tmsize_t Write(thandle_t file, void* buffer, tmsize_t size);
  static toff_t Seek(thandle_t file, toff_t offset, int origin);
  static int Close(thandle_t) { return 0; }
  static toff_t Size(thandle_t file);

  void ShowPointer(uint64_t position, uint64_t value, size_t bytes, bool isBigEndian);

  Bytes* bytes_;
  const char* mode_;
  uint64_t position_ = 0;
  uint64_t shownAt_ = 0;
  size_t shownBytes_ = 0;
  uint8_t shown_[8] = {};
};

}  // namespace rastrel::formats

#endif
