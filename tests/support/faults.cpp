#include "tests/support/faults.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace rastrel::testing {

std::ostream& operator<<(std::ostream& out, const FaultOutcome& outcome) {
  return out << "fault " << static_cast<int>(outcome.fault) << " number " << outcome.n;
}

std::vector<FaultOutcome> RunWithFaults(host::Fault fault, const TestDib& input,
                                        const std::function<HGLOBAL(HGLOBAL)>& operation) {
  std::vector<FaultOutcome> outcomes;
  for (bool struck = true; struck;) {
    const size_t blocksBefore = host::LiveBlocks();
    const size_t windowsBefore = host::LiveWindows();
    const unsigned locksBefore = GlobalFlags(input.handle()) & GMEM_LOCKCOUNT;
    SetRastrelError(kErrorBefore);
    const int n = static_cast<int>(outcomes.size()) + 1;
    host::FailNth(fault, n);
    HGLOBAL result = operation(input.handle());
    struck = host::FaultStruck(fault);
    host::FailNth(fault, 0);
    if (result != nullptr) GlobalFree(result);
    const unsigned locks = (GlobalFlags(input.handle()) & GMEM_LOCKCOUNT) - locksBefore;
    for (unsigned i = 0; i < locks; ++i) GlobalUnlock(input.handle());
    outcomes.push_back({fault, n, result == nullptr, RastrelError(), host::LiveBlocks() - blocksBefore,
                        host::LiveWindows() - windowsBefore, locks, input.Unchanged()});
  }
  return outcomes;
}

void ExpectEveryFault(host::Fault fault, const TestDib& input, int error,
                      const std::function<HGLOBAL(HGLOBAL)>& operation) {
  const std::vector<FaultOutcome> outcomes = RunWithFaults(fault, input, operation);
  EXPECT_GT(outcomes.size(), 1u) << "nothing was made to fail";
  for (const FaultOutcome& outcome : outcomes) {
    SCOPED_TRACE(::testing::Message() << outcome);
    EXPECT_TRUE(outcome.inputUnchanged);
    EXPECT_EQ(0u, outcome.leakedBlocks);
    EXPECT_EQ(0u, outcome.leakedWindows);
    if (&outcome == &outcomes.back()) {
      EXPECT_FALSE(outcome.failed);
      continue;
    }
    EXPECT_TRUE(outcome.failed);
    EXPECT_EQ(0u, outcome.locks);
    EXPECT_EQ(error, outcome.error);
  }
}

}  // namespace rastrel::testing
