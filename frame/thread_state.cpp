#include "frame/thread_state.h"

#include <atomic>

namespace rastrel {
namespace {

constexpr ScaleStepTable kDefaultZoomIn = {5, {10, 20, 40, 60, 80}};
constexpr ScaleStepTable kDefaultZoomOut = {5, {10, 15, 30, 40, 50}};
constexpr int32_t kDefaultZoomBase = 10;
constexpr int32_t kDefaultStretchMode = 4;  // halftone

constinit std::atomic<DWORD> stateSlot{TLS_OUT_OF_INDEXES};
constinit std::atomic<HINSTANCE> libraryInstance{nullptr};
constinit std::atomic<bool> attached{false};
constinit std::atomic<bool> detached{false};

// Returns the slot, allocating it when there is none: at process attach, or for a call that comes before or
// after the library is attached. TLS_OUT_OF_INDEXES when it cannot be had.
DWORD StateSlot() {
  DWORD slot = stateSlot.load(std::memory_order_acquire);
  if (slot != TLS_OUT_OF_INDEXES) return slot;
  const DWORD made = TlsAlloc();
  if (made == TLS_OUT_OF_INDEXES) return made;
  if (stateSlot.compare_exchange_strong(slot, made, std::memory_order_acq_rel)) return made;
  TlsFree(made);
  return slot;
}

// Gives the calling thread its block. There is no error return: without a block the thread cannot even report
// one.
void MakeThreadState(DWORD slot) {
  void* memory = HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, sizeof(ThreadState));
  if (memory == nullptr || TlsSetValue(slot, memory) == 0) {
    if (memory != nullptr) HeapFree(GetProcessHeap(), 0, memory);
    ExitThread(0);
  }
  auto* state = static_cast<ThreadState*>(memory);
  state->zoomIn = kDefaultZoomIn;
  state->zoomOut = kDefaultZoomOut;
  state->zoomBase = kDefaultZoomBase;
  state->stretchMode = kDefaultStretchMode;
}

void FreeThreadState(DWORD slot) {
  void* memory = TlsGetValue(slot);
  if (memory == nullptr) return;
  HeapFree(GetProcessHeap(), 0, memory);
  TlsSetValue(slot, nullptr);
}

// The platform family that may send the same notification twice.
bool NotifiesTwice() { return (GetVersion() & 0x80000000u) != 0; }

BOOL AttachProcess(HINSTANCE instance) {
  if (NotifiesTwice() && attached) return FALSE;
  attached = true;
  libraryInstance = instance;
  const DWORD slot = StateSlot();
  if (slot == TLS_OUT_OF_INDEXES) return FALSE;
  if (TlsGetValue(slot) == nullptr) MakeThreadState(slot);
  return TRUE;
}

BOOL DetachProcess() {
  if (NotifiesTwice() && detached) return FALSE;
  detached = true;
  const DWORD slot = stateSlot.exchange(TLS_OUT_OF_INDEXES);
  if (slot == TLS_OUT_OF_INDEXES) return TRUE;
  FreeThreadState(slot);  // blocks of threads that never detached stay
  TlsFree(slot);
  return TRUE;
}

}  // namespace

ThreadState& GetThreadState() {
  const DWORD slot = StateSlot();
  void* state = TlsGetValue(slot);
  if (state == nullptr) {
    MakeThreadState(slot);
    state = TlsGetValue(slot);
  }
  return *static_cast<ThreadState*>(state);
}

HINSTANCE LibraryInstance() { return libraryInstance; }

INT_PTR RunLibraryDialog(HWND owner, LPCSTR templateName, DLGPROC procedure) {
  return DialogBoxParamA(LibraryInstance(), templateName, owner, procedure, 0);
}

}  // namespace rastrel

// Told by the loader that the process or a thread attaches or detaches. Returns whether the library accepts
// it.
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/) {
  switch (reason) {
    case DLL_PROCESS_ATTACH:
      return rastrel::AttachProcess(instance);
    case DLL_THREAD_ATTACH:
      rastrel::GetThreadState();
      return TRUE;
    case DLL_THREAD_DETACH:
      rastrel::FreeThreadState(rastrel::stateSlot.load());
      return TRUE;
    case DLL_PROCESS_DETACH:
      return rastrel::DetachProcess();
    default:
      return FALSE;
  }
}
