// The worker processes of a batch. One that dies, by whatever a page did to it, is replaced, and its page is
// told.
#ifndef RASTREL_TOOLS_BATCH_CREW_H
#define RASTREL_TOOLS_BATCH_CREW_H

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tools/batch/messages.h"

namespace rastrel::tool {

class Crew {
 public:
  // `command` is that of a worker: this program with its arguments.
  Crew(std::vector<std::string> command, size_t size, bool isVerbose);
  ~Crew();
  Crew(const Crew&) = delete;
  Crew& operator=(const Crew&) = delete;

  size_t busy() const;
  bool HasRoom() const { return busy() < workers_.size(); }
  // Hands `task`, which is `item` for the caller, to an idle worker, or to a new one where none is idle.
  // Returns false where that one cannot be started and others work: then there is room for one less. Throws
  // PageError where there is none.
  bool Give(size_t item, const FileTask& task);

  struct Event {
    size_t item = 0;
    std::optional<FileResult> result;
    std::string death;  // how the worker ended that was to bring it
  };
  // What came of some, waiting for one or for so long; nothing where a signal came.
  std::vector<Event> Wait(int milliseconds);

 private:
  struct Worker {
    pid_t process = -1;
    int socket = -1;
    Inbox inbox;
    std::optional<size_t> item;
  };

  void Start(Worker* worker);
  // Ends it if need be. Returns in words how it ended.
  std::string Bury(Worker* worker);

  std::vector<std::string> command_;
  bool isVerbose_;
  std::vector<Worker> workers_;
};

}  // namespace rastrel::tool

#endif
