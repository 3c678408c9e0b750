// PDF files: what is written is read back the same and passes qpdf's check; of others' files a scanned image
// comes as it is stored, in the direction in which the page shows it, and everything else is drawn.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

#include "formats/page_files.h"
#include "formats/pdf_library.h"
#include "formats/system.h"
#include "tests/support/test_dib.h"

namespace rastrel::formats {
namespace {

namespace fs = std::filesystem;
using rastrel::testing::TestDib;
using ::testing::HasSubstr;

std::string TextOf(const Metadata& metadata, std::string_view item) {
  const Metadata::Item* found = metadata.Find(item);
  return found != nullptr ? std::string(found->bytes.begin(), found->bytes.end()) : "";
}

void SetText(Metadata* metadata, std::string_view item, std::string_view text) {
  metadata->Set(item, {reinterpret_cast<const uint8_t*>(text.data()), text.size()});
}

// Rows from the top as 0xRRGGBB.
std::vector<uint32_t> ColoursOf(const Dib& page) {
  const PageView view(page);
  std::vector<uint32_t> colours;
  for (int y = 0; y < view.height(); ++y) {
    const uint8_t* row = view.PageRow(y);
    for (int x = 0; x < view.width(); ++x) {
      RGBQUAD c{};
      if (view.bits() == 24) {
        c = {row[3 * x], row[3 * x + 1], row[3 * x + 2], 0};
      } else {
        c = view.palette()[GetIndex(row, view.bits(), x)];
      }
      colours.push_back(c.rgbRed * 65536u + c.rgbGreen * 256u + c.rgbBlue);
    }
  }
  return colours;
}

Dib RandomPage(int bits, int width, int height, bool isColoured = false) {
  Dib page = NormalisePage(Dib(TestDib::Random(bits, width, height, static_cast<unsigned>(width)).Release()));
  const PageView view(page);
  for (size_t i = 0; isColoured && i < view.palette().size(); ++i)
    view.palette()[i] = {static_cast<uint8_t>(i * 31 + 1), static_cast<uint8_t>(i * 7),
                         static_cast<uint8_t>(200 - i), 0};
  return page;
}

std::vector<uint8_t> Written(std::span<const Dib> pages, const Metadata& metadata,
                             const std::string& options = "") {
  OutputPages output(std::nullopt, *FindFormat("pdf"), Options(FindFormat("pdf")->options, options));
  for (const Dib& page : pages) output.Append(page, metadata);
  return output.FinishInMemory();
}

// What qpdf, the program, finds wrong; empty for nothing.
std::string CheckedByQpdf(std::span<const uint8_t> pdf) {
  BorrowedBytes bytes(pdf);
  try {
    const std::vector<uint8_t> text = RunProgram({"qpdf", "--check", kInputName}, &bytes, {.bytes = 1 << 16});
    const std::string said(text.begin(), text.end());
    return said.find("File is linearized") != std::string::npos ? "" : said;
  } catch (const PageError& error) {
    return error.what();
  }
}

TEST(Pdf, PagesComeBackAsTheyWereWithWhatIsSaidOfThem) {
  std::vector<Dib> pages;
  for (const int bits : {1, 4, 8, 24}) {
    for (const bool isColoured : {false, true}) pages.push_back(RandomPage(bits, 33 + bits, 9, isColoured));
  }
  Metadata metadata;
  for (const auto& [item, text] : {std::pair{"document", "Letters & <more>"},
                                   {"artist", "Jos\xC3\xA9"},
                                   {"description", "two"},
                                   {"copyright", "none < some"},
                                   {"date", "2001:02:03 04:05:06"},
                                   {"keywords", "a, b"},
                                   {"software", "scanner 1"},
                                   {"page-name", "iv"}})
    SetText(&metadata, item, text);
  for (const char* options : {"", "pdfa=2b"}) {
    SCOPED_TRACE(options);
    const std::vector<uint8_t> pdf = Written(pages, metadata, options);
    EXPECT_EQ(pdf, Written(pages, metadata, options));  // no clock, no chance
    EXPECT_EQ("", CheckedByQpdf(pdf));
    const InputPages file{std::span<const uint8_t>(pdf)};
    ASSERT_EQ(pages.size(), file.count());
    for (size_t i = 0; i < pages.size(); ++i) {
      SCOPED_TRACE(i);
      Metadata found;
      const Dib page = file.Read(i, &found);
      EXPECT_EQ(ColoursOf(pages[i]), ColoursOf(page));
      EXPECT_EQ(PageView(pages[i]).bits(), PageView(page).bits());
      EXPECT_EQ(PageView(pages[i]).resolution().x, PageView(page).resolution().x);
      const PageInfo told = file.Describe(i);
      EXPECT_EQ(std::pair(PageView(page).width(), PageView(page).bits()),
                std::pair(int{told.width}, int{told.bits}));
      for (const Metadata::Item& item : metadata.items())
        EXPECT_EQ(TextOf(metadata, item.name), TextOf(found, item.name)) << item.name;
      EXPECT_EQ("", TextOf(found, "reduced"));
    }
  }
}

// Black and red letters and a smooth picture on tinted paper: the letters come back in their places and
// colours, the rest nearly as it was.
TEST(Pdf, MixedPagesKeepTextSharpOverASmallBackground) {
  constexpr int kWidth = 900, kHeight = 1000, kLetters = 500;
  constexpr int32_t kDots300 = 11811;
  const Dib page = MakePage(kWidth, kHeight, 24, {kDots300, kDots300});
  const PageView view(page);
  const auto isLetter = [](int x, int y) {
    return y > 60 && y < kLetters - 40 && x > 80 && x < 800 && y % 50 < 30 && x % 24 < 16 &&
           (x % 24 < 4 || y % 50 < 5);
  };
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const bool isPicture = y > kLetters && y < kHeight - 60 && x > 80 && x < 800;
      const Ink ink = isLetter(x, y) ? (y < 250 ? Ink{{20, 20, 20}} : Ink{{30, 20, 190}})
                      : isPicture
                          ? Ink{{static_cast<uint8_t>(60 + x / 8), 90, static_cast<uint8_t>(60 + y / 10)}}
                          : Ink{{215, 235, 240}};
      PaintRow(view, y, x, x + 1, ink);
    }
  }
  const std::vector<uint8_t> mixed = Written({&page, 1}, {}, "layers=mixed");
  EXPECT_EQ("", CheckedByQpdf(mixed));
  EXPECT_LT(mixed.size() * 2, Written({&page, 1}, {}, "quality=75").size());
  const Dib drawn = InputPages(std::span<const uint8_t>(mixed)).Read(0, nullptr);
  ASSERT_EQ(kWidth, PageView(drawn).width());
  const std::vector<uint32_t> before = ColoursOf(page), after = ColoursOf(drawn);
  int wrong[2] = {0, 0};  // samples of what is not text, and of text
  for (int y = 1; y + 1 < kHeight; ++y) {
    for (int x = 1; x + 1 < kWidth; ++x) {
      const bool isText = isLetter(x, y);
      if (isLetter(x - 1, y - 1) != isText || isLetter(x + 1, y + 1) != isText) continue;  // drawn smoothly
      const auto at = static_cast<size_t>(y * kWidth + x);
      for (const int shift : {0, 8, 16}) {
        const auto sample = [&](uint32_t colour) { return static_cast<int>(colour >> shift & 255); };
        wrong[isText] += std::abs(sample(before[at]) - sample(after[at])) > 40;
      }
    }
  }
  EXPECT_EQ(0, wrong[1]);
  EXPECT_LE(wrong[0], kWidth * kHeight / 100);  // the picture's edge

