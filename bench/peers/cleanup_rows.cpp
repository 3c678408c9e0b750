// Specks and skew.
#include <opencv2/imgproc.hpp>

#include "bench/peers/contest.h"
#include "bench/support/bench_page.h"

namespace rastrel::peers {
namespace {

constexpr int kSpeckLevel = 50;

auto Median3(const std::shared_ptr<const Page>& page) {
  return [page] {
    cv::Mat out;
    cv::medianBlur(page->mat, out, 3);
    return out;
  };
}

}  // namespace

std::vector<Row> CleanupRows() {
  const auto mono = std::make_shared<const Page>(bench::BenchPage(1));
  const auto grey = std::make_shared<const Page>(bench::BenchPage(8));
  std::vector<Row> rows;
  rows.push_back({"despeckle, 1 bit",
                  8,
                  Does("CleanImage", [mono] { return CleanImage(mono->dib.handle(), kSpeckLevel, 0); }),
                  {Does("OpenCV medianBlur 3 x 3", Median3(mono)),
                   Does("Leptonica pixBlockrank 3 x 3",
                        [mono] { return pixBlockrank(mono->pix.get(), nullptr, 1, 1, 0.5f); }),
                   Does("Leptonica pixSelectBySize",
                        [mono] {
                          return pixSelectBySize(mono->pix.get(), 3, 3, 8, L_SELECT_IF_EITHER, L_SELECT_IF_GT,
                                                 nullptr);
                        }),
                   DoesOther("Leptonica pixOpenBrickDwa 2 x 2",
                             [mono] { return pixOpenBrickDwa(nullptr, mono->pix.get(), 2, 2); })},
                  2,
                  "A median of 3 x 3 rounds corners as well; ours changes only what looks like a speck. "
                  "OpenCV's page is "
                  "unpacked before the timing starts. Opening takes away every stroke of one pixel."});
  rows.push_back({"rank filter, 8 bit",
                  0.6,
                  Does("CleanImage", [grey] { return CleanImage(grey->dib.handle(), kSpeckLevel, 1); }),
                  {Does("OpenCV medianBlur 3 x 3", Median3(grey)),
                   Does("Leptonica pixRankFilterGray 3 x 3",
                        [grey] { return pixRankFilterGray(grey->pix.get(), 3, 3, 0.5f); })},
                  3,
                  "OpenCV has one fixed rank, the median; ours any."});
  rows.push_back(
      {"skew detection, 1 bit",
       1.5,
       Does("DetectSkewAngle",
            [mono] { return static_cast<double>(DetectSkewAngle(mono->dib.handle(), 1, 0, nullptr)); }),
       {Does("Leptonica pixFindSkew",
             [mono] {
               float angle = 0, confidence = 0;
               pixFindSkew(mono->pix.get(), &angle, &confidence);
               return static_cast<double>(angle);
             })},
       1,
       "Ours looks from -44 to 45 degrees, in whole ones; Leptonica from -7 to 7, more finely."});
  return rows;
}

}  // namespace rastrel::peers
