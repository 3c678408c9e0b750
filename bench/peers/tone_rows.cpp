// Greys, dithering, blank pages, and pages laid on one another.
#include <array>
#include <opencv2/imgproc.hpp>

#include "bench/peers/contest.h"
#include "bench/support/bench_page.h"

namespace rastrel::peers {
namespace {

using PagePointer = std::shared_ptr<const Page>;

PagePointer Text(int bits) { return std::make_shared<const Page>(bench::BenchPage(bits)); }
PagePointer Photo(int bits) { return std::make_shared<const Page>(bench::BenchPhoto(bits)); }

Row DitherRow(const std::string& what, const PagePointer& page) {
  HGLOBAL dib = page->dib.handle();
  return {"Floyd-Steinberg 8 -> 1, " + what,
          1.5,
          Does("DitherFS4", [page, dib] { return DitherFS4(dib, 1); }),
          {Does("Leptonica pixDitherToBinary", [page] { return pixDitherToBinary(page->pix.get()); })},
          12,
          "Leptonica hands the error to three neighbours instead of four. OpenCV has no dithering."};
}

void AddGreyRows(std::vector<Row>* rows) {
  const PagePointer colour = Photo(24);
  rows->push_back({"24 -> 8 grey",
                   1,
                   Does("ConvColorDIBtoGrayscale",
                        [colour] {
                          HGLOBAL grey = ConvColorDIBtoGrayscale(colour->dib.handle(), 1, 0);
                          GlobalUnlock(colour->dib.handle());
                          return grey;
                        }),
                   {Does("Leptonica pixConvertRGBToLuminance",
                         [colour] { return pixConvertRGBToLuminance(colour->pix.get()); }),
                    Does("OpenCV cvtColor",
                         [colour] {
                           cv::Mat grey;
                           cv::cvtColor(colour->mat, grey, cv::COLOR_BGR2GRAY);
                           return grey;
                         })},
                   6,
                   "Other weights for red, green and blue."});

  const PagePointer grey = Text(8);
  rows->push_back({"8 -> 24",
                   1,
                   Does("Convert8to24", [grey] { return Convert8to24(grey->dib.handle()); }),
                   {Does("Leptonica pixConvert8To32", [grey] { return pixConvert8To32(grey->pix.get()); }),
                    Does("OpenCV cvtColor",
                         [grey] {
                           cv::Mat colours;
                           cv::cvtColor(grey->mat, colours, cv::COLOR_GRAY2BGR);
                           return colours;
                         })},
                   0,
                   "Ours goes by the page's colour table; the peers take grey."});
}

// A byte for each pixel of a packed page, by a table: what a user has to do before OpenCV's work.
cv::Mat Unpacked(const Page& page) {
  static const std::vector<std::array<uint8_t, 8>> kTable = [] {
    std::vector<std::array<uint8_t, 8>> table(256);
    for (unsigned byte = 0; byte < 256; ++byte) {
      for (unsigned x = 0; x < 8; ++x) table[byte][x] = (byte >> (7 - x) & 1) != 0 ? 255 : 0;
    }
    return table;
  }();
  const auto* block = static_cast<const uint8_t*>(GlobalLock(page.dib.handle()));
  const int width = page.mat.cols, height = page.mat.rows;
  const int stride = (width + 31) / 32 * 4;
  cv::Mat out(height, width, CV_8UC1);  // an A4 page's width is a multiple of 8
  for (int y = 0; y < height; ++y) {
    const uint8_t* from = block + 48 + static_cast<ptrdiff_t>(height - 1 - y) * stride;
    auto* to = out.ptr<std::array<uint8_t, 8>>(y);
    for (int i = 0; i < width / 8; ++i) to[i] = kTable[from[i]];
  }
  GlobalUnlock(page.dib.handle());
  return out;
}

Row SmoothRow(const PagePointer& page, uint32_t method, int side) {
  const std::string window = std::to_string(side) + " x " + std::to_string(side);
  return {"1 -> 8 smoothed " + window,
          8,
          Does("ConvertMonoDIBtoGrayscale",
               [page, method] { return ConvertMonoDIBtoGrayscale(page->dib.handle(), method); }),
          {Does("Leptonica pixBlocksum",
                [page, side] {
                  PIX* ink = pixBlocksum(page->pix.get(), nullptr, side / 2, side / 2);
                  return pixInvert(ink, ink);
                }),
           Does("Leptonica pixConvert1To8, pixBlockconv",
                [page, side] {
                  const PixOwner grey(pixConvert1To8(nullptr, page->pix.get(), 255, 0));
                  return pixBlockconv(grey.get(), side / 2, side / 2);
                }),
           Does("OpenCV blur, after unpacking",
                [page, side] {
                  cv::Mat smooth;
                  cv::blur(Unpacked(*page), smooth, cv::Size(side, side));
                  return smooth;
                })},
          8,
          "From the packed page. Ours comes out one or two rows higher, as its callers expect."};
}

void AddBlankRows(std::vector<Row>* rows) {
  const PagePointer mono = Text(1), grey = Text(8), colour = Text(24);
  // Whether it is blank, as the others count: with tolerances that are certain at the end of the page only.
  const auto blank = [](const PagePointer& page, int tolerance) {
    return Does("IsImageBlank", [page, tolerance] {
      return static_cast<double>(IsImageBlank(page->dib.handle(), tolerance, 0x808080));
    });
  };
  rows->push_back(
      {"blank test, 1 bit",
       4,
       blank(mono, 1000),
       {Does("Leptonica pixCountPixels",
             [mono] {
               int count = 0;
               pixCountPixels(mono->pix.get(), &count, nullptr);
               return count > 0 ? 1.0 : 0.0;
             }),
        Does("OpenCV countNonZero", [mono] { return cv::countNonZero(mono->mat) > 0 ? 1.0 : 0.0; })},
       0,
       "The peers count the pixels. OpenCV has a byte for each."});
  rows->push_back({"blank test, 8 bit",
                   1,
                   blank(grey, 0),
                   {Does("OpenCV countNonZero of what is lighter",
                         [grey] { return cv::countNonZero(grey->mat > 128) == 0 ? 1.0 : 0.0; }),
                    DoesOther("OpenCV countNonZero",
                              [grey] { return static_cast<double>(cv::countNonZero(grey->mat)); })},
                   0,
                   "Counting alone, without a comparison, is other work."});
  rows->push_back({"blank test, 24 bit",
                   1,
                   blank(colour, 0),
                   {Does("OpenCV inRange, countNonZero",
                         [colour] {
                           cv::Mat light;
                           cv::inRange(colour->mat, cv::Scalar(129, 129, 129), cv::Scalar(255, 255, 255),
                                       light);
                           return cv::countNonZero(light) == 0 ? 1.0 : 0.0;
                         })},
                   0,
                   ""});
}

Row AndRow(const std::string& where, double goal, int x) {
  const PagePointer source = Text(1);
  const auto ours = std::make_shared<Page>(bench::BenchPage(1));
  // All draw into the same page again and again, which changes nothing after the first time.
  Row row = {"AND of two 1-bit pages, " + where,
             goal,
             Does("CombineDIB",
                  [source, ours, x] {
                    HGLOBAL page = ours->dib.handle();
                    return static_cast<double>(CombineDIB(x, 0, &page, source->dib.handle(), nullptr, 1));
                  }),
             {Does("Leptonica pixRasterop",
                   [source, ours, x] {
                     PIX* to = ours->pix.get();
                     return pixRasterop(to, x, 0, pixGetWidth(to), pixGetHeight(to), PIX_SRC | PIX_DST,
                                        source->pix.get(), 0, 0) == 0
                                ? 1.0
                                : 0.0;
                   }),
              Does("OpenCV bitwise_and",
                   [source, ours, x] {
                     const int width = ours->mat.cols - x;
                     cv::Mat to = ours->mat.colRange(x, ours->mat.cols);
                     cv::bitwise_and(to, source->mat.colRange(0, width), to);
                     return 1.0;
                   })},
             0,
             "In place. Black is 1 in Leptonica, so it does OR. OpenCV has a byte for each pixel."};
  // Numbers compare above; here the pages.
  const auto page = [ours](int which) -> cv::Mat {
    if (which == 0) return Show(DuplicateDIB(ours->dib.handle()));
    return which == 1 ? Show(pixCopy(nullptr, ours->pix.get())) : ours->mat.clone();
  };
  const auto showAfterwards = [page](Contestant* contestant, int which) {
    contestant->show = [page, work = contestant->work, which] {
      work();
      return page(which);
    };
  };
  showAfterwards(&row.ours, 0);
  showAfterwards(&row.peers[0], 1);
  showAfterwards(&row.peers[1], 2);
  return row;
}

}  // namespace

std::vector<Row> ToneRows() {
  std::vector<Row> rows = {DitherRow("text", Text(8)), DitherRow("photograph", Photo(8))};
  AddGreyRows(&rows);
  rows.push_back(SmoothRow(Text(1), 1, 3));
  rows.push_back(SmoothRow(Text(1), 2, 5));
  AddBlankRows(&rows);
  rows.push_back(AndRow("aligned", 0.8, 0));
  rows.push_back(AndRow("at x = 13", 3, 13));
  return rows;
}

}  // namespace rastrel::peers
