// What the functions of rastrel_pages.h have in common: arguments are checked on the way in, and whatever is
// thrown becomes the thread's error on the way out.
#ifndef RASTREL_PAGES_INTERFACE_H
#define RASTREL_PAGES_INTERFACE_H

#include <algorithm>
#include <cstring>
#include <exception>
#include <new>
#include <stdexcept>

#include "pages/page.h"

namespace rastrel::pages {

// Sets the thread's error. Texts that are too long are cut.
void SetPagesError(int code, const char* text) noexcept;

// Runs `work`; `failure` is returned where it throws.
template <class Result, class Work>
Result Guarded(Result failure, Work work) noexcept {
  try {
    return work();
  } catch (const PageError& error) {
    SetPagesError(error.code(), error.what());
  } catch (const std::bad_alloc&) {
    SetPagesError(ErrNoMemory, "out of memory");
  } catch (const std::length_error&) {
    SetPagesError(ErrTooLarge, "is too large");
  } catch (const std::exception& error) {
    SetPagesError(ErrInternal, error.what());
  } catch (...) {
    SetPagesError(ErrInternal, "internal error");
  }
  return failure;
}

[[noreturn]] inline void BadArgument(const char* text) { throw PageError(text, ErrParameter); }
inline void Require(bool isGood, const char* text) {
  if (!isGood) BadArgument(text);
}
template <class Number>
Number InRange(Number value, Number least, Number most, const char* text) {
  if (!(value >= least && value <= most)) BadArgument(text);  // not a number is refused as well
  return value;
}

// A page that the caller owns, as the functions of pages/ take it. Pages that do not look as MakePage and
// NormalisePage leave them are copied and made so.
class InputPage {
 public:
  explicit InputPage(HGLOBAL page);
  ~InputPage() {
    if (isBorrowed_) dib_.Release();
  }
  InputPage(const InputPage&) = delete;
  InputPage& operator=(const InputPage&) = delete;
  const Dib& dib() const { return dib_; }
  bool isBorrowed() const { return isBorrowed_; }  // it is as it came
  // A page to be changed.
  Dib Copy() { return isBorrowed_ ? Duplicate(dib_) : std::move(dib_); }

 private:
  Dib dib_;
  bool isBorrowed_ = true;
};

// Reads as much of a caller's struct as it has; the rest stays as in `standard`.
template <class Struct>
Struct TakeStruct(const Struct* given, Struct standard) {
  if (given == nullptr) return standard;
  Require(given->size >= sizeof(uint32_t), "a struct begins with its size");
  std::memcpy(static_cast<void*>(&standard), given, std::min<size_t>(given->size, sizeof(Struct)));
  return standard;
}
// Writes as much of a struct as the caller has room for.
template <class Struct>
void GiveStruct(Struct value, Struct* wanted) {
  Require(wanted != nullptr, "there is no room for the result");
  Require(wanted->size >= sizeof(uint32_t), "a struct begins with its size");
  value.size = wanted->size;
  std::memcpy(static_cast<void*>(wanted), &value, std::min<size_t>(wanted->size, sizeof(Struct)));
}

}  // namespace rastrel::pages

#endif
