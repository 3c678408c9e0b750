#include "tools/batch/messages.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

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

// Reads a message's strings one after the other.
class Fields {
 public:
  explicit Fields(const Message& message) : message_(message) {}
  const std::string& Text() {
    if (next_ == message_.size()) throw std::runtime_error("a worker's message ends early");
    return message_[next_++];
  }
  int64_t Number() { return std::stoll(Text()); }
  bool Flag() { return Number() != 0; }
  bool isAtEnd() const { return next_ == message_.size(); }

 private:
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
  Message message = {task.kind,
                     task.input,
                     task.before,
                     task.after,
                     fmt::format("{}", task.pageDigits),
                     task.format,
                     task.isKnown ? "1" : "0",
                     task.knownHash,
                     fmt::format("{}", task.page)};
  message.insert(message.end(), task.outputs.begin(), task.outputs.end());
  return message;
}

FileTask TaskFrom(const Message& message) {
  Fields fields(message);
  FileTask task;
  task.kind = fields.Text();
  task.input = fields.Text();
  task.before = fields.Text();
  task.after = fields.Text();
  task.pageDigits = fields.Number();
  task.format = fields.Text();
  task.isKnown = fields.Flag();
  task.knownHash = fields.Text();
  task.page = fields.Number();
  while (!fields.isAtEnd()) task.outputs.push_back(fields.Text());
  return task;
}

Message ToMessage(const FileResult& result) {
  Message message = {result.isUnchanged ? "1" : "0",
                     result.error,
                     result.hash,
                     fmt::format("{}", result.size),
                     fmt::format("{}", result.modified),
                     fmt::format("{}", static_cast<int64_t>(result.seconds * 1e6))};
  for (const PageResult& page : result.pages) {
    message.insert(message.end(), {fmt::format("{}", page.page), page.isDone ? "1" : "0", page.output,
                                   fmt::format("{}", page.size), page.hash, page.record, page.error});
  }
  return message;
}

FileResult ResultFrom(const Message& message) {
  Fields fields(message);
  FileResult result;
  result.isUnchanged = fields.Flag();
  result.error = fields.Text();
  result.hash = fields.Text();
  result.size = fields.Number();
  result.modified = fields.Number();
  result.seconds = static_cast<double>(fields.Number()) / 1e6;
  while (!fields.isAtEnd()) {
    PageResult page;
    page.page = fields.Number();
    page.isDone = fields.Flag();
    page.output = fields.Text();
    page.size = fields.Number();
    page.hash = fields.Text();
    page.record = fields.Text();
    page.error = fields.Text();
    result.pages.push_back(std::move(page));
  }
  return result;
}

}  // namespace rastrel::tool
