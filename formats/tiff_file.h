// A TIFF file behind libtiff's calls. Its pages are a chain, which libtiff follows from the first page on to
// get to any other, and again to append one: for a file of thousands of pages that takes minutes. Here one
// pointer of the chain is shown differently from how it stands in the file, so that the way is short.
#ifndef RASTREL_FORMATS_TIFF_FILE_H
#define RASTREL_FORMATS_TIFF_FILE_H

#include <tiffio.h>

#include <cstdint>
#include <span>

#include "formats/bytes.h"

namespace rastrel::formats {

class TiffFile {
 public:
  // To be read, or, being empty, to be written.
  TiffFile(Bytes* bytes, bool isWritten) : bytes_(bytes), isWritten_(isWritten) {}
  TiffFile(const TiffFile&) = delete;
  TiffFile& operator=(const TiffFile&) = delete;

  // Shows the page whose directory lies there as the first.
  void BeginAt(uint64_t directory);
  // To be called when a page has been appended: shows it as the one after the first.
  void SkipToLastPage();

  // Null when libtiff cannot open it. This object must outlive what is returned.
  TIFF* Open(TIFFOpenOptions* options);

 private:
  static tmsize_t Read(thandle_t file, void* buffer, tmsize_t size);
  static tmsize_t Write(thandle_t file, void* buffer, tmsize_t size);
  static toff_t Seek(thandle_t file, toff_t offset, int origin);
  static int Close(thandle_t) { return 0; }
  static toff_t Size(thandle_t file);

  template <class Number>
  Number NumberAt(uint64_t position) const;
  uint64_t NextPointerAt(uint32_t directory) const;
  void ShowPointer(uint64_t position, uint64_t value, size_t bytes, bool isBigEndian);

  Bytes* bytes_;
  bool isWritten_;
  uint64_t position_ = 0;
  uint32_t first_ = 0, last_ = 0;  // directories of a file that is written
  uint64_t shownAt_ = 0;
  size_t shownBytes_ = 0;
  uint8_t shown_[8] = {};
};

}  // namespace rastrel::formats

#endif
