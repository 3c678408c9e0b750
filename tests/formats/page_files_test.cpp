// Reading and writing of page files: what is written reads back the same, every layout that others write is
// understood, and damaged or lying files end in an error, never in a wrong picture.
#include "formats/page_files.h"

#include "formats/exif.h"
#include "formats/raw_page.h"
#include "formats/tiff_document.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <tiffio.h>
#include <unistd.h>

#include <cstdio>  // jpeglib.h needs it first
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

#include <jpeglib.h>

#include "tests/support/test_dib.h"

namespace rastrel::formats {
namespace {

namespace fs = std::filesystem;
using rastrel::testing::Pixel;
using rastrel::testing::TestDib;

class Folder {
 public:
  Folder() : path_(fs::temp_directory_path() / ("rastrel-" + std::to_string(::getpid()))) {
    fs::create_directories(path_);
  }
  ~Folder() { fs::remove_all(path_); }
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }
  size_t count() const { return static_cast<size_t>(std::distance(fs::directory_iterator(path_), {})); }

 private:
  fs::path path_;
};

std::string ReadBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// Colours of the visible pixels from the top left, 0xRRGGBB.
std::vector<Pixel> Colours(const Dib& dib) {
  const PageView page(dib);
  std::vector<Pixel> colours;
  for (int y = 0; y < page.height(); ++y) {
    const uint8_t* row = page.PageRow(y);
    for (int x = 0; x < page.width(); ++x) {
      if (page.bits() == 24) {
        colours.push_back(row[3 * x] | row[3 * x + 1] << 8 | row[3 * x + 2] << 16);
        continue;
      }
      const int perByte = 8 / page.bits();
      const int index =
          row[x / perByte] >> (perByte - 1 - x % perByte) * page.bits() & ((1 << page.bits()) - 1);
      const RGBQUAD entry = page.palette()[static_cast<size_t>(index)];
      colours.push_back(static_cast<Pixel>(entry.rgbBlue | entry.rgbGreen << 8 | entry.rgbRed << 16));
    }
  }
  return colours;
}

Dib RandomPage(int bits, int width, int height, bool isColoured = false) {
  Dib page = NormalisePage(Dib(TestDib::Random(bits, width, height, static_cast<unsigned>(width)).Release()));
  uint8_t seed = 7;
  if (isColoured) {
    for (RGBQUAD& entry : PageView(page).palette()) {
      entry = {seed, static_cast<uint8_t>(seed * 3), static_cast<uint8_t>(200 - seed), 0};
      seed = static_cast<uint8_t>(seed * 5 + 1);
    }
  }
  return page;
}

void Write(std::span<const Dib> pages, const std::string& path, const std::string& options = "") {
  const Format& format = FormatToWrite(nullptr, path);
  OutputPages output(path, format, Options(format.options, options));
  for (const Dib& page : pages) output.Append(page, {});
  output.Finish();
}
void Write(const Dib& page, const std::string& path, const std::string& options = "") {
  Write(std::span(&page, 1), path, options);
}

Dib Read(const std::string& path, size_t page = 0) { return InputPages(path).Read(page, nullptr); }

TEST(PageFiles, ReadBackAsTheyWereWrittenAtWidthsAroundByteAndWordEdges) {
  const Folder folder;
  for (const std::string ending : {"bmp", "tif", "png"}) {
    for (const int bits : {1, 4, 8, 24}) {
      for (const int width : {1, 7, 8, 9, 31, 32, 33, 100}) {
        for (const bool isColoured : {false, true}) {
          SCOPED_TRACE(::testing::Message() << ending << ", " << bits << " bits, width " << width);
          const Dib page = RandomPage(bits, width, 5, isColoured);
          Write(page, folder / ("page." + ending));
          const Dib copy = Read(folder / ("page." + ending));
          EXPECT_EQ(Colours(page), Colours(copy));
          EXPECT_EQ(bits, PageView(copy).bits());
          const PageInfo told = InputPages(folder / ("page." + ending)).Describe(0);
          EXPECT_EQ(std::tuple(width, 5, bits, int{HasGreyRamp(PageView(copy))}),
                    std::tuple(told.width, told.height, told.bits, told.isGrey));
          EXPECT_NEAR(11811, PageView(copy).resolution().x, 1);  // 300 dpi
          EXPECT_NEAR(11811, PageView(copy).resolution().y, 1);
        }
      }
    }
  }
}

TEST(PageFiles, TiffDocumentsHoldPagesOfAllKindsInOrder) {
  const Folder folder;
  const int depths[] = {1, 24, 8, 4, 1};
  std::vector<Dib> pages;
  for (const int bits : depths) pages.push_back(RandomPage(bits, 300, 400, bits == 4));
  Write(pages, folder / "all.tif");
  ASSERT_EQ(5u, InputPages(folder / "all.tif").count());
  for (size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(Colours(RandomPage(depths[i], 300, 400, depths[i] == 4)), Colours(Read(folder / "all.tif", i)))
        << i;
  }
}

TEST(PageFiles, JpegInTiffIsCloseToTheOriginal) {
  const Folder folder;
  for (const int bits : {8, 24}) {
    const Dib page = RandomPage(bits, 300, 200);
    for (uint8_t& byte : PageView(page).pixels()) byte = 90;  // a flat page has little to lose
    Write(page, folder / "lossy.tif", "quality=90");
    const std::vector<Pixel> colours = Colours(Read(folder / "lossy.tif"));
    ASSERT_EQ(60000u, colours.size());
    for (const Pixel colour : colours) {
      for (const int shift : {0, 8, 16}) ASSERT_NEAR(90, colour >> shift & 255, 3) << bits << " bits";
    }
  }
}

// ---- what pages bring beside their pixels
// ------------------------------------------------------------------

std::string TextOf(const Metadata& metadata, const std::string& item) {
  const Metadata::Item* found = metadata.Find(item);
  return found != nullptr ? std::string(found->bytes.begin(), found->bytes.end()) : "(none)";
}

// A header, a table of one tag, and its 256 bytes: libpng takes what shrinks to fewer than 92 for no profile.
std::string Profile(const std::string& space) {
  std::string profile(144, '\0');
  profile[2] = 1;
  profile[3] = static_cast<char>(400 - 256);
  profile[8] = 4;
  profile.replace(12, 4, "mntr").replace(16, 4, space).replace(20, 4, "XYZ ").replace(36, 4, "acsp");
  profile.replace(68, 12, std::string("\0\0\xF6\xD6\0\1\0\0\0\0\xD3\x2D", 12));  // D50
  profile.replace(128, 16, std::string("\0\0\0\1cprt\0\0\0\x90\0\0\1\0", 16));
  for (int i = 0; i < 256; ++i) profile += static_cast<char>(i * 167 + 13);
  return profile;
}

TEST(Metadata, GoesIntoFilesAndComesBack) {
  using namespace std::string_literals;
  // One entry, the version, in a directory that the first one points to; TIFF files lay them out anew.
  const std::string version =
      "\0\x90\7\0\4\0\0\0"
      "0232"s;
  const std::string exif =
      "II\x2A\0\x08\0\0\0\1\0\x69\x87\4\0\1\0\0\0\x1A\0\0\0\0\0\0\0\1\0"s + version + "\0\0\0\0"s;
  // 72 dots per inch and lying on its side, in the other order of bytes.
  const std::string stale =
      "MM\0\x2A\0\0\0\x08\0\2\1\x12\0\3\0\0\0\1\0\6\0\0\1\x1A\0\5\0\0\0\1\0\0\0\x26\0\0\0\0"
      "\0\0\0\x48\0\0\0\1"s;
  // The host computer, which only TIFF files tell.
  const std::string host = "II\x2A\0\x08\0\0\0\1\0\x3C\1\2\0\4\0\0\0abc\0\0\0\0\0"s;
  const Folder folder;
  const std::pair<std::string, std::string> items[] = {{"icc", Profile("RGB ")},
                                                       {"xmp", "<x:xmpmeta/>"},
                                                       {"description",
                                                        "Stra\xC3\x9F"
                                                        "e"},
                                                       {"artist", "N. N."},
                                                       {"copyright", "none"},
                                                       {"date", "2001:02:03 04:05:06"},
                                                       {"document", "Letters"},
                                                       {"software", "scanner 1"},
                                                       {"page-name", "iv"},
                                                       {"page-number", "3/9"},
                                                       {"photoshop", "8BIM"},
                                                       {"iptc",
                                                        "\x1C\x02\x05\0\x03"
                                                        "abc"s},
                                                       {"make", "Scanners"},
                                                       {"model", "S 1"},
                                                       {"comment", "said"},
                                                       {"texts", "Source\0here\0Warning\0none\0"s},
                                                       {"tiff", host},
                                                       {"exif", exif}};
  Metadata metadata;
  for (const auto& [name, text] : items)
    metadata.Set(name, {reinterpret_cast<const uint8_t*>(text.data()), text.size()});
  const auto written = [&](const std::string& ending) {
    const std::string path = folder / ("page." + ending);
    OutputPages output(path, *FindFormat(ending), {});
    output.Append(RandomPage(24, 20, 10), metadata);
    output.Finish();
    Metadata found;
    InputPages(path).Read(0, &found);
    return found;
  };
  for (const std::string ending : {"tif", "png", "jpg"}) {
    const Metadata found = written(ending);
    const std::string kept = "," + std::string(FindFormat(ending)->metadata) + ",";
    for (const auto& [name, text] : items) {
      const bool isKept = kept.find("," + name + ",") != std::string::npos;
      if (isKept && name == "exif") {
        EXPECT_NE(std::string::npos, TextOf(found, name).find(version)) << ending;
      } else {
        EXPECT_EQ(isKept ? text : "(none)", TextOf(found, name)) << ending << ' ' << name;
      }
    }
  }
  // What EXIF says of how the page lies is of the page as it is written.
  metadata.Set("exif", {reinterpret_cast<const uint8_t*>(stale.data()), stale.size()});
  for (const char* ending : {"png", "jpg"}) {
    const Metadata found = written(ending);
    const ExifLie lie = ReadExif(found.Find("exif")->bytes);
    EXPECT_EQ(1, lie.orientation) << ending;
    EXPECT_NEAR(11811, lie.resolution.x, 1) << ending;
    EXPECT_NEAR(11811, lie.resolution.y, 1) << ending;
  }
}

// As other programs write them, over a file of ours: what no page has is told, blocks without a chunk of
// their own are found.
TEST(ReadPng, TellsWhatItLeavesOut) {
  using namespace std::string_literals;
  const Folder folder;
  Write(RandomPage(8, 20, 10), folder / "page.png");
  const struct {
    std::string chunk, item, expected;
  } cases[] = {
      {"gAMA\0\1\x86\xA0"s, "calibration", "100000 0 0 0 0 0 0 0 0"},
      {"gAMA\0\0\xB1\x8F"s, "calibration", "(none)"},
      {"cHRM\0\0\x80\xE8\0\0\x80\xE8\0\0\xFA\0\0\0\x80\xE8\0\0\x52\x08\0\1\x15\x58\0\0\x3A\x98\0\0\x17\x70"s,
       "calibration", "0 33000 33000 64000 33000 21000 71000 15000 6000"},
      {"bKGD\0\0"s, "reduced", "(none)"},
      {"acTL\0\0\0\2\0\0\0\0"s, "reduced", "further frames left out"},
      {"pHYs\0\0\0\4\0\0\0\3\0"s, "reduced", "proportions of its pixels, which are no squares, left out"},
      {"tEXtAuthor\0Jos\xE9"s, "artist", "Jos\xC3\xA9"},
      {"tEXtSource\0here"s, "texts", "Source\0here\0"s},
      {"tEXtRaw profile type xmp\0\nxmp\n       4\n3c612f\n3e\n"s, "xmp", "<a/>"},
      {"tEXtRaw profile type iptc\0\niptc\n 5\n3842494d00"s, "photoshop", "8BIM\0"s}};
  // The file with the chunk after the header's 33 bytes instead of our own resolution's: length, chunk
  // and checksum.
  const auto readWith = [&](const std::string& own, const std::string& chunk, Metadata* found) {
    const auto number = [](uint32_t value) {
      return std::string{static_cast<char>(value >> 24), static_cast<char>(value >> 16),
                         static_cast<char>(value >> 8), static_cast<char>(value)};
    };
    uint32_t sum = ~0u;
    for (const char c : chunk) {
      sum ^= static_cast<uint8_t>(c);
      for (int bit = 0; bit < 8; ++bit) sum = sum >> 1 ^ (sum % 2 != 0 ? 0xEDB88320 : 0);
    }
    constexpr size_t kHeadBytes = 33, kResolutionBytes = 21;
    WriteBytes(folder / "other.png", own.substr(0, kHeadBytes) +
                                         number(static_cast<uint32_t>(chunk.size()) - 4) + chunk +
                                         number(~sum) + own.substr(kHeadBytes + kResolutionBytes));
    return InputPages(folder / "other.png").Read(0, found);
  };
  for (const auto& [chunk, item, expected] : cases) {
    Metadata found;
    readWith(ReadBytes(folder / "page.png"), chunk, &found);
    EXPECT_EQ(expected, TextOf(found, item)) << chunk;
    if (item == "reduced") continue;
    // What is no loss goes into the next file.
    OutputPages next(folder / "next.png", kPng, {});
    next.Append(RandomPage(8, 20, 10), found);
    next.Finish();
    Metadata again;
    InputPages(folder / "next.png").Read(0, &again);
    EXPECT_EQ(expected, TextOf(again, item)) << chunk;
  }
  // 40 of 255, 3 fifths of it, over white, whatever gamma is told.
  Raw clear;
  clear.width = clear.height = 1;
  clear.samples = 2;
  clear.extras = {EXTRASAMPLE_UNASSALPHA};
  clear.resolution = {100, 100};
  clear.bytes = {40, 153};
  OutputPages output(folder / "clear.png", kPng, {});
  output.AppendRaw(clear, {});
  output.Finish();
  for (const auto& [chunk, reduced] : {std::pair{"gAMA\0\0\xB1\x8F"s, "alpha laid over white"},
                                       {"bKGD\0\0"s, "alpha laid over white\nbackground colour left out"}}) {
    Metadata found;
    const Dib page = readWith(ReadBytes(folder / "clear.png"), chunk, &found);
    EXPECT_EQ(std::vector<Pixel>{0x7E7E7E}, Colours(page));
    EXPECT_EQ(reduced, TextOf(found, "reduced"));
    // As the file has it nothing becomes of its alpha.
    Metadata raw;
    InputPages(folder / "other.png").ReadRaw(0, &raw);
    EXPECT_EQ(chunk.starts_with("bKGD") ? "background colour left out" : "(none)", TextOf(raw, "reduced"));
  }
}

TEST(Metadata, HasNoProfileForOtherColours) {
  const Folder folder;
  Metadata metadata;
  const std::string profile = Profile("RGB ");
  metadata.Set("icc", {reinterpret_cast<const uint8_t*>(profile.data()), profile.size()});
  OutputPages output(folder / "grey.tif", kTiff, {});
  output.Append(RandomPage(8, 20, 10), metadata);
  output.Finish();
  Metadata found;
  InputPages(folder / "grey.tif").Read(0, &found);
  EXPECT_EQ("(none)", TextOf(found, "icc"));
}

// ---- what others write ------------------------------------------------------------------------------------

struct TiffCase {
  const char* name;
  uint16_t photometric, bits, samples, orientation;
  bool isTiled;
  std::vector<uint8_t> rows;  // 2 rows
  int width;
  std::vector<Pixel> expected;
  std::string reduced = "(none)";
  std::array<float, 2> white = {};
  uint16_t sampleFormat = SAMPLEFORMAT_UINT;
};

void WriteTiffCase(const TiffCase& test, const std::string& path) {
  TIFF* file = TIFFOpen(path.c_str(), "w");
  TIFFSetField(file, TIFFTAG_IMAGEWIDTH, test.width);
  TIFFSetField(file, TIFFTAG_IMAGELENGTH, 2);
  TIFFSetField(file, TIFFTAG_BITSPERSAMPLE, test.bits);
  TIFFSetField(file, TIFFTAG_SAMPLESPERPIXEL, test.samples);
  TIFFSetField(file, TIFFTAG_PHOTOMETRIC, test.photometric);
  TIFFSetField(file, TIFFTAG_ORIENTATION, test.orientation);
  TIFFSetField(file, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(file, TIFFTAG_COMPRESSION, test.isTiled ? COMPRESSION_LZW : COMPRESSION_NONE);
  if (test.white[0] > 0) TIFFSetField(file, TIFFTAG_WHITEPOINT, test.white.data());
  TIFFSetField(file, TIFFTAG_SAMPLEFORMAT, test.sampleFormat);
  if (test.samples == 4) {
    const uint16_t extra = EXTRASAMPLE_UNASSALPHA;
    TIFFSetField(file, TIFFTAG_EXTRASAMPLES, 1, &extra);
  }
  std::vector<uint8_t> rows = test.rows;
  const size_t rowBytes = rows.size() / 2;
  if (test.isTiled) {
    TIFFSetField(file, TIFFTAG_TILEWIDTH, 16);
    TIFFSetField(file, TIFFTAG_TILELENGTH, 16);
    std::vector<uint8_t> tile(static_cast<size_t>(TIFFTileSize(file)));
    for (size_t y = 0; y < 2; ++y)
      std::copy_n(rows.data() + y * rowBytes, rowBytes, tile.data() + y * tile.size() / 16);
    TIFFWriteTile(file, tile.data(), 0, 0, 0, 0);
  } else {
    for (uint32_t y = 0; y < 2; ++y) TIFFWriteScanline(file, rows.data() + y * rowBytes, y);
  }
  TIFFClose(file);
}

class ReadTiffLayout : public ::testing::TestWithParam<TiffCase> {};

TEST_P(ReadTiffLayout, AsThePictureItShows) {
  const Folder folder;
  WriteTiffCase(GetParam(), folder / "page.tif");
  EXPECT_EQ(GetParam().expected, Colours(Read(folder / "page.tif")));
  Metadata told;
  InputPages(folder / "page.tif").Read(0, &told);
  EXPECT_EQ(GetParam().reduced, TextOf(told, "reduced"));
  EXPECT_EQ(std::to_string(GetParam().bits), TextOf(told, "depth"));
}

constexpr Pixel kW = 0xFFFFFF, kK = 0;
// clang-format off
INSTANTIATE_TEST_SUITE_P(All, ReadTiffLayout, ::testing::Values(
    TiffCase{"MinIsWhite1", PHOTOMETRIC_MINISWHITE, 1, 1, 1, false, {0x40, 0x80}, 2, {kW, kK, kK, kW}},
    TiffCase{"MinIsBlack1", PHOTOMETRIC_MINISBLACK, 1, 1, 1, false, {0x40, 0x80}, 2, {kK, kW, kW, kK}},
    TiffCase{"MinIsWhite8", PHOTOMETRIC_MINISWHITE, 8, 1, 1, false, {0, 0x0F, 0xFF, 0x10}, 2, {kW, 0xF0F0F0, kK, 0xEFEFEF}},
    TiffCase{"Grey2", PHOTOMETRIC_MINISBLACK, 2, 1, 1, false, {0x1B, 0xE4}, 4,
             {kK, 0x555555, 0xAAAAAA, kW, kW, 0xAAAAAA, 0x555555, kK}},
    TiffCase{"Grey16", PHOTOMETRIC_MINISBLACK, 16, 1, 1, false, {0, 0, 0xFF, 0xFF}, 1, {kK, kW}, "16 bits to 8"},
    TiffCase{"Signed", PHOTOMETRIC_MINISBLACK, 8, 1, 1, false, {0x80, 0x7F}, 1, {kK, kW},
             "numbers with a sign to numbers without", {}, SAMPLEFORMAT_INT},
    TiffCase{"Rgb", PHOTOMETRIC_RGB, 8, 3, 1, false, {1, 2, 3, 4, 5, 6}, 1, {0x010203, 0x040506}},
    TiffCase{"ClearAlphaIsPaper", PHOTOMETRIC_RGB, 8, 4, 1, false, {9, 9, 9, 0, 1, 2, 3, 255}, 1, {kW, 0x010203},
             "alpha laid over white"},
    TiffCase{"LabUnderItsWhite", PHOTOMETRIC_CIELAB, 8, 3, 1, false, {255, 0, 0, 150, 226, 40}, 1, {kW, 0x6E9A44},
             "Lab to RGB", {0.3127f, 0.329f}},  // 58.8, -30, 40 by the formulas of CIE and sRGB, both of D65
    TiffCase{"Tiled", PHOTOMETRIC_MINISBLACK, 8, 1, 1, true, {0, 255, 255, 0}, 2, {kK, kW, kW, kK}}),
    [](const auto& test) { return test.param.name; });
// clang-format on

TEST(ReadTiff, FindsEachPageInFilesOfEitherByteOrderAndPointerSize) {
  const Folder folder;
  const std::string path = folder / "pages.tif";
  for (const char* mode : {"wl", "wb", "wl8", "wb8"}) {
    TIFF* file = TIFFOpen(path.c_str(), mode);
    for (uint8_t page = 1; page <= 4; ++page) {
      TIFFSetField(file, TIFFTAG_IMAGEWIDTH, page);
      TIFFSetField(file, TIFFTAG_IMAGELENGTH, 1);
      TIFFSetField(file, TIFFTAG_BITSPERSAMPLE, 8);
      TIFFSetField(file, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
      uint8_t row[4] = {page, page, page, page};
      TIFFWriteScanline(file, row, 0, 0);
      TIFFWriteDirectory(file);
    }
    TIFFClose(file);
    const InputPages pages(path);
    ASSERT_EQ(4u, pages.count()) << mode;
    for (const size_t page : {4, 2, 1, 3}) {
      const std::vector<Pixel> expected(page, static_cast<Pixel>(page * 0x010101));
      EXPECT_EQ(expected, Colours(pages.Read(page - 1, nullptr))) << mode;
    }
  }
}

TEST(ReadTiff, TurnsPagesUpright) {
  const Folder folder;
  // Where 1 2 over 3 4, as stored, come to lie by each orientation from 2 on.
  constexpr uint8_t kUpright[][4] = {{2, 1, 4, 3}, {4, 3, 2, 1}, {3, 4, 1, 2}, {1, 3, 2, 4},
                                     {3, 1, 4, 2}, {4, 2, 3, 1}, {2, 4, 1, 3}};
  uint16_t orientation = 2;
  for (const auto& upright : kUpright) {
    std::vector<Pixel> expected;
    for (const uint8_t grey : upright) expected.push_back(grey * 0x010101u);
    WriteTiffCase({"", PHOTOMETRIC_MINISBLACK, 8, 1, orientation, false, {1, 2, 3, 4}, 2, {}},
                  folder / "page.tif");
    EXPECT_EQ(expected, Colours(Read(folder / "page.tif"))) << "orientation " << orientation;
    ++orientation;
  }
}

// As if 4 GiB were 3,000 bytes.
TEST(TiffDocument, BecomesBigAsItGrows) {
  MemoryBytes bytes;
  TiffDocument document(&bytes, /*mostBytes=*/3000);
  const int depths[] = {1, 24, 8, 4, 8, 24};
  for (const int bits : depths) document.Append(kTiff.encode(RandomPage(bits, 20 + bits, 11), {}, {}));
  const std::vector<uint8_t> file = bytes.Take();
  EXPECT_EQ(43, file[2]);
  const InputPages pages{std::span<const uint8_t>(file)};
  ASSERT_EQ(std::size(depths), pages.count());
  for (size_t i = 0; i < std::size(depths); ++i)
    EXPECT_EQ(Colours(RandomPage(depths[i], 20 + depths[i], 11)), Colours(pages.Read(i, nullptr))) << i;
}

// Pixels of three samples of 16 bits that say where they were.
TEST(RawPage, MovesWholePixels) {
  Raw page;
  page.width = 3;
  page.height = 2;
  page.bits = 16;
  page.samples = 3;
  page.resolution = {100, 200};
  page.bytes.resize(page.rowBytes() * 2);
  const auto at = [](Raw& raw, int x, int y) { return reinterpret_cast<uint16_t*>(raw.Row(y)) + 3 * x; };
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 3; ++x)
      std::copy_n(std::array<uint16_t, 3>{uint16_t(1000 * x), uint16_t(y), 7}.data(), 3, at(page, x, y));
  }
  const struct {
    Raw made;
    int width, height, fromX, fromY;  // of what is at the top left now
  } cases[] = {{Flipped(page, false), 3, 2, 2, 0},      {Flipped(page, true), 3, 2, 0, 1},
               {Turned(page, 1), 2, 3, 2, 0},           {Turned(page, 2), 3, 2, 2, 1},
               {Turned(page, -1), 2, 3, 0, 1},          {Cropped(page, 1, 1, 2, 1), 2, 1, 1, 1},
               {Cropped(page, 1, 0, 0, 0), 2, 2, 1, 0}, {Upright(page, 5), 2, 3, 0, 0},
               {Upright(page, 7), 2, 3, 2, 1}};
  for (size_t i = 0; i < std::size(cases); ++i) {
    const auto& [made, width, height, fromX, fromY] = cases[i];
    Raw copy = made;
    EXPECT_EQ(std::pair(width, height), std::pair(int{copy.width}, int{copy.height})) << i;
    EXPECT_EQ(width == 3 || height < 3 ? 100 : 200, copy.resolution.x) << i;
    const uint16_t* first = at(copy, 0, 0);
    EXPECT_EQ(std::tuple(1000 * fromX, fromY, 7), std::tuple(int{first[0]}, int{first[1]}, int{first[2]}))
        << i;
  }
  EXPECT_THROW(Cropped(page, 2, 0, 2, 1), PageError);
}

TEST(ReadNetpbm, CountsItsPicturesAndRefusesLies) {
  using namespace std::string_literals;
  const std::string grey = "P5 2 1 255\n\1\2"s;
  const struct {
    std::string file;
    size_t pages;  // 0: refused
    std::vector<Pixel> last = {};
    bool isDamaged = false;
  } cases[] = {{grey, 1, {0x010101, 0x020202}},
               {grey + "P6 1 1 255\n\1\2\3"s, 2, {0x010203}},
               {grey + "\n# end\n", 1, {0x010101, 0x020202}},
               {grey + "and more", 1, {0x010101, 0x020202}, true},
               {grey + "P5 9 9 255\n\1", 2},
               {"P1 # bits\n2 1\n1# one\n0", 1, {0x000000, 0xFFFFFF}},
               {"P5 1 1 99999\n\1", 0},
               {"P5 1 1 0\n\1", 0},
               {"P5 -1 1 255\n\1", 0},
               {"P5 99999 99999 255\n\1", 0},
               {"P2 99999 99999 255\n1", 0},
               {"P7 WIDTH 1 HEIGHT 1 DEPTH 5 MAXVAL 255 ENDHDR\n12345", 0},
               {"P7 WIDTH 1", 0}};
  for (const auto& [file, pages, last, isDamaged] : cases) {
    SCOPED_TRACE(file);
    const InputPages input{std::span(reinterpret_cast<const uint8_t*>(file.data()), file.size())};
    EXPECT_EQ(std::max<size_t>(pages, 1), input.count());
    EXPECT_EQ(isDamaged, !input.damage().empty());
    if (last.empty()) {
      EXPECT_THROW(input.Read(input.count() - 1, nullptr), PageError);
    } else {
      EXPECT_EQ(last, Colours(input.Read(pages - 1, nullptr)));
    }
  }
}

// Writes 16 x 8 pixels, the left half of one colour and the right of another.
void WriteJpeg(const std::string& path, J_COLOR_SPACE space, std::vector<uint8_t> left,
               std::vector<uint8_t> right, const std::string& exif = "") {
  jpeg_compress_struct jpeg{};
  jpeg_error_mgr errors{};
  jpeg.err = jpeg_std_error(&errors);
  jpeg_create_compress(&jpeg);
  std::FILE* file = std::fopen(path.c_str(), "wb");
  jpeg_stdio_dest(&jpeg, file);
  jpeg.image_width = 16;
  jpeg.image_height = 8;
  jpeg.input_components = static_cast<int>(left.size());
  jpeg.in_color_space = space;
  jpeg_set_defaults(&jpeg);
  jpeg_set_quality(&jpeg, 100, TRUE);
  jpeg.density_unit = 1;
  jpeg.X_density = jpeg.Y_density = 200;
  jpeg_start_compress(&jpeg, TRUE);
  if (!exif.empty()) {
    jpeg_write_marker(&jpeg, JPEG_APP0 + 1, reinterpret_cast<const JOCTET*>(exif.data()),
                      static_cast<unsigned>(exif.size()));
  }
  std::vector<uint8_t> row;
  for (int x = 0; x < 16; ++x)
    row.insert(row.end(), (x < 8 ? left : right).begin(), (x < 8 ? left : right).end());
  for (int y = 0; y < 8; ++y) {
    JSAMPROW rows = row.data();
    jpeg_write_scanlines(&jpeg, &rows, 1);
  }
  jpeg_finish_compress(&jpeg);
  jpeg_destroy_compress(&jpeg);
  std::fclose(file);
}

bool IsNear(Pixel a, Pixel b) {
  for (const int shift : {0, 8, 16}) {
    if (std::abs(static_cast<int>(a >> shift & 255) - static_cast<int>(b >> shift & 255)) > 6) return false;
  }
  return true;
}

TEST(ReadJpeg, KnowsGreyRgbAndInvertedInks) {
  const Folder folder;
  const std::string path = folder / "page.jpg";
  const auto corners = [&] {
    const std::vector<Pixel> colours = Colours(Read(path));
    return std::pair(colours.front(), colours.back());
  };
  WriteJpeg(path, JCS_GRAYSCALE, {40}, {200});
  EXPECT_EQ(8, PageView(Read(path)).bits());
  EXPECT_EQ(7874, PageView(Read(path)).resolution().x);
  EXPECT_TRUE(IsNear(0x282828, corners().first) && IsNear(0xC8C8C8, corners().second));
  WriteJpeg(path, JCS_RGB, {230, 20, 30}, {10, 40, 220});
  EXPECT_TRUE(IsNear(0xE6141E, corners().first) && IsNear(0x0A28DC, corners().second))
      << std::hex << corners().first;
  // As Adobe writes them: 255 is no ink. All cyan; then half black.
  WriteJpeg(path, JCS_CMYK, {0, 255, 255, 255}, {255, 255, 255, 128});
  EXPECT_TRUE(IsNear(0x00FFFF, corners().first) && IsNear(0x808080, corners().second))
      << std::hex << corners().first;
}

TEST(ReadJpeg, TurnsPagesUprightByTheirExifBlock) {
  using namespace std::string_literals;
  const Folder folder;
  const std::string bigEndian = "Exif\0\0MM\0\x2A\0\0\0\x08\0\x01\x01\x12\0\x03\0\0\0\x01\0\x06\0\0\0\0\0\0"s;
  const std::string littleEndian =
      "Exif\0\0II\x2A\0\x08\0\0\0\x01\0\x12\x01\x03\0\x01\0\0\0\x06\0\0\0\0\0\0\0"s;
  for (const std::string& exif : {bigEndian, littleEndian}) {
    WriteJpeg(folder / "page.jpg", JCS_GRAYSCALE, {40}, {200}, exif);
    const Dib page = Read(folder / "page.jpg");
    EXPECT_EQ(8, PageView(page).width());  // what was the left half is the top now
    EXPECT_TRUE(IsNear(0x282828, Colours(page).front()) && IsNear(0xC8C8C8, Colours(page).back()));
  }
}

// Filling after the rows does no harm; data there means that the decoder has lost its place.
TEST(ReadJpeg, RefusesDataAfterItsRows) {
  const Folder folder;
  WriteJpeg(folder / "page.jpg", JCS_GRAYSCALE, {40}, {200});
  const std::string bytes = ReadBytes(folder / "page.jpg");
  const auto with = [&](const std::string& more) {
    WriteBytes(folder / "more.jpg",
               bytes.substr(0, bytes.size() - 2) + more + bytes.substr(bytes.size() - 2));
    return Colours(Read(folder / "more.jpg"));
  };
  EXPECT_EQ(Colours(Read(folder / "page.jpg")), with(std::string(100, '\0')));
  EXPECT_THROW(with("data that belongs to a picture, but no more to its rows"), PageError);
}

// A header of so many bytes, its masks and rows; 2 pixels across, as many rows as fit.
struct BmpCase {
  const char* name;
  uint32_t headerBytes;
  uint16_t bits;
  uint32_t compression;
  int32_t height;
  std::vector<uint32_t> masks;  // red, green, blue, alpha
  std::vector<uint8_t> rows;
  std::vector<Pixel> expected;
};

class ReadBmpKind : public ::testing::TestWithParam<BmpCase> {};

TEST_P(ReadBmpKind, AsThePictureItShows) {
  const BmpCase& test = GetParam();
  std::vector<uint32_t> header = {test.headerBytes,
                                  2,
                                  static_cast<uint32_t>(test.height),
                                  1u | test.bits << 16u,
                                  test.compression,
                                  0,
                                  0,
                                  0,
                                  0,
                                  0};
  header.insert(header.end(), test.masks.begin(), test.masks.end());
  header.resize(std::max<size_t>(header.size(), test.headerBytes / 4));
  const auto headBytes = static_cast<uint32_t>(header.size() * 4);
  const uint32_t start[] = {0, 0, 14 + headBytes};
  std::string file = "BM";
  file.append(reinterpret_cast<const char*>(start), sizeof(start));
  file.append(reinterpret_cast<const char*>(header.data()), headBytes);
  file.append(test.rows.begin(), test.rows.end());
  const Folder folder;
  WriteBytes(folder / "page.bmp", file);
  EXPECT_EQ(test.expected, Colours(Read(folder / "page.bmp")));
  fs::resize_file(folder / "page.bmp", file.size() - 1);
  EXPECT_THROW(Read(folder / "page.bmp"), PageError);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(All, ReadBmpKind, ::testing::Values(
    BmpCase{"TopDown24", 40, 24, 0, -2, {}, {3, 2, 1, 6, 5, 4, 0, 0, 9, 8, 7, 12, 11, 10, 0, 0},
            {0x010203, 0x040506, 0x070809, 0x0A0B0C}},
    BmpCase{"Bits16", 40, 16, 0, 1, {}, {0x00, 0x7C, 0xE0, 0x03}, {0xFF0000, 0x00FF00}},
    BmpCase{"Bits565", 40, 16, 3, 1, {0xF800, 0x7E0, 0x1F}, {0x00, 0xF8, 0xE0, 0x07}, {0xFF0000, 0x00FF00}},
    BmpCase{"Bits32", 40, 32, 0, 1, {}, {3, 2, 1, 0, 6, 5, 4, 0}, {0x010203, 0x040506}},
    BmpCase{"Alpha", 124, 32, 3, 1, {0xFF0000, 0xFF00, 0xFF, 0xFF000000}, {9, 9, 9, 0, 6, 5, 4, 255}, {0xFFFFFF, 0x040506}},
    BmpCase{"NoAlphaAnywhere", 108, 32, 3, 1, {0xFF0000, 0xFF00, 0xFF, 0xFF000000}, {3, 2, 1, 0, 6, 5, 4, 0},
            {0x010203, 0x040506}},
    BmpCase{"Header124", 124, 24, 0, 1, {}, {3, 2, 1, 6, 5, 4, 0, 0}, {0x010203, 0x040506}}),
    [](const auto& test) { return test.param.name; });
// clang-format on

// Writers fill rows up to whole words: here a fourth pixel in a run of its own.
TEST(ReadBmp, CutsRunsAtTheEndOfARow) {
  const uint32_t header[] = {40, 3, 2, 1 | 8 << 16, 1, 14, 0, 0, 2, 0, 0x000000, 0xFFFFFF};
  const std::string start("BM\0\0\0\0\0\0\0\0\x3E\0\0\0", 14), runs("\1\0\2\1\1\1\0\0\2\1\2\0\0\1", 14);
  const Folder folder;
  WriteBytes(folder / "page.bmp",
             start + std::string(reinterpret_cast<const char*>(header), sizeof(header)) + runs);
  const std::vector<Pixel> expected = {0xFFFFFF, 0xFFFFFF, 0, 0, 0xFFFFFF, 0xFFFFFF};
  EXPECT_EQ(expected, Colours(Read(folder / "page.bmp")));
}

// ---- hostile files ----------------------------------------------------------------------------------------

std::vector<std::string> SmallFiles(const Folder& folder) {
  std::vector<std::string> paths;
  for (const std::string ending : {"bmp", "tif", "png"}) {
    for (const int bits : {1, 8, 24}) {
      paths.push_back(folder / (std::to_string(bits) + "." + ending));
      Write(RandomPage(bits, 33, 9, bits == 8), paths.back());
    }
  }
  paths.push_back(folder / "lossy.tif");
  Write(RandomPage(24, 33, 9), paths.back(), "quality=50");
  paths.push_back(folder / "page.jpg");
  WriteJpeg(paths.back(), JCS_RGB, {230, 20, 30}, {10, 40, 220}, "Exif");
  return paths;
}

// Reads what there is of a file. A picture that comes out, comes out as `expected` if that is given.
void ReadHostile(const std::string& path, const std::vector<Pixel>* expected) {
  try {
    const InputPages file(path);
    for (size_t i = 0; i < file.count(); ++i) {
      const Dib page = file.Read(i, nullptr);
      const std::vector<Pixel> colours = Colours(page);
      if (expected != nullptr) {
        EXPECT_EQ(*expected, colours);
      }
    }
  } catch (const PageError&) {
  }
}

TEST(HostileFiles, CutShortAnywhereGiveAnErrorOrTheWholePicture) {
  const Folder folder;
  for (const std::string& path : SmallFiles(folder)) {
    const std::vector<Pixel> whole = Colours(Read(path));
    for (uintmax_t length = fs::file_size(path); length-- > 0;) {
      SCOPED_TRACE(::testing::Message() << path << " at " << length);
      fs::resize_file(path, length);
      ReadHostile(path, &whole);
      if (::testing::Test::HasFailure()) return;
    }
  }
}

TEST(HostileFiles, WithWrongBytesAnywhereDoNoHarm) {
  const Folder folder;
  std::mt19937 random(1);
  for (const std::string& path : SmallFiles(folder)) {
    const std::string bytes = ReadBytes(path);
    for (int round = 0; round < 120; ++round) {
      std::string wrong = bytes;
      // Headers stand at the start, or at the end of a TIFF file.
      const size_t span = round % 2 == 0 ? std::min<size_t>(bytes.size(), 160) : bytes.size();
      for (int i = 0; i < 1 + round % 3; ++i) wrong[random() % span] = static_cast<char>(random());
      WriteBytes(path + ".wrong", wrong);
      ReadHostile(path + ".wrong", nullptr);
    }
  }
}

TEST(HostileFiles, LyingSizesAreRefusedBeforeMemoryIsAskedFor) {
  const Folder folder;
  struct Lie {
    const char* file;
    size_t at;  // of a 32-bit field
    bool isBigEndian;
  };
  Write(RandomPage(24, 33, 21), folder / "page.bmp");
  Write(RandomPage(24, 33, 21), folder / "page.png");
  WriteJpeg(folder / "page.jpg", JCS_GRAYSCALE, {40}, {200});
  const std::string jpeg = ReadBytes(folder / "page.jpg");
  const size_t frame = jpeg.find("\xFF\xC0");
  for (const Lie& lie : {Lie{"page.bmp", 22, false}, Lie{"page.bmp", 34, false}, Lie{"page.bmp", 46, false},
                         Lie{"page.png", 20, true}, Lie{"page.jpg", frame + 5, true}}) {
    std::string bytes = ReadBytes(folder / lie.file);
    // 60000 rows, bytes or colours, or more; the checksum of a PNG header is of no use then, but libpng looks
    // at it.
    const std::string number = lie.isBigEndian ? "\x7F\x00\xEA\x60" : "\x60\xEA\x00\x7F";
    for (size_t i = 0; i < 4; ++i) bytes[lie.at + i] = number[i];
    WriteBytes(folder / lie.file, bytes);
    EXPECT_THROW(Read(folder / lie.file), PageError) << lie.file << " at " << lie.at;
  }
  TIFF* file = TIFFOpen((folder / "lie.tif").c_str(), "w");
  TIFFSetField(file, TIFFTAG_IMAGEWIDTH, 60000);
  TIFFSetField(file, TIFFTAG_IMAGELENGTH, 500000000);
  TIFFSetField(file, TIFFTAG_BITSPERSAMPLE, 1);
  TIFFSetField(file, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
  TIFFWriteDirectory(file);
  TIFFClose(file);
  EXPECT_THROW(Read(folder / "lie.tif"), PageError);
  // A picture of 30000 x 30000 pixels in 26 run-length bytes.
  std::string runs;
  const uint32_t header[] = {40, 30000, 30000, 1 | 8 << 16, 1, 26, 0, 0, 2, 0};
  runs.assign(reinterpret_cast<const char*>(header), sizeof(header));
  WriteBytes(folder / "runs.bmp", runs + std::string(2 * 4 + 26, '\0'));
  EXPECT_THROW(Read(folder / "runs.bmp"), PageError);
}

// In bits: the end of the line before, a run of 8 white pixels instead of 16, and the end of a line.
TEST(HostileFiles, FaxLinesThatBreakAreDamaged) {
  const Folder folder;
  TIFF* file = TIFFOpen((folder / "fax.tif").c_str(), "w");
  for (const auto& [tag, value] : {std::pair{TIFFTAG_IMAGEWIDTH, 16},
                                   {TIFFTAG_IMAGELENGTH, 1},
                                   {TIFFTAG_BITSPERSAMPLE, 1},
                                   {TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX3}})
    TIFFSetField(file, static_cast<uint32_t>(tag), value);
  TIFFSetField(file, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
  uint8_t bits[] = {0x00, 0x19, 0x80, 0x08};
  TIFFWriteRawStrip(file, 0, bits, sizeof(bits));
  TIFFClose(file);
  EXPECT_THROW(Read(folder / "fax.tif"), PageError);
}

// Before that the claims took gigabytes until the first bytes turned out to be none.
TEST(HostileFiles, TiffClaimsTakeNoMemory) {
  const Folder folder;
  const auto peakBytes = [] {
    struct rusage usage {};
    ::getrusage(RUSAGE_SELF, &usage);
    return int64_t{usage.ru_maxrss} * 1024;
  };
  for (const int compression :
       {COMPRESSION_LZMA, COMPRESSION_ZSTD, COMPRESSION_WEBP, COMPRESSION_ADOBE_DEFLATE}) {
    if (TIFFIsCODECConfigured(static_cast<uint16_t>(compression)) == 0) continue;
    const bool isTiled = compression == COMPRESSION_ADOBE_DEFLATE;
    TIFF* file = TIFFOpen((folder / "lie.tif").c_str(), "w");
    TIFFSetField(file, TIFFTAG_IMAGEWIDTH, isTiled ? 8 : 16000);
    TIFFSetField(file, TIFFTAG_IMAGELENGTH, isTiled ? 8 : 16000);
    TIFFSetField(file, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(file, TIFFTAG_SAMPLESPERPIXEL, 4);
    TIFFSetField(file, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(file, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(file, TIFFTAG_COMPRESSION, compression);
    uint8_t nothing[100] = {};
    if (isTiled) {
      TIFFSetField(file, TIFFTAG_TILEWIDTH, 16000);
      TIFFSetField(file, TIFFTAG_TILELENGTH, 16000);
      TIFFWriteRawTile(file, 0, nothing, sizeof(nothing));
    } else {
      TIFFWriteRawStrip(file, 0, nothing, sizeof(nothing));
    }
    TIFFClose(file);
    const int64_t before = peakBytes();
    EXPECT_THROW(Read(folder / "lie.tif"), PageError) << compression;
    EXPECT_LT(peakBytes() - before, 200'000'000) << compression;  // of 1,024,000,000
  }
}

// Where a row is shorter than the page, the rest would be whatever memory held.
TEST(HostileFiles, TiffPagesWiderThanTheirJpegStripsAreDamaged) {
  const Folder folder;
  Write(RandomPage(8, 16, 8), folder / "wide.tif", "quality=50");
  TIFF* file = TIFFOpen((folder / "wide.tif").c_str(), "r+");
  TIFFSetField(file, TIFFTAG_IMAGEWIDTH, 64);
  TIFFRewriteDirectory(file);
  TIFFClose(file);
  EXPECT_THROW(Read(folder / "wide.tif"), PageError);
}

TEST(HostileFiles, ATiffFileThatEndsAtThePointerToTheNextPageIsDamaged) {
  const Folder folder;
  const std::string path = folder / "two.tif";
  std::vector<Dib> pages;
  for (int i = 0; i < 2; ++i) pages.push_back(RandomPage(8, 20, 10));
  Write(pages, path);
  EXPECT_EQ("", InputPages(path).damage());
  const std::string bytes = ReadBytes(path);
  uint32_t directory = 0;
  std::memcpy(&directory, &bytes[4], sizeof(directory));
  uint16_t entries = 0;
  std::memcpy(&entries, &bytes[directory], sizeof(entries));
  fs::resize_file(path, directory + 2 + 12u * entries);
  EXPECT_EQ(1u, InputPages(path).count());
  EXPECT_NE("", InputPages(path).damage());
}

// 54 bytes of headers, 2 colours, a row of 4 bytes. The page's block is larger: it is a multiple of 8.
TEST(WriteBmp, EndsWithTheLastRow) {
  const Folder folder;
  Write(RandomPage(1, 1, 1), folder / "dot.bmp");
  EXPECT_EQ(54u + 8 + 4, fs::file_size(folder / "dot.bmp"));
}

TEST(OutputFile, AppearsUnderItsNameOnlyWhenItIsComplete) {
  const Folder folder;
  const std::string name = folder / "out.png";
  {
    const OutputFile file(name);
    WriteBytes(file.path(), "half");
    EXPECT_FALSE(fs::exists(name));
  }
  EXPECT_EQ(0u, folder.count());
  WriteBytes(name, "old");
  {
    OutputFile file(name);
    WriteBytes(file.path(), "new");
    EXPECT_EQ("old", ReadBytes(name));
    file.Commit();
  }
  EXPECT_EQ("new", ReadBytes(name));
  EXPECT_EQ(1u, folder.count());
  EXPECT_THROW(OutputFile(folder / "."), PageError);
  EXPECT_THROW(OutputFile("/dev/null"), PageError);
}

unsigned ModeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(0, ::stat(path.c_str(), &status)) << path;
  return status.st_mode & 0777u;
}

TEST(OutputFile, DoesNotReplaceWhatIsKeptEvenIfItTurnsUpLate) {
  const Folder folder;
  const std::string name = folder / "out.png";
  OutputFile file(name);
  file.SetRules({.keepsExisting = true});
  WriteBytes(name, "theirs");
  EXPECT_THROW(file.Commit(), PageError);
  EXPECT_THROW(OutputFile(name).SetRules({.keepsExisting = true}), PageError);
  EXPECT_EQ("theirs", ReadBytes(name));
}

TEST(OutputFile, IsShownToNobodyNew) {
  const Folder folder;
  const std::string name = folder / "out.png", source = folder / "in.png";
  WriteBytes(source, "");
  const auto write = [&] {
    OutputFile file(name);
    EXPECT_EQ(0600u, ModeOf(file.path()));  // nor while it is under way
    file.SetRules({.source = source});
    file.Commit();
    return ModeOf(name);
  };
  ::chmod(source.c_str(), 0600);
  EXPECT_EQ(0600u, write());
  fs::remove(name);
  ::chmod(source.c_str(), 0444);
  EXPECT_EQ(0644u & ~0022u, write() & ~0022u);
  ::chmod(name.c_str(), 0640);
  EXPECT_EQ(0640u, write());  // as it was, whatever the source is
}

TEST(OutputFile, RemovesWhatEndedProcessesLeftAndNothingElse) {
  const Folder folder;
  fs::create_directory(folder / "fresh");
  const std::string dead = folder / "fresh/.a.tif.0123456789abcdef.part";
  const std::string alive = folder / "fresh/.b.tif.0123456789abcdef.part";
  const std::string other = folder / "fresh/.b.tif.part";
  WriteBytes(dead, "");
  WriteBytes(other, "");
  const int part = CreatePart(alive);
  OutputFile(folder / "fresh/out.tif");
  EXPECT_FALSE(fs::exists(dead));
  EXPECT_TRUE(fs::exists(alive));
  EXPECT_TRUE(fs::exists(other));
  ClosePart(part);
}

TEST(OutputFile, GoesWhereALinkLeadsAlsoIfNothingIsThereYet) {
  const Folder folder;
  fs::create_symlink("target.png", folder / "link.png");
  OutputFile(folder / "link.png").Commit();
  EXPECT_TRUE(fs::is_symlink(folder / "link.png"));
  EXPECT_TRUE(fs::is_regular_file(folder / "target.png"));
}

}  // namespace
}  // namespace rastrel::formats
