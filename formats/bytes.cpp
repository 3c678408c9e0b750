#include "formats/bytes.h"

#include <algorithm>
#include <cstring>

namespace rastrel::formats {
namespace {

size_t CopyFrom(std::span<const uint8_t> all, uint64_t position, std::span<uint8_t> wanted) {
  if (position >= all.size()) return 0;
  const size_t count = std::min(wanted.size(), all.size() - static_cast<size_t>(position));
  if (count != 0) std::memcpy(wanted.data(), all.data() + position, count);
  return count;
}

}  // namespace

size_t MemoryBytes::ReadAt(uint64_t position, std::span<uint8_t> bytes) noexcept {
  return CopyFrom(bytes_, position, bytes);
}

bool MemoryBytes::WriteAt(uint64_t position, std::span<const uint8_t> bytes) noexcept {
  constexpr uint64_t kMostBytes = PTRDIFF_MAX;
  if (position > kMostBytes || bytes.size() > kMostBytes - position) return Fail("is too large for memory");
  try {
    const auto end = static_cast<size_t>(position) + bytes.size();
    if (end > bytes_.size()) bytes_.resize(end);
  } catch (...) {
    return Fail("out of memory");
  }
  if (!bytes.empty()) std::memcpy(bytes_.data() + position, bytes.data(), bytes.size());
  return true;
}

size_t BorrowedBytes::ReadAt(uint64_t position, std::span<uint8_t> bytes) noexcept {
  return CopyFrom(bytes_, position, bytes);
}

size_t StreamBytes::ReadAt(uint64_t position, std::span<uint8_t> bytes) noexcept {
  size_t got = 0;
  while (got < bytes.size()) {
    const size_t left = bytes.size() - got;
    const int64_t count = stream_.read(stream_.context, position + got, bytes.data() + got, left);
    if (count <= 0 || static_cast<uint64_t>(count) > left) break;
    got += static_cast<size_t>(count);
  }
  return got;
}

bool StreamBytes::WriteAt(uint64_t position, std::span<const uint8_t> bytes) noexcept {
  const auto wanted = static_cast<int64_t>(bytes.size());
  const bool isWritten = stream_.write(stream_.context, position, bytes.data(), bytes.size()) == wanted;
  return isWritten || Fail("the stream takes no more");
}

uint64_t StreamBytes::size() noexcept {
  const int64_t length = stream_.length(stream_.context);
  return length < 0 ? 0 : static_cast<uint64_t>(length);
}

std::span<const uint8_t> ByteReader::Next() noexcept {
  if (left_.empty()) {
    const size_t got = bytes_->ReadAt(position_, buffer_);
    position_ += got;
    left_ = std::span(buffer_).first(got);
  }
  return std::exchange(left_, {});
}

bool ByteReader::Read(std::span<uint8_t> wanted) noexcept {
  while (!wanted.empty()) {
    const std::span<const uint8_t> next = Next();
    if (next.empty()) return false;
    const size_t count = std::min(next.size(), wanted.size());
    std::memcpy(wanted.data(), next.data(), count);
    wanted = wanted.subspan(count);
    left_ = next.subspan(count);
  }
  return true;
}

bool ByteWriter::Write(std::span<const uint8_t> bytes) noexcept {
  if (buffer_.size() + bytes.size() > kBufferBytes && !Flush()) return false;
  if (bytes.size() > kBufferBytes) {
    const bool isWritten = bytes_->WriteAt(position_, bytes);
    position_ += bytes.size();
    return isWritten;
  }
  buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());  // into what is reserved
  return true;
}

bool ByteWriter::Flush() noexcept {
  const bool isWritten = buffer_.empty() || bytes_->WriteAt(position_, buffer_);
  position_ += buffer_.size();
  buffer_.clear();
  return isWritten;
}

}  // namespace rastrel::formats
