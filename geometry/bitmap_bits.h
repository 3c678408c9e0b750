// The bits of a device bitmap, out of the platform's hands.
#ifndef RASTREL_GEOMETRY_BITMAP_BITS_H
#define RASTREL_GEOMETRY_BITMAP_BITS_H

#include <optional>

#include "frame/dib.h"
#include "frame/thread_state.h"

namespace rastrel {

// How the planes of a device bitmap lie. Less than 65,536 bytes of bits have the planes of a row one after
// another; from there on each plane is whole.
class PlaneLayout {
 public:
  // The platform's own layout of such a bitmap.
  explicit PlaneLayout(const BITMAP& bitmap);
  // Of a bitmap of other width and height, with whole planes where `source` has them.
  PlaneLayout(const BITMAP& bitmap, const PlaneLayout& source);

  uint64_t bytes() const { return bytes_; }
  int planes() const { return bitmap_.bmPlanes; }
  template <class Byte>
  RowView<Byte> PlaneAt(int index, Byte* bits) const {
    const auto rowBytes = static_cast<size_t>(bitmap_.bmWidthBytes);
    const size_t step = wholePlanes_ ? rowBytes : rowBytes * bitmap_.bmPlanes;
    const size_t toPlane = wholePlanes_ ? rowBytes * static_cast<size_t>(bitmap_.bmHeight) : rowBytes;
    return {bits + static_cast<size_t>(index) * toPlane, rowBytes, bitmap_.bmWidth, bitmap_.bmHeight,
            static_cast<ptrdiff_t>(step)};
  }

 private:
  BITMAP bitmap_;
  uint64_t bytes_;
  bool wholePlanes_;
};

// A device bitmap's description and a copy of its bits.
class FetchedBitmap {
 public:
  explicit FetchedBitmap(HBITMAP bitmap);

  // Why there is no bitmap or no copy; ErrSuccess where there is.
  ErrorCode failure() const { return failure_; }
  const BITMAP& description() const { return description_; }
  const PlaneLayout& layout() const { return *layout_; }
  uint8_t* bits() const { return bits_->bytes(); }
  Rows PlaneAt(int index) const { return layout_->PlaneAt(index, bits()); }

 private:
  ErrorCode Fetch(HBITMAP bitmap);

  BITMAP description_ = {};
  std::optional<PlaneLayout> layout_;
  std::optional<NewBlock> bits_;
  ErrorCode failure_;
};

}  // namespace rastrel

#endif
