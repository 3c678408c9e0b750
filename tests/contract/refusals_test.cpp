// What operations refuse, with which code, and what is left behind when memory, locks or windows fail.
#include <gtest/gtest.h>
#include <rastrel.h>

#include <climits>
#include <cmath>
#include <limits>

#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

// Whether an operation without a block for its result did what it should, as a handle. Freeing it does
// nothing.
HGLOBAL Done(bool isDone) { return isDone ? reinterpret_cast<HGLOBAL>(uintptr_t{1}) : nullptr; }

// Takes back the lock that success leaves on the page.
HGLOBAL Unlocked(HGLOBAL dib, HGLOBAL result) {
  if (result != nullptr) GlobalUnlock(dib);
  return result;
}

constexpr int kNone = kErrorBefore;  // the thread's error stays as it was

HGLOBAL Halftoned(HGLOBAL dib, uint16_t method) {
  uint16_t error = kNone;
  HGLOBAL result = Halftone(dib, method, 0, &error);
  EXPECT_EQ(kNone, RastrelError()) << "the error goes to the caller alone";
  SetRastrelError(error);
  return result;
}
HGLOBAL Sheared(HGLOBAL dib, int horizontal, int shift) {
  uint32_t error = 77;
  HGLOBAL result = SkewDIB(dib, horizontal, shift, &error, nullptr);
  EXPECT_EQ(result != nullptr ? 77u : static_cast<uint32_t>(RastrelError()), error);
  return Unlocked(dib, result);
}
HGLOBAL Cut(HGLOBAL dib, int rows) {
  HGLOBAL lower = nullptr, upper = nullptr;
  if (CutDIB(dib, rows, &lower, &upper) == 0) return nullptr;
  GlobalFree(upper);
  return lower;
}
HGLOBAL Cropped(HGLOBAL dib, double fraction, uint32_t x, int margin) {
  return CropToEdges(dib, fraction, &x, margin, 0, 1);
}
HGLOBAL Measured(HGLOBAL dib, SkewOptions options) {
  SkewResult found;
  return Done(MeasureSkew(dib, &options, &found) != 0);
}

using Call = HGLOBAL (*)(HGLOBAL dib);
using Change = void (*)(BITMAPINFOHEADER& h);
#define RUN(...) [](HGLOBAL dib) -> HGLOBAL { return __VA_ARGS__; }
#define CHANGE(...) [](BITMAPINFOHEADER& h) { __VA_ARGS__; }

struct Operation {
  const char* name;
  Call run;
  Refusals errors;                    // no handle, no block, a block that lies
  std::initializer_list<int> depths;  // of blocks that lie
  int depth;                          // of the page for the faults, 0 for none
  // The outcomes of one failing allocation or lock after the other, as DrawOutcomes gives them with an error;
  // "x" for nothing but clean failures, null for what is not looked at.
  const char* allocations;
  int allocationError;
  const char* locks;
  int lockError;
};