  const Dib coarse = Duplicate(page);  // said to be of 100 dpi: nothing is gained there
  PageView(coarse).header().biXPelsPerMeter = PageView(coarse).header().biYPelsPerMeter = kDots300 / 3;
  EXPECT_EQ(Written({&coarse, 1}, {}, "layers=mixed"), Written({&coarse, 1}, {}));
}

TEST(Pdf, ArchivalFilesSayWhatTheyAreAndWhatTheirColoursMean) {
  const Dib pages[] = {RandomPage(24, 20, 9)};
  const std::vector<uint8_t> pdf = Written(pages, {}, "pdfa=2b");
  const std::string text(pdf.begin(), pdf.end());
  for (const char* part :
       {"%PDF-1.7", "<pdfaid:part>2</pdfaid:part>", "<pdfaid:conformance>B</pdfaid:conformance>",
        "/GTS_PDFA1", "/DestOutputProfile", "/ID ["})
    EXPECT_THAT(text, HasSubstr(part));
  EXPECT_THROW(Written(pages, {}, "pdfa=1a"), PageError);
}

// ---- others' files ----------------------------------------------------------------------------------------

// A file of one page: its own entries, what it draws, the objects after it (from 5 on), and a picture's
// dictionary and bytes as /Im.
struct Drawn {
  std::string page = "/MediaBox [0 0 144 72]";
  std::string content = "q 144 0 0 72 0 0 cm /Im Do Q";
  std::string picture = "/Width 2 /Height 1 /BitsPerComponent 8 /ColorSpace /DeviceGray";
  std::string bytes = "\x20\xC0";
  std::string catalogue = {};
  std::vector<std::string> others = {};  // objects from 6 on
};

