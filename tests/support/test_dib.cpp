#include "tests/support/test_dib.h"

#include <cmath>
#include <cstring>
#include <random>
#include <utility>

namespace rastrel::testing {
namespace {

size_t StrideOf(const BITMAPINFOHEADER& header) {
  return (static_cast<size_t>(header.biWidth) * header.biBitCount + 31) / 32 * 4;
}

size_t TableEntries(const BITMAPINFOHEADER& header) {
  if (header.biClrUsed != 0) return header.biClrUsed;
  return header.biBitCount <= 8 ? size_t{1} << header.biBitCount : 0;
}

size_t RowsOffset(const BITMAPINFOHEADER& header) {
  return sizeof(header) + TableEntries(header) * sizeof(RGBQUAD);
}

HGLOBAL MakeBlock(const Bytes& bytes) {
  HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, bytes.size());
  if (void* memory = GlobalLock(block)) {
    std::memcpy(memory, bytes.data(), bytes.size());
    GlobalUnlock(block);
  }
  return block;
}

Bytes MakeBytes(const BITMAPINFOHEADER& header, const std::vector<RGBQUAD>& table) {
  Bytes bytes(RowsOffset(header) + StrideOf(header) * static_cast<size_t>(header.biHeight));
  std::memcpy(bytes.data(), &header, sizeof(header));
  const size_t entries = TableEntries(header);
  for (size_t i = 0; i < entries; ++i) {
    const auto grey = static_cast<uint8_t>(entries == 1 ? 0 : i * 255 / (entries - 1));
    const RGBQUAD entry = i < table.size() ? table[i] : RGBQUAD{grey, grey, grey, 0};
    std::memcpy(bytes.data() + sizeof(header) + i * sizeof(entry), &entry, sizeof(entry));
  }
  return bytes;
}

}  // namespace

BITMAPINFOHEADER MakeHeader(int bits, int width, int height) {
  BITMAPINFOHEADER header = {};
  header.biSize = sizeof(header);
  header.biWidth = width;
  header.biHeight = height;
  header.biPlanes = 1;
  header.biBitCount = static_cast<uint16_t>(bits);
  header.biXPelsPerMeter = 11811;
  header.biYPelsPerMeter = 11811;
  header.biClrUsed = bits <= 8 ? 1u << bits : 0;
  if (width > 0 && height > 0)
    header.biSizeImage = static_cast<uint32_t>(StrideOf(header) * static_cast<size_t>(height));
  return header;
}

Bytes Rounded(Bytes block, size_t slack) {
  block.resize((block.size() + 7) / 8 * 8 + slack);
  return block;
}

TestDib::TestDib(HGLOBAL dib) : dib_(dib), original_(block()) {}
TestDib::TestDib(const Bytes& block) : TestDib(MakeBlock(block)) {}
TestDib::TestDib(const BITMAPINFOHEADER& header, const std::vector<RGBQUAD>& table)
    : TestDib(MakeBytes(header, table)) {}
TestDib::~TestDib() {
  if (dib_ != nullptr) GlobalFree(dib_);
}
TestDib::TestDib(TestDib&& other) noexcept
    : dib_(std::exchange(other.dib_, nullptr)), original_(std::move(other.original_)) {}

TestDib TestDib::Random(int bits, int width, int height, unsigned seed) {
  return Random(MakeHeader(bits, width, height), seed);
}

