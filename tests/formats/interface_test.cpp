// The C interface as its callers see it: pixels, streams and memory go in and out, work is cancelled, and no
// argument, however wrong, does more than set an error.
#include <gtest/gtest.h>
#include <rastrel_pages.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "platform/host/fault_injection.h"
#include "tests/support/test_dib.h"

namespace rastrel {
namespace {

using rastrel::testing::Bytes;
using rastrel::testing::TestDib;

// ---- pixels -----------------------------------------------------------------------------------------------

struct PixelCase {
  const char* name;
  int format;
  Bytes rows[2];
  std::vector<int> expected;  // 0xRRGGBB from the top left, over a ground of 0x204060
};

TEST(InterfacePixels, GoInAndComeOutInEveryFormatAndDirection) {
  constexpr int kK = 0, kW = 0xFFFFFF;
  const Bytes greys[] = {{0, 128, 255}, {1, 2, 3}}, six[] = {{1, 2, 3, 4, 5, 6}, {7, 8, 9, 250, 251, 252}};
  // Of five parts: all, one and none.
  const Bytes alpha[] = {{1, 2, 3, 255, 100, 100, 100, 51}, {9, 9, 9, 0, 4, 5, 6, 255}};
  const PixelCase cases[] = {
      {"Bit0Black", PixelsBit0Black, {{0x5F}, {0xA0}}, {kK, kW, kK, kW, kK, kW}},
      {"Bit1Black", PixelsBit1Black, {{0x5F}, {0xA0}}, {kW, kK, kW, kK, kW, kK}},
      {"Grey8", PixelsGrey8, {greys[0], greys[1]}, {kK, 0x808080, kW, 0x010101, 0x020202, 0x030303}},
      {"Rgb", PixelsRgb, {six[0], six[1]}, {0x010203, 0x040506, 0x070809, 0xFAFBFC}},
      {"Bgr", PixelsBgr, {six[0], six[1]}, {0x030201, 0x060504, 0x090807, 0xFCFBFA}},
      // (100 + 4 * ground) / 5
      {"Rgba", PixelsRgba, {alpha[0], alpha[1]}, {0x010203, 0x2E4761, 0x204060, 0x040506}},
      {"Bgra", PixelsBgra, {alpha[0], alpha[1]}, {0x030201, 0x2E4761, 0x204060, 0x060504}}};
  for (const PixelCase& test : cases) {
    for (const bool isUpsideDown : {false, true}) {
      SCOPED_TRACE(::testing::Message() << test.name << (isUpsideDown ? ", upside down" : ""));
      const auto width = static_cast<int>(test.expected.size() / 2);
      const size_t bytes = test.rows[0].size(), stride = bytes + 3;
      Bytes memory(2 * stride, 0xA5);
      for (size_t y : {0, 1}) std::ranges::copy(test.rows[isUpsideDown ? 1 - y : y], &memory[y * stride]);
      const auto step = static_cast<ptrdiff_t>(isUpsideDown ? 0 - stride : stride);
      uint8_t* const top = &memory[isUpsideDown ? stride : 0];
      const TestDib page(PageFromPixelsOver(top, width, 2, step, test.format, 300, 150, 0x604020));
      ASSERT_TRUE(page) << PagesErrorText();
      EXPECT_EQ(std::pair(11811, 5906),
                std::pair(page.header().biXPelsPerMeter, page.header().biYPelsPerMeter));

      std::vector<int> colours;
      Bytes rgb(static_cast<size_t>(6 * width));
      ASSERT_EQ(1, PixelsFromPage(page.handle(), rgb.data(), 3 * width, PixelsRgb));
      for (size_t i = 0; i < rgb.size(); i += 3)
        colours.push_back(rgb[i] << 16 | rgb[i + 1] << 8 | rgb[i + 2]);
      EXPECT_EQ(test.expected, colours);

      const bool hasAlpha = test.format == PixelsRgba || test.format == PixelsBgra;
      if (hasAlpha) continue;  // laid over the ground for good
      // Back as it was, and nothing beside it: neither bits behind a row nor bytes between rows.
      Bytes back = memory;
      const bool isBits = bytes == 1;
      for (size_t y : {0, 1}) std::fill_n(&back[y * stride], bytes, isBits ? back[y * stride] & 0x1F : 0x77);
      ASSERT_EQ(1, PixelsFromPage(page.handle(), &back[isUpsideDown ? stride : 0], step, test.format));
      EXPECT_EQ(memory, back);
    }
  }
}

// ---- files ------------------------------------------------------------------------------------------------

// A file in memory behind callbacks, of which the n-th call from now on can be made to fail.
struct FakeFile {
  Bytes bytes;
  int callsLeft = std::numeric_limits<int>::max();
  bool Fails() { return callsLeft-- <= 0; }

