#include "formats/windows/codecs.h"

#include <initguid.h>  // so that the names of wincodec.h have their values here

#include <wincodec.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "formats/windows/byte_stream.h"
#include "pages/text.h"

namespace rastrel::formats {
namespace {

// ---- the system's objects ---------------------------------------------------------------------------------

// Owns an object of the system.
template <class Object>
class Owned {
 public:
  Owned() = default;
  ~Owned() {
    if (object_ != nullptr) object_->Release();
  }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  Object* operator->() const { return object_; }
  Object* get() const { return object_; }
  Object** Place() { return &object_; }  // for what is made

 private:
  Object* object_ = nullptr;
};

// The page is refused for what a call returned.
[[noreturn]] void Refuse(HRESULT result, const char* doing, int otherwise) {
  switch (result) {
    case E_OUTOFMEMORY:
    case STG_E_MEDIUMFULL:  // what is written goes to memory
      throw PageError("out of memory", ErrNoMemory);
    case E_NOTIMPL:
    case REGDB_E_CLASSNOTREG:
    case WINCODEC_ERR_COMPONENTNOTFOUND:
    case WINCODEC_ERR_UNKNOWNIMAGEFORMAT:
    case WINCODEC_ERR_UNSUPPORTEDVERSION:
    case WINCODEC_ERR_UNSUPPORTEDPIXELFORMAT:
    case WINCODEC_ERR_UNSUPPORTEDOPERATION:
      throw PageError(Text("cannot be ", doing, ": the system's codec does not know its kind"),
                      ErrUnsupported);
    default: {
      char code[12];
      std::snprintf(code, sizeof(code), "0x%08X", static_cast<unsigned>(result));
      throw PageError(Text("cannot be ", doing, ": the system's codec gives up (", code, ")"), otherwise);
    }
  }
}
void Read(HRESULT result) {
  if (FAILED(result)) Refuse(result, "read", ErrDamagedFile);
}
void Written(HRESULT result) {
  if (FAILED(result)) Refuse(result, "written", ErrFileIO);
}

// What is wanted of ole32.dll, which stays loaded.
struct Ole {
  HRESULT(WINAPI* initialise)(void*, DWORD) = nullptr;
  void(WINAPI* uninitialise)() = nullptr;
  HRESULT(WINAPI* create)(REFCLSID, IUnknown*, DWORD, REFIID, void**) = nullptr;