std::string FileOf(const Drawn& drawn) {
  const auto stream = [](const std::string& dictionary, const std::string& bytes) {
    return "<<" + dictionary + "/Length " + std::to_string(bytes.size()) + ">>stream\n" + bytes +
           "\nendstream";
  };
  std::vector<std::string> objects = {
      "<</Type/Catalog/Pages 2 0 R" + drawn.catalogue + ">>", "<</Type/Pages/Kids[3 0 R]/Count 1>>",
      "<</Type/Page/Parent 2 0 R/Contents 4 0 R/Resources<</XObject<</Im 5 0 "
      "R/Other 5 0 R/Form 6 0 R>>/Properties<</Layer 6 0 R>>/Font<</F <</Type/Font"
      "/Subtype/Type1/BaseFont/Helvetica>>>>>>" +
          drawn.page + ">>",
      stream("", drawn.content), stream("/Type/XObject/Subtype/Image" + drawn.picture, drawn.bytes)};
  objects.insert(objects.end(), drawn.others.begin(), drawn.others.end());
  std::string file = "%PDF-1.4\n", table = "0000000000 65535 f \n";
  for (size_t i = 0; i < objects.size(); ++i) {
    char entry[24];
    std::snprintf(entry, sizeof(entry), "%010zu 00000 n \n", file.size());
    table += entry;
    file += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
  }
  const std::string start = std::to_string(file.size());
  const std::string count = std::to_string(objects.size() + 1);
  return file + "xref\n0 " + count + "\n" + table + "trailer <</Size " + count +
         "/Root 1 0 R>>\nstartxref\n" + start + "\n%%EOF\n";
}

struct ReadBack {
  Dib page;
  Metadata metadata;
};
ReadBack Read(const std::string& file) {
  const InputPages pages{std::span(reinterpret_cast<const uint8_t*>(file.data()), file.size())};
  pages.Describe(0);
  ReadBack back;
  back.page = pages.Read(0, &back.metadata);
  return back;
}

struct Direction {
  const char* name;
  const char* matrix;
  int rotate;
  std::vector<uint32_t> expected;  // of pixels A B / C D
  int across, down;                // dots per inch
};

class PdfPicture2x2 : public ::testing::TestWithParam<Direction> {};

