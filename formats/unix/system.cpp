#include "formats/system.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "pages/text.h"

extern char** environ;

namespace rastrel::formats {
namespace {

constexpr uint64_t kMostMemoryBytes = 1 << 22;  // of temporary bytes; more go to a file

// Nobody else finds it, and it is gone when it is closed.
int OpenNameless() {
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::temp_directory_path(error);
  std::string name = ((error ? "/tmp" : folder) / "rastrel-XXXXXX").string();
  const int file = ::mkostemp(name.data(), O_CLOEXEC);
  if (file < 0)
    throw PageError(Text("has no room for a temporary file: ", std::strerror(errno)), ErrOpenFile);
  ::unlink(name.c_str());
  return file;
}

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() { Close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int number() const { return number_; }
  void Take(int number) {
    Close();
    number_ = number;
  }
  void Close() {
    if (number_ >= 0) ::close(std::exchange(number_, -1));
  }

 private:
  int number_;
};

class SpillingBytes : public Bytes {
 public:
  size_t ReadAt(uint64_t position, std::span<uint8_t> bytes) noexcept override {
    if (!file_) return memory_.ReadAt(position, bytes);
    size_t got = 0;
    while (got < bytes.size()) {
      const ssize_t count = ::pread(file_->number(), bytes.data() + got, bytes.size() - got,
                                    static_cast<off_t>(position + got));
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) break;
      got += static_cast<size_t>(count);
    }
    return got;
  }
  bool WriteAt(uint64_t position, std::span<const uint8_t> bytes) noexcept override {
    if (!file_ && position + bytes.size() <= kMostMemoryBytes) return memory_.WriteAt(position, bytes);
    return (file_ || Spill()) && WriteToFile(position, bytes);
  }
  uint64_t size() noexcept override {
    struct stat status {};
    if (!file_) return memory_.size();
    return ::fstat(file_->number(), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
  }

 private:
  bool Spill() noexcept {
    try {
      file_ = std::make_unique<Descriptor>(OpenNameless());
      return WriteToFile(0, memory_.Take());
    } catch (...) {
      return Fail("no room for a temporary file");
    }
  }
  bool WriteToFile(uint64_t position, std::span<const uint8_t> bytes) noexcept {
    size_t written = 0;
    while (written < bytes.size()) {
      const ssize_t count = ::pwrite(file_->number(), bytes.data() + written, bytes.size() - written,
                                     static_cast<off_t>(position + written));
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) return Fail("no room for a temporary file");
      written += static_cast<size_t>(count);
    }
    return true;
  }

  MemoryBytes memory_;
  std::unique_ptr<Descriptor> file_;
};

class SpawnActions {
 public:
  SpawnActions() { posix_spawn_file_actions_init(&actions_); }
  ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  posix_spawn_file_actions_t* get() { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

// From a program to here.
struct Pipe {
  Descriptor from{-1}, to{-1};
  Pipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw PageError(std::strerror(errno), ErrFileIO);
    from.Take(ends[0]);
    to.Take(ends[1]);
  }
};

// A program that runs; it does not outlive this.
class Child {
 public:
  explicit Child(pid_t id) : id_(id) {}
  ~Child() {
    if (id_ <= 0) return;
    ::kill(id_, SIGKILL);
    Wait();
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  bool HasSucceeded() {
    const int status = Wait();
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }

 private:
  int Wait() {
    int status = -1;
    const pid_t id = std::exchange(id_, -1);
    while (::waitpid(id, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
  }
  pid_t id_;
};

void CopyTo(int file, Bytes* from) {
  std::vector<uint8_t> buffer(1 << 16);
  for (uint64_t position = 0;;) {
    const size_t got = from->ReadAt(position, buffer);
    if (got == 0) break;
    for (size_t written = 0; written < got;) {
      const ssize_t count = ::write(file, buffer.data() + written, got - written);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) throw PageError("has no room for a temporary file", ErrFileIO);
      written += static_cast<size_t>(count);
    }
    position += got;
  }
  ::lseek(file, 0, SEEK_SET);
}

}  // namespace

void* FindFunction(const char* library, const char* function, std::string* why) {
  void* loaded = ::dlopen(library, RTLD_NOW | RTLD_LOCAL);
  void* found = loaded != nullptr ? ::dlsym(loaded, function) : nullptr;
  if (found == nullptr) {
    const char* text = ::dlerror();
    *why = text != nullptr ? text : "";
  }
  return found;
}

std::unique_ptr<Bytes> TemporaryBytes() { return std::make_unique<SpillingBytes>(); }

std::vector<uint8_t> RunProgram(const std::vector<std::string>& words, Bytes* input, ProgramLimits limits,
                                std::string* said) {
  const Descriptor in(OpenNameless());
  CopyTo(in.number(), input);
  Pipe prints, says;
  SpawnActions actions;
  posix_spawn_file_actions_adddup2(actions.get(), in.number(), 0);
  posix_spawn_file_actions_adddup2(actions.get(), prints.to.number(), 1);
  posix_spawn_file_actions_adddup2(actions.get(), says.to.number(), 2);
  std::vector<char*> arguments;
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  pid_t id = -1;
  if (posix_spawnp(&id, arguments[0], actions.get(), nullptr, arguments.data(), environ) != 0) {
    throw PageError(Text("needs the program ", words[0], ", which is not installed"), ErrUnsupported);
  }
  Child child(id);
  prints.to.Close();
  says.to.Close();
  std::vector<uint8_t> output, buffer(1 << 16);
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limits.seconds);
  while (prints.from.number() >= 0 || says.from.number() >= 0) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    pollfd waits[] = {{prints.from.number(), POLLIN, 0}, {says.from.number(), POLLIN, 0}};
    const int ready = left.count() > 0 ? ::poll(waits, 2, static_cast<int>(left.count())) : 0;
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) throw PageError(Text("takes ", words[0], " too long"), ErrUnsupported);
    const bool isOutput = waits[0].revents != 0;
    Pipe& pipe = isOutput ? prints : says;
    const ssize_t got = ::read(pipe.from.number(), buffer.data(), buffer.size());
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      pipe.from.Close();
      continue;
    }
    const auto count = static_cast<size_t>(got);
    constexpr size_t kMostSaid = 1 << 16;
    if (!isOutput) {
      if (said != nullptr && said->size() < kMostSaid)
        said->append(reinterpret_cast<const char*>(buffer.data()), count);
      continue;
    }
    if (count > limits.bytes - output.size()) {
      throw PageError(Text("is damaged: ", words[0], " makes more of it than it tells"), ErrDamagedFile);
    }
    output.insert(output.end(), buffer.begin(), buffer.begin() + got);
  }
  if (!child.HasSucceeded())
    throw PageError(Text("is damaged: ", words[0], " cannot read it"), ErrDamagedFile);
  return output;
}

}  // namespace rastrel::formats
