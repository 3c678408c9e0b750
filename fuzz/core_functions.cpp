// Every function of rastrel.h, chosen by the first byte, on pages and bitmaps that may lie.
#include <array>
#include <cstring>
#include <iterator>

#include "fuzz/target.h"
#include "platform/host/fault_injection.h"

namespace rastrel::fuzz {
namespace {

using Run = void (*)(Input& in);

// Of results, which the caller frees.
void Free(HGLOBAL block) {
  if (block != nullptr) GlobalFree(block);
}
void Delete(HGDIOBJ object) {
  if (object != nullptr) DeleteObject(object);
}

void Split(Input& in) {
  HGLOBAL page = in.Page(), tiles = nullptr;
  int counts[2] = {};
  const int width = in.Number(), height = in.Number();
  if (SplitDIB(page, width, height, in.Byte() == 1 ? nullptr : &tiles, counts) == 0) return;
  const int columns = in.Byte() < 200 ? counts[0] : in.Number();
  Free(MergeDIBs(tiles, columns, in.Byte() < 200 ? counts[1] : in.Number()));
  const auto* handles = static_cast<HGLOBAL*>(GlobalLock(tiles));
  for (int i = 0; i < counts[0] * counts[1]; ++i) GlobalFree(handles[i]);
  Free(tiles);
}

void Merge(Input& in) {
  HGLOBAL array = in.Keep(GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, 6 * sizeof(HGLOBAL)));
  if (auto* handles = static_cast<HGLOBAL*>(GlobalLock(array))) {
    for (int i = 0, count = in.Below(7); i < count; ++i) handles[i] = in.Page();
  }
  const int columns = in.Number(), rows = in.Number();
  Free(MergeDIBs(array, columns, rows));
}

void Cut(Input& in) {
  HGLOBAL first = nullptr, second = nullptr, page = in.Page();
  const int rows = in.Number();
  if (CutDIB(page, rows, in.Byte() == 1 ? nullptr : &first, &second) == 0) return;
  Free(first);
  Free(second);
}

void Crop(Input& in) {
  HGLOBAL page = in.Page();
  auto x = static_cast<uint32_t>(in.Number());
  const double fraction = in.Real();
  const int margin = in.Number(), isDark = in.Flag(), isStraight = in.Flag();
  Free(CropToEdges(page, fraction, in.Byte() == 1 ? nullptr : &x, margin, isDark, isStraight));
}

void Measure(Input& in) {
  HGLOBAL page = in.Page();
  const SkewOptions options = {in.Flag() ? 0 : in.Real(), in.Flag() ? 0 : in.Number()};
  SkewResult result;
  const int given = in.Byte();
  MeasureSkew(page, (given & 1) != 0 ? nullptr : &options, given == 2 ? nullptr : &result);
}

void Shear(Input& in) {
  HGLOBAL page = in.Page();
  uint32_t error = 0;
  SkewCorners corners;
  const int isHorizontal = in.Flag(), shift = in.Number(), given = in.Byte();
  Free(SkewDIB(page, isHorizontal, shift, (given & 1) != 0 ? nullptr : &error,
               (given & 2) != 0 ? nullptr : &corners));
}

void CombineBitmaps(Input& in) {
  HBITMAP source = in.Bitmap(), mask = in.Flag() ? in.Bitmap() : nullptr;
  HBITMAP destination = in.Flag() ? in.Bitmap() : nullptr, before = destination;
  const int x = in.Number(), y = in.Number(), isDarkest = in.Flag();
  CombineBMP(x, y, in.Byte() == 1 ? nullptr : &destination, source, mask, isDarkest);
  if (destination != before) Delete(destination);
}

void CombinePages(Input& in) {
  HGLOBAL source = in.Page(), mask = in.Flag() ? in.Page() : nullptr;
  HGLOBAL destination = in.Flag() ? in.Page() : nullptr, before = destination;
  const int x = in.Number(), y = in.Number(), isDarkest = in.Flag();
  CombineDIB(x, y, in.Byte() == 1 ? nullptr : &destination, source, mask, isDarkest);
  if (destination != before) Free(destination);
}

void LoadAndSave(Input& in) {
  const int kind = in.Below(6);
  HGLOBAL page = kind == 0 ? in.Page() : nullptr;
  HBITMAP bitmap = kind == 1 ? in.Bitmap() : nullptr;
  HPALETTE palette = kind == 1 && in.Flag() ? in.Palette() : nullptr;
  const MemoryFile file(in.Rest());
  switch (kind) {
    case 0:
      SaveDIB(file.name, page);
      break;
    case 1:
      SaveBitmap(file.name, bitmap, palette);
      break;  // loses its page
    case 2:
      Delete(LoadBitmapFromFile(file.name));
      break;
    case 3:
      Free(ReadDIBInfo(file.descriptor));
      break;
    case 4:
      LoadDIBFromFile(nullptr), SaveDIB(nullptr, page), LoadBitmapFromFile("/");
      break;
    default:
      Free(ReadDIBInfo(in.Flag() ? -1 : 9999));
  }
}

void Zoom(Input& in) {
  ScaleStepTable tables[2] = {};
  for (ScaleStepTable& table : tables) {
    table.count = in.Number();
    for (int32_t& step : table.steps) step = in.Number();
  }
  const int base = in.Number();
  ScaleStepTable* zoomOut = in.Flag() ? nullptr : &tables[1];
  BZoomSetScaleSteps(base, in.Flag() ? nullptr : &tables[0], zoomOut);
  ZoomRecord zoom = {};
  for (int32_t& word : zoom.words) word = in.Number();
  DisplayRecord display = {in.Number(), in.Number(), in.Number(), in.Number()};
  ScreenRecord screen = {in.Number(), in.Number(), in.Number(), in.Number()};
  const int mode = in.Number();
  ZoomRecord* record = in.Byte() == 1 ? nullptr : &zoom;
  BZoomStart(nullptr, nullptr, nullptr, mode, record, 0);
  BZoomEnd(nullptr, record, in.Flag() ? nullptr : &display);
  BZoomScreenEnd(nullptr, record, in.Flag() ? nullptr : &screen);
  BZoomStep(nullptr, nullptr, mode, record, in.Flag() ? nullptr : &display);
  BZoomScreenStep(nullptr, nullptr, mode, record, in.Flag() ? nullptr : &screen);
  BZoomGetScaleSteps(&tables[0], in.Flag() ? nullptr : &tables[1]);
}

void Settings(Input& in) {
  SetRastrelError(in.Number());
  SetLowMemStretch(GetLowMemStretch() + in.Number() % 2);
  DisplaySetStretchBltMode(in.Number());
  DisplayGetStretchBltMode();
  char text[60];
  const int code = in.Number(), length = in.Number() % 60;
  RastrelErrorString(in.Byte() == 1 ? nullptr : text, code);
  RastrelErrorString(text, RastrelError());
  GetImageVersion(in.Byte() == 1 ? nullptr : text, length);
}

void Palettes(Input& in) {
  Delete(CreateDIBPalette(in.Page()));
  Delete(GetCurrentPalette());
  RGBQUAD entries[256];
  GetSystemPalette(entries);
  std::array<uint8_t, 40> header = {};
  for (uint8_t& byte : header) byte = in.Byte();
  header[1] = header[2] = header[3] = 0;
  header[0] = header[0] < 128 ? 40 : 12;
  PaletteSize(in.Byte() == 1 ? nullptr : header.data());
}

void Pixels(Input& in) {
  HGLOBAL page = in.Page();
  COLORREF colour = in.Word();
  const auto x = static_cast<unsigned>(in.Number()), y = static_cast<unsigned>(in.Number());
  SetDIBPixelColor(page, x, y, colour);
  GetDIBPixelColor(page, x, y, in.Byte() == 1 ? nullptr : &colour);
}

void EnlargeGrey(Input& in) {
  HGLOBAL page = in.Page();
  int16_t n[7];
  for (int16_t& number : n) number = static_cast<int16_t>(in.Number());
  Free(ScaleGrayDIB(page, n[0], n[1], n[2], n[3], n[4], n[5], n[6]));
}

void ReduceByHalftone(Input& in) {
  HGLOBAL page = in.Page();
  uint16_t error = 0;
  const auto method = static_cast<uint16_t>(in.Below(4));
  const int brightness = in.Number();
  Free(Halftone(page, method, brightness, in.Flag() ? nullptr : &error));
}

// What simple operations are called with.
struct Arguments {
  explicit Arguments(Input& in)
      : a(in.Number()), b(in.Number()), c(in.Number()), d(in.Number()), real(in.Real()), word(in.Word()) {}
  int a, b, c, d;
  double real;
  uint32_t word;
};

#define ON_PAGE(...)                        \
  [](Input& in) {                           \
    HGLOBAL dib = in.Page();                \
    [[maybe_unused]] const Arguments n(in); \
    __VA_ARGS__;                            \
  }
#define ON_BITMAP(...)            \
  [](Input& in) {                 \
    HBITMAP bitmap = in.Bitmap(); \
    __VA_ARGS__;                  \
  }

// clang-format off
constexpr Run kRuns[] = {
    Split, Merge, Cut, Crop, Measure, Shear, CombineBitmaps, CombinePages, LoadAndSave, Zoom, Settings,
    Palettes, Pixels, EnlargeGrey, ReduceByHalftone,
    ON_PAGE(Free(DuplicateDIB(dib))),
    ON_PAGE(InvertDIBPalette(dib)),
    ON_PAGE(Free(ExpandCompressedDIB(dib))),
    ON_PAGE(Free(Convert8to24(dib))),
    ON_PAGE(Delete(ConvertDIBToBitmap(dib))),
    ON_PAGE(Free(FlipDIBVertical(dib))),
    ON_PAGE(Free(FlipDIBHorizontal(dib))),
    ON_PAGE(Free(TurnDIB(dib, n.a))),
    ON_PAGE(Free(RotateDIB(dib, n.real))),
    ON_PAGE(Free(RotateDIB90(dib))),
    ON_PAGE(Free(RotateDIB180(dib))),
    ON_PAGE(Free(RotateDIB270(dib))),
    ON_PAGE(Free(StraightenDIB(dib, n.real, n.a & (1 | STRAIGHTEN_SAME_SIZE), n.word))),
    ON_PAGE(Free(StraightenDIB(dib, n.real, n.a, n.word))),
    ON_PAGE(Free(DitherFS4(dib, n.a))),
    ON_PAGE(Free(DitherJJN(dib, n.a))),
    ON_PAGE(Free(DitherSmooth(dib, n.a))),
    ON_PAGE(Free(DitherSharp(dib, n.a))),
    ON_PAGE(Free(ConvertMonoDIBtoGrayscale(dib, n.a & 3))),
    ON_PAGE(Free(ConvMonoDIBtoGrayscale(dib, n.word))),
    ON_PAGE(Free(ConvColorDIBtoGrayscale(dib, n.a, n.b & 3))),
    ON_PAGE(IsImageBlank(dib, n.a, n.word)),
    ON_PAGE(DetectSkewAngle(dib, n.a & 1, n.b & 1, nullptr)),
    ON_PAGE(Free(TrimBlackBorder(dib))),
    ON_PAGE(Free(DeskewDIB(dib, n.a & 1, n.b & 1, nullptr, n.c & 1))),
    ON_PAGE(Free(PunchHoleRemover(dib, n.a, n.b & 1, nullptr))),
    ON_PAGE(Free(AutoPunchHoleRemover(dib, n.a & 1, nullptr))),
    ON_PAGE(Free(CropDIB(dib, n.a, n.b, n.c, n.d))),
    ON_PAGE(Free(CleanImage(dib, n.a, n.b & 1))),
    ON_PAGE(Free(ScaleDIB(dib, n.a & 1, n.b, n.c))),
    ON_BITMAP(Free(ConvertBitmapToDIB(bitmap, in.Palette()))),
    ON_BITMAP(Delete(DuplicateBitmap(bitmap))),
    ON_BITMAP(Delete(ConvertToMonochromeBitmap(bitmap))),
    ON_BITMAP(FlipBitmapVertical(bitmap), FlipBitmapHorizontal(bitmap), RotateBitmap180(bitmap), InvertBitmap(bitmap)),
    ON_BITMAP(Delete(RotateBitmap90(bitmap)), Delete(RotateBitmap270(bitmap))),
};
// clang-format on

void SetScreen(int kind) {
  constexpr int kBits[] = {32, 32, 32, 1, 4, 8, 16, 24};
  static const std::array<PALETTEENTRY, 256> kPalette = {{{1, 2, 3, 0}, {250, 9, 99, 0}}};
  const int bits = kBits[kind % 8];
  const bool hasPalette = bits <= 8 && kind >= 128;
  RastrelHostSetScreen(bits, hasPalette ? kPalette.data() : nullptr, hasPalette ? 1 << bits : 0);
}

}  // namespace

void CallCoreFunction(InputBytes bytes) {
  Input in(bytes);
  const Run run = kRuns[in.Byte() % std::size(kRuns)];
  SetScreen(in.Byte());
  // Every fourth input has one failure of the platform on its way.
  const int fault = in.Byte();
  if (fault >= 192) host::FailNth(static_cast<host::Fault>(fault % host::kFaults), 1 + in.Byte() % 12);
  const size_t blocks = host::LiveBlocks(), objects = host::LiveObjects();
  {
    Input arguments(in.Rest());
    run(arguments);
  }
  for (int i = 0; i < host::kFaults; ++i) host::FailNth(static_cast<host::Fault>(i), 0);
  // What is lost where a lock or a window fails is in the interface; see rastrel.h.
  const bool mayLose = fault >= 192 || run == LoadAndSave;
  Expect(mayLose || (host::LiveBlocks() == blocks && host::LiveObjects() == objects), "nothing is lost");
}

}  // namespace rastrel::fuzz
