// What a batch and its workers tell each other: lists of byte strings over a socket.
#ifndef RASTREL_TOOLS_BATCH_MESSAGES_H
#define RASTREL_TOOLS_BATCH_MESSAGES_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace rastrel::tool {

using Message = std::vector<std::string>;

// Returns false when nobody listens any more.
bool Send(int socket, const Message& message);

// Puts messages together from what arrives.
class Inbox {
 public:
  // Reads what there is, and waits where there is nothing. Returns false at the end.
  bool Read(int socket);
  std::optional<Message> Take();

 private:
  std::string bytes_;
};

// The next message; nothing at the end.
std::optional<Message> Receive(int socket, Inbox* inbox);

// A file to be done.
struct FileTask {
  std::string kind;  // one of those below
  std::string input;
  std::string before, after;  // of the output's name
  int64_t pageDigits = -1;
  std::string format;
  bool isKnown = false;   // an earlier run may have written outputs that no row tells of
  std::string knownHash;  // of the input; the file is left alone where that has not changed
  // kCleanFile: what was written before, each name with its hash; kHashFiles: those to be read;
  // kMakePictures: the picture, a small one; kMeasureInk: the small one
  std::vector<std::string> outputs;
  int64_t page = 1;  // kMakePictures: of the input
};
inline constexpr const char* kCleanFile = "clean";
inline constexpr const char* kHashFiles = "hash";
inline constexpr const char* kMakePictures = "picture";
inline constexpr const char* kMeasureInk = "ink";

struct PageResult {
  int64_t page = 1;
  bool isDone = false;
  std::string output;  // empty: left out as blank
  int64_t size = 0;
  std::string hash;
  std::string record, error;
};

struct FileResult {
  bool isUnchanged = false;  // by the hash: nothing was done
  std::string error;         // where there are no pages for it
  std::string hash;
  int64_t size = 0, modified = 0;  // of the input; nanoseconds since 1970
  double seconds = 0;
  double ink = -1;  // in the small picture, 0 to 1; negative: there is none
  std::vector<PageResult> pages;
};

Message ToMessage(const FileTask& task);
FileTask TaskFrom(const Message& message);
Message ToMessage(const FileResult& result);
FileResult ResultFrom(const Message& message);

}  // namespace rastrel::tool

#endif
