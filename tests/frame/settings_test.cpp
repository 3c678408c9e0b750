#include <gtest/gtest.h>
#include <rastrel.h>

#include <cstring>
#include <string>

#include "frame/thread_state.h"
#include "platform/host/fault_injection.h"
#include "tests/support/fresh_thread.h"

namespace rastrel::testing {
namespace {

TEST(RastrelError, TakesOnlyKnownCodesAndIsEachThreadsOwn) {
  OnFreshThread([] {
    EXPECT_EQ(0, RastrelError());
    EXPECT_EQ(0, SetRastrelError(32));
    for (const int refused : {33, -1, 1 << 30}) EXPECT_EQ(32, SetRastrelError(refused));
    OnFreshThread([] { EXPECT_EQ(0, SetRastrelError(4)); });
    EXPECT_EQ(32, RastrelError());
  });
}

TEST(RastrelErrorString, FillsSixtyBytesWithATextOfTheThreadsCodeWhereTheCodeIsUnknown) {
  char buffer[61];
  for (const int code : {20, 33, -1}) {
    std::memset(buffer, 'x', sizeof(buffer));
    SetRastrelError(code == 20 ? 0 : 25);
    EXPECT_EQ(buffer, RastrelErrorString(buffer, code));
    const std::string text = code == 20 ? "Paramater error in Dithering." : "Could not get dispaly DC.";
    EXPECT_EQ(text + std::string(60 - text.size(), '\0') + 'x', std::string(buffer, 61));
    EXPECT_EQ(code == 20 ? 0 : 25, RastrelError());
  }
}

TEST(RastrelErrorString, ShowsAMessageBoxWithoutABuffer) {
  std::string shown;
  RastrelHostSetMessageBox(
      [](void* context, HWND owner, const char* text, const char* title, unsigned style) {
        *static_cast<std::string*>(context) = std::string(title) + "|" + text + "|" + std::to_string(style) +
                                              (owner == nullptr ? "" : "|owned");
        return 1;
      },
      &shown);
  EXPECT_EQ(nullptr, RastrelErrorString(nullptr, 32));
  RastrelHostSetMessageBox(nullptr, nullptr);
  EXPECT_EQ("Rastrel Error|Unable to find a scanned page for cropping.|48", shown);
}

TEST(GetImageVersion, IsCutWithoutATerminator) {
  struct Case {
    int length;
    std::string expected;
  };
  for (const Case& c : {Case{0, "xxxxxxxxxxxxxxx"}, Case{-5, "xxxxxxxxxxxxxxx"}, Case{7, "Versionxxxxxxxx"},
                        Case{12, "Version 9.11xxx"}, Case{13, std::string("Version 9.11\0xx", 15)},
                        Case{1000, std::string("Version 9.11\0xx", 15)}}) {
    char buffer[16] = "xxxxxxxxxxxxxxx";
    GetImageVersion(buffer, c.length);
    EXPECT_EQ(c.expected, std::string(buffer, 15)) << c.length;
  }
  GetImageVersion(nullptr, 13);
}

TEST(Settings, HaveDefaultsAndRefuseOtherModes) {
  OnFreshThread([] {
    EXPECT_EQ(4, DisplaySetStretchBltMode(3));
    for (const int refused : {0, 5, -1}) EXPECT_EQ(3, DisplaySetStretchBltMode(refused));
    EXPECT_EQ(3, DisplaySetStretchBltMode(1));
    EXPECT_EQ(1, DisplaySetStretchBltMode(4));
    EXPECT_EQ(4, DisplayGetStretchBltMode());
    EXPECT_EQ(0, SetLowMemStretch(-77));
    EXPECT_EQ(-77, GetLowMemStretch());
  });
}

TEST(ScaleSteps, StartWithTheDefaultsAndAreStoredOnlyWhenAllIsValid) {
  OnFreshThread([] {
    ScaleStepTable in = {};
    ScaleStepTable out = {};
    EXPECT_EQ(10, BZoomGetScaleSteps(&in, &out));
    const ScaleStepTable defaultIn = {5, {10, 20, 40, 60, 80}};
    const ScaleStepTable defaultOut = {5, {10, 15, 30, 40, 50}};
    EXPECT_EQ(0, std::memcmp(&in, &defaultIn, sizeof(in)));
    EXPECT_EQ(0, std::memcmp(&out, &defaultOut, sizeof(out)));

    const ScaleStepTable good = {2,
                                 {7, 9, 1, 2, 3, 4, 5, 6, 7, 8}};  // what follows the count is not looked at
    for (const ScaleStepTable& bad :
         {ScaleStepTable{3, {7, 20, 20}}, ScaleStepTable{2, {12, 20}}, ScaleStepTable{0, {7}},
          ScaleStepTable{11, {7, 8, 9, 10, 11, 12, 13, 14, 15, 16}}, ScaleStepTable{-1, {7}}}) {
      EXPECT_EQ(0, BZoomSetScaleSteps(7, &good, &bad));
      EXPECT_EQ(0, BZoomSetScaleSteps(7, &bad, &good));
    }
    for (const int base : {0, 1001, -7}) EXPECT_EQ(0, BZoomSetScaleSteps(base, nullptr, nullptr));
    EXPECT_EQ(10, BZoomGetScaleSteps(&in, nullptr));
    EXPECT_EQ(0, std::memcmp(&in, &defaultIn, sizeof(in)));

    EXPECT_EQ(1, BZoomSetScaleSteps(7, &good, nullptr));
    EXPECT_EQ(7, BZoomGetScaleSteps(&in, &out));
    EXPECT_EQ(0, std::memcmp(&in, &good, sizeof(in)));
    EXPECT_EQ(0, std::memcmp(&out, &defaultOut, sizeof(out)));
    EXPECT_EQ(1, BZoomSetScaleSteps(7, nullptr, &good));
    BZoomGetScaleSteps(nullptr, &out);
    EXPECT_EQ(0, std::memcmp(&out, &good, sizeof(out)));
    EXPECT_EQ(1, BZoomSetScaleSteps(1, nullptr, nullptr));
    EXPECT_EQ(1, BZoomSetScaleSteps(1000, nullptr, nullptr));
    EXPECT_EQ(1000, BZoomGetScaleSteps(nullptr, nullptr));
    EXPECT_EQ(0, RastrelError());
  });
}

TEST(ThreadState, ThreadsWithoutMemoryForItEnd) {
  bool reached = false;
  OnFreshThread([&reached] {
    host::FailNth(host::Fault::kAllocation, 1);
    RastrelError();
    reached = true;
  });
  host::FailNth(host::Fault::kAllocation, 0);
  EXPECT_FALSE(reached);
}

TEST(DllMain, AttachesAndDetaches) {
  constexpr uint32_t kNotifiesTwice = 0x80000000;
  EXPECT_EQ(0, DllMain(nullptr, 4, nullptr));
  OnFreshThread([] {
    EXPECT_NE(0, DllMain(nullptr, DLL_THREAD_ATTACH, nullptr));
    SetRastrelError(5);
    EXPECT_NE(0, DllMain(nullptr, DLL_THREAD_ATTACH, nullptr));
    EXPECT_EQ(5, RastrelError()) << "a thread keeps the block that it has";
    EXPECT_NE(0, DllMain(nullptr, DLL_THREAD_DETACH, nullptr));
    EXPECT_EQ(0, RastrelError()) << "the block was freed, and the next call made a new one";
  });
  SetRastrelError(5);
  EXPECT_NE(0, DllMain(nullptr, DLL_PROCESS_DETACH, nullptr));
  EXPECT_NE(0, DllMain(nullptr, DLL_PROCESS_DETACH, nullptr));
  EXPECT_EQ(0, RastrelError()) << "calls still work after the library was detached";
  int object = 0;
  const auto module = reinterpret_cast<HINSTANCE>(&object);
  EXPECT_NE(0, DllMain(module, DLL_PROCESS_ATTACH, nullptr));
  EXPECT_EQ(module, LibraryInstance());
  EXPECT_EQ(-1, RunLibraryDialog(nullptr, "PRINTPAGE", nullptr)) << "the host has no modal dialogs";
  // Where the platform notifies twice, the second time is refused.
  host::SetPlatformVersion(kNotifiesTwice);
  EXPECT_EQ(0, DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr));
  EXPECT_EQ(0, DllMain(nullptr, DLL_PROCESS_DETACH, nullptr));
  host::SetPlatformVersion(0);
  EXPECT_EQ(module, LibraryInstance());
  EXPECT_NE(0, DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr));
}

}  // namespace
}  // namespace rastrel::testing
