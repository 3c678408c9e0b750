// The same page as each library holds it, and what each makes of it as a plain image to compare.
#ifndef RASTREL_BENCH_PEERS_IMAGES_H
#define RASTREL_BENCH_PEERS_IMAGES_H

#include <leptonica/allheaders.h>

#include <memory>
#include <opencv2/core.hpp>

#include "tests/support/test_dib.h"

namespace rastrel::peers {

struct PixDestroyer {
  void operator()(PIX* pix) const { pixDestroy(&pix); }
};
using PixOwner = std::unique_ptr<PIX, PixDestroyer>;

// A page in all three forms: Leptonica has 4 bytes a pixel for colour, OpenCV a byte a pixel for 1 bit.
struct Page {
  explicit Page(testing::TestDib page);

  testing::TestDib dib;
  cv::Mat mat;
  PixOwner pix;
};

// What contestants return: how to free it, and what it shows. An image is grey, or blue, green and red, its
// top row first; a number is an image of one value. What is shown is freed.
void Free(HGLOBAL result);
void Free(PIX* result);
inline void Free(const cv::Mat&) {}
inline void Free(double) {}
cv::Mat Show(HGLOBAL result);
cv::Mat Show(PIX* result);
cv::Mat Show(const cv::Mat& result);
cv::Mat Show(double result);

// A copy of an image of the depth given, for Leptonica.
PixOwner MakePix(const cv::Mat& image, int bits);

}  // namespace rastrel::peers

#endif
