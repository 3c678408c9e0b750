#include "formats/tiff_file.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace rastrel::formats {

void TiffFile::BeginAt(uint64_t directory) {
  uint8_t head[4] = {};
  bytes_->ReadAt(0, head);
  const bool isBigEndian = head[0] == 'M';
  const bool isBigTiff = head[isBigEndian ? 3 : 2] == 43;
  ShowPointer(isBigTiff ? 8 : 4, directory, isBigTiff ? 8 : 4, isBigEndian);
}

void TiffFile::SkipToLastPage() {
  const auto next = NumberAt<uint32_t>(last_ == 0 ? 4 : NextPointerAt(last_));
  if (next == 0) return;
  last_ = next;
  if (first_ == 0) {
    first_ = next;
  } else {
    ShowPointer(NextPointerAt(first_), last_, 4, std::endian::native == std::endian::big);
  }
}

TIFF* TiffFile::Open(TIFFOpenOptions* options) {
  return TIFFClientOpenExt("file", isWritten_ ? "w" : "rm", this, Read, Write, Seek, Close, Size, nullptr,
                           nullptr, options);
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

// As this machine writes it; 0 behind the end.
template <class Number>
Number TiffFile::NumberAt(uint64_t position) const {
  uint8_t bytes[sizeof(Number)] = {};
  bytes_->ReadAt(position, bytes);
  Number number;
  std::memcpy(&number, bytes, sizeof(number));
  return number;
}

// A directory is a count, that many entries of 12 bytes, and the pointer to the next.
uint64_t TiffFile::NextPointerAt(uint32_t directory) const {
  return uint64_t{directory} + 2 + uint64_t{12} * NumberAt<uint16_t>(directory);
}

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
