#include <gtest/gtest.h>
#include <rastrel.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/host/fault_injection.h"
#include "platform/platform.h"
#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

void Append(Bytes& bytes, uint64_t value, int count) {
  for (int i = 0; i < count; ++i) bytes.push_back(static_cast<uint8_t>(value >> 8 * i));
}

Bytes FileHeader(uint32_t pixelOffset) {
  Bytes bytes = {'B', 'M'};
  Append(bytes, 0xDEADBEEF, 4);  // the size is not looked at
  Append(bytes, 0, 4);
  Append(bytes, pixelOffset, 4);
  return bytes;
}

Bytes InfoHeader(int bits, int width, int height, uint32_t imageBytes = 0, uint32_t used = 0,
                 uint32_t size = 40) {
  Bytes bytes;
  for (const uint32_t field : {size, static_cast<uint32_t>(width), static_cast<uint32_t>(height)})
    Append(bytes, field, 4);
  Append(bytes, 1, 2);
  Append(bytes, bits, 2);
  for (const uint32_t field : {0u, imageBytes, 2835u, 2836u, used, 0u}) Append(bytes, field, 4);
  return bytes;
}

Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

const Bytes kTwoColours = {0, 0, 0, 0, 255, 255, 255, 0};
const Bytes kTwoRows = {0x80, 1, 2, 3, 0x40, 4, 5, 6};

