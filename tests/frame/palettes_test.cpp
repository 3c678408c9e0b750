#include <gtest/gtest.h>
#include <rastrel.h>

#include <cstring>

#include "platform/host/fault_injection.h"
#include "tests/support/faults.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {
namespace {

using host::Fault;

// The entries of a palette, which is deleted: red, green, blue, flags; none for null.
Bytes Taken(HPALETTE palette) {
  Bytes entries(4 * GetPaletteEntries(palette, 0, 0, nullptr));
  GetPaletteEntries(palette, 0, 0xFFFF, reinterpret_cast<PALETTEENTRY*>(entries.data()));
  DeleteObject(palette);
  return entries;
}

HGLOBAL CreateAndDelete(HGLOBAL dib) {
  HPALETTE palette = CreateDIBPalette(dib);
  DeleteObject(palette);
  return palette;
}

const PALETTEENTRY kColours[] = {{1, 2, 3, 0}, {250, 0, 7, 0}, {0, 90, 200, 0}};

TEST(CreateDIBPalette, TakesTheTableOrAFixedOne) {
  BITMAPINFOHEADER header = MakeHeader(8, 4, 4);
  header.biClrUsed = 2;
  const TestDib page(header, {{3, 2, 1, 99}, {6, 5, 4, 0}});
  EXPECT_EQ((Bytes{1, 2, 3, 0, 4, 5, 6, 0}), Taken(CreateDIBPalette(page.handle())));
  header.biClrUsed = 0xFFFF;
  Bytes longest(40 + 4 * 0xFFFF, 7);
  std::memcpy(longest.data(), &header, sizeof(header));
  EXPECT_EQ(4u * 0xFFFF, Taken(CreateDIBPalette(TestDib(longest).handle())).size());
  const Bytes fixed = Taken(CreateDIBPalette(TestDib(MakeHeader(24, 1, 1)).handle()));
  ASSERT_EQ(1024u, fixed.size());
  EXPECT_EQ((Bytes{32, 32, 0, 0}), Bytes(fixed.begin() + 36, fixed.begin() + 40));
  EXPECT_EQ((Bytes{192, 224, 192, 0, 255, 255, 255, 0}), Bytes(fixed.end() - 8, fixed.end()));

  const auto refuses = [](HGLOBAL dib, int error) {
    SetRastrelError(kErrorBefore);
    EXPECT_EQ(nullptr, CreateDIBPalette(dib));
    EXPECT_EQ(error, RastrelError());
  };
  for (const uintptr_t handle : {0, 0x1234}) refuses(reinterpret_cast<HGLOBAL>(handle), kErrorBefore);
  refuses(TestDib(Bytes(32)).handle(), ErrDIBSize);
  refuses(TestDib(Bytes(longest.begin(), longest.end() - 9)).handle(), ErrDIBSize);
  for (const uint32_t colours : {0x10000u, 0x40000001u, 0xFFFFFFFFu})
    refuses(page.With([&](auto& info) { info.biClrUsed = colours; }).handle(), ErrCreatePalette);
}

TEST(CreateDIBPalette, SurvivesEveryFault) {
  const size_t objects = host::LiveObjects();
  const TestDib table(MakeHeader(8, 1, 1)), none(MakeHeader(24, 1, 1));
  EXPECT_EQ("x?", DrawOutcomes(Fault::kAllocation, table, ErrCreatePalette, CreateAndDelete));
  EXPECT_EQ("x?", DrawOutcomes(Fault::kCreation, table, ErrCreatePalette, CreateAndDelete));
  EXPECT_EQ("?x?", DrawOutcomes(Fault::kLock, table, ErrCreatePalette, CreateAndDelete));
  EXPECT_EQ("x?o", DrawOutcomes(Fault::kLock, table, kErrorBefore, CreateAndDelete))
      << "the page's: no error";
  EXPECT_EQ("xo", DrawOutcomes(Fault::kCreation, none, kErrorBefore, CreateAndDelete));
  for (const Fault fault : {Fault::kAllocation, Fault::kLock}) {
    const std::vector<FaultOutcome> outcomes = RunWithFaults(fault, none, CreateAndDelete);
    const FaultOutcome& ofRecord = outcomes[outcomes.size() - 2];
    EXPECT_TRUE(ofRecord.failed && ofRecord.error == kErrorBefore && ofRecord.leakedBlocks == 0);
    EXPECT_EQ(1u, ofRecord.locks) << "Kept: without a table, a record that cannot be had leaves a lock";
  }
  EXPECT_EQ(objects, host::LiveObjects());
}

TEST(InvertDIBPalette, TurnsColoursOverInPlace) {
  const TestDib page(MakeHeader(1, 1, 1), {{0, 1, 2, 3}, {255, 254, 253, 252}});
  EXPECT_EQ(1, InvertDIBPalette(page.handle()));
  const Bytes block = page.block();
  EXPECT_EQ((Bytes{255, 254, 253, 3, 0, 1, 2, 252}), Bytes(block.begin() + 40, block.begin() + 48));
  EXPECT_EQ(1, InvertDIBPalette(page.handle()));
  EXPECT_TRUE(page.Unchanged());
  EXPECT_EQ(1, InvertDIBPalette(TestDib(MakeHeader(24, 1, 1)).handle()));
  EXPECT_EQ(0, InvertDIBPalette(nullptr));
  EXPECT_EQ(0, InvertDIBPalette(page.With([](auto& header) { header.biSize = 12; }).handle()));
  for (const uint32_t colours : {6u, 0x40000000u, 0xFFFFFFFFu})
    EXPECT_EQ(0, InvertDIBPalette(page.With([&](auto& header) { header.biClrUsed = colours; }).handle()));
}

TEST(ScreenPalette, IsNoneWhereTheScreenShowsAllColours) {
  const size_t objects = host::LiveObjects();
  SetRastrelError(kErrorBefore);
  EXPECT_EQ(nullptr, GetCurrentPalette());
  EXPECT_EQ(ErrCreatePalette, RastrelError());
  RGBQUAD entry = {1, 2, 3, 4};
  EXPECT_EQ(0, GetSystemPalette(&entry));
  EXPECT_EQ(2, entry.rgbGreen);
  EXPECT_EQ(objects, host::LiveObjects());
}

TEST(GetCurrentPalette, HasWhatTheScreenShows) {
  const auto expect = [](int bits, const Bytes& expected, int error, size_t contextsTaken = 0) {
    const size_t objects = host::LiveObjects();
    RastrelHostSetScreen(bits, kColours, bits == 8 ? 3 : 0);
    SetRastrelError(kErrorBefore);
    EXPECT_EQ(expected, Taken(GetCurrentPalette()));
    EXPECT_EQ(error, RastrelError());
    EXPECT_EQ(objects + contextsTaken, host::LiveObjects());
    RastrelHostSetScreen(32, nullptr, 0);
  };
  expect(8, {1, 2, 3, 0, 250, 0, 7, 0, 0, 90, 200, 0}, kErrorBefore);
  expect(1, {0, 0, 0, 0, 255, 255, 255, 0}, kErrorBefore);
  expect(16, {}, ErrCreatePalette);  // no colour limit
  host::FailNth(Fault::kCreation, 1);
  expect(8, {}, ErrCreateDC);
  host::FailNth(Fault::kCreation, 2);
  expect(8, {}, kErrorBefore);
  for (const Fault fault : {Fault::kAllocation, Fault::kLock}) {
    host::FailNth(fault, 1);
    expect(8, {}, ErrCreatePalette, 1);  // Kept: without memory for the record the context stays taken
  }
}

TEST(GetSystemPalette, FillsOnlyTheScreensEntries) {
  const size_t objects = host::LiveObjects();
  Bytes entries(16, 9);
  auto* quads = reinterpret_cast<RGBQUAD*>(entries.data());
  RastrelHostSetScreen(8, nullptr, 0);
  EXPECT_EQ(0, GetSystemPalette(quads)) << "no palette device";
  RastrelHostSetScreen(8, kColours, 3);
  EXPECT_EQ(0, GetSystemPalette(nullptr));
  EXPECT_EQ(1, GetSystemPalette(quads));
  EXPECT_EQ((Bytes{3, 2, 1, 0, 7, 0, 250, 0, 200, 90, 0, 0, 9, 9, 9, 9}), entries);
  EXPECT_EQ(objects, host::LiveObjects());
  RastrelHostSetScreen(32, nullptr, 0);
}

}  // namespace
}  // namespace rastrel::testing
