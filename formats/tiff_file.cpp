#include "formats/tiff_file.h"

namespace rastrel::formats {

TIFF* TiffFile::Open(TIFFOpenOptions* options) {
  return TIFFClientOpenExt("file", mode_, this, Read, Write, Seek, Close, Size, nullptr, nullptr, options);
}

tmsize_t TiffFile::Read(thandle_t handle, void* buffer, tmsize_t size) {
  auto& self = *static_cast<TiffFile*>(handle);
  const std::span bytes(static_cast<uint8_t*>(buffer), static_cast<size_t>(size));
  const size_t got = self.bytes_->ReadAt(self.position_, bytes);
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

}  // namespace rastrel::formats
