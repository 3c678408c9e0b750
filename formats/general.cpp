#include "formats/general.h"

#include <cstring>
#include <limits>

#include "formats/exif.h"
#include "formats/jp2_boxes.h"
#include "formats/system.h"
#include "pages/text.h"

namespace rastrel::formats {
namespace {

using namespace std::string_view_literals;

// ---- the library ------------------------------------------------------------------------------------------

// Its interface as it has been since version 8.0 and will be while the library is called .42. Its headers are
// not needed to build.
struct VipsImage;
enum { kUchar = 0, kUshort = 2 };                                       // VipsBandFormat
enum { kGrey = 1, kCmyk = 15, kSrgb = 22, kRgb16 = 25, kGrey16 = 26 };  // VipsInterpretation

struct Vips {
  using Loader = int(void*, size_t, VipsImage**, ...);
  using Saver = int(VipsImage*, void**, size_t*, ...);
  using Step = int(VipsImage*, VipsImage**, ...);
  using StepTo = int(VipsImage*, VipsImage**, int, ...);

  int (*init)(const char*);
  void (*blockUntrusted)(int);
  void (*block)(const char*, int);
  void (*setThreads)(int);
  void (*setCache)(int);
  const char* (*errors)();
  void (*clearErrors)();
  int (*width)(const VipsImage*);
  int (*height)(const VipsImage*);
  int (*bands)(const VipsImage*);
  int (*format)(const VipsImage*);
  int (*interpretation)(const VipsImage*);
  double (*xres)(const VipsImage*);  // pixels per millimetre
  double (*yres)(const VipsImage*);
  int (*hasAlpha)(VipsImage*);
  int (*pages)(VipsImage*);
  int (*getBlob)(const VipsImage*, const char*, const void**, size_t*);
  size_t (*typeOf)(const VipsImage*, const char*);
  void (*setBlob)(VipsImage*, const char*, const void*, size_t);
  VipsImage* (*fromMemory)(const void*, size_t, int, int, int, int);
  void* (*toMemory)(VipsImage*, size_t*);
  Step *autorot, *flatten, *copy;
  StepTo *colourspace, *cast;
  int (*linear)(VipsImage*, VipsImage**, double, double, ...);
  void (*free)(void*);
  void (*unref)(void*);
};

void* Find(const char* function) {
  std::string why;
  return FindFunction(RASTREL_VIPS_LIBRARY, function, &why);
}

template <class Function>
bool Take(const char* name, Function** function) {
  *function = reinterpret_cast<Function*>(Find(name));
  return *function != nullptr;
}

// The loaders that are wanted; no other turns a file into something.
constexpr const char* kLoaders[] = {"VipsForeignLoadJp2k", "VipsForeignLoadWebp", "VipsForeignLoadHeif",
                                    "VipsForeignLoadJxl", "VipsForeignLoadNsgif"};

bool Load(Vips* vips) {
  const bool isThere =
      Take("vips_init", &vips->init) && Take("vips_block_untrusted_set", &vips->blockUntrusted) &&
      Take("vips_operation_block_set", &vips->block) && Take("vips_concurrency_set", &vips->setThreads) &&
      Take("vips_cache_set_max", &vips->setCache) && Take("vips_error_buffer", &vips->errors) &&
      Take("vips_error_clear", &vips->clearErrors) && Take("vips_image_get_width", &vips->width) &&
      Take("vips_image_get_height", &vips->height) && Take("vips_image_get_bands", &vips->bands) &&
      Take("vips_image_get_format", &vips->format) &&
      Take("vips_image_get_interpretation", &vips->interpretation) &&
      Take("vips_image_get_xres", &vips->xres) && Take("vips_image_get_yres", &vips->yres) &&
      Take("vips_image_hasalpha", &vips->hasAlpha) && Take("vips_image_get_n_pages", &vips->pages) &&
      Take("vips_image_get_blob", &vips->getBlob) && Take("vips_image_get_typeof", &vips->typeOf) &&
      Take("vips_image_set_blob_copy", &vips->setBlob) &&
      Take("vips_image_new_from_memory", &vips->fromMemory) &&
      Take("vips_image_write_to_memory", &vips->toMemory) && Take("vips_autorot", &vips->autorot) &&
      Take("vips_flatten", &vips->flatten) && Take("vips_copy", &vips->copy) &&
      Take("vips_colourspace", &vips->colourspace) && Take("vips_cast", &vips->cast) &&
      Take("vips_linear1", &vips->linear) && Take("g_free", &vips->free) &&
      Take("g_object_unref", &vips->unref);
  if (!isThere || vips->init("rastrel") != 0) return false;
  // Its warnings are for its own programs' standard error.
  using Handler = void(const char*, int, const char*, void*);
  unsigned (*setHandler)(const char*, int, Handler*, void*) = nullptr;
  constexpr int kWarnings = 1 << 4;
  if (Take("g_log_set_handler", &setHandler)) {
    setHandler(
        "VIPS", kWarnings, [](const char*, int, const char*, void*) {}, nullptr);
  }
  vips->blockUntrusted(1);
  vips->block("VipsForeignLoad", 1);
  for (const char* loader : kLoaders) vips->block(loader, 0);
  vips->setThreads(1);  // many pages at once keep the machine busy already
  vips->setCache(0);
  return true;
}

const Vips& Library(const char* title) {
  static Vips vips;
  static const bool kIsThere = Load(&vips);
  if (!kIsThere)
    throw PageError(
        Text("needs libvips (", RASTREL_VIPS_LIBRARY, ") for ", title, ", which is not installed"),
        ErrUnsupported);
  return vips;
}

// What went wrong, in a line.
std::string ErrorText(const Vips& vips) {
  std::string text = vips.errors();
  vips.clearErrors();
  return text.substr(0, text.find('\n'));
}

class Image {
 public:
  explicit Image(const Vips& vips, VipsImage* image = nullptr) : vips_(vips), image_(image) {}
  ~Image() {
    if (image_ != nullptr) vips_.unref(image_);
  }
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;
  VipsImage* get() const { return image_; }
  // Where a function puts another, made of this one.
  template <class Make>
  bool Become(Make make) {
    VipsImage* made = nullptr;
    if (make(image_, &made) != 0) return false;
    if (image_ != nullptr) vips_.unref(image_);
    image_ = made;
    return true;
  }
  std::vector<uint8_t> Blob(const char* name) const {
    const void* bytes = nullptr;
    size_t size = 0;
    if (vips_.typeOf(image_, name) == 0 || vips_.getBlob(image_, name, &bytes, &size) != 0) return {};
    const auto* first = static_cast<const uint8_t*>(bytes);
    return {first, first + size};
  }

