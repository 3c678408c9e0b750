#include "platform/host/fault_injection.h"

#include <atomic>

#include "platform/host/handle_table.h"
#include "platform/host/system.h"

namespace rastrel::host {
namespace {

// What is left until the fault strikes; 0 when none is armed or it has struck.
constinit std::atomic<int> countdown[kFaults] = {};
constinit std::atomic<bool> struck[kFaults] = {};
constinit std::atomic<uint32_t> platformVersion{0};

size_t IndexOf(Fault fault) { return static_cast<size_t>(fault); }

}  // namespace

void FailNth(Fault fault, int n) {
  struck[IndexOf(fault)] = false;
  countdown[IndexOf(fault)] = n;
}

bool FaultStruck(Fault fault) { return struck[IndexOf(fault)]; }

bool ShouldFail(Fault fault) {
  std::atomic<int>& left = countdown[IndexOf(fault)];
  if (left.load(std::memory_order_relaxed) == 0) return false;
  if (left.fetch_sub(1) != 1) return false;
  struck[IndexOf(fault)] = true;
  return true;
}

size_t LiveBlocks() { return CountHandles(HandleKind::kMemory); }
size_t LiveWindows() { return CountHandles(HandleKind::kWindow); }
size_t LiveObjects() {
  return CountHandles(HandleKind::kBitmap) + CountHandles(HandleKind::kPalette) +
         CountHandles(HandleKind::kContext);
}

void SetPlatformVersion(uint32_t version) { platformVersion = version; }

}  // namespace rastrel::host

DWORD GetVersion() { return rastrel::host::platformVersion; }
