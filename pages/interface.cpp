#include "pages/interface.h"

namespace rastrel::pages {
namespace {

struct ThreadError {
  int code = ErrSuccess;
  char text[500] = "";
};
thread_local ThreadError lastError;

// What stands between a block and a page as MakePage leaves it.
enum class State { kNormal, kToNormalise, kRunLength };

State StateOf(const Dib& page, uint64_t bytes) {
  const PageView view(page);
  const BITMAPINFOHEADER& header = view.header();
  const int bits = view.bits();
  if (header.biSize != sizeof(header)) BadArgument("there is no page: its header has another size");
  if ((header.biCompression == BI_RLE8 && bits == 8) || (header.biCompression == BI_RLE4 && bits == 4)) {
    return State::kRunLength;
  }
  if (header.biCompression != BI_RGB) BadArgument("the page is compressed");
  if (header.biWidth < 1 || header.biHeight < 1 || (bits != 1 && bits != 4 && bits != 8 && bits != 24)) {
    return State::kToNormalise;  // which says what is wrong
  }
  const uint32_t colours = bits == 24 ? 0 : 1u << bits;
  if (header.biClrUsed != 0 && header.biClrUsed != colours) return State::kToNormalise;
  const uint64_t needed = sizeof(header) + colours * sizeof(RGBQUAD) +
                          StrideOf(header.biWidth, bits) * static_cast<uint64_t>(header.biHeight);
  return needed > bytes || NeedsGreyRamp(view) ? State::kToNormalise : State::kNormal;
}

}  // namespace

void SetPagesError(int code, const char* text) noexcept {
  lastError.code = code;
  size_t length = std::min(std::strlen(text), sizeof(lastError.text) - 1);
  // Characters of more than a byte stay whole.
  while (length > 0 && text[length] != '\0' && (text[length] & 0xC0) == 0x80) --length;
  std::memmove(lastError.text, text, length);
  lastError.text[length] = '\0';
}

InputPage::InputPage(HGLOBAL page) {
  const uint64_t bytes = page != nullptr ? GlobalSize(page) : 0;
  if (bytes < sizeof(BITMAPINFOHEADER)) BadArgument("there is no page");
  dib_ = Dib(page);
  try {
    const State state = StateOf(dib_, bytes);
    if (state == State::kNormal) return;
    Dib copy =
        NormalisePage(state == State::kRunLength ? Checked(ExpandCompressedDIB(page)) : Duplicate(dib_));
    dib_.Release();
    dib_ = std::move(copy);
    isBorrowed_ = false;
  } catch (...) {
    dib_.Release();  // the caller's
    throw;
  }
}

}  // namespace rastrel::pages

using namespace rastrel::pages;

int RASTREL_CALL PagesError(void) { return lastError.code; }
const char* RASTREL_CALL PagesErrorText(void) { return lastError.text; }
const char* RASTREL_CALL PagesVersion(void) { return RASTREL_VERSION; }
