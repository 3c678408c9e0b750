// Our bytes as qpdf reads and writes them.
#ifndef RASTREL_FORMATS_PDF_LIBRARY_SOURCE_H
#define RASTREL_FORMATS_PDF_LIBRARY_SOURCE_H

#include <cstdio>
#include <qpdf/InputSource.hh>
#include <qpdf/Pipeline.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFExc.hh>

#include <algorithm>
#include <cstring>

#include "formats/pdf_library.h"

namespace rastrel::formats {

class BytesSource : public InputSource {
 public:
  explicit BytesSource(std::unique_ptr<Bytes> bytes) : bytes_(std::move(bytes)), size_(bytes_->size()) {}

  qpdf_offset_t findAndSkipNextEOL() override {
    char c = 0;
    while (Next(&c)) {
      if (c != '\n' && c != '\r') continue;
      const auto end = static_cast<qpdf_offset_t>(position_ - 1);
      do {
        if (!Next(&c)) return end;
      } while (c == '\n' || c == '\r');
      --position_;
      return end;
    }
    return static_cast<qpdf_offset_t>(position_);
  }
  const char* problem() const { return bytes_->problem(); }
  std::string const& getName() const override { return name_; }
  qpdf_offset_t tell() override { return static_cast<qpdf_offset_t>(position_); }
  void seek(qpdf_offset_t offset, int whence) override {
    const auto from = static_cast<qpdf_offset_t>(whence == SEEK_SET   ? 0
                                                 : whence == SEEK_CUR ? position_
                                                                      : size_);
    if (from + offset < 0) throw PageError("is damaged: it tells a place before its start", ErrDamagedFile);
    position_ = static_cast<uint64_t>(from + offset);
  }
  void rewind() override { position_ = 0; }
  size_t read(char* out, size_t length) override {
    last_offset = static_cast<qpdf_offset_t>(position_);
    const size_t got = length < sizeof(window_) ? ReadWindow(out, length) : ReadThrough(out, length);
    position_ += got;
    return got;
  }
  void unreadCh(char) override {
    if (position_ > 0) --position_;
  }

 private:
  bool Next(char* c) {
    const size_t got = ReadWindow(c, 1);
    position_ += got;
    return got == 1;
  }
  size_t ReadThrough(char* out, size_t length) {
    return bytes_->ReadAt(position_, {reinterpret_cast<uint8_t*>(out), length});
  }
  size_t ReadWindow(char* out, size_t length) {
    size_t got = 0;
    while (got < length) {
      const uint64_t at = position_ + got;
      if (at < start_ || at >= start_ + filled_) {
        start_ = at;
        filled_ = bytes_->ReadAt(at, window_);
        if (filled_ == 0) break;
      }
      const size_t count = std::min<size_t>(length - got, static_cast<size_t>(start_ + filled_ - at));
      std::memcpy(out + got, window_ + (at - start_), count);
      got += count;
    }
    return got;
  }

  std::unique_ptr<Bytes> bytes_;
  std::string name_ = "file";
  uint64_t size_, position_ = 0;
  uint64_t start_ = 0;  // of what the window shows
  size_t filled_ = 0;
  uint8_t window_[4096];
};

// Collects what flows into it, up to a limit. qpdf takes exceptions from here for damage of the stream and
// goes on, so it is asked afterwards.
class Collector : public Pipeline {
 public:
  explicit Collector(uint64_t mostBytes) : Pipeline("memory", nullptr), mostBytes_(mostBytes) {}
  void write(unsigned char const* data, size_t count) override {
    isOver_ = isOver_ || count > mostBytes_ - bytes_.size();
    if (!isOver_) bytes_.insert(bytes_.end(), data, data + count);
  }
  void finish() override {}
  bool isOver() const { return isOver_; }
  std::vector<uint8_t> Take() { return std::move(bytes_); }

 private:
  uint64_t mostBytes_;
  bool isOver_ = false;
  std::vector<uint8_t> bytes_;
};

// Asked afterwards, too.
class BytesSink : public Pipeline {
 public:
  explicit BytesSink(Bytes* bytes) : Pipeline("file", nullptr), bytes_(bytes) {
    buffer_.reserve(kBufferBytes);
  }
  void write(unsigned char const* data, size_t count) override {
    if (buffer_.size() + count > kBufferBytes) Flush();
    if (count > kBufferBytes) {
      Put({data, count});
    } else {
      buffer_.insert(buffer_.end(), data, data + count);
    }
  }
  void finish() override { Flush(); }
  bool hasFailed() const { return hasFailed_; }

 private:
  static constexpr size_t kBufferBytes = 1 << 16;
  void Flush() {
    Put(buffer_);
    buffer_.clear();
  }
  void Put(std::span<const uint8_t> bytes) {
    if (!bytes.empty()) hasFailed_ = !bytes_->WriteAt(position_, bytes) || hasFailed_;
    position_ += bytes.size();
  }
  Bytes* bytes_;
  uint64_t position_ = 0;
  bool hasFailed_ = false;
  std::vector<uint8_t> buffer_;
};

// Calls into qpdf; what it throws becomes a PageError. It prints nothing.
template <class Work>
auto Asking(Work work) {
  try {
    return work();
  } catch (const PageError&) {
    throw;
  } catch (const QPDFExc& error) {
    if (error.getErrorCode() == qpdf_e_password) {
      throw PageError("is encrypted: it needs a password", ErrUnsupported);
    }
    throw PageError("is damaged: " + error.getMessageDetail(), ErrDamagedFile);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& error) {
    throw PageError(std::string("is damaged: ") + error.what(), ErrDamagedFile);
  }
}

}  // namespace rastrel::formats

#endif
