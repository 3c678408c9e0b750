// Pictures between the form that PDF files store and pages.
#ifndef RASTREL_FORMATS_PDF_PICTURES_H
#define RASTREL_FORMATS_PDF_PICTURES_H

#include "formats/format.h"
#include "formats/pdf_library.h"

namespace rastrel::formats {

// A form that is not read as it is stored, with the reason: such a page is drawn.
class NotReadAsStored : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// How many bytes plain samples have, and at most what is compressed otherwise.
uint64_t MostBytes(const PdfPicture& picture);

// Throws PageError where it is damaged, and NotReadAsStored. `metadata` may be null.
Dib PageOf(const PdfPicture& picture, std::vector<uint8_t> bytes, std::vector<uint8_t> globals,
           const Reading& reading, Metadata* metadata);

// A PPM file that a program has drawn.
Dib FromProgram(std::span<const uint8_t> file, const Reading& reading);

// What becomes of a page in a file, with the bytes beside it.
struct StoredPicture {
  PdfPicture picture;
  std::string parameters;  // /DecodeParms
  std::vector<uint8_t> bytes;
};
// Black and white as Group 4; others as deflate, or as JPEG with a `quality` other than 0.
StoredPicture Stored(const Dib& page, int quality);

}  // namespace rastrel::formats

#endif
