#include "formats/windows/byte_stream.h"

#include <cstring>

namespace rastrel::formats {

HRESULT ByteStream::QueryInterface(REFIID kind, void** object) noexcept {
  if (object == nullptr) return E_POINTER;
  const auto is = [&kind](REFIID known) { return std::memcmp(&kind, &known, sizeof(IID)) == 0; };
  const bool isKnown = is(IID_IUnknown) || is(IID_ISequentialStream) || is(IID_IStream);
  *object = isKnown ? static_cast<IStream*>(this) : nullptr;
  if (!isKnown) return E_NOINTERFACE;
  AddRef();
  return S_OK;
}

ULONG ByteStream::Release() noexcept {
  const ULONG left = --owners_;
  if (left == 0) delete this;
  return left;
}

HRESULT ByteStream::Read(void* buffer, ULONG size, ULONG* got) noexcept {
  if (got != nullptr) *got = 0;
  if (bytes_ == nullptr || (buffer == nullptr && size != 0)) return STG_E_INVALIDPOINTER;
  const size_t count = bytes_->ReadAt(position_, {static_cast<uint8_t*>(buffer), size});
  position_ += count;
  if (got != nullptr) *got = static_cast<ULONG>(count);
  return count == size ? S_OK : S_FALSE;
}

HRESULT ByteStream::Write(const void* buffer, ULONG size, ULONG* written) noexcept {
  if (written != nullptr) *written = 0;
  if (bytes_ == nullptr || (buffer == nullptr && size != 0)) return STG_E_INVALIDPOINTER;
  if (!bytes_->WriteAt(position_, {static_cast<const uint8_t*>(buffer), size})) return STG_E_MEDIUMFULL;
  position_ += size;
  if (written != nullptr) *written = size;
  return S_OK;
}

HRESULT ByteStream::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* at) noexcept {
  if (bytes_ == nullptr || origin > STREAM_SEEK_END) return STG_E_INVALIDFUNCTION;
  const uint64_t from = origin == STREAM_SEEK_SET   ? 0
                        : origin == STREAM_SEEK_CUR ? position_
                                                    : bytes_->size();
  // Before the beginning, or so far behind it that it wraps around.
  const uint64_t to = from + static_cast<uint64_t>(move.QuadPart);
  if (to > INT64_MAX) return STG_E_INVALIDFUNCTION;
  position_ = to;
  if (at != nullptr) at->QuadPart = to;
  return S_OK;
}

HRESULT ByteStream::Stat(STATSTG* told, DWORD /*what*/) noexcept {
  if (told == nullptr) return STG_E_INVALIDPOINTER;
  if (bytes_ == nullptr) return STG_E_INVALIDFUNCTION;
  *told = {};
  told->type = STGTY_STREAM;
  told->cbSize.QuadPart = bytes_->size();
  return S_OK;
}

}  // namespace rastrel::formats