  static int64_t RASTREL_CALL Read(void* context, uint64_t position, void* to, size_t count) {
    auto& file = *static_cast<FakeFile*>(context);
    if (file.Fails()) return -1;
    if (position >= file.bytes.size()) return 0;
    count = std::min<size_t>(count, file.bytes.size() - static_cast<size_t>(position));
    std::memcpy(to, &file.bytes[static_cast<size_t>(position)], count);
    return static_cast<int64_t>(count);
  }
  static int64_t RASTREL_CALL Write(void* context, uint64_t position, const void* from, size_t count) {
    auto& file = *static_cast<FakeFile*>(context);
    if (file.Fails()) return -1;
    file.bytes.resize(std::max<size_t>(file.bytes.size(), static_cast<size_t>(position) + count));
    std::memcpy(&file.bytes[static_cast<size_t>(position)], from, count);
    return static_cast<int64_t>(count);
  }
  static int64_t RASTREL_CALL Length(void* context) {
    auto& file = *static_cast<FakeFile*>(context);
    return file.Fails() ? -1 : static_cast<int64_t>(file.bytes.size());
  }
  PageStream Stream() { return {sizeof(PageStream), this, Read, Write, Length}; }
};

struct FormatCase {
  const char* name;
  std::vector<int> depths;  // of its pages
};
const FormatCase kFormats[] = {{"bmp", {8}}, {"png", {1}}, {"tif", {1, 24, 8, 4}}};

TestDib PageOf(int bits) { return TestDib::Random(bits, 33, 17, static_cast<unsigned>(bits)); }

constexpr char kDescription[] = "Letters, 1901";

// Writes the pages of a case; `finish` completes the file. False on the first failure, with nothing left
// open.
template <class Finish>
bool WritePages(PageWriter* writer, const FormatCase& test, Finish finish) {
  if (writer == nullptr) return false;
  PageMetadata* metadata = NewPageMetadata();
  SetPageMetadataItem(metadata, "description", kDescription, sizeof(kDescription) - 1);
  bool isWritten = true;
  for (const int bits : test.depths)
    isWritten = isWritten && AppendPage(writer, PageOf(bits).handle(), metadata);
  FreePageMetadata(metadata);
  if (isWritten) return finish(writer);
  AbandonPages(writer);
  return false;
}

bool WriteOn(FakeFile* file, const FormatCase& test) {
  const PageStream stream = file->Stream();
  return WritePages(CreatePagesOnStream(&stream, test.name, nullptr), test,
                    [](PageWriter* writer) { return FinishPages(writer) != 0; });
}

Bytes RgbOf(HGLOBAL page) {
  PageInfo info = {};
  info.size = sizeof(info);
  EXPECT_EQ(1, DescribePage(page, &info));
  Bytes rgb(static_cast<size_t>(3 * info.width * info.height));
  EXPECT_EQ(1, PixelsFromPage(page, rgb.data(), 3 * info.width, PixelsRgb));
  return rgb;
}

// Whether a file has all pages of a case; true also tells that they are the right ones.
bool HasPages(PageFile* file, const FormatCase& test) {
  if (file == nullptr) return false;
  bool isRead = CountPages(file) == static_cast<int32_t>(test.depths.size());
  EXPECT_STREQ(test.name, FormatOfPages(file));
  for (int32_t i = 0; isRead && i < CountPages(file); ++i) {
    PageMetadata* metadata = nullptr;
    const TestDib page(ReadPage(file, i, &metadata));
    isRead = static_cast<bool>(page);
    if (!isRead) break;
    const int bits = test.depths[static_cast<size_t>(i)];
    EXPECT_EQ(bits, page.header().biBitCount);
    EXPECT_EQ(RgbOf(PageOf(bits).handle()), RgbOf(page.handle()));
    size_t size = 0;
    const auto* text = static_cast<const char*>(GetPageMetadataItem(metadata, "description", &size));
    const bool keepsText = std::string(test.name) != "bmp";
    EXPECT_EQ(keepsText ? kDescription : "", std::string(text != nullptr ? text : "", size)) << test.name;
    FreePageMetadata(metadata);
  }
  ClosePages(file);
  return isRead;
}

TEST(InterfaceFiles, AreTheSameInMemoryAndOnStreams) {
  for (const FormatCase& test : kFormats) {
    SCOPED_TRACE(test.name);
    void* bytes = nullptr;
    size_t size = 0;
    ASSERT_TRUE(WritePages(CreatePagesInMemory(test.name, nullptr), test, [&](PageWriter* writer) {
      return (bytes = FinishPagesInMemory(writer, &size)) != nullptr;
    })) << PagesErrorText();
    FakeFile file;
    ASSERT_TRUE(WriteOn(&file, test)) << PagesErrorText();
    const auto* first = static_cast<const uint8_t*>(bytes);
    EXPECT_EQ(Bytes(first, first + size), file.bytes);

    EXPECT_TRUE(HasPages(OpenPagesInMemory(bytes, size), test));
    PageStream stream = file.Stream();
    stream.write = nullptr;
    EXPECT_TRUE(HasPages(OpenPagesFromStream(&stream), test));
    FreePageBytes(bytes);
  }
}

TEST(InterfaceFiles, EndInAnErrorAtWhicheverCallAStreamFails) {
  for (const FormatCase& test : kFormats) {
    FakeFile whole;
    ASSERT_TRUE(WriteOn(&whole, test));
    const size_t blocks = host::LiveBlocks();
    for (const bool isWriting : {true, false}) {
      bool isDone = false;
      for (int calls = 0; !isDone; ++calls) {
        SCOPED_TRACE(::testing::Message() << test.name << (isWriting ? " written, " : " read, ") << calls);
        FakeFile file = {isWriting ? Bytes() : whole.bytes, calls};
        const PageStream stream = file.Stream();
        isDone = isWriting ? WriteOn(&file, test) : HasPages(OpenPagesFromStream(&stream), test);
        EXPECT_EQ(blocks, host::LiveBlocks());
        EXPECT_TRUE(isDone ? calls > 0 : std::string(PagesErrorText()) != "");
        ASSERT_LT(calls, 1000);
      }
    }
  }
}

TEST(InterfaceMetadata, HoldsNamedBytes) {
  PageMetadata* metadata = NewPageMetadata();
  EXPECT_EQ(nullptr, PageMetadataName(metadata, 0));
  for (const char* name : {"icc", "xmp", "exif"})
    EXPECT_EQ(1, SetPageMetadataItem(metadata, name, "a\0b", 3));
  EXPECT_EQ(1, SetPageMetadataItem(metadata, "icc", "", 0));
  EXPECT_EQ(1, SetPageMetadataItem(metadata, "xmp", nullptr, 7));
  size_t size = 99;
  EXPECT_EQ(nullptr, GetPageMetadataItem(metadata, "xmp", &size));
  EXPECT_NE(nullptr, GetPageMetadataItem(metadata, "icc", &size));
  EXPECT_EQ(0u, size);
  EXPECT_EQ(0, std::memcmp("a\0b", GetPageMetadataItem(metadata, "exif", &size), 3));
  EXPECT_EQ(3u, size);
  EXPECT_EQ(nullptr, GetPageMetadataItem(metadata, "exif", nullptr));
  EXPECT_EQ((std::set<std::string>{"exif", "icc"}),
            (std::set<std::string>{PageMetadataName(metadata, 0), PageMetadataName(metadata, 1)}));
  EXPECT_EQ(nullptr, PageMetadataName(metadata, 2));
  EXPECT_EQ(nullptr, PageMetadataName(metadata, -1));
  FreePageMetadata(metadata);
}

// ---- cleaning ---------------------------------------------------------------------------------------------

struct Progress {
  int callsLeft;
  double done = 0;

