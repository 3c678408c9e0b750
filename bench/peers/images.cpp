#include "bench/peers/images.h"

#include <cstring>
#include <utility>
#include <vector>

namespace rastrel::peers {
namespace {

cv::Mat ImageOfDib(const uint8_t* block) {
  BITMAPINFOHEADER header;
  std::memcpy(&header, block, sizeof(header));
  const int bits = header.biBitCount;
  const size_t entries = bits > 8 ? 0 : header.biClrUsed != 0 ? header.biClrUsed : size_t{1} << bits;
  const uint8_t* table = block + sizeof(header);
  const uint8_t* rows = table + 4 * entries;
  const size_t stride = (static_cast<size_t>(header.biWidth) * static_cast<size_t>(bits) + 31) / 32 * 4;
  cv::Mat image(header.biHeight, header.biWidth, bits == 24 ? CV_8UC3 : CV_8UC1);
  for (int y = 0; y < image.rows; ++y) {
    const uint8_t* from = rows + static_cast<size_t>(image.rows - 1 - y) * stride;
    auto* to = image.ptr<uint8_t>(y);
    if (bits == 24) {
      std::memcpy(to, from, static_cast<size_t>(image.cols) * 3);
      continue;
    }
    for (int x = 0; x < image.cols; ++x) {
      const unsigned index = bits == 8 ? from[x] : from[x / 8] >> (7 - x % 8) & 1u;
      to[x] = table[4 * index];
    }
  }
  return image;
}

cv::Mat ImageOfPix(PIX* pix) {
  const int bits = pixGetDepth(pix);
  cv::Mat image(pixGetHeight(pix), pixGetWidth(pix), bits == 32 ? CV_8UC3 : CV_8UC1);
  for (int y = 0; y < image.rows; ++y) {
    l_uint32* line = pixGetData(pix) + static_cast<ptrdiff_t>(y) * pixGetWpl(pix);
    auto* to = image.ptr<uint8_t>(y);
    for (int x = 0; x < image.cols; ++x) {
      if (bits == 1) {
        to[x] = GET_DATA_BIT(line, x) != 0 ? 0 : 255;
      } else if (bits == 8) {
        to[x] = static_cast<uint8_t>(GET_DATA_BYTE(line, x));
      } else {
        to[3 * x] = static_cast<uint8_t>(line[x] >> 8);
        to[3 * x + 1] = static_cast<uint8_t>(line[x] >> 16);
        to[3 * x + 2] = static_cast<uint8_t>(line[x] >> 24);
      }
    }
  }
  return image;
}

cv::Mat ImageOf(const testing::TestDib& dib) {
  const testing::Bytes block = dib.block();
  return ImageOfDib(block.data());
}

}  // namespace

PixOwner MakePix(const cv::Mat& image, int bits) {
  PixOwner pix(pixCreate(image.cols, image.rows, bits == 24 ? 32 : bits));
  pixSetResolution(pix.get(), 300, 300);
  for (int y = 0; y < image.rows; ++y) {
    l_uint32* line = pixGetData(pix.get()) + static_cast<ptrdiff_t>(y) * pixGetWpl(pix.get());
    const auto* from = image.ptr<uint8_t>(y);
    for (int x = 0; x < image.cols; ++x) {
      if (bits == 1) {
        if (from[x] < 128) SET_DATA_BIT(line, x);
      } else if (bits == 8) {
        SET_DATA_BYTE(line, x, from[x]);
      } else {
        composeRGBPixel(from[3 * x + 2], from[3 * x + 1], from[3 * x], line + x);
      }
    }
  }
  return pix;
}

Page::Page(testing::TestDib page)
    : dib(std::move(page)), mat(ImageOf(dib)), pix(MakePix(mat, dib.header().biBitCount)) {}

void Free(HGLOBAL result) { GlobalFree(result); }
void Free(PIX* result) { pixDestroy(&result); }

cv::Mat Show(HGLOBAL result) {
  if (result == nullptr) return {};
  const cv::Mat image = ImageOfDib(static_cast<const uint8_t*>(GlobalLock(result)));
  GlobalUnlock(result);
  GlobalFree(result);
  return image;
}

cv::Mat Show(PIX* result) {
  if (result == nullptr) return {};
  const PixOwner owner(result);
  const PixOwner plain(pixRemoveColormap(result, REMOVE_CMAP_BASED_ON_SRC));
  return ImageOfPix(plain.get());
}

cv::Mat Show(const cv::Mat& result) { return result; }
cv::Mat Show(double result) { return {1, 1, CV_64FC1, cv::Scalar(result)}; }

}  // namespace rastrel::peers
