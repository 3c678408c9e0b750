// Files by Landlock, the rest by a filter of system calls.
#include "tools/sandbox.h"

#include <fcntl.h>
#include <link.h>
#include <linux/landlock.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>

#include "tools/paths.h"

namespace rastrel::tool {
namespace {

namespace fs = std::filesystem;

constexpr const char* kPrograms[] = {"pdftoppm", "jbig2dec"};

// The first version of Landlock knows all but these.
constexpr uint64_t kRename = 1ULL << 13;    // between folders, from version 2 on
constexpr uint64_t kTruncate = 1ULL << 14;  // from version 3 on
constexpr uint64_t kWriteFile = LANDLOCK_ACCESS_FS_WRITE_FILE;
constexpr uint64_t kChanges = kWriteFile | LANDLOCK_ACCESS_FS_REMOVE_DIR | LANDLOCK_ACCESS_FS_REMOVE_FILE |
                              LANDLOCK_ACCESS_FS_MAKE_CHAR | LANDLOCK_ACCESS_FS_MAKE_DIR |
                              LANDLOCK_ACCESS_FS_MAKE_REG | LANDLOCK_ACCESS_FS_MAKE_SOCK |
                              LANDLOCK_ACCESS_FS_MAKE_FIFO | LANDLOCK_ACCESS_FS_MAKE_BLOCK |
                              LANDLOCK_ACCESS_FS_MAKE_SYM;

class Files {
 public:
  Files() {
    const long version = ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (version < 1) return;  // the kernel has it not, or not turned on
    changes_ = kChanges | (version >= 2 ? kRename : 0) | (version >= 3 ? kTruncate : 0);
    landlock_ruleset_attr handled = {};
    handled.handled_access_fs = changes_ | LANDLOCK_ACCESS_FS_EXECUTE;
    rules_ = static_cast<int>(::syscall(SYS_landlock_create_ruleset, &handled, sizeof(handled), 0));
  }
  ~Files() {
    if (rules_ >= 0) ::close(rules_);
  }
  Files(const Files&) = delete;
  Files& operator=(const Files&) = delete;

  void MayChangeBelow(const fs::path& folder) { Allow(folder, changes_); }
  void MayWrite(const char* file) { Allow(file, kWriteFile | (changes_ & kTruncate)); }
  void MayRun(const fs::path& program) { Allow(program, LANDLOCK_ACCESS_FS_EXECUTE); }
  void Enforce() const {
    if (rules_ >= 0) ::syscall(SYS_landlock_restrict_self, rules_, 0);
  }

 private:
  // What is not there needs no rule.
  void Allow(const fs::path& path, uint64_t rights) {
    if (rules_ < 0) return;
    landlock_path_beneath_attr rule = {};
    rule.parent_fd = ::open(path.c_str(), O_PATH | O_CLOEXEC);
    if (rule.parent_fd < 0) return;
    rule.allowed_access = rights;
    ::syscall(SYS_landlock_add_rule, rules_, LANDLOCK_RULE_PATH_BENEATH, &rule, 0);
    ::close(rule.parent_fd);
  }

  int rules_ = -1;
  uint64_t changes_ = 0;
};

// The folder that a file of that name is made in or moved to, or where that is to be made.
fs::path FolderOf(const std::string& output) {
  std::error_code error;
  fs::path path = fs::weakly_canonical(PathOf(output), error);
  if (error) path = fs::absolute(PathOf(output), error);
  while (!fs::is_directory(path, error) && path.has_relative_path()) path = path.parent_path();
  return path;
}

// The loader of this program, by which others are started, too.
std::string Loader() {
  std::string loader;
  const auto look = [](dl_phdr_info* program, size_t, void* found) {
    for (int i = 0; i < program->dlpi_phnum; ++i) {
      const ElfW(Phdr)& part = program->dlpi_phdr[i];
      if (part.p_type != PT_INTERP) continue;
      // The address is where the kernel has put the program.
      *static_cast<std::string*>(found) = reinterpret_cast<const char*>(program->dlpi_addr + part.p_vaddr);
    }
    return 1;  // the first is the program
  };
  ::dl_iterate_phdr(look, &loader);
  return loader;
}

void AllowPrograms(Files* files) {
  const char* folders = std::getenv("PATH");
  std::istringstream list(folders != nullptr ? folders : "/usr/bin:/bin");
  for (std::string folder; std::getline(list, folder, ':');) {
    for (const char* program : kPrograms) files->MayRun(fs::path(folder) / program);
  }
  files->MayRun(Loader());
}

// Calls that no decoder needs: the network, other processes, and ways around all this.
constexpr const char* kRefusedCalls[] = {"socket",
                                         "socketpair",
                                         "connect",
                                         "bind",
                                         "listen",
                                         "accept",
                                         "accept4",
                                         "ptrace",
                                         "process_vm_readv",
                                         "process_vm_writev",
                                         "pidfd_getfd",
                                         "io_uring_setup",
                                         "bpf",
                                         "perf_event_open",
                                         "userfaultfd",
                                         "mount",
                                         "umount2",
                                         "move_mount",
                                         "fsmount",
                                         "pivot_root",
                                         "chroot",
                                         "setns",
                                         "unshare",
                                         "keyctl",
                                         "add_key",
                                         "request_key",
                                         "open_by_handle_at",
                                         "init_module",
                                         "finit_module",
                                         "kexec_load",
                                         "reboot"};

void RefuseCalls() {
  const std::unique_ptr<void, decltype(&seccomp_release)> filter(seccomp_init(SCMP_ACT_ALLOW),
                                                                 &seccomp_release);
  if (!filter) return;
  for (const char* name : kRefusedCalls) {
    const int call = seccomp_syscall_resolve_name(name);
    if (call != __NR_SCMP_ERROR) seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(EPERM), call, 0);
  }
  seccomp_load(filter.get());
}

}  // namespace

void EnterSandbox(const std::vector<std::string>& outputs) {
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return;
  {
    Files files;
    std::error_code error;
    for (const std::string& output : outputs) {
      files.MayChangeBelow(FolderOf(output));
      // A link is followed, also to what is not there yet.
      const fs::path path = PathOf(output), target = fs::read_symlink(path, error);
      if (!error) files.MayChangeBelow(FolderOf(NameOf(path.parent_path() / target)));
    }
    files.MayChangeBelow(fs::temp_directory_path(error));
    for (const char* device : {"/dev/null", "/dev/full", "/dev/tty"}) files.MayWrite(device);
    AllowPrograms(&files);
    files.Enforce();
  }
  RefuseCalls();
}

}  // namespace rastrel::tool
