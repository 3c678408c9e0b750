#ifndef RASTREL_FORMATS_PDF_LIBRARY_READER_H
#define RASTREL_FORMATS_PDF_LIBRARY_READER_H

#include "formats/pdf_library.h"

namespace rastrel::formats {

std::unique_ptr<PdfReader> OpenPdf(std::unique_ptr<Bytes> file);
std::unique_ptr<PdfWriter> CreatePdf(std::unique_ptr<Bytes> spool);

}  // namespace rastrel::formats

#endif
