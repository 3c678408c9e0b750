// The handles of rastrel_pages.h as objects, and its errors as exceptions.
#ifndef RASTREL_TOOLS_HANDLES_H
#define RASTREL_TOOLS_HANDLES_H

#include <rastrel_pages.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace rastrel::tool {

// What went wrong with one page or file, in words for the person at the terminal.
class PageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

template <auto Free>
struct Freer {
  template <class Handle>
  void operator()(Handle* handle) const {
    Free(handle);
  }
};
inline void FreePage(HGLOBAL page) { GlobalFree(page); }

using Page = std::unique_ptr<std::remove_pointer_t<HGLOBAL>, Freer<FreePage>>;
using Input = std::unique_ptr<PageFile, Freer<ClosePages>>;
using Writer = std::unique_ptr<PageWriter, Freer<AbandonPages>>;
using Encoded = std::unique_ptr<EncodedPage, Freer<FreeEncodedPage>>;
using Raw = std::unique_ptr<RawPage, Freer<FreeRawPage>>;
using Metadata = std::unique_ptr<PageMetadata, Freer<FreePageMetadata>>;
using Record = std::unique_ptr<CleanRecord, Freer<FreeCleanRecord>>;

// The result of a function that gives 0 or null for a failure.
template <class Result>
Result Checked(Result result) {
  if (!result) throw PageError(PagesErrorText());
  return result;
}

template <class Struct>
Struct Sized() {
  Struct result = {};
  result.size = sizeof(Struct);
  return result;
}

inline PageInfo InfoOf(HGLOBAL page) {
  auto info = Sized<PageInfo>();
  Checked(DescribePage(page, &info));
  return info;
}

}  // namespace rastrel::tool

#endif