// The page is 144 x 72 points, the picture 2 x 2 pixels: 1 dot per inch across, 2 down.
TEST_P(PdfPicture2x2, LiesAsThePageShowsIt) {
  const Direction& test = GetParam();
  Drawn drawn;
  drawn.page += "/Rotate " + std::to_string(test.rotate);
  drawn.content = std::string("q ") + test.matrix + " cm /Im Do Q";
  drawn.picture = "/Width 2 /Height 2 /BitsPerComponent 8 /ColorSpace /DeviceGray";
  drawn.bytes = "\x0A\x0B\x0C\x0D";
  const ReadBack back = Read(FileOf(drawn));
  std::vector<uint32_t> expected;
  for (const uint32_t grey : test.expected) expected.push_back(grey * 0x10101);
  EXPECT_EQ(expected, ColoursOf(back.page));
  const Resolution resolution = PageView(back.page).resolution();
  EXPECT_NEAR(test.across, DotsPerInch(resolution.x), 0.02);
  EXPECT_NEAR(test.down, DotsPerInch(resolution.y), 0.02);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(All, PdfPicture2x2, ::testing::Values(
    Direction{"Upright", "144 0 0 72 0 0", 0, {10, 11, 12, 13}, 1, 2},
    Direction{"ClockwiseByThePage", "144 0 0 72 0 0", 90, {12, 10, 13, 11}, 2, 1},
    Direction{"HalfTurn", "144 0 0 72 0 0", 180, {13, 12, 11, 10}, 1, 2},
    Direction{"ThreeQuarters", "144 0 0 72 0 0", -90, {11, 13, 10, 12}, 2, 1},
    Direction{"Mirrored", "-144 0 0 72 144 0", 0, {11, 10, 13, 12}, 1, 2},
    Direction{"UpsideDown", "144 0 0 -72 0 72", 0, {12, 13, 10, 11}, 1, 2},
    Direction{"CounterClockwiseByMatrix", "0 72 -144 0 144 0", 0, {11, 13, 10, 12}, 1, 2},
    Direction{"BackByThePage", "0 72 -144 0 144 0", 90, {10, 11, 12, 13}, 2, 1},
    Direction{"Transposed", "0 -72 -144 0 144 72", 0, {10, 12, 11, 13}, 1, 2}),
    [](const auto& test) { return test.param.name; });
// clang-format on

struct Stored {
  const char* name;
  const char* picture;
  std::string bytes;
  std::vector<uint32_t> expected;
  const char* reduced = "";
};

class PdfSamples : public ::testing::TestWithParam<Stored> {};

TEST_P(PdfSamples, ComeAsTheyAreStored) {
  Drawn drawn;
  drawn.picture = std::string("/Width 2 /Height 1") + GetParam().picture;
  drawn.bytes = GetParam().bytes;
  const ReadBack back = Read(FileOf(drawn));
  EXPECT_EQ(GetParam().expected, ColoursOf(back.page));
  EXPECT_EQ(GetParam().reduced, TextOf(back.metadata, "reduced"));
}

using namespace std::string_literals;
// clang-format off
INSTANTIATE_TEST_SUITE_P(All, PdfSamples, ::testing::Values(
    Stored{"Bit", "/BitsPerComponent 1/ColorSpace/DeviceGray", "\x40", {0x000000, 0xFFFFFF}},
    Stored{"BitInverted", "/BitsPerComponent 1/ColorSpace/DeviceGray/Decode[1 0]", "\x40", {0xFFFFFF, 0x000000}},
    Stored{"Stencil", "/ImageMask true", "\x40", {0x000000, 0xFFFFFF}},
    Stored{"TwoBits", "/BitsPerComponent 2/ColorSpace/DeviceGray", "\x60", {0x555555, 0xAAAAAA}},
    Stored{"Palette", "/BitsPerComponent 4/ColorSpace[/Indexed/DeviceRGB 1<010203 F0E0D0>]", "\x10", {0xF0E0D0, 0x010203}},
    Stored{"Rgb", "/BitsPerComponent 8/ColorSpace/DeviceRGB", "\1\2\3\4\5\6", {0x010203, 0x040506}},
    Stored{"Calibrated", "/BitsPerComponent 8/ColorSpace[/CalRGB<</WhitePoint[0.95 1 1.09]>>]", "\1\2\3\4\5\6", {0x010203, 0x040506},
           "calibration of its colours left out"},
    Stored{"Cmyk", "/BitsPerComponent 8/ColorSpace/DeviceCMYK", "\xFF\0\0\0\0\0\0\xFF"s, {0x00FFFF, 0x000000}, "CMYK to RGB"},
    Stored{"Sixteen", "/BitsPerComponent 16/ColorSpace/DeviceGray", "\x12\x99\x34\x99", {0x121212, 0x343434}, "16 bits to 8"},
    Stored{"Hexadecimal", "/BitsPerComponent 8/ColorSpace/DeviceGray/Filter/ASCIIHexDecode", "20 C0>", {0x202020, 0xC0C0C0}},
    Stored{"RunLengths", "/BitsPerComponent 8/ColorSpace/DeviceGray/Filter[/ASCIIHexDecode/RunLengthDecode]", "FF 20 80>",
           {0x202020, 0x202020}},
    // Group 4: a row of one white and one black pixel is horizontal 001, white 1 000111, black 1 010; then the end.
    Stored{"Group4", "/BitsPerComponent 1/ColorSpace/DeviceGray/Filter/CCITTFaxDecode/DecodeParms<</K -1/Columns 2/Rows 1>>",
           "\x23\xA0\x01\x00\x10"s, {0xFFFFFF, 0x000000}},
    Stored{"Group4Black1", "/BitsPerComponent 1/ColorSpace/DeviceGray/Filter/CCITTFaxDecode"
           "/DecodeParms<</K -1/Columns 2/Rows 1/BlackIs1 true>>", "\x23\xA0\x01\x00\x10"s, {0x000000, 0xFFFFFF}}),
    [](const auto& test) { return test.param.name; });
// clang-format on

struct Beside {
  const char* content;  // %: the usual picture
  const char* reduced;
  const char* page = "/MediaBox [0 0 144 72]";
};

// 72 points of 144 are drawn at 20 dots per inch: 40 x 20 pixels. A picture as stored has 2.
TEST(Pdf, PagesWithMoreThanAScannedImageAreDrawnAndOthersSayWhatIsLeftOut) {
  const std::string picture = "q 144 0 0 72 0 0 cm /Im Do Q ";
  const Beside cases[] = {
      {"% BT /F 9 Tf 3 Tr 9 9 Td (found) Tj ET", "hidden text left out"},
      {"BT /F 9 Tf 9 9 Td (under) Tj ET %", "hidden text left out"},
      {"1 g 0 0 144 72 re f %", ""},
      {"q 0 0 144 72 re W n % Q", ""},
      {"q 110 0 0 60 10 5 cm /Im Do Q", "blank margins of the page left out"},
      {"% BT /F 9 Tf 9 9 Td (over) Tj ET", "drawn at 20 dpi: it has more than a picture"},
      {"% 10 10 30 20 re f", "drawn at 20 dpi: it has more than a picture"},
      {"% %", "drawn at 20 dpi: it has several pictures"},
      {"0 0 50 50 re f", "drawn at 20 dpi: it has no picture"},
      {"0 0 50 50 re f", "drawn at 20 dpi: it has no picture",
       "/MediaBox [0 0 288 144]/CropBox [0 0 144 72]"},
      {"0 0 50 50 re f", "drawn at 20 dpi: it has no picture",
       "/MediaBox [0 0 144 72]/CropBox [500 500 600 600]"},
      {"0 0 50 50 re f", "drawn at 20 dpi: it has no picture", "/MediaBox [0 0 72 36]/UserUnit 2"},
      {"0 0 50 50 re f", "drawn at 20 dpi: it has no picture", "/MediaBox [0 0 144 72]/Annots[<<>>]"},
      {"%", "annotations left out", "/MediaBox [0 0 144 72]/Annots[<<>>]"},
      {"q 20 0 0 20 9 9 cm /Im Do Q", "drawn at 20 dpi: its picture covers little of it"},
      {"q 0 0 70 72 re W n % Q", "drawn at 20 dpi: its picture is not shown whole"},
      {"q 130 7 -9 60 11 2 cm /Im Do Q", "drawn at 20 dpi: its picture is not straight"},
      {"q 288 0 0 144 0 0 cm /Im Do Q", "drawn at 20 dpi: its picture is not shown whole"}};
  for (const Beside& test : cases) {
    SCOPED_TRACE(test.content);
    Drawn drawn;
    drawn.page = test.page;
    drawn.content = test.content;
    for (size_t at; (at = drawn.content.find('%')) != std::string::npos;)
      drawn.content.replace(at, 1, picture);
    const std::string file = FileOf(drawn);
    InputPages pages{std::span(reinterpret_cast<const uint8_t*>(file.data()), file.size())};
    pages.SetOptions({.dpi = 20});
    Metadata metadata;
    const Dib page = pages.Read(0, &metadata);
    EXPECT_EQ(test.reduced, TextOf(metadata, "reduced"));
    const bool isDrawn = std::string_view(test.reduced).starts_with("drawn");
    EXPECT_EQ(isDrawn ? 40 : 2, PageView(page).width());
    const double dpi = DotsPerInch(PageView(page).resolution().x);
    EXPECT_TRUE(!isDrawn || (dpi > 19.9 && dpi < 20.1)) << dpi;
  }
}

TEST(Pdf, LayersAreDrawnAsTheFileHasThem) {
  for (const bool isOn : {false, true}) {
    Drawn drawn;
    drawn.content = "/OC /Layer BDC 0 g 0 0 144 72 re f EMC";
    drawn.catalogue = "/OCProperties<</OCGs[6 0 R]/D<<" + std::string(isOn ? "" : "/OFF[6 0 R]") + ">>>>";
    drawn.others = {"<</Type/OCG/Name(Layer)>>"};
    EXPECT_EQ(isOn ? 0u : 0xFFFFFFu, ColoursOf(Read(FileOf(drawn)).page).at(5000)) << isOn;
  }
}

TEST(Pdf, PagesThatCannotBeDrawnWholeOrInTimeAreErrors) {
  Drawn broken;
  broken.picture += "/Filter/FlateDecode";
  broken.bytes = "\x78\x9C nothing that could be inflated";
  broken.content += " q 9 0 0 9 0 0 cm /Im Do Q";
  EXPECT_THROW(Read(FileOf(broken)), PageError);
  // Five forms, each of which draws the next a hundred times.
  Drawn bomb;
  bomb.content = "/Form Do";
  for (int i = 0; i < 5; ++i) {
    std::string body;
    for (int n = 0; n < 100; ++n) body += "/Form Do 0 0 9 9 re f ";
    bomb.others.push_back("<</Type/XObject/Subtype/Form/BBox[0 0 144 72]/Resources<</XObject<</Form " +
                          std::to_string(i == 4 ? 99 : i + 7) + " 0 R>>>>/Length " +
                          std::to_string(body.size()) + ">>stream\n" + body + "\nendstream");
  }
  const std::string file = FileOf(bomb);
  const auto start = std::chrono::steady_clock::now();
  InputPages pages{std::span(reinterpret_cast<const uint8_t*>(file.data()), file.size())};
  pages.SetOptions({.dpi = 20, .mostSeconds = 1});
  EXPECT_THROW(pages.Read(0, nullptr), PageError);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
}

TEST(Pdf, HostileFilesEndInAnErrorOrAPageOfTheSizeThatIsTold) {
  const Dib pages[] = {RandomPage(1, 33, 9), RandomPage(24, 33, 9)};
  std::vector<uint8_t> own = Written(pages, {});
  Drawn huge;
  huge.picture = "/Width 60000 /Height 60000 /BitsPerComponent 8 /ColorSpace /DeviceGray";
  Drawn loop;
  loop.page += "/Annots[3 0 R]/Resources 3 0 R";
  for (const std::string& file : {FileOf(huge), std::string("%PDF-1.4\nnothing")})
    EXPECT_THROW(Read(file), PageError);
  const std::string looped = FileOf(loop);
  const InputPages ends{std::span(reinterpret_cast<const uint8_t*>(looped.data()), looped.size())};
  EXPECT_GT(ends.Describe(0).width, 0);
  std::mt19937 random(1);
  const std::string drawn = FileOf({});
  for (int round = 0; round < 400; ++round) {
    std::vector<uint8_t> wrong = round % 2 == 0 ? own : std::vector<uint8_t>(drawn.begin(), drawn.end());
    if (round % 4 < 2) wrong.resize(random() % wrong.size() + 5);
    for (int i = 0; i < 1 + round % 3; ++i)
      wrong[5 + random() % (wrong.size() - 5)] = static_cast<uint8_t>(random());
    try {
      const InputPages file{std::span<const uint8_t>(wrong)};
      for (size_t i = 0; i < file.count(); ++i) {
        const PageInfo told = file.Describe(i);
        if (told.bits == 24 && told.width > 100) continue;  // would be drawn, by a program
        file.Read(i, nullptr);
      }
    } catch (const PageError&) {
    }
  }
}

}  // namespace
}  // namespace rastrel::formats
