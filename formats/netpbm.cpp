// The portable bitmaps, greymaps, pixmaps and arbitrary maps of Netpbm: a header of words, then samples as
// bytes, or as numbers in letters.
#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>

#include "formats/format.h"
#include "pages/text.h"

namespace rastrel::formats {
namespace {

using namespace std::string_view_literals;
constexpr std::string_view kBitSignatures[] = {"P1"sv, "P4"sv}, kGreySignatures[] = {"P2"sv, "P5"sv},
                           kColourSignatures[] = {"P3"sv, "P6"sv}, kAnySignatures[] = {"P7"sv};
constexpr uint64_t kMostSample = 65535;

bool IsSpace(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// A picture from its beginning on, letter by letter.
class Letters {
 public:
  explicit Letters(Bytes* file, uint64_t start) : reader_(file, start), position_(start) {}
  // -1 at the end.
  int Next() {
    if (used_ == buffer_.size()) {
      buffer_ = reader_.Next();
      used_ = 0;
      if (buffer_.empty()) return -1;
    }
    ++position_;
    return buffer_[used_++];
  }
  // A word, and the space or line feed behind it. Comments go to the end of their line.
  std::string Word() {
    int c = NextInWord();
    std::string word;
    constexpr size_t kMostLetters = 40;
    for (; c != -1 && !IsSpace(c) && word.size() < kMostLetters; c = Next()) word += static_cast<char>(c);
    return word;
  }
  uint64_t Number(uint64_t most) {
    const std::string word = Word();
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc() || end != word.data() + word.size() || value > most)
      Damaged("its numbers are none");
    return value;
  }
  // The first letter that is neither space nor comment, as from '#' to the end of the line; -1 at the end.
  int NextInWord() {
    int c = Next();
    while (IsSpace(c) || c == '#') {
      if (c == '#') {
        while (c != '\n' && c != -1) c = Next();
      }
      if (c != -1) c = Next();
    }
    return c;
  }
  // 0 or 1, which need no space between them.
  unsigned Bit() {
    const int c = NextInWord();
    if (c != '0' && c != '1') Damaged("its bits are none");
    return static_cast<unsigned>(c - '0');
  }
  uint64_t position() const { return position_; }

 private:
  ByteReader reader_;
  std::span<const uint8_t> buffer_;
  size_t used_ = 0;
  uint64_t position_;
};

struct Head {
  int64_t width = 0, height = 0;
  uint64_t most = 1;  // of a sample: white
  int samples = 1;
  bool isInLetters = false, areBits = false, hasAlpha = false;