  Ole() {
    const HMODULE library = LoadLibraryExW(L"ole32.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (library == nullptr) return;
    // Else the codecs would go with each page, and come again with the next.
    LoadLibraryExW(L"windowscodecs.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    const auto find = [library](const char* name, auto* function) {
      *function = reinterpret_cast<std::remove_pointer_t<decltype(function)>>(
          reinterpret_cast<void*>(GetProcAddress(library, name)));
    };
    find("CoInitializeEx", &initialise);
    find("CoUninitialize", &uninitialise);
    find("CoCreateInstance", &create);
  }
  bool isThere() const { return initialise != nullptr && uninitialise != nullptr && create != nullptr; }
};

// This thread's leave to use the system's objects, and the object that makes the others.
class Session {
 public:
  Session() {
    static const Ole kOle;
    ole_ = &kOle;
    if (!ole_->isThere()) throw PageError("the system's codecs cannot be loaded", ErrUnsupported);
    // A thread that has another kind of leave can use the codecs as well.
    isBegun_ = SUCCEEDED(ole_->initialise(nullptr, COINIT_MULTITHREADED));
    const HRESULT result = ole_->create(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER,
                                        IID_IWICImagingFactory, reinterpret_cast<void**>(&factory_));
    if (SUCCEEDED(result)) return;
    if (isBegun_) ole_->uninitialise();
    throw PageError("the system's codecs cannot be loaded", ErrUnsupported);
  }
  ~Session() {
    factory_->Release();
    if (isBegun_) ole_->uninitialise();
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  IWICImagingFactory* operator->() const { return factory_; }

 private:
  const Ole* ole_;
  IWICImagingFactory* factory_ = nullptr;
  bool isBegun_ = false;
};

class Stream {
 public:
  explicit Stream(Bytes* bytes) : stream_(new ByteStream(bytes)) {}
  ~Stream() {
    stream_->Detach();
    stream_->Release();
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  IStream* get() const { return stream_; }

 private:
  ByteStream* stream_;
};

const GUID& ContainerOf(Codec codec) {
  switch (codec) {
    case Codec::Tiff:
      return GUID_ContainerFormatTiff;
    case Codec::Png:
      return GUID_ContainerFormatPng;
    default:
      return GUID_ContainerFormatJpeg;
  }
}

bool IsSame(const GUID& a, const GUID& b) { return std::memcmp(&a, &b, sizeof(GUID)) == 0; }

// ---- kinds of pixels --------------------------------------------------------------------------------------

// Those that pages have.
struct PageForm {
  const GUID* name;
  int bits;
  bool hasPalette;
};
constexpr PageForm kPageForms[] = {
    {&GUID_WICPixelFormatBlackWhite, 1, false}, {&GUID_WICPixelFormat4bppGray, 4, false},
    {&GUID_WICPixelFormat8bppGray, 8, false},   {&GUID_WICPixelFormat24bppBGR, 24, false},
    {&GUID_WICPixelFormat1bppIndexed, 1, true}, {&GUID_WICPixelFormat4bppIndexed, 4, true},
    {&GUID_WICPixelFormat8bppIndexed, 8, true}};

// Those that become samples.
struct RawForm {
  const GUID* name;
  uint8_t bits, samples;  // of a pixel as it is stored
  uint16_t photometric;
  uint16_t alpha = 0;
  bool isReversed = false;  // blue comes first
  uint16_t format = kUnsignedNumber;
  int bytes() const { return bits * samples / 8; }
};
constexpr RawForm kRawForms[] = {
    {&GUID_WICPixelFormatBlackWhite, 1, 1, kBlackIsZero},
    {&GUID_WICPixelFormat2bppGray, 2, 1, kBlackIsZero},
    {&GUID_WICPixelFormat4bppGray, 4, 1, kBlackIsZero},
    {&GUID_WICPixelFormat8bppGray, 8, 1, kBlackIsZero},
    {&GUID_WICPixelFormat16bppGray, 16, 1, kBlackIsZero},
    {&GUID_WICPixelFormat32bppGrayFloat, 32, 1, kBlackIsZero, 0, false, kFloatNumber},
    {&GUID_WICPixelFormat1bppIndexed, 1, 1, kIndexed},
    {&GUID_WICPixelFormat2bppIndexed, 2, 1, kIndexed},
    {&GUID_WICPixelFormat4bppIndexed, 4, 1, kIndexed},
    {&GUID_WICPixelFormat8bppIndexed, 8, 1, kIndexed},
    {&GUID_WICPixelFormat24bppRGB, 8, 3, kRedGreenBlue},
    {&GUID_WICPixelFormat24bppBGR, 8, 3, kRedGreenBlue, 0, true},
    {&GUID_WICPixelFormat32bppBGRA, 8, 4, kRedGreenBlue, kPlainAlpha, true},
    {&GUID_WICPixelFormat32bppPBGRA, 8, 4, kRedGreenBlue, kMultipliedAlpha, true},
    {&GUID_WICPixelFormat32bppRGBA, 8, 4, kRedGreenBlue, kPlainAlpha},
    {&GUID_WICPixelFormat32bppPRGBA, 8, 4, kRedGreenBlue, kMultipliedAlpha},
    {&GUID_WICPixelFormat48bppRGB, 16, 3, kRedGreenBlue},
    {&GUID_WICPixelFormat64bppRGBA, 16, 4, kRedGreenBlue, kPlainAlpha},
    {&GUID_WICPixelFormat64bppPRGBA, 16, 4, kRedGreenBlue, kMultipliedAlpha},
    {&GUID_WICPixelFormat128bppRGBAFloat, 32, 4, kRedGreenBlue, kPlainAlpha, false, kFloatNumber},
    {&GUID_WICPixelFormat32bppCMYK, 8, 4, kInks},
    {&GUID_WICPixelFormat64bppCMYK, 16, 4, kInks}};

template <class Forms>
auto FormOf(const Forms& forms, const GUID& name) {
  const auto found = std::find_if(std::begin(forms), std::end(forms),
                                  [&](const auto& form) { return IsSame(*form.name, name); });
  return found != std::end(forms) ? &*found : nullptr;
}

// Rows that go through the codec at a time.
constexpr size_t kBandBytes = 1 << 20;

// Rows from the top, as long as `reading` has time.
template <class TakeRow>
void ForRows(IWICBitmapSource* source, const Claim& claim, int pixelBits, const Reading& reading,
             TakeRow takeRow) {
  const auto stride = static_cast<size_t>(StrideOf(claim.width, pixelBits));
  const auto rows = static_cast<int64_t>(std::max<size_t>(1, kBandBytes / stride));
  std::vector<uint8_t> band(stride * static_cast<size_t>(std::min(rows, claim.height)));
  for (int64_t first = 0; first < claim.height; first += rows) {
    reading.CheckTime();
    const int64_t count = std::min(rows, claim.height - first);
    std::fill(band.begin(), band.end(), uint8_t{0});  // a codec that stops early shows nothing of the past
    const WICRect area = {0, static_cast<INT>(first), static_cast<INT>(claim.width), static_cast<INT>(count)};
    Read(source->CopyPixels(&area, static_cast<UINT>(stride), static_cast<UINT>(band.size()), band.data()));
    for (int64_t y = 0; y < count; ++y) takeRow(first + y, &band[static_cast<size_t>(y) * stride]);
  }
  reading.CheckTime();
}

// A file whose first picture is read.
class Decoder {
 public:
  Decoder(Codec codec, Bytes* file, const Claim& claim) : stream_(file) {
    Read(session_->CreateDecoder(ContainerOf(codec), &GUID_VendorMicrosoft, decoder_.Place()));
    Read(decoder_->Initialize(stream_.get(), WICDecodeMetadataCacheOnDemand));
    Read(decoder_->GetFrame(0, frame_.Place()));
    UINT width = 0, height = 0;
    Read(frame_->GetSize(&width, &height));
    if (width != claim.width || height != claim.height) Damaged("its headers tell different sizes");
    Read(frame_->GetPixelFormat(&form_));
    source_ = frame_.get();
    if (FormOf(kRawForms, form_) != nullptr) return;
    // Of the rarer kinds the system makes a usual one.
    Read(session_->CreateFormatConverter(converted_.Place()));
    Read(converted_->Initialize(source_, GUID_WICPixelFormat32bppBGRA, WICBitmapDitherTypeNone, nullptr, 0,
                                WICBitmapPaletteTypeCustom));
    form_ = GUID_WICPixelFormat32bppBGRA;
    source_ = converted_.get();
  }
  const GUID& form() const { return form_; }
  IWICBitmapSource* source() const { return source_; }

