// Work of the library that Ctrl-C ends.
//
// Python runs its signal handlers on its main thread only, and only between two steps of the interpreter. So
// that long work does not hold them up, the main thread hands it to a thread of the module's own and waits
// for it or for Ctrl-C. Work that is given up frees what it made as soon as it ends. Every other thread, and
// the main one where pages are small, works itself.
#ifndef RASTREL_PYTHON_LONG_WORK_H
#define RASTREL_PYTHON_LONG_WORK_H

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "python/core.h"

namespace rastrel::python {

// Tells of a step that begins; another result than 0 means that the work is to end.
using Report = std::function<int(const char* step, double done)>;
using Job = std::function<void(const Report&)>;

// Runs `job` with other Python threads running meanwhile. `callback`, which may be None, is called with each
// report, on the calling thread. Throws what the callback or a signal handler raised. A job may outlive the
// call, so it owns what it uses, and nothing of Python's.
void RunLongWork(int64_t pixels, Job job, const nb::object& callback);

// The result of `work`, which may be freed by any thread; if it is false, the library's error is raised.
template <class Work>
auto ResultOf(int64_t pixels, Work work, const nb::object& callback = nb::none()) {
  using Result = decltype(work(Report()));
  struct State {
    Result result = {};
    int code = 0;  // errors are those of a thread
    std::string text;
  };
  auto state = std::make_shared<State>();
  const auto job = [state, work = std::make_shared<Work>(std::move(work))](const Report& report) {
    state->result = (*work)(report);
    if (!state->result) {
      state->code = PagesError();
      state->text = PagesErrorText();
    }
  };
  RunLongWork(pixels, job, callback);
  if (!state->result) Raise(state->code, state->text.c_str());
  return std::move(state->result);
}

}  // namespace rastrel::python

#endif
