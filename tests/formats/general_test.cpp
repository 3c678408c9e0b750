// The formats of libvips: what is written comes back, and damage is an error.
#include <gtest/gtest.h>

#include "formats/general.h"
#include "formats/page_files.h"
#include "tests/support/test_dib.h"

namespace rastrel::formats {
namespace {

using rastrel::testing::TestDib;

TEST(GeneralFormats, LoseNothingUnlessAskedAndRefuseWhatIsCutShort) {
  for (const Format* format : {&kJp2, &kWebp}) {
    for (const int bits : {1, 8, 24}) {
      SCOPED_TRACE(::testing::Message() << format->name << ", " << bits << " bits");
      const Dib page = NormalisePage(Dib(TestDib::Random(bits, 61, 43, /*seed=*/5).Release()));
      PageView(page).header().biXPelsPerMeter = 11811;
      PageView(page).header().biYPelsPerMeter = 70001;  // more than 16 bits hold
      OutputPages output(std::nullopt, *format, {});
      Metadata metadata;
      const std::string xmp = "<x:xmpmeta/>";
      metadata.Set("xmp", {reinterpret_cast<const uint8_t*>(xmp.data()), xmp.size()});
      output.Append(page, metadata);
      const std::vector<uint8_t> bytes = output.FinishInMemory();
      Metadata found;
      const Dib copy = InputPages(std::span<const uint8_t>(bytes)).Read(0, &found);
      const PageView was(page), is(copy);
      ASSERT_EQ(was.width(), is.width());
      for (int y = 0; y < was.height(); ++y) {
        for (int x = 0; x < was.width(); ++x) {
          const auto colourAt = [&](const PageView& view) {
            const uint8_t* row = view.PageRow(y);
            if (view.bits() == 24) return row[3 * x] | row[3 * x + 1] << 8 | row[3 * x + 2] << 16;
            const RGBQUAD colour = view.palette()[GetIndex(row, view.bits(), x)];
            return colour.rgbBlue | colour.rgbGreen << 8 | colour.rgbRed << 16;
          };
          ASSERT_EQ(colourAt(was), colourAt(is)) << x << ", " << y;
        }
      }
      EXPECT_NE(nullptr, found.Find("xmp"));
      EXPECT_EQ(11811, is.resolution().x);
      EXPECT_EQ(format == &kJp2 ? 70000 : 70001, is.resolution().y);
      const std::span<const uint8_t> cut = std::span(bytes).first(bytes.size() / 2);
      EXPECT_THROW(InputPages(cut).Read(0, nullptr), PageError);
    }
  }
}

// Told to have 4 bits, black and white of 8 bits lie beyond both ends.
TEST(GeneralFormats, FewBitsReachFromBlackToWhite) {
  const Dib page = NormalisePage(Dib(TestDib::Random(1, 61, 43, /*seed=*/5).Release()));
  OutputPages output(std::nullopt, kJp2, {});
  output.Append(page, {});
  std::vector<uint8_t> bytes = output.FinishInMemory();
  constexpr uint8_t kStartAndSize[] = {0xFF, 0x4F, 0xFF, 0x51};
  constexpr ptrdiff_t kDepthAt = 42;
  *(std::search(bytes.begin(), bytes.end(), std::begin(kStartAndSize), std::end(kStartAndSize)) + kDepthAt) =
      3;
  Metadata found;
  const Dib copy = InputPages(std::span<const uint8_t>(bytes)).Read(0, &found);
  EXPECT_EQ("4", found.TextOf("depth"));
  const PageView was(page), is(copy);
  for (int x = 0; x < was.width(); ++x)
    EXPECT_EQ(was.palette()[GetIndex(was.PageRow(0), 1, x)].rgbRed, is.PageRow(0)[x]) << x;
}

}  // namespace
}  // namespace rastrel::formats
