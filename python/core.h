// What the parts of the compiled module share: pages as objects, errors as Python's.
#ifndef RASTREL_PYTHON_CORE_H
#define RASTREL_PYTHON_CORE_H

#include <rastrel_pages.h>

#include <nanobind/nanobind.h>

#include <memory>
#include <utility>

namespace rastrel::python {

namespace nb = nanobind;

// A page's block, freed with the last that holds it.
struct Block {
  explicit Block(HGLOBAL made) : handle(made) {}
  ~Block() {
    if (isLocked) GlobalUnlock(handle);
    if (handle != nullptr) GlobalFree(handle);
  }
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;

  HGLOBAL GiveAway() { return std::exchange(handle, nullptr); }

  HGLOBAL handle;
  bool isLocked = false;
};
using SharedBlock = std::shared_ptr<Block>;
// Null for null.
inline SharedBlock Share(HGLOBAL made) { return made == nullptr ? nullptr : std::make_shared<Block>(made); }

// A page that Python owns. Never changed after it was made, so that threads can share it.
class Page {
 public:
  explicit Page(SharedBlock block) : block_(std::move(block)) {}

  // Throw for a page that was given away.
  const SharedBlock& block() const;
  HGLOBAL handle() const { return block()->handle; }
  // The block's address, which stays as it is as long as the page.
  const void* Locked();
  SharedBlock GiveAway();

 private:
  SharedBlock block_;
};

int64_t PixelsOf(const Page& page);

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
