// What an operation must survive: every allocation, lock and creation failing in turn, and bad handles and
// blocks.
#ifndef RASTREL_TESTS_SUPPORT_FAULTS_H
#define RASTREL_TESTS_SUPPORT_FAULTS_H

#include <rastrel.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "platform/host/fault_injection.h"
#include "tests/support/test_dib.h"

namespace rastrel::testing {

// What came of one run in which the n-th operation of a kind failed.
struct FaultOutcome {
  host::Fault fault;
  int n;
  bool failed;          // the operation returned null
  int error;            // the thread's last error; it was kErrorBefore before the run
  size_t leakedBlocks;  // blocks left alive, the result not counted
  size_t leakedWindows;
  unsigned locks;  // left on the input
  bool inputUnchanged;
};
constexpr int kErrorBefore = 30;  // a code that no operation sets
std::ostream& operator<<(std::ostream& out, const FaultOutcome& outcome);

// Runs `operation` on `input` again and again, each time with another fault, until a run goes through without
// one. Every result is freed, leaked blocks are not. The run without a fault is the last outcome (n counts
// on, `failed` false).
std::vector<FaultOutcome> RunWithFaults(host::Fault fault, const TestDib& input,
                                        const std::function<HGLOBAL(HGLOBAL)>& operation);

// Checks that each fault makes `operation` return null with `error` (kErrorBefore: the error is left alone),
// nothing leaked, and the input unlocked and unchanged, and that at least one fault struck.
void ExpectEveryFault(host::Fault fault, const TestDib& input, int error,
                      const std::function<HGLOBAL(HGLOBAL)>& operation);

// The outcomes as a drawing: 'o' gave a result, 'x' null, 'l' null with one block lost; '?' left another
// error than `error`, a lock, or the input changed.
std::string DrawOutcomes(host::Fault fault, const TestDib& input, int error,
                         const std::function<HGLOBAL(HGLOBAL)>& operation);

// Checks that `operation` returns null and leaves these alone: no handle, handles of no block, and, at each
// depth, blocks that are cut short or whose headers promise more than they hold or name impossible sizes.
struct Refusals {
  int noHandle = kErrorBefore;  // the thread's last error after each
  int noBlock = kErrorBefore;
  int lying = kErrorBefore;
};
void ExpectRefusals(const Refusals& errors, std::initializer_list<int> depths,
                    const std::function<HGLOBAL(HGLOBAL)>& operation);

}  // namespace rastrel::testing

#endif
