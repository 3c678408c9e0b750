#include "tools/system.h"

#include <fcntl.h>
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/parallel_pipeline.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <mutex>
#include <thread>

namespace rastrel::tool {

std::optional<FileKey> KeyOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return FileKey(status.st_dev, status.st_ino);
}

std::string Comparable(const std::string& path) { return path; }

// Each is opened the wrong way round: reading and writing fail as they would if it were closed.
void ReserveStandardFiles() {
  for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(number, F_GETFD) < 0) ::open("/dev/null", number == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

void UseBytes() {}

bool CanDrawOnScreen() { return ::isatty(STDERR_FILENO) == 1; }

void OnInterruption(void (*handler)(int signal)) {
  std::signal(SIGXFSZ, SIG_IGN);
  std::signal(SIGPIPE, SIG_IGN);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    // A signal that was ignored when we were started (nohup) stays ignored.
    if (std::signal(signal, handler) == SIG_IGN) std::signal(signal, SIG_IGN);
  }
}

void Exclusively(const std::function<void()>& work) {
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  work();
}

unsigned ThreadsFor(int wanted) {
  return wanted > 0 ? static_cast<unsigned>(wanted) : std::max(1u, std::thread::hardware_concurrency());
}

// As many results are in memory as there are threads; a few more wait for their turn to be finished.
void RunInOrder(size_t count, int wantedThreads, const std::function<Finish(size_t)>& work) {
  const unsigned threads = ThreadsFor(wantedThreads);
  if (threads == 1 || count < 2) {
    for (size_t i = 0; i < count; ++i) work(i)();
    return;
  }
  const tbb::global_control limit(tbb::global_control::max_allowed_parallelism, threads);
  size_t next = 0;
  const auto source = [&](tbb::flow_control& control) {
    if (next == count) control.stop();
    return next++;
  };
  using tbb::filter_mode;
  tbb::parallel_pipeline(size_t{threads} * 2,
                         tbb::make_filter<void, size_t>(filter_mode::serial_in_order, source) &
                             tbb::make_filter<size_t, Finish>(filter_mode::parallel, work) &
                             tbb::make_filter<Finish, void>(filter_mode::serial_in_order,
                                                            [](const Finish& finish) { finish(); }));
}

}  // namespace rastrel::tool
