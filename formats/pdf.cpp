// PDF files. A page that is one scanned image gives that image as it is stored; others are drawn by a
// program. What the file is made of is a library's affair: see pdf_library.h.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <optional>

#include "formats/format.h"
#include "formats/pdf_library.h"
#include "formats/pdf_metadata.h"
#include "formats/pdf_pictures.h"
#include "formats/system.h"
#include "pages/layers.h"
#include "pages/text.h"

namespace rastrel::formats {
namespace {

using namespace std::string_view_literals;
constexpr std::string_view kSignatures[] = {"%PDF-"sv};

constexpr OptionEntry kOptions[] = {
    {.name = "quality",
     .help = "compress grey and colour pages as JPEG of this quality; without it nothing is lost",
     .least = 1,
     .most = 100},
    {.name = "layers",
     .help = "mixed: text at full resolution over a JPEG of the rest at a lower one",
     .choices = "one,mixed",
     .standard = "one"},
    {.name = "pdfa", .help = "keep to the rules of PDF/A for archives", .choices = "2b"}};

constexpr double kPointsPerInch = 72;
constexpr double kAssumedDpi = 300;  // of pages that do not say

const PdfLibrary& Library() {
  static std::string why;
  static const PdfLibrary* const kLibrary = [] {
    // Loaded once: the thread that comes first does it.
    void* function = FindFunction(RASTREL_PDF_LIBRARY, kPdfLibraryFunction, &why);
    if (function == nullptr) return static_cast<const PdfLibrary*>(nullptr);
    const PdfLibrary* library = reinterpret_cast<GetPdfLibrary*>(function)(kPdfLibraryVersion);
    if (library == nullptr) why = "it is of another version";
    return library;
  }();
  if (kLibrary == nullptr)
    throw PageError(Text("needs ", RASTREL_PDF_LIBRARY, " for PDF, which cannot be loaded: ", why),
                    ErrUnsupported);
  return *kLibrary;
}

// ---- reading ----------------------------------------------------------------------------------------------

double DpiOf(int64_t pixels, double points) { return static_cast<double>(pixels) * kPointsPerInch / points; }

Resolution ResolutionOf(const PdfPage& page) {
  return {PixelsPerMetre(DpiOf(page.picture.width, page.across)),
          PixelsPerMetre(DpiOf(page.picture.height, page.down))};
}

// What the program that draws says of a page that it has drawn all the same. Pictures and contents of which
// it could not read all are damage; of anything else the first is told.
void TakeErrors(std::string_view said, std::string* errors) {
  constexpr std::string_view kData[] = {"flate stream", "LZW stream", "CCITTFax", "JBIG2", "JPEG",
                                        "JPX",          "Corrupt",    "image",    "Image"};
  while (!said.empty()) {
    const std::string_view line = said.substr(0, said.find('\n'));
    said.remove_prefix(std::min(said.size(), line.size() + 1));
    if (line.find("Error") == std::string_view::npos && !line.starts_with("Corrupt")) continue;
    const bool isData = std::any_of(std::begin(kData), std::end(kData), [&](std::string_view word) {
      return line.find(word) != std::string_view::npos;
    });
    if (isData) Damaged(Text("pdftoppm: ", line));
    if (errors->empty()) *errors = Text("pdftoppm: ", line);
  }
}

class Source : public PageSource {
 public:
  explicit Source(std::unique_ptr<Bytes> file) : reader_(Library().open(std::move(file))) {}

  PageList List() override {
    PageList list;
    for (size_t i = 0; i < reader_->Count(); ++i) list.places.push_back(i);
    list.damage = reader_->Damage();
    return list;
  }

  Dib Read(uint64_t place, const Reading& reading, Metadata* metadata) override {
    const auto index = static_cast<size_t>(place);
    ++reads_;
    const PdfPage page = reader_->Page(index);
    std::string reason = page.reason;
    Dib dib;
    if (page.hasPicture) {
      try {
        dib = ReadPicture(index, page, reading, metadata);
      } catch (const NotReadAsStored& error) {
        reason = error.what();
      }
    }
    const bool isDrawn = !dib;
    std::string errors;
    if (isDrawn) dib = Draw(index, page, reading, &errors);
    if (metadata != nullptr) Describe(index, page, isDrawn ? reason : "", reading.dpi(), metadata);
    if (metadata != nullptr && !errors.empty()) AddReduction(errors, metadata);
    return dib;
  }

