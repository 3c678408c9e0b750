#include "formats/pdf_library/reader.h"

#include <cmath>
#include <limits>
#include <new>
#include <type_traits>

#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageLabelDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include "formats/pdf_library/content.h"

namespace rastrel::formats {
namespace {

using Handle = QPDFObjectHandle;

constexpr uint64_t kMostProfileBytes = 1 << 24;
constexpr uint64_t kMostXmpBytes = 1 << 24;
constexpr uint64_t kHighestRatio = 1100;  // of deflate, in bytes to a byte, rounded up
constexpr double kPointsPerInch = 72;

// ---- pictures ---------------------------------------------------------------------------------------------

int64_t WholeNumber(Handle number, int64_t otherwise) {
  return number.isInteger() ? number.getIntValue() : otherwise;
}
bool Flag(Handle flag, bool otherwise) { return flag.isBool() ? flag.getBoolValue() : otherwise; }

// The filters of a stream with their parameters (null for none), in the order of decoding.
struct Filter {
  std::string name;
  Handle parameters;
};
std::vector<Filter> FiltersOf(Handle stream) {
  Handle names = stream.getDict().getKey("/Filter"), parameters = stream.getDict().getKey("/DecodeParms");
  std::vector<Filter> filters;
  if (names.isName()) {
    if (parameters.isArray())
      parameters = parameters.getArrayNItems() > 0 ? parameters.getArrayItem(0) : Handle::newNull();
    filters.push_back({names.getName(), parameters});
  }
  constexpr int kMostFilters = 8;
  for (int i = 0; names.isArray() && i < std::min(names.getArrayNItems(), kMostFilters); ++i) {
    if (!names.getArrayItem(i).isName()) throw PageError("is damaged: a filter has no name", ErrDamagedFile);
    const bool hasParameters = parameters.isArray() && i < parameters.getArrayNItems();
    filters.push_back(
        {names.getArrayItem(i).getName(), hasParameters ? parameters.getArrayItem(i) : Handle::newNull()});
  }
  return filters;
}

bool IsPictureFilter(const std::string& name) {
  return name == "/CCITTFaxDecode" || name == "/DCTDecode" || name == "/JPXDecode" || name == "/JBIG2Decode";
}

std::vector<uint8_t> Piped(Handle stream, qpdf_stream_decode_level_e level, uint64_t mostBytes) {
  Collector bytes(mostBytes);
  bool isFiltered = false;
  const bool isWhole = stream.pipeStreamData(&bytes, &isFiltered, 0, level, /*suppress_warnings=*/true);
  const bool hasFilter = level != qpdf_dl_none && !stream.getDict().getKey("/Filter").isNull();
  if (!isWhole || (hasFilter && !isFiltered))
    throw PageError("is damaged: a stream cannot be read", ErrDamagedFile);
  if (bytes.isOver()) throw PageError("is damaged: a stream holds more than is told", ErrDamagedFile);
  return bytes.Take();
}

void TakeColours(Handle space, PdfPicture* picture);

void TakeIndexed(Handle space, PdfPicture* picture) {
  PdfPicture base;
  TakeColours(space.getArrayItem(1), &base);
  const int64_t colours = WholeNumber(space.getArrayItem(2), -1) + 1;
  Handle table = space.getArrayItem(3);
  std::string bytes;
  constexpr uint64_t kMostTableBytes = 256 * 4;
  if (table.isString()) bytes = table.getStringValue();
  if (table.isStream()) {
    const std::vector<uint8_t> data = Piped(table, qpdf_dl_specialized, kMostTableBytes * 64);
    bytes.assign(data.begin(), data.end());
  }
  const size_t samples = base.space == PdfSpace::kGrey ? 1 : base.space == PdfSpace::kRgb ? 3 : 0;
  picture->space = PdfSpace::kOther;
  if (samples == 0 || colours < 1 || colours > 256) return;
  bytes.resize(static_cast<size_t>(colours) * samples);  // shorter ones are met with
  for (size_t i = 0; i < static_cast<size_t>(colours); ++i) {
    for (size_t c = 0; c < 3; ++c)
      picture->palette.push_back(static_cast<uint8_t>(bytes[i * samples + (samples == 1 ? 0 : c)]));
  }
  picture->profile = base.profile;
  picture->isCalibrated = base.isCalibrated;
  picture->space = PdfSpace::kIndexed;
  picture->spaceName = "palette";
}

void TakeColours(Handle space, PdfPicture* picture) {
  const auto set = [&](PdfSpace kind, const char* name) {
    picture->space = kind;
    picture->spaceName = name;
  };
  const std::string name = space.isName() ? space.getName()
                           : space.isArray() && space.getArrayNItems() > 0 && space.getArrayItem(0).isName()
                               ? space.getArrayItem(0).getName()
                               : "";
  picture->isCalibrated = name == "/CalGray" || name == "/CalRGB";
  if (name == "/DeviceGray" || name == "/CalGray") return set(PdfSpace::kGrey, "grey");
  if (name == "/DeviceRGB" || name == "/CalRGB") return set(PdfSpace::kRgb, "RGB");
  if (name == "/DeviceCMYK") return set(PdfSpace::kCmyk, "CMYK");
  if (name == "/Indexed" && space.isArray() && space.getArrayNItems() == 4) {
    // A palette's colours are no palette's.
    Handle base = space.getArrayItem(1);
    const bool isNested =
        base.isArray() && base.getArrayNItems() > 0 && base.getArrayItem(0).isNameAndEquals("/Indexed");
    if (!isNested) return TakeIndexed(space, picture);
  }
  if (name == "/ICCBased" && space.isArray() && space.getArrayNItems() == 2 &&
      space.getArrayItem(1).isStream()) {
    Handle profile = space.getArrayItem(1);
    const int64_t samples = WholeNumber(profile.getDict().getKey("/N"), 0);
    picture->profile = Piped(profile, qpdf_dl_specialized, kMostProfileBytes);
    if (samples == 1) return set(PdfSpace::kGrey, "grey");
    if (samples == 3) return set(PdfSpace::kRgb, "RGB");
    if (samples == 4) return set(PdfSpace::kCmyk, "CMYK");
  }
  set(PdfSpace::kOther, "");
}

// /Decode as it is without it, or the other way round; else the samples mean something of their own.
void TakeDecode(Handle decode, PdfPicture* picture) {
  if (!decode.isArray()) return;
  const double top = picture->space == PdfSpace::kIndexed ? (1 << picture->bits) - 1 : 1;
  int straight = 0, inverted = 0;
  const int pairs = decode.getArrayNItems() / 2;
  for (int i = 0; i < pairs; ++i) {
    Handle low = decode.getArrayItem(2 * i), high = decode.getArrayItem(2 * i + 1);
    if (!low.isNumber() || !high.isNumber()) break;
    straight += low.getNumericValue() == 0 && high.getNumericValue() == top;
    inverted += low.getNumericValue() == top && high.getNumericValue() == 0;
  }
  picture->isInverted = pairs > 0 && inverted == pairs;
  if (straight != pairs && inverted != pairs) picture->space = PdfSpace::kOther;
}

void TakeFax(Handle parameters, PdfPicture* picture) {
  const auto get = [&](const char* name) {
    return parameters.isDictionary() ? parameters.getKey(name) : Handle::newNull();
  };
  picture->faxK = static_cast<int>(std::clamp<int64_t>(WholeNumber(get("/K"), 0), -1, 1));
  picture->faxColumns = WholeNumber(get("/Columns"), 1728);
  picture->isFaxByteAligned = Flag(get("/EncodedByteAlign"), false);
  picture->isFaxBlack1 = Flag(get("/BlackIs1"), false);
  picture->hasFaxLineEnds = Flag(get("/EndOfLine"), false);
}

PdfPicture Describe(Handle image) {
  Handle dictionary = image.getDict();
  PdfPicture picture;
  picture.width = WholeNumber(dictionary.getKey("/Width"), 0);
  picture.height = WholeNumber(dictionary.getKey("/Height"), 0);
  picture.isStencil = Flag(dictionary.getKey("/ImageMask"), false);
  const int64_t bits = WholeNumber(dictionary.getKey("/BitsPerComponent"), 8);
  picture.bits = picture.isStencil ? 1 : static_cast<int>(std::clamp<int64_t>(bits, 0, 99));
  std::vector<Filter> filters = FiltersOf(image);
  for (Filter& filter : filters) {
    if (!picture.storedAs.empty()) picture.storedAs += " in ";
    const std::string name = filter.name.substr(1);
    picture.storedAs += name.ends_with("Decode") ? name.substr(0, name.size() - 6) : name;
    if (IsPictureFilter(filter.name)) {
      picture.filter = name;
      if (name == "CCITTFaxDecode") TakeFax(filter.parameters, &picture);
      if (name == "CCITTFaxDecode" || name == "JBIG2Decode") picture.bits = 1;
      if (name == "DCTDecode") {
        picture.bits = 8;
        if (filter.parameters.isDictionary())
          picture.jpegColours = static_cast<int>(
              std::clamp<int64_t>(WholeNumber(filter.parameters.getKey("/ColorTransform"), -1), -1, 1));
      }
    }
  }
  Handle space = dictionary.getKey("/ColorSpace");
  if (picture.isStencil) {
    picture.spaceName = "grey";
  } else if (!space.isNull() || picture.filter != "JPXDecode") {
    TakeColours(space, &picture);
  }
  TakeDecode(dictionary.getKey("/Decode"), &picture);
  if (picture.width < 1 || picture.height < 1)
    throw PageError("is damaged: its picture has no size", ErrDamagedFile);
  return picture;
}

// ---- where they lie ---------------------------------------------------------------------------------------

Box BoxOf(QPDFPageObjectHelper page) {
  Box box = {0, 0, 612, 792};  // what readers take where a page does not say
  const auto take = [&](Handle array) {
    if (!array.isRectangle()) return false;
    const auto r = array.getArrayAsRectangle();  // in order already
    box = {r.llx, r.lly, r.urx, r.ury};
    return true;
  };
  if (take(page.getMediaBox())) {
    const Box media = box;
    if (take(page.getCropBox())) box = Common(box, media);
    if (!(box.width() > 0) || !(box.height() > 0)) box = media;  // cropped to what is not there
  }
  if (!(box.width() > 0) || !(box.height() > 0))
    throw PageError("is damaged: it has no size", ErrDamagedFile);
  return box;
}

// In steps of 90 degrees, clockwise.
int TurnsOf(QPDFPageObjectHelper page) {
  const int64_t degrees = WholeNumber(page.getAttribute("/Rotate", false), 0);
  return static_cast<int>(((degrees / 90) % 4 + 4) % 4);
}

// How the first row and column of a picture lie on the page, as EXIF counts.
int OrientationOf(const Matrix& place, int turns) {
  // Where columns and rows go on a screen, whose y goes down.
  double column[2] = {place.a, -place.b}, row[2] = {-place.c, place.d};
  for (int i = 0; i < turns; ++i) {
    for (double* way : {column, row}) {
      const double x = way[0];
      way[0] = -way[1];
      way[1] = x;
    }
  }
  const bool isOnItsSide = std::abs(column[1]) > std::abs(column[0]);
  if (!isOnItsSide) return column[0] > 0 ? (row[1] > 0 ? 1 : 4) : (row[1] > 0 ? 2 : 3);
  return column[1] > 0 ? (row[0] > 0 ? 5 : 6) : (row[0] > 0 ? 8 : 7);
}

// ---- labels -----------------------------------------------------------------------------------------------

std::string Roman(int64_t number) {
  constexpr std::pair<int64_t, const char*> kDigits[] = {
      {1000, "m"}, {900, "cm"}, {500, "d"}, {400, "cd"}, {100, "c"}, {90, "xc"}, {50, "l"},
      {40, "xl"},  {10, "x"},   {9, "ix"},  {5, "v"},    {4, "iv"},  {1, "i"}};
  std::string text;
  constexpr int64_t kMost = 20000;  // more is no page number
  for (const auto& [value, digit] : kDigits) {
    for (; number >= value && number <= kMost; number -= value) text += digit;
  }
  return text;
}

// a to z, aa to zz ...
std::string Letters(int64_t number) {
  constexpr int64_t kMost = 26 * 100;
  if (number < 1 || number > kMost) return "";
  return std::string(static_cast<size_t>((number - 1) / 26 + 1), static_cast<char>('a' + (number - 1) % 26));
}

std::string LabelText(Handle label) {
  std::string text;
  if (label.getKey("/P").isString()) text = label.getKey("/P").getUTF8Value();
  const int64_t number = WholeNumber(label.getKey("/St"), 1);
  const std::string style = label.getKey("/S").isName() ? label.getKey("/S").getName() : "";
  if (style == "/D") text += std::to_string(number);
  std::string digits = style == "/r" || style == "/R"   ? Roman(number)
                       : style == "/a" || style == "/A" ? Letters(number)
                                                        : "";
  if (style == "/R" || style == "/A") {
    for (char& c : digits) c = static_cast<char>(c - 'a' + 'A');
  }
  return text + digits;
}

// ---- the file ---------------------------------------------------------------------------------------------

class Reader : public PdfReader {
 public:
  explicit Reader(std::unique_ptr<Bytes> file)
      : fileBytes_(file->size()), source_(std::make_shared<BytesSource>(std::move(file))) {
    pdf_.setSuppressWarnings(true);
    pdf_.processInputSource(source_);
    for (const QPDFPageObjectHelper& page : QPDFPageDocumentHelper(pdf_).getAllPages())
      pages_.push_back(page);
    if (pages_.empty()) throw PageError("is damaged: it has no pages", ErrDamagedFile);
    labels_ = std::make_unique<QPDFPageLabelDocumentHelper>(pdf_);
    CheckComplete();
    const int64_t told = WholeNumber(pdf_.getRoot().getKey("/Pages").getKey("/Count"), 0);
    if (told != static_cast<int64_t>(pages_.size())) {
      damage_ = "is damaged: of " + std::to_string(told) + " pages it has " + std::to_string(pages_.size());
    }
  }

