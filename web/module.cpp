// What the module for browsers and Node needs beside the C interface: where the members of its structs lie,
// so that no offset is written in JavaScript, and progress.
#include <emscripten.h>
#include <rastrel_pages.h>

#include <cstddef>
#include <string>
#include <type_traits>

namespace {

// i: int32_t, u: uint32_t, l: int64_t, d: double, p: a pointer.
template <class Member>
constexpr char TypeLetter() {
  if (std::is_pointer_v<Member>) return 'p';
  if (std::is_same_v<Member, double>) return 'd';
  if (std::is_same_v<Member, int64_t>) return 'l';
  return std::is_same_v<Member, uint32_t> ? 'u' : 'i';
}

class Layouts {
 public:
  Layouts& Begin(const char* name, size_t size) {
    text_ += std::string(text_.empty() ? "" : "\n") + name + " " + std::to_string(size);
    return *this;
  }
  template <class Member>
  Layouts& Add(const char* name, size_t offset) {
    text_ += std::string(" ") + name + ":" + std::to_string(offset) + ":" + TypeLetter<Member>();
    return *this;
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};
#define BEGIN(Struct) Begin(#Struct, sizeof(Struct))
#define MEMBER(Struct, name) Add<decltype(Struct::name)>(#name, offsetof(Struct, name))

std::string AllLayouts() {
  Layouts layouts;
  layouts.BEGIN(CleanOptions)
      .MEMBER(CleanOptions, text)
      .MEMBER(CleanOptions, cropSheet)
      .MEMBER(CleanOptions, trim)
      .MEMBER(CleanOptions, holes)
      .MEMBER(CleanOptions, holeSize)
      .MEMBER(CleanOptions, specks)
      .MEMBER(CleanOptions, speckLevel)
      .MEMBER(CleanOptions, speckFull)
      .MEMBER(CleanOptions, deskew)
      .MEMBER(CleanOptions, mostSkew)
      .MEMBER(CleanOptions, blankPercent)
      .MEMBER(CleanOptions, reduce)
      .MEMBER(CleanOptions, brightness)
      .MEMBER(CleanOptions, dpi)
      .MEMBER(CleanOptions, progress)
      .MEMBER(CleanOptions, classic)
      .MEMBER(CleanOptions, evenLight)
      .MEMBER(CleanOptions, whitePaper)
      .MEMBER(CleanOptions, lessBleed)
      .MEMBER(CleanOptions, toDpi);
  layouts.BEGIN(PageInfo)
      .MEMBER(PageInfo, size)
      .MEMBER(PageInfo, width)
      .MEMBER(PageInfo, height)
      .MEMBER(PageInfo, bits)
      .MEMBER(PageInfo, isGrey)
      .MEMBER(PageInfo, dpiX)
      .MEMBER(PageInfo, dpiY);
  layouts.BEGIN(CleanSummary)
      .MEMBER(CleanSummary, size)
      .MEMBER(CleanSummary, inkPercent)
      .MEMBER(CleanSummary, isResolutionAssumed);
  return layouts.text();
}

// Module.progress is set by the one call that is under way: a module runs one at a time.
EM_JS(int, TellProgress, (const char* step, double done),
      { return Module.progress(UTF8ToString(step), done); })

int OnProgress(void*, const char* step, double done) { return TellProgress(step, done); }

}  // namespace

extern "C" {

// A line for each struct: its name, its size, and "name:offset:type" for the members that are used.
const char* WebLayouts(void) {
  static const std::string text = AllLayouts();
  return text.c_str();
}

// The callback for CleanOptions.
PageProgress WebProgress(void) { return &OnProgress; }

}  // extern "C"
