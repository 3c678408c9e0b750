// Runs every operation on a few hundred pages, which are the same everywhere, and compares what comes out
// with stored checksums (support/golden.h).
//
// Left out is what the screen or the system decides: GetCurrentPalette, GetSystemPalette, ConvertBitmapToDIB,
// ConvertDIBToBitmap, LoadBitmapFromFile, SaveBitmap, CombineBMP, and bitmaps of other depths than 1 and 32
// bits. ReadDIBInfo is a part of LoadDIBFromFile.
#include "support/golden.h"

#include "support/any_page.h"

using namespace rastrel::testing;

namespace {

// Where a page is whole its file is too; rows that a file lacks hold no particular values.
void RecordFrame(HGLOBAL page, int width, int height, bool isWhole) {
  RecordNumber("PaletteSize", [&] {
    const int size = PaletteSize(GlobalLock(page));
    GlobalUnlock(page);
    return size;
  });
  RecordPage("DuplicateDIB", [&] { return DuplicateDIB(page); });
  if (isWhole) {
    RecordPage("SaveDIB+LoadDIBFromFile", [&] {
      SaveDIB("golden.bmp", page);
      HGLOBAL loaded = LoadDIBFromFile("golden.bmp");
      std::remove("golden.bmp");
      return loaded;
    });
  }
  RecordPage("InvertDIBPalette", [&] {
    HGLOBAL copy = DuplicateDIB(page);
    InvertDIBPalette(copy);
    return copy;
  });
  Record("Get+SetDIBPixelColor", [&](Checksum& sum) {
    HGLOBAL copy = DuplicateDIB(page);
    COLORREF colour = 0, other = 0xFFFFFF;
    const auto x = static_cast<unsigned>(width / 2), y = static_cast<unsigned>(height / 3);
    sum.Add(GetDIBPixelColor(copy, x, y, &colour)).Add(static_cast<int32_t>(colour));
    sum.Add(SetDIBPixelColor(copy, x, y, other)).AddBlock(copy);
    GlobalFree(copy);
  });
  Record("CreateDIBPalette", [&](Checksum& sum) {
    HPALETTE palette = CreateDIBPalette(page);
    PALETTEENTRY entries[256] = {};
    const unsigned count = palette == nullptr ? 0 : GetPaletteEntries(palette, 0, 256, entries);
    sum.Add(entries, count * sizeof(PALETTEENTRY));
    if (palette != nullptr) DeleteObject(palette);
  });
  RecordPage("Convert8to24", [&] { return Convert8to24(page); });
  for (const uint32_t compression : {BI_RLE8, BI_RLE4}) {
    RecordPage(With("ExpandCompressedDIB", {static_cast<int>(compression)}), [&] {
      HGLOBAL copy = DuplicateDIB(page);
      auto* header = static_cast<BITMAPINFOHEADER*>(GlobalLock(copy));
      header->biCompression = compression;
      GlobalUnlock(copy);
      HGLOBAL result = ExpandCompressedDIB(copy);
      GlobalFree(copy);
      return result;
    });
  }
}

void RecordGeometry(HGLOBAL page) {
  RecordPage("FlipDIBVertical", [&] { return FlipDIBVertical(page); });
  RecordPage("FlipDIBHorizontal", [&] { return FlipDIBHorizontal(page); });
  for (const int turns : {-1, 1, 2})
    RecordPage(With("TurnDIB", {turns}), [&] { return TurnDIB(page, turns); });
  for (const int hundredths : {370, -1225, 4500, 9000, 18100, 29950, 1, -4499}) {
    RecordPage(With("RotateDIB", {hundredths}), [&] { return RotateDIB(page, hundredths / 100.0); });
  }
  for (const int hundredths : {40, -370, 4500, 9001, 27000}) {
    for (const int quality : {0, 1, 0 | STRAIGHTEN_SAME_SIZE, 1 | STRAIGHTEN_SAME_SIZE}) {
      RecordPage(With("StraightenDIB", {hundredths, quality}),
                 [&] { return StraightenDIB(page, hundredths / 100.0, quality, 0xE0F0FF); });
    }
  }
  RecordPage("RotateDIB90", [&] { return RotateDIB90(page); });
  RecordPage("RotateDIB180", [&] { return RotateDIB180(page); });
  RecordPage("RotateDIB270", [&] { return RotateDIB270(page); });
  HGLOBAL tiles = nullptr;
  int counts[2] = {};
  Record("SplitDIB", [&](Checksum& sum) {
    if (sum.Add(SplitDIB(page, 32, 20, &tiles, counts)).Add(counts[0]).Add(counts[1]); tiles == nullptr)
      return;
    for (int i = 0; i < counts[0] * counts[1]; ++i) sum.AddBlock(static_cast<HGLOBAL*>(GlobalLock(tiles))[i]);
  });
  if (tiles == nullptr) return;
  RecordPage("MergeDIBs", [&] { return MergeDIBs(tiles, counts[0], counts[1]); });
  for (int i = 0; i < counts[0] * counts[1]; ++i) GlobalFree(static_cast<HGLOBAL*>(GlobalLock(tiles))[i]);
  GlobalFree(tiles);
}

void RecordTone(HGLOBAL page) {
  for (const int bits : {1, 4, 8}) {
    RecordPage(With("DitherFS4", {bits}), [&] { return DitherFS4(page, bits); });
    RecordPage(With("DitherJJN", {bits}), [&] { return DitherJJN(page, bits); });
    RecordPage(With("DitherSmooth", {bits}), [&] { return DitherSmooth(page, bits); });
    RecordPage(With("DitherSharp", {bits}), [&] { return DitherSharp(page, bits); });
  }
  for (const int method : {0, 1, 2}) {
    for (const int brightness : {0, -40}) {
      Record(With("Halftone", {method, brightness}), [&](Checksum& sum) {
        uint16_t error = 0;
        HGLOBAL result = Halftone(page, static_cast<uint16_t>(method), brightness, &error);
        sum.AddBlock(result).Add(error);
        if (result != nullptr) GlobalFree(result);
      });
    }
    const auto smoothing = static_cast<uint32_t>(method);
    RecordPage(With("ConvertMonoDIBtoGrayscale", {method}),
               [&] { return ConvertMonoDIBtoGrayscale(page, smoothing); });
    RecordPage(With("ConvMonoDIBtoGrayscale", {method}),
               [&] { return ConvMonoDIBtoGrayscale(page, smoothing); });
    RecordPage(With("ConvColorDIBtoGrayscale", {method}),
               [&] { return ConvColorDIBtoGrayscale(page, method % 2, smoothing); });
  }
  for (const int tolerance : {0, 300, 900}) {
    RecordNumber(With("IsImageBlank", {tolerance}), [&] { return IsImageBlank(page, tolerance, 0x808080); });
  }
}

void RecordCleanup(HGLOBAL page, int width, int height) {
  for (const int dark : {0, 1}) {
    RecordNumber(With("DetectSkewAngle", {dark}), [&] { return DetectSkewAngle(page, dark, 0, nullptr); });
    Record(With("MeasureSkew", {dark}), [&](Checksum& sum) {
      const SkewOptions options = {dark == 0 ? 0.0 : 40.0, dark == 0 ? 0 : 1};
      SkewResult result = {};
      sum.Add(MeasureSkew(page, &options, &result)).Add(&result, sizeof(result));
    });
    RecordPage(With("DeskewDIB", {dark}), [&] { return DeskewDIB(page, dark, 0, nullptr, 1); });
    for (const int margin : {0, 3}) {
      Record(With("CropToEdges", {dark, margin}), [&](Checksum& sum) {
        uint32_t x = 0;
        HGLOBAL result = CropToEdges(page, 0.6, &x, margin, dark, 1 - margin / 3);
        sum.AddBlock(result).Add(static_cast<int32_t>(x));
        if (result != nullptr) GlobalFree(result);
      });
    }
  }
  for (const int shift : {-9, 0, 4, 50}) {
    for (const int horizontal : {0, 1}) {
      Record(With("SkewDIB", {horizontal, shift}), [&](Checksum& sum) {
        SkewCorners corners = {};
        uint32_t error = 0;
        HGLOBAL result = SkewDIB(page, horizontal, shift, &error, &corners);
        sum.AddBlock(result).Add(&corners, sizeof(corners)).Add(static_cast<int32_t>(error));
        if (result != nullptr) GlobalFree(result);
      });
    }
  }
  RecordPage("TrimBlackBorder", [&] { return TrimBlackBorder(page); });
  for (const int size : {-3, -1, 0, 1, 5}) {
    RecordPage(With("PunchHoleRemover", {size}), [&] { return PunchHoleRemover(page, size, 0, nullptr); });
  }
  RecordPage("AutoPunchHoleRemover", [&] { return AutoPunchHoleRemover(page, 0, nullptr); });
  RecordPage("CropDIB", [&] { return CropDIB(page, width / 5, height / 4, width * 4 / 5, height / 2); });
  Record("CutDIB", [&](Checksum& sum) {
    HGLOBAL first = nullptr, second = nullptr;
    const int isCut = CutDIB(page, height / 3, &first, &second);
    sum.Add(isCut);
    if (isCut == 0) return;
    for (HGLOBAL part : {first, second}) {
      // The bytes of a block as the system made it, rounded or not.
      static_cast<BITMAPINFOHEADER*>(GlobalLock(part))->biSizeImage = 0;
      sum.AddBlock(part);
      GlobalFree(part);
    }
  });
  for (const int level : {20, 50, 100}) {
    for (const int full : {0, 1}) {
      RecordPage(With("CleanImage", {level, full}), [&] { return CleanImage(page, level, full); });
    }
  }
}

void RecordScaling(HGLOBAL page, int bits, int width, int height) {
  for (const int cubic : {0, 1}) {
    RecordPage(With("ScaleDIB", {cubic, 160}),
               [&] { return ScaleDIB(page, cubic, width * 8 / 5, height * 8 / 5); });
    RecordPage(With("ScaleDIB", {cubic, 45}),
               [&] { return ScaleDIB(page, cubic, width * 9 / 20 + 1, height * 9 / 20 + 1); });
    RecordPage(With("ScaleGrayDIB", {cubic}), [&] {
      return ScaleGrayDIB(page, 0, 0, static_cast<int16_t>(width * 2 / 3 + 1),
                          static_cast<int16_t>(height / 2 + 1), 3, 2, static_cast<int16_t>(cubic));
    });
  }
  HGLOBAL source = MakePage(bits == 24 ? 8 : 24, 40, 30, Content::kTones, 5);
  HGLOBAL mask = MakePage(1, 40, 30, Content::kText, 6);
  for (const int andFlag : {0, 1}) {
    for (HGLOBAL through : {HGLOBAL{}, mask}) {
      Record(With("CombineDIB", {andFlag, through == mask}), [&](Checksum& sum) {
        HGLOBAL onto = DuplicateDIB(page);
        sum.Add(CombineDIB(width / 3, -4, &onto, source, through, andFlag)).AddBlock(onto);
        GlobalFree(onto);
      });
    }
  }
  GlobalFree(source);
  GlobalFree(mask);
}

void RecordBitmap(int bits, int width, int height) {
  const size_t rowBytes = (static_cast<size_t>(width * bits) + 15) / 16 * 2;
  std::vector<uint8_t> bytes(rowBytes * static_cast<size_t>(height));
  Random random(static_cast<uint32_t>(bits * width + height));
  // Padding is 0. So is the byte of a pixel that is no colour.
  for (size_t i = 0; i < bytes.size(); ++i) {
    const bool isWhole = static_cast<int>(i % rowBytes + 1) * 8 <= width * bits,
               isColour = bits == 1 || i % 4 != 3;
    bytes[i] = static_cast<uint8_t>(isWhole && isColour ? random.Below(256) : 0);
  }
  const auto inPlace = [&](const char* operation, auto run) {
    Record(operation, [&](Checksum& sum) {
      HBITMAP bitmap = CreateBitmap(width, height, 1, static_cast<unsigned>(bits), bytes.data());
      sum.Add(run(bitmap)).AddBitmap(bitmap);
      DeleteObject(bitmap);
    });
  };
  const auto anew = [&](const char* operation, auto run) {
    Record(operation, [&](Checksum& sum) {
      HBITMAP bitmap = CreateBitmap(width, height, 1, static_cast<unsigned>(bits), bytes.data());
      HBITMAP result = run(bitmap);
      sum.AddBitmap(result);
      for (HBITMAP made : {bitmap, result}) DeleteObject(made);
    });
  };
  inPlace("FlipBitmapVertical", FlipBitmapVertical);
  inPlace("FlipBitmapHorizontal", FlipBitmapHorizontal);
  inPlace("RotateBitmap180", RotateBitmap180);
  inPlace("InvertBitmap", InvertBitmap);
  anew("RotateBitmap90", RotateBitmap90);
  anew("RotateBitmap270", RotateBitmap270);
  anew("DuplicateBitmap", DuplicateBitmap);
  anew("ConvertToMonochromeBitmap", ConvertToMonochromeBitmap);
}

void RecordSettings() {
  currentCase = currentGroup = "settings";
  Record("RastrelErrorString", [](Checksum& sum) {
    char text[60];
    for (int code = -1; code <= 33; ++code) sum.Add(RastrelErrorString(text, code), sizeof(text));
  });
  Record("GetImageVersion", [](Checksum& sum) {
    char text[20] = {};
    GetImageVersion(text, sizeof(text));
    sum.Add(text, sizeof(text));
  });
  Record("Get+SetSettings", [](Checksum& sum) {
    sum.Add(SetLowMemStretch(3)).Add(GetLowMemStretch());
    sum.Add(DisplaySetStretchBltMode(2)).Add(DisplayGetStretchBltMode());
    const ScaleStepTable in = {4, {7, 9, 30, 100}};
    ScaleStepTable out = {};
    sum.Add(BZoomSetScaleSteps(7, &in, nullptr))
        .Add(BZoomGetScaleSteps(nullptr, &out))
        .Add(&out, sizeof(out));
  });
  Record("BZoom", [](Checksum& sum) {
    Random random(9);
    for (int i = 0; i < 4000; ++i) {
      ZoomRecord zoom = {};
      DisplayRecord display = {};
      ScreenRecord screen = {};
      int32_t ratio[4] = {};
      for (int32_t& term : ratio) term = static_cast<int32_t>(1 + random.Below(i % 2 == 0 ? 40 : 400000));
      std::memcpy(&display, ratio, sizeof(display));
      std::memcpy(&screen, ratio, sizeof(screen));
      const int mode = static_cast<int>(0x20 + random.Below(6));
      BZoomStart(nullptr, nullptr, nullptr, mode, &zoom, 0);
      if (i % 4 == 0) BZoomEnd(nullptr, &zoom, &display);
      if (i % 4 == 1) BZoomScreenEnd(nullptr, &zoom, &screen);
      if (i % 4 == 2) BZoomStep(nullptr, nullptr, mode, &zoom, &display);
      if (i % 4 == 3) BZoomScreenStep(nullptr, nullptr, mode, &zoom, &screen);
      sum.Add(&zoom, sizeof(zoom)).Add(&display, sizeof(display)).Add(&screen, sizeof(screen));
    }
  });
}

void RecordWithAnyArguments(HGLOBAL page, Random& random) {
  const auto from = [&](int first, int last) {
    return first + static_cast<int>(random.Below(static_cast<uint32_t>(last - first + 1)));
  };
  constexpr double kAngles[] = {0,   0.4, 3.7,   -3.7, 12,    26.6, 44.9, 45,  60,     89.9,  90,   91,   135,
                                177, 180, 183.7, 225,  266.3, 270,  315,  360, -1e-20, 1e300, 0.01, -7.25};
  const BITMAPINFOHEADER header = HeaderOf(page);
  const int width = static_cast<uint16_t>(header.biWidth), height = static_cast<uint16_t>(header.biHeight);
  const double angle = kAngles[random.Below(25)];
  const auto colour = static_cast<COLORREF>(random.Below(0x1000000));
  RecordPage("RotateDIB", [&] { return RotateDIB(page, angle); });
  const int sizing = from(0, 1) * STRAIGHTEN_SAME_SIZE, quality = sizing + from(0, 2);
  RecordPage("StraightenDIB", [&] { return StraightenDIB(page, angle, quality, colour); });
  const int newWidth = from(0, 300), newHeight = from(1, 90), cubic = from(0, 1);
  RecordPage("ScaleDIB", [&] { return ScaleDIB(page, cubic, newWidth, newHeight); });
  int16_t part[7] = {};
  for (int i = 0; i < 7; ++i)
    part[i] = static_cast<int16_t>(from(i / 4, i < 2 ? 9 : i < 4 ? 60 : i < 6 ? 4 : 2));
  RecordPage("ScaleGrayDIB", [&] {
    return ScaleGrayDIB(page, part[0], part[1], part[2], part[3], part[4], part[5], part[6]);
  });
  const int left = from(-1, width), top = from(-1, height);
  const int right = from(left, width), bottom = from(top, height);
  RecordPage("CropDIB", [&] { return CropDIB(page, left, top, right, bottom); });
  const int tolerance = from(-50, 1050), method = from(0, 3), brightness = from(-300, 300),
            shift = from(-99, 99);
  RecordNumber("IsImageBlank", [&] { return IsImageBlank(page, tolerance, colour); });
  Record("Halftone", [&](Checksum& sum) {
    uint16_t error = 0;
    HGLOBAL result = Halftone(page, static_cast<uint16_t>(method), brightness, &error);
    sum.AddBlock(result).Add(error);
    if (result != nullptr) GlobalFree(result);
  });
  RecordPage("SkewDIB", [&] { return SkewDIB(page, cubic, shift, nullptr, nullptr); });
  const int holeSize = from(-4, 12), level = from(15, 105), isFull = from(0, 1);
  RecordPage("PunchHoleRemover", [&] { return PunchHoleRemover(page, holeSize, 0, nullptr); });
  RecordPage("CleanImage", [&] { return CleanImage(page, level, isFull); });
  Record("CropToEdges", [&](Checksum& sum) {
    auto x = static_cast<uint32_t>(from(0, 20));
    const double fraction = from(-1, 11) / 10.0;
    const int margin = from(-9, 9), isDark = from(0, 1);
    HGLOBAL result = CropToEdges(page, fraction, &x, margin, isDark, from(0, 5));
    sum.AddBlock(result).Add(static_cast<int32_t>(x));
    if (result != nullptr) GlobalFree(result);
  });
  HGLOBAL source = MakeAnyPage(random, 0, true),
          mask = from(0, 1) != 0 ? MakeAnyPage(random, 0, true) : nullptr;
  for (HGLOBAL through : {mask, source, page}) {
    const int x = from(-60, 160), y = from(-30, 70), andFlag = from(0, 1);
    Record("CombineDIB", [&](Checksum& sum) {
      HGLOBAL onto = DuplicateDIB(page);
      sum.Add(CombineDIB(x, y, &onto, source, through, andFlag)).AddBlock(onto);
      GlobalFree(onto);
    });
  }
  GlobalFree(source);
  if (mask != nullptr) GlobalFree(mask);
}

void RecordOddPages(int count) {
  for (int i = 0; i < count; ++i) {
    Random random(static_cast<uint32_t>(i) + 77);
    currentCase = "odd" + std::to_string(i);
    HGLOBAL page = MakeAnyPage(random, 0, true);
    const BITMAPINFOHEADER header = HeaderOf(page);
    const int width = static_cast<uint16_t>(header.biWidth), height = static_cast<uint16_t>(header.biHeight);
    currentGroup = "odd";
    RecordFrame(page, width, height, /*isWhole=*/false);
    RecordGeometry(page);
    RecordTone(page);
    RecordCleanup(page, width, height);
    RecordScaling(page, header.biBitCount, width % 1000, height % 1000);
    currentGroup = "any-arguments";
    RecordWithAnyArguments(page, random);
    GlobalFree(page);
  }
}

void RecordOrdinaryPages() {
  constexpr int kSizes[][2] = {{1, 1},   {3, 7},    {8, 8},     {9, 5},     {31, 17},   {33, 64},
                               {65, 40}, {100, 77}, {127, 129}, {200, 150}, {257, 199}, {301, 300}};
  constexpr const char* kContents[] = {"noise", "text", "tones"};
  uint32_t seed = 1;
  for (const auto& [width, height] : kSizes) {
    const std::string size = std::to_string(width) + "x" + std::to_string(height);
    for (const int bits : {1, 4, 8, 24, 2, 16, 32}) {
      for (int content = 0; content < 3; ++content) {
        currentGroup = std::to_string(bits) + "-bit";
        currentCase = size + "x" + std::to_string(bits) + "," + kContents[content];
        HGLOBAL page = MakePage(bits, width, height, static_cast<Content>(content), seed++);
        RecordFrame(page, width, height, /*isWhole=*/true);
        RecordGeometry(page);
        RecordTone(page);
        RecordCleanup(page, width, height);
        RecordScaling(page, bits, width, height);
        GlobalFree(page);
      }
    }
    for (const int bits : {1, 32}) {
      currentGroup = std::to_string(bits) + "-bit-bitmap";
      currentCase = size + "x" + std::to_string(bits) + ",bitmap";
      RecordBitmap(bits, width, height);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  return RunGolden(argc, argv, [] {
    RecordSettings();
    RecordOrdinaryPages();
    RecordOddPages(400);
  });
}