  // qpdf keeps all that it has seen of a file, about 10 kB a page.
  bool isWorn() const override {
    constexpr int kMostReads = 250;
    return reads_ >= kMostReads;
  }

  PageInfo Describe(uint64_t place, int dpi) override {
    const PdfPage page = reader_->Page(static_cast<size_t>(place));
    if (page.hasPicture) {
      const PdfPicture& picture = page.picture;
      const bool isColour = picture.space == PdfSpace::kRgb || picture.space == PdfSpace::kCmyk;
      const int bits = isColour             ? 24
                       : picture.bits == 16 ? 8
                       : picture.bits == 2  ? 4
                                            : std::min(picture.bits, 8);
      return InfoFromHeader(picture.width, picture.height, bits, ResolutionOf(page), page.orientation,
                            [](const PageView&) {});
    }
    const auto pixels = [&](double points) {
      return static_cast<int64_t>(std::ceil(points / kPointsPerInch * dpi));
    };
    const int32_t perMetre = PixelsPerMetre(dpi);
    return InfoFromHeader(pixels(page.width), pixels(page.height), 24, {perMetre, perMetre}, 1,
                          [](const PageView&) {});
  }

 private:
  Dib ReadPicture(size_t index, const PdfPage& page, const Reading& reading, Metadata* metadata) {
    reading.CheckPixels(page.picture.width, page.picture.height);
    std::vector<uint8_t> globals;
    std::vector<uint8_t> bytes = reader_->PictureBytes(index, MostBytes(page.picture), &globals);
    Dib dib = PageOf(page.picture, std::move(bytes), std::move(globals), reading, metadata);
    const PageView view(dib);
    view.header().biXPelsPerMeter = PixelsPerMetre(DpiOf(view.width(), page.across));
    view.header().biYPelsPerMeter = PixelsPerMetre(DpiOf(view.height(), page.down));
    return Upright(std::move(dib), page.orientation);
  }

  // In grey where it shows no colour. `errors` is what the program has to say beside.
  Dib Draw(size_t index, const PdfPage& page, const Reading& reading, std::string* errors) {
    const auto side = [&](double points) {
      return static_cast<uint64_t>(std::ceil(points / kPointsPerInch * reading.dpi())) + 1;
    };
    reading.CheckPixels(static_cast<int64_t>(side(page.width)), static_cast<int64_t>(side(page.height)));
    const std::unique_ptr<Bytes> alone = TemporaryBytes();
    reader_->WriteAlone(index, alone.get());
    constexpr uint64_t kHeadBytes = 64;
    std::string said;
    const std::vector<uint8_t> drawn = RunProgram(
        {"pdftoppm", "-cropbox", "-r", Fixed(reading.dpi() * page.unit, 4), "-f", "1", "-l", "1",
         "-singlefile", kInputName},
        alone.get(), {side(page.width) * side(page.height) * 3 + kHeadBytes, reading.secondsLeft()}, &said);
    reading.CheckTime();
    TakeErrors(said, errors);
    Dib dib = FromProgram(drawn, reading);
    const PageView view(dib);
    view.header().biXPelsPerMeter = view.header().biYPelsPerMeter = PixelsPerMetre(reading.dpi());
    for (int y = 0; y < view.height(); ++y) {
      const uint8_t* row = view.PageRow(y);
      for (int x = 0; x < view.width(); ++x, row += 3) {
        if (row[0] != row[1] || row[1] != row[2]) return dib;
      }
    }
    return ToGrey(dib);
  }

