#include "tools/batch/crew.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include <fmt/format.h>

#include "tools/handles.h"

namespace rastrel::tool {
namespace {

// In the new process, where only calls that signal handlers may make are allowed. Interruptions are for the
// batch alone; its end, of whatever kind, is its workers' end.
[[noreturn]] void BecomeWorker(int socket, pid_t parent, char** arguments, bool isVerbose) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(1);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) ::signal(signal, SIG_IGN);
  const int nowhere = ::open("/dev/null", O_RDWR);
  ::dup2(socket, STDIN_FILENO);
  ::dup2(nowhere, STDOUT_FILENO);
  if (!isVerbose) ::dup2(nowhere, STDERR_FILENO);
  ::execv("/proc/self/exe", arguments);
  ::_exit(127);
}

}  // namespace

Crew::Crew(std::vector<std::string> command, size_t size, bool isVerbose)
    : command_(std::move(command)), isVerbose_(isVerbose), workers_(size) {}

Crew::~Crew() {
  for (Worker& worker : workers_) {
    if (worker.process > 0) Bury(&worker);
  }
}

size_t Crew::busy() const {
  return static_cast<size_t>(std::count_if(workers_.begin(), workers_.end(),
                                           [](const Worker& worker) { return worker.item.has_value(); }));
}

void Crew::Start(Worker* worker) {
  int sockets[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) {
    throw PageError(fmt::format("no worker can be started: {}", std::strerror(errno)));
  }
  std::vector<char*> arguments;
  for (std::string& word : command_) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const pid_t parent = ::getpid();
  const pid_t process = ::fork();
  if (process == 0) BecomeWorker(sockets[1], parent, arguments.data(), isVerbose_);
  const int error = errno;
  ::close(sockets[1]);
  *worker = {.process = process, .socket = sockets[0], .inbox = {}, .item = std::nullopt};
  if (process < 0) {
    ::close(std::exchange(worker->socket, -1));
    throw PageError(fmt::format("no worker can be started: {}", std::strerror(error)));
  }
  if (!Receive(worker->socket, &worker->inbox)) {
    throw PageError(fmt::format("no worker can be started: it {}", Bury(worker)));
  }
}

std::string Crew::Bury(Worker* worker) {
  ::close(worker->socket);  // by which an idle one ends
  if (worker->item) ::kill(worker->process, SIGKILL);
  int status = 0;
  while (::waitpid(worker->process, &status, 0) < 0 && errno == EINTR) {
  }
  *worker = {};
  if (WIFSIGNALED(status)) {
    return fmt::format("ended by signal {} ({})", WTERMSIG(status), ::strsignal(WTERMSIG(status)));
  }
  return fmt::format("ended with exit code {}", WEXITSTATUS(status));
}

bool Crew::Give(size_t item, const FileTask& task) {
  constexpr int kMostStarts = 2;
  for (int starts = 0;;) {
    // Those that run come first. One that somebody has ended is found by what is sent to it.
    auto idle = std::find_if(workers_.begin(), workers_.end(),
                             [](const Worker& worker) { return !worker.item && worker.process > 0; });
    if (idle == workers_.end()) {
      idle =
          std::find_if(workers_.begin(), workers_.end(), [](const Worker& worker) { return !worker.item; });
      try {
        if (starts++ == kMostStarts) throw PageError("workers end as soon as they start");
        Start(&*idle);
      } catch (const PageError&) {
        if (busy() == 0) throw;
        workers_.erase(idle);
        return false;
      }
    }
    if (Send(idle->socket, ToMessage(task))) {
      idle->item = item;
      return true;
    }
    Bury(&*idle);
  }
}

std::vector<Crew::Event> Crew::Wait(int milliseconds) {
  std::vector<pollfd> polls;
  std::vector<Worker*> polled;
  for (Worker& worker : workers_) {
    if (!worker.item) continue;
    polls.push_back({.fd = worker.socket, .events = POLLIN, .revents = 0});
    polled.push_back(&worker);
  }
  std::vector<Event> events;
  if (::poll(polls.data(), polls.size(), milliseconds) <= 0) return events;
  for (size_t i = 0; i < polls.size(); ++i) {
    if (polls[i].revents == 0) continue;
    Worker& worker = *polled[i];
    if (!worker.inbox.Read(worker.socket)) {
      const size_t item = *worker.item;
      worker.item.reset();  // it has ended by itself
      events.push_back({.item = item, .result = std::nullopt, .death = Bury(&worker)});
    } else if (const std::optional<Message> message = worker.inbox.Take()) {
      const size_t item = *worker.item;
      try {
        events.push_back({.item = item, .result = ResultFrom(*message), .death = ""});
        worker.item.reset();
      } catch (const std::exception&) {  // it was taken over, or is broken
        Bury(&worker);
        events.push_back({.item = item, .result = std::nullopt, .death = "said what is no result"});
      }
    }
  }
  return events;
}

}  // namespace rastrel::tool
