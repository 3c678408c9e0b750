#include "formats/tiff_file.h"

#include <algorithm>

namespace rastrel::formats {

void TiffFile::BeginAt(uint64_t directory) {
  uint8_t head[4] = {};
  bytes_->ReadAt(0, head);
  const bool isBigEndian = head[0] == 'M';
  const bool isBigTiff = head[isBigEndian ? 3 : 2] == 43;
  ShowPointer(isBigTiff ? 8 : 4, directory, isBigTiff ? 8 : 4, isBigEndian);
}

TIFF* TiffFile::Open(TIFFOpenOptions* options) {
  return TIFFClientOpenExt("file", mode_, this, Read, Write, Seek, Close, Size, nullptr, nullptr, options);
}

tmsize_t TiffFile::Read(thandle_t handle, void* buffer, tmsize_t size) {
  auto& self = *static_cast<TiffFile*>(handle);
  const std::span bytes(static_cast<uint8_t*>(buffer), static_cast<size_t>(size));
  const size_t got = self.bytes_->ReadAt(self.position_, bytes);
  for (size_t i = 0; i < self.shownBytes_; ++i) {
    const uint64_t at = self.shownAt_ + i - self.position_;  // huge in front of what is read
    if (at < got) bytes[at] = self.shown_[i];
  }
  self.position_ += got;
  return static_cast<tmsize_t>(got);
}

tmsize_t TiffFile::Write(thandle_t handle, void* buffer, tmsize_t size) {
  auto& self = *static_cast<TiffFile*>(handle);
  const std::span bytes(static_cast<const uint8_t*>(buffer), static_cast<size_t>(size));
  if (!self.bytes_->WriteAt(self.position_, bytes)) return -1;
  self.position_ += bytes.size();
  return size;
}

toff_t TiffFile::Seek(thandle_t handle, toff_t offset, int origin) {
  auto& self = *static_cast<TiffFile*>(handle);
  const uint64_t from = origin == SEEK_SET ? 0 : origin == SEEK_CUR ? self.position_ : Size(handle);
  return self.position_ = from + offset;
}

toff_t TiffFile::Size(thandle_t handle) { return static_cast<TiffFile*>(handle)->bytes_->size(); }

void TiffFile::ShowPointer(uint64_t position, uint64_t value, size_t bytes, bool isBigEndian) {
  shownAt_ = position;
  shownBytes_ = bytes;
  for (uint8_t& byte : shown_) {
    byte = static_cast<uint8_t>(value);
    value >>= 8;
  }
  if (isBigEndian) std::reverse(shown_, shown_ + bytes);
}

}  // namespace rastrel::formats
