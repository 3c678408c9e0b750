// What the shared library shows of itself.
#include <string_view>

#include "formats/pdf_library/reader.h"

extern "C" __attribute__((visibility("default"))) const rastrel::formats::PdfLibrary* RastrelPdfLibrary(
    const char* version) {
  static constexpr rastrel::formats::PdfLibrary kLibrary = {rastrel::formats::OpenPdf,
                                                            rastrel::formats::CreatePdf};
  return std::string_view(version) == rastrel::formats::kPdfLibraryVersion ? &kLibrary : nullptr;
}
