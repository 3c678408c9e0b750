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
  for (const auto& [length, expected] : {std::pair{-5, std::string("xxxxxxxxxxxxxxx")},
                                         {7, "Versionxxxxxxxx"},
                                         {12, "Version 9.11xxx"},
                                         {1000, std::string("Version 9.11\0xx", 15)}}) {
    char buffer[16] = "xxxxxxxxxxxxxxx";
    GetImageVersion(buffer, length);
    EXPECT_EQ(expected, std::string(buffer, 15)) << length;
  }
}

TEST(ScaleSteps, AreStoredOnlyWhenAllIsValid) {
  OnFreshThread([] {
    const ScaleStepTable good = {2,
                                 {7, 9, 1, 2, 3, 4, 5, 6, 7, 8}};  // what follows the count is not looked at
    for (const ScaleStepTable& bad :
         {ScaleStepTable{3, {7, 20, 20}}, ScaleStepTable{2, {12, 20}}, ScaleStepTable{0, {7}},
          ScaleStepTable{11, {7, 8, 9, 10, 11, 12, 13, 14, 15, 16}}, ScaleStepTable{-1, {7}}}) {
      EXPECT_EQ(0, BZoomSetScaleSteps(7, &good, &bad));
      EXPECT_EQ(0, BZoomSetScaleSteps(7, &bad, &good));
    }
    for (const int base : {0, 1001, -7}) EXPECT_EQ(0, BZoomSetScaleSteps(base, nullptr, nullptr));
    ScaleStepTable in = {}, out = {};
    EXPECT_EQ(10, BZoomGetScaleSteps(&in, &out));
    EXPECT_EQ(1, BZoomSetScaleSteps(7, &good, &good));
    EXPECT_EQ(7, BZoomGetScaleSteps(&in, &out));
    EXPECT_TRUE(std::memcmp(&in, &good, sizeof(in)) == 0 && std::memcmp(&out, &good, sizeof(in)) == 0);
    for (const int base : {1, 1000}) EXPECT_EQ(1, BZoomSetScaleSteps(base, nullptr, nullptr));
    for (const int mode : {0, 5, 1}) EXPECT_EQ(4, DisplaySetStretchBltMode(mode)) << "only the last is one";
    EXPECT_EQ(1, DisplayGetStretchBltMode());
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
