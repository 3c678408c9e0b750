// GoogleTest's notification between threads, which it builds from what the standard library for the system's
// own threads has not. No test of ours uses it.
#ifndef RASTREL_TESTS_SUPPORT_WINDOWS_NOTIFICATION_H
#define RASTREL_TESTS_SUPPORT_WINDOWS_NOTIFICATION_H

namespace testing::internal {

struct Notification {
  void Notify() {}
  void WaitForNotification() {}
};

}  // namespace testing::internal

#endif
