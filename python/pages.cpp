// Pages, their pixels, and cleaning.
#include <exception>
#include <optional>

#include <nanobind/stl/optional.h>

#include "python/core.h"

namespace rastrel::python {

HGLOBAL Page::handle() const {
  if (handle_ == nullptr) Raise(ErrParameter, "the page was given away");
  return handle_;
}

const void* Page::Locked() {
  const void* block = GlobalLock(handle());
  if (block == nullptr) Raise(ErrLockMemory, "the page cannot be locked");
  // One lock is enough for the page's life.
  if (std::exchange(isLocked_, true)) GlobalUnlock(handle_);
  return block;
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
  return Page(Checked(WithoutGil([&] {
    return PageFromPixels(view.buf, static_cast<int32_t>(width), static_cast<int32_t>(view.shape[0]),
                          view.strides[0], format, dpiX, dpiY);
  })));
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
  Page copy(Checked(WithoutGil([&] { return ExpandPage(page.handle()); })));
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
};

// Asks Python between two steps whether to go on. What is raised meanwhile ends the work.
class Progress {
 public:
  explicit Progress(nb::object callback) : callback_(std::move(callback)) {}

  static int RASTREL_CALL Report(void* context, const char* step, double done) {
    return static_cast<Progress*>(context)->Stops(step, done);
  }
  void RaiseWhatStopped() const {
    if (raised_) std::rethrow_exception(raised_);
  }

 private:
  int Stops(const char* step, double done) {
    const nb::gil_scoped_acquire acquire;
    try {
      if (PyErr_CheckSignals() != 0) throw nb::python_error();
      return !callback_.is_none() && callback_(step, done).ptr() == Py_False;
    } catch (...) {
      raised_ = std::current_exception();
      return 1;
    }
  }

  nb::object callback_;
  std::exception_ptr raised_;
};

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
nb::tuple Clean(Page& page, bool isTaken, const nb::dict& given, bool wantsOverlay, nb::object callback) {
  CleanOptions options = OptionsOf(given);
  Progress progress(std::move(callback));
  options.progress = Progress::Report;
  options.progressContext = &progress;
  CleanRecord* record = nullptr;
  HGLOBAL overlay = nullptr;
  HGLOBAL* wanted = wantsOverlay ? &overlay : nullptr;
  const HGLOBAL source = page.handle();
  if (isTaken) page.GiveAway();
  const HGLOBAL result = WithoutGil([&] {
    return isTaken ? TakeAndCleanPage(source, &options, &record, wanted)
                   : CleanPage(source, &options, &record, wanted);
  });
  if (result == nullptr) progress.RaiseWhatStopped();
  Page cleaned(Checked(result));
  std::optional<Page> shown;
  if (overlay != nullptr) shown.emplace(overlay);
  const nb::dict found = RecordOf(record);
  FreeCleanRecord(record);
  return nb::make_tuple(std::move(cleaned), found, std::move(shown));
}

nb::dict Examine(const Page& page) {
  CleanRecord* record = nullptr;
  Checked(WithoutGil([&] { return ExaminePage(page.handle(), &record); }));
  const nb::dict found = RecordOf(record);
  FreeCleanRecord(record);
  return found;
}

nb::tuple MeasureSkewOf(const Page& page, double range, int text) {
  double degrees = 0, confidence = 0;
  Checked(WithoutGil([&] { return MeasurePageSkew(page.handle(), range, text, &degrees, &confidence); }));
  return nb::make_tuple(degrees, confidence);
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
