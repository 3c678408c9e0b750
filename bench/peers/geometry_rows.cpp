// Mirror images and turns.
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "bench/peers/contest.h"
#include "bench/support/bench_page.h"

namespace rastrel::peers {
namespace {

constexpr double kAngle = 3.7;  // degrees, counter-clockwise

std::string Bits(const Page& page) { return ", " + std::to_string(page.dib.header().biBitCount) + " bit"; }

// The page turned about its middle into an image as large as ours is then.
cv::Mat TurnedByNearest(const cv::Mat& page, double degrees) {
  const double cosine = std::cos(degrees * CV_PI / 180), sine = std::sin(degrees * CV_PI / 180);
  const cv::Size size(cvCeil(page.cols * cosine + page.rows * sine),
                      cvCeil(page.cols * sine + page.rows * cosine));
  cv::Mat matrix = cv::getRotationMatrix2D(cv::Point(page.cols / 2, page.rows / 2), degrees, 1);
  matrix.at<double>(0, 2) += (size.width - page.cols) / 2.0;
  matrix.at<double>(1, 2) += (size.height - page.rows) / 2.0;
  cv::Mat turned;
  cv::warpAffine(page, turned, matrix, size, cv::INTER_NEAREST);
  return turned;
}

void AddRows(int bits, double horizontal, double quarter, double half, double angle, std::vector<Row>* rows) {
  const auto page = std::make_shared<const Page>(bench::BenchPage(bits));
  HGLOBAL dib = page->dib.handle();
  PIX* pix = page->pix.get();

  // Leptonica mirrors a copy; a copy of its own is what the others return.
  const auto flip = [page](int how) {
    return [page, how] {
      cv::Mat out;
      cv::flip(page->mat, out, how);
      return out;
    };
  };
  const auto rotate = [page](int how) {
    return [page, how] {
      cv::Mat out;
      cv::rotate(page->mat, out, how);
      return out;
    };
  };
  rows->push_back({"flip horizontal" + Bits(*page),
                   horizontal,
                   Does("FlipDIBHorizontal", [dib] { return FlipDIBHorizontal(dib); }),
                   {Does("Leptonica pixFlipLR", [pix] { return pixFlipLR(nullptr, pix); }),
                    Does("OpenCV flip", flip(1))}});
  rows->push_back({"flip vertical" + Bits(*page),
                   1,
                   Does("FlipDIBVertical", [dib] { return FlipDIBVertical(dib); }),
                   {Does("Leptonica pixFlipTB", [pix] { return pixFlipTB(nullptr, pix); }),
                    Does("OpenCV flip", flip(0))}});
  rows->push_back({"quarter turn" + Bits(*page),
                   quarter,
                   Does("TurnDIB", [dib] { return TurnDIB(dib, 1); }),
                   {Does("Leptonica pixRotate90", [pix] { return pixRotate90(pix, -1); }),
                    Does("OpenCV rotate", rotate(cv::ROTATE_90_COUNTERCLOCKWISE))}});
  rows->push_back({"half turn" + Bits(*page),
                   half,
                   Does("TurnDIB", [dib] { return TurnDIB(dib, 2); }),
                   {Does("Leptonica pixRotate180", [pix] { return pixRotate180(nullptr, pix); }),
                    Does("OpenCV rotate", rotate(cv::ROTATE_180))}});

  const auto radians = static_cast<float>(-kAngle * CV_PI / 180);
  Row turn = {"turn by 3.7 degrees, nearest" + Bits(*page),
              angle,
              Does("RotateDIB", [dib] { return RotateDIB(dib, kAngle); }),
              {Does("Leptonica pixRotateBySampling",
                    [pix, radians] {
                      return pixRotateBySampling(pix, pixGetWidth(pix) / 2, pixGetHeight(pix) / 2, radians,
                                                 L_BRING_IN_BLACK);
                    }),
               Does("OpenCV warpAffine", [page] { return TurnedByNearest(page->mat, kAngle); })},
              6,
              "Ours and OpenCV's results hold the whole turned page, Leptonica's has the size of the page."};
  if (bits == 1) {
    turn.peers.push_back(DoesOther("Leptonica pixRotateShear", [pix, radians] {
      return pixRotateShear(pix, pixGetWidth(pix) / 2, pixGetHeight(pix) / 2, radians, L_BRING_IN_BLACK);
    }));
    turn.note += " Turning by shears moves whole runs of rows and columns; strokes break where runs meet.";
  }
  rows->push_back(std::move(turn));
}

}  // namespace

std::vector<Row> GeometryRows() {
  std::vector<Row> rows;
  //      bits  flip  quarter half  angle
  AddRows(1, 8, 6, 6, 3, &rows);
  AddRows(8, 5, 2, 5, 3, &rows);
  AddRows(24, 2, 2, 2, 2, &rows);
  for (Row& row : rows) {
    if (row.note.empty() && row.work.ends_with(" 1 bit")) row.note = "OpenCV has a byte for each pixel.";
    if (row.note.empty() && row.work.ends_with(" 24 bit")) row.note = "Leptonica has 4 bytes for each pixel.";
  }
  return rows;
}

}  // namespace rastrel::peers
