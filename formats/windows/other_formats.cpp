// The formats whose libraries are not part of the command here.
#include "formats/page_io.h"

namespace rastrel::formats {
namespace {

[[noreturn]] void Refuse() { throw PageError("is no BMP file; this rastrel knows no others"); }

}  // namespace

struct TiffDocument::State {};

Dib ReadPng(const std::string& /*path*/) { Refuse(); }
Dib ReadJpeg(const std::string& /*path*/) { Refuse(); }
Dib ReadTiff(const std::string& /*path*/, uint64_t /*directory*/) { Refuse(); }
void ListTiffPages(const std::string& /*path*/, PageFile* /*file*/) { Refuse(); }
void WritePng(const Dib& /*page*/, const std::string& /*path*/) { Refuse(); }
EncodedTiff EncodeTiff(const Dib& /*page*/, const WriteOptions& /*options*/) { Refuse(); }
TiffDocument::TiffDocument(const std::string& /*path*/) { Refuse(); }
TiffDocument::~TiffDocument() = default;
void TiffDocument::Append(const EncodedTiff& /*page*/) {}
void TiffDocument::Close() {}

}  // namespace rastrel::formats