  static int RASTREL_CALL Report(void* context, const char* step, double done) {
    auto& progress = *static_cast<Progress*>(context);
    EXPECT_STRNE("", step);
    EXPECT_GE(done, progress.done);
    EXPECT_LE(done, 1);
    progress.done = done;
    return progress.callsLeft-- == 0;
  }
};

TEST(InterfaceCleaning, EndsAtWhicheverStepTheCallerWantsAnEnd) {
  for (const int32_t isClassic : {0, 1}) {
    const TestDib page = TestDib::Ruled(8, 2);
    const size_t blocks = host::LiveBlocks();
    HGLOBAL cleaned = nullptr;
    for (int calls = 0; cleaned == nullptr; ++calls) {
      SCOPED_TRACE(::testing::Message() << (isClassic != 0 ? "classic, " : "") << calls);
      Progress progress = {calls};
      CleanOptions options;
      ASSERT_EQ(1, DefaultCleanOptions(&options, sizeof(options)));
      options.classic = isClassic;
      options.progress = Progress::Report;
      options.progressContext = &progress;
      CleanRecord* record = nullptr;
      HGLOBAL overlay = nullptr;
      cleaned = CleanPage(page.handle(), &options, &record, &overlay);
      EXPECT_TRUE(page.Unchanged());
      if (cleaned == nullptr) {
        EXPECT_EQ(ErrCancelled, PagesError());
        EXPECT_TRUE(record == nullptr && overlay == nullptr);
        EXPECT_EQ(blocks, host::LiveBlocks());
      } else {
        EXPECT_GE(calls, 3) << "too few steps ask";
        FreeCleanRecord(record);
        GlobalFree(overlay);
      }
      ASSERT_LT(calls, 1000);
    }
    GlobalFree(cleaned);
  }
}

TEST(InterfaceCleaning, TellsAllOfItsListsAndNothingBeyond) {
  TestDib page = TestDib::Ruled(8, 2);
  page.Fill(0, 0, 8, 500, 0);  // a border
  CleanOptions options;
  ASSERT_EQ(1, DefaultCleanOptions(&options, sizeof(options)));
  options.classic = 1;
  CleanRecord* record = nullptr;
  GlobalFree(CleanPage(page.handle(), &options, &record, nullptr));
  ASSERT_NE(nullptr, record) << PagesErrorText();
  CleanSummary summary = {};
  summary.size = sizeof(summary);
  ASSERT_EQ(1, GetCleanSummary(record, &summary));
  EXPECT_EQ(std::tuple(500, 500, 1, 1),
            std::tuple(summary.widthIn, summary.heightIn, summary.isTurned, summary.isSkewCertain));
  EXPECT_NEAR(2, summary.skew, 0.1);
  EXPECT_EQ(8 * 500, summary.trimmedLeft);
  const std::string json = CleanRecordJson(record);
  EXPECT_NE(std::string::npos, json.find("\"turned\":true")) << json;
  EXPECT_NE(std::string::npos, json.find("\"trimmedLeft\":4000")) << json;

  PageHole hole = {};
  hole.size = sizeof(hole);
  PageRegion region = {};
  region.size = sizeof(region);
  const char *what = nullptr, *why = nullptr;
  double milliseconds = -1;
  const auto count = [](auto get) {
    int32_t entries = 0;
    while (get(entries) != 0) ++entries;
    EXPECT_EQ(ErrParameter, PagesError());
    EXPECT_EQ(0, get(-1));
    return entries;
  };
  EXPECT_EQ(summary.holes, count([&](int32_t i) { return GetCleanHole(record, i, &hole); }));
  EXPECT_EQ(summary.regions, count([&](int32_t i) { return GetCleanRegion(record, i, &region); }));
  EXPECT_EQ(summary.skipped, count([&](int32_t i) { return GetCleanSkipped(record, i, &what, &why); }));
  EXPECT_EQ(summary.takenBack, count([&](int32_t i) { return GetCleanTakenBack(record, i, &what, &why); }));
  EXPECT_EQ(summary.sidesLeft, count([&](int32_t i) { return GetCleanSideLeft(record, i, &what, &why); }));
  EXPECT_EQ(summary.times, count([&](int32_t i) { return GetCleanTime(record, i, &what, &milliseconds); }));
  EXPECT_GT(summary.times, 2);
  EXPECT_GE(milliseconds, 0);
  FreeCleanRecord(record);
}

// ---- what is refused --------------------------------------------------------------------------------------

// Runs every function that takes a page on one that is none.
void ExpectAllRefuse(HGLOBAL page) {
  const HGLOBAL two[] = {page, page};
  HGLOBAL upper = nullptr, lower = nullptr;
  PageInfo info = {};
  info.size = sizeof(info);
  uint8_t pixels[64];
  double degrees, confidence;
  int32_t flag;
  CleanRecord* record = nullptr;
  PageWriter* writer = CreatePagesInMemory("tif", nullptr);
  const std::pair<const char*, bool> calls[] = {
      {"PixelsFromPage", PixelsFromPage(page, pixels, 8, PixelsRgb) != 0},
      {"DescribePage", DescribePage(page, &info) != 0},
      {"SetPageResolution", SetPageResolution(page, 300, 300) != 0},
      {"CompletePageResolution", CompletePageResolution(page, 0, &flag) != 0},
      {"CleanPage", CleanPage(page, nullptr, &record, nullptr) != nullptr},
      {"ExaminePage", ExaminePage(page, &record) != 0},
      {"MeasurePageSkew", MeasurePageSkew(page, 0, TextAuto, &degrees, &confidence) != 0},
      {"IsPageBlank", IsPageBlank(page, TextAuto, 1, &flag) != 0},
      {"FlipPage", FlipPage(page, DirectionVertical) != nullptr},
      {"TurnPage", TurnPage(page, 1) != nullptr},
      {"RotatePage", RotatePage(page, 3, GroundWhite) != nullptr},
      {"StraightenPage", StraightenPage(page, 3, 1, 0, GroundWhite) != nullptr},
      {"SkewPage", SkewPage(page, DirectionVertical, 3, GroundWhite) != nullptr},
      {"DeskewPage", DeskewPage(page, 0) != nullptr},
      {"CropPage", CropPage(page, 0, 0, 1, 1) != nullptr},
      {"CropPageSheet", CropPageSheet(page, 90, 0, 0) != nullptr},
      {"CutPage", CutPage(page, 1, &upper, &lower) != 0},
      {"SplitPage", SplitPage(page, 8, 0, nullptr, 0) != 0},
      {"MergePages", MergePages(two, 2, 1) != nullptr},
      {"TrimPage", TrimPage(page) != nullptr},
      {"FillPageHoles", FillPageHoles(page, HolesAny) != nullptr},
      {"DespecklePage", DespecklePage(page, 30, 0) != nullptr},
      {"DitherPage", DitherPage(page, DitherFloydSteinberg, 1) != nullptr},
      {"DitherPageSmoothly", DitherPageSmoothly(page, 1) != nullptr},
      {"DitherPageSharply", DitherPageSharply(page, 1) != nullptr},
      {"HalftonePage", HalftonePage(page, HalftoneOrdered, 0) != nullptr},
      {"BinarizePage", BinarizePage(page, BinarizeFast, 0, 0) != nullptr},
      {"GreyPage", GreyPage(page, GreyWeighted, 0) != nullptr},
      {"InvertPage", InvertPage(page) != nullptr},
      {"ColourPage", ColourPage(page) != nullptr},
      {"ExpandPage", ExpandPage(page) != nullptr},
      {"ScalePage", ScalePage(page, 0, 0, 50, 0, InterpolateCubic) != nullptr},
      {"ScaleGreyPage", ScaleGreyPage(page, 2, 0, InterpolateBilinear) != nullptr},
      {"CombinePages", CombinePages(page, page, nullptr, 0, 0, CombineOver) != nullptr},
      {"AppendPage", AppendPage(writer, page, nullptr) != 0},
      {"EncodePage", EncodePage(page, nullptr, "tif", nullptr) != nullptr}};
  AbandonPages(writer);
  for (const auto& [name, isDone] : calls) EXPECT_FALSE(isDone) << name;
  EXPECT_TRUE(record == nullptr && upper == nullptr && lower == nullptr);
}

TEST(InterfaceRefuses, PagesThatAreNone) {
  HGLOBAL freed = GlobalAlloc(GMEM_MOVEABLE, 4096);
  GlobalFree(freed);
  for (HGLOBAL none : {HGLOBAL(nullptr), freed}) ExpectAllRefuse(none);
  for (const int bits : {1, 4, 8, 24}) {
    for (const Bytes& block : testing::LyingBlocks(bits)) {
      const TestDib page(block);
      const size_t blocks = host::LiveBlocks();
      SCOPED_TRACE(::testing::Message()
                   << bits << " bits, " << block.size() << " bytes, header "
                   << ::testing::PrintToString(Bytes(
                          block.begin(),
                          block.begin() + std::min<ptrdiff_t>(40, static_cast<ptrdiff_t>(block.size())))));
      ExpectAllRefuse(page.handle());
      EXPECT_TRUE(page.Unchanged());
      EXPECT_EQ(blocks, host::LiveBlocks());
    }
  }
}

TEST(InterfaceRefuses, ArgumentsOutOfRange) {
  const TestDib dib = TestDib::Ruled(8, 0);
  HGLOBAL const page = dib.handle();
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  constexpr int kMost = std::numeric_limits<int>::max();
  uint8_t pixels[16] = {};
  HGLOBAL upper;
  const HGLOBAL holed[] = {page, nullptr};
  int32_t flag;
  const auto from = [&](int32_t width, int32_t height, ptrdiff_t stride, int format, double dpi = 300) {
    return PageFromPixels(pixels, width, height, stride, format, dpi, dpi) == nullptr;
  };
  const auto cleaned = [&](auto change) {
    CleanOptions options;
    DefaultCleanOptions(&options, sizeof(options));
    change(options);
    return CleanPage(page, &options, nullptr, nullptr) == nullptr;
  };
  struct Row {
    int line, error;
    bool isRefused;
    int found = PagesError();
  };
  const Row rows[] = {
      {__LINE__, ErrParameter, PageFromPixels(nullptr, 1, 1, 8, PixelsGrey8, 0, 0) == nullptr},
      {__LINE__, ErrParameter, from(0, 1, 8, PixelsGrey8)},
      {__LINE__, ErrParameter, from(1, -1, 8, PixelsGrey8)},
      {__LINE__, ErrParameter, from(3, 2, 2, PixelsGrey8)},
      {__LINE__, ErrParameter, from(3, 2, -8, PixelsRgb)},
      {__LINE__, ErrParameter, from(1, 2, std::numeric_limits<ptrdiff_t>::min(), PixelsGrey8)},
      {__LINE__, ErrParameter, from(1, 1, 8, 0)},
      {__LINE__, ErrParameter, from(1, 1, 8, PixelsBgra + 1)},
      {__LINE__, ErrTooLarge, from(kMost, kMost, std::numeric_limits<ptrdiff_t>::max(), PixelsGrey8)},
      {__LINE__, ErrParameter, from(1, 1, 8, PixelsGrey8, -1)},
      {__LINE__, ErrParameter, SetPageResolution(page, 300, kNan) == 0},
      {__LINE__, ErrParameter, CompletePageResolution(page, kInfinity, nullptr) == 0},
      {__LINE__, ErrParameter, PixelsFromPage(page, nullptr, 500, PixelsGrey8) == 0},
      {__LINE__, ErrParameter, PixelsFromPage(page, pixels, 499, PixelsGrey8) == 0},
      {__LINE__, ErrPageRefused, PixelsFromPage(page, pixels, 500, PixelsBit0Black) == 0},
      {__LINE__, ErrParameter, RotatePage(page, kNan, GroundWhite) == nullptr},
      {__LINE__, ErrParameter, StraightenPage(page, kInfinity, 1, 0, GroundWhite) == nullptr},
      {__LINE__, ErrParameter, RotatePage(page, 1, 2) == nullptr},
      {__LINE__, ErrParameter, FlipPage(page, -1) == nullptr},
      {__LINE__, ErrParameter, CutPage(page, 1, &upper, nullptr) == 0},
      {__LINE__, ErrParameter, MergePages(&page, 0, 1) == nullptr},
      {__LINE__, ErrParameter, MergePages(nullptr, 1, 1) == nullptr},
      {__LINE__, ErrParameter, MergePages(holed, 2, 1) == nullptr},
      {__LINE__, ErrParameter, DitherPage(page, DitherFloydSteinberg, 3) == nullptr},
      {__LINE__, ErrParameter, DespecklePage(page, 19, 0) == nullptr},
      {__LINE__, ErrParameter, HalftonePage(page, HalftoneThreshold, 256) == nullptr},
      {__LINE__, ErrParameter, ScalePage(page, 0, 0, kNan, 0, InterpolateCubic) == nullptr},
      {__LINE__, ErrParameter, IsPageBlank(page, TextAuto, 101, &flag) == 0},
      {__LINE__, ErrParameter, IsPageBlank(page, 3, 1, &flag) == 0},
      {__LINE__, ErrParameter, ExaminePage(page, nullptr) == 0},
      {__LINE__, ErrOption, cleaned([](CleanOptions& options) { options.mostSkew = kNan; })},
      {__LINE__, ErrOption, cleaned([](CleanOptions& options) { options.holeSize = 41; })},
      {__LINE__, ErrOption, cleaned([](CleanOptions& options) { options.speckLevel = 19; })},
      {__LINE__, ErrOption, cleaned([](CleanOptions& options) { options.reduce = ReduceAuto + 1; })},
      {__LINE__, ErrOption, cleaned([](CleanOptions& options) { options.dpi = -1; })},
      {__LINE__, ErrParameter, cleaned([](CleanOptions& options) { options.size = 3; })},
      {__LINE__, ErrParameter, OpenPages(nullptr) == nullptr},
      {__LINE__, ErrOpenFile, OpenPages("/nonexistent/page.tif") == nullptr},
      {__LINE__, ErrParameter, OpenPagesInMemory(nullptr, 1) == nullptr},
      {__LINE__, ErrFileFormat, OpenPagesInMemory(pixels, sizeof(pixels)) == nullptr},
      {__LINE__, ErrParameter, OpenPagesFromStream(nullptr) == nullptr},
      {__LINE__, ErrUnsupported, CreatePagesInMemory("gif", nullptr) == nullptr},
      {__LINE__, ErrOption, CreatePagesInMemory("tif", "colour=mauve") == nullptr},
      {__LINE__, ErrParameter, FinishPages(nullptr) == 0},
      {__LINE__, ErrParameter, GetPageFormat(-1, nullptr) == 0},
      {__LINE__, ErrParameter, GetPageFormat(0, nullptr) == 0},
      {__LINE__, ErrParameter, CleanRecordJson(nullptr) == nullptr},
  };
  for (const Row& row : rows) {
    EXPECT_TRUE(row.isRefused) << "line " << row.line;
    EXPECT_EQ(row.error, row.found) << "line " << row.line;
  }
  EXPECT_TRUE(dib.Unchanged());
}

TEST(InterfaceStructs, AreReadAndWrittenAsFarAsTheCallerKnowsThem) {
  const TestDib page = TestDib::Ruled(8, 0);
  for (const uint32_t size : {0u, 3u, 4u, 8u, 12u, static_cast<uint32_t>(sizeof(PageInfo))}) {
    PageInfo info;
    std::memset(&info, 0xA5, sizeof(info));
    info.size = size;
    EXPECT_EQ(size >= 4 ? 1 : 0, DescribePage(page.handle(), &info)) << size;
    EXPECT_EQ(size, info.size);
    const auto* bytes = reinterpret_cast<const uint8_t*>(&info);
    EXPECT_TRUE(
        std::all_of(bytes + std::max(size, 4u), bytes + sizeof(info), [](uint8_t b) { return b == 0xA5; }));
    EXPECT_EQ(size >= 8, info.width == 500);
  }
  // A later caller's struct, which has more; and an earlier one's options, which end before the progress.
  struct Later {
    PageInfo info;
    uint64_t more;
  } later = {{}, 77};
  later.info.size = sizeof(later);
  EXPECT_EQ(1, DescribePage(page.handle(), &later.info));
  EXPECT_EQ(77u, later.more);
  CleanOptions options;
  std::memset(&options, 0xA5, sizeof(options));
  constexpr auto kEarlier = static_cast<uint32_t>(offsetof(CleanOptions, progress));
  ASSERT_EQ(1, DefaultCleanOptions(&options, kEarlier));
  EXPECT_EQ(kEarlier, options.size);
  HGLOBAL cleaned = CleanPage(page.handle(), &options, nullptr, nullptr);
  EXPECT_NE(nullptr, cleaned) << PagesErrorText();
  GlobalFree(cleaned);
}

}  // namespace
}  // namespace rastrel