// clang-format off
const Operation kOperations[] = {
    {"FlipDIBVertical", RUN(FlipDIBVertical(dib)), {}, {}, 8, "x", kNone, "x", kNone},
    {"FlipDIBHorizontal", RUN(FlipDIBHorizontal(dib)), {}, {}, 8, "x", kNone, "x", kNone},
    // Where memory runs out for these the work is tried once more, in another way.
    {"TurnDIB", RUN(TurnDIB(dib, 1)), {8, 17, 19}, {1, 2, 4, 8, 16, 24, 32}, 8, "oo", 0, "x", 17},
    {"RotateDIB", RUN(RotateDIB(dib, 30)), {8, 17, 19}, {1, 4, 8, 24}, 8, "oo", 0, "x", 17},
    {"StraightenDIB", RUN(StraightenDIB(dib, 93, 1, 0)), {8, 17, 19}, {1, 4, 8, 24}, 8, "ooo", 0, "x", 17},
    {"Convert8to24", RUN(Convert8to24(dib)), {8, 17}, {}, 8, "oo", 0, "x", 17},
    {"SkewDIB across", RUN(Sheared(dib, 1, 5)), {8, 17, 19}, {1, 8, 24}, 8, "x", 1, "x", 17},
    {"SkewDIB up", RUN(Sheared(dib, 0, 5)), {8, 17, 19}, {1, 8, 24}, 8, "x", 1, "x", 17},
    {"TrimBlackBorder", RUN(TrimBlackBorder(dib)), {}, {1, 8, 24}, 8, "x", kNone, "x", kNone},
    {"DeskewDIB", RUN(DeskewDIB(dib, 1, 0, nullptr, 1)), {}, {1, 8, 24}, 0, nullptr, 0, nullptr, 0},
    // Kept: a copy that cannot be locked is lost, and one whose own locks failed is blank.
    {"PunchHoleRemover", RUN(PunchHoleRemover(dib, 0, 0, nullptr)), {}, {1, 8, 24}, 8, "x", kNone, "xxoolo", kNone},
    {"AutoPunchHoleRemover", RUN(AutoPunchHoleRemover(dib, 0, nullptr)), {}, {1, 8, 24}, 8, "x", kNone, "xxoolo", kNone},
    {"CleanImage", RUN(CleanImage(dib, 50, 1)), {}, {}, 1, "x", kNone, "xoolo", kNone},
    {"CropToEdges", RUN(Cropped(dib, 0, 0, 0)), {8, 17}, {}, 1, "x", 1, "x", 17},
    {"CropDIB", RUN(CropDIB(dib, 0, 0, 8, 4)), {8, 17}, {}, 8, "x", 1, "x", 17},
    {"CutDIB", RUN(Cut(dib, 2)), {}, {1, 4, 8, 24}, 8, "x", kNone, "x", kNone},
    {"DetectSkewAngle", RUN(Done(DetectSkewAngle(dib, 1, 0, nullptr) != 0)), {}, {1, 8, 24}, 0, nullptr, 0, nullptr, 0},
    {"MeasureSkew", RUN(Measured(dib, {})), {8, 17, 19}, {1, 4, 8, 24}, 8, "x", 1, nullptr, 0},
    {"IsImageBlank", RUN(Done(IsImageBlank(dib, 1000, 0) >= 0)), {}, {}, 8, nullptr, 0, "x", kNone},
    {"DitherFS4", RUN(DitherFS4(dib, 1)), {8, 17, 19}, {8, 24}, 24, "x", 1, "?xx?", 1},
    {"DitherJJN", RUN(DitherJJN(dib, 1)), {17, 1, 19}, {8, 24}, 24, "x", 1, "x", 1},
    {"DitherSmooth", RUN(DitherSmooth(dib, 1)), {17, 1, 19}, {4, 8, 24}, 24, "x", 1, "x", 1},
    {"DitherSharp", RUN(DitherSharp(dib, 4)), {17, 1, 19}, {8, 24}, 24, "x", 1, "x", 1},
    {"Halftone by threshold", RUN(Halftoned(dib, 0)), {8, 1, 19}, {4, 8, 24}, 24, "x", 1, "x", 1},
    {"Halftone by diffusion", RUN(Halftoned(dib, 1)), {8, 1, 19}, {4, 8, 24}, 24, "x", 1, "x", 1},
    {"ConvertMonoDIBtoGrayscale", RUN(ConvertMonoDIBtoGrayscale(dib, 2)), {8, 17, 19}, {1}, 1, "x", 1, "x", 17},
    {"ConvColorDIBtoGrayscale", RUN(Unlocked(dib, ConvColorDIBtoGrayscale(dib, 1, 2))), {8, 17, 19}, {1, 4, 8, 16, 24}, 24, "x", 1, "x", 17},
    {"ScaleDIB", RUN(ScaleDIB(dib, 1, 20, 10)), {8, 1}, {}, 8, "x", 1, "x", 1},
    {"ScaleDIB of 1 bit", RUN(ScaleDIB(dib, 1, 20, 10)), {8, 1}, {}, 1, "x", kNone, "?xo", kNone},
    {"ScaleGrayDIB", RUN(ScaleGrayDIB(dib, 0, 0, 9, 5, 2, 2, 1)), {}, {4, 8}, 8, "x", kNone, "x", kNone},
    {"ExpandCompressedDIB", RUN(ExpandCompressedDIB(dib)), {8, 8}, {}, 0, nullptr, 0, nullptr, 0},
    {"ConvertDIBToBitmap", RUN(ConvertDIBToBitmap(dib)), {kNone, kNone, 19}, {1, 4, 8, 16, 24, 32}, 0, nullptr, 0, nullptr, 0},
};