TestDib TestDib::Random(const BITMAPINFOHEADER& header, unsigned seed) {
  Bytes bytes = MakeBytes(header, {});
  std::mt19937 random(seed);
  for (size_t i = RowsOffset(header); i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(random() >> 8);
  return TestDib(bytes);
}

TestDib TestDib::Plain(const BITMAPINFOHEADER& header, Pixel pixel) {
  TestDib dib(header);
  dib.Fill(0, 0, header.biWidth, header.biHeight, pixel);
  dib.Settle();
  return dib;
}

TestDib TestDib::Ruled(int bits, double degrees) {
  TestDib dib = Plain(MakeHeader(bits, 500, 500), (1u << bits) - 1);
  dib.DrawRule(degrees, 0);
  return dib;
}

TestDib TestDib::Drawn(std::initializer_list<std::string_view> pageRows) {
  TestDib dib(MakeHeader(1, static_cast<int>(pageRows.begin()->size()), static_cast<int>(pageRows.size())));
  int y = 0;
  for (const std::string_view row : pageRows) {
    for (size_t x = 0; x < row.size(); ++x) dib.Set(static_cast<int>(x), y, row[x] == '#' ? 0 : 1);
    ++y;
  }
  dib.Settle();
  return dib;
}

HGLOBAL TestDib::Release() { return std::exchange(dib_, nullptr); }

Bytes TestDib::block() const {
  Bytes bytes(GlobalSize(dib_));
  if (const void* memory = GlobalLock(dib_)) {
    std::memcpy(bytes.data(), memory, bytes.size());
    GlobalUnlock(dib_);
  }
  return bytes;
}

void TestDib::SetBlock(const Bytes& bytes) {
  std::memcpy(GlobalLock(dib_), bytes.data(), bytes.size());
  GlobalUnlock(dib_);
  Settle();
}

BITMAPINFOHEADER TestDib::header() const {
  BITMAPINFOHEADER header = {};
  if (const void* memory = GlobalLock(dib_)) {
    std::memcpy(&header, memory, sizeof(header));
    GlobalUnlock(dib_);
  }
  return header;
}

void TestDib::SetHeader(const BITMAPINFOHEADER& header) {
  std::memcpy(GlobalLock(dib_), &header, sizeof(header));
  GlobalUnlock(dib_);
  Settle();
}

TestDib TestDib::With(const std::function<void(BITMAPINFOHEADER&)>& change) const {
  BITMAPINFOHEADER info = header();
  change(info);
  TestDib copy(block());
  copy.SetHeader(info);
  return copy;
}

size_t TestDib::pixelBytes() const {
  const BITMAPINFOHEADER info = header();
  return StrideOf(info) * static_cast<size_t>(info.biHeight);
}

Pixel TestDib::At(int x, int y) const {
  const BITMAPINFOHEADER info = header();
  const auto* bytes = static_cast<const uint8_t*>(GlobalLock(dib_));
  const uint8_t* row = bytes + RowsOffset(info) + StrideOf(info) * static_cast<size_t>(info.biHeight - 1 - y);
  Pixel pixel = 0;
  if (info.biBitCount == 24) {
    pixel = row[3 * x] | row[3 * x + 1] << 8 | row[3 * x + 2] << 16;
  } else {
    const int perByte = 8 / info.biBitCount;
    pixel = row[x / perByte] >> (perByte - 1 - x % perByte) * info.biBitCount & ((1 << info.biBitCount) - 1);
  }
  GlobalUnlock(dib_);
  return pixel;
}

void TestDib::Set(int x, int y, Pixel pixel) { Fill(x, y, 1, 1, pixel); }

void TestDib::Fill(int left, int top, int width, int height, Pixel pixel) {
  const BITMAPINFOHEADER info = header();
  auto* bytes = static_cast<uint8_t*>(GlobalLock(dib_));
  for (int y = top; y < top + height; ++y) {
    uint8_t* row = bytes + RowsOffset(info) + StrideOf(info) * static_cast<size_t>(info.biHeight - 1 - y);
    for (int x = left; x < left + width; ++x) {
      if (info.biBitCount == 24) {
        for (int channel = 0; channel < 3; ++channel)
          row[3 * x + channel] = static_cast<uint8_t>(pixel >> 8 * channel);
        continue;
      }
      const int perByte = 8 / info.biBitCount;
      const int shift = (perByte - 1 - x % perByte) * info.biBitCount;
      const int mask = ((1 << info.biBitCount) - 1) << shift;
      row[x / perByte] = static_cast<uint8_t>((row[x / perByte] & ~mask) | static_cast<int>(pixel) << shift);
    }
  }
  GlobalUnlock(dib_);
}

void TestDib::DrawRule(double degrees, Pixel ink) {
  const double radians = degrees * 0.017453292519943295;
  for (int step = -200; step <= 200; ++step) {
    Fill(width() / 2 + static_cast<int>(std::lround(step * std::cos(radians))),
         height() / 2 - static_cast<int>(std::lround(step * std::sin(radians))), 2, 2, ink);
  }
  Settle();
}

std::vector<Pixel> TestDib::Pixels() const {
  std::vector<Pixel> pixels;
  for (int y = 0; y < height(); ++y) {
    for (int x = 0; x < width(); ++x) pixels.push_back(At(x, y));
  }
  return pixels;
}

std::vector<std::string> TestDib::Drawing() const {
  std::vector<std::string> rows;
  for (int y = 0; y < height(); ++y) {
    std::string row;
    for (int x = 0; x < width(); ++x) row += At(x, y) == 0 ? '#' : '.';
    rows.push_back(row);
  }
  return rows;
}

void TestDib::Settle() { original_ = block(); }

bool TestDib::Unchanged() const { return (GlobalFlags(dib_) & GMEM_LOCKCOUNT) == 0 && block() == original_; }

std::vector<Bytes> LyingBlocks(int bits) {
  std::vector<Bytes> blocks;
  const TestDib whole = TestDib::Random(bits, 9, 5, 1);
  for (size_t size = 8; size < whole.block().size(); size += 8) {
    Bytes cut = whole.block();
    cut.resize(size);
    blocks.push_back(cut);
  }
  const auto add = [&](int width, int height, uint32_t coloursUsed) {
    BITMAPINFOHEADER header = whole.header();
    header.biWidth = width;
    header.biHeight = height;
    header.biClrUsed = coloursUsed;
    Bytes block = whole.block();
    std::memcpy(block.data(), &header, sizeof(header));
    blocks.push_back(block);
  };
  for (const int size : {0, -1, INT32_MIN, INT32_MAX, 0x10000}) {
    add(size, 5, 0);
    add(9, size, 0);
    add(size, size, 0);
  }
  for (const uint32_t colours : {2000u, 0x3FFFFFFFu, 0x40000000u, 0xFFFFFFFFu}) add(9, 5, colours);
  return blocks;
}

}  // namespace rastrel::testing
