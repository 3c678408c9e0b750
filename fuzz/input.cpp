#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <iterator>
#include <string>

#include "fuzz/target.h"
#include "tests/support/any_page.h"

namespace rastrel::fuzz {
namespace {

constexpr int kDepths[] = {1, 8, 24, 4, 1, 8, 24, 2, 15, 16, 32, 0, 3, 64};
constexpr int kSoundDepths = 4;  // of those, from the first on

HGDIOBJ Dead() {
  HGLOBAL freed = GlobalAlloc(GMEM_MOVEABLE, 8);
  GlobalFree(freed);
  return freed;
}

uint64_t Stride(const BITMAPINFOHEADER& header) {
  return (uint64_t{static_cast<uint32_t>(header.biWidth)} * header.biBitCount + 31) / 32 * 4;
}

}  // namespace

MemoryFile::MemoryFile(InputBytes bytes) {
  static const int file = ::memfd_create("rastrel-fuzz", MFD_CLOEXEC);
  static const std::string path = "/proc/self/fd/" + std::to_string(file);
  Expect(::ftruncate(file, 0) == 0 &&
             ::pwrite(file, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
         "there is memory for a file");
  ::lseek(file, 0, SEEK_SET);
  name = path.c_str();
  descriptor = file;
}

Input::~Input() {
  for (HGLOBAL block : blocks_) GlobalFree(block);
  for (HGDIOBJ object : objects_) DeleteObject(object);
}

int Input::Number() {
  constexpr int kEdges[] = {INT_MIN, INT_MAX, -1,  0x7FFF, 0x8000, 0xFFFF, 0x10000, 0x10001, 1000,
                            -0x8000, 255,     256, 128,    32,     46341,  20000,   1 << 20};
  const int kind = Byte();
  if (kind < 160) return kind < 100 ? kind : 100 - kind;
  if (kind < 230) return kEdges[kind % std::size(kEdges)];
  return static_cast<int>(Word());
}

double Input::Real() {
  constexpr double kOdd[] = {std::numeric_limits<double>::quiet_NaN(),
                             std::numeric_limits<double>::infinity(),
                             -std::numeric_limits<double>::infinity(),
                             1e300,
                             -1e300,
                             5e-324,
                             0.5,
                             1e9};
  const int kind = Byte();
  if (kind < 32) return kOdd[kind % std::size(kOdd)];
  return kind < 128 ? Number() : Number() / static_cast<double>(1 + kind % 100);
}

HGLOBAL Input::Keep(HGLOBAL block) {
  if (block != nullptr) blocks_.push_back(block);
  return block;
}

BITMAPINFOHEADER Input::Header() {
  BITMAPINFOHEADER header = {};
  header.biSize = sizeof(header);
  header.biWidth = 1 + Byte() % 97;
  header.biHeight = 1 + Byte() % 61;
  header.biPlanes = 1;
  header.biBitCount = static_cast<uint16_t>(kDepths[Byte() % std::size(kDepths)]);
  header.biClrUsed = header.biBitCount <= 8 ? 1u << header.biBitCount : 0;
  header.biXPelsPerMeter = header.biYPelsPerMeter = 20 * Byte();
  return header;
}

// The bytes that are left make the colour table and the rows, again and again.
HGLOBAL Input::Block(const BITMAPINFOHEADER& header, size_t bytes) {
  HGLOBAL block = Keep(GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, bytes));
  auto* to = static_cast<uint8_t*>(GlobalLock(block));
  if (to == nullptr) return block;
  std::memcpy(to, &header, std::min(sizeof(header), bytes));
  const bool hasGreys = Flag();
  const size_t table = std::min<size_t>(bytes - std::min(sizeof(header), bytes), size_t{4} * 256);
  InputBytes pattern = left_;
  for (size_t i = sizeof(header), k = 0; i < bytes && !pattern.empty(); ++i, ++k) {
    to[i] = static_cast<uint8_t>(pattern[k % pattern.size()] + (k / pattern.size()) * 37);
  }
  if (hasGreys && header.biBitCount <= 8 && header.biBitCount > 0) {
    const size_t colours = size_t{1} << header.biBitCount;
    for (size_t i = 0; i < colours && (i + 1) * 4 <= table; ++i) {
      std::memset(to + sizeof(header) + i * 4, static_cast<int>(i * 255 / (colours - 1)), 3);
    }
  }
  GlobalUnlock(block);
  return block;
}

HGLOBAL Input::Page() {
  const int kind = Byte();
  if (kind == 0) return nullptr;
  if (kind == 1) return Dead();
  if (kind == 2) return Keep(GlobalAlloc(GMEM_MOVEABLE, 0));
  if (kind < 40) return SoundPage();
  BITMAPINFOHEADER header = Header();
  uint64_t bytes = sizeof(header) + header.biClrUsed * uint64_t{4} +
                   Stride(header) * static_cast<uint32_t>(header.biHeight);
  const uint8_t lies = kind < 128 ? 0 : Byte();  // a bit for each
  if ((lies & 1) != 0) header.biWidth = Number();
  if ((lies & 2) != 0) header.biHeight = Number();
  if ((lies & 4) != 0) header.biClrUsed = static_cast<uint32_t>(Number());
  if ((lies & 8) != 0) header.biSizeImage = static_cast<uint32_t>(Number());
  if ((lies & 16) != 0) header.biCompression = Byte() % 4;
  if ((lies & 32) != 0) header.biXPelsPerMeter = Number(), header.biYPelsPerMeter = Number();
  if ((lies & 64) != 0) header.biPlanes = static_cast<uint16_t>(Number()), header.biSize = Byte();
  if ((lies & 128) != 0) bytes = bytes * Byte() / 256;
  return Block(header, static_cast<size_t>(bytes));
}

HGLOBAL Input::SoundPage() {
  if (Byte() < 100) {
    const int bits = kDepths[Byte() % kSoundDepths], width = 8 + Byte(), height = 8 + Byte();
    const auto content = static_cast<testing::Content>(Byte() % 3);
    return Keep(testing::MakePage(bits, width, height, content, Byte()));
  }
  BITMAPINFOHEADER header = Header();
  header.biBitCount = static_cast<uint16_t>(kDepths[header.biBitCount % kSoundDepths]);
  header.biClrUsed = header.biBitCount <= 8 ? 1u << header.biBitCount : 0;
  return Block(header, static_cast<size_t>(sizeof(header) + header.biClrUsed * uint64_t{4} +
                                           Stride(header) * static_cast<uint32_t>(header.biHeight)));
}

HBITMAP Input::Bitmap() {
  const int kind = Byte();
  if (kind == 0) return nullptr;
  if (kind == 1) return static_cast<HBITMAP>(Dead());
  constexpr unsigned kBits[] = {1, 4, 8, 16, 24, 32};
  const int width = Byte() % 70, height = Byte() % 50;
  HBITMAP bitmap = CreateBitmap(width, height, 1, kBits[kind % std::size(kBits)], nullptr);
  if (!left_.empty()) SetBitmapBits(bitmap, static_cast<uint32_t>(left_.size()), left_.data());
  if (bitmap != nullptr) objects_.push_back(bitmap);
  return bitmap;
}

HPALETTE Input::Palette() {
  const int entries = Byte();
  if (entries == 0) return nullptr;
  std::vector<uint8_t> bytes(sizeof(LOGPALETTE) + sizeof(PALETTEENTRY) * static_cast<size_t>(entries));
  auto* wanted = reinterpret_cast<LOGPALETTE*>(bytes.data());
  wanted->palVersion = 0x300;
  wanted->palNumEntries = static_cast<uint16_t>(entries);
  std::memcpy(wanted->palPalEntry, left_.data(),
              std::min(left_.size(), sizeof(PALETTEENTRY) * static_cast<size_t>(entries)));
  HPALETTE palette = CreatePalette(wanted);
  if (palette != nullptr) objects_.push_back(palette);
  return palette;
}

}  // namespace rastrel::fuzz