  size_t Count() override { return pages_.size(); }
  std::string Damage() override { return damage_; }

  PdfPage Page(size_t index) override {
    return Complete([&] { return Look(index); });
  }

  std::vector<uint8_t> PictureBytes(size_t index, uint64_t mostBytes,
                                    std::vector<uint8_t>* globals) override {
    return Complete([&] { return BytesOf(ImageOf(index), mostBytes, globals); });
  }

  Texts Info() override {
    return Complete([&] {
      Texts texts;
      Handle info = pdf_.getTrailer().getKey("/Info");
      if (!info.isDictionary()) return texts;
      for (const std::string& name : info.getKeys()) {
        Handle value = info.getKey(name);
        if (value.isString()) texts.emplace_back(name.substr(1), value.getUTF8Value());
      }
      return texts;
    });
  }

  std::vector<uint8_t> Xmp(size_t index) override {
    return Complete([&]() -> std::vector<uint8_t> {
      for (Handle owner : {pages_.at(index).getObjectHandle(), pdf_.getRoot()}) {
        Handle metadata = owner.getKey("/Metadata");
        if (metadata.isStream()) return Piped(metadata, qpdf_dl_specialized, kMostXmpBytes);
      }
      return {};
    });
  }

  void WriteAlone(size_t index, Bytes* file) override {
    Asking([&] {
      QPDF single;
      single.setSuppressWarnings(true);
      single.emptyPDF();
      QPDFPageDocumentHelper(single).addPage(pages_.at(index), false);
      const Box box = BoxOf(pages_.at(index));
      Handle page = QPDFPageDocumentHelper(single).getAllPages().at(0).getObjectHandle();
      page.replaceKey("/CropBox", Handle::newArray(
                                      QPDFObjectHandle::Rectangle(box.left, box.bottom, box.right, box.top)));
      // Which layers are shown, and what fields of forms that tell no font look like.
      Copy(pdf_.getRoot(), "/OCProperties", single.getRoot(), &single);
      Handle form = pdf_.getRoot().getKey("/AcroForm");
      if (form.isDictionary()) {
        Handle fields = Handle::newDictionary();
        fields.replaceKey("/Fields", Handle::newArray());
        for (const char* key : {"/DA", "/DR", "/NeedAppearances"}) Copy(form, key, fields, &single);
        single.getRoot().replaceKey("/AcroForm", fields);
      }
      QPDFWriter writer(single);
      BytesSink sink(file);
      writer.setOutputPipeline(&sink);
      writer.setStaticID(true);
      writer.setStreamDataMode(qpdf_s_preserve);
      writer.write();
      if (sink.hasFailed()) throw PageError("no room for a page that is drawn", ErrFileIO);
      CheckComplete();
    });
  }