  // `reason` is why the page was drawn.
  void Describe(size_t index, const PdfPage& page, const std::string& reason, int dpi, Metadata* metadata) {
    const PdfPicture& picture = page.picture;
    for (const char* item : {"icc", "space", "depth", "compression", "reduced"}) metadata->Remove(item);
    if (reason.empty()) {
      Tell({.space = picture.spaceName.empty() ? "grey" : picture.spaceName,
            .bits = picture.bits,
            .compression = picture.storedAs.empty() ? "none" : picture.storedAs,
            .isMixed = picture.space == PdfSpace::kCmyk},
           metadata);
      if (picture.isCalibrated && picture.bits > 1)
        AddReduction("calibration of its colours left out", metadata);
      if (!picture.profile.empty() && picture.space != PdfSpace::kCmyk) metadata->Set("icc", picture.profile);
    } else {
      Tell({.space = "drawn"}, metadata);
      AddReduction(Text("drawn at ", dpi, " dpi: ", reason), metadata);
    }
    for (const std::string& what : page.leftOut) AddReduction(what + " left out", metadata);
    for (const std::string& what : page.onTop) {
      if (reason.empty()) AddReduction(what + " left out", metadata);
    }
    TakeMetadata(reader_->Info(), reader_->Xmp(index), metadata);
    if (!page.label.empty()) metadata->SetText("page-name", page.label);
    if (reader_->Count() > 1) metadata->SetText("page-number", Text(index, "/", reader_->Count()));
  }

  std::unique_ptr<PdfReader> reader_;
  int reads_ = 0;
};

std::unique_ptr<PageSource> Open(std::unique_ptr<Bytes> file) {
  return std::make_unique<Source>(std::move(file));
}

// ---- pages on their way to the file -----------------------------------------------------------------------

// Numbers, texts and bytes one after the other: what `Encode` leaves for the document.
class Packer {
 public:
  void Put(uint64_t number) { AppendLittleEndian(&bytes_, number, sizeof(number)); }
  void Put(double number) { Put(std::bit_cast<uint64_t>(number)); }
  template <class Run>
  void PutRun(const Run& run) {
    Put(uint64_t{run.size()});
    bytes_.insert(bytes_.end(), run.begin(), run.end());
  }
  std::vector<uint8_t> Take() { return std::move(bytes_); }

 private:
  std::vector<uint8_t> bytes_;
};

class Unpacker {
 public:
  explicit Unpacker(std::span<const uint8_t> bytes) : bytes_(bytes) {}
  uint64_t Number() {
    const uint64_t number = LittleEndian(bytes_.first(sizeof(number)));
    bytes_ = bytes_.subspan(sizeof(number));
    return number;
  }
  double Real() { return std::bit_cast<double>(Number()); }
  std::span<const uint8_t> Run() {
    const auto size = static_cast<size_t>(Number());
    const std::span<const uint8_t> run = bytes_.first(size);
    bytes_ = bytes_.subspan(size);
    return run;
  }
  std::vector<uint8_t> Vector() {
    const std::span<const uint8_t> run = Run();
    return {run.begin(), run.end()};
  }
  std::string String() {
    const std::span<const uint8_t> run = Run();
    return {run.begin(), run.end()};
  }

