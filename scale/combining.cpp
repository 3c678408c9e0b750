// Placing one image on another: copied or combined by AND, as it is or through a mask.
#include <algorithm>
#include <cstring>
#include <optional>

#include "frame/device_context.h"
#include "frame/rastrel.h"
#include "frame/thread_state.h"
#include "scale/combined_bits.h"
#include "scale/combined_colours.h"

namespace rastrel {
namespace {

// Returns false for what is not a whole uncompressed page.
template <class Byte>
bool ReadImage(const LockedDib& dib, Image<Byte>* image) {
  const Header& header = dib.header();
  if (header.biSize != kHeaderBytes || header.biCompression != BI_RGB) return false;
  if (!IsKnownDepth(header.biBitCount)) return false;
  if (!dib.FindRows(kHeaderBytes + PaletteBytes(&header), &image->rows)) return false;

  image->bits = header.biBitCount;
  image->table = dib.ReadColourTable();
  return true;
}

// What is drawn is as large as the destination, from the source's first pixel on, and is clipped to both. One
// would expect the source's size: where a negative position moves the beginning of a large source out, its
// end does not move in. Kept: callers of CombineDIB compare its pages with stored ones.
Span Clip(int position, int sourceSize, int destinationSize) {
  const int64_t first = position < 0 ? -int64_t{position} : 0;
  const int64_t end = std::min<int64_t>({sourceSize, destinationSize, int64_t{destinationSize} - position});
  return {first, first + position, std::max<int64_t>(end - first, 0)};
}

// A page that is only read; what it was before when it is also the one that changes.
class SourcePage {
 public:
  SourcePage(HGLOBAL dib, HGLOBAL changing) : dib_(dib), isRead_(ReadImage(dib_, &image_)) {
    if (!isRead_ || dib != changing) return;
    const NewBlock& copy = copy_.emplace(dib_.size(), Content::kUnset);
    isRead_ = static_cast<bool>(copy);
    if (!isRead_) return;
    std::memcpy(copy.bytes(), dib_.bytes(), dib_.size());
    image_.rows.first = copy.bytes() + (image_.rows.first - dib_.bytes());
  }
  explicit operator bool() const { return isRead_; }
  const Source& image() const { return image_; }

 private:
  LockedDib dib_;
  Source image_;
  bool isRead_;
  std::optional<NewBlock> copy_;
};

// The colours of a screen that has a palette.
struct ScreenColours {
  unsigned count = 0;
  RGBQUAD colours[256] = {};

  ScreenColours() {
    if (GetSystemPalette(colours) == 0) return;
    const ScreenContext screen;
    if (screen)
      count = static_cast<unsigned>(
          std::clamp(GetDeviceCaps(screen.get(), SIZEPALETTE), 0, static_cast<int>(256)));
  }
};

// ---- bitmaps ----------------------------------------------------------------------------------------------

// Draws with the two contexts from the source's first pixel on.
bool Draw(const MemoryContext& to, HBITMAP destination, int x, int y, int width, int height,
          const MemoryContext& from, HBITMAP source, DWORD operation) {
  const SelectedBitmap drawn(to.get(), destination);
  const SelectedBitmap read(from.get(), source);
  return drawn && read && BitBlt(to.get(), x, y, width, height, from.get(), 0, 0, operation) != 0;
}

}  // namespace
}  // namespace rastrel

int RASTREL_CALL CombineBMP(int x, int y, HBITMAP* destination, HBITMAP source, HBITMAP mask, int andFlag) {
  using namespace rastrel;
  ThreadState& state = GetThreadState();
  if (source == nullptr || destination == nullptr) return state.Fail(ErrParameter);
  if (*destination == nullptr) {
    *destination = DuplicateBitmap(source);
    if (*destination == nullptr) return state.Fail(ErrCopyBits);
    return 1;
  }

  BITMAP drawn, read, through;
  if (!Describe(*destination, &drawn) || !Describe(source, &read)) return 0;
  if (mask != nullptr &&
      (!Describe(mask, &through) || through.bmWidth != read.bmWidth || through.bmHeight != read.bmHeight)) {
    return state.Fail(ErrDIBSize);
  }
  const bool isReduced = mask != nullptr && (through.bmPlanes != 1 || through.bmBitsPixel != 1);
  const BitmapOwner reduced(isReduced ? ConvertToMonochromeBitmap(mask) : nullptr);
  if (isReduced && !reduced) return 0;
  HBITMAP stencil = isReduced ? reduced.get() : mask;

  const MemoryContext to(nullptr);
  const MemoryContext from(nullptr);
  if (!to || !from) return 0;
  // A bitmap is in one context at a time. One that is its own mask stays what it is; one that is drawn on
  // itself is copied first.
  if (stencil != nullptr && stencil != source &&
      !Draw(to, source, 0, 0, read.bmWidth, read.bmHeight, from, stencil, SRCAND)) {
    return 0;
  }
  const BitmapOwner copy(source == *destination ? DuplicateBitmap(source) : nullptr);
  if (source == *destination && !copy) return 0;
  return Draw(to, *destination, x, y, drawn.bmWidth, drawn.bmHeight, from, copy ? copy.get() : source,
              andFlag != 0 ? SRCAND : SRCCOPY)
             ? 1
             : 0;
}

int RASTREL_CALL CombineDIB(int x, int y, HGLOBAL* destination, HGLOBAL source, HGLOBAL mask, int andFlag) {
  using namespace rastrel;
  ThreadState& state = GetThreadState();
  if (source == nullptr || destination == nullptr) return state.Fail(ErrParameter);
  if (*destination == nullptr) {
    *destination = DuplicateDIB(source);
    if (*destination == nullptr) return state.Fail(ErrCopyBits);
    return 1;
  }

  const SourcePage from(source, *destination);
  std::optional<SourcePage> through;
  if (mask != nullptr) through.emplace(mask, *destination);
  const LockedDib changing(*destination);
  Destination to;
  if (!from || !ReadImage(changing, &to) || (through && !*through)) return state.Fail(ErrCreateBitmap);
  const Source& read = from.image();
  const Source* const stencil = through ? &through->image() : nullptr;
  if (stencil != nullptr &&
      (stencil->rows.width != read.rows.width || stencil->rows.height != read.rows.height)) {
    return state.Fail(ErrDIBSize);
  }

  // On a screen with a palette the page takes over its colours, as many as it has entries.
  const ScreenColours screen;
  const unsigned taken = std::min(screen.count, DIBNumColors(&changing.header()));
  ColourTable target = to.table;
  for (unsigned i = 0; i < std::min(taken, target.count); ++i) target.colours[i] = RgbOf(screen.colours[i]);
  const Combination task = {read,
                            stencil,
                            to,
                            target,
                            Clip(x, read.rows.width, to.rows.width),
                            Clip(y, read.rows.height, to.rows.height),
                            andFlag != 0};
  if (task.across.count != 0 && task.down.count != 0 && !CombineAsBits(task) && !CombineByColours(task)) {
    return state.Fail(ErrCreateBitmap);
  }
  // Kept: where the screen has no palette this leaves error 10, though the combination succeeds.
  const PaletteOwner current(GetCurrentPalette());
  std::memcpy(changing.bytes() + kHeaderBytes, screen.colours, taken * sizeof(RGBQUAD));
  return 1;
}
