// Every version of the kernels on one machine.
#ifndef RASTREL_TESTS_SUPPORT_PROCESSORS_H
#define RASTREL_TESTS_SUPPORT_PROCESSORS_H

#include <gtest/gtest.h>

#include "pixels/kernels.h"

namespace rastrel::testing {

// Calls check() with the versions for each processor up to this machine's, of which some may be the same.
template <class Check>
void OnEveryProcessor(Check check) {
  for (size_t i = 0; i <= static_cast<size_t>(MachinesProcessor()); ++i) {
    SCOPED_TRACE(::testing::Message() << "processor " << i);
    LimitProcessor(static_cast<Processor>(i));
    check();
  }
  LimitProcessor(MachinesProcessor());
}

}  // namespace rastrel::testing

#endif