  // Colours over white; those that it has not are white.
  void TakePalette(std::span<RGBQUAD> table) {
    Owned<IWICPalette> palette;
    Read(session_->CreatePalette(palette.Place()));
    Read(frame_->CopyPalette(palette.get()));
    std::array<WICColor, 256> colours{};
    UINT count = 0;
    Read(palette->GetColors(static_cast<UINT>(colours.size()), colours.data(), &count));
    for (size_t i = 0; i < table.size(); ++i) {
      const WICColor colour = i < count ? colours[i] : 0xFFFFFFFF;
      const auto byte = [&](int shift) { return OverWhite(colour >> shift & 255, colour >> 24); };
      table[i] = {byte(0), byte(8), byte(16), 0};
    }
  }

  // Empty where the codec tells none.
  std::vector<uint8_t> Profile() {
    Owned<IWICColorContext> context;
    Read(session_->CreateColorContext(context.Place()));
    IWICColorContext* contexts[] = {context.get()};
    UINT count = 0, size = 0;
    WICColorContextType kind = WICColorContextUninitialized;
    if (FAILED(frame_->GetColorContexts(1, contexts, &count)) || count == 0 ||
        FAILED(context->GetType(&kind)) || kind != WICColorContextProfile ||
        FAILED(context->GetProfileBytes(0, nullptr, &size))) {
      return {};
    }
    std::vector<uint8_t> profile(size);
    Read(context->GetProfileBytes(size, profile.data(), &size));
    return profile;
  }

