// What a page file format is: how it is told, what can be done with it, and the functions that do it. One
// file a format; formats.cpp lists those that this build has.
#ifndef RASTREL_FORMATS_FORMAT_H
#define RASTREL_FORMATS_FORMAT_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "formats/bytes.h"
#include "formats/raw_page.h"
#include "pages/metadata.h"
#include "pages/page.h"

namespace rastrel::formats {

// ---- options ----------------------------------------------------------------------------------------------

// One that files are written with: a choice of words, or a number.
struct OptionEntry {
  const char* name;
  const char* help;
  const char* choices = nullptr;  // "a,b,c"; null for a number
  double least = 0, most = 0;
  const char* standard = "";  // what is taken where none is given; "" for none
};

// Those that were given, by name.
class Options {
 public:
  // From "name=value,name=value". Throws PageError where `entries` have no such option or value.
  Options(std::span<const OptionEntry> entries, std::string_view text);
  Options() = default;
  double Number(std::string_view name, double otherwise) const;
  std::string_view Choice(std::string_view name, std::string_view otherwise) const;

 private:
  struct Value {
    std::string name, text;
    double number;
  };
  const Value* Find(std::string_view name) const;
  std::vector<Value> values_;
};

// ---- reading ----------------------------------------------------------------------------------------------

// How pages are read, and what that may cost.
struct ReadOptions {
  int dpi = 300;  // at which pages are drawn that have no pixels of their own
  int64_t mostPixels = 1'000'000'000;
  int64_t mostBytes = int64_t{1} << 32;
  double mostSeconds = 120;
};

// The reading of one page, from its beginning on.
class Reading {
 public:
  Reading() : Reading(ReadOptions{}) {}
  explicit Reading(const ReadOptions& options)
      : options_(options), start_(std::chrono::steady_clock::now()) {}
  int dpi() const { return options_.dpi; }
  // Throw PageError beyond a limit. To be asked before memory is.
  void CheckPixels(int64_t width, int64_t height) const;
  void CheckBytes(uint64_t bytes) const;
  void CheckTime() const {
    if (isLate()) FailLate();
  }
  // For what a C library calls, which must not throw.
  bool isLate() const noexcept { return secondsLeft() < 0; }
  double secondsLeft() const noexcept {
    return options_.mostSeconds -
           std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }
  // MakePage within the limits; `workBytes` are needed beside it.
  Dib NewPage(int64_t width, int64_t height, int bits, Resolution resolution, uint64_t workBytes = 0) const;

 private:
  [[noreturn]] void FailLate() const;

  ReadOptions options_;
  std::chrono::steady_clock::time_point start_;
};

// ---- formats ----------------------------------------------------------------------------------------------

// The pages of a file: numbers that mean something to the format.
struct PageList {
  std::vector<uint64_t> places;
  std::string damage = {};  // set when the list breaks off: pages before the break are there
};

// A file of several pages under way.
class Document {
 public:
  Document() = default;
  virtual ~Document() = default;
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;
  // A page that the format's `encode` has made.
  virtual void Append(std::span<const uint8_t> encoded) = 0;
  virtual void Close() = 0;
};

// A file of many pages that takes long to open, and therefore stays open. For one thread at a time.
class PageSource {
 public:
  PageSource() = default;
  virtual ~PageSource() = default;
  PageSource(const PageSource&) = delete;
  PageSource& operator=(const PageSource&) = delete;
  virtual PageList List() = 0;
  virtual Dib Read(uint64_t place, const Reading& reading, Metadata* metadata) = 0;
  virtual PageInfo Describe(uint64_t place, int dpi) = 0;
  // Whether it has gathered so much on its way that another had better go on.
  virtual bool isWorn() const { return false; }
};

struct Format {
  const char* name;                              // "tif"; also how files end
  const char* title;                             // "TIFF"
  const char* extensions;                        // "tif,tiff"
  std::span<const std::string_view> signatures;  // a file begins with one of these; '?' is any byte
  std::span<const OptionEntry> options = {};
  const char* metadata = "";  // the items that its files keep, "icc,xmp"

