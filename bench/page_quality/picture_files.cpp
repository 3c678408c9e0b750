#include "bench/page_quality/picture_files.h"

#include <jpeglib.h>
#include <png.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace rastrel::quality {
namespace {

struct CloseFile {
  void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

File Open(const std::string& path) {
  File file(std::fopen(path.c_str(), "wb"));
  if (file == nullptr) {
    std::fprintf(stderr, "%s cannot be written\n", path.c_str());
    std::exit(1);
  }
  return file;
}

// `samples` has a byte a sample; at 1 bit from 128 on a pixel is white.
void WritePng(const std::string& path, const std::vector<uint8_t>& samples, int width, int height, int bits,
              int dpi) {
  const File file = Open(path);
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_init_io(png, file.get());
  png_set_compression_level(png, 3);
  png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height),
               bits == 1 ? 1 : 8, bits == 24 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  const auto perMetre = static_cast<png_uint_32>(std::lround(dpi / 0.0254));
  png_set_pHYs(png, info, perMetre, perMetre, PNG_RESOLUTION_METER);
  png_write_info(png, info);
  const size_t stride = static_cast<size_t>(width) * (bits == 24 ? 3 : 1);
  std::vector<uint8_t> row(stride);
  for (int y = 0; y < height; ++y) {
    const uint8_t* from = &samples[static_cast<size_t>(y) * stride];
    if (bits == 1) {
      row.assign(stride / 8 + 1, 0);
      for (size_t x = 0; x < stride; ++x)
        if (from[x] >= 128) row[x / 8] = static_cast<uint8_t>(row[x / 8] | 0x80 >> x % 8);
    } else {
      row.assign(from, from + stride);
    }
    png_write_row(png, row.data());
  }
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
}

void WriteJpeg(const Page& page, const std::string& path) {
  const File file = Open(path);
  jpeg_compress_struct jpeg = {};
  jpeg_error_mgr errors;
  jpeg.err = jpeg_std_error(&errors);
  jpeg_create_compress(&jpeg);
  jpeg_stdio_dest(&jpeg, file.get());
  jpeg.image_width = static_cast<JDIMENSION>(page.width);
  jpeg.image_height = static_cast<JDIMENSION>(page.height);
  jpeg.input_components = page.bits == 24 ? 3 : 1;
  jpeg.in_color_space = page.bits == 24 ? JCS_RGB : JCS_GRAYSCALE;
  jpeg_set_defaults(&jpeg);
  jpeg_set_quality(&jpeg, page.jpegQuality, TRUE);
  jpeg.density_unit = 1;  // dots per inch
  jpeg.X_density = jpeg.Y_density = static_cast<UINT16>(page.dpi);
  jpeg_start_compress(&jpeg, TRUE);
  const size_t stride = static_cast<size_t>(page.width) * static_cast<size_t>(jpeg.input_components);
  while (jpeg.next_scanline < jpeg.image_height) {
    JSAMPROW row = const_cast<JSAMPROW>(&page.pixels[jpeg.next_scanline * stride]);
    jpeg_write_scanlines(&jpeg, &row, 1);
  }
  jpeg_finish_compress(&jpeg);
  jpeg_destroy_compress(&jpeg);
}

}  // namespace

void WritePage(const Page& page, const std::string& path) {
  if (page.jpegQuality > 0) return WriteJpeg(page, path);
  WritePng(path, page.pixels, page.width, page.height, page.bits, page.dpi);
}

void WriteTruth(const Page& page, const std::string& path) {
  WritePng(path, page.truth, page.width, page.height, 8, page.dpi);
}

}  // namespace rastrel::quality
