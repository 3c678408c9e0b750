// Every operation of rastrel_pages.h, chosen by the first byte, on pages that may lie.
#include <rastrel_pages.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <string>

#include "fuzz/target.h"
#include "platform/host/fault_injection.h"

namespace rastrel::fuzz {
namespace {

using Run = void (*)(Input& in);

void Free(HGLOBAL page) {
  if (page == nullptr) return;
  PageInfo info = {};
  info.size = sizeof(info);
  Expect(DescribePage(page, &info) == 1 && info.width > 0 && info.height > 0, "a result is a page");
  GlobalFree(page);
}

void Describe(Input& in) {
  HGLOBAL page = in.Page();
  std::array<uint8_t, sizeof(PageInfo) + 8> room;
  room.fill(77);
  const uint32_t size = static_cast<uint32_t>(in.Byte() % room.size());
  auto* info = reinterpret_cast<PageInfo*>(room.data());
  info->size = size;
  DescribePage(page, in.Byte() == 1 ? nullptr : info);
  for (size_t i = std::max<size_t>(size, 4); i < room.size(); ++i) {
    Expect(room[i] == 77, "structs are written as far as they go");
  }
  const double across = in.Real();
  SetPageResolution(page, across, in.Real());
  int32_t isAssumed = 0;
  const double dpi = in.Real();
  CompletePageResolution(page, dpi, in.Flag() ? nullptr : &isAssumed);
}

// Of a buffer that is just as large as it has to be.
void TakePixels(Input& in) {
  const int format = in.Below(9), width = in.Below(70), height = in.Below(50), slack = in.Below(5);
  const int pixelBytes = format == PixelsRgb || format == PixelsBgr ? 3 : format >= PixelsRgba ? 4 : 1;
  const int row = format <= PixelsBit1Black ? (width + 7) / 8 : width * pixelBytes;
  const ptrdiff_t stride = row + slack;
  std::vector<uint8_t> pixels(static_cast<size_t>(height == 0 ? 0 : stride * (height - 1) + row));
  for (uint8_t& byte : pixels) byte = in.Byte();
  const bool isUpsideDown = in.Flag() && height > 0;
  const uint8_t* top = pixels.data() + (isUpsideDown ? stride * (height - 1) : 0);
  const double dpi = in.Real();
  const COLORREF ground = in.Word();
  HGLOBAL page =
      in.Flag()
          ? PageFromPixels(top, width, height, isUpsideDown ? -stride : stride, format, dpi, 300)
          : PageFromPixelsOver(top, width, height, isUpsideDown ? -stride : stride, format, dpi, dpi, ground);
  if (page == nullptr) return;
  Expect(PixelsFromPage(page, pixels.data(), stride, format) == 1, "pixels go back where they came from");
  Free(page);
  Free(PageFromPixels(nullptr, width, height, stride, format, dpi, dpi));
  Free(PageFromPixels(pixels.data(), in.Number() | 1 << 30, in.Number() | 1 << 30, 0, format, dpi, dpi));
}

void GivePixels(Input& in) {
  HGLOBAL page = in.Page();
  PageInfo info = {};
  info.size = sizeof(info);
  if (DescribePage(page, &info) == 0) {
    uint8_t none = 0;
    Expect(PixelsFromPage(page, &none, 1, in.Below(9)) == 0, "what is no page has no pixels");
    return;
  }
  const ptrdiff_t stride = ptrdiff_t{4} * info.width;
  std::vector<uint8_t> pixels(static_cast<size_t>(stride * info.height));
  PixelsFromPage(page, pixels.data(), stride, in.Below(9));
}

void Split(Input& in) {
  HGLOBAL page = in.Page();
  const int width = in.Number(), height = in.Number();
  std::array<HGLOBAL, 40> tiles = {};
  const int room = in.Below(41), count = SplitPage(page, width, height, tiles.data(), room);
  SplitPage(page, width, height, nullptr, 0);
  if (count == 0 || count > room) return;
  const int columns = in.Number();
  Free(MergePages(tiles.data(), count, columns));
  for (int i = 0; i < count; ++i) Free(tiles[static_cast<size_t>(i)]);
}

void Merge(Input& in) {
  std::array<HGLOBAL, 5> pages = {};
  const int count = in.Below(6);
  for (int i = 0; i < count; ++i) pages[static_cast<size_t>(i)] = in.Page();
  Free(MergePages(pages.data(), count, in.Number()));
}

void Cut(Input& in) {
  HGLOBAL page = in.Page(), upper = nullptr, lower = nullptr;
  const int rows = in.Number();
  if (CutPage(page, rows, in.Byte() == 1 ? nullptr : &upper, &lower) == 0) return;
  Free(upper);
  Free(lower);
}

void Combine(Input& in) {
  HGLOBAL page = in.Page(), other = in.Page(), mask = in.Flag() ? in.Page() : nullptr;
  const int x = in.Number(), y = in.Number();
  Free(CombinePages(page, other, mask, x, y, in.Below(3)));
}

void Measure(Input& in) {
  HGLOBAL page = in.Page();
  double degrees = 0, confidence = 0;
  const double range = in.Real();
  const int text = in.Below(4);
  MeasurePageSkew(page, range, text, in.Byte() == 1 ? nullptr : &degrees, &confidence);
  int32_t isBlank = 0;
  IsPageBlank(page, text, range, in.Byte() == 1 ? nullptr : &isBlank);
}

void Formats(Input& in) {
  const int format = in.Number(), option = in.Number();
  PageFormat entry = {};
  entry.size = sizeof(entry);
  GetPageFormat(format, &entry);
  PageFormatOption found = {};
  found.size = sizeof(found);
  GetPageFormatOption(format, option, &found);
  const std::string name(in.Rest().begin(), in.Rest().end());
  Expect(FindPageFormat(name.c_str()) < CountPageFormats() && PageFormatsJson() != nullptr,
         "formats are listed");
  Expect(PagesVersion() != nullptr, "there is a version");
}

struct Arguments {
  explicit Arguments(Input& in)
      : a(in.Number()), b(in.Number()), c(in.Number()), d(in.Number()), real(in.Real()), other(in.Real()) {}
  int a, b, c, d;
  double real, other;
};
#define ON_PAGE(...)                        \
  [](Input& in) {                           \
    HGLOBAL page = in.Page();               \
    [[maybe_unused]] const Arguments n(in); \
    __VA_ARGS__;                            \
  }

// clang-format off
constexpr Run kRuns[] = {
    Describe, TakePixels, GivePixels, Split, Merge, Cut, Combine, Measure, Formats,
    ON_PAGE(Free(FlipPage(page, n.a & 3))),
    ON_PAGE(Free(TurnPage(page, n.a))),
    ON_PAGE(Free(RotatePage(page, n.real, n.a & 1))),
    ON_PAGE(Free(StraightenPage(page, n.real, n.a & 1, n.b & 1, n.c & 1))),
    ON_PAGE(Free(SkewPage(page, n.a & 1, n.b, n.c & 1))),
    ON_PAGE(Free(DeskewPage(page, n.a & 1))),
    ON_PAGE(Free(CropPage(page, n.a, n.b, n.c, n.d))),
    ON_PAGE(Free(CropPageSheet(page, n.real, n.a, n.b & 1))),
    ON_PAGE(Free(TrimPage(page))),
    ON_PAGE(Free(FillPageHoles(page, n.a))),
    ON_PAGE(Free(DespecklePage(page, n.a, n.b & 1))),
    ON_PAGE(Free(DitherPage(page, n.a & 1, n.b))),
    ON_PAGE(Free(DitherPageSmoothly(page, n.a))),
    ON_PAGE(Free(DitherPageSharply(page, n.a))),
    ON_PAGE(Free(HalftonePage(page, n.a & 3, n.b))),
    ON_PAGE(Free(BinarizePage(page, n.a & 1, n.b & 1, n.c & 1))),
    ON_PAGE(Free(GreyPage(page, n.a & 1, n.b & 3))),
    ON_PAGE(Free(InvertPage(page))),
    ON_PAGE(Free(ColourPage(page))),
    ON_PAGE(Free(ExpandPage(page))),
    ON_PAGE(Free(ScalePage(page, n.a, n.b, n.c & 1 ? n.real : 0, n.d & 1 ? n.other : 0, n.c & 1))),
    ON_PAGE(Free(ScaleGreyPage(page, n.a, n.b, n.c & 1))),
};
// clang-format on

}  // namespace

void CallPagesFunction(InputBytes bytes) {
  Input in(bytes);
  const Run run = kRuns[in.Byte() % std::size(kRuns)];
  const size_t blocks = host::LiveBlocks();
  const int fault = in.Byte();
  if (fault >= 192) host::FailNth(host::Fault::kAllocation, 1 + fault % 16);
  {
    Input arguments(in.Rest());
    run(arguments);
  }
  host::FailNth(host::Fault::kAllocation, 0);
  Expect(host::LiveBlocks() == blocks, "nothing is lost");
  Expect(PagesError() != ErrInternal && PagesErrorText() != nullptr, "there is no fault of ours");
}

}  // namespace rastrel::fuzz
