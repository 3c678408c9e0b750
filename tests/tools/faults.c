/* Preloaded into the command: the n-th call of a kind fails, or all that it does is recorded.
 *
 *   RASTREL_FAULT=KIND:N   from main on the N-th call of KIND fails: allocate, read, write, seek, open,
 * close, rename, sync; or goes half the way: short-read, short-write; or is interrupted: eintr-read,
 * eintr-write RASTREL_COUNTS=FILE    at the end of the process: how many calls there were of each kind, "KIND
 * N" RASTREL_RECORD=FILE    every change of a file by name and every sync, to be replayed: see
 * survival_test.py RASTREL_ESCAPE=FOLDER  at each sync the process tries to do what it has no business to,
 * there too */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

enum Kind { kAllocate, kRead, kWrite, kSeek, kOpen, kClose, kRename, kSync, kKinds };
static const char* const kNames[kKinds] = {"allocate", "read",  "write",  "seek",
                                           "open",     "close", "rename", "sync"};

static atomic_int isRunning; /* main has begun */
static atomic_long counts[kKinds];
static int faultKind = -1;
static long faultNumber;
static enum { kFails, kIsShort, kIsInterrupted } faultMode;

/* Whether this call is the one. */
static int Strikes(enum Kind kind) {
  return atomic_load(&isRunning) && atomic_fetch_add(&counts[kind], 1) + 1 == faultNumber &&
         faultKind == (int)kind;
}

static void ReadOrders(void) {
  const char* order = getenv("RASTREL_FAULT");
  if (order == NULL) return;
  if (strncmp(order, "short-", 6) == 0) faultMode = kIsShort, order += 6;
  if (strncmp(order, "eintr-", 6) == 0) faultMode = kIsInterrupted, order += 6;
  for (int i = 0; i < kKinds; ++i) {
    const size_t length = strlen(kNames[i]);
    if (strncmp(order, kNames[i], length) == 0 && order[length] == ':') {
      faultKind = i;
      faultNumber = atol(order + length + 1);
    }
  }
}

static void TellCounts(void) {
  atomic_store(&isRunning, 0);
  const char* name = getenv("RASTREL_COUNTS");
  FILE* file = name != NULL ? fopen(name, "w") : NULL;
  if (file == NULL) return;
  for (int i = 0; i < kKinds; ++i) fprintf(file, "%s %ld\n", kNames[i], atomic_load(&counts[i]));
  fclose(file);
}

static int (*commandsMain)(int, char**, char**);
static int Main(int count, char** words, char** environment) {
  ReadOrders();
  atexit(TellCounts);
  atomic_store(&isRunning, 1);
  return commandsMain(count, words, environment);
}

int __libc_start_main(int (*start)(int, char**, char**), int count, char** words, void (*init)(void),
                      void (*fini)(void), void (*loaderFini)(void), void* stackEnd) {
  int (*next)(int (*)(int, char**, char**), int, char**, void (*)(void), void (*)(void), void (*)(void),
              void*);
  *(void**)&next = dlsym(RTLD_NEXT, "__libc_start_main");
  commandsMain = start;
  return next(Main, count, words, init, fini, loaderFini, stackEnd);
}

