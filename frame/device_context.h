// Owners of what the platform draws with: device contexts, what is selected into them, palettes and bitmaps.
#ifndef RASTREL_FRAME_DEVICE_CONTEXT_H
#define RASTREL_FRAME_DEVICE_CONTEXT_H

#include <utility>

#include "platform/platform.h"

namespace rastrel {

// Returns false for what is no bitmap.
inline bool Describe(HBITMAP bitmap, BITMAP* description) {
  return GetObjectA(bitmap, sizeof(*description), description) == sizeof(*description);
}

// The screen's device context, released at the end of its life.
class ScreenContext {
 public:
  ScreenContext() : context_(GetDC(nullptr)) {}
  ~ScreenContext() { Release(); }
  ScreenContext(const ScreenContext&) = delete;
  ScreenContext& operator=(const ScreenContext&) = delete;
  explicit operator bool() const { return context_ != nullptr; }
  HDC get() const { return context_; }

  // Gives the context back now.
  void Release() {
    if (context_ != nullptr) ReleaseDC(nullptr, context_);
    context_ = nullptr;
  }
  // Leaves the context taken for good.
  void KeepTaken() { context_ = nullptr; }

 private:
  HDC context_;
};

// A memory context compatible with `model`, the screen's when that is null; deleted at the end of its life.
class MemoryContext {
 public:
  explicit MemoryContext(HDC model) : context_(CreateCompatibleDC(model)) {}
  ~MemoryContext() {
    if (context_ != nullptr) DeleteDC(context_);
  }
  MemoryContext(const MemoryContext&) = delete;
  MemoryContext& operator=(const MemoryContext&) = delete;
  explicit operator bool() const { return context_ != nullptr; }
  HDC get() const { return context_; }

 private:
  HDC context_;
};

// A bitmap selected into a memory context; the one before comes back at the end of its life. False where the
// context would not take it.
class SelectedBitmap {
 public:
  SelectedBitmap(HDC context, HBITMAP bitmap)
      : context_(context), before_(static_cast<HBITMAP>(SelectObject(context, bitmap))) {}
  ~SelectedBitmap() {
    if (before_ != nullptr) SelectObject(context_, before_);
  }
  SelectedBitmap(const SelectedBitmap&) = delete;
  SelectedBitmap& operator=(const SelectedBitmap&) = delete;
  explicit operator bool() const { return before_ != nullptr; }

 private:
  HDC context_;
  HBITMAP before_;
};

// A palette selected into a context as its foreground palette and realised; the one before comes back at the
// end of its life. A null palette changes nothing.
class SelectedPalette {
 public:
  SelectedPalette(HDC context, HPALETTE palette) : context_(context) {
    if (palette == nullptr) return;
    before_ = SelectPalette(context, palette, FALSE);
    RealizePalette(context);
  }
  ~SelectedPalette() {
    if (before_ != nullptr) SelectPalette(context_, before_, FALSE);
  }
  SelectedPalette(const SelectedPalette&) = delete;
  SelectedPalette& operator=(const SelectedPalette&) = delete;

 private:
  HDC context_;
  HPALETTE before_ = nullptr;
};

// A palette or bitmap, deleted at the end of its life unless released. What it is selected into must let go
// of it first: make the owner before the selection.
template <class Handle>
class ObjectOwner {
 public:
  explicit ObjectOwner(Handle object) : object_(object) {}
  ~ObjectOwner() {
    if (object_ != nullptr) DeleteObject(object_);
  }
  ObjectOwner(const ObjectOwner&) = delete;
  ObjectOwner& operator=(const ObjectOwner&) = delete;
  explicit operator bool() const { return object_ != nullptr; }
  Handle get() const { return object_; }

  Handle Release() { return std::exchange(object_, nullptr); }

 private:
  Handle object_;
};
using PaletteOwner = ObjectOwner<HPALETTE>;
using BitmapOwner = ObjectOwner<HBITMAP>;

}  // namespace rastrel

#endif