 private:
  std::span<const uint8_t> bytes_;
};

double PointsOf(int pixels, int32_t pixelsPerMetre) {
  const double dpi = pixelsPerMetre > 0 ? DotsPerInch(pixelsPerMetre) : kAssumedDpi;
  return pixels * kPointsPerInch / dpi;
}

void PutLayer(const StoredPicture& stored, const PdfLayer& place, Packer* packer) {
  const PdfPicture& picture = stored.picture;
  packer->Put(static_cast<uint64_t>(picture.width));
  packer->Put(static_cast<uint64_t>(picture.height));
  packer->Put(static_cast<uint64_t>(picture.bits));
  packer->Put(static_cast<uint64_t>(picture.space));
  packer->Put(uint64_t{picture.isStencil});
  packer->PutRun(picture.palette);
  packer->PutRun(picture.profile);
  packer->PutRun(picture.filter);
  for (const double number : {place.left, place.bottom, place.width, place.height}) packer->Put(number);
  packer->PutRun(std::span(place.paint));
  packer->PutRun(stored.parameters);
  packer->PutRun(stored.bytes);
}

// Its bytes stay where they are.
PdfLayer TakeLayer(Unpacker* packed) {
  PdfLayer layer;
  PdfPicture& picture = layer.picture;
  picture.width = static_cast<int64_t>(packed->Number());
  picture.height = static_cast<int64_t>(packed->Number());
  picture.bits = static_cast<int>(packed->Number());
  picture.space = static_cast<PdfSpace>(packed->Number());
  picture.isStencil = packed->Number() != 0;
  picture.palette = packed->Vector();
  picture.profile = packed->Vector();
  picture.filter = packed->String();
  for (double* number : {&layer.left, &layer.bottom, &layer.width, &layer.height}) *number = packed->Real();
  const std::span<const uint8_t> paint = packed->Run();
  std::copy(paint.begin(), paint.end(), layer.paint);
  layer.parameters = packed->String();
  layer.bytes = packed->Run();
  return layer;
}

struct LayerToStore {
  StoredPicture stored;
  uint8_t paint[3] = {0, 0, 0};
};

// The picture of a page, or a background and stencils over it.
std::vector<LayerToStore> LayersOf(const Dib& page, const Options& options) {
  constexpr int kBackgroundQuality = 50;  // of what has no text
  const auto quality = static_cast<int>(options.Number("quality", 0));
  std::vector<LayerToStore> layers;
  std::optional<PageLayers> parts;
  if (options.Choice("layers", "one") == "mixed") parts = PartIntoLayers(page);
  if (!parts) {
    layers.push_back({Stored(page, quality)});
    return layers;
  }
  layers.push_back({Stored(parts->background, quality > 0 ? quality : kBackgroundQuality)});
  for (const TextLayer& text : parts->texts) {
    LayerToStore layer{Stored(text.ink, 0)};
    layer.stored.picture.isStencil = true;
    std::copy(std::begin(text.colour), std::end(text.colour), layer.paint);
    layers.push_back(std::move(layer));
  }
  return layers;
}

std::vector<uint8_t> Encode(const Dib& page, const Metadata& metadata, const Options& options) {
  const PageView view(page);
  const Metadata fitting = FittingProfile(metadata, view);
  std::vector<LayerToStore> layers = LayersOf(page, options);
  if (const Metadata::Item* profile = fitting.Find("icc")) {
    layers.front().stored.picture.profile = profile->bytes;
  }
  PdfLayer place;
  place.width = PointsOf(view.width(), view.resolution().x);
  place.height = PointsOf(view.height(), view.resolution().y);
  Packer packer;
  packer.Put(place.width);
  packer.Put(place.height);
  packer.PutRun(options.Choice("pdfa", ""));
  packer.Put(uint64_t{fitting.items().size()});
  for (const Metadata::Item& item : fitting.items()) {
    packer.PutRun(item.name);
    packer.PutRun(item.name == "icc" ? std::vector<uint8_t>() : item.bytes);  // it is with the picture
  }
  packer.Put(uint64_t{layers.size()});
  for (const LayerToStore& layer : layers) {
    std::copy(std::begin(layer.paint), std::end(layer.paint), place.paint);
    PutLayer(layer.stored, place, &packer);
  }
  return packer.Take();
}

class PdfFile : public Document {
 public:
  explicit PdfFile(Bytes* file) : file_(file), writer_(Library().create(TemporaryBytes())) {}

  void Append(std::span<const uint8_t> encoded) override {
    Unpacker packed(encoded);
    PdfPageToWrite page;
    page.width = packed.Real();
    page.height = packed.Real();
    const std::string archival = packed.String();
    Metadata metadata;
    for (uint64_t left = packed.Number(); left > 0; --left) {
      const std::string name = packed.String();
      metadata.Set(name, packed.Run());
    }
    for (uint64_t left = packed.Number(); left > 0; --left) page.layers.push_back(TakeLayer(&packed));
    page.label = metadata.TextOf("page-name");
    const Metadata::Item* xmp = metadata.Find("xmp");
    if (!isBegun_) {
      isBegun_ = true;
      document_ = DocumentInfo(metadata, archival);
    }
    // A packet that is the document's need not stand with the page as well.
    if (xmp != nullptr && xmp->bytes != document_.xmp && (archival.empty() || IsArchivalXmp(xmp->bytes)))
      page.xmp = xmp->bytes;
    writer_->Append(page);
  }

  void Close() override { writer_->Finish(document_, file_); }

 private:
  Bytes* file_;
  std::unique_ptr<PdfWriter> writer_;
  bool isBegun_ = false;
  PdfDocumentInfo document_;
};

std::unique_ptr<Document> Create(Bytes* file) { return std::make_unique<PdfFile>(file); }

}  // namespace

constinit const Format kPdf = {.name = "pdf",
                               .title = "PDF",
                               .extensions = "pdf",
                               .signatures = kSignatures,
                               .options = kOptions,
                               .metadata = kPdfMetadata,
                               .open = Open,
                               .encode = Encode,
                               .create = Create};

}  // namespace rastrel::formats
