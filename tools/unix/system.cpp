#include "tools/system.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <csignal>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

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

namespace {

// Numbers on their way through several threads, and their results on the way to the one that finishes them.
class Pipeline {
 public:
  Pipeline(size_t count, unsigned threads, const std::function<Finish(size_t)>& work)
      : count_(count), work_(work), waiting_(size_t{threads} * 2) {}

  // What each thread does until nothing is left.
  void Run() {
    std::unique_lock lock(mutex_);
    try {
      while (true) {
        // No more results wait for their turn than the ring has places.
        change_.wait(lock, [this] { return next_ == count_ || next_ - finished_ < waiting_.size(); });
        if (next_ == count_) return;
        const size_t number = next_++;
        lock.unlock();
        Finish result = work_(number);
        lock.lock();
        waiting_[number % waiting_.size()] = std::move(result);
        FinishWhatIsDue(&lock);
      }
    } catch (...) {
      if (!lock.owns_lock()) lock.lock();
      if (!error_) error_ = std::current_exception();
      next_ = count_;  // nothing new is begun
      change_.notify_all();
    }
  }

  void RethrowError() const {
    if (error_) std::rethrow_exception(error_);
  }

 private:
  // By one thread at a time; others go on working.
  void FinishWhatIsDue(std::unique_lock<std::mutex>* lock) {
    if (isFinishing_) return;
    isFinishing_ = true;
    for (Finish* due = &waiting_[finished_ % waiting_.size()]; *due;
         due = &waiting_[finished_ % waiting_.size()]) {
      const Finish finish = std::exchange(*due, nullptr);
      lock->unlock();
      finish();
      lock->lock();
      ++finished_;
      change_.notify_all();
    }
    isFinishing_ = false;
  }

  const size_t count_;
  const std::function<Finish(size_t)>& work_;
  std::mutex mutex_;  // of all that follows
  std::condition_variable change_;
  std::vector<Finish> waiting_;  // results from number `finished_` on, in a ring
  size_t next_ = 0, finished_ = 0;
  bool isFinishing_ = false;
  std::exception_ptr error_;
};

}  // namespace

void RunInOrder(size_t count, int wantedThreads, const std::function<Finish(size_t)>& work) {
  const auto threads = static_cast<unsigned>(std::min<size_t>(ThreadsFor(wantedThreads), count));
  if (threads < 2) {
    for (size_t i = 0; i < count; ++i) work(i)();
    return;
  }
  Pipeline pipeline(count, threads, work);
  {
    std::vector<std::jthread> others;
    try {
      while (others.size() + 1 < threads) others.emplace_back([&pipeline] { pipeline.Run(); });
    } catch (const std::system_error&) {
      // Those that the system gives, this one at least, do the work of all.
    }
    pipeline.Run();
  }
  pipeline.RethrowError();
}

}  // namespace rastrel::tool
