// What PDF files are made of, as far as pages of pictures need it. Behind it stands qpdf in a shared library
// of its own, which is loaded when the first PDF file turns up: the others shall not wait for it.
//
// The library knows nothing of pages: what it gives and takes are stored bytes and what the file says of
// them.
#ifndef RASTREL_FORMATS_PDF_LIBRARY_H
#define RASTREL_FORMATS_PDF_LIBRARY_H

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "formats/bytes.h"

namespace rastrel::formats {

using Texts = std::vector<std::pair<std::string, std::string>>;  // names and values, in UTF-8

// Of samples after /Decode.
enum class PdfSpace { kGrey, kRgb, kCmyk, kIndexed, kOther };

// A picture as it is stored.
struct PdfPicture {
  int64_t width = 0, height = 0;
  int bits = 8;  // a sample
  PdfSpace space = PdfSpace::kGrey;
  std::string spaceName = {};         // for people
  bool isCalibrated = false;          // CalGray, CalRGB
  bool isInverted = false;            // /Decode exchanges the ends of all samples
  bool isStencil = false;             // black paint where samples are 0
  std::vector<uint8_t> palette = {};  // red, green, blue
  std::vector<uint8_t> profile = {};  // ICC
  // "CCITTFaxDecode", "DCTDecode", "JPXDecode", "JBIG2Decode", or "" for plain samples, whatever held those.
  std::string filter = {};
  std::string storedAs = {};  // for people: "Flate"
  int faxK = 0;
  int64_t faxColumns = 1728;
  bool isFaxByteAligned = false, isFaxBlack1 = false, hasFaxLineEnds = false;
  int jpegColours = -1;  // /ColorTransform
};

// A page that is one picture has it.
struct PdfPage {
  bool hasPicture = false;
  std::string reason = {};  // why it has not
  PdfPicture picture = {};
  int orientation = 1;                    // of the picture on the page, as EXIF counts
  double across = 0, down = 0;            // points from the first to behind the last column and row
  double width = 0, height = 0;           // of the page as it is shown, in points
  double unit = 1;                        // how much larger that is than its boxes say
  std::string label = {};                 // "iv"; empty where the file has no labels
  std::vector<std::string> leftOut = {};  // what the page has beside the picture
  std::vector<std::string> onTop = {};    // what is shown where the page is drawn
};

class PdfReader {
 public:
  virtual ~PdfReader() = default;
  virtual size_t Count() = 0;
  // Why there may be more pages; empty for a whole file.
  virtual std::string Damage() = 0;
  virtual PdfPage Page(size_t index) = 0;
  // The picture's bytes; plain samples up to `mostBytes`. `globals` is for JBIG2 pictures.
  virtual std::vector<uint8_t> PictureBytes(size_t index, uint64_t mostBytes,
                                            std::vector<uint8_t>* globals) = 0;
  // The document's Info: "Title" ...
  virtual Texts Info() = 0;
  // XMP of the page, or else of the document.
  virtual std::vector<uint8_t> Xmp(size_t index) = 0;
  // A file of that page alone, not encrypted.
  virtual void WriteAlone(size_t index, Bytes* file) = 0;
};

// A picture laid on a page, over those before it.
struct PdfLayer {
  PdfPicture picture;
  double left = 0, bottom = 0, width = 0, height = 0;  // points
  uint8_t paint[3] = {0, 0, 0};                        // of a stencil: red, green, blue
  std::string parameters = {};                         // /DecodeParms as PDF writes it
  std::span<const uint8_t> bytes = {};
};

struct PdfPageToWrite {
  double width = 0, height = 0;  // points
  std::vector<PdfLayer> layers = {};
  std::string label = {};
  std::vector<uint8_t> xmp = {};
};

// The whole document.
struct PdfDocumentInfo {
  Texts info = {};                // /Info
  std::vector<uint8_t> xmp = {};  // complete
  std::string archival = {};      // "2b" for PDF/A-2b
};

class PdfWriter {
 public:
  virtual ~PdfWriter() = default;
  // The bytes go to a place of their own at once.
  virtual void Append(const PdfPageToWrite& page) = 0;
  virtual void Finish(const PdfDocumentInfo& info, Bytes* file) = 0;
};

// All functions throw PageError.
struct PdfLibrary {
  std::unique_ptr<PdfReader> (*open)(std::unique_ptr<Bytes> file);
  // `spool` is where bytes wait.
  std::unique_ptr<PdfWriter> (*create)(std::unique_ptr<Bytes> spool);
};

// Of the library with this interface, or null for another version. Exported by name.
using GetPdfLibrary = const PdfLibrary*(const char* version);
inline constexpr const char* kPdfLibraryFunction = "RastrelPdfLibrary";
inline constexpr const char* kPdfLibraryVersion = RASTREL_VERSION ".2";

}  // namespace rastrel::formats

#endif
