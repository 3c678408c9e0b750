// JPEG files: pixels through the system's codec, everything else by their markers.
#include "formats/format.h"
#include "formats/jpeg_markers.h"
#include "formats/windows/codecs.h"
#include "pages/text.h"

namespace rastrel::formats {
namespace {

using namespace std::string_view_literals;
constexpr std::string_view kSignatures[] = {"\xFF\xD8\xFF"sv};
constexpr std::string_view kJfifIntro = "JFIF\0"sv, kAdobeIntro = "Adobe"sv,
                           kProfileIntro = "ICC_PROFILE\0"sv;

enum : int {
  kJfif = 0xE0,
  kAdobe = 0xEE,
  kBegin = 0xD8,
  kEnd = 0xD9,
  kRows = 0xDA,
  kFirstRestart = 0xD0,
  kLastRestart = 0xD7,
  kProgressive = 0xC2
};

bool IsFrame(int kind) {  // the tables for Huffman and arithmetic codes have numbers between
  return kind >= 0xC0 && kind <= 0xCF && kind != 0xC4 && kind != 0xC8 && kind != 0xCC;
}
bool IsKept(int kind) { return IsFrame(kind) || kind >= kJfif; }

// Whether it stands alone, without a length.
bool IsBare(int kind) { return kind == 1 || (kind >= kFirstRestart && kind <= kBegin); }

class Letters {
 public:
  explicit Letters(Bytes* bytes) : reader_(bytes) {}
  uint8_t Next() {
    if (left_.empty()) left_ = reader_.Next();
    if (left_.empty()) Damaged("it ends early");
    const uint8_t byte = left_[0];
    left_ = left_.subspan(1);
    return byte;
  }
  size_t NextTwo() {
    const size_t high = Next();
    return high << 8 | Next();
  }

 private:
  ByteReader reader_;
  std::span<const uint8_t> left_;
};

// The markers of a whole file.
class Markers {
 public:
  explicit Markers(Bytes* file) : fileBytes_(file->size()) {
    constexpr int kMostScans = 100;  // each costs as much time as the picture; encoders write about ten
    Letters letters(file);
    constexpr size_t kMostMarkers = 10'000;  // a profile of 255 parts and more than anybody writes
    int kind = 0, scans = 0;
    while (kind != kEnd) {
      kind = NextKind(&letters);
      if (kind == kRows && ++scans > kMostScans) Damaged(Text("it has more than ", kMostScans, " scans"));
      if (IsBare(kind) || kind == kEnd) continue;
      const size_t length = letters.NextTwo();
      if (length < 2) Damaged("a marker is cut short");
      JpegMarker marker = {kind, {}};
      for (size_t i = 2; i < length; ++i) marker.bytes.push_back(letters.Next());
      if (!IsKept(kind)) continue;
      if (markers_.size() == kMostMarkers) Damaged(Text("it has more than ", kMostMarkers, " markers"));
      markers_.push_back(std::move(marker));
    }
    if (scans == 0) Damaged("it has no rows");
    CheckFrame();
  }

  // What follows `intro` in the first marker of that kind that begins with it.
  std::span<const uint8_t> BytesOf(int kind, std::string_view intro) const {
    for (const JpegMarker& marker : markers_) {
      if (marker.kind == kind && Begins(marker, intro) && marker.bytes.size() > intro.size())
        return std::span(marker.bytes).subspan(intro.size());
    }
    return {};
  }
  // The pieces of the ICC profile, in their order; empty where one is missing.
  std::vector<uint8_t> Profile() const {
    std::vector<uint8_t> profile;
    size_t next = 1, count = 0;
    const size_t head = kProfileIntro.size() + 2;
    for (size_t pass = 0; pass <= count; ++pass) {
      for (const JpegMarker& marker : markers_) {
        if (marker.kind != kJpegProfile || !Begins(marker, kProfileIntro) || marker.bytes.size() <= head)
          continue;
        count = marker.bytes[head - 1];
        if (marker.bytes[head - 2] != next) continue;
        profile.insert(profile.end(), marker.bytes.begin() + static_cast<std::ptrdiff_t>(head),
                       marker.bytes.end());
        ++next;
      }
    }
    return next == count + 1 ? profile : std::vector<uint8_t>();
  }

