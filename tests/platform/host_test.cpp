#include <gtest/gtest.h>
#include <rastrel.h>

#include <cstring>
#include <thread>
#include <vector>

#include "platform/host/fault_injection.h"
#include "platform/host/system.h"

namespace rastrel::testing {
namespace {

std::vector<UINT> messagesSeen;

INT_PTR CALLBACK RecordMessage(HWND window, UINT message, WPARAM, LPARAM) {
  messagesSeen.push_back(message);
  if (message == WM_INITDIALOG) SendMessageA(GetDlgItem(window, 1002), PBM_SETRANGE32, 0, 2);
  return TRUE;
}

TEST(MemoryBlocks, AreRoundedToEightAndCleared) {
  HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, 13);
  ASSERT_NE(nullptr, block);
  EXPECT_EQ(16u, GlobalSize(block));
  const auto* bytes = static_cast<const uint8_t*>(GlobalLock(block));
  for (int i = 0; i < 16; ++i) EXPECT_EQ(0, bytes[i]);
  EXPECT_EQ(nullptr, GlobalFree(block));
}

TEST(MemoryBlocks, CountLocksUpTo255) {
  HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, 8);
  EXPECT_EQ(0, GlobalUnlock(block));
  for (int i = 0; i < 300; ++i) EXPECT_NE(nullptr, GlobalLock(block));
  EXPECT_EQ(255u, GlobalFlags(block));
  for (int i = 0; i < 254; ++i) EXPECT_EQ(1, GlobalUnlock(block));
  EXPECT_EQ(0, GlobalUnlock(block));
  EXPECT_EQ(0u, GlobalFlags(block));
  GlobalFree(block);
}

TEST(MemoryBlocks, GrowKeepingTheirContentAndHandle) {
  HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, 8);
  std::memcpy(GlobalLock(block), "Rastrel!", 8);
  GlobalUnlock(block);
  ASSERT_EQ(block, GlobalReAlloc(block, 100000, GMEM_ZEROINIT));
  const auto* bytes = static_cast<const char*>(GlobalLock(block));
  EXPECT_EQ(0, std::memcmp(bytes, "Rastrel!\0\0\0", 11));
  EXPECT_EQ(0, bytes[99999]);
  GlobalUnlock(block);
  // A size that no memory has leaves the block as it was.
  EXPECT_EQ(nullptr, GlobalReAlloc(block, SIZE_MAX, 0));
  EXPECT_EQ(nullptr, GlobalReAlloc(block, SIZE_MAX / 2 + 1, 0));
  EXPECT_EQ(100000u, GlobalSize(block));
  GlobalFree(block);
}

TEST(MemoryBlocks, DeadHandlesAreRecognised) {
  HGLOBAL freed = GlobalAlloc(GMEM_MOVEABLE, 8);
  GlobalFree(freed);
  std::vector<HGLOBAL> dead = {nullptr, freed};
  for (const uintptr_t value :
       {uintptr_t{1}, uintptr_t{2}, uintptr_t{0x1000}, ~uintptr_t{0}, ~uintptr_t{1}}) {
    dead.push_back(reinterpret_cast<HGLOBAL>(value));
  }
  // Enough blocks come and go, and stay, that the freed one's place is in use again.
  std::vector<HGLOBAL> others;
  for (int i = 0; i < 5000; ++i) GlobalFree(GlobalAlloc(GMEM_MOVEABLE, 8));
  for (int i = 0; i < 3000; ++i) others.push_back(GlobalAlloc(GMEM_MOVEABLE, 8));
  HWND window = CreateDialogParamA(nullptr, "PROGRESSDLG", nullptr, RecordMessage, 0);
  dead.push_back(window);  // alive, but no block
  const size_t live = host::LiveBlocks();
  for (HGLOBAL handle : dead) {
    EXPECT_EQ(nullptr, GlobalLock(handle));
    EXPECT_EQ(0, GlobalUnlock(handle));
    EXPECT_EQ(0u, GlobalSize(handle));
    EXPECT_EQ(GMEM_INVALID_HANDLE, GlobalFlags(handle));
    EXPECT_EQ(nullptr, GlobalReAlloc(handle, 8, 0));
    EXPECT_EQ(handle, GlobalFree(handle));
  }
  EXPECT_EQ(live, host::LiveBlocks());
  DestroyWindow(window);
  for (HGLOBAL other : others) GlobalFree(other);
}

