// A column of 64 pixels is a word once a square of 64 x 64 is transposed. So that is how columns are picked:
// up to 64 rows at a time, squares of the source are transposed, and those of the result transposed back.
#include "scale/mono_scaling.h"

#include <algorithm>
#include <cstring>

#include "pixels/bit_rows.h"
#include "pixels/bit_square.h"
#include "pixels/kernels.h"

namespace rastrel {
namespace {

constexpr int kSide = 64;
constexpr int kPieceColumns = 8192;   // that are mapped at a time
constexpr uint64_t kSpareBytes = 16;  // behind a spare row

// Counts (i * from + to / 2) / to for i = 0, 1, 2 and so on.
class Nearest {
 public:
  Nearest(int from, int to)
      : whole_(static_cast<uint32_t>(from / to)),
        part_(static_cast<uint32_t>(from % to)),
        to_(static_cast<uint32_t>(to)),
        rest_(to_ / 2) {}

  int64_t value() const { return value_; }
  void Advance() {
    rest_ += part_;
    const bool isNext = rest_ >= to_;
    rest_ -= isNext ? to_ : 0;
    value_ += whole_ + (isNext ? 1 : 0);
  }

 private:
  uint32_t whole_, part_, to_;
  uint32_t rest_;
  int64_t value_ = 0;
};

// The bytes of a source row that count. The bits behind them are 0.
struct Run {
  const uint8_t* first;
  size_t bytes;
};

// A part of the source, as rows that count from its top.
class Rectangle {
 public:
  Rectangle(const ConstRows& page, int left, int top, int width, int height)
      : page_(page), top_(top), width_(width), height_(height), left_(left) {
    // Kept: bytes are counted from the one that holds the left column, but the bits are those from that
    // column on, so that at the page's right edge pixels may be missing. Elsewhere there is one byte too
    // many.
    const int inside = page.width - left;
    bytes_ = (static_cast<size_t>(inside < width ? inside : width + int64_t{7}) / 8) + 1;
  }

  int width() const { return width_; }
  int height() const { return height_; }
  bool HasRow(int64_t y) const { return top_ + y < page_.height; }
  // The bit of a run that is column 0.
  unsigned firstBit() const { return static_cast<unsigned>(left_ % 8); }
  Run RunAt(int64_t y) const {
    const uint8_t* first = page_.PageRow(static_cast<int>(top_ + y)) + left_ / 8;
    const auto left = static_cast<size_t>(page_.StoredRow(page_.height) - first);
    return {first, std::min(bytes_, left)};
  }

 private:
  ConstRows page_;
  int64_t top_;
  int width_, height_;
  int left_;
  size_t bytes_;
};

// Up to 64 rows of the result, each made from another row of the source.
struct Strip {
  int count = 0;
  Run from[kSide];
  int to[kSide];

  void Add(Run run, int row) {
    from[count] = run;
    to[count++] = row;
  }
};

// ---- rows of the old width ----

// Kept: pixels do not end where the width ends. Those that fill up the last byte come along, and so do as
// many of the next byte as the last one should have.
void CopyRun(const Run& run, unsigned firstBit, int width, uint8_t* row, size_t stride) {
  const uint64_t bits = (static_cast<uint64_t>(width) + 7) / 8 * 8 + static_cast<uint64_t>(width) % 8;
  CopyBits(run.first, firstBit, std::min({bits, 8 * uint64_t{run.bytes} - firstBit, 8 * uint64_t{stride}}),
           row, stride);
}

// ---- rows of another width ----

// Squares of one colour, of which pages have many, stay as they are.
void Transpose(uint64_t square[kSide]) {
  bool isPlain = true;
  for (int i = 0; i < kSide && isPlain; ++i) isPlain = square[i] == square[0];
  if (!isPlain || (square[0] != 0 && square[0] != ~uint64_t{0})) TransposeBits(square);
}

// Columns of a strip of the source, to be asked for from left to right.
class SourceColumns {
 public:
  explicit SourceColumns(const Strip& strip) : strip_(strip) {
    for (int i = 0; i < strip.count; ++i) wholeBytes_ = std::min(wholeBytes_, strip.from[i].bytes);
  }

  uint64_t At(uint32_t bit) {
    if (bit / kSide != loaded_) Load(bit / kSide);
    return square_[bit % kSide];
  }