  int colours() const { return samples - (hasAlpha ? 1 : 0); }
  int bits() const { return areBits || (most == 1 && samples == 1) ? 1 : colours() == 1 ? 8 : 24; }
  uint64_t rowBytes() const {
    if (areBits) return (static_cast<uint64_t>(width) + 7) / 8;
    return static_cast<uint64_t>(width) * static_cast<uint64_t>(samples) * (most > 255 ? 2 : 1);
  }
};

void ReadArbitrary(Letters* letters, Head* head) {
  std::string kind;
  for (std::string word = letters->Word(); word != "ENDHDR"; word = letters->Word()) {
    constexpr uint64_t kMostSide = 0x7FFFFFFF, kMostSamples = 4;
    if (word == "WIDTH") {
      head->width = static_cast<int64_t>(letters->Number(kMostSide));
    } else if (word == "HEIGHT") {
      head->height = static_cast<int64_t>(letters->Number(kMostSide));
    } else if (word == "DEPTH") {
      head->samples = static_cast<int>(letters->Number(kMostSamples));
    } else if (word == "MAXVAL") {
      head->most = letters->Number(kMostSample);
    } else if (word == "TUPLTYPE") {
      kind = letters->Word();
    } else {
      Damaged("its header is none");
    }
  }
  head->hasAlpha = kind.ends_with("_ALPHA") || (kind.empty() && head->samples % 2 == 0);
  if (head->colours() != 1 && head->colours() != 3) {
    throw PageError(Text("has ", head->samples, " samples a pixel of kind '", kind, "'"), ErrUnsupported);
  }
}

// Reads up to the first sample.
Head ReadHead(Letters* letters, uint64_t fileBytes) {
  Head head;
  letters->Next();
  const int kind = letters->Next();
  if (kind == '7') {
    ReadArbitrary(letters, &head);
  } else {
    constexpr uint64_t kMostSide = 0x7FFFFFFF;
    head.isInLetters = kind <= '3';
    head.areBits = kind == '1' || kind == '4';
    head.samples = kind == '3' || kind == '6' ? 3 : 1;
    head.width = static_cast<int64_t>(letters->Number(kMostSide));
    head.height = static_cast<int64_t>(letters->Number(kMostSide));
    if (!head.areBits) head.most = letters->Number(kMostSample);
  }
  CheckSize(head.width, head.height, head.bits());
  if (head.most == 0) Damaged("its white is black");
  const uint64_t rowBytes =
      head.isInLetters ? static_cast<uint64_t>(head.width * head.samples) : head.rowBytes();
  // In letters that is a letter and a space a sample, or a letter a bit.
  const uint64_t left = fileBytes - std::min(fileBytes, letters->position());
  if (static_cast<uint64_t>(head.height) > left / rowBytes) CannotHold(fileBytes, head.width, head.height);
  return head;
}

// A row of samples as they are, and as 8 bits; bits have 1 for black.
class Rows {
 public:
  Rows(Bytes* file, Letters* letters, const Head& head)
      : file_(file), letters_(letters), head_(head), bytes_(static_cast<size_t>(head.rowBytes())) {}
  void Read(int64_t y) {
    if (!head_.isInLetters) {
      const uint64_t at = letters_->position() + static_cast<uint64_t>(y) * bytes_.size();
      if (file_->ReadAt(at, bytes_) < bytes_.size()) Damaged("its rows are cut short");
      return;
    }
    const auto samples = static_cast<size_t>(head_.width) * static_cast<size_t>(head_.samples);
    std::fill(bytes_.begin(), bytes_.end(), uint8_t{0});
    for (size_t i = 0; i < samples; ++i) {
      if (head_.areBits) {
        bytes_[i / 8] = static_cast<uint8_t>(bytes_[i / 8] | letters_->Bit() << (7 - i % 8));
      } else if (const uint64_t value = letters_->Number(head_.most); head_.most > 255) {
        bytes_[2 * i] = static_cast<uint8_t>(value >> 8);
        bytes_[2 * i + 1] = static_cast<uint8_t>(value);
      } else {
        bytes_[i] = static_cast<uint8_t>(value);
      }
    }
  }
  const std::vector<uint8_t>& bytes() const { return bytes_; }
  uint8_t Sample(size_t i) const {
    const uint64_t value = head_.most > 255 ? bytes_[2 * i] * 256u + bytes_[2 * i + 1] : bytes_[i];
    return static_cast<uint8_t>((std::min(value, head_.most) * 255 + head_.most / 2) / head_.most);
  }

