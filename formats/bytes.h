// Where the bytes of a page file are: on the disk, in memory, or behind a caller's functions.
#ifndef RASTREL_FORMATS_BYTES_H
#define RASTREL_FORMATS_BYTES_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "pages/page.h"

namespace rastrel::formats {

using namespace pages;

// Used by one thread. Nothing here throws but what opens: C libraries call these.
class Bytes {
 public:
  Bytes() = default;
  virtual ~Bytes() = default;
  Bytes(const Bytes&) = delete;
  Bytes& operator=(const Bytes&) = delete;

  // Returns how many bytes there were: fewer than asked for at the end, or where reading fails.
  virtual size_t ReadAt(uint64_t position, std::span<uint8_t> bytes) noexcept = 0;
  // Whether all of them could be written.
  virtual bool WriteAt(uint64_t position, std::span<const uint8_t> bytes) noexcept = 0;
  virtual uint64_t size() noexcept = 0;
  // What kept the first call that failed from being done; null before.
  const char* problem() const { return problem_; }

 protected:
  bool Fail(const char* problem) noexcept {
    if (problem_ == nullptr) problem_ = problem;
    return false;
  }

 private:
  const char* problem_ = nullptr;
};

// A file to be read, or one that is there and is to be written. Throws PageError.
std::unique_ptr<Bytes> OpenToRead(const std::string& path);
std::unique_ptr<Bytes> OpenToWrite(const std::string& path);

// Bytes in memory, which grow as they are written.
class MemoryBytes : public Bytes {
 public:
  size_t ReadAt(uint64_t position, std::span<uint8_t> bytes) noexcept override;
  bool WriteAt(uint64_t position, std::span<const uint8_t> bytes) noexcept override;
  uint64_t size() noexcept override { return bytes_.size(); }
  std::vector<uint8_t> Take() { return std::move(bytes_); }

 private:
  std::vector<uint8_t> bytes_;
};

// Bytes that somebody else holds.
class BorrowedBytes : public Bytes {
 public:
  explicit BorrowedBytes(std::span<const uint8_t> bytes) : bytes_(bytes) {}
  size_t ReadAt(uint64_t position, std::span<uint8_t> bytes) noexcept override;
  bool WriteAt(uint64_t, std::span<const uint8_t>) noexcept override { return Fail("cannot be changed"); }
  uint64_t size() noexcept override { return bytes_.size(); }

 private:
  std::span<const uint8_t> bytes_;
};

class StreamBytes : public Bytes {
 public:
  explicit StreamBytes(const PageStream& stream) : stream_(stream) {}
  size_t ReadAt(uint64_t position, std::span<uint8_t> bytes) noexcept override;
  bool WriteAt(uint64_t position, std::span<const uint8_t> bytes) noexcept override;
  uint64_t size() noexcept override;

 private:
  PageStream stream_;
};

// Numbers of up to 8 bytes, the lowest first.
inline void AppendLittleEndian(std::vector<uint8_t>* bytes, uint64_t number, size_t size) {
  for (size_t i = 0; i < size; ++i) bytes->push_back(static_cast<uint8_t>(number >> 8 * i));
}
inline uint64_t LittleEndian(std::span<const uint8_t> bytes) {
  uint64_t number = 0;
  for (size_t i = bytes.size(); i-- > 0;) number = number << 8 | bytes[i];
  return number;
}

// Reads bytes one after the other, in large pieces.
class ByteReader {
 public:
  explicit ByteReader(Bytes* bytes, uint64_t start = 0)
      : bytes_(bytes), position_(start), buffer_(kBufferBytes) {}
  // The next ones that are in the buffer, at least one unless the end is reached.
  std::span<const uint8_t> Next() noexcept;
  // Whether there were so many.
  bool Read(std::span<uint8_t> wanted) noexcept;
  // Where the next ones begin.
  uint64_t position() const noexcept { return position_ - left_.size(); }

 private:
  static constexpr size_t kBufferBytes = 1 << 16;
  Bytes* bytes_;
  uint64_t position_;
  std::vector<uint8_t> buffer_;
  std::span<const uint8_t> left_;
};

// Writes bytes one after the other, in large pieces.
class ByteWriter {
 public:
  explicit ByteWriter(Bytes* bytes) : bytes_(bytes) { buffer_.reserve(kBufferBytes); }
  bool Write(std::span<const uint8_t> bytes) noexcept;
  // To be called at the end.
  bool Flush() noexcept;

 private:
  static constexpr size_t kBufferBytes = 1 << 16;
  Bytes* bytes_;
  uint64_t position_ = 0;
  std::vector<uint8_t> buffer_;
};

// Removes a file, also one that another thread writes to. A null name is none. May be called by a handler of
// signals.
void RemoveFile(const std::atomic<const char*>& name);

}  // namespace rastrel::formats

#endif
