#include "tools/batch/messages.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <concepts>
#include <cstring>
#include <stdexcept>
#include <type_traits>

#include <fmt/format.h>

namespace rastrel::tool {
namespace {

// A message is the number of its strings, then each with its length before it; both ends run on one machine.
void AddNumber(std::string* bytes, size_t number) {
  std::array<char, sizeof(uint64_t)> raw;
  const uint64_t value = number;
  std::memcpy(raw.data(), &value, raw.size());
  bytes->append(raw.data(), raw.size());
}

std::optional<size_t> NumberAt(const std::string& bytes, size_t at) {
  uint64_t value = 0;
  if (bytes.size() < at + sizeof(value)) return std::nullopt;
  std::memcpy(&value, bytes.data() + at, sizeof(value));
  return static_cast<size_t>(value);
}

// The fields of each, in one order for both ends. Lists follow them.
template <class Whole, class Part>
concept MayBeConst = std::same_as<std::remove_const_t<Whole>, Part>;

template <MayBeConst<FileTask> Task, class Field>
void ForEachField(Task& task, Field&& field) {
  field(task.kind);
  field(task.input);
  field(task.before);
  field(task.after);
  field(task.pageDigits);
  field(task.format);
  field(task.isKnown);
  field(task.knownHash);
  field(task.page);
}
template <MayBeConst<FileResult> Result, class Field>
void ForEachField(Result& result, Field&& field) {
  field(result.isUnchanged);
  field(result.error);
  field(result.hash);
  field(result.size);
  field(result.modified);
  field(result.seconds);
  field(result.ink);
}
template <MayBeConst<PageResult> Page, class Field>
void ForEachField(Page& page, Field&& field) {
  field(page.page);
  field(page.isDone);
  field(page.output);
  field(page.size);
  field(page.hash);
  field(page.record);
  field(page.error);
}

constexpr double kFractions = 1e6;  // numbers that are not whole go as millionths

// Adds fields to a message.
struct FieldWriter {
  Message* message;
  void operator()(const std::string& text) { message->push_back(text); }
  void operator()(int64_t number) { message->push_back(fmt::format("{}", number)); }
  void operator()(bool flag) { message->push_back(flag ? "1" : "0"); }
  void operator()(double number) { (*this)(static_cast<int64_t>(number * kFractions)); }
};

// Reads a message's fields one after the other.
class FieldReader {
 public:
  explicit FieldReader(const Message& message) : message_(message) {}
  void operator()(std::string& text) { text = Next(); }
  void operator()(int64_t& number) { number = std::stoll(Next()); }
  void operator()(bool& flag) { flag = std::stoll(Next()) != 0; }
  void operator()(double& number) { number = static_cast<double>(std::stoll(Next())) / kFractions; }
  bool isAtEnd() const { return next_ == message_.size(); }

 private:
  const std::string& Next() {
    if (isAtEnd()) throw std::runtime_error("a worker's message ends early");
    return message_[next_++];
  }

  const Message& message_;
  size_t next_ = 0;
};

}  // namespace

bool Send(int socket, const Message& message) {
  std::string bytes;
  AddNumber(&bytes, message.size());
  for (const std::string& text : message) {
    AddNumber(&bytes, text.size());
    bytes += text;
  }
  for (size_t sent = 0; sent < bytes.size();) {
    const ssize_t count = ::send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    sent += static_cast<size_t>(count);
  }
  return true;
}

bool Inbox::Read(int socket) {
  std::array<char, 1 << 16> piece;
  ssize_t count = 0;
  do count = ::recv(socket, piece.data(), piece.size(), 0);
  while (count < 0 && errno == EINTR);
  if (count <= 0) return false;
  bytes_.append(piece.data(), static_cast<size_t>(count));
  return true;
}

std::optional<Message> Inbox::Take() {
  const std::optional<size_t> count = NumberAt(bytes_, 0);
  if (!count) return std::nullopt;
  Message message;
  size_t at = sizeof(uint64_t);
  for (size_t i = 0; i < *count; ++i) {
    const std::optional<size_t> length = NumberAt(bytes_, at);
    if (!length || bytes_.size() - at - sizeof(uint64_t) < *length) return std::nullopt;
    message.push_back(bytes_.substr(at + sizeof(uint64_t), *length));
    at += sizeof(uint64_t) + *length;
  }
  bytes_.erase(0, at);
  return message;
}

std::optional<Message> Receive(int socket, Inbox* inbox) {
  while (true) {
    if (std::optional<Message> message = inbox->Take()) return message;
    if (!inbox->Read(socket)) return std::nullopt;
  }
}

Message ToMessage(const FileTask& task) {
  Message message;
  ForEachField(task, FieldWriter{&message});
  message.insert(message.end(), task.outputs.begin(), task.outputs.end());
  return message;
}

FileTask TaskFrom(const Message& message) {
  FieldReader reader(message);
  FileTask task;
  ForEachField(task, reader);
  while (!reader.isAtEnd()) reader(task.outputs.emplace_back());
  return task;
}

Message ToMessage(const FileResult& result) {
  Message message;
  ForEachField(result, FieldWriter{&message});
  for (const PageResult& page : result.pages) ForEachField(page, FieldWriter{&message});
  return message;
}

FileResult ResultFrom(const Message& message) {
  FieldReader reader(message);
  FileResult result;
  ForEachField(result, reader);
  while (!reader.isAtEnd()) ForEachField(result.pages.emplace_back(), reader);
  return result;
}

}  // namespace rastrel::tool
