// Pages in other sizes.
#include <opencv2/imgproc.hpp>

#include "bench/peers/contest.h"
#include "bench/support/bench_page.h"

namespace rastrel::peers {
namespace {

Row ScaleRow(const std::shared_ptr<const Page>& page, bool isCubic, int percent, double goal,
             double tolerance) {
  const bool isMono = page->dib.header().biBitCount == 1;
  const int width = page->mat.cols * percent / 100, height = page->mat.rows * percent / 100;
  const auto factor = static_cast<float>(percent) / 100;
  const int method = isMono ? cv::INTER_NEAREST : isCubic ? cv::INTER_CUBIC : cv::INTER_LINEAR;
  Row row = {std::string(isMono    ? "scaling, 1 bit, "
                         : isCubic ? "cubic, 24 bit, "
                                   : "bilinear, 24 bit, ") +
                 std::to_string(percent) + " %",
             goal,
             Does("ScaleDIB", [page, isCubic, width,
                               height] { return ScaleDIB(page->dib.handle(), isCubic, width, height); }),
             {Does("OpenCV resize",
                   [page, width, height, method] {
                     cv::Mat out;
                     cv::resize(page->mat, out, cv::Size(width, height), 0, 0, method);
                     return out;
                   })},
             tolerance,
             ""};
  if (isMono) {
    row.peers.push_back(Does("Leptonica pixScaleBinary",
                             [page, factor] { return pixScaleBinary(page->pix.get(), factor, factor); }));
    row.note = "OpenCV has a byte for each pixel.";
  } else if (!isCubic) {
    row.peers.push_back(Does("Leptonica pixScaleColorLI",
                             [page, factor] { return pixScaleColorLI(page->pix.get(), factor, factor); }));
  } else {
    row.note = "Leptonica has no cubic scaling.";
  }
  return row;
}

}  // namespace

std::vector<Row> ScalingRows() {
  const auto photo = std::make_shared<const Page>(bench::BenchPhoto(24));
  const auto mono = std::make_shared<const Page>(bench::BenchPage(1));
  std::vector<Row> rows;
  rows.push_back(ScaleRow(photo, false, 50, 1, 6));
  rows.push_back(ScaleRow(photo, false, 45, 1, 6));
  rows.push_back(ScaleRow(photo, false, 150, 1.5, 6));
  rows.push_back(ScaleRow(photo, true, 50, 3, 6));
  rows.push_back(ScaleRow(photo, true, 150, 2, 6));
  rows.push_back(ScaleRow(mono, false, 50, 6, 6));
  rows.push_back(ScaleRow(mono, false, 150, 6, 6));
  return rows;
}

}  // namespace rastrel::peers
