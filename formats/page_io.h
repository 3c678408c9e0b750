// Page files: bitmaps, TIFF, PNG and JPEG, told apart by what they hold.
#ifndef RASTREL_FORMATS_PAGE_IO_H
#define RASTREL_FORMATS_PAGE_IO_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pages/page.h"

namespace rastrel::formats {

using namespace pages;

enum class Format { kBmp, kTiff, kPng, kJpeg };

// The names as an option takes them and as files end: "bmp", "tif", "png", "jpg".
std::string_view Extension(Format format);
// From a file name's ending or an option's value; nothing for others.
std::optional<Format> FormatNamed(std::string_view extension);

// What a file holds, as far as its first bytes and its directories tell.
struct PageFile {
  Format format = Format::kBmp;
  // One entry a page; where the page's directory lies in a TIFF file, else 0.
  std::vector<uint64_t> pages;
  // Set when the list of pages breaks off: those before the break are there.
  std::string damage;
};

// Throws PageError when the file cannot be read or is none of ours.
PageFile Inspect(const std::string& path);

// Reads one page. Its resolution is 0 where the file has none. Throws PageError.
Dib ReadPage(const std::string& path, Format format, uint64_t place);

struct WriteOptions {
  int jpegQuality = 0;  // 1 to 100 compresses grey and colour pages in TIFF files as JPEG; 0: deflate
};

// A page as it will stand in a TIFF file, made in any thread: a TIFF file of that page alone.
using EncodedTiff = std::vector<uint8_t>;
EncodedTiff EncodeTiff(const Dib& page, const WriteOptions& options);

// A TIFF file under way.
class TiffDocument {
 public:
  explicit TiffDocument(const std::string& path);
  ~TiffDocument();
  void Append(const EncodedTiff& page);
  // Throws PageError when the file cannot be completed.
  void Close();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Write one page to a file of its own, in place of what it held. Throw PageError, with a partial file left.
void WritePng(const Dib& page, const std::string& path);
void WriteBmp(const Dib& page, const std::string& path);

// The readers behind ReadPage.
Dib ReadBmp(const std::string& path);
Dib ReadPng(const std::string& path);
Dib ReadJpeg(const std::string& path);
Dib ReadTiff(const std::string& path, uint64_t directory);
// Fills in the pages of a TIFF file.
void ListTiffPages(const std::string& path, PageFile* file);

}  // namespace rastrel::formats

#endif