 private:
  // What cannot be read, or what there is no memory for, is null to qpdf, which only warns of it.
  void CheckComplete() {
    if (source_->problem() != nullptr) throw PageError(source_->problem(), ErrFileIO);
    for (const QPDFExc& warning : pdf_.getWarnings()) {
      if (warning.getMessageDetail().find("bad_alloc") != std::string::npos) throw std::bad_alloc();
    }
  }

  template <class Work>
  std::invoke_result_t<Work> Complete(Work work) {
    return Asking([&] {
      auto result = work();
      CheckComplete();
      return result;
    });
  }

  void Copy(Handle from, const char* key, Handle to, QPDF* file) {
    Handle value = from.getKey(key);
    if (value.isNull()) return;
    to.replaceKey(key, file->copyForeignObject(value.isIndirect() ? value : pdf_.makeIndirectObject(value)));
  }

  Found Find(size_t index) {
    const QPDFPageObjectHelper& page = pages_.at(index);
    return FindPicture(&pdf_, page, BoxOf(page));
  }

  Handle ImageOf(size_t index) {
    if (index != lastIndex_ || !last_.isStream()) {
      last_ = Find(index).image;
      lastIndex_ = index;
    }
    if (!last_.isStream()) throw PageError("has no picture", ErrUnsupported);
    return last_;
  }

