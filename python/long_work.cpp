#include "python/long_work.h"

#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <new>
#include <optional>
#include <thread>

namespace rastrel::python {
namespace {

// Fewer pixels are done before anybody lets go of the keys, and handing them over would take longer than some
// operations do.
constexpr int64_t kFewPixels = 1'000'000;
// How long Ctrl-C may wait.
constexpr std::chrono::milliseconds kPatience(20);

// What a caller and the thread that works for it tell each other.
struct Desk {
  explicit Desk(Job wanted) : job(std::move(wanted)) {}

  Job job;
  std::mutex mutex;
  std::condition_variable changed;
  bool isDone = false;
  bool isGivenUp = false;
  bool hasNoMemory = false;
  const char* step = nullptr;  // waits for an answer while it is not null
  double done = 0;
};

int AskAtDesk(Desk& desk, const char* step, double done) {
  std::unique_lock lock(desk.mutex);
  desk.step = step;
  desk.done = done;
  desk.changed.notify_all();
  desk.changed.wait(lock, [&] { return desk.step == nullptr || desk.isGivenUp; });
  return desk.isGivenUp ? 1 : 0;
}

void WorkAtDesk(Desk& desk) {
  bool hasNoMemory = false;
  try {
    desk.job([&](const char* step, double done) { return AskAtDesk(desk, step, done); });
  } catch (const std::bad_alloc&) {
    hasNoMemory = true;
  }
  const std::lock_guard lock(desk.mutex);
  desk.job = nullptr;  // which frees the result of work that was given up
  desk.hasNoMemory = hasNoMemory;
  desk.isDone = true;
  desk.changed.notify_all();
}

// A thread that works for the main one, again and again: what the library keeps for a thread stays.
class Helper {
 public:
  // Never freed: the thread waits on it until the process ends.
  static Helper* Start() {
    auto* helper = new Helper;
    std::thread([helper] { helper->Serve(); }).detach();
    return helper;
  }
  void Take(std::shared_ptr<Desk> desk) {
    const std::lock_guard lock(mutex_);
    next_ = std::move(desk);
    changed_.notify_one();
  }
  void Retire() {
    const std::lock_guard lock(mutex_);
    isRetired_ = true;
    changed_.notify_one();
  }

 private:
  void Serve() {
    for (;;) {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [&] { return next_ != nullptr || isRetired_; });
      const std::shared_ptr<Desk> desk = std::move(next_);
      next_ = nullptr;
      lock.unlock();
      if (desk == nullptr) break;
      WorkAtDesk(*desk);
    }
    delete this;
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::shared_ptr<Desk> next_;
  bool isRetired_ = false;
};

bool IsMainThread() {
  return nb::cast<unsigned long>(nb::module_::import_("threading").attr("main_thread")().attr("ident")) ==
         PyThread_get_thread_ident();
}

// The main thread's helper. A child of fork has none of its parent's threads.
Helper*& MainHelper() {
  static Helper* helper = nullptr;
  static int64_t process = 0;
  const auto current = nb::cast<int64_t>(nb::module_::import_("os").attr("getpid")());
  if (current != process) helper = nullptr;
  process = current;
  return helper;
}

// Calls Python, which may raise.
void Tell(const nb::object& callback, const char* step, double done, bool* isStopped) {
  if (PyErr_CheckSignals() != 0) throw nb::python_error();
  if (step == nullptr || callback.is_none()) return;
  *isStopped = callback(step, done).ptr() == Py_False;
}

// Until the work is done, or somebody wants its end.
void WaitAtDesk(Desk& desk, const nb::object& callback) {
  for (;;) {
    const char* step = nullptr;
    double done = 0;
    {
      const nb::gil_scoped_release release;
      std::unique_lock lock(desk.mutex);
      desk.changed.wait_for(lock, kPatience, [&] { return desk.isDone || desk.step != nullptr; });
      if (desk.isDone) break;
      step = desk.step;
      done = desk.done;
    }
    bool isStopped = false;
    Tell(callback, step, done, &isStopped);
    if (isStopped) Raise(ErrCancelled, "was cancelled");
    if (step == nullptr) continue;
    const std::lock_guard lock(desk.mutex);
    desk.step = nullptr;
    desk.changed.notify_all();
  }
  if (desk.hasNoMemory) throw std::bad_alloc();
}

void RunElsewhere(Job job, const nb::object& callback) {
  Helper*& helper = MainHelper();
  Helper* mine = std::exchange(helper, nullptr);  // a callback or signal handler may clean pages, too
  if (mine == nullptr) mine = Helper::Start();
  const auto desk = std::make_shared<Desk>(std::move(job));
  mine->Take(desk);
  try {
    WaitAtDesk(*desk, callback);
  } catch (...) {
    {
      const std::lock_guard lock(desk->mutex);
      desk->isGivenUp = true;
      desk->changed.notify_all();
    }
    mine->Retire();
    throw;
  }
  if (Helper* other = std::exchange(helper, mine)) other->Retire();
}

void RunHere(const Job& job, const nb::object& callback) {
  std::exception_ptr raised;
  WithoutGil([&] {
    job([&](const char* step, double done) {
      const nb::gil_scoped_acquire acquire;
      bool isStopped = false;
      try {
        Tell(callback, step, done, &isStopped);
      } catch (...) {
        raised = std::current_exception();
      }
      return raised || isStopped ? 1 : 0;
    });
  });
  if (raised) std::rethrow_exception(raised);
}

}  // namespace

void RunLongWork(int64_t pixels, Job job, const nb::object& callback) {
  if (pixels < kFewPixels || !IsMainThread()) {
    RunHere(job, callback);
  } else {
    RunElsewhere(std::move(job), callback);
  }
}

}  // namespace rastrel::python
