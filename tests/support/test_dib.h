// DIB blocks for tests: made from a header, small pictures or a seed, freed at the end of their life.
#ifndef RASTREL_TESTS_SUPPORT_TEST_DIB_H
#define RASTREL_TESTS_SUPPORT_TEST_DIB_H

#include <rastrel.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace rastrel::testing {

using Bytes = std::vector<uint8_t>;
using Pixel = uint32_t;  // an index, or 0xRRGGBB at 24 bits

// The 40-byte header of an uncompressed picture with a full colour table and 300 dpi.
BITMAPINFOHEADER MakeHeader(int bits, int width, int height);

// A block as large as the platform makes it, with `slack` bytes behind.
Bytes Rounded(Bytes block, size_t slack = 0);

class TestDib {
 public:
  // Takes over a handle, null included. The copy for Unchanged is taken here.
  explicit TestDib(HGLOBAL dib);
  // A block that holds just these bytes.
  explicit TestDib(const Bytes& block);
  // A block of the header, `table` (grey from black to white when empty and the depth has one) and zeroed
  // rows.
  explicit TestDib(const BITMAPINFOHEADER& header, const std::vector<RGBQUAD>& table = {});
  ~TestDib();
  TestDib(TestDib&& other) noexcept;
  TestDib(const TestDib&) = delete;
  TestDib& operator=(const TestDib&) = delete;

  // Random pixels and padding; the same for the same seed.
  static TestDib Random(int bits, int width, int height, unsigned seed);
  static TestDib Random(const BITMAPINFOHEADER& header, unsigned seed);
  // A page of one pixel.
  static TestDib Plain(const BITMAPINFOHEADER& header, Pixel pixel);
  // A light page of 500 x 500 with a dark rule through its middle that rises by `degrees` toward the right.
  static TestDib Ruled(int bits, double degrees);
  // A black-and-white 1-bit page (entry 0 black), drawn from the top: '#' is black, anything else white.
  static TestDib Drawn(std::initializer_list<std::string_view> pageRows);

  HGLOBAL handle() const { return dib_; }
  explicit operator bool() const { return dib_ != nullptr; }
  // Gives the handle up.
  HGLOBAL Release();

  Bytes block() const;                // the whole block
  void SetBlock(const Bytes& bytes);  // of the same size
  BITMAPINFOHEADER header() const;
  void SetHeader(const BITMAPINFOHEADER& header);
  // A copy whose header `change` has altered.
  TestDib With(const std::function<void(BITMAPINFOHEADER&)>& change) const;
  int width() const { return header().biWidth; }
  int height() const { return header().biHeight; }
  size_t pixelBytes() const;

  // y counts from the top of the page. Slow.
  Pixel At(int x, int y) const;
  void Set(int x, int y, Pixel pixel);
  // Set and Fill want a Settle behind them where Unchanged is asked.
  void Fill(int left, int top, int width, int height, Pixel pixel);
  void DrawRule(double degrees, Pixel ink);
  // All pixels, page row by page row, without padding.
  std::vector<Pixel> Pixels() const;
  // The page rows of a 1-bit page as Drawn takes them.
  std::vector<std::string> Drawing() const;

  // From here on the block as it is now is what Unchanged compares with.
  void Settle();
  // Whether the block is what it was when this was made or settled, and is not locked.
  bool Unchanged() const;

 private:
  HGLOBAL dib_;
  Bytes original_;
};

// Blocks of a depth that are cut short, or whose headers promise more than they hold or name impossible
// sizes.
std::vector<Bytes> LyingBlocks(int bits);

}  // namespace rastrel::testing

#endif