  PdfPage Look(size_t index) {
    QPDFPageObjectHelper& helper = pages_.at(index);
    PdfPage page;
    const Box box = BoxOf(helper);
    const int turns = TurnsOf(helper);
    Handle unitKey = helper.getObjectHandle().getKey("/UserUnit");
    const double told = unitKey.isNumber() ? unitKey.getNumericValue() : 1;
    const double unit = told > 0 && told <= 75000 ? told : 1;  // the most that PDF allows
    page.width = (turns % 2 == 0 ? box.width() : box.height()) * unit;
    page.height = (turns % 2 == 0 ? box.height() : box.width()) * unit;
    page.unit = unit;
    if (labels_->hasPageLabels()) {
      Handle label = labels_->getLabelForPage(static_cast<long long>(index));
      if (label.isDictionary()) page.label = LabelText(label);
    }
    const Found found = Find(index);
    page.reason = found.reason;
    if (found.reason.empty()) {
      last_ = found.image;
      lastIndex_ = index;
      page.hasPicture = true;
      page.picture = Describe(found.image);
      page.orientation = OrientationOf(found.place, turns);
      page.across = std::hypot(found.place.a, found.place.b) * unit;
      page.down = std::hypot(found.place.c, found.place.d) * unit;
      if (found.hasHiddenText) page.leftOut.push_back("hidden text");
      if (found.hasMargins) page.leftOut.push_back("blank margins of the page");
    } else {
      last_ = Handle::newNull();
    }
    TellOthers(helper.getObjectHandle(), index, &page);
    return page;
  }