// A header with one fault, or with two of which the first one counts, and arguments that are refused.
struct Refusal {
  int error;
  int bits;
  Call run;
  Change change;
};
constexpr double kInfinity = std::numeric_limits<double>::infinity();
const Change kAsItIs = [](BITMAPINFOHEADER&) {};
const Refusal kRefusals[] = {
    {kNone, 8, RUN(FlipDIBVertical(dib)), CHANGE(h.biHeight++)},
    {kNone, 8, RUN(FlipDIBHorizontal(dib)), CHANGE(h.biHeight = -9)},
    {kNone, 8, RUN(FlipDIBVertical(dib)), CHANGE(h.biWidth = h.biHeight = INT_MAX, h.biPlanes = 65535)},
    {9, 8, RUN(TurnDIB(dib, 1)), CHANGE(h.biSize = 12, h.biCompression = 1)},
    {18, 8, RUN(TurnDIB(dib, 1)), CHANGE(h.biCompression = 1, h.biWidth = 0)},
    {19, 8, RUN(TurnDIB(dib, 1)), CHANGE(h.biHeight = 0, h.biBitCount = 15)},
    {13, 8, RUN(TurnDIB(dib, 1)), CHANGE(h.biBitCount = 15, h.biHeight = 999)},
    {9, 8, RUN(RotateDIB(dib, 5)), CHANGE(h.biSize = 12, h.biCompression = 1)},
    {18, 8, RUN(RotateDIB(dib, 5)), CHANGE(h.biCompression = 1, h.biWidth = 0)},
    {19, 8, RUN(RotateDIB(dib, 5)), CHANGE(h.biHeight = 0, h.biBitCount = 16)},
    {13, 8, RUN(RotateDIB(dib, 5)), CHANGE(h.biBitCount = 32, h.biHeight++)},
    {8, 8, RUN(RotateDIB(dib, std::nan(""))), kAsItIs},
    {8, 8, RUN(RotateDIB(dib, -kInfinity)), kAsItIs},
    {9, 8, RUN(StraightenDIB(dib, 5, 1, 0)), CHANGE(h.biSize = 12, h.biCompression = 1)},
    {18, 8, RUN(StraightenDIB(dib, 5, 1, 0)), CHANGE(h.biCompression = 1, h.biWidth = 0)},
    {19, 8, RUN(StraightenDIB(dib, 5, 1, 0)), CHANGE(h.biHeight = -17, h.biBitCount = 16)},
    {13, 8, RUN(StraightenDIB(dib, 5, 1, 0)), CHANGE(h.biBitCount = 2)},
    {8, 8, RUN(StraightenDIB(dib, kInfinity, 0, 0)), kAsItIs},
    {8, 8, RUN(StraightenDIB(dib, 5, 2, 0)), kAsItIs},
    {8, 8, RUN(StraightenDIB(dib, 5, 0x200, 0)), kAsItIs},
    {8, 8, RUN(Sheared(dib, 1, 1)), CHANGE(h.biSize = 12, h.biCompression = 1)},
    {18, 8, RUN(Sheared(dib, 0, 1)), CHANGE(h.biCompression = 1, h.biWidth = 0)},
    {19, 8, RUN(Sheared(dib, 1, 1)), CHANGE(h.biHeight = -4)},
    {19, 8, RUN(Sheared(dib, 0, 1)), CHANGE(h.biHeight++)},
    {1, 8, RUN(Sheared(dib, 0, INT_MAX)), kAsItIs},
    {1, 8, RUN(Sheared(dib, 1, INT_MIN)), kAsItIs},
    {kNone, 8, RUN(TrimBlackBorder(dib)), CHANGE(h.biBitCount = 4)},
    {15, 1, RUN(Cropped(dib, 0, 0, 0)), CHANGE(h.biSize = 12, h.biPlanes = 2)},
    {21, 1, RUN(Cropped(dib, 0, 0, 0)), CHANGE(h.biPlanes = 2, h.biCompression = 1)},
    {21, 8, RUN(Cropped(dib, 0, 0, 0)), CHANGE(h.biCompression = 1)},
    {18, 1, RUN(Cropped(dib, 0, 0, 0)), CHANGE(h.biCompression = 1, h.biWidth = 0)},
    {8, 1, RUN(Cropped(dib, 0, 0, 0)), CHANGE(h.biWidth = -100)},
    {8, 1, RUN(Cropped(dib, 0, 0, 0)), CHANGE(h.biHeight = 3)},
    {19, 1, RUN(Cropped(dib, 0, 0, 0)), CHANGE(h.biHeight = 1000)},
    {8, 1, RUN(Cropped(dib, -0.001, 0, 0)), kAsItIs},
    {8, 1, RUN(Cropped(dib, 1.001, 0, 0)), kAsItIs},
    {8, 1, RUN(Cropped(dib, std::nan(""), 0, 0)), kAsItIs},
    {8, 1, RUN(Cropped(dib, 0, 140, 0)), kAsItIs},
    {8, 1, RUN(Cropped(dib, 0, 0, 33)), kAsItIs},
    {8, 1, RUN(Cropped(dib, 0, 0, INT_MIN)), kAsItIs},
    {8, 1, RUN(CropToEdges(dib, 0, nullptr, 0, 0, 1)), kAsItIs},
    {15, 1, RUN(CropDIB(dib, 0, 0, 8, 499)), CHANGE(h.biSize = 108, h.biHeight = 500)},
    {8, 1, RUN(CropDIB(dib, 0, 0, 140, 9)), CHANGE(h.biSize = 108)},
    {19, 1, RUN(CropDIB(dib, 0, 0, 8, 0)), CHANGE(h.biHeight = 500)},
    {8, 8, RUN(CropDIB(dib, 0, 0, 8, 0)), CHANGE(h.biBitCount = 3)},
    {8, 8, RUN(CropDIB(dib, -1, 0, 1, 1)), kAsItIs},
    {8, 8, RUN(CropDIB(dib, 0, -1, 1, 1)), kAsItIs},
    {8, 8, RUN(CropDIB(dib, 0, 0, 1, 130)), kAsItIs},
    {8, 8, RUN(CropDIB(dib, 2, 0, 1, 1)), kAsItIs},
    {8, 8, RUN(CropDIB(dib, 0, 2, 1, 1)), kAsItIs},
    {kNone, 8, RUN(Cut(dib, 0)), kAsItIs},
    {kNone, 8, RUN(Cut(dib, 130)), kAsItIs},
    {kNone, 8, RUN(Cut(dib, INT_MIN)), kAsItIs},
    {kNone, 16, RUN(Cut(dib, 1)), kAsItIs},
    {kNone, 8, RUN(Done(CutDIB(dib, 1, nullptr, &dib) != 0)), kAsItIs},
    {kNone, 8, RUN(Done(CutDIB(dib, 1, &dib, nullptr) != 0)), kAsItIs},
    {9, 8, RUN(Measured(dib, {})), CHANGE(h.biSize = 12, h.biCompression = 1)},
    {18, 8, RUN(Measured(dib, {})), CHANGE(h.biCompression = 1, h.biWidth = 0)},
    {19, 8, RUN(Measured(dib, {})), CHANGE(h.biWidth = -5, h.biBitCount = 7)},
    {13, 24, RUN(Measured(dib, {})), CHANGE(h.biBitCount = 16)},
    {8, 8, RUN(Measured(dib, {-0.1, 0})), kAsItIs},
    {8, 8, RUN(Measured(dib, {45.1, 0})), kAsItIs},
    {8, 8, RUN(Measured(dib, {std::nan(""), 0})), kAsItIs},
    {8, 8, RUN(Measured(dib, {0, -1})), kAsItIs},
    {8, 8, RUN(Measured(dib, {0, 3})), kAsItIs},
    {8, 8, RUN(Done(MeasureSkew(dib, nullptr, nullptr) != 0)), kAsItIs},
    {8, 8, RUN(DitherFS4(dib, 2)), kAsItIs},
    {8, 24, RUN(DitherJJN(dib, 16)), kAsItIs},
    {8, 24, RUN(DitherSmooth(dib, 8)), kAsItIs},
    {8, 8, RUN(DitherSharp(dib, 257)), kAsItIs},
    {8, 8, RUN(Halftoned(dib, 3)), kAsItIs},
    {8, 1, RUN(ConvertMonoDIBtoGrayscale(dib, 3)), CHANGE(h.biSize = 12, h.biPlanes = 2)},
    {18, 1, RUN(ConvertMonoDIBtoGrayscale(dib, 0)), CHANGE(h.biPlanes = 2)},
    {18, 1, RUN(ConvertMonoDIBtoGrayscale(dib, 3)), CHANGE(h.biBitCount = 4, h.biWidth = 0)},
    {18, 1, RUN(ConvertMonoDIBtoGrayscale(dib, 3)), CHANGE(h.biCompression = 1, h.biWidth = 0)},
    {19, 1, RUN(ConvertMonoDIBtoGrayscale(dib, 3)), CHANGE(h.biWidth = 0)},
    {8, 1, RUN(ConvertMonoDIBtoGrayscale(dib, 3)), kAsItIs},
    {8, 4, RUN(ConvColorDIBtoGrayscale(dib, 1, 3)), CHANGE(h.biSize = 12, h.biCompression = 1)},
    {18, 1, RUN(ConvColorDIBtoGrayscale(dib, 1, 3)), CHANGE(h.biCompression = 1, h.biWidth = 0)},
    {19, 4, RUN(ConvColorDIBtoGrayscale(dib, 1, 3)), CHANGE(h.biHeight = 0)},
    {8, 1, RUN(ConvColorDIBtoGrayscale(dib, 1, 3)), kAsItIs},
    {8, 8, RUN(ScaleDIB(dib, 0, 0x10000, 5)), kAsItIs},
    {8, 24, RUN(ScaleDIB(dib, 0, 5, 0)), kAsItIs},
    {8, 4, RUN(ScaleDIB(dib, 0, 5, 5)), CHANGE(h.biWidth = 0x10000)},
    {18, 8, RUN(ScaleDIB(dib, 0, 5, 5)), CHANGE(h.biCompression = 1)},
    {1, 24, RUN(ScaleDIB(dib, 0, 65535, 65535)), kAsItIs},
    {19, 4, RUN(ScaleDIB(dib, 0, 5, 5)), CHANGE(h.biHeight++)},
    {21, 8, RUN(ScaleDIB(dib, 0, 5, 5)), CHANGE(h.biBitCount = 2)},
    {21, 8, RUN(ScaleDIB(dib, 0, 5, 5)), CHANGE(h.biBitCount = 65535)},
    {kNone, 1, RUN(ScaleDIB(dib, 0, 9, INT_MIN)), kAsItIs},
    {kNone, 1, RUN(ScaleDIB(dib, 0, INT_MAX, INT_MAX)), kAsItIs},
    {kNone, 8, RUN(ScaleGrayDIB(dib, -1, 0, 9, 5, 2, 2, 1)), kAsItIs},
    {kNone, 8, RUN(ScaleGrayDIB(dib, 0, -1, 9, 5, 2, 2, 1)), kAsItIs},
    {kNone, 8, RUN(ScaleGrayDIB(dib, 132, 0, 9, 5, 2, 2, 1)), kAsItIs},
    {kNone, 4, RUN(ScaleGrayDIB(dib, 0, 126, 9, 5, 2, 2, 1)), kAsItIs},
    {kNone, 8, RUN(ScaleGrayDIB(dib, 0, 0, 0, 5, 2, 2, 1)), kAsItIs},
    {kNone, 8, RUN(ScaleGrayDIB(dib, 0, 0, 9, 0, 2, 2, 1)), kAsItIs},
    {kNone, 8, RUN(ScaleGrayDIB(dib, 0, 0, 9, 5, 0, 2, 1)), kAsItIs},
    {kNone, 8, RUN(ScaleGrayDIB(dib, 0, 0, 9, 5, 2, -1, 1)), kAsItIs},
    {kNone, 8, RUN(ScaleGrayDIB(dib, 0, 0, 8, 5, 4096, 1, 0)), kAsItIs},
    {kNone, 8, RUN(ScaleGrayDIB(dib, 0, 0, 9, 4, 1, 8192, 0)), kAsItIs},
    {kNone, 8, RUN(ScaleGrayDIB(dib, 0, 0, 9, 5, 2, 2, 2)), kAsItIs},
    {kNone, 8, RUN(ScaleGrayDIB(dib, 32767, 32767, 9, 5, 2, 2, 0)), kAsItIs},
    {kNone, 24, RUN(ScaleGrayDIB(dib, 0, 0, 9, 5, 2, 2, 1)), kAsItIs},
    {8, 8, RUN(ExpandCompressedDIB(dib)), CHANGE(h.biCompression = 2)},
    {8, 8, RUN(ExpandCompressedDIB(dib)), CHANGE(h.biCompression = 1, h.biBitCount = 4)},
    {8, 8, RUN(ExpandCompressedDIB(dib)), CHANGE(h.biCompression = 1, h.biSizeImage = 0, h.biWidth = -1)},
    {19, 8, RUN(ExpandCompressedDIB(dib)), CHANGE(h.biCompression = 1, h.biWidth = -1)},
    {1, 8, RUN(ExpandCompressedDIB(dib)), CHANGE(h.biCompression = 1, h.biWidth = h.biHeight = INT_MAX)},
    {8, 8, RUN(Convert8to24(dib)), CHANGE(h.biSize = 12, h.biCompression = 1)},
    {18, 8, RUN(Convert8to24(dib)), CHANGE(h.biCompression = 1, h.biBitCount = 24)},
    {13, 8, RUN(Convert8to24(dib)), CHANGE(h.biBitCount = 4, h.biWidth = 0)},
    {31, 8, RUN(Convert8to24(dib)), CHANGE(h.biBitCount = 24, h.biHeight = 0)},
    {19, 8, RUN(Convert8to24(dib)), CHANGE(h.biWidth = 0x50000)},
    {kNone, 8, RUN(CleanImage(dib, 50, 1)), CHANGE(h.biPlanes = 2)},
    {kNone, 8, RUN(CleanImage(dib, 19, 1)), kAsItIs},
    {kNone, 1, RUN(CleanImage(dib, 101, 1)), kAsItIs},
    {kNone, 4, RUN(CleanImage(dib, 50, 1)), kAsItIs},
    {kNone, 1, RUN(CleanImage(dib, 50, 1)), CHANGE(h.biWidth = -9)},
    {kNone, 1, RUN(CleanImage(dib, 50, 1)), CHANGE(h.biHeight += 2)},
    {kNone, 8, RUN(CleanImage(dib, 50, 1)), CHANGE(h.biClrUsed = 0xFFFFFFFF)},
    {kNone, 8, RUN(PunchHoleRemover(dib, 0, 0, nullptr)), CHANGE(h.biYPelsPerMeter++)},
    {kNone, 8, RUN(PunchHoleRemover(dib, -4, 0, nullptr)), kAsItIs},
    {kNone, 4, RUN(PunchHoleRemover(dib, 0, 0, nullptr)), kAsItIs},
    {kNone, 8, RUN(PunchHoleRemover(dib, 0, 0, nullptr)), CHANGE(h.biXPelsPerMeter = h.biYPelsPerMeter = INT_MAX)},
    {kNone, 8, RUN(AutoPunchHoleRemover(dib, 0, nullptr)), CHANGE(h.biYPelsPerMeter++)},
    {kNone, 4, RUN(AutoPunchHoleRemover(dib, 0, nullptr)), kAsItIs},
    {kNone, 4, RUN(Done(DetectSkewAngle(dib, 1, 0, nullptr) != 0)), kAsItIs},
    {kNone, 4, RUN(DeskewDIB(dib, 1, 0, nullptr, 1)), kAsItIs},
    {11, 24, RUN(ConvertDIBToBitmap(dib)), CHANGE(h.biBitCount = 2)},
    {11, 24, RUN(ConvertDIBToBitmap(dib)), CHANGE(h.biCompression = 1)},
};
// clang-format on

