// Threads for tests, in the one form that every compiler here has.
#ifndef RASTREL_TESTS_SUPPORT_FRESH_THREAD_H
#define RASTREL_TESTS_SUPPORT_FRESH_THREAD_H

#include <pthread.h>

namespace rastrel::testing {

// Runs `body` on a thread of its own, whose state block is a fresh one.
template <class Body>
void OnFreshThread(Body body) {
  pthread_t thread;
  const auto run = [](void* toRun) -> void* {
    (*static_cast<Body*>(toRun))();
    return nullptr;
  };
  if (pthread_create(&thread, nullptr, run, &body) == 0) pthread_join(thread, nullptr);
}

}  // namespace rastrel::testing

#endif
