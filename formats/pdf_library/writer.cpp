#include <map>

#include <lcms2.h>

#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include "formats/pdf_library/reader.h"
#include "formats/pdf_library/source.h"

namespace rastrel::formats {
namespace {

using Handle = QPDFObjectHandle;

// The largest side of a page in units, which are points unless the page says otherwise.
constexpr double kMostUnits = 14400;

// To a millionth, without trailing zeros. Integers decide, so that every machine writes the same.
std::string Number(double value) {
  const bool isNegative = value < 0;
  auto millionths = static_cast<int64_t>((isNegative ? -value : value) * 1e6 + 0.5);
  std::string text = std::to_string(millionths / 1000000);
  if (millionths %= 1000000; millionths != 0) {
    const std::string digits = std::to_string(1000000 + millionths).substr(1);
    text += "." + digits.substr(0, digits.find_last_not_of('0') + 1);
  }
  return isNegative ? "-" + text : text;
}

// Gives streams their bytes from the spool, where they wait.
class Spool : public Handle::StreamDataProvider {
 public:
  explicit Spool(std::unique_ptr<Bytes> bytes) : bytes_(std::move(bytes)) {}

  void Add(Handle stream, std::span<const uint8_t> bytes) {
    if (!bytes_->WriteAt(end_, bytes)) {
      const char* why = bytes_->problem();
      throw PageError(std::string("cannot be written: ") + (why != nullptr ? why : "no room"), ErrFileIO);
    }
    places_[stream.getObjGen()] = {end_, bytes.size()};
    end_ += bytes.size();
  }

  void provideStreamData(QPDFObjGen const& object, Pipeline* pipeline) override {
    auto [position, left] = places_.at(object);
    std::vector<uint8_t> buffer(std::min<uint64_t>(left, kBufferBytes));
    while (left > 0) {
      const auto count = static_cast<size_t>(std::min<uint64_t>(left, buffer.size()));
      if (bytes_->ReadAt(position, {buffer.data(), count}) < count)
        throw std::runtime_error("a file is gone");
      pipeline->write(buffer.data(), count);
      position += count;
      left -= count;
    }
    pipeline->finish();
  }

 private:
  static constexpr uint64_t kBufferBytes = 1 << 16;
  struct Place {
    uint64_t position, bytes;
  };
  std::unique_ptr<Bytes> bytes_;
  uint64_t end_ = 0;
  std::map<QPDFObjGen, Place> places_;
};

struct ProfileCloser {
  void operator()(void* profile) const { cmsCloseProfile(profile); }
};
using Profile = std::unique_ptr<void, ProfileCloser>;

// The bytes of a profile as every run makes them.
std::vector<uint8_t> BytesOf(const Profile& profile) {
  constexpr double kVersion = 2.1;  // which every reader knows
  cmsUInt32Number size = 0;
  if (!profile) throw std::bad_alloc();
  cmsSetProfileVersion(profile.get(), kVersion);
  if (!cmsSaveProfileToMem(profile.get(), nullptr, &size)) throw std::bad_alloc();
  std::vector<uint8_t> bytes(size);
  if (!cmsSaveProfileToMem(profile.get(), bytes.data(), &size)) throw std::bad_alloc();
  constexpr size_t kDateAt = 24;
  constexpr uint8_t kDate[12] = {7, 208, 0, 1, 0, 1};  // 1 January 2000, 16 bits each; not today
  std::copy(std::begin(kDate), std::end(kDate), bytes.begin() + kDateAt);
  return bytes;
}

std::vector<uint8_t> SrgbProfile() { return BytesOf(Profile(cmsCreate_sRGBProfile())); }

// With sRGB's curve, as grey pages are seen.
std::vector<uint8_t> GreyProfile() {
  const double parameters[] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
  cmsToneCurve* curve = cmsBuildParametricToneCurve(nullptr, 4, parameters);
  Profile profile(curve != nullptr ? cmsCreateGrayProfile(cmsD50_xyY(), curve) : nullptr);
  cmsFreeToneCurve(curve);
  return BytesOf(profile);
}

Handle Dictionary() { return Handle::newDictionary(); }
Handle Name(const std::string& name) { return Handle::newName("/" + name); }
Handle Real(double value) { return Handle::newReal(Number(value)); }

class Writer : public PdfWriter {
 public:
  explicit Writer(std::unique_ptr<Bytes> spool)
      : spool_(std::make_shared<Spool>(std::move(spool))), pages_(Empty(&pdf_)) {}

  void Append(const PdfPageToWrite& page) override {
    Asking([&] { Add(page); });
  }
  void Finish(const PdfDocumentInfo& info, Bytes* file) override {
    Asking([&] { Write(info, file); });
  }