 private:
  Session session_;
  Stream stream_;
  Owned<IWICBitmapDecoder> decoder_;
  Owned<IWICBitmapFrameDecode> frame_;
  Owned<IWICFormatConverter> converted_;
  IWICBitmapSource* source_ = nullptr;
  GUID form_ = {};
};

void UnpackRow(const uint8_t* in, const RawForm& form, const Raw& page, uint8_t* out) {
  const size_t samples = page.rowSamples();
  if (form.bits < 8) {
    for (size_t x = 0; x < samples; ++x)
      out[x] = static_cast<uint8_t>(GetIndex(in, form.bits, static_cast<int>(x)));
    return;
  }
  std::memcpy(out, in, page.rowBytes());
  if (!form.isReversed) return;
  for (size_t x = 0; x + 2 < samples; x += static_cast<size_t>(page.samples)) std::swap(out[x], out[x + 2]);
}

Raw SamplesOf(Decoder* decoder, const Claim& claim, const Reading& reading) {
  const RawForm& form = *FormOf(kRawForms, decoder->form());
  Raw page;
  page.width = static_cast<int32_t>(claim.width);
  page.height = static_cast<int32_t>(claim.height);
  page.bits = form.bits;
  page.samples = form.samples;
  page.resolution = claim.resolution;
  page.photometric = form.photometric;
  page.sampleFormat = claim.isSigned ? uint16_t{kSignedNumber} : form.format;
  if (form.alpha != 0) page.extras = {form.alpha};
  if (form.photometric == kIndexed) {
    std::vector<RGBQUAD> table(size_t{1} << form.bits);
    decoder->TakePalette(table);
    for (uint8_t RGBQUAD::*part : {&RGBQUAD::rgbRed, &RGBQUAD::rgbGreen, &RGBQUAD::rgbBlue}) {
      for (const RGBQUAD& entry : table) page.colours.push_back(static_cast<uint16_t>(entry.*part * 257));
    }
  }
  const uint64_t bytes = page.rowBytes() * static_cast<uint64_t>(page.height);
  reading.CheckBytes(2 * bytes);  // codecs may hold all of them, too
  page.bytes.resize(static_cast<size_t>(bytes));
  ForRows(decoder->source(), claim, form.bits * form.samples, reading, [&](int64_t y, const uint8_t* row) {
    UnpackRow(row, form, page, page.Row(static_cast<int32_t>(y)));
  });
  return page;
}

void CheckLimits(const Claim& claim, const Reading& reading) {
  CheckSize(claim.width, claim.height, claim.bits);
  reading.CheckPixels(claim.width, claim.height);
  reading.CheckBytes(2 * StrideOf(claim.width, claim.bits) * static_cast<uint64_t>(claim.height) +
                     claim.workBytes);
}

}  // namespace

Dib DecodePage(Codec codec, Bytes* file, const Claim& claim, const Reading& reading,
               std::vector<uint8_t>* profile) {
  CheckLimits(claim, reading);  // before the codec looks at it
  Decoder decoder(codec, file, claim);
  if (profile != nullptr) *profile = decoder.Profile();
  const PageForm* form = FormOf(kPageForms, decoder.form());
  Dib page;
  if (form != nullptr && form->bits == claim.bits && !claim.isSigned) {
    page = reading.NewPage(claim.width, claim.height, form->bits, claim.resolution);
    const PageView view(page);
    if (form->hasPalette) decoder.TakePalette(view.palette());
    ForRows(decoder.source(), claim, form->bits, reading, [&view](int64_t y, const uint8_t* row) {
      std::memcpy(view.PageRow(static_cast<int>(y)), row, view.stride());
    });
    UseGreyRamp(view);
  } else {
    const Raw raw = SamplesOf(&decoder, claim, reading);
    reading.CheckBytes(2 * raw.bytes.size() +
                       StrideOf(raw.width, ReducedBits(raw)) * static_cast<uint64_t>(raw.height));
    page = Reduced(raw, {});
  }
  const int bits = PageView(page).bits();
  if (claim.bits != 8 || bits == 8) return page;
  return bits == 24 ? ToGrey(page) : WidenTo8(page);  // greys beside alpha may come as colours
}

// ---- writing ----------------------------------------------------------------------------------------------

namespace {

void Ask(IPropertyBag2* options, const wchar_t* name, const VARIANT& value) {
  PROPBAG2 property = {};
  property.pstrName = const_cast<wchar_t*>(name);
  VARIANT copy = value;
  Written(options->Write(1, &property, &copy));
}

// A file of one picture. `rowAt` gives its rows from the top.
template <class RowAt>
std::vector<uint8_t> EncodeAlone(Codec codec, int64_t width, int64_t height, const GUID& form, int pixelBits,
                                 std::span<const RGBQUAD> palette, const Wish& wish, RowAt rowAt) {
  MemoryBytes bytes;
  {
    const Session session;
    const Stream stream(&bytes);
    Owned<IWICBitmapEncoder> encoder;
    Written(session->CreateEncoder(ContainerOf(codec), &GUID_VendorMicrosoft, encoder.Place()));
    Written(encoder->Initialize(stream.get(), WICBitmapEncoderNoCache));
    Owned<IWICBitmapFrameEncode> frame;
    Owned<IPropertyBag2> options;
    Written(encoder->CreateNewFrame(frame.Place(), options.Place()));
    VARIANT value = {};
    if (wish.tiffCompression) {
      value.vt = VT_UI1;
      value.bVal = *wish.tiffCompression;
      Ask(options.get(), L"TiffCompressionMethod", value);
    }
    if (wish.jpegQuality) {
      value.vt = VT_R4;
      value.fltVal = *wish.jpegQuality;
      Ask(options.get(), L"ImageQuality", value);
    }
    Written(frame->Initialize(options.get()));
    Written(frame->SetSize(static_cast<UINT>(width), static_cast<UINT>(height)));
    GUID taken = form;
    Written(frame->SetPixelFormat(&taken));
    if (!IsSame(taken, form)) Written(WINCODEC_ERR_UNSUPPORTEDPIXELFORMAT);
    if (!palette.empty()) {
      Owned<IWICPalette> table;
      Written(session->CreatePalette(table.Place()));
      std::vector<WICColor> colours;
      for (const RGBQUAD& entry : palette) {
        colours.push_back(0xFF000000u | static_cast<WICColor>(entry.rgbRed) << 16 |
                          static_cast<WICColor>(entry.rgbGreen) << 8 | entry.rgbBlue);
      }
      Written(table->InitializeCustom(colours.data(), static_cast<UINT>(colours.size())));
      Written(frame->SetPalette(table.get()));
    }
    const auto stride = static_cast<size_t>(StrideOf(width, pixelBits));
    const auto rows = static_cast<int64_t>(std::max<size_t>(1, kBandBytes / stride));
    std::vector<uint8_t> band;
    for (int64_t first = 0; first < height; first += rows) {
      const int64_t count = std::min(rows, height - first);
      band.assign(stride * static_cast<size_t>(count), 0);
      for (int64_t y = 0; y < count; ++y) rowAt(first + y, &band[static_cast<size_t>(y) * stride]);
      Written(frame->WritePixels(static_cast<UINT>(count), static_cast<UINT>(stride),
                                 static_cast<UINT>(band.size()), band.data()));
    }
    Written(frame->Commit());
    Written(encoder->Commit());
  }
  if (bytes.problem() != nullptr) throw PageError(bytes.problem(), ErrNoMemory);
  return bytes.Take();
}

}  // namespace

std::vector<uint8_t> EncodePage(Codec codec, const PageView& page, const Wish& wish) {
  const bool hasPalette = page.bits() <= 8 && !HasGreyRamp(page);
  const auto form = std::find_if(std::begin(kPageForms), std::end(kPageForms), [&](const PageForm& entry) {
    return entry.bits == page.bits() && entry.hasPalette == hasPalette;
  });
  const std::span<const RGBQUAD> palette = hasPalette ? page.palette() : std::span<const RGBQUAD>();
  return EncodeAlone(codec, page.width(), page.height(), *form->name, page.bits(), palette, wish,
                     [&page](int64_t y, uint8_t* row) {
                       std::memcpy(row, page.PageRow(static_cast<int>(y)), page.stride());
                     });
}

}  // namespace rastrel::formats