  int width() const { return Two(3); }
  int height() const { return Two(1); }
  int components() const { return frame_[5]; }
  bool isProgressive() const { return kind_ == kProgressive; }
  // 0 to 2: none, inches, centimetres.
  int densityUnit() const { return jfif_.size() >= 7 ? jfif_[2] : 0; }
  int density(bool isDown) const {
    const size_t at = isDown ? 5 : 3;
    return jfif_.size() >= 7 ? jfif_[at] << 8 | jfif_[at + 1] : 0;
  }
  ExifLie exif() const { return ReadExif(BytesOf(kJpegExif, kExifIntro)); }
  std::string space() const {
    if (components() == 1) return "grey";
    if (components() == 4) return "CMYK";
    constexpr size_t kTransformAt = 6;
    const std::span<const uint8_t> adobe = BytesOf(kAdobe, kAdobeIntro);
    const bool hasPlainNames = frame_[6] == 'R' && frame_[9] == 'G' && frame_[12] == 'B';
    const bool isPlain =
        adobe.size() > kTransformAt ? adobe[kTransformAt] == 0 : jfif_.empty() && hasPlainNames;
    return isPlain ? "RGB" : "YCbCr";
  }
  Claim claim() const {
    Claim claim = {.width = width(), .height = height(), .bits = components() == 1 ? 8 : 24};
    if (densityUnit() == 1 || densityUnit() == 2) {
      const double perInch = densityUnit() == 2 ? 2.54 : 1;
      claim.resolution = {PixelsPerMetre(density(false) * perInch), PixelsPerMetre(density(true) * perInch)};
    } else {
      claim.resolution = exif().resolution;
    }
    return claim;
  }

 private:
  static bool Begins(const JpegMarker& marker, std::string_view intro) {
    const std::string_view all(reinterpret_cast<const char*>(marker.bytes.data()), marker.bytes.size());
    return all.starts_with(intro);
  }
  // Within rows a 0 or a restart follows.
  static int NextKind(Letters* letters) {
    for (;;) {
      while (letters->Next() != 0xFF) continue;
      int kind = 0xFF;
      while (kind == 0xFF) kind = letters->Next();
      if (kind != 0 && (kind < kFirstRestart || kind > kLastRestart)) return kind;
    }
  }
  int Two(size_t at) const { return frame_[at] << 8 | frame_[at + 1]; }
  // Precision, height, width, number of components, and three bytes each.
  void CheckFrame() {
    const auto found = std::find_if(markers_.begin(), markers_.end(),
                                    [](const JpegMarker& marker) { return IsFrame(marker.kind); });
    if (found == markers_.end()) Damaged("it has no size");
    kind_ = found->kind;
    frame_ = found->bytes;
    const size_t count = frame_.size() > 5 ? frame_[5] : 0;
    if ((count != 1 && count != 3 && count != 4) || frame_.size() < 6 + 3 * count)
      throw PageError("cannot be read: its colours are of no known kind", ErrUnsupported);
    if (frame_[0] != 8) throw PageError("cannot be read: it has other than 8 bits a sample", ErrUnsupported);
    jfif_ = BytesOf(kJfif, kJfifIntro);
    // Each block of 8 x 8 pixels takes a bit at least.
    const uint64_t blocks = static_cast<uint64_t>(width()) * static_cast<uint64_t>(height()) / 64;
    if (blocks / 8 > fileBytes_) CannotHold(fileBytes_, width(), height());
  }