TEST(MemoryBlocks, OfNoSizeCannotBeLocked) {
  HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, 0);
  EXPECT_EQ(nullptr, GlobalLock(block));
  EXPECT_EQ(0u, GlobalFlags(block));
  EXPECT_EQ(nullptr, GlobalFree(block));
}

TEST(MemoryBlocks, ManyThreadsMakeLockAndFreeThem) {
  const size_t live = host::LiveBlocks();
  HGLOBAL shared = GlobalAlloc(GMEM_MOVEABLE, 8);
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([shared, t] {
      for (int i = 0; i < 5000; ++i) {
        HGLOBAL own = GlobalAlloc(GMEM_MOVEABLE, sizeof(int) * 2);
        *static_cast<int*>(GlobalLock(own)) = t * 5000 + i;
        GlobalLock(shared);
        EXPECT_EQ(t * 5000 + i, *static_cast<int*>(GlobalLock(own)));
        GlobalUnlock(shared);
        GlobalFree(own);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(0u, GlobalFlags(shared));
  GlobalFree(shared);
  EXPECT_EQ(live, host::LiveBlocks());
}

// What a presenter saw, in order.
struct Presenter {
  std::vector<std::string> calls;
  int cancelAfter = -1;
  RastrelProgressPresenter Table() {
    RastrelProgressPresenter table = {};
    table.context = this;
    table.open = [](void* context, HWND, const char* caption, HWND) {
      static_cast<Presenter*>(context)->calls.push_back(std::string("open ") + caption);
      return 1;
    };
    table.progress = [](void* context, HWND, int position, int end) {
      static_cast<Presenter*>(context)->calls.push_back(std::to_string(position) + "/" + std::to_string(end));
    };
    table.cancelled = [](void* context, HWND) {
      return static_cast<Presenter*>(context)->cancelAfter-- == 0 ? 1 : 0;
    };
    table.close = [](void* context, HWND) { static_cast<Presenter*>(context)->calls.push_back("close"); };
    return table;
  }
};

TEST(ProgressWindow, GoesThroughThePresenterAndItsCancelComesThroughTheQueueOnce) {
  Presenter presenter;
  presenter.cancelAfter = 1;
  const RastrelProgressPresenter table = presenter.Table();
  RastrelHostSetProgressPresenter(&table);
  messagesSeen.clear();
  HWND window = CreateDialogParamA(nullptr, "PROGRESSDLG", nullptr, RecordMessage, 0);
  ASSERT_NE(nullptr, window);
  for (int i = 0; i < 3; ++i) SendMessageA(GetDlgItem(window, 1002), PBM_STEPIT, 0, 0);
  MSG message = {};
  EXPECT_EQ(0, PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE));
  ASSERT_NE(0, PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE));
  EXPECT_NE(0, IsDialogMessageA(window, &message));
  presenter.cancelAfter = 0;
  EXPECT_EQ(0, PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE));
  EXPECT_NE(0, DestroyWindow(window));
  EXPECT_EQ(0, DestroyWindow(window));
  EXPECT_EQ(nullptr, GetDlgItem(window, 1002));
  RastrelHostSetProgressPresenter(nullptr);
  // A step past the end starts again, as the control does.
  EXPECT_EQ((std::vector<std::string>{"open Detect Skew Angle...", "0/2", "1/2", "2/2", "0/2", "close"}),
            presenter.calls);
  EXPECT_EQ((std::vector<UINT>{WM_INITDIALOG, WM_COMMAND, WM_DESTROY}), messagesSeen);
  EXPECT_EQ(0u, host::LiveWindows());
}

TEST(ProgressWindow, IsClosedOnItsOwnThreadOnly) {
  HWND window = CreateDialogParamA(nullptr, "PROGRESSDLG", nullptr, RecordMessage, 0);
  std::thread([window] { EXPECT_EQ(0, DestroyWindow(window)); }).join();
  EXPECT_EQ(1, DestroyWindow(window));
}

TEST(ProgressWindow, OnlyTheTwoTemplatesExist) {
  EXPECT_EQ(nullptr, CreateDialogParamA(nullptr, "PRINTPAGE", nullptr, RecordMessage, 0));
  HWND window = CreateDialogParamA(nullptr, "PUNCHPROGRESSDLG", nullptr, RecordMessage, 0);
  EXPECT_NE(nullptr, window);
  DestroyWindow(window);
}

}  // namespace
}  // namespace rastrel::testing