 private:
  static QPDF& Empty(QPDF* pdf) {
    pdf->setSuppressWarnings(true);
    pdf->emptyPDF();
    return *pdf;
  }

  // A stream without its bytes' copy in memory.
  Handle Stored(std::span<const uint8_t> bytes, Handle filter, Handle parameters) {
    Handle stream = pdf_.newStream();
    spool_->Add(stream, bytes);
    stream.replaceStreamData(spool_, filter, parameters);
    return stream;
  }

  // One for all pages that have the same.
  Handle Shared(const std::vector<uint8_t>& bytes, std::map<std::string, Handle>* all) {
    const std::string text(bytes.begin(), bytes.end());
    auto [entry, isNew] = all->try_emplace(text, Handle::newNull());
    if (isNew) entry->second = pdf_.newStream(text);
    return entry->second;
  }

  Handle ProfileStream(const std::vector<uint8_t>& profile, int samples) {
    Handle stream = Shared(profile, &profiles_);
    stream.getDict().replaceKey("/N", Handle::newInteger(samples));
    return stream;
  }

  Handle XmpStream(const std::vector<uint8_t>& xmp) {
    Handle stream = Shared(xmp, &xmps_);
    stream.getDict().replaceKey("/Type", Name("Metadata"));
    stream.getDict().replaceKey("/Subtype", Name("XML"));
    return stream;
  }

  Handle SpaceOf(const PdfPicture& picture) {
    const bool isGrey = picture.space == PdfSpace::kGrey;
    Handle base = Name(isGrey ? "DeviceGray" : "DeviceRGB");
    if (!picture.profile.empty()) {
      base = Handle::newArray({Name("ICCBased"), ProfileStream(picture.profile, isGrey ? 1 : 3)});
    } else {
      hasColours_ = hasColours_ || !isGrey;
      hasGreys_ = hasGreys_ || isGrey;
    }
    if (picture.space != PdfSpace::kIndexed) return base;
    const auto last = static_cast<int>(picture.palette.size() / 3) - 1;
    const std::string table(picture.palette.begin(), picture.palette.end());
    return Handle::newArray({Name("Indexed"), base, Handle::newInteger(last), Handle::newString(table)});
  }

  Handle Image(const PdfLayer& layer) {
    const PdfPicture& picture = layer.picture;
    Handle stream = Stored(layer.bytes, Name(picture.filter),
                           layer.parameters.empty() ? Handle::newNull() : Handle::parse(layer.parameters));
    Handle dictionary = stream.getDict();
    dictionary.replaceKey("/Type", Name("XObject"));
    dictionary.replaceKey("/Subtype", Name("Image"));
    dictionary.replaceKey("/Width", Handle::newInteger(picture.width));
    dictionary.replaceKey("/Height", Handle::newInteger(picture.height));
    dictionary.replaceKey("/BitsPerComponent", Handle::newInteger(picture.bits));
    if (picture.isInverted) {
      dictionary.replaceKey("/Decode", Handle::newArray({Handle::newInteger(1), Handle::newInteger(0)}));
    }
    if (picture.isStencil) {
      dictionary.replaceKey("/ImageMask", Handle::newBool(true));
    } else {
      dictionary.replaceKey("/ColorSpace", SpaceOf(picture));
    }
    return stream;
  }

  std::string PaintOf(const PdfLayer& layer) {
    const auto share = [&](int i) { return Number(layer.paint[i] / 255.0); };
    if (layer.paint[0] == layer.paint[1] && layer.paint[1] == layer.paint[2]) {
      hasGreys_ = true;
      return share(0) + " g ";
    }
    hasColours_ = true;
    return share(0) + " " + share(1) + " " + share(2) + " rg ";
  }

  void Add(const PdfPageToWrite& page) {
    Handle pictures = Dictionary(), resources = Dictionary(), object = Dictionary();
    const double largest = std::max(page.width, page.height);
    double unit = 1;
    while (largest > unit * kMostUnits) ++unit;
    std::string content;
    for (size_t i = 0; i < page.layers.size(); ++i) {
      const PdfLayer& layer = page.layers[i];
      const std::string name = "/Im" + std::to_string(i);
      pictures.replaceKey(name, Image(layer));
      content += "q " + (layer.picture.isStencil ? PaintOf(layer) : "") + Number(layer.width / unit) +
                 " 0 0 " + Number(layer.height / unit) + " " + Number(layer.left / unit) + " " +
                 Number(layer.bottom / unit) + " cm " + name + " Do Q\n";
    }
    resources.replaceKey("/XObject", pictures);
    object.replaceKey("/Type", Name("Page"));
    object.replaceKey("/MediaBox", Handle::newArray({Handle::newInteger(0), Handle::newInteger(0),
                                                     Real(page.width / unit), Real(page.height / unit)}));
    if (unit != 1) object.replaceKey("/UserUnit", Real(unit));
    object.replaceKey("/Resources", resources);
    object.replaceKey("/Contents", Shared({content.begin(), content.end()}, &contents_));
    if (!page.xmp.empty()) object.replaceKey("/Metadata", XmpStream(page.xmp));
    pages_.addPage(QPDFPageObjectHelper(pdf_.makeIndirectObject(object)), false);
    labels_.push_back(page.label);
  }

