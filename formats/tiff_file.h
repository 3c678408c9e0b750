// A TIFF file behind libtiff's calls.
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

  // Null when libtiff cannot open it. This object must outlive what is returned.
  TIFF* Open(TIFFOpenOptions* options);

 private:
  static tmsize_t Read(thandle_t file, void* buffer, tmsize_t size);
  static tmsize_t Write(thandle_t file, void* buffer, tmsize_t size);
  static toff_t Seek(thandle_t file, toff_t offset, int origin);
  static int Close(thandle_t) { return 0; }
  static toff_t Size(thandle_t file);

  Bytes* bytes_;
  const char* mode_;
  uint64_t position_ = 0;
};

}  // namespace rastrel::formats

#endif
