#include "geometry/bitmap_bits.h"

#include <cstring>

#include "frame/device_context.h"

namespace rastrel {
namespace {

constexpr uint64_t kWholePlanesFrom = 65536;
constexpr uint64_t kMostFetched = INT32_MAX;

// Below 2^31 * 2^31 * 2^16.
uint64_t BytesOf(const BITMAP& bitmap) {
  return static_cast<uint64_t>(bitmap.bmWidthBytes) * static_cast<uint64_t>(bitmap.bmHeight) *
         bitmap.bmPlanes;
}

// Whether rows hold their pixels, and a buffer can hold the rows.
bool IsConsistent(const BITMAP& bitmap) {
  if (bitmap.bmWidth <= 0 || bitmap.bmHeight <= 0 || bitmap.bmWidthBytes <= 0 || bitmap.bmPlanes == 0)
    return false;
  return static_cast<uint64_t>(bitmap.bmWidth) * bitmap.bmBitsPixel <=
         static_cast<uint64_t>(bitmap.bmWidthBytes) * 8;
}

}  // namespace

PlaneLayout::PlaneLayout(const BITMAP& bitmap)
    : bitmap_(bitmap), bytes_(BytesOf(bitmap)), wholePlanes_(bytes_ >= kWholePlanesFrom) {}

PlaneLayout::PlaneLayout(const BITMAP& bitmap, const PlaneLayout& source)
    : bitmap_(bitmap), bytes_(BytesOf(bitmap)), wholePlanes_(source.wholePlanes_) {}

FetchedBitmap::FetchedBitmap(HBITMAP bitmap) : failure_(Fetch(bitmap)) {}

ErrorCode FetchedBitmap::Fetch(HBITMAP bitmap) {
  if (!Describe(bitmap, &description_)) return ErrBitmapParams;
  if (!IsConsistent(description_)) return ErrBitmapParams;
  layout_.emplace(description_);
  bits_.emplace(layout_->bytes(), Content::kUnset);
  if (!*bits_) return ErrNoMemory;
  // The platform counts the bytes in 31 bits.
  if (layout_->bytes() > kMostFetched) return ErrCopyBits;
  const auto bytes = static_cast<int32_t>(layout_->bytes());
  const int32_t fetched = GetBitmapBits(bitmap, bytes, bits_->bytes());
  if (fetched <= 0) return ErrCopyBits;
  if (fetched < bytes) std::memset(bits_->bytes() + fetched, 0, static_cast<size_t>(bytes - fetched));
  return ErrSuccess;
}

}  // namespace rastrel