 private:
  Bytes* file_;
  Letters* letters_;
  const Head& head_;
  std::vector<uint8_t> bytes_;
};

void TellOriginal(const Head& head, Metadata* metadata) {
  int bits = 1;
  while (head.most >> bits != 0) ++bits;
  Tell({.space = head.colours() == 3 ? "RGB" : "grey",
        .bits = bits,
        .compression = head.isInLetters ? "none, in letters" : "none",
        .hasAlpha = head.hasAlpha},
       metadata);
}

Dib Read(Bytes* file, uint64_t place, const Reading& reading, Metadata* metadata) {
  Letters letters(file, place);
  const Head head = ReadHead(&letters, file->size());
  if (metadata != nullptr) TellOriginal(head, metadata);
  Dib page = reading.NewPage(head.width, head.height, head.bits(), {});
  const PageView view(page);
  Rows rows(file, &letters, head);
  for (int y = 0; y < view.height(); ++y) {
    reading.CheckTime();
    rows.Read(y);
    uint8_t* out = view.PageRow(y);
    std::memset(out, 0, view.stride());
    if (head.areBits) {
      for (size_t i = 0; i < rows.bytes().size(); ++i) out[i] = static_cast<uint8_t>(~rows.bytes()[i]);
      continue;
    }
    const auto samples = static_cast<size_t>(head.samples);
    for (size_t x = 0; x < static_cast<size_t>(view.width()); ++x) {
      const unsigned alpha = head.hasAlpha ? rows.Sample(x * samples + samples - 1) : 255;
      const auto over = [&](size_t i) { return OverWhite(rows.Sample(x * samples + i), alpha); };
      if (head.bits() == 1) {
        if (over(0) != 0) out[x / 8] = static_cast<uint8_t>(out[x / 8] | 0x80 >> x % 8);
      } else if (head.bits() == 8) {
        out[x] = over(0);
      } else {
        for (size_t i = 0; i < 3; ++i) out[3 * x + 2 - i] = over(i);
      }
    }
  }
  return page;
}

// Pictures follow each other, but those in letters, which stand alone.
PageList List(Bytes* file) {
  PageList list;
  constexpr size_t kMostPages = 1 << 20;
  for (uint64_t at = 0; list.places.size() < kMostPages;) {
    list.places.push_back(at);
    try {
      Letters letters(file, at);
      const Head head = ReadHead(&letters, file->size());
      if (head.isInLetters) break;
      at = letters.position() + head.rowBytes() * static_cast<uint64_t>(head.height);
    } catch (const PageError&) {
      break;  // told when the page is read
    }
    Letters after(file, at);
    const int c = after.NextInWord();
    if (c != 'P' && c != -1) list.damage = "is damaged: what follows its last picture is none";
    if (c != 'P') break;
    at = after.position() - 1;
  }
  return list;
}

PageInfo Describe(Bytes* file, uint64_t place) {
  Letters letters(file, place);
  const Head head = ReadHead(&letters, file->size());
  return InfoFromHeader(head.width, head.height, head.bits(), {}, 1, [](const PageView&) {});
}

// ---- writing ----------------------------------------------------------------------------------------------

enum class Kind { kBits, kGreys, kColours };

void WriteKind(const Dib& page, Kind kind, Bytes* file) {
  const PageView view(page);
  const bool isGrey = view.bits() <= 8 && HasGreyRamp(view);
  if (kind == Kind::kBits && !(isGrey && view.bits() == 1)) {
    throw PageError("cannot be written: PBM files are black and white; `halftone` and others make pages so");
  }
  if (kind == Kind::kGreys && !isGrey) {
    throw PageError("cannot be written: PGM files are grey; `grey` makes pages so, PPM files have colours");
  }
  constexpr char kLetters[] = {'4', '5', '6'};
  const std::string head = Text("P", std::string_view(&kLetters[static_cast<size_t>(kind)], 1), "\n",
                                view.width(), " ", view.height(), "\n", kind == Kind::kBits ? "" : "255\n");
  ByteWriter writer(file);
  bool isWritten = writer.Write({reinterpret_cast<const uint8_t*>(head.data()), head.size()});
  const auto width = static_cast<size_t>(view.width());
  std::vector<uint8_t> row(kind == Kind::kBits ? (width + 7) / 8 : kind == Kind::kGreys ? width : 3 * width);
  for (int y = 0; y < view.height() && isWritten; ++y) {
    const uint8_t* in = view.PageRow(y);
    if (kind == Kind::kBits) {
      for (size_t i = 0; i < row.size(); ++i) row[i] = static_cast<uint8_t>(~in[i]);
      if (width % 8 != 0) row.back() = static_cast<uint8_t>(row.back() & 0xFF00 >> width % 8);
    } else {
      for (size_t x = 0; x < width; ++x) {
        const RGBQUAD colour = view.bits() == 24
                                   ? RGBQUAD{in[3 * x], in[3 * x + 1], in[3 * x + 2], 0}
                                   : view.palette()[GetIndex(in, view.bits(), static_cast<int>(x))];
        if (kind == Kind::kGreys) {
          row[x] = colour.rgbRed;
        } else {
          row[3 * x] = colour.rgbRed;
          row[3 * x + 1] = colour.rgbGreen;
          row[3 * x + 2] = colour.rgbBlue;
        }
      }
    }
    isWritten = writer.Write(row);
  }
  if (!isWritten || !writer.Flush()) NotWritten(file->problem());
}

template <Kind kKind>
void Write(const Dib& page, const Metadata& /*metadata*/, const Options& /*options*/, Bytes* file) {
  WriteKind(page, kKind, file);
}

}  // namespace

constinit const Format kPbm = {.name = "pbm",
                               .title = "PBM",
                               .extensions = "pbm",
                               .signatures = kBitSignatures,
                               .read = Read,
                               .describe = Describe,
                               .list = List,
                               .write = Write<Kind::kBits>};
constinit const Format kPgm = {.name = "pgm",
                               .title = "PGM",
                               .extensions = "pgm",
                               .signatures = kGreySignatures,
                               .read = Read,
                               .describe = Describe,
                               .list = List,
                               .write = Write<Kind::kGreys>};
constinit const Format kPpm = {.name = "ppm",
                               .title = "PPM",
                               .extensions = "ppm,pnm",
                               .signatures = kColourSignatures,
                               .read = Read,
                               .describe = Describe,
                               .list = List,
                               .write = Write<Kind::kColours>};
constinit const Format kPam = {.name = "pam",
                               .title = "PAM",
                               .extensions = "pam",
                               .signatures = kAnySignatures,
                               .read = Read,
                               .describe = Describe,
                               .list = List};

}  // namespace rastrel::formats
