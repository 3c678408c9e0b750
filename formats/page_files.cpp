#include "formats/page_files.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <utility>

#include "formats/paths.h"
#include "pages/text.h"

namespace rastrel::formats {
namespace {

namespace fs = std::filesystem;

template <class... Cases>
struct Overloaded : Cases... {
  using Cases::operator()...;
};
template <class... Cases>
Overloaded(Cases...) -> Overloaded<Cases...>;

void CheckRegular(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(PathOf(path), error);
  if (!fs::exists(status)) throw PageError(error.message(), ErrOpenFile);
  if (fs::is_directory(status)) throw PageError("is a directory", ErrOpenFile);
  if (!fs::is_regular_file(status)) throw PageError("is not a regular file", ErrOpenFile);
}

// "BMP, TIFF, PNG or JPEG"
std::string Titles() {
  std::string titles;
  const std::span<const Format* const> formats = Formats();
  for (size_t i = 0; i < formats.size(); ++i) {
    titles += Text(i == 0 ? "" : i + 1 == formats.size() ? " or " : ", ", formats[i]->title);
  }
  return titles;
}

bool Begins(std::string_view head, std::string_view signature) {
  const auto isSame = [](char expected, char found) { return expected == '?' || expected == found; };
  return head.size() >= signature.size() &&
         std::equal(signature.begin(), signature.end(), head.begin(), isSame);
}

// The format that begins like this.
const Format& FormatOf(Bytes* file) {
  std::array<uint8_t, 16> start{};
  const size_t got = file->ReadAt(0, start);
  if (got == 0 && file->problem() != nullptr) throw PageError(file->problem(), ErrFileIO);
  if (got == 0) throw PageError("is empty", ErrFileFormat);
  const std::string_view head(reinterpret_cast<const char*>(start.data()), got);
  for (const Format* format : Formats()) {
    for (const std::string_view signature : format->signatures) {
      if (Begins(head, signature)) return *format;
    }
  }
  throw PageError(Text("is not a ", Titles(), " file"), ErrFileFormat);
}

}  // namespace

// ---- reading ----------------------------------------------------------------------------------------------

InputPages::InputPages(Place place) : place_(std::move(place)) {
  if (const auto* path = std::get_if<std::string>(&place_)) CheckRegular(*path);
  std::unique_ptr<Bytes> bytes = Open();
  format_ = &FormatOf(bytes.get());
  if (format_->open != nullptr) {
    sources_.push_back(format_->open(std::move(bytes)));
    list_ = sources_.back()->List();
  } else if (format_->list != nullptr) {
    list_ = format_->list(bytes.get());
    if (bytes->problem() != nullptr) throw PageError(bytes->problem(), ErrFileIO);
  } else {
    list_.places = {0};
  }
}

std::unique_ptr<Bytes> InputPages::Open() const {
  using Opened = std::unique_ptr<Bytes>;
  return std::visit(
      Overloaded{
          [](const std::string& path) -> Opened { return OpenToRead(path); },
          [](std::span<const uint8_t> bytes) -> Opened { return std::make_unique<BorrowedBytes>(bytes); },
          [](const PageStream& stream) -> Opened { return std::make_unique<StreamBytes>(stream); }},
      place_);
}

// A source that fails is not used again.
template <class Use>
auto InputPages::WithSource(Use use) const {
  std::unique_ptr<PageSource> source;
  if (!isBusy_.test_and_set()) {
    if (!sources_.empty()) {
      source = std::move(sources_.back());
      sources_.pop_back();
    }
    isBusy_.clear();
  }
  if (!source) source = format_->open(Open());
  auto result = use(source.get());
  if (source->isWorn() || isBusy_.test_and_set()) return result;
  sources_.push_back(std::move(source));
  isBusy_.clear();
  return result;
}

// Codecs do without what they cannot read, or call it damaged: that the disk failed is told here.
template <class Use>
auto InputPages::WithBytes(Use use) const {
  const std::unique_ptr<Bytes> bytes = Open();
  const auto checkDisk = [&] {
    if (bytes->problem() != nullptr) throw PageError(bytes->problem(), ErrFileIO);
  };
  try {
    auto result = use(bytes.get());
    checkDisk();
    return result;
  } catch (const PageError&) {
    checkDisk();
    throw;
  }
}

Dib InputPages::Read(size_t index, Metadata* metadata) const {
  const Reading reading(options_);
  if (format_->open != nullptr) {
    return WithSource(
        [&](PageSource* source) { return source->Read(list_.places.at(index), reading, metadata); });
  }
  return WithBytes(
      [&](Bytes* bytes) { return format_->read(bytes, list_.places.at(index), reading, metadata); });
}

Raw InputPages::ReadRaw(size_t index, Metadata* metadata) const {
  if (format_->readRaw == nullptr) {
    throw PageError(Text(format_->title, " files have no pages of that kind"), ErrUnsupported);
  }
  return WithBytes([&](Bytes* bytes) {
    return format_->readRaw(bytes, list_.places.at(index), Reading(options_), metadata);
  });
}

PageInfo InputPages::Describe(size_t index) const {
  if (format_->open != nullptr) {
    return WithSource(
        [&](PageSource* source) { return source->Describe(list_.places.at(index), options_.dpi); });
  }
  return WithBytes([&](Bytes* bytes) { return format_->describe(bytes, list_.places.at(index)); });
}

// ---- writing ----------------------------------------------------------------------------------------------

Encoded Encode(const Dib& page, const Metadata& metadata, const Format& format, const Options& options) {
  if (!format.hasManyPages()) {
    throw PageError(Text(format.title, " files have one page"), ErrUnsupported);
  }
  return {&format, format.encode(page, metadata, options)};
}

namespace {

void CheckHolds(const Format& format, const Raw& page) {
  if (format.holdsRaw != nullptr && format.holdsRaw(page)) return;
  throw PageError(Text(format.title, " files cannot hold such a page"), ErrUnsupported);
}

}  // namespace

Encoded EncodeRaw(const Raw& page, const Metadata& metadata, const Format& format, const Options& options) {
  CheckHolds(format, page);
  if (format.encodeRaw == nullptr) {
    throw PageError(Text(format.title, " files have one page"), ErrUnsupported);
  }
  return {&format, format.encodeRaw(page, metadata, options)};
}

OutputPages::OutputPages(const std::string& path, const Format& format, Options options)
    : format_(&format), options_(std::move(options)), target_(std::in_place, path) {
  bytes_ = OpenToWrite(target_->path());
  Start();
}

OutputPages::OutputPages(const std::optional<PageStream>& stream, const Format& format, Options options)
    : format_(&format), options_(std::move(options)) {
  if (stream) {
    bytes_ = std::make_unique<StreamBytes>(*stream);
  } else {
    auto memory = std::make_unique<MemoryBytes>();
    memory_ = memory.get();
    bytes_ = std::move(memory);
  }
  Start();
}

void OutputPages::Start() {
  if (format_->create != nullptr) document_ = format_->create(bytes_.get());
}

void OutputPages::SetRules(OutputRules rules) {
  if (!target_) throw PageError("has no name", ErrParameter);
  target_->SetRules(std::move(rules));
}

// Whatever fails after this loses the file, unless it says otherwise.
void OutputPages::CheckRoom() {
  if (isLost_) throw PageError("is not written", ErrFileIO);
  if (pages_ > 0 && !format_->hasManyPages()) {
    throw PageError(Text(format_->title, " files have one page"), ErrUnsupported);
  }
  isLost_ = true;
}

template <class Write>
void OutputPages::AppendOnly(Write write) {
  CheckRoom();
  write();
  ++pages_;
  isLost_ = false;
}

void OutputPages::Append(const Dib& page, const Metadata& metadata) {
  if (format_->hasManyPages()) return Append(Encode(page, metadata, *format_, options_));
  AppendOnly([&] { format_->write(page, metadata, options_, bytes_.get()); });
}

void OutputPages::AppendRaw(const Raw& page, const Metadata& metadata) {
  CheckHolds(*format_, page);
  if (format_->hasManyPages()) return Append(formats::EncodeRaw(page, metadata, *format_, options_));
  AppendOnly([&] { format_->writeRaw(page, metadata, options_, bytes_.get()); });
}

void OutputPages::Append(const Encoded& page) {
  if (page.format != format_) throw PageError("the page was made for another format", ErrParameter);
  CheckRoom();
  document_->Append(page.bytes);
  ++pages_;
  isLost_ = false;
}

void OutputPages::Complete() {
  if (isLost_) throw PageError("is not written", ErrFileIO);
  if (pages_ == 0) throw PageError("has no page", ErrParameter);
  if (document_) document_->Close();
  document_.reset();
}

void OutputPages::Finish() {
  Complete();
  bytes_.reset();
  if (target_) target_->Commit();
}

std::vector<uint8_t> OutputPages::FinishInMemory() {
  if (memory_ == nullptr) throw PageError("is not in memory", ErrParameter);
  Complete();
  return memory_->Take();
}

const Format& FormatToWrite(const char* name, const std::string& path) {
  std::string wanted = name != nullptr ? name : NameOf(PathOf(path).extension());
  if (name == nullptr && !wanted.empty()) wanted.erase(0, 1);
  const Format* format = FindFormat(wanted);
  if (format == nullptr)
    throw PageError(Text("cannot be written: there is no format '", wanted, "'"), ErrUnsupported);
  if (!format->isWritten())
    throw PageError(Text("cannot be written: ", format->title, " files are only read"), ErrUnsupported);
  return *format;
}

}  // namespace rastrel::formats
