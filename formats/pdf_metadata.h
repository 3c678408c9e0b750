// What is said of pages, as PDF documents say it.
#ifndef RASTREL_FORMATS_PDF_METADATA_H
#define RASTREL_FORMATS_PDF_METADATA_H

#include "formats/pdf_library.h"
#include "pages/metadata.h"

namespace rastrel::formats {

inline constexpr const char* kPdfMetadata =
    "icc,xmp,description,artist,copyright,date,document,keywords,creator,page-name,page-number,software";

// The items that a document's Info and a packet of XMP have.
void TakeMetadata(const Texts& info, const std::vector<uint8_t>& xmp, pages::Metadata* metadata);

// What a document says of itself: the items of its first page. With PDF/A its XMP is made anew, else it
// stays.
PdfDocumentInfo DocumentInfo(const pages::Metadata& metadata, const std::string& archival);

// Whether a packet has only properties that PDF/A knows.
bool IsArchivalXmp(const std::vector<uint8_t>& xmp);

}  // namespace rastrel::formats

#endif