  uint64_t fileBytes_;
  std::vector<JpegMarker> markers_;
  int kind_ = 0;
  std::vector<uint8_t> frame_;
  std::span<const uint8_t> jfif_;
};

void ReadMetadata(const Markers& markers, Metadata* metadata) {
  const std::string space = markers.space();
  Tell({.space = space,
        .compression = markers.isProgressive() ? "progressive JPEG" : "JPEG",
        .isMixed = space == "CMYK"},
       metadata);
  const std::vector<uint8_t> profile = markers.Profile();
  if (!profile.empty() && space != "CMYK") metadata->Set("icc", profile);
  if (!profile.empty() && space == "CMYK") AddReduction("profile of its inks left out", metadata);
  TakeJpegMarkers([&markers](int kind, std::string_view intro) { return markers.BytesOf(kind, intro); },
                  metadata);
  if (markers.densityUnit() == 0) TellProportions(markers.density(false), markers.density(true), metadata);
}

Dib Read(Bytes* file, uint64_t /*place*/, const Reading& reading, Metadata* metadata) {
  const Markers markers(file);
  if (metadata != nullptr) ReadMetadata(markers, metadata);
  return Upright(DecodePage(Codec::Jpeg, file, markers.claim(), reading), markers.exif().orientation);
}

PageInfo Describe(Bytes* file, uint64_t /*place*/) {
  const Markers markers(file);
  const Claim claim = markers.claim();
  return InfoFromHeader(claim.width, claim.height, claim.bits, claim.resolution, markers.exif().orientation,
                        [](const PageView&) {});
}

// ---- writing ----------------------------------------------------------------------------------------------

// Greys of 8 bits, or 24.
Dib Spread(const PageView& page) {
  const bool isGrey = HasGreyRamp(page);
  Dib spread = MakePage(page.width(), page.height(), isGrey ? 8 : 24, page.resolution());
  const PageView view(spread);
  for (int y = 0; y < page.height(); ++y) {
    const uint8_t* in = page.PageRow(y);
    uint8_t* out = view.PageRow(y);
    for (int x = 0; x < page.width(); ++x) {
      const RGBQUAD& colour = page.palette()[GetIndex(in, page.bits(), x)];
      *out++ = colour.rgbBlue;
      if (isGrey) continue;
      *out++ = colour.rgbGreen;
      *out++ = colour.rgbRed;
    }
  }
  return spread;
}

void AddMarker(const JpegMarker& marker, std::vector<uint8_t>* file) {
  const size_t length = marker.bytes.size() + 2;
  for (const size_t byte : {size_t{0xFF}, static_cast<size_t>(marker.kind), length >> 8, length})
    file->push_back(static_cast<uint8_t>(byte));
  file->insert(file->end(), marker.bytes.begin(), marker.bytes.end());
}

JpegMarker JfifOf(Resolution resolution) {
  constexpr int kMostDensity = 65535;
  int across = static_cast<int>(std::min(DotsPerInch(resolution.x) + 0.5, double{kMostDensity}));
  int down = static_cast<int>(std::min(DotsPerInch(resolution.y) + 0.5, double{kMostDensity}));
  const bool isKnown = across > 0 && down > 0;
  if (!isKnown) across = down = 1;
  JpegMarker marker = {kJfif, {kJfifIntro.begin(), kJfifIntro.end()}};
  for (const int byte : {1, 1, isKnown ? 1 : 0, across >> 8, across, down >> 8, down, 0, 0})
    marker.bytes.push_back(static_cast<uint8_t>(byte));
  return marker;
}

void AddProfile(std::span<const uint8_t> profile, std::vector<uint8_t>* file) {
  constexpr size_t kPieceBytes = 65519;  // what a marker has room for beside its head
  const size_t pieces = (profile.size() + kPieceBytes - 1) / kPieceBytes;
  if (pieces > 255) throw PageError("cannot be written: its colour profile is too large", ErrTooLarge);
  for (size_t i = 0; i < pieces; ++i) {
    const std::span<const uint8_t> piece =
        profile.subspan(i * kPieceBytes, std::min(kPieceBytes, profile.size() - i * kPieceBytes));
    JpegMarker marker = {kJpegProfile, {kProfileIntro.begin(), kProfileIntro.end()}};
    marker.bytes.push_back(static_cast<uint8_t>(i + 1));
    marker.bytes.push_back(static_cast<uint8_t>(pieces));
    marker.bytes.insert(marker.bytes.end(), piece.begin(), piece.end());
    AddMarker(marker, file);
  }
}

// What the codec made, without what it says beside the rows.
std::span<const uint8_t> WithoutMarkers(std::span<const uint8_t> made) {
  size_t at = 2;
  while (at + 4 <= made.size() && made[at] == 0xFF &&
         ((made[at + 1] & 0xF0) == kJfif || made[at + 1] == kJpegComment))
    at += 2 + (size_t{made[at + 2]} << 8 | made[at + 3]);
  if (at >= made.size()) NotWritten("the system's codec made no file");
  return made.subspan(at);
}

void Write(const Dib& page, const Metadata& metadata, const Options& options, Bytes* file) {
  const PageView view(page);
  CheckJpegSize(view);
  const Metadata fitting = FittingProfile(metadata, view);
  std::vector<uint8_t> whole = {0xFF, kBegin};
  AddMarker(JfifOf(view.resolution()), &whole);
  for (const JpegMarker& marker : JpegMarkersFor(fitting, view.resolution())) AddMarker(marker, &whole);
  const Metadata::Item* profile = fitting.Find("icc");
  if (profile != nullptr) AddProfile(profile->bytes, &whole);
  const bool isAsItIs = view.bits() == 24 || (view.bits() == 8 && HasGreyRamp(view));
  const Dib spread = isAsItIs ? Dib() : Spread(view);
  const Wish wish = {.jpegQuality = static_cast<float>(options.Number("quality", kJpegQuality)) / 100};
  const std::vector<uint8_t> made =
      isAsItIs ? EncodePage(Codec::Jpeg, view, wish) : EncodePage(Codec::Jpeg, PageView(spread), wish);
  const std::span<const uint8_t> rows = WithoutMarkers(made);
  whole.insert(whole.end(), rows.begin(), rows.end());
  if (!file->WriteAt(0, whole)) NotWritten(file->problem());
}

}  // namespace

constinit const Format kJpeg = {.name = "jpg",
                                .title = "JPEG",
                                .extensions = "jpg,jpeg,jpe",
                                .signatures = kSignatures,
                                .options = kJpegOptions,
                                .metadata = kJpegMetadata,
                                .read = Read,
                                .describe = Describe,
                                .write = Write};

}  // namespace rastrel::formats
