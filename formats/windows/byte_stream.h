// Bytes as the system's codecs want them.
#ifndef RASTREL_FORMATS_WINDOWS_BYTE_STREAM_H
#define RASTREL_FORMATS_WINDOWS_BYTE_STREAM_H

#include <objidl.h>
#include <windows.h>

#include <atomic>

#include "formats/bytes.h"

namespace rastrel::formats {

// The system's objects are not destroyed but released.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

// Begins with one owner. Nothing here throws, as its callers are not ours.
class ByteStream final : public IStream {
 public:
  explicit ByteStream(Bytes* bytes) : bytes_(bytes) {}
  ByteStream(const ByteStream&) = delete;
  ByteStream& operator=(const ByteStream&) = delete;
  // From now on there are none: the bytes may go before a codec lets go of the stream.
  void Detach() noexcept { bytes_ = nullptr; }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID kind, void** object) noexcept override;
  ULONG STDMETHODCALLTYPE AddRef() noexcept override { return ++owners_; }
  ULONG STDMETHODCALLTYPE Release() noexcept override;

  HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG size, ULONG* got) noexcept override;
  HRESULT STDMETHODCALLTYPE Write(const void* buffer, ULONG size, ULONG* written) noexcept override;
  HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* at) noexcept override;
  HRESULT STDMETHODCALLTYPE Stat(STATSTG* told, DWORD what) noexcept override;
  // Of files that are being written, all that codecs ask for is done by writing.
  HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER) noexcept override { return S_OK; }
  HRESULT STDMETHODCALLTYPE Commit(DWORD) noexcept override { return S_OK; }
  HRESULT STDMETHODCALLTYPE CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*,
                                   ULARGE_INTEGER*) noexcept override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE Revert() noexcept override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) noexcept override {
    return STG_E_INVALIDFUNCTION;
  }
  HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) noexcept override {
    return STG_E_INVALIDFUNCTION;
  }
  HRESULT STDMETHODCALLTYPE Clone(IStream**) noexcept override { return E_NOTIMPL; }

 private:
  ~ByteStream() = default;

  Bytes* bytes_;
  uint64_t position_ = 0;
  std::atomic<ULONG> owners_{1};
};

#pragma GCC diagnostic pop

}  // namespace rastrel::formats

#endif
