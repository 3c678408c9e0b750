// Pages, their pixels, and cleaning.
#include <memory>

#include "python/core.h"
#include "python/long_work.h"

namespace rastrel::python {

const SharedBlock& Page::block() const {
  if (block_ == nullptr) Raise(ErrParameter, "the page was given away");
  return block_;
}

SharedBlock Page::GiveAway() {
  block();
  return std::exchange(block_, nullptr);
}

const void* Page::Locked() {
  const void* address = GlobalLock(handle());
  if (address == nullptr) Raise(ErrLockMemory, "the page cannot be locked");
  // One lock is enough for the page's life.
  if (std::exchange(block()->isLocked, true)) GlobalUnlock(handle());
  return address;
}

namespace {

PageInfo InfoOf(const Page& page) {
  auto info = Sized<PageInfo>();
  Checked(DescribePage(page.handle(), &info));
  return info;
}

int32_t BitsPerPixel(int format) {
  switch (format) {
    case PixelsBit0Black:
    case PixelsBit1Black:
      return 1;
    case PixelsGrey8:
      return 8;
    case PixelsRgb:
    case PixelsBgr:
      return 24;
    default:
      return 32;
  }
}

// Whether rows of `width` pixels lie in the buffer, each without gaps.
bool HoldsRows(const Py_buffer& view, int64_t width, int format) {
  if (view.ndim < 2 || view.itemsize != 1 || view.shape == nullptr || view.strides == nullptr) return false;
  Py_ssize_t rowBytes = 1;
  for (int axis = view.ndim - 1; axis >= 1; --axis) {
    if (view.shape[axis] > 1 && view.strides[axis] != rowBytes) return false;
    rowBytes *= view.shape[axis];
  }
  return width > 0 && width <= INT32_MAX && view.shape[0] > 0 && view.shape[0] <= INT32_MAX &&
         (width * BitsPerPixel(format) + 7) / 8 <= rowBytes;
}

Page PageOfPixels(nb::handle pixels, int64_t width, int format, double dpiX, double dpiY) {
  const Buffer buffer(pixels, PyBUF_STRIDES);
  const Py_buffer& view = buffer.view();
  if (!HoldsRows(view, width, format)) Raise(ErrParameter, "an image has rows of pixels, at least one");
  return Page(Share(Checked(WithoutGil([&] {
    return PageFromPixels(view.buf, static_cast<int32_t>(width), static_cast<int32_t>(view.shape[0]),
                          view.strides[0], format, dpiX, dpiY);
  }))));
}

void ReadPixels(const Page& page, nb::handle pixels, int format) {
  const Buffer buffer(pixels, PyBUF_STRIDES | PyBUF_WRITABLE);
  const Py_buffer& view = buffer.view();
  const PageInfo info = InfoOf(page);
  if (!HoldsRows(view, info.width, format) || view.shape[0] != info.height) {
    Raise(ErrParameter, "the array has another size than the page");
  }
  Checked(WithoutGil([&] { return PixelsFromPage(page.handle(), view.buf, view.strides[0], format); }));
}

}  // namespace

int64_t PixelsOf(const Page& page) {
  const PageInfo info = InfoOf(page);
  return int64_t{info.width} * info.height;
}

namespace {

nb::tuple Describe(const Page& page) {
  const PageInfo info = InfoOf(page);
  return nb::make_tuple(info.width, info.height, info.bits, info.isGrey != 0, info.dpiX, info.dpiY);
}

// Where the top left pixel is, and the bytes from a row to the one below: rows lie upside down.
nb::tuple PlaceOf(Page& page) {
  const auto* block = static_cast<const uint8_t*>(page.Locked());
  const auto* header = reinterpret_cast<const BITMAPINFOHEADER*>(block);
  const PageInfo info = InfoOf(page);
  if (info.bits < 8 || header->biCompression != BI_RGB) Raise(ErrPageRefused, "its pixels are not bytes");
  const int64_t stride = (int64_t{info.width} * info.bits + 31) / 32 * 4;
  const int64_t colours = info.bits != 8 ? 0 : header->biClrUsed != 0 ? header->biClrUsed : 256;
  const uint8_t* top = block + header->biSize + colours * 4 + stride * (info.height - 1);
  return nb::make_tuple(reinterpret_cast<uintptr_t>(top), -stride, info.bits / 8);
}

Page WithResolution(const Page& page, double dpiX, double dpiY) {
  Page copy(Share(Checked(WithoutGil([&] { return ExpandPage(page.handle()); }))));
  Checked(SetPageResolution(copy.handle(), dpiX, dpiY));
  return copy;
}

// ---- cleaning ----

struct IntegerOption {
  const char* name;
  int32_t CleanOptions::*field;
};
constexpr IntegerOption kIntegerOptions[] = {
    {"text", &CleanOptions::text},
    {"crop_sheet", &CleanOptions::cropSheet},
    {"borders", &CleanOptions::trim},
    {"holes", &CleanOptions::holes},
    {"hole_size", &CleanOptions::holeSize},
    {"specks", &CleanOptions::specks},
    {"speck_level", &CleanOptions::speckLevel},
    {"speck_full", &CleanOptions::speckFull},
    {"deskew", &CleanOptions::deskew},
    {"reduce", &CleanOptions::reduce},
    {"brightness", &CleanOptions::brightness},
    {"classic", &CleanOptions::classic},
    {"flatten", &CleanOptions::evenLight},
    {"white_paper", &CleanOptions::whitePaper},
    {"bleed", &CleanOptions::lessBleed},
};
struct NumberOption {
  const char* name;
  double CleanOptions::*field;
};
constexpr NumberOption kNumberOptions[] = {
    {"max_skew", &CleanOptions::mostSkew},
    {"blank_percent", &CleanOptions::blankPercent},
    {"dpi", &CleanOptions::dpi},
    {"to_dpi", &CleanOptions::toDpi},
};

struct FreeRecord {
  void operator()(CleanRecord* record) const { FreeCleanRecord(record); }
};
using Record = std::unique_ptr<CleanRecord, FreeRecord>;

struct Cleaned {
  explicit operator bool() const { return page != nullptr; }

