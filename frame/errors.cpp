// Error codes, their texts, and the version.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "frame/rastrel.h"
#include "frame/thread_state.h"

using rastrel::GetThreadState;
using rastrel::ThreadState;

namespace {

// Kept letter for letter, "Paramater" and "dispaly" too: callers compare the texts.
constexpr const char* kErrorTexts[] = {
    /*  0 */ "Operation was successful.",
    /*  1 */ "Not enough memory to allocate block.",
    /*  2 */ "Unable to create DC.",
    /*  3 */ "Can't open file.",
    /*  4 */ "General I/O error in reading or writing.",
    /*  5 */ "Can't open clipboard.",
    /*  6 */ "Could not receive from clipboard.",
    /*  7 */ "Can't copy bits from bitmap.",
    /*  8 */ "Parameter error.",
    /*  9 */ "Invalid file format.",
    /* 10 */ "Can't create palette.",
    /* 11 */ "Can't create bitmap.",
    /* 12 */ "Mapping mode is improperly set in metafile.",
    /* 13 */ "Invalid bit/pixel value.",
    /* 14 */ "Format not found in clipboard file.",
    /* 15 */ "Can't get bitmap parameters.",
    /* 16 */ "Can't create metafile.",
    /* 17 */ "Can't lock global memory.",
    /* 18 */ "DIB must be uncompressed.",
    /* 19 */ "Invalid DIB size.",
    /* 20 */ "Paramater error in Dithering.",
    /* 21 */ "Bad bit/pixel value in DIB header.",
    /* 22 */ "The VARDO algorithm creates only 1 or 4 bit image.",
    /* 23 */ "Could not get printer DC.",
    /* 24 */ "Device not capable to handle raster.",
    /* 25 */ "Could not get dispaly DC.",
    /* 26 */ "Escape failed SETABORTPROC.",
    /* 27 */ "Escape failed STARTDOC.",
    /* 28 */ "Escape failed NEXTBAND.",
    /* 29 */ "Clipboard error.",
    /* 30 */ "User cancels the printing.",
    /* 31 */ "Nothing to do.",
    /* 32 */ "Unable to find a scanned page for cropping.",
};
constexpr int kErrorCount = static_cast<int>(std::size(kErrorTexts));
static_assert(kErrorCount == ErrNoScannedPage + 1);

constexpr size_t kErrorBuffer = 60;
constexpr char kVersion[] = "Version 9.11";

}  // namespace

int RASTREL_CALL RastrelError() { return static_cast<int>(GetThreadState().lastError); }

int RASTREL_CALL SetRastrelError(int code) {
  ThreadState& state = GetThreadState();
  const bool known = code >= 0 && code < kErrorCount;
  const auto before = static_cast<int>(state.lastError);
  if (known) state.lastError = static_cast<uint32_t>(code);
  return before;
}

char* RASTREL_CALL RastrelErrorString(char* buffer, int code) {
  const ThreadState& state = GetThreadState();
  const bool known = code >= 0 && code < kErrorCount;
  const char* text = kErrorTexts[known ? static_cast<uint32_t>(code) : state.lastError];
  if (buffer == nullptr) {
    MessageBoxA(nullptr, text, "Rastrel Error", MB_OK | MB_ICONEXCLAMATION);
    return nullptr;
  }
  std::memset(buffer, 0, kErrorBuffer);  // which terminates the text
  // NOLINTNEXTLINE(bugprone-not-null-terminated-result)
  std::memcpy(buffer, text, std::min(std::strlen(text), kErrorBuffer - 1));
  return buffer;
}

void RASTREL_CALL GetImageVersion(char* buffer, int length) {
  if (buffer == nullptr || length <= 0) return;
  // Kept: up to 12 bytes come without a terminator.
  std::memcpy(buffer, kVersion, std::min(static_cast<size_t>(length), sizeof(kVersion)));
}
