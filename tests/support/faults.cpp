#include "tests/support/faults.h"

#include <gtest/gtest.h>

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

std::string DrawOutcomes(host::Fault fault, const TestDib& input, int error,
                         const std::function<HGLOBAL(HGLOBAL)>& operation) {
  std::string drawing;
  for (const FaultOutcome& outcome : RunWithFaults(fault, input, operation)) {
    const bool isClean = outcome.error == error && outcome.locks == 0 && outcome.inputUnchanged &&
                         outcome.leakedWindows == 0 && outcome.leakedBlocks <= (outcome.failed ? 1 : 0);
    drawing += !isClean ? '?' : !outcome.failed ? 'o' : outcome.leakedBlocks == 0 ? 'x' : 'l';
  }
  return drawing;
}

void ExpectRefusals(const Refusals& errors, std::initializer_list<int> depths,
                    const std::function<HGLOBAL(HGLOBAL)>& operation) {
  const auto expectRefusal = [&](HGLOBAL dib, int error) {
    SetRastrelError(kErrorBefore);
    EXPECT_EQ(nullptr, operation(dib));
    EXPECT_EQ(error, RastrelError());
  };
  expectRefusal(nullptr, errors.noHandle);
  HGLOBAL freed = GlobalAlloc(GMEM_MOVEABLE, 100);
  GlobalFree(freed);
  for (HGLOBAL dead : {freed, reinterpret_cast<HGLOBAL>(uintptr_t{0x1234})}) {
    expectRefusal(dead, errors.noBlock);
  }
  for (const int bits : depths) {
    for (const Bytes& block : LyingBlocks(bits)) {
      const TestDib dib(block);
      SCOPED_TRACE(::testing::Message() << bits << " bits, " << block.size() << " bytes");
      expectRefusal(dib.handle(), errors.lying);
      EXPECT_TRUE(dib.Unchanged());
    }
  }
}

}  // namespace rastrel::testing