#define NEXT(name)               \
  static __typeof__(name)* next; \
  if (next == NULL) *(void**)&next = dlsym(RTLD_NEXT, #name)

/* ---- memory ---- */

extern void* __libc_malloc(size_t size);
extern void* __libc_calloc(size_t count, size_t size);
extern void* __libc_realloc(void* memory, size_t size);
extern void* __libc_memalign(size_t alignment, size_t size);

static void* NoMemory(void) {
  errno = ENOMEM;
  return NULL;
}
void* malloc(size_t size) { return Strikes(kAllocate) ? NoMemory() : __libc_malloc(size); }
void* calloc(size_t count, size_t size) {
  return Strikes(kAllocate) ? NoMemory() : __libc_calloc(count, size);
}
void* realloc(void* memory, size_t size) {
  return Strikes(kAllocate) ? NoMemory() : __libc_realloc(memory, size);
}
void* aligned_alloc(size_t alignment, size_t size) {
  return Strikes(kAllocate) ? NoMemory() : __libc_memalign(alignment, size);
}
int posix_memalign(void** memory, size_t alignment, size_t size) {
  if (Strikes(kAllocate)) return ENOMEM;
  *memory = __libc_memalign(alignment, size);
  return *memory != NULL || size == 0 ? 0 : ENOMEM;
}

/* ---- the record ---- */

/* Numbers of the machine's own form: what happened (a letter), the lengths of two texts and of the bytes, the
 * position; then those. */
static int record = -1;
static void Note(char what, const char* name, const char* other, const void* bytes, size_t size,
                 long long position) {
  static atomic_flag isBusy = ATOMIC_FLAG_INIT;
  const char* path = getenv("RASTREL_RECORD");
  if (path == NULL || !atomic_load(&isRunning)) return;
  NEXT(write);
  int (*nextOpen)(const char*, int, ...);
  *(void**)&nextOpen = dlsym(RTLD_NEXT, "open64");
  while (atomic_flag_test_and_set(&isBusy)) {
  }
  if (record < 0) record = nextOpen(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  const long long head[5] = {what, (long long)strlen(name), (long long)strlen(other), (long long)size,
                             position};
  if (next(record, head, sizeof(head)) < 0 || next(record, name, strlen(name)) < 0 ||
      next(record, other, strlen(other)) < 0 || (size > 0 && next(record, bytes, size) < 0))
    abort();
  atomic_flag_clear(&isBusy);
}

/* The name of what a descriptor stands for. */
static const char* NameOf(int file, char* name, size_t size) {
  char link[40];
  snprintf(link, sizeof(link), "/proc/self/fd/%d", file);
  const ssize_t length = readlink(link, name, size - 1);
  name[length < 0 ? 0 : length] = 0;
  return name;
}

/* ---- files ---- */

/* How many of `count` bytes are to be asked for; 0 for a failure that errno tells. */
static size_t Allowed(enum Kind kind, size_t count) {
  if (!Strikes(kind)) return count;
  if (faultMode == kIsShort) return count > 1 ? count / 2 : count;
  errno = faultMode == kIsInterrupted ? EINTR : kind == kWrite ? ENOSPC : EIO;
  return 0;
}

ssize_t read(int file, void* bytes, size_t count) {
  NEXT(read);
  const size_t allowed = Allowed(kRead, count);
  return allowed == 0 && count > 0 ? -1 : next(file, bytes, allowed);
}
ssize_t pread64(int file, void* bytes, size_t count, off64_t position) {
  NEXT(pread64);
  const size_t allowed = Allowed(kRead, count);
  return allowed == 0 && count > 0 ? -1 : next(file, bytes, allowed, position);
}
ssize_t pread(int file, void* bytes, size_t count, off_t position) {
  return pread64(file, bytes, count, position);
}
ssize_t write(int file, const void* bytes, size_t count) {
  NEXT(write);
  const size_t allowed = Allowed(kWrite, count);
  return allowed == 0 && count > 0 ? -1 : next(file, bytes, allowed);
}
ssize_t pwrite64(int file, const void* bytes, size_t count, off64_t position) {
  NEXT(pwrite64);
  const size_t allowed = Allowed(kWrite, count);
  if (allowed == 0 && count > 0) return -1;
  char name[4096];
  const ssize_t done = next(file, bytes, allowed, position);
  if (done > 0 && getenv("RASTREL_RECORD") != NULL)
    Note('w', NameOf(file, name, sizeof(name)), "", bytes, (size_t)done, position);
  return done;
}
ssize_t pwrite(int file, const void* bytes, size_t count, off_t position) {
  return pwrite64(file, bytes, count, position);
}
off64_t lseek64(int file, off64_t offset, int origin) {
  NEXT(lseek64);
  if (Strikes(kSeek)) return errno = EIO, -1;
  return next(file, offset, origin);
}
off_t lseek(int file, off_t offset, int origin) { return lseek64(file, offset, origin); }

static int Open(const char* path, int flags, mode_t mode) {
  static int (*next)(const char*, int, ...);
  if (next == NULL) *(void**)&next = dlsym(RTLD_NEXT, "open64");
  if (Strikes(kOpen)) return errno = EMFILE, -1;
  const int file = next(path, flags, mode);
  if (file >= 0 && (flags & (O_CREAT | O_TRUNC)) != 0)
    Note((flags & O_EXCL) != 0 ? 'c' : 't', path, "", NULL, 0, 0);
  return file;
}
int open64(const char* path, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? (mode_t)va_arg(more, int) : 0;
  va_end(more);
  return Open(path, flags, mode);
}
int open(const char* path, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? (mode_t)va_arg(more, int) : 0;
  va_end(more);
  return Open(path, flags, mode);
}
int close(int file) {
  NEXT(close);
  const int result = next(file); /* a file is closed even where that fails */
  if (!Strikes(kClose)) return result;
  errno = EIO;
  return -1;
}
int rename(const char* from, const char* to) {
  NEXT(rename);
  if (Strikes(kRename)) return errno = EIO, -1;
  const int result = next(from, to);
  if (result == 0) Note('r', from, to, NULL, 0, 0);
  return result;
}
int link(const char* from, const char* to) {
  NEXT(link);
  if (Strikes(kRename)) return errno = EIO, -1;
  const int result = next(from, to);
  if (result == 0) Note('l', from, to, NULL, 0, 0);
  return result;
}
int unlink(const char* path) {
  NEXT(unlink);
  const int result = next(path);
  if (result == 0) Note('u', path, "", NULL, 0, 0);
  return result;
}
/* What a decoder that was taken over would try. Says what went through. */
static void TryToEscape(const char* folder) {
  char name[4096];
  snprintf(name, sizeof(name), "%s/escaped", folder);
  if (open(name, O_CREAT | O_WRONLY, 0600) >= 0) dprintf(2, "escaped: a file\n");
  if (mkdir("/dev/shm/escaped", 0700) == 0) dprintf(2, "escaped: a folder\n"), rmdir("/dev/shm/escaped");
  if (socket(AF_INET, SOCK_STREAM, 0) >= 0) dprintf(2, "escaped: the network\n");
  if (kill(getppid(), 0) == 0) dprintf(2, "escaped: a process\n");
  dprintf(2, "tried\n");
}

int fsync(int file) {
  NEXT(fsync);
  const char* folder = getenv("RASTREL_ESCAPE");
  if (folder != NULL && atomic_load(&isRunning)) TryToEscape(folder);
  if (Strikes(kSync)) return errno = EIO, -1;
  char name[4096];
  const int result = next(file);
  if (result == 0) Note('s', NameOf(file, name, sizeof(name)), "", NULL, 0, 0);
  return result;
}
