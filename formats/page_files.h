// Files of pages, whatever their format and wherever their bytes are.
#ifndef RASTREL_FORMATS_PAGE_FILES_H
#define RASTREL_FORMATS_PAGE_FILES_H

#include <atomic>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "formats/format.h"
#include "formats/output_file.h"

namespace rastrel::formats {

// A file that pages are read from. Any number of threads may read at once.
class InputPages {
 public:
  // A path, bytes that stay, or a stream that stays. Throws PageError when it cannot be read or is none of
  // ours.
  using Place = std::variant<std::string, std::span<const uint8_t>, PageStream>;
  explicit InputPages(Place place);

  const Format& format() const { return *format_; }
  size_t count() const { return list_.places.size(); }
  const std::string& damage() const { return list_.damage; }
  void SetOptions(const ReadOptions& options) { options_ = options; }
  Dib Read(size_t index, Metadata* metadata) const;
  Raw ReadRaw(size_t index, Metadata* metadata) const;
  PageInfo Describe(size_t index) const;

 private:
  std::unique_ptr<Bytes> Open() const;
  template <class Use>
  auto WithBytes(Use use) const;
  template <class Use>
  auto WithSource(Use use) const;

  Place place_;
  const Format* format_ = nullptr;
  PageList list_;
  ReadOptions options_;
  // Those that no thread uses just now, of a format that has them. A thread that finds them in use by another
  // does without: it opens one of its own, or lets its own go.
  mutable std::atomic_flag isBusy_;
  mutable std::vector<std::unique_ptr<PageSource>> sources_;
};

// A page made ready for a file of many.
struct Encoded {
  const Format* format = nullptr;
  std::vector<uint8_t> bytes;
};
// Throws PageError.
Encoded Encode(const Dib& page, const Metadata& metadata, const Format& format, const Options& options);

Encoded EncodeRaw(const Raw& page, const Metadata& metadata, const Format& format, const Options& options);

// A file that pages are written to.
class OutputPages {
 public:
  // To a path, under which the file appears when it is finished. Throw PageError.
  OutputPages(const std::string& path, const Format& format, Options options);
  // To a stream, or, without one, to memory.
  OutputPages(const std::optional<PageStream>& stream, const Format& format, Options options);

  // For a file by name, before it is finished.
  void SetRules(OutputRules rules);
  void Append(const Dib& page, const Metadata& metadata);
  void Append(const Encoded& page);
  void AppendRaw(const Raw& page, const Metadata& metadata);
  void Finish();
  std::vector<uint8_t> FinishInMemory();

 private:
  void Start();
  void CheckRoom();
  // Writes the page of a format that has one.
  template <class Write>
  void AppendOnly(Write write);
  void Complete();

  const Format* format_;
  Options options_;
  std::optional<OutputFile> target_;  // of a file by name
  std::unique_ptr<Bytes> bytes_;
  MemoryBytes* memory_ = nullptr;  // the same, where it is memory
  std::unique_ptr<Document> document_;
  int pages_ = 0;
  bool isLost_ = false;
};

// The format named, or else the one that the path ends in. Throws PageError where it is not written.
const Format& FormatToWrite(const char* name, const std::string& path);

}  // namespace rastrel::formats

#endif