  // Each page's own, or its number where it has none.
  void SetLabels() {
    const bool hasLabels =
        std::any_of(labels_.begin(), labels_.end(), [](const auto& label) { return !label.empty(); });
    if (!hasLabels) return;
    Handle numbers = Handle::newArray();
    for (size_t i = 0; i < labels_.size(); ++i) {
      Handle label = Dictionary();
      if (labels_[i].empty()) {
        label.replaceKey("/S", Name("D"));
        label.replaceKey("/St", Handle::newInteger(static_cast<long long>(i + 1)));
      } else {
        label.replaceKey("/P", Handle::newUnicodeString(labels_[i]));
      }
      numbers.appendItem(Handle::newInteger(static_cast<long long>(i)));
      numbers.appendItem(label);
    }
    Handle tree = Dictionary();
    tree.replaceKey("/Nums", numbers);
    pdf_.getRoot().replaceKey("/PageLabels", tree);
  }

  // The colours that those of pages without a profile are.
  void SetIntent() {
    std::vector<uint8_t> profile;
    int samples = hasColours_ || !hasGreys_ ? 3 : 1;
    std::string name = samples == 3 ? "sRGB IEC61966-2.1" : "Grey with the curve of sRGB";
    if (!hasColours_ && !hasGreys_ && profiles_.size() == 1) {
      profile.assign(profiles_.begin()->first.begin(), profiles_.begin()->first.end());
      samples = static_cast<int>(profiles_.begin()->second.getDict().getKey("/N").getIntValue());
      name = "Custom";
    } else {
      profile = samples == 3 ? SrgbProfile() : GreyProfile();
    }
    Handle intent = Dictionary();
    intent.replaceKey("/Type", Name("OutputIntent"));
    intent.replaceKey("/S", Name("GTS_PDFA1"));
    intent.replaceKey("/OutputConditionIdentifier", Handle::newUnicodeString(name));
    intent.replaceKey("/Info", Handle::newUnicodeString(name));
    intent.replaceKey("/DestOutputProfile", ProfileStream(profile, samples));
    pdf_.getRoot().replaceKey("/OutputIntents", Handle::newArray({intent}));
  }

  void Write(const PdfDocumentInfo& info, Bytes* file) {
    Handle texts = Dictionary();
    for (const auto& [name, text] : info.info) texts.replaceKey("/" + name, Handle::newUnicodeString(text));
    pdf_.getTrailer().replaceKey("/Info", pdf_.makeIndirectObject(texts));
    if (!info.xmp.empty()) pdf_.getRoot().replaceKey("/Metadata", XmpStream(info.xmp));
    SetLabels();
    if (!info.archival.empty()) SetIntent();
    QPDFWriter writer(pdf_);
    BytesSink sink(file);
    writer.setOutputPipeline(&sink);
    writer.setStreamDataMode(qpdf_s_preserve);
    writer.setMinimumPDFVersion("1.7");
    writer.setLinearization(true);
    writer.setDeterministicID(true);
    writer.write();
    if (sink.hasFailed() || pdf_.anyWarnings()) {
      const char* why = file->problem();
      throw PageError(std::string("cannot be written: ") + (why != nullptr ? why : "its bytes are gone"),
                      ErrFileIO);
    }
  }

  QPDF pdf_;
  std::shared_ptr<Spool> spool_;
  QPDFPageDocumentHelper pages_;
  std::map<std::string, Handle> profiles_, xmps_, contents_;
  std::vector<std::string> labels_;
  bool hasColours_ = false, hasGreys_ = false;  // without a profile
};

}  // namespace

std::unique_ptr<PdfWriter> CreatePdf(std::unique_ptr<Bytes> spool) {
  return Asking([&]() -> std::unique_ptr<PdfWriter> { return std::make_unique<Writer>(std::move(spool)); });
}

}  // namespace rastrel::formats
