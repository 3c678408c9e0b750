// Files that pages are read from and written to.
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <nanobind/stl/optional.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/unique_ptr.h>

#include "python/core.h"

namespace rastrel::python {
namespace {

// Everything that is known of a page beside its pixels, as a dictionary of bytes.
nb::dict DictionaryOf(const PageMetadata* metadata) {
  nb::dict items;
  for (int32_t i = 0; const char* name = PageMetadataName(metadata, i); ++i) {
    size_t size = 0;
    const void* bytes = GetPageMetadataItem(metadata, name, &size);
    items[Text(name)] = nb::bytes(bytes, size);
  }
  return items;
}

struct FreeMetadata {
  void operator()(PageMetadata* metadata) const { FreePageMetadata(metadata); }
};
using Metadata = std::unique_ptr<PageMetadata, FreeMetadata>;

Metadata MetadataOf(const nb::dict& items) {
  Metadata metadata(Checked(NewPageMetadata()));
  for (const auto& [name, value] : items) {
    const nb::bytes bytes = nb::cast<nb::bytes>(value);
    Checked(
        SetPageMetadataItem(metadata.get(), nb::cast<std::string>(name).c_str(), bytes.data(), bytes.size()));
  }
  return metadata;
}

// A file that stays open while a thread reads from it, though another one closes it.
class Source {
 public:
  static std::unique_ptr<Source> ByName(const nb::bytes& path) {
    return Make(nb::none(), WithoutGil([name = path.c_str()] { return OpenPages(name); }));
  }
  static std::unique_ptr<Source> InMemory(const nb::bytes& bytes) {
    return Make(bytes, WithoutGil([data = bytes.data(), size = bytes.size()] {
                  return OpenPagesInMemory(data, size);
                }));
  }

  void Close() {
    const std::lock_guard lock(mutex_);
    file_.reset();
  }
  int32_t Count() const { return CountPages(File().get()); }
  nb::object Damage() const { return Text(DamageOfPages(File().get())); }
  nb::object Format() const { return Text(FormatOfPages(File().get())); }
  nb::tuple Read(int32_t index) const {
    const std::shared_ptr<PageFile> file = File();
    PageMetadata* metadata = nullptr;
    Page page(Share(Checked(WithoutGil([&] { return ReadPage(file.get(), index, &metadata); }))));
    const Metadata held(metadata);
    return nb::make_tuple(std::move(page), DictionaryOf(held.get()));
  }

 private:
  static std::unique_ptr<Source> Make(nb::object bytes, PageFile* opened) {
    auto source = std::make_unique<Source>();
    // The bytes stay as long as somebody reads the file.
    PyObject* held = bytes.release().ptr();
    source->file_ = std::shared_ptr<PageFile>(opened, [held](PageFile* file) {
      ClosePages(file);
      const nb::gil_scoped_acquire acquire;
      Py_DecRef(held);
    });
    Checked(opened);
    return source;
  }
  std::shared_ptr<PageFile> File() const {
    const std::lock_guard lock(mutex_);
    if (file_ == nullptr) Raise(ErrParameter, "the file was closed");
    return file_;
  }

  mutable std::mutex mutex_;
  std::shared_ptr<PageFile> file_;
};

// A file under way. One thread at a time writes to it.
class Target {
 public:
  ~Target() { AbandonPages(writer_); }

  static std::unique_ptr<Target> ByName(const nb::bytes& path, const std::optional<std::string>& format,
                                        const std::string& options) {
    const char* formatName = format ? format->c_str() : nullptr;
    return Make(
        WithoutGil([&, name = path.c_str()] { return CreatePages(name, formatName, options.c_str()); }));
  }
  static std::unique_ptr<Target> InMemory(const std::string& format, const std::string& options) {
    return Make(WithoutGil([&] { return CreatePagesInMemory(format.c_str(), options.c_str()); }));
  }

  void Append(const Page& page, const nb::dict& items) {
    const Metadata metadata = MetadataOf(items);
    bool isOpen = true;
    const int isAppended = WithoutGil([&] {
      const std::lock_guard lock(mutex_);
      isOpen = writer_ != nullptr;
      return isOpen ? AppendPage(writer_, page.handle(), metadata.get()) : 0;
    });
    if (!isOpen) Raise(ErrParameter, "the file was closed");
    Checked(isAppended);
  }
  void Finish() {
    Checked(WithoutGil([&] { return FinishPages(Taken()); }));
  }
  nb::bytes FinishInMemory() {
    size_t size = 0;
    void* bytes = Checked(WithoutGil([&] { return FinishPagesInMemory(Taken(), &size); }));
    const nb::bytes result(bytes, size);
    FreePageBytes(bytes);
    return result;
  }
  void Abandon() {
    WithoutGil([&] { AbandonPages(Taken()); });
  }

 private:
  static std::unique_ptr<Target> Make(PageWriter* opened) {
    auto target = std::make_unique<Target>();
    target->writer_ = Checked(opened);
    return target;
  }
  PageWriter* Taken() {
    const std::lock_guard lock(mutex_);
    return std::exchange(writer_, nullptr);
  }

  std::mutex mutex_;
  PageWriter* writer_ = nullptr;
};

}  // namespace

void AddFiles(nb::module_& module) {
  nb::class_<Source>(module, "Source")
      .def("close", &Source::Close)
      .def("count", &Source::Count)
      .def("damage", &Source::Damage)
      .def("format", &Source::Format)
      .def("read", &Source::Read);
  module.def("open_file", &Source::ByName);
  module.def("open_bytes", &Source::InMemory);
  nb::class_<Target>(module, "Target")
      .def("append", &Target::Append)
      .def("finish", &Target::Finish)
      .def("finish_in_memory", &Target::FinishInMemory)
      .def("abandon", &Target::Abandon);
  module.def("create_file", &Target::ByName);
  module.def("create_in_memory", &Target::InMemory);
  module.def("formats_json", &PageFormatsJson);
}

}  // namespace rastrel::python