void ExpectFaults(host::Fault fault, const char* outcomes, int error, const TestDib& page, Call run) {
  if (outcomes == nullptr) return;
  if (outcomes == std::string("x")) return ExpectEveryFault(fault, page, error, run);
  EXPECT_EQ(outcomes, DrawOutcomes(fault, page, error, run));
}

TEST(Operations, RefuseWhatIsNoPageAndSurviveEveryFault) {
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.name);
    ExpectRefusals(operation.errors, operation.depths, operation.run);
    if (operation.depth == 0) continue;
    const TestDib page = TestDib::Random(operation.depth, 140, 130, 1);
    ExpectFaults(host::Fault::kAllocation, operation.allocations, operation.allocationError, page,
                 operation.run);
    ExpectFaults(host::Fault::kLock, operation.locks, operation.lockError, page, operation.run);
  }
}

TEST(Operations, RefuseWithTheFirstCodeThatApplies) {
  for (const Refusal& refusal : kRefusals) {
    SCOPED_TRACE(::testing::Message() << "case " << &refusal - kRefusals);
    const TestDib page = TestDib::Random(refusal.bits, 140, 130, 1).With(refusal.change);
    SetRastrelError(kErrorBefore);
    EXPECT_EQ(nullptr, refusal.run(page.handle()));
    EXPECT_EQ(refusal.error, RastrelError());
    EXPECT_TRUE(page.Unchanged());
  }
  const TestDib wide(MakeHeader(24, 65535, 1));  // 46340 * 46340 pixels of 3 bytes
  EXPECT_EQ(nullptr, RotateDIB(wide.handle(), 45));
  EXPECT_EQ(ErrCreateBitmap, RastrelError());
  EXPECT_EQ(nullptr, StraightenDIB(wide.handle(), 45, 1, 0));
  EXPECT_EQ(ErrNoMemory, RastrelError());
}

