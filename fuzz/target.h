// What can be fuzzed: a target runs once on some bytes. It ends the process where a promise is broken that no
// sanitizer sees.
#ifndef RASTREL_FUZZ_TARGET_H
#define RASTREL_FUZZ_TARGET_H

#include <rastrel.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <span>
#include <string_view>
#include <vector>

namespace rastrel::fuzz {

using InputBytes = std::span<const uint8_t>;

struct Target {
  const char* name;
  void (*run)(InputBytes bytes);
  // A larger block is refused as if memory had run out: sizes that lie would take the time that pages of that
  // size do. 0 for no such limit.
  size_t mostBlockBytes;

  void Run(InputBytes bytes) const;
};
std::span<const Target> Targets();
const Target* FindTarget(std::string_view name);

// The targets' functions, each in the file that is called like it.
template <size_t Format>
void ReadPages(InputBytes bytes);
void LoadDib(InputBytes bytes);
void CallCoreFunction(InputBytes bytes);
void CallPagesFunction(InputBytes bytes);
void CleanAnyPage(InputBytes bytes);

inline void Expect(bool isTrue, const char* promise) {
  if (isTrue) return;
  std::fprintf(stderr, "broken: %s\n", promise);
  std::abort();
}

// A file that lies in memory and has these bytes; its name is good until the next one. Its descriptor stands
// at its beginning.
struct MemoryFile {
  explicit MemoryFile(InputBytes bytes);
  const char* name;
  int descriptor;
};

// Arguments made of bytes, the same for the same bytes. Behind the last byte there are zeros.
class Input {
 public:
  explicit Input(InputBytes bytes) : left_(bytes) {}
  ~Input();
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  uint8_t Byte() {
    if (left_.empty()) return 0;
    const uint8_t byte = left_.front();
    left_ = left_.subspan(1);
    return byte;
  }
  uint32_t Word() { return Byte() | Byte() << 8 | Byte() << 16 | uint32_t{Byte()} << 24; }
  int Below(int bound) { return Byte() % bound; }
  bool Flag() { return (Byte() & 1) != 0; }
  InputBytes Rest() const { return left_; }

  // Mostly small, else at an edge or anything.
  int Number();
  double Real();

  // Blocks and objects, which are freed with this. Some are null or dead; the headers of some lie, and some
  // blocks are cut short.
  HGLOBAL Page();
  // One that the functions of rastrel_pages.h take. Its resolution is that of a page.
  HGLOBAL SoundPage();
  HBITMAP Bitmap();
  HPALETTE Palette();
  HGLOBAL Keep(HGLOBAL block);

 private:
  BITMAPINFOHEADER Header();
  HGLOBAL Block(const BITMAPINFOHEADER& header, size_t bytes);

  InputBytes left_;
  std::vector<HGLOBAL> blocks_;
  std::vector<HGDIOBJ> objects_;
};

}  // namespace rastrel::fuzz

#endif