  // All of these throw PageError. Formats that are read have `open`, or the other two.
  Dib (*read)(Bytes* file, uint64_t place, const Reading& reading, Metadata* metadata) = nullptr;
  PageInfo (*describe)(Bytes* file, uint64_t place) = nullptr;
  std::unique_ptr<PageSource> (*open)(std::unique_ptr<Bytes> file) = nullptr;
  // Null for formats of one page, which lies at 0.
  PageList (*list)(Bytes* file) = nullptr;
  // Formats of one page that are written have `write`, those of several the other two.
  void (*write)(const Dib& page, const Metadata& metadata, const Options& options, Bytes* file) = nullptr;
  std::vector<uint8_t> (*encode)(const Dib& page, const Metadata& metadata, const Options& options) = nullptr;
  std::unique_ptr<Document> (*create)(Bytes* file) = nullptr;

  // Of formats that hold more than pages of 1 to 24 bits do. `holdsRaw` tells which of them.
  Raw (*readRaw)(Bytes* file, uint64_t place, const Reading& reading, Metadata* metadata) = nullptr;
  bool (*holdsRaw)(const Raw& page) = nullptr;
  void (*writeRaw)(const Raw& page, const Metadata& metadata, const Options& options, Bytes* file) = nullptr;
  std::vector<uint8_t> (*encodeRaw)(const Raw& page, const Metadata& metadata,
                                    const Options& options) = nullptr;

  bool isRead() const { return read != nullptr || open != nullptr; }
  bool isWritten() const { return write != nullptr || encode != nullptr; }
  bool hasManyPages() const { return encode != nullptr; }
};

std::span<const Format* const> Formats();
// Whether a list like "tif,tiff" has the word.
bool HasWord(std::string_view list, std::string_view word);
// By one of its endings, in any case of letters; null for others.
const Format* FindFormat(std::string_view extension);

extern const Format kBmp, kTiff, kPng, kJpeg, kPdf, kPbm, kPgm, kPpm, kPam;

// ---- for readers and writers ------------------------------------------------------------------------------

// A sample with alpha over white.
inline uint8_t OverWhite(uint32_t value, uint32_t alpha) {
  return static_cast<uint8_t>((value * alpha + 255 * (255 - alpha) + 127) / 255);
}

[[noreturn]] inline void Damaged(std::string_view how) {
  throw PageError("is damaged" + std::string(how.empty() ? "" : ": ") + std::string(how), ErrDamagedFile);
}
[[noreturn]] void CannotHold(uint64_t fileBytes, int64_t width, int64_t height);
// What a write that failed throws.
[[noreturn]] void NotWritten(std::string_view why);

// What a file says of its own page, and what becomes less of it when it is read as a page of 1, 4, 8 or 24
// bits.
struct Original {
  std::string space;  // "grey", "RGB", "CMYK" ...
  int bits = 8;       // a sample
  std::string compression = {};
  bool isFloat = false, isSigned = false;
  bool hasAlpha = false;
  bool isMixed = false;  // its colours became red, green and blue
  int others = 0;        // samples a pixel that are neither colour nor alpha
};
// As the items "space", "depth", "compression" and "reduced", a reduction a line.
void Tell(const Original& original, Metadata* metadata);
void AddReduction(std::string_view text, Metadata* metadata);
// Of pixels that are no squares in a file that tells no resolution.
void TellProportions(double across, double down, Metadata* metadata);
// With an ICC profile for the colours that the page has: one for colours becomes one for the greys that were
// made of them; others are left out.
Metadata FittingProfile(const Metadata& metadata, const PageView& page);

// What a header tells of a page that is not read: `fillPalette` sets the colour table of a page of one pixel.
template <class FillPalette>
PageInfo InfoFromHeader(int64_t width, int64_t height, int bits, Resolution resolution, int orientation,
                        FillPalette fillPalette) {
  CheckSize(width, height, bits);
  const Dib sample = MakePage(1, 1, bits, resolution);
  const PageView view(sample);
  fillPalette(view);
  UseGreyRamp(view);
  PageInfo info = InfoOf(view);
  info.width = static_cast<int32_t>(width);
  info.height = static_cast<int32_t>(height);
  const bool isOnItsSide = orientation >= 5 && orientation <= 8;
  if (isOnItsSide) {
    std::swap(info.width, info.height);
    std::swap(info.dpiX, info.dpiY);
  }
  return info;
}

}  // namespace rastrel::formats

#endif