// Kept: these leave one more lock on a page of another depth.
TEST(Operations, KeptLeaveALockOnPagesOfOtherDepths) {
  const auto expectLock = [](int bits, int error, Call run) {
    const BITMAPINFOHEADER header = MakeHeader(bits, -3, 2);  // the size comes later
    const auto* bytes = reinterpret_cast<const uint8_t*>(&header);
    const TestDib page(Bytes(bytes, bytes + sizeof(header)));
    SetRastrelError(kErrorBefore);
    EXPECT_EQ(nullptr, run(page.handle()));
    EXPECT_EQ(error, RastrelError());
    EXPECT_EQ(1u, GlobalFlags(page.handle()) & GMEM_LOCKCOUNT) << bits;
  };
  for (const int bits : {0, 1, 16, 32}) {
    expectLock(bits, ErrParameter, RUN(Halftoned(dib, 0)));
    expectLock(bits, ErrDitherParameter, RUN(DitherJJN(dib, 8)));
    expectLock(bits, ErrDitherParameter, RUN(DitherSmooth(dib, 1)));
  }
  expectLock(4, ErrDitherParameter, RUN(DitherFS4(dib, 4)));
  expectLock(4, ErrDitherParameter, RUN(DitherSharp(dib, 4)));
}

}  // namespace
}  // namespace rastrel::testing