  SharedBlock page, overlay;
  Record record;
};

int RASTREL_CALL ReportStep(void* report, const char* step, double done) {
  return (*static_cast<const Report*>(report))(step, done);
}

CleanOptions OptionsOf(const nb::dict& given) {
  auto options = Sized<CleanOptions>();
  Checked(DefaultCleanOptions(&options, sizeof options));
  for (const IntegerOption& option : kIntegerOptions) {
    if (given.contains(option.name)) options.*option.field = nb::cast<int32_t>(given[option.name]);
  }
  for (const NumberOption& option : kNumberOptions) {
    if (given.contains(option.name)) options.*option.field = nb::cast<double>(given[option.name]);
  }
  return options;
}

// The page is used up if `isTaken`, which saves a copy.
nb::tuple Clean(Page& page, bool isTaken, const nb::dict& given, bool wantsOverlay,
                const nb::object& callback) {
  const int64_t pixels = PixelsOf(page);
  const SharedBlock source = isTaken ? page.GiveAway() : page.block();
  const auto work = [source, isTaken, wantsOverlay, options = OptionsOf(given)](const Report& report) {
    CleanOptions reporting = options;
    reporting.progress = ReportStep;
    reporting.progressContext = const_cast<Report*>(&report);
    CleanRecord* record = nullptr;
    HGLOBAL overlay = nullptr;
    HGLOBAL* wanted = wantsOverlay ? &overlay : nullptr;
    const HGLOBAL made = isTaken ? TakeAndCleanPage(source->GiveAway(), &reporting, &record, wanted)
                                 : CleanPage(source->handle, &reporting, &record, wanted);
    return Cleaned{.page = Share(made), .overlay = Share(overlay), .record = Record(record)};
  };
  const Cleaned cleaned = ResultOf(pixels, work, callback);
  nb::object overlay = cleaned.overlay == nullptr ? nb::none() : nb::cast(Page(cleaned.overlay));
  return nb::make_tuple(Page(cleaned.page), RecordOf(cleaned.record.get()), overlay);
}

nb::dict Examine(const Page& page) {
  return RecordOf(ResultOf(PixelsOf(page), [block = page.block()](const Report&) {
                    CleanRecord* record = nullptr;
                    return ExaminePage(block->handle, &record) != 0 ? Record(record) : nullptr;
                  }).get());
}

nb::tuple MeasureSkewOf(const Page& page, double range, int text) {
  struct Skew {
    explicit operator bool() const { return isMeasured; }

    bool isMeasured;
    double degrees, confidence;
  };
  const Skew skew = ResultOf(PixelsOf(page), [block = page.block(), range, text](const Report&) {
    Skew found = {};
    found.isMeasured = MeasurePageSkew(block->handle, range, text, &found.degrees, &found.confidence) != 0;
    return found;
  });
  return nb::make_tuple(skew.degrees, skew.confidence);
}

bool IsBlank(const Page& page, int text, double percent) {
  int32_t isBlank = 0;
  Checked(WithoutGil([&] { return IsPageBlank(page.handle(), text, percent, &isBlank); }));
  return isBlank != 0;
}

}  // namespace

void AddPages(nb::module_& module) {
  nb::class_<Page>(module, "Page")
      .def("describe", &Describe)
      .def("read_pixels", &ReadPixels)
      .def("place", &PlaceOf)
      .def("with_resolution", &WithResolution)
      .def("clean", &Clean, nb::arg(), nb::arg(), nb::arg(), nb::arg().none())
      .def("examine", &Examine)
      .def("measure_skew", &MeasureSkewOf)
      .def("is_blank", &IsBlank);
  module.def("page_of_pixels", &PageOfPixels);
}

}  // namespace rastrel::python