class BitmapFile : public ::testing::Test {
 protected:
  BitmapFile() : folder_(std::filesystem::temp_directory_path() / ("rastrel-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(folder_);
    SetRastrelError(kErrorBefore);
  }
  ~BitmapFile() override { std::filesystem::remove_all(folder_); }

  std::string Path(const char* name = "page.bmp") const { return (folder_ / name).string(); }
  std::string Write(const Bytes& bytes) const {
    std::ofstream(Path(), std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return Path();
  }
  static Bytes Read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
  }
  TestDib Load(const Bytes& bytes) const { return TestDib(LoadDIBFromFile(Write(bytes).c_str())); }

 private:
  std::filesystem::path folder_;
};

TEST_F(BitmapFile, LoadsHeadersTableAndRows) {
  const Bytes dib = InfoHeader(1, 2, 2) + kTwoColours;
  const Bytes expected = InfoHeader(1, 2, 2, 8, 2) + kTwoColours + kTwoRows;
  EXPECT_EQ(expected, Load(FileHeader(62) + dib + kTwoRows).block());
  EXPECT_EQ(expected, Load(FileHeader(0) + dib + kTwoRows).block()) << "no offset: behind the table";
  EXPECT_EQ(expected, Load(FileHeader(65) + dib + Bytes{9, 9, 9} + kTwoRows).block()) << "a gap";
  EXPECT_EQ(expected, Load(dib + kTwoRows).block()) << "no file header";
  EXPECT_EQ(kErrorBefore, RastrelError());
}

TEST_F(BitmapFile, LoadsCoreHeadersAsInfoHeaders) {
  Bytes core;
  Append(core, 12, 4);
  for (const uint32_t field : {2u, 2u, 1u, 1u}) Append(core, field, 2);
  const Bytes table = {1, 2, 3, 4, 5, 6};
  Bytes header = InfoHeader(1, 2, 2, 8, 2);
  std::memset(header.data() + 24, 0, 8);  // no resolutions
  header[36] = 2;
  const Bytes expected = header + Bytes{1, 2, 3, 0, 4, 5, 6, 0} + kTwoRows;
  EXPECT_EQ(expected, Load(FileHeader(32) + core + table + kTwoRows + Bytes(14)).block());
  EXPECT_EQ(expected, Load(core + table + kTwoRows + Bytes(14)).block());
  // Forty bytes must be there, even behind a header of twelve.
  EXPECT_FALSE(Load(FileHeader(32) + core + table + kTwoRows));
  EXPECT_EQ(ErrFileIO, RastrelError());
}

TEST_F(BitmapFile, TakesTheHeaderAtItsWord) {
  // More colours than the depth has, an image size of its own, rows of a run-length kind.
  Bytes header = InfoHeader(8, 100, 100, 5, 300);
  header[16] = 1;
  const TestDib dib = Load(header + Bytes(1200, 7) + Bytes{1, 2, 3, 4, 5, 6});
  EXPECT_EQ((header + Bytes(1200, 7) + Bytes{1, 2, 3, 4, 5, 0, 0, 0}), dib.block());
}

TEST_F(BitmapFile, RefusesOtherHeadersAndSizesThatNoBlockHas) {
  for (const uint32_t size : {0u, 39u, 64u, 108u, 124u}) {
    SetRastrelError(kErrorBefore);
    EXPECT_FALSE(Load(FileHeader(0) + InfoHeader(8, 1, 1, 0, 0, size) + Bytes(2000)));
    EXPECT_EQ(ErrFileFormat, RastrelError());
  }
  SetRastrelError(kErrorBefore);
  for (const auto& [width, height] : {std::pair{-1, 1}, {1, -1}, {INT32_MAX, 2}, {65536, 65536 * 8}}) {
    EXPECT_FALSE(Load(InfoHeader(8, width, height)));
  }
  EXPECT_FALSE(Load(InfoHeader(8, 1, 1, 0xFFFFFFFF)));
  EXPECT_FALSE(Load(InfoHeader(8, 1, 1, 4, 0x40000000)));
  EXPECT_EQ(kErrorBefore, RastrelError()) << "memory that cannot be had is no error here";
}

TEST_F(BitmapFile, CutAnywhereFailsOrLoadsWithoutTheRest) {
  const Bytes whole = FileHeader(62) + InfoHeader(1, 2, 2) + kTwoColours + kTwoRows;
  for (size_t length = 0; length < whole.size(); ++length) {
    SetRastrelError(kErrorBefore);
    const TestDib dib = Load(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
    EXPECT_EQ(length >= 54, static_cast<bool>(dib)) << length;
    EXPECT_EQ(length >= 54 ? kErrorBefore : ErrFileIO, RastrelError()) << length;
    if (dib) {
      EXPECT_EQ(56u, dib.block().size());
    }
  }
}

TEST_F(BitmapFile, ThatCannotBeOpened) {
  for (const char* path : {"/nowhere/page.bmp", "", "/tmp", static_cast<const char*>(nullptr)}) {
    SetRastrelError(kErrorBefore);
    EXPECT_EQ(nullptr, LoadDIBFromFile(path));
    EXPECT_EQ(ErrOpenFile, RastrelError());
    const TestDib page = TestDib::Random(1, 8, 8, 1);
    SetRastrelError(kErrorBefore);
    EXPECT_EQ(0, SaveDIB(path, page.handle()));
    EXPECT_EQ(ErrOpenFile, RastrelError());
  }
}

TEST_F(BitmapFile, ReadDIBInfoLeavesTheFileAtTheRows) {
  EXPECT_EQ(nullptr, ReadDIBInfo(-1));
  EXPECT_EQ(ErrParameter, RastrelError());
  SetRastrelError(kErrorBefore);
  EXPECT_EQ(nullptr, ReadDIBInfo(9999));
  EXPECT_EQ(ErrFileIO, RastrelError());
  // The picture stands behind ten other bytes, and offsets count from its own start.
  for (const uint32_t offset : {0u, 62u, 70u}) {
    const std::string path =
        Write(Bytes(10, 'x') + FileHeader(offset) + InfoHeader(1, 2, 2) + kTwoColours + kTwoRows);
    const auto file = static_cast<HFILE>(reinterpret_cast<intptr_t>(
        CreateFileA(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)));
    _llseek(file, 10, FILE_BEGIN);
    const TestDib info(ReadDIBInfo(file));
    EXPECT_EQ(InfoHeader(1, 2, 2, 8, 2) + kTwoColours, info.block());
    EXPECT_EQ(10 + (offset == 0 ? 62 : static_cast<LONG>(offset)), _llseek(file, 0, FILE_CURRENT));
    _lclose(file);
  }
}

TEST_F(BitmapFile, SavedIsTheWholeBlockBehindAFileHeader) {
  for (const int bits : {1, 4, 8, 24}) {
    const TestDib page = TestDib::Random(bits, 13, 7, static_cast<unsigned>(bits));
    Write(Bytes(100000, 'x'));
    ASSERT_EQ(1, SaveDIB(Path().c_str(), page.handle()));
    const Bytes saved = Read(Path());
    const Bytes block = page.block();
    Bytes expected = {'B', 'M'};
    Append(expected, block.size() + 14, 4);
    Append(expected, 0, 4);
    Append(expected, 54 + (bits == 24 ? 0 : 4u << bits), 4);
    EXPECT_EQ(expected + block, saved);
    EXPECT_TRUE(page.Unchanged());
    const TestDib loaded(LoadDIBFromFile(Path().c_str()));
    EXPECT_EQ(page.Pixels(), loaded.Pixels());
  }
}

TEST_F(BitmapFile, KeptSavingToAFullDiskIsNotNoticed) {
  const TestDib page = TestDib::Random(8, 100, 100, 1);
  EXPECT_EQ(1, SaveDIB("/dev/full", page.handle()));
}

TEST_F(BitmapFile, SaveRefusesWhatIsNoDibAndLeavesTheFile) {
  Write({1, 2, 3});
  const TestDib tiny(Bytes(8));
  HGLOBAL freed = GlobalAlloc(GMEM_MOVEABLE, 100);
  GlobalFree(freed);
  const std::pair<HGLOBAL, int> cases[] = {
      {nullptr, ErrParameter}, {freed, ErrFileIO}, {tiny.handle(), ErrDIBSize}};
  for (const auto& [dib, error] : cases) {
    EXPECT_EQ(0, SaveDIB(Path().c_str(), dib));
    EXPECT_EQ(error, RastrelError());
  }
  EXPECT_EQ((Bytes{1, 2, 3}), Read(Path()));
}

TEST_F(BitmapFile, WritesThatPutNothingAreErrorsAndTheCursorComesBack) {
  const TestDib page = TestDib::Random(8, 10, 10, 1);
  std::vector<int> cursors;
  RastrelHostSetCursor(
      [](void* seen, int cursor) { static_cast<std::vector<int>*>(seen)->push_back(cursor); }, &cursors);
  for (int write = 1; write <= 2; ++write) {
    host::FailNth(host::Fault::kWrite, write);
    EXPECT_EQ(0, SaveDIB(Path().c_str(), page.handle()));
    EXPECT_EQ(ErrFileIO, RastrelError());
    EXPECT_EQ(write == 1 ? 0u : 14u, Read(Path()).size()) << "a partial file stays";
  }
  host::FailNth(host::Fault::kWrite, 0);
  RastrelHostSetCursor(nullptr, nullptr);
  EXPECT_EQ((std::vector<int>{32514, 0, 32514, 0}), cursors);
  EXPECT_TRUE(page.Unchanged());
}

TEST_F(BitmapFile, LoadingSurvivesEveryFault) {
  const std::string path = Write(FileHeader(62) + InfoHeader(1, 2, 2) + kTwoColours + kTwoRows);
  const auto load = [&path](HGLOBAL) { return LoadDIBFromFile(path.c_str()); };
  const TestDib none(Bytes(8));
  ExpectEveryFault(host::Fault::kAllocation, none, kErrorBefore, load);
  const std::vector<FaultOutcome> locks = RunWithFaults(host::Fault::kLock, none, load);
  ASSERT_EQ(4u, locks.size());
  for (const FaultOutcome& outcome : locks) {
    EXPECT_EQ(0u, outcome.leakedBlocks);
    // Kept: the last lock, for the rows, is not needed for success.
    EXPECT_EQ(outcome.n <= 2, outcome.failed) << outcome;
    EXPECT_EQ(outcome.n <= 2 ? ErrLockMemory : kErrorBefore, outcome.error) << outcome;
  }
}

}  // namespace
}  // namespace rastrel::testing