  // What else there is that pages of pixels do not have.
  void TellOthers(Handle object, size_t index, PdfPage* page) {
    Handle notes = object.getKey("/Annots");
    if (notes.isArray() && notes.getArrayNItems() > 0) page->onTop.push_back("annotations");
    if (index != 0) return;
    Handle root = pdf_.getRoot();
    Handle outlines = root.getKey("/Outlines"), names = root.getKey("/Names");
    if (outlines.isDictionary() && !outlines.getKey("/First").isNull()) page->leftOut.push_back("bookmarks");
    if (names.isDictionary() && !names.getKey("/EmbeddedFiles").isNull())
      page->leftOut.push_back("attached files");
    if (!root.getKey("/AcroForm").isNull()) page->onTop.push_back("a form");
  }

  std::vector<uint8_t> BytesOf(Handle image, uint64_t mostBytes, std::vector<uint8_t>* globals) {
    std::vector<Filter> filters = FiltersOf(image);
    if (filters.empty() || !IsPictureFilter(filters.back().name))
      return Piped(image, qpdf_dl_specialized, mostBytes);
    if (filters.back().name == "/JBIG2Decode" && filters.back().parameters.isDictionary()) {
      Handle shared = filters.back().parameters.getKey("/JBIG2Globals");
      if (shared.isStream()) *globals = Piped(shared, qpdf_dl_specialized, kMostProfileBytes);
    }
    std::vector<uint8_t> raw = Piped(image, qpdf_dl_none, std::numeric_limits<uint64_t>::max());
    if (filters.size() == 1) return raw;
    // What holds the picture is undone alone.
    const uint64_t most = std::min<uint64_t>(raw.size() * kHighestRatio, fileBytes_ + mostBytes);
    Handle held = pdf_.newStream(std::string(raw.begin(), raw.end()));
    Handle names = Handle::newArray(), parameters = Handle::newArray();
    for (size_t i = 0; i + 1 < filters.size(); ++i) {
      names.appendItem(Handle::newName(filters[i].name));
      parameters.appendItem(filters[i].parameters);
    }
    held.getDict().replaceKey("/Filter", names);
    held.getDict().replaceKey("/DecodeParms", parameters);
    return Piped(held, qpdf_dl_specialized, most);
  }

  QPDF pdf_;
  uint64_t fileBytes_;
  std::shared_ptr<BytesSource> source_;
  std::vector<QPDFPageObjectHelper> pages_;
  std::unique_ptr<QPDFPageLabelDocumentHelper> labels_;
  std::string damage_;
  Handle last_ = Handle::newNull();  // the picture of a page
  size_t lastIndex_ = 0;
};

}  // namespace

std::unique_ptr<PdfReader> OpenPdf(std::unique_ptr<Bytes> file) {
  return Asking([&]() -> std::unique_ptr<PdfReader> { return std::make_unique<Reader>(std::move(file)); });
}

}  // namespace rastrel::formats