 private:
  void Load(uint32_t index) {
    loaded_ = index;
    const auto at = size_t{index} * sizeof(uint64_t);
    if (at + sizeof(uint64_t) <= wholeBytes_) {
      for (int i = 0; i < strip_.count; ++i)
        std::memcpy(&square_[i], strip_.from[i].first + at, sizeof(uint64_t));
    } else {
      for (int i = 0; i < strip_.count; ++i) {
        const Run& run = strip_.from[i];
        square_[i] = 0;
        if (at < run.bytes)
          std::memcpy(&square_[i], run.first + at, std::min(run.bytes - at, sizeof(uint64_t)));
      }
    }
    std::fill(square_ + strip_.count, square_ + kSide, uint64_t{0});
    Transpose(square_);
  }

  const Strip& strip_;
  size_t wholeBytes_ = SIZE_MAX;  // that all rows have
  uint32_t loaded_ = UINT32_MAX;
  uint64_t square_[kSide];
};

// Which bit of a run each column of the result comes from, for a piece of the columns. Those of most pages
// fit into one piece, so that they are mapped once.
class ColumnMap {
 public:
  ColumnMap(const Rectangle& source, int newWidth)
      : firstBit_(source.firstBit()), start_(source.width(), newWidth), next_(start_) {
    // When pages grow to twice the width and more, the last columns have none to come from.
    const int64_t width = source.width();
    mapped_ = std::min<int64_t>(newWidth, (width * newWidth - newWidth / 2 + width - 1) / width);
  }

  // Maps the piece that begins with column `left`. Pieces follow one another from the first on.
  void MapPiece(int64_t left) {
    if (left == left_) return;
    left_ = left;
    if (left == 0) next_ = start_;
    count_ = static_cast<int>(std::clamp<int64_t>(mapped_ - left, 0, kPieceColumns));
    for (int i = 0; i < count_; ++i, next_.Advance())
      bits_[i] = firstBit_ + static_cast<uint32_t>(next_.value());
  }
  int count() const { return count_; }
  uint32_t operator[](int column) const { return bits_[column]; }

