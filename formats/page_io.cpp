#include "formats/page_io.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "formats/paths.h"

namespace rastrel::formats {
namespace {

namespace fs = std::filesystem;

struct FormatName {
  std::string_view name;
  Format format;
};
// The first name of each format is the one that files are written with.
constexpr FormatName kFormatNames[] = {{"bmp", Format::kBmp},   {"dib", Format::kBmp}, {"tif", Format::kTiff},
                                       {"tiff", Format::kTiff}, {"png", Format::kPng}, {"jpg", Format::kJpeg},
                                       {"jpeg", Format::kJpeg}, {"jpe", Format::kJpeg}};

struct Signature {
  std::string_view bytes;
  Format format;
};
using namespace std::string_view_literals;
constexpr Signature kSignatures[] = {
    {"II\x2A\0"sv, Format::kTiff},   {"MM\0\x2A"sv, Format::kTiff},
    {"II\x2B\0"sv, Format::kTiff},   {"MM\0\x2B"sv, Format::kTiff},  // the same with 64-bit offsets
    {"\x89PNG\r\n"sv, Format::kPng}, {"\xFF\xD8\xFF"sv, Format::kJpeg},
    {"BM"sv, Format::kBmp},          {"\x28\0\0\0"sv, Format::kBmp},  // a bitmap without its file header
    {"\x0C\0\0\0"sv, Format::kBmp},
};

}  // namespace

std::string_view Extension(Format format) {
  for (const FormatName& entry : kFormatNames) {
    if (entry.format == format) return entry.name;
  }
  return "";
}

std::optional<Format> FormatNamed(std::string_view extension) {
  std::string lower;
  for (const char c : extension) lower += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  for (const FormatName& entry : kFormatNames) {
    if (entry.name == lower) return entry.format;
  }
  return std::nullopt;
}

PageFile Inspect(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(PathOf(path), error);
  if (!fs::exists(status)) throw PageError(error.message());
  if (fs::is_directory(status)) throw PageError("is a directory");
  if (!fs::is_regular_file(status)) throw PageError("is not a regular file");
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file) throw PageError(std::strerror(errno));
  std::array<char, 8> start{};
  file.read(start.data(), start.size());
  const std::streamsize got = file.gcount();
  if (file.bad()) throw PageError(std::strerror(errno != 0 ? errno : EIO));
  if (got == 0) throw PageError("is empty");

  const std::string_view head(start.data(), static_cast<size_t>(got));
  for (const Signature& signature : kSignatures) {
    if (!head.starts_with(signature.bytes)) continue;
    PageFile result;
    result.format = signature.format;
    if (result.format == Format::kTiff) {
      ListTiffPages(path, &result);
    } else {
      result.pages = {0};
    }
    return result;
  }
  throw PageError("is not a BMP, TIFF, PNG or JPEG file");
}

Dib ReadPage(const std::string& path, Format format, uint64_t place) {
  Dib page;
  switch (format) {
    case Format::kBmp:
      page = ReadBmp(path);
      break;
    case Format::kTiff:
      page = ReadTiff(path, place);
      break;
    case Format::kPng:
      page = ReadPng(path);
      break;
    case Format::kJpeg:
      page = ReadJpeg(path);
      break;
  }
  return page;
}

}  // namespace rastrel::formats
