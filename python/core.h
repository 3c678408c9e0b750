// What the parts of the compiled module share: pages as objects, errors as Python's.
#ifndef RASTREL_PYTHON_CORE_H
#define RASTREL_PYTHON_CORE_H

#include <rastrel_pages.h>

#include <nanobind/nanobind.h>

#include <utility>

namespace rastrel::python {

namespace nb = nanobind;

// A page that Python owns. Never changed after it was made, so that threads can share it.
class Page {
 public:
  explicit Page(HGLOBAL handle) : handle_(handle) {}
  ~Page() {
    if (isLocked_) GlobalUnlock(handle_);
    if (handle_ != nullptr) GlobalFree(handle_);
  }
  Page(Page&& other) noexcept
      : handle_(std::exchange(other.handle_, nullptr)), isLocked_(std::exchange(other.isLocked_, false)) {}
  Page(const Page&) = delete;
  Page& operator=(const Page&) = delete;

  // Throws for a page that was given away.
  HGLOBAL handle() const;
  // The block's address, which stays as it is as long as the page.
  const void* Locked();
  HGLOBAL GiveAway() { return std::exchange(handle_, nullptr); }

 private:
  HGLOBAL handle_;
  bool isLocked_ = false;
};

// Raises the exception that `code` of PagesErrorCode stands for.
[[noreturn]] void Raise(int code, const char* text);
// The thread's last error of rastrel_pages.h.
[[noreturn]] void RaiseLast();

template <class Result>
Result Checked(Result result) {
  if (!result) RaiseLast();
  return result;
}

template <class Struct>
Struct Sized() {
  Struct result = {};
  result.size = sizeof(Struct);
  return result;
}

// Other Python threads run meanwhile.
template <class Work>
auto WithoutGil(Work work) {
  nb::gil_scoped_release release;
  return work();
}

// Bytes of a Python object, by the buffer protocol.
class Buffer {
 public:
  Buffer(nb::handle object, int flags);
  ~Buffer() { PyBuffer_Release(&view_); }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;
  const Py_buffer& view() const { return view_; }

 private:
  Py_buffer view_ = {};
};

// A text of the library, whose bytes may come from a file.
nb::object Text(const char* text);

nb::dict RecordOf(const CleanRecord* record);

void AddPages(nb::module_& module);
void AddFiles(nb::module_& module);
void AddOperations(nb::module_& module);

}  // namespace rastrel::python

#endif
