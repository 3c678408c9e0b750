// Files by Landlock, the rest by a filter of system calls.
#include "tools/sandbox.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <seccomp.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <memory>

#include "tools/paths.h"

namespace rastrel::tool {
namespace {

namespace fs = std::filesystem;

// The first version of Landlock knows all but these.
constexpr uint64_t kRename = 1ULL << 13;    // between folders, from version 2 on
constexpr uint64_t kTruncate = 1ULL << 14;  // from version 3 on
constexpr uint64_t kWriteFile = LANDLOCK_ACCESS_FS_WRITE_FILE;
constexpr uint64_t kChanges = kWriteFile | LANDLOCK_ACCESS_FS_REMOVE_DIR | LANDLOCK_ACCESS_FS_REMOVE_FILE |
                              LANDLOCK_ACCESS_FS_MAKE_CHAR | LANDLOCK_ACCESS_FS_MAKE_DIR |
                              LANDLOCK_ACCESS_FS_MAKE_REG | LANDLOCK_ACCESS_FS_MAKE_SOCK |
                              LANDLOCK_ACCESS_FS_MAKE_FIFO | LANDLOCK_ACCESS_FS_MAKE_BLOCK |
                              LANDLOCK_ACCESS_FS_MAKE_SYM;

// The kernel's landlock_ruleset_attr of version 6; older headers have its beginning, and older kernels take
// that.
struct Ruleset {
  uint64_t files = 0;
  uint64_t network = 0;  // from version 4 on
  uint64_t scoped = 0;   // from version 6 on
};
constexpr uint64_t kBindAndConnect = 3;     // TCP
constexpr uint64_t kSocketsAndSignals = 3;  // to processes that are not in the sandbox
constexpr size_t kFirstSize = sizeof(uint64_t);

class Files {
 public:
  Files() {
    const long version = ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (version < 1) return;  // the kernel has it not, or not turned on
    changes_ = kChanges | (version >= 2 ? kRename : 0) | (version >= 3 ? kTruncate : 0);
    Ruleset handled = {.files = changes_};
    if (version >= 4) handled.network = kBindAndConnect;
    if (version >= 6) handled.scoped = kSocketsAndSignals;
    const size_t size = version >= 6 ? sizeof(handled) : version >= 4 ? 2 * kFirstSize : kFirstSize;
    rules_ = static_cast<int>(::syscall(SYS_landlock_create_ruleset, &handled, size, 0));
  }
  ~Files() {
    if (rules_ >= 0) ::close(rules_);
  }
  Files(const Files&) = delete;
  Files& operator=(const Files&) = delete;

  void MayChangeBelow(const fs::path& folder) { Allow(folder, changes_); }
  void MayWrite(const char* file) { Allow(file, kWriteFile | (changes_ & kTruncate)); }
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
fs::path FolderOf(const fs::path& output) {
  std::error_code error;
  const fs::path whole = fs::absolute(output, error);
  fs::path path = fs::weakly_canonical(whole, error);
  if (error) path = whole;
  while (!fs::is_directory(path, error) && path.has_relative_path()) path = path.parent_path();
  return path;
}

// Links are followed, also to what is not there yet.
void MayWriteTo(fs::path output, Files* files) {
  constexpr int kMostLinks = 40;  // the kernel follows no more, either
  for (int i = 0; i < kMostLinks; ++i) {
    files->MayChangeBelow(FolderOf(output));
    std::error_code error;
    const fs::path target = fs::read_symlink(output, error);
    if (error) return;
    output = output.parent_path() / target;
  }
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
                                         "reboot",
                                         "truncate",
                                         "truncate64"};

void RefuseCalls() {
  const std::unique_ptr<void, decltype(&seccomp_release)> filter(seccomp_init(SCMP_ACT_ALLOW),
                                                                 &seccomp_release);
  if (!filter) return;
  for (const char* name : kRefusedCalls) {
    const int call = seccomp_syscall_resolve_name(name);
    if (call != __NR_SCMP_ERROR) seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(EPERM), call, 0);
  }
  // Typing into the terminal that the command was started from.
  for (const unsigned request : {TIOCSTI, TIOCLINUX}) {
    seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(EPERM), SCMP_SYS(ioctl), 1,
                     SCMP_A1_32(SCMP_CMP_EQ, request));
  }
  seccomp_load(filter.get());
}

}  // namespace

void EnterSandbox(const std::vector<std::string>& outputs) {
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return;
  {
    Files files;
    for (const std::string& output : outputs) MayWriteTo(PathOf(output), &files);
    std::error_code error;
    const fs::path temporary = fs::temp_directory_path(error);
    files.MayChangeBelow(error ? "/tmp" : temporary);
    files.MayWrite("/dev/null");
    files.Enforce();
  }
  RefuseCalls();
}

}  // namespace rastrel::tool
