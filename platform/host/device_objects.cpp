// Making, describing, selecting and deleting bitmaps, palettes and device contexts.
#include "platform/host/device_objects.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/host/fault_injection.h"
#include "platform/host/handle_table.h"
#include "platform/host/huge_pages.h"

namespace rastrel::host {
namespace {

constexpr unsigned kMaxValueBits = 32;
// Bits of fewer bytes have the planes of a row one after another, others have whole planes.
constexpr size_t kWholePlanesFrom = 65536;

constexpr uint64_t WidthBytes(uint64_t width, uint64_t bits) { return (width * bits + 15) / 16 * 2; }

// The host's own objects stand for their handles themselves: their addresses are multiples of 8, which
// no handle of the table is. They live for ever, and nobody has to count or free them.
constinit uint8_t stockBits[2] = {};
alignas(8) constinit Bitmap stockBitmap = {&stockBitmap, 1, 1, {1, 1}, sizeof stockBits, stockBits, false};
constinit PALETTEENTRY stockEntries[] = {
    {0, 0, 0, 0},       {128, 0, 0, 0},     {0, 128, 0, 0},     {128, 128, 0, 0},   {0, 0, 128, 0},
    {128, 0, 128, 0},   {0, 128, 128, 0},   {192, 192, 192, 0}, {192, 220, 192, 0}, {166, 202, 240, 0},
    {255, 251, 240, 0}, {160, 160, 164, 0}, {128, 128, 128, 0}, {255, 0, 0, 0},     {0, 255, 0, 0},
    {255, 255, 0, 0},   {0, 0, 255, 0},     {255, 0, 255, 0},   {0, 255, 255, 0},   {255, 255, 255, 0}};
alignas(8) constinit Palette stockPalette = {std::size(stockEntries), stockEntries};

// The host's own bitmap is in many contexts, of many threads.
void MarkSelected(Bitmap* bitmap, bool isSelected) {
  if (bitmap != &stockBitmap) bitmap->isSelected = isSelected;
}

template <class Object>
Object* FindObject(const void* handle, HandleKind kind) {
  const HandleSlot* slot = FindHandle(handle, kind);
  return slot == nullptr ? nullptr : static_cast<Object*>(slot->data);
}

void Destroy(Bitmap* bitmap) {
  std::free(bitmap->bits);
  delete bitmap;
}
void Destroy(Palette* palette) {
  std::free(palette->entries);
  delete palette;
}
void Destroy(Context* context) {
  if (context->bitmap != nullptr) MarkSelected(context->bitmap, false);
  delete context;
}

// Makes a handle for a new object, or destroys it.
template <class Object>
void* HandleOrDestroy(Object* object, HandleKind kind) {
  void* handle = MakeHandle(kind, object, 0);
  if (handle == nullptr) Destroy(object);
  return handle;
}

template <class Object>
bool DestroyHandle(void* handle, HandleKind kind) {
  void* data = nullptr;
  if (!ReleaseHandle(handle, kind, &data)) return false;
  Destroy(static_cast<Object*>(data));
  return true;
}

HBITMAP NewBitmap(int width, int height, PixelFormat format, const void* bits) {
  if (ShouldFail(Fault::kCreation)) return nullptr;
  const uint64_t widthBytes = WidthBytes(static_cast<uint64_t>(width), format.bits);
  const uint64_t planeBytes = widthBytes * static_cast<uint64_t>(height);  // below 2^64
  if (planeBytes > kMaxBitmapBytes / format.planes) return nullptr;
  const auto size = static_cast<size_t>(planeBytes * format.planes);
  auto* memory = static_cast<uint8_t*>(bits == nullptr ? std::calloc(1, size) : std::malloc(size));
  if (memory == nullptr) return nullptr;
  PreferHugePages(memory, size);
  if (bits != nullptr) std::memcpy(memory, bits, size);
  auto* bitmap = new (std::nothrow)
      Bitmap{nullptr, width, height, format, static_cast<size_t>(widthBytes), memory, false};
  if (bitmap == nullptr) {
    std::free(memory);
    return nullptr;
  }
  void* handle = HandleOrDestroy(bitmap, HandleKind::kBitmap);
  if (handle != nullptr) bitmap->handle = handle;
  return handle;
}

HDC NewContext(Bitmap* bitmap) {
  if (ShouldFail(Fault::kCreation)) return nullptr;
  auto* context = new (std::nothrow) Context{bitmap, nullptr};
  return context == nullptr ? nullptr : HandleOrDestroy(context, HandleKind::kContext);
}

BITMAP DescriptionOf(const Bitmap& bitmap) {
  return {0,
          bitmap.width,
          bitmap.height,
          static_cast<int32_t>(bitmap.widthBytes),
          static_cast<uint16_t>(bitmap.format.planes),
          static_cast<uint16_t>(bitmap.format.bits),
          nullptr};
}

// Writes `value` where there is room for it.
template <class Value>
int Describe(const Value& value, int bytes, void* buffer) {
  constexpr int kBytes = sizeof(Value);
  if (buffer == nullptr) return kBytes;
  if (bytes < kBytes) return 0;
  std::memcpy(buffer, &value, sizeof value);
  return kBytes;
}

}  // namespace

PlanarRow<uint8_t> Bitmap::Row(int y) const {
  const auto row = static_cast<size_t>(y);
  if (size() < kWholePlanesFrom) return {bits + row * widthBytes * format.planes, widthBytes};
  return {bits + row * widthBytes, widthBytes * static_cast<size_t>(height)};
}

Bitmap* FindBitmap(const void* handle) {
  return handle == &stockBitmap ? &stockBitmap : FindObject<Bitmap>(handle, HandleKind::kBitmap);
}
Palette* FindPalette(const void* handle) {
  return handle == &stockPalette ? &stockPalette : FindObject<Palette>(handle, HandleKind::kPalette);
}
Context* FindContext(const void* handle) { return FindObject<Context>(handle, HandleKind::kContext); }

bool IsStockBitmap(const Bitmap* bitmap) { return bitmap == &stockBitmap; }
HPALETTE StockPalette() { return &stockPalette; }

}  // namespace rastrel::host