 private:
  uint32_t firstBit_;
  Nearest start_, next_;
  int64_t mapped_;
  int64_t left_ = -1;
  int count_ = 0;
  uint32_t bits_[kPieceColumns];
};

// Stores `bytes` bytes, up to 8, of each row of a square at byte `at` of the result's rows.
void StoreSquare(const uint64_t square[kSide], const Strip& strip, const Rows& result, size_t at,
                 size_t bytes) {
  for (int i = 0; i < strip.count; ++i) std::memcpy(result.PageRow(strip.to[i]) + at, &square[i ^ 7], bytes);
}

void PickColumns(const Strip& strip, ColumnMap& map, const Rows& result) {
  SourceColumns from(strip);
  for (size_t byte = 0; byte < result.stride; byte += sizeof(uint64_t)) {
    const int left = static_cast<int>(8 * uint64_t{byte} % kPieceColumns);
    if (left == 0) map.MapPiece(static_cast<int64_t>(8 * uint64_t{byte}));
    uint64_t square[kSide];
    const int count = std::clamp(map.count() - left, 0, kSide);
    for (int i = 0; i < count; ++i) square[i ^ 7] = from.At(map[left + i]);
    for (int i = count; i < kSide; ++i) square[i ^ 7] = 0;
    Transpose(square);
    if (result.stride - byte >= sizeof(uint64_t)) {
      StoreSquare(square, strip, result, byte, sizeof(uint64_t));
    } else {
      StoreSquare(square, strip, result, byte, result.stride - byte);
    }
  }
}

// ---- rows of half the width ----
//
// The commonest reduction takes every other pixel, for which nothing needs to be transposed.

// The first, third, fifth and seventh pixel of each byte, in its lower half.
constexpr uint64_t EvenPixels(uint64_t bytes) {
  const uint64_t apart = bytes >> 1 & 0x5555555555555555;
  const uint64_t pairs = (apart | apart >> 1) & 0x3333333333333333;
  return (pairs | pairs >> 2) & 0x0F0F0F0F0F0F0F0F;
}

// Whether columns are those with even numbers, and all there.
bool IsHalf(const Strip& strip, const Rectangle& source, int newWidth) {
  const size_t bytes = (static_cast<size_t>(source.width()) + 7) / 8;
  return source.width() == 2 * int64_t{newWidth} && source.firstBit() == 0 &&
         std::all_of(strip.from, strip.from + strip.count,
                     [&](const Run& run) { return run.bytes >= bytes; });
}

// Makes four bytes a time from eight.
void HalveWords(const uint8_t* from, size_t words, uint8_t* __restrict to) {
  for (size_t i = 0; i < words; ++i) {
    uint64_t eight;
    std::memcpy(&eight, from + 8 * i, sizeof(eight));
    const uint64_t halves = EvenPixels(eight);
    const uint64_t bytes = (halves << 4 | halves >> 8) & 0x00FF00FF00FF00FF;
    const uint64_t pairs = (bytes | bytes >> 8) & 0x0000FFFF0000FFFF;
    const auto four = static_cast<uint32_t>(pairs | pairs >> 16);
    std::memcpy(to + 4 * i, &four, sizeof(four));
  }
}

void HalveRow(const Run& run, int newWidth, uint8_t* row, size_t stride) {
  const size_t whole = static_cast<size_t>(newWidth) / 8;
  Widest<HalveWords>(run.first, whole / 4, row);
  for (size_t i = whole / 4 * 4; i < stride; ++i) {
    const uint64_t left = 2 * i < run.bytes ? run.first[2 * i] : 0;
    const uint64_t right = 2 * i + 1 < run.bytes ? run.first[2 * i + 1] : 0;
    row[i] = static_cast<uint8_t>(EvenPixels(left) << 4 | EvenPixels(right));
  }
  if (whole == stride) return;
  row[whole] = static_cast<uint8_t>(row[whole] & ~(0xFFu >> newWidth % 8));
  std::memset(row + whole + 1, 0, stride - whole - 1);
}

// ---- pages ----

void MakeRows(const Strip& strip, const Rectangle& source, ColumnMap& map, const Rows& result) {
  if (IsHalf(strip, source, result.width)) {
    for (int i = 0; i < strip.count; ++i)
      HalveRow(strip.from[i], result.width, result.PageRow(strip.to[i]), result.stride);
    return;
  }
  if (source.width() != result.width) return PickColumns(strip, map, result);
  for (int i = 0; i < strip.count; ++i)
    CopyRun(strip.from[i], source.firstBit(), result.width, result.PageRow(strip.to[i]), result.stride);
}

// The rows of a strip go on to row `end`.
void RepeatRows(const Strip& strip, int end, const Rows& result) {
  for (int i = 0; i < strip.count; ++i) {
    const int next = i + 1 < strip.count ? strip.to[i + 1] : end;
    for (int y = strip.to[i] + 1; y < next; ++y)
      std::memcpy(result.PageRow(y), result.PageRow(strip.to[i]), result.stride);
  }
}

void MakePage(const Rectangle& source, const Rows& result) {
  ColumnMap map(source, result.width);
  Nearest nearest(source.height(), result.height);
  int64_t made = -1;
  int y = 0;
  while (y < result.height && nearest.value() < source.height()) {
    Strip strip;
    for (; y < result.height && nearest.value() < source.height(); ++y, nearest.Advance()) {
      if (nearest.value() == made || !source.HasRow(nearest.value())) continue;
      if (strip.count == kSide) break;
      made = nearest.value();
      strip.Add(source.RunAt(made), y);
    }
    MakeRows(strip, source, map, result);
    RepeatRows(strip, y, result);
  }
  // Rows that have none to come from are blank.
  std::memset(result.first, 0, static_cast<size_t>(result.height - y) * result.stride);
}

}  // namespace

HGLOBAL ScaleMonoRect(const LockedDib& source, int left, int top, int width, int height, int newWidth,
                      int newHeight) {
  const uint64_t headBytes = kHeaderBytes + sizeof(RGBQUAD) * uint64_t{DIBNumColors(&source.header())};
  ConstRows page = {};
  if (width < 1 || height < 1 || newWidth < 1 || newHeight < 1) return nullptr;
  if (!source.FindRows(headBytes, &page)) return nullptr;
  if (left < 0 || top < 0 || left >= page.width || top >= page.height) return nullptr;

  const uint64_t stride = DIBRowBytes(static_cast<uint32_t>(newWidth), 1);
  const uint64_t imageBytes = stride * static_cast<uint32_t>(newHeight);
  NewBlock result(headBytes + imageBytes + stride + kSpareBytes, Content::kUnset);
  if (!result) return nullptr;
  std::memcpy(result.bytes(), source.bytes(), static_cast<size_t>(headBytes));
  // Kept: biSizeImage stays that of the source.
  auto* header = result.As<Header>();
  header->biWidth = newWidth;
  header->biHeight = newHeight;
  const Rows rows = {result.bytes() + headBytes, static_cast<size_t>(stride), newWidth, newHeight};
  std::memset(rows.StoredRow(newHeight), 0, static_cast<size_t>(stride + kSpareBytes));
  MakePage(Rectangle(page, left, top, width, height), rows);
  return result.Release();
}

}  // namespace rastrel