 private:
  const Vips& vips_;
  VipsImage* image_;
};

// ---- reading ----------------------------------------------------------------------------------------------

struct Kind {
  const char* title;
  const char* loader;  // of bytes in memory
  bool hasPages;       // that the loader counts
};

std::vector<uint8_t> AllOf(Bytes* file) {
  const uint64_t size = file->size();
  constexpr uint64_t kMostBytes = uint64_t{1} << 31;  // of a file of one picture
  if (size > kMostBytes) throw PageError(Text("has ", size, " bytes, which is too much"), ErrTooLarge);
  std::vector<uint8_t> bytes(static_cast<size_t>(size));
  if (file->ReadAt(0, bytes) < bytes.size()) throw PageError("cannot be read whole", ErrFileIO);
  return bytes;
}

// Its header; pixels come when they are asked for, from `bytes`.
void Open(const Vips& vips, const Kind& kind, std::span<const uint8_t> bytes, int page, Image* image) {
  auto* load = reinterpret_cast<Vips::Loader*>(Find(kind.loader));
  if (load == nullptr) throw PageError(Text("needs a libvips that reads ", kind.title), ErrUnsupported);
  auto* first = const_cast<uint8_t*>(bytes.data());
  constexpr int kFailOnTruncated = 1;  // VipsFailOn
  const bool isOpen = image->Become([&](VipsImage*, VipsImage** out) {
    return kind.hasPages ? load(first, bytes.size(), out, "page", page, "fail_on", kFailOnTruncated, nullptr)
                         : load(first, bytes.size(), out, "fail_on", kFailOnTruncated, nullptr);
  });
  if (isOpen) return;
  const std::string text = ErrorText(vips);
  // vips says this of loaders that were left out when it was built.
  if (text.find("not found") != std::string::npos || text.find("unsupported") != std::string::npos)
    throw PageError(Text("needs a libvips that reads ", kind.title), ErrUnsupported);
  Damaged(text);
}

int BitsOf(const Vips& vips, const Image& image) {
  const int bands = vips.bands(image.get()) - (vips.hasAlpha(image.get()) != 0 ? 1 : 0);
  return bands >= 3 ? 24 : 8;
}

// Upright, of 8 bits, grey or red, green and blue, on white. Samples of fewer than 8 bits are the high bits
// of theirs, with nothing below.
void MakePlain(const Vips& vips, int bits, int depth, Image* image) {
  const auto require = [&](bool isDone) {
    if (!isDone) Damaged(ErrorText(vips));
  };
  require(image->Become([&](VipsImage* in, VipsImage** out) { return vips.autorot(in, out, nullptr); }));
  // Samples of 16 bits keep their high bytes, instead of being taken for light.
  if (vips.format(image->get()) == kUshort)
    require(image->Become(
        [&](VipsImage* in, VipsImage** out) { return vips.cast(in, out, kUchar, "shift", 1, nullptr); }));
  if (depth < 8) {
    const double scale = 255.0 / (256 - (256 >> depth)), half = 0.5;
    require(image->Become([&](VipsImage* in, VipsImage** out) {
      return vips.linear(in, out, scale, half, "uchar", 1, nullptr);
    }));
  }
  const int space = vips.interpretation(image->get());
  const bool isMeant = space == kGrey || space == kSrgb || space == kRgb16 || space == kGrey16;
  if (!isMeant)
    require(image->Become([&](VipsImage* in, VipsImage** out) {
      return vips.colourspace(in, out, bits == 24 ? kSrgb : kGrey, nullptr);
    }));
  if (vips.hasAlpha(image->get()) != 0) {
    // vips_flatten's standard ground is black: what lies under it is turned over, and back.
    require(image->Become([&](VipsImage* in, VipsImage** out) {
      using MakeArray = void*(int, ...);
      auto* makeArray = reinterpret_cast<MakeArray*>(Find("vips_array_double_newv"));
      using FreeArray = void(void*);
      auto* freeArray = reinterpret_cast<FreeArray*>(Find("vips_area_unref"));
      if (makeArray == nullptr || freeArray == nullptr) return -1;
      void* white = makeArray(1, 255.0);
      const int result = vips.flatten(in, out, "background", white, nullptr);
      freeArray(white);
      return result;
    }));
  }
  if (vips.format(image->get()) != kUchar)
    require(
        image->Become([&](VipsImage* in, VipsImage** out) { return vips.cast(in, out, kUchar, nullptr); }));
}

Resolution ResolutionOf(const Vips& vips, const Image& image) {
  const auto [orientation, told] = ReadExif(image.Blob("exif-data"));
  const bool isOnItsSide = orientation >= 5 && orientation <= 8;  // before it is turned upright
  if (told.x > 0 && told.y > 0) return isOnItsSide ? Resolution{told.y, told.x} : told;
  // One pixel for a millimetre is what vips says where a file says nothing.
  const auto perMetre = [](double perMillimetre) {
    return perMillimetre == 1 || !(perMillimetre > 0) || perMillimetre > 1e5
               ? int32_t{0}
               : static_cast<int32_t>(perMillimetre * 1000 + 0.5);
  };
  return {perMetre(vips.xres(image.get())), perMetre(vips.yres(image.get()))};
}

std::string SpaceOf(const Vips& vips, const Image& image, int bits) {
  if (vips.interpretation(image.get()) == kCmyk) return "CMYK";
  return bits == 24 ? "RGB" : "grey";
}

void TakeMetadata(const Vips& vips, const Kind& kind, const Image& image, int bits, int depth,
                  Metadata* metadata) {
  const std::string space = SpaceOf(vips, image, bits);
  Tell({.space = space,
        .bits = depth,
        .compression = kind.title,
        .hasAlpha = vips.hasAlpha(image.get()) != 0,
        .isMixed = space == "CMYK"},
       metadata);
  constexpr std::pair<const char*, const char*> kBlobs[] = {
      {"icc", "icc-profile-data"}, {"xmp", "xmp-data"}, {"iptc", "iptc-data"}};
  for (const auto& [item, name] : kBlobs) {
    const std::vector<uint8_t> bytes = image.Blob(name);
    if (!bytes.empty()) metadata->Set(item, bytes);
  }
  TakeExif(image.Blob("exif-data"), metadata);
}

// `told` is what vips does not tell.
Dib ReadWith(const Kind& kind, std::span<const uint8_t> bytes, int page, const Jp2Extras* told,
             const Reading& reading, Metadata* metadata) {
  const Vips& vips = Library(kind.title);
  Image image(vips);
  Open(vips, kind, bytes, page, &image);
  const int bits = BitsOf(vips, image);
  reading.CheckPixels(vips.width(image.get()), vips.height(image.get()));
  const int wholeDepth = vips.format(image.get()) == kUchar ? 8 : 16;
  const int depth = told != nullptr && told->depth > 0 && told->depth < wholeDepth ? told->depth : wholeDepth;
  if (metadata != nullptr) TakeMetadata(vips, kind, image, bits, depth, metadata);
  const Resolution resolution = told != nullptr ? told->resolution : ResolutionOf(vips, image);
  MakePlain(vips, bits, depth, &image);
  const auto pixelBytes = static_cast<uint64_t>(vips.width(image.get())) *
                          static_cast<uint64_t>(vips.height(image.get())) *
                          static_cast<uint64_t>(vips.bands(image.get()));
  Dib dib = reading.NewPage(vips.width(image.get()), vips.height(image.get()), bits, resolution, pixelBytes);
  const PageView view(dib);
  const auto samples = static_cast<size_t>(vips.bands(image.get()));
  size_t size = 0;
  const std::unique_ptr<void, void (*)(void*)> pixels(vips.toMemory(image.get(), &size), vips.free);
  if (!pixels) Damaged(ErrorText(vips));
  const auto width = static_cast<size_t>(view.width());
  if (samples < (bits == 24 ? 3u : 1u) || size < width * static_cast<size_t>(view.height()) * samples)
    throw PageError("has colours that are not read", ErrUnsupported);
  const auto* in = static_cast<const uint8_t*>(pixels.get());
  for (int y = 0; y < view.height(); ++y) {
    uint8_t* out = view.PageRow(y);
    std::memset(out + view.stride() - 4, 0, 4);
    for (size_t x = 0; x < width; ++x, in += samples) {
      if (bits == 8) {
        out[x] = in[0];
      } else {
        for (size_t i = 0; i < 3; ++i) out[3 * x + 2 - i] = in[i];
      }
    }
  }
  return dib;
}

// ---- the formats ------------------------------------------------------------------------------------------

constexpr Kind kKinds[] = {{"JPEG 2000", "vips_jp2kload_buffer", false},
                           {"WebP", "vips_webpload_buffer", true},
                           {"HEIF", "vips_heifload_buffer", true},
                           {"JPEG XL", "vips_jxlload_buffer", false},
                           {"GIF", "vips_gifload_buffer", true}};
enum { kKindJp2, kKindWebp, kKindHeif, kKindJxl, kKindGif };

template <int kKind>
Dib Read(Bytes* file, uint64_t place, const Reading& reading, Metadata* metadata) {
  const std::vector<uint8_t> bytes = AllOf(file);
  if constexpr (kKind == kKindJp2) {
    return ReadJpeg2000(bytes, reading, metadata);
  } else {
    return ReadWith(kKinds[kKind], bytes, static_cast<int>(place), nullptr, reading, metadata);
  }
}

template <int kKind>
PageInfo Describe(Bytes* file, uint64_t place) {
  const std::vector<uint8_t> bytes = AllOf(file);
  const Vips& vips = Library(kKinds[kKind].title);
  Image image(vips);
  Open(vips, kKinds[kKind], bytes, static_cast<int>(place), &image);
  const int bits = BitsOf(vips, image);
  const Resolution resolution =
      kKind == kKindJp2 ? ReadJp2Extras(bytes).resolution : ResolutionOf(vips, image);
  if (!image.Become([&](VipsImage* in, VipsImage** out) { return vips.autorot(in, out, nullptr); }))
    Damaged("");
  return InfoFromHeader(vips.width(image.get()), vips.height(image.get()), bits, resolution, 1,
                        [](const PageView&) {});
}

template <int kKind>
PageList List(Bytes* file) {
  const std::vector<uint8_t> bytes = AllOf(file);
  const Vips& vips = Library(kKinds[kKind].title);
  Image image(vips);
  Open(vips, kKinds[kKind], bytes, 0, &image);
  PageList list;
  const int pages = std::max(1, vips.pages(image.get()));
  for (int i = 0; i < pages; ++i) list.places.push_back(static_cast<uint64_t>(i));
  return list;
}

// ---- writing ----------------------------------------------------------------------------------------------

constexpr OptionEntry kOptions[] = {
    {.name = "quality",
     .help = "lose what the eye misses, down to this quality; without it nothing is lost",
     .least = 1,
     .most = 100}};

// Grey bytes, or red, green and blue.
std::vector<uint8_t> SamplesOf(const PageView& page, bool isGrey) {
  std::vector<uint8_t> samples;
  samples.reserve(static_cast<size_t>(page.width()) * static_cast<size_t>(page.height()) * (isGrey ? 1 : 3));
  for (int y = 0; y < page.height(); ++y) {
    const uint8_t* row = page.PageRow(y);
    for (int x = 0; x < page.width(); ++x) {
      if (page.bits() == 24) {
        for (int i = 2; i >= 0; --i)
          samples.push_back(row[3 * static_cast<size_t>(x) + static_cast<size_t>(i)]);
        continue;
      }
      const RGBQUAD colour = page.palette()[GetIndex(row, page.bits(), x)];
      samples.push_back(colour.rgbRed);
      if (!isGrey) samples.insert(samples.end(), {colour.rgbGreen, colour.rgbBlue});
    }
  }
  return samples;
}

std::vector<uint8_t> Save(const Kind& kind, const char* saver, const Dib& page, const Metadata& metadata,
                          const Options& options) {
  const Vips& vips = Library(kind.title);
  auto* save = reinterpret_cast<Vips::Saver*>(Find(saver));
  if (save == nullptr) throw PageError(Text("needs a libvips that writes ", kind.title), ErrUnsupported);
  const PageView view(page);
  const bool isGrey = view.bits() <= 8 && HasGreyRamp(view);
  const std::vector<uint8_t> samples = SamplesOf(view, isGrey);
  Image image(vips, vips.fromMemory(samples.data(), samples.size(), view.width(), view.height(),
                                    isGrey ? 1 : 3, kUchar));
  if (image.get() == nullptr) throw PageError("out of memory", ErrNoMemory);
  const Resolution resolution = view.resolution();
  const bool isCopied = image.Become([&](VipsImage* in, VipsImage** out) {
    return vips.copy(in, out, "interpretation", isGrey ? kGrey : kSrgb, "xres", resolution.x / 1000.0, "yres",
                     resolution.y / 1000.0, nullptr);
  });
  if (!isCopied) throw PageError("out of memory", ErrNoMemory);
  const auto set = [&](const char* item, const char* name) {
    if (const Metadata::Item* found = metadata.Find(item); found != nullptr && !found->bytes.empty())
      vips.setBlob(image.get(), name, found->bytes.data(), found->bytes.size());
  };
  set("icc", "icc-profile-data");
  set("xmp", "xmp-data");
  // In WebP there is no other place for the resolution.
  std::vector<uint8_t> exif(kExifIntro.begin(), kExifIntro.end());
  const std::vector<uint8_t> block = ExifFor(metadata, resolution, RASTREL_EXIF_TEXTS, /*isOnlyPlace=*/true);
  exif.insert(exif.end(), block.begin(), block.end());
  if (!block.empty()) vips.setBlob(image.get(), "exif-data", exif.data(), exif.size());
  void* bytes = nullptr;
  size_t size = 0;
  const auto quality = static_cast<int>(options.Number("quality", 0));
  const int failed = quality == 0 ? save(image.get(), &bytes, &size, "lossless", 1, nullptr)
                                  : save(image.get(), &bytes, &size, "Q", quality, nullptr);
  if (failed != 0) NotWritten(ErrorText(vips));
  const std::unique_ptr<void, void (*)(void*)> owned(bytes, vips.free);
  const auto* first = static_cast<const uint8_t*>(bytes);
  return {first, first + size};
}

void PutAll(std::span<const uint8_t> bytes, Bytes* file) {
  if (!file->WriteAt(0, bytes)) NotWritten(file->problem() != nullptr ? file->problem() : "");
}

void WriteJp2(const Dib& page, const Metadata& metadata, const Options& options, Bytes* file) {
  const PageView view(page);
  const Metadata fitting = FittingProfile(metadata, view);
  const std::vector<uint8_t> saved = Save(kKinds[kKindJp2], "vips_jp2ksave_buffer", page, {}, options);
  Jp2Extras extras = {.resolution = view.resolution()};
  if (const Metadata::Item* xmp = fitting.Find("xmp")) extras.xmp = xmp->bytes;
  if (const Metadata::Item* profile = fitting.Find("icc")) extras.profile = profile->bytes;
  PutAll(WithJp2Extras(saved, extras), file);
}

void WriteWebp(const Dib& page, const Metadata& metadata, const Options& options, Bytes* file) {
  constexpr int kMostPixels = 16383;
  const PageView view(page);
  if (std::max(view.width(), view.height()) > kMostPixels)
    throw PageError(Text("cannot be written: WebP holds at most ", kMostPixels, " pixels across and down"),
                    ErrTooLarge);
  PutAll(Save(kKinds[kKindWebp], "vips_webpsave_buffer", page, FittingProfile(metadata, view), options),
         file);
}

constexpr std::string_view kJp2Signatures[] = {"\0\0\0\x0CjP  "sv, "\xFF\x4F\xFF\x51"sv};
constexpr std::string_view kWebpSignatures[] = {"RIFF????WEBP"sv};
constexpr std::string_view kHeifSignatures[] = {"????ftypheic"sv, "????ftypheix"sv, "????ftypmif1"sv,
                                                "????ftypmsf1"sv, "????ftypavif"sv};
constexpr std::string_view kJxlSignatures[] = {"\xFF\x0A"sv, "\0\0\0\x0CJXL "sv};
constexpr std::string_view kGifSignatures[] = {"GIF87a"sv, "GIF89a"sv};

}  // namespace

Dib ReadJpeg2000(std::span<const uint8_t> bytes, const Reading& reading, Metadata* metadata) {
  const Jp2Extras extras = ReadJp2Extras(bytes);
  Dib dib = ReadWith(kKinds[kKindJp2], bytes, 0, &extras, reading, metadata);
  if (metadata != nullptr && !extras.xmp.empty()) metadata->Set("xmp", extras.xmp);
  return dib;
}

constinit const Format kJp2 = {.name = "jp2",
                               .title = "JPEG 2000",
                               .extensions = "jp2,j2k,jpf,jpx",
                               .signatures = kJp2Signatures,
                               .options = kOptions,
                               .metadata = "icc,xmp",
                               .read = Read<kKindJp2>,
                               .describe = Describe<kKindJp2>,
                               .write = WriteJp2};
constinit const Format kWebp = {.name = "webp",
                                .title = "WebP",
                                .extensions = "webp",
                                .signatures = kWebpSignatures,
                                .options = kOptions,
                                .metadata = "icc,xmp,exif," RASTREL_EXIF_TEXTS,
                                .read = Read<kKindWebp>,
                                .describe = Describe<kKindWebp>,
                                .list = List<kKindWebp>,
                                .write = WriteWebp};
constinit const Format kHeif = {.name = "heic",
                                .title = "HEIF",
                                .extensions = "heic,heif,avif",
                                .signatures = kHeifSignatures,
                                .read = Read<kKindHeif>,
                                .describe = Describe<kKindHeif>,
                                .list = List<kKindHeif>};
constinit const Format kJxl = {.name = "jxl",
                               .title = "JPEG XL",
                               .extensions = "jxl",
                               .signatures = kJxlSignatures,
                               .read = Read<kKindJxl>,
                               .describe = Describe<kKindJxl>};
constinit const Format kGif = {.name = "gif",
                               .title = "GIF",
                               .extensions = "gif",
                               .signatures = kGifSignatures,
                               .read = Read<kKindGif>,
                               .describe = Describe<kKindGif>,
                               .list = List<kKindGif>};

}  // namespace rastrel::formats
