// rastrel.dll as the system's loader brings it in and lets it go: every thread has its own state from its
// first call (or its start) to its end, and nothing stays behind.
#include <rastrel.h>

#include <commctrl.h>

#include <cstdio>
#include <initializer_list>

namespace {

int failures = 0;

void Check(bool holds, const char* what, int line) {
  if (holds) return;
  std::printf("line %d: %s does not hold\n", line, what);
  ++failures;
}
#define CHECK(condition) Check(condition, #condition, __LINE__)

// The library, under its functions' plain names.
struct Library {
  HMODULE module = LoadLibraryA("rastrel.dll");
  decltype(&RastrelError) getError = Find<decltype(&RastrelError)>("RastrelError");
  decltype(&SetRastrelError) setError = Find<decltype(&SetRastrelError)>("SetRastrelError");
  decltype(&BZoomGetScaleSteps) getSteps = Find<decltype(&BZoomGetScaleSteps)>("BZoomGetScaleSteps");

  template <class Function>
  Function Find(const char* name) const {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
  }
  bool isComplete() const {
    return module != nullptr && getError != nullptr && setError != nullptr && getSteps != nullptr;
  }
};
Library* library = nullptr;

// Blocks of the process's heap that are as large as a thread's state.
int StateBlocks() {
  int count = 0;
  PROCESS_HEAP_ENTRY entry = {};
  HeapLock(GetProcessHeap());
  while (HeapWalk(GetProcessHeap(), &entry)) {
    count += (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0 && entry.cbData == 208;
  }
  HeapUnlock(GetProcessHeap());
  return count;
}

// A thread that waits to be told to use the library, and again to end.
class User {
 public:
  explicit User(int error) : error_(error) {
    thread_ = CreateThread(nullptr, 0, Run, this, 0, nullptr);
    WaitForSingleObject(happened_, INFINITE);
  }
  ~User() {
    SignalObjectAndWait(mayGoOn_, thread_, INFINITE, FALSE);
    for (HANDLE handle : {thread_, mayGoOn_, happened_}) CloseHandle(handle);
  }
  User(const User&) = delete;
  User& operator=(const User&) = delete;

  void UseLibrary() { SignalObjectAndWait(mayGoOn_, happened_, INFINITE, FALSE); }

 private:
  static DWORD WINAPI Run(void* user) {
    static_cast<User*>(user)->Live();
    return 0;
  }
  void Live() {
    SignalObjectAndWait(happened_, mayGoOn_, INFINITE, FALSE);
    if (library == nullptr) return;
    ScaleStepTable in = {};
    CHECK(library->getError() == 0 && library->getSteps(&in, nullptr) == 10 && in.steps[4] == 80);
    library->setError(error_);
    SignalObjectAndWait(happened_, mayGoOn_, INFINITE, FALSE);
    CHECK(library == nullptr || library->getError() == error_);
  }

  int error_;
  HANDLE mayGoOn_ = CreateEventA(nullptr, FALSE, FALSE, nullptr);
  HANDLE happened_ = CreateEventA(nullptr, FALSE, FALSE, nullptr);
  HANDLE thread_;
};

void LoadAndLetGo() {
  const int blocks = StateBlocks();
  User early(7);
  Library loaded;
  CHECK(loaded.isComplete());
  if (!loaded.isComplete()) return;
  library = &loaded;
  CHECK(StateBlocks() == blocks + 1);  // of the thread that loads
  CHECK(FindResourceA(loaded.module, MAKEINTRESOURCEA(VS_VERSION_INFO), RT_VERSION) != nullptr);
  CHECK(loaded.getError() == 0);
  loaded.setError(5);
  early.UseLibrary();  // it has no state before
  CHECK(StateBlocks() == blocks + 2);
  {
    User first(8), second(9);
    CHECK(StateBlocks() == blocks + 4);  // from their start
    first.UseLibrary();
    second.UseLibrary();
    CHECK(StateBlocks() == blocks + 4);
    CHECK(loaded.getError() == 5);
  }
  CHECK(StateBlocks() == blocks + 2);
  CHECK(loaded.getError() == 5);
  FreeLibrary(loaded.module);
  library = nullptr;
  CHECK(GetModuleHandleA("rastrel.dll") == nullptr);
  CHECK(StateBlocks() == blocks + 1);  // Kept: of a thread that never ended while the library was there
}

// Each time the thread's state is new, and its block and slot are given back: only a few slots are free.
void LoadManyTimes() {
  constexpr int kFree = 16;
  DWORD slots[2048] = {};
  int taken = 0;
  while (taken < 2048 && (slots[taken] = TlsAlloc()) != TLS_OUT_OF_INDEXES) ++taken;
  CHECK(taken > kFree && taken < 2048);
  const int left = taken - kFree;
  while (taken > left) TlsFree(slots[--taken]);

  const int blocks = StateBlocks();
  for (int i = 0; i < 3 * kFree; ++i) {
    const Library loaded;
    CHECK(loaded.isComplete());
    if (!loaded.isComplete()) break;
    CHECK(loaded.getError() == 0);
    loaded.setError(5);
    FreeLibrary(loaded.module);
  }
  CHECK(StateBlocks() == blocks);
  while (taken > 0) TlsFree(slots[--taken]);
}

}  // namespace

int main() {
  LoadAndLetGo();
  LoadManyTimes();
  return failures == 0 ? 0 : 1;
}
