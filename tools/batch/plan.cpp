#include "tools/batch/plan.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include <fmt/format.h>

#include "tools/batch/files.h"
#include "tools/paths.h"

namespace rastrel::tool {
namespace {

namespace fs = std::filesystem;

// The format that is told by a file's name; nothing where that tells none.
std::optional<PageFormat> FormatByName(const fs::path& path) {
  const std::string ending = NameOf(path.extension());
  if (ending.size() < 2) return std::nullopt;
  return FindFormat(ending.substr(1));
}

class Lister {
 public:
  Lister(const BatchOptions& options, std::vector<std::string>* trouble)
      : options_(options), trouble_(trouble), pattern_(options.pattern) {
    std::error_code error;
    output_ = fs::weakly_canonical(PathOf(options.output), error);
  }

  void AddInput(const std::string& name) {
    const fs::path path = PathOf(name);
    std::error_code error;
    if (fs::is_directory(path, error)) {
      const fs::path named = path.has_filename() ? path : path.parent_path();
      root_ = NameOf(fs::absolute(named, error).lexically_normal().filename());
      Walk(named, fs::path());
    } else if (fs::exists(path, error)) {
      root_.clear();
      Add(path, fs::path());
    } else {
      throw UsageError(fmt::format("{}: there is no such file or folder", name));
    }
  }

  // A name in a list keeps its folders where they lead downwards.
  void AddListed(const std::string& name) {
    const fs::path path = PathOf(name);
    const fs::path folder = path.lexically_normal().parent_path();
    const bool isBelow = path.is_relative() && (folder.empty() || *folder.begin() != "..");
    root_.clear();
    Add(path, isBelow ? folder : fs::path());
  }

  std::vector<BatchItem> Take() {
    std::sort(items_.begin(), items_.end(),
              [](const auto& one, const auto& other) { return NaturallyBefore(one.input, other.input); });
    std::unordered_map<std::string, const BatchItem*> outputs;
    for (const BatchItem& item : items_) {
      if (IsFoundAgain(item.output.OfPage(1))) {
        throw UsageError(fmt::format("{} would be an input of the next run; a batch writes to another folder",
                                     item.output.OfPage(1)));
      }
      const auto [other, isNew] = outputs.emplace(item.output.Text(), &item);
      if (!isNew) {
        throw UsageError(fmt::format(
            "{} and {} would both go to {}; --name with {{root}} or other folders tells them apart",
            other->second->input, item.input, item.output.Text()));
      }
    }
    return std::move(items_);
  }

 private:
  // Names that begin with a full stop are hidden, and so are files under way.
  void Walk(const fs::path& folder, const fs::path& relative) {
    walked_.emplace(FolderOf(folder / "any"), relative);
    std::error_code error;
    fs::directory_iterator entry(folder, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
      const std::string name = NameOf(entry->path().filename());
      if (name.starts_with('.')) continue;
      const fs::path path = relative / PathOf(name);
      if (FitsOne(NameOf(path), options_.exclude)) continue;
      std::error_code kind;
      if (entry->is_directory(kind)) {
        // Links to folders may lead in circles; the outputs are no inputs.
        if (!options_.isRecursive || entry->is_symlink(kind)) continue;
        if (fs::weakly_canonical(entry->path(), kind) != output_) Walk(entry->path(), path);
      } else if (entry->is_regular_file(kind)) {
        if (IsMeant(path)) Add(folder / PathOf(name), relative);
      }
    }
    if (error) trouble_->push_back(fmt::format("{}: {}", NameOf(folder), error.message()));
  }

  void Add(const fs::path& path, const fs::path& folder) {
    // An input may be named in several ways, and is one; its first name counts.
    if (!known_.insert(WholeName(NameOf(path))).second) return;
    BatchItem item;
    item.input = NameOf(path.lexically_normal());
    item.format = options_.job.format;
    const std::optional<PageFormat> format = FormatByName(path);
    if (item.format.empty()) item.format = format ? WritableFormat(format->name) : "tif";
    item.output = pattern_.Name(
        options_.output, {root_, NameOf(folder), NameOf(path.stem()), fmt::format(".{}", item.format)});
    HoldToItsName(&item);
    items_.push_back(std::move(item));
  }

  // A file is what its name says.
  void HoldToItsName(BatchItem* item) const {
    const std::string name = item->output.OfPage(1);
    const std::optional<PageFormat> told = FormatByName(PathOf(name));
    if (!told || FindFormat(item->format)->name == std::string_view(told->name)) return;
    if (!options_.job.format.empty() || !told->isWritten) {
      throw UsageError(fmt::format("--name: {} would be a file of the format {}", name, item->format));
    }
    item->format = told->name;
  }

  static std::string FolderOf(const fs::path& file) {
    return NameOf(PathOf(WholeName(NameOf(file))).parent_path());
  }

  // Whether the next run would find an output among its inputs.
  bool IsFoundAgain(const std::string& output) const {
    const auto folder = walked_.find(FolderOf(PathOf(output)));
    return folder != walked_.end() && IsMeant(folder->second / PathOf(output).filename());
  }

  bool IsMeant(const fs::path& relative) const {
    if (FitsOne(NameOf(relative), options_.exclude)) return false;
    return options_.include.empty() ? FormatByName(relative).has_value()
                                    : FitsOne(NameOf(relative), options_.include);
  }

  const BatchOptions& options_;
  std::vector<std::string>* trouble_;
  NamePattern pattern_;
  fs::path output_;
  std::string root_;
  std::vector<BatchItem> items_;
  std::unordered_set<std::string> known_;
  std::unordered_map<std::string, fs::path> walked_;  // folders, and where they lie in IN
};

void AddList(std::istream& list, Lister* lister) {
  for (std::string name; std::getline(list, name);) {
    if (name.ends_with('\r')) name.pop_back();
    if (!name.empty()) lister->AddListed(name);
  }
}

}  // namespace

std::vector<BatchItem> ListItems(const BatchOptions& options, std::vector<std::string>* trouble) {
  Lister lister(options, trouble);
  for (const std::string& input : options.job.inputs) lister.AddInput(input);
  if (options.filesFrom == kStandard) {
    AddList(std::cin, &lister);
  } else if (!options.filesFrom.empty()) {
    std::ifstream list(PathOf(options.filesFrom));
    if (!list) throw UsageError(fmt::format("--files-from: {} cannot be read", options.filesFrom));
    AddList(list, &lister);
  }
  return lister.Take();
}

}  // namespace rastrel::tool
