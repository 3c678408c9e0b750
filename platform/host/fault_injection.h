// Makes the host's operations fail on demand and counts what is alive. For tests; not installed.
#ifndef RASTREL_PLATFORM_HOST_FAULT_INJECTION_H
#define RASTREL_PLATFORM_HOST_FAULT_INJECTION_H

#include <cstddef>
#include <cstdint>

namespace rastrel::host {

enum class Fault : uint8_t {
  kAllocation,  // memory blocks, their growth, and the process heap
  kLock,        // GlobalLock
  kCreation,    // windows, bitmaps, palettes, device contexts
  kWrite,       // _lwrite and _hwrite put 0 bytes
};
constexpr int kFaults = 4;

// The n-th operation of that kind from now on (1 is the next) fails, once, on whatever thread; 0 takes it
// back.
void FailNth(Fault fault, int n);

// Whether the armed fault has struck since FailNth.
bool FaultStruck(Fault fault);

// For the host's operations: whether this one is to fail.
bool ShouldFail(Fault fault);

size_t LiveBlocks();
size_t LiveWindows();
size_t LiveObjects();  // bitmaps, palettes and device contexts

// What GetVersion answers from now on (0 at first).
void SetPlatformVersion(uint32_t version);

}  // namespace rastrel::host

#endif