using namespace rastrel;
using namespace rastrel::host;

HBITMAP CreateBitmap(int width, int height, unsigned planes, unsigned bitsPerPixel, const void* bits) {
  if (width < 0 || height < 0) return nullptr;
  if (width == 0 || height == 0) return NewBitmap(1, 1, {1, 1}, nullptr);
  if (!IsKnownDepth(bitsPerPixel) || planes == 0 || planes > kMaxValueBits / bitsPerPixel) return nullptr;
  return NewBitmap(width, height, {planes, bitsPerPixel}, bits);
}

HBITMAP CreateBitmapIndirect(const BITMAP* bitmap) {
  if (bitmap == nullptr) return nullptr;
  return CreateBitmap(bitmap->bmWidth, bitmap->bmHeight, bitmap->bmPlanes, bitmap->bmBitsPixel,
                      bitmap->bmBits);
}

int GetObjectA(HGDIOBJ object, int bytes, void* buffer) {
  if (const Bitmap* bitmap = FindBitmap(object)) return Describe(DescriptionOf(*bitmap), bytes, buffer);
  if (const Palette* palette = FindPalette(object)) {
    return Describe(static_cast<uint16_t>(palette->count), bytes, buffer);
  }
  return 0;
}

int32_t GetBitmapBits(HBITMAP bitmap, int32_t bytes, void* buffer) {
  const Bitmap* source = FindBitmap(bitmap);
  if (source == nullptr) return 0;
  if (buffer == nullptr) return static_cast<int32_t>(source->size());
  if (bytes <= 0) return 0;
  const size_t count = std::min(static_cast<size_t>(bytes), source->size());
  std::memcpy(buffer, source->bits, count);
  return static_cast<int32_t>(count);
}

int32_t SetBitmapBits(HBITMAP bitmap, uint32_t bytes, const void* buffer) {
  const Bitmap* target = FindBitmap(bitmap);
  if (target == nullptr || IsStockBitmap(target) || buffer == nullptr) return 0;
  const size_t count = std::min<size_t>(bytes, target->size());
  std::memcpy(target->bits, buffer, count);
  return static_cast<int32_t>(count);
}

HPALETTE CreatePalette(const LOGPALETTE* palette) {
  constexpr unsigned kVersion = 0x300;
  if (palette == nullptr || palette->palVersion != kVersion || palette->palNumEntries == 0) return nullptr;
  if (ShouldFail(Fault::kCreation)) return nullptr;
  const unsigned count = palette->palNumEntries;
  auto* entries = static_cast<PALETTEENTRY*>(std::malloc(count * sizeof(PALETTEENTRY)));
  if (entries == nullptr) return nullptr;
  std::memcpy(entries, &palette->palPalEntry[0], count * sizeof(PALETTEENTRY));
  auto* made = new (std::nothrow) Palette{count, entries};
  if (made == nullptr) {
    std::free(entries);
    return nullptr;
  }
  return HandleOrDestroy(made, HandleKind::kPalette);
}

int DeleteObject(HGDIOBJ object) {
  if (object == &stockBitmap || object == &stockPalette) return 1;  // and they stay
  if (const Bitmap* bitmap = FindBitmap(object)) {
    return !bitmap->isSelected && DestroyHandle<Bitmap>(object, HandleKind::kBitmap) ? 1 : 0;
  }
  return DestroyHandle<Palette>(object, HandleKind::kPalette) ? 1 : 0;
}

HWND GetActiveWindow() { return nullptr; }

HDC GetDC(HWND /*window*/) { return NewContext(nullptr); }

int ReleaseDC(HWND /*window*/, HDC context) {
  const Context* found = FindContext(context);
  if (found == nullptr || found->bitmap != nullptr) return 0;
  return DestroyHandle<Context>(context, HandleKind::kContext) ? 1 : 0;
}

HDC CreateCompatibleDC(HDC context) {
  if (context != nullptr && FindContext(context) == nullptr) return nullptr;
  return NewContext(&stockBitmap);
}

BOOL DeleteDC(HDC context) {
  const Context* found = FindContext(context);
  if (found == nullptr || found->bitmap == nullptr) return FALSE;
  return DestroyHandle<Context>(context, HandleKind::kContext) ? TRUE : FALSE;
}

HGDIOBJ SelectObject(HDC context, HGDIOBJ object) {
  Context* found = FindContext(context);
  Bitmap* bitmap = FindBitmap(object);
  if (found == nullptr || found->bitmap == nullptr || bitmap == nullptr) return nullptr;
  Bitmap* before = found->bitmap;
  if (bitmap == before) return before->handle;
  if (bitmap->isSelected) return nullptr;
  MarkSelected(before, false);
  MarkSelected(bitmap, true);
  found->bitmap = bitmap;
  return before->handle;
}
