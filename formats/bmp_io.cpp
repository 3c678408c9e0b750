// Bitmap files, through the library. It does not tell a file whose rows are cut short, nor a write that fails
// on a full disk, so both are checked here.
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "formats/page_io.h"
#include "formats/paths.h"
#include "pages/text.h"

namespace rastrel::formats {
namespace {

namespace fs = std::filesystem;

constexpr size_t kFileHeaderBytes = 14;
constexpr size_t kMostHeaderBytes = kFileHeaderBytes + sizeof(BITMAPINFOHEADER);

template <class Field>
Field FieldAt(const uint8_t* bytes) {
  Field field;
  std::memcpy(&field, bytes, sizeof(field));
  return field;
}

// Reads the headers and throws unless the file can hold the rows that they promise. A file made up to claim
// gigabytes is refused here, before anything is allocated for it.
void CheckHeaders(const std::string& path) {
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file) throw PageError(std::strerror(errno));
  std::array<uint8_t, kMostHeaderBytes> head{};
  file.read(reinterpret_cast<char*>(head.data()), head.size());
  const std::streamsize got = file.gcount();
  if (file.bad()) throw PageError("cannot be read");
  std::error_code error;
  const uint64_t fileBytes = fs::file_size(PathOf(path), error);
  if (error) throw PageError("cannot be read");

  const bool hasFileHeader = head[0] == 'B' && head[1] == 'M';
  const size_t start = hasFileHeader ? kFileHeaderBytes : 0;
  if (static_cast<size_t>(got) < start + sizeof(BITMAPINFOHEADER)) {
    throw PageError("is damaged: its headers are cut short");
  }
  const uint8_t* at = head.data() + start;
  const auto headerBytes = FieldAt<uint32_t>(at);
  int64_t width = 0, height = 0;
  unsigned bits = 0, compression = 0;
  uint64_t entryBytes = 4, colours = 0, claimed = 0;
  if (headerBytes == sizeof(BITMAPCOREHEADER)) {
    const auto core = FieldAt<BITMAPCOREHEADER>(at);
    width = core.bcWidth;
    height = core.bcHeight;
    bits = core.bcBitCount;
    entryBytes = 3;
  } else if (headerBytes == sizeof(BITMAPINFOHEADER)) {
    const auto info = FieldAt<BITMAPINFOHEADER>(at);
    width = info.biWidth;
    height = info.biHeight;
    bits = info.biBitCount;
    compression = info.biCompression;
    colours = info.biClrUsed;
    claimed = info.biSizeImage;
  } else {
    throw PageError(Text("has a bitmap header of ", headerBytes, " bytes; 40 and 12 are known"));
  }
  const bool isRunLength = (compression == BI_RLE8 && bits == 8) || (compression == BI_RLE4 && bits == 4);
  if (compression != BI_RGB && !isRunLength) {
    throw PageError(
        Text("is a bitmap of ", bits, " bits with compression ", compression, ", which is not supported"));
  }
  if (height < 0) throw PageError("is a top-down bitmap, which is not supported");
  if (bits != 1 && bits != 4 && bits != 8 && bits != 24) {
    throw PageError(Text("has ", bits, " bits a pixel; 1, 4, 8 and 24 are known"));
  }
  if (width < 1 || height < 1) throw PageError(Text("has a size of ", width, " x ", height, " pixels"));
  if (colours == 0 && bits <= 8) colours = uint64_t{1} << bits;
  const uint64_t offset = hasFileHeader ? FieldAt<uint32_t>(head.data() + 10) : 0;
  const uint64_t rowsAt = offset != 0 ? offset : start + headerBytes + colours * entryBytes;
  const uint64_t rows =
      isRunLength ? claimed : StrideOf(width, static_cast<int>(bits)) * static_cast<uint64_t>(height);
  if (rowsAt + rows > fileBytes || claimed > fileBytes) {
    throw PageError("is damaged: its rows are cut short");
  }
}

}  // namespace

Dib ReadBmp(const std::string& path) {
  CheckHeaders(path);
  SetRastrelError(ErrSuccess);
  Dib dib(LoadDIBFromFile(path.c_str()));
  if (!dib) throw PageError(RastrelError() == ErrSuccess ? "out of memory" : LibraryError());
  if (PageView(dib).header().biCompression != BI_RGB) {
    dib = Checked(ExpandCompressedDIB(dib.handle()));
  }
  return NormalisePage(std::move(dib));
}

void WriteBmp(const Dib& page, const std::string& path) {
  errno = 0;
  if (SaveDIB(path.c_str(), page.handle()) == 0) throw PageError(LibraryError());
  const int reason = errno != 0 ? errno : ENOSPC;
  std::error_code error;
  if (fs::file_size(PathOf(path), error) != uint64_t{GlobalSize(page.handle())} + kFileHeaderBytes) {
    throw PageError(Text("cannot be written in full: ", std::strerror(reason)));
  }
}

}  // namespace rastrel::formats
