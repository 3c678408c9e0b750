#include "formats/output_file.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <random>
#include <set>
#include <system_error>

#include "formats/bytes.h"
#include "formats/paths.h"
#include "pages/page.h"
#include "pages/text.h"

namespace rastrel::formats {

namespace {

namespace fs = std::filesystem;

// The names of the files under way. The strings live in their OutputFiles, which clear their slot before they
// let go of them; a signal handler may read only this much.
constexpr int kSlots = 4096;
std::atomic<const char*> unfinished[kSlots];
static_assert(std::atomic<const char*>::is_always_lock_free);

int TakeSlot(const char* path) {
  for (int i = 0; i < kSlots; ++i) {
    const char* none = nullptr;
    if (unfinished[i].compare_exchange_strong(none, path)) return i;
  }
  return -1;
}

// Set when all files under way are removed: no more are begun.
std::atomic<bool> isEnding{false};

constexpr std::string_view kPartEnding = ".part";
constexpr size_t kMarkDigits = 16;  // of 4 bits each: no two files under way have the same

// Leaves room for what is put around a name. Characters stay whole.
std::string Shortened(std::string name) {
  size_t bytes = std::min<size_t>(name.size(), 200);
  while (bytes > 0 && bytes < name.size() && (name[bytes] & 0xC0) == 0x80) --bytes;
  name.resize(bytes);
  return name;
}

std::string NewMark() {
  std::random_device device;
  std::string mark;
  uint32_t random = 0;
  for (size_t i = 0; i < kMarkDigits; ++i, random >>= 4) {
    if (i % 8 == 0) random = device();
    mark += "0123456789abcdef"[random & 15];
  }
  return mark;
}

bool IsPartName(std::string_view name) {
  if (!name.starts_with('.') || !name.ends_with(kPartEnding)) return false;
  name.remove_suffix(kPartEnding.size());
  if (name.size() < kMarkDigits + 2 || name[name.size() - kMarkDigits - 1] != '.') return false;
  return name.substr(name.size() - kMarkDigits).find_first_not_of("0123456789abcdef") ==
         std::string_view::npos;
}

// What processes left behind that were ended without warning. A folder is looked at once, by one thread;
// others need not wait for that.
void RemoveAbandonedParts(const fs::path& folder) {
  static std::set<fs::path> seen;
  static std::atomic_flag isBusy;
  if (isBusy.test_and_set()) return;
  try {
    const bool isNew = seen.insert(folder).second;
    fs::directory_iterator entry;
    if (isNew) entry = fs::directory_iterator(folder.empty() ? "." : folder);
    for (; entry != fs::directory_iterator(); ++entry) {
      if (IsPartName(NameOf(entry->path().filename()))) RemoveIfAbandoned(NameOf(entry->path()));
    }
  } catch (const std::exception&) {
    // A folder that cannot be listed can still be written to.
  }
  isBusy.clear();
}

// The file that a chain of links names, whether it is there or not: it is replaced, not a link.
fs::path Followed(fs::path path) {
  constexpr int kMostLinks = 40;  // as many as Linux follows
  std::error_code error;
  for (int i = 0; i < kMostLinks && fs::is_symlink(path, error); ++i) {
    const fs::path target = fs::read_symlink(path, error);
    if (error) break;
    path = target.is_absolute() ? target : path.parent_path() / target;
  }
  if (fs::is_symlink(path, error)) throw PageError("is a link that leads nowhere", ErrOpenFile);
  return path;
}

}  // namespace

OutputFile::OutputFile(const std::string& finalPath) {
  const fs::path final = Followed(PathOf(finalPath));
  finalPath_ = NameOf(final);
  std::error_code error;
  if (fs::exists(final, error) && !fs::is_regular_file(final, error)) {
    throw PageError("is there and is not a regular file", ErrExists);
  }
  RemoveAbandonedParts(final.parent_path());
  const std::string name = Text(".", Shortened(NameOf(final.filename())), ".", NewMark(), kPartEnding);
  path_ = NameOf(final.parent_path() / PathOf(name));
  // Noted before it is there, so that an interruption finds it whenever it comes.
  slot_ = TakeSlot(path_.c_str());
  try {
    part_ = CreatePart(path_);
    if (isEnding) throw PageError("is not written: interrupted", ErrFileIO);
  } catch (...) {
    GiveUp();
    throw;
  }
}

OutputFile::~OutputFile() { GiveUp(); }

void OutputFile::GiveUp() noexcept {
  std::error_code error;
  if (!path_.empty()) fs::remove(PathOf(path_), error);
  if (part_ >= 0) ClosePart(part_);
  part_ = -1;
  if (slot_ >= 0) unfinished[slot_].store(nullptr);
  slot_ = -1;
  path_.clear();
}

void OutputFile::SetRules(OutputRules rules) {
  std::error_code error;
  if (!rules.path.empty()) finalPath_ = NameOf(Followed(PathOf(rules.path)));
  if (rules.keepsExisting && fs::exists(PathOf(finalPath_), error))
    throw PageError("is there already", ErrExists);
  rules_ = std::move(rules);
}

void OutputFile::Commit() {
  PreparePart(part_, finalPath_, rules_);
  PutInPlace(path_, finalPath_, rules_);
  if (slot_ >= 0) unfinished[slot_].store(nullptr);
  slot_ = -1;
  path_.clear();
}

void RemoveUnfinishedFiles() {
  isEnding = true;
  for (const auto& path : unfinished) RemoveFile(path);
}

}  // namespace rastrel::formats
