/* Preloaded into a host, lets calls that the audit makes fail as the system could let them fail.
   The runner failing_calls sets these variables:

     FAILING_REPORT   file that receives what happened; without it, nothing happens
     FAILING_CENSUS   if set, the report lists every call, and every place that allocates memory
     FAILING_KIND     the calls to let fail: a name of `kind_names`
     FAILING_CAUSE    number of the error, or `short`, `full` or `end`; see `cut_short`
     FAILING_FIRST    the first call to fail, counted from 1 for its kind
     FAILING_SITE     counts only allocations from this place, as the census writes it
     FAILING_ON       if set, all later calls of the kind fail, too; every other one of those that
                      go well when they are made again
     FAILING_LIMIT    sets a limit before anything else: AS or FSIZE, a blank and a number of bytes
     FAILING_SHELL    runs this program in the place of /bin/sh, to lift the limit for the tools

   Only calls from libtessel.so count, and all allocations once the host has loaded it. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <unwind.h>

enum kind {
  kind_open,
  kind_write,
  kind_pread,
  kind_read,
  kind_fstat,
  kind_fstatvfs,
  kind_fallocate,
  kind_ftruncate,
  kind_rename,
  kind_unlink,
  kind_close,
  kind_spawn,
  kind_plan,
  kind_wait,
  kind_thread,
  kind_memory,
  kind_mmap,
  kinds
};

static const char* const kind_names[kinds] = {
    "open",   "write", "pread", "read", "fstat", "fstatvfs", "fallocate", "ftruncate", "rename",
    "unlink", "close", "spawn", "plan", "wait",  "thread",   "memory",    "mmap"};

enum { cause_short = -1, cause_full = -2, cause_end = -3 };
enum { most_frames = 64, site_frames = 8, most_sites = 1 << 16, report_descriptor = 900 };

extern void* __libc_malloc(size_t);
extern void* __libc_calloc(size_t, size_t);
extern void* __libc_realloc(void*, size_t);

static atomic_bool armed;
static bool is_census;
static int wanted_kind = -1;
static int wanted_cause;
static long wanted_first;
static bool fails_on;
static uint64_t wanted_site;
static int report = -1;
static const char* shell;
static uintptr_t library_base, library_begin, library_end;

static atomic_long counts[kinds];
static atomic_long at_site;
static atomic_long failed;
static _Atomic uint64_t seen_sites[most_sites];
static __thread bool is_inside;       /* allocations of this file itself do not count */
static __thread bool was_interrupted; /* a call may be interrupted again, but not for ever */
static __thread int full_descriptor = -1;

/* ---- The report ---------------------------------------------------------------------------- */

static void say(const char* form, ...) {
  char line[2048];
  va_list values;
  va_start(values, form);
  const int length = vsnprintf(line, sizeof line, form, values);
  va_end(values);
  const size_t most = sizeof line - 1;
  const size_t used = (size_t)length > most ? most : (size_t)length;
  if (syscall(SYS_write, report, line, used) < 0) _exit(99);
}

struct trace {
  uintptr_t frames[most_frames];
  int length;
};

static _Unwind_Reason_Code add_frame(struct _Unwind_Context* context, void* into) {
  struct trace* trace = into;
  const uintptr_t address = _Unwind_GetIP(context);
  if (address >= library_begin && address < library_end) {
    trace->frames[trace->length++] = address - library_base;
  }
  return trace->length < most_frames ? _URC_NO_REASON : _URC_END_OF_STACK;
}

static uint64_t site_of(const struct trace* trace) {
  uint64_t hash = 14695981039346656037U;
  for (int i = 0; i < trace->length && i < site_frames; ++i) {
    hash = (hash ^ trace->frames[i]) * 1099511628211U;
  }
  return hash == 0 ? 1 : hash;
}

/* In one write, because other threads write, too. */
static void say_frames(const char* head, const struct trace* trace) {
  char text[most_frames * 20];
  size_t used = 0;
  for (int i = 0; i < trace->length; ++i) {
    used += (size_t)snprintf(text + used, sizeof text - used, " %lx", (long)trace->frames[i]);
  }
  text[used] = '\0';
  say("%s%s\n", head, text);
}

/* True the first time. */
static bool is_new(uint64_t site) {
  for (size_t i = site % most_sites;; i = (i + 1) % most_sites) {
    uint64_t found = 0;
    if (atomic_compare_exchange_strong(&seen_sites[i], &found, site)) return true;
    if (found == site) return false;
  }
}

/* The file behind a descriptor, or the given path, or "-". */
static void place_of(const char* path, int descriptor, char* place, size_t size) {
  char link[32];
  place[0] = '-';
  place[1] = '\0';
  if (path != NULL) snprintf(place, size, "%s", path);
  if (path != NULL || descriptor < 0) return;
  snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
  const long length = syscall(SYS_readlink, link, place, size - 1);
  if (length > 0) place[length] = '\0';
  if (descriptor == STDOUT_FILENO) snprintf(place, size, "standard output");
}

/* ---- The decision -------------------------------------------------------------------------- */

/* An interrupted call goes well when it is made again, and a full pipe that does not block empties.
   A system that refuses a thread or a process goes on to do so. */
static bool goes_well_again(enum kind kind, int descriptor) {
  if (wanted_cause == EINTR) return true;
  const bool is_stream = descriptor == STDOUT_FILENO || descriptor == STDERR_FILENO;
  return wanted_cause == EAGAIN && kind == kind_write && is_stream;
}

static bool is_due(enum kind kind, int descriptor, long call) {
  if (call < wanted_first || (call > wanted_first && !fails_on)) return false;
  if (!goes_well_again(kind, descriptor)) return true;
  was_interrupted = !was_interrupted;
  return was_interrupted;
}

static bool is_of_site(const struct trace* trace, long* call) {
  if (wanted_site == 0) return true;
  /* After the first one, memory is short everywhere. */
  if (fails_on && atomic_load(&failed) > 0) {
    *call = wanted_first;
    return true;
  }
  if (site_of(trace) != wanted_site) return false;
  *call = atomic_fetch_add(&at_site, 1) + 1;
  return true;
}

static bool decide(enum kind kind, const char* path, int descriptor) {
  long call = atomic_fetch_add(&counts[kind], 1) + 1;
  const bool is_wanted = (int)kind == wanted_kind;
  if (!is_wanted && !is_census) return false;
  struct trace trace = {.length = 0};
  if (is_census || wanted_site != 0) _Unwind_Backtrace(add_frame, &trace);
  char place[512];
  if (is_census && kind == kind_memory) {
    const uint64_t site = site_of(&trace);
    if (!is_new(site)) return false;
    snprintf(place, sizeof place, "site %lx %ld", (long)site, call);
    say_frames(place, &trace);
  } else if (is_census) {
    place_of(path, descriptor, place, sizeof place);
    say("call %s %ld %s\n", kind_names[kind], call, place);
  }
  if (!is_wanted || !is_of_site(&trace, &call) || !is_due(kind, descriptor, call)) {
    return false;
  }
  if (atomic_fetch_add(&failed, 1) > 0) return true;
  place_of(path, descriptor, place, sizeof place);
  say("failed %s %ld %s\n", kind_names[kind], call, place);
  if (trace.length == 0) _Unwind_Backtrace(add_frame, &trace);
  say_frames("at", &trace);
  return true;
}

/* Whether this call is to fail. */
static bool fails(enum kind kind, const char* path, int descriptor) {
  if (is_inside) return false;
  is_inside = true;
  const int before = errno;
  const bool result = decide(kind, path, descriptor);
  errno = before;
  is_inside = false;
  return result;
}

static bool is_audit(const void* caller) {
  const uintptr_t address = (uintptr_t)caller;
  return atomic_load(&armed) && address >= library_begin && address < library_end;
}

#define CALLER __builtin_return_address(0)
#define REAL(name) (__extension__(__typeof__(&name)) dlsym(RTLD_NEXT, #name))

static bool must_fail(enum kind kind, const char* path, int descriptor, const void* caller) {
  return is_audit(caller) && fails(kind, path, descriptor);
}

/* ---- Getting ready ------------------------------------------------------------------------- */

/* A short call does half of the work. A full file system takes half of a text, then nothing. `end`
   is a file that somebody has cut. */
static int cause_named(const char* text) {
  if (strcmp(text, "short") == 0) return cause_short;
  if (strcmp(text, "full") == 0) return cause_full;
  return strcmp(text, "end") == 0 ? cause_end : atoi(text);
}

static void read_variables(void) {
  const char* kind = getenv("FAILING_KIND");
  const char* cause = getenv("FAILING_CAUSE");
  const char* first = getenv("FAILING_FIRST");
  const char* site = getenv("FAILING_SITE");
  is_census = getenv("FAILING_CENSUS") != NULL;
  fails_on = getenv("FAILING_ON") != NULL;
  wanted_cause = cause ? cause_named(cause) : EIO;
  wanted_first = first ? atol(first) : 1;
  wanted_site = site ? strtoul(site, NULL, 16) : 0;
  shell = getenv("FAILING_SHELL");
  for (int i = 0; kind && i < kinds; ++i) {
    if (strcmp(kind, kind_names[i]) == 0) wanted_kind = i;
  }
  if (kind && wanted_kind < 0) _exit(98);
}

/* The hard limit stays, so that FAILING_SHELL can lift the other one. */
static void set_limit(void) {
  const char* text = getenv("FAILING_LIMIT");
  if (text == NULL) return;
  const int which = strncmp(text, "AS ", 3) == 0 ? RLIMIT_AS : RLIMIT_FSIZE;
  struct rlimit limit;
  if (getrlimit(which, &limit) != 0) _exit(95);
  limit.rlim_cur = strtoul(strchr(text, ' '), NULL, 10);
  if (setrlimit(which, &limit) != 0) _exit(94);
}

static int find_library(struct dl_phdr_info* module, size_t size, void* unused) {
  (void)size;
  (void)unused;
  const char* name = strrchr(module->dlpi_name, '/');
  if (name == NULL || strcmp(name, "/libtessel.so") != 0) return 0;
  library_base = module->dlpi_addr;
  for (int i = 0; i < module->dlpi_phnum; ++i) {
    const ElfW(Phdr)* part = &module->dlpi_phdr[i];
    if (part->p_type != PT_LOAD || (part->p_flags & PF_X) == 0) continue;
    library_begin = library_base + part->p_vaddr;
    library_end = library_begin + part->p_memsz;
  }
  return 1;
}

static void arm(void) {
  dl_iterate_phdr(find_library, NULL);
  if (library_end == 0) _exit(97);
  atomic_store(&armed, true);
}

void* dlopen(const char* name, int flags) {
  void* handle = REAL(dlopen)(name, flags);
  if (report >= 0 && handle != NULL && !atomic_load(&armed)) {
    is_inside = true;
    arm();
    is_inside = false;
  }
  return handle;
}

/* The tools do not inherit this library, and so not the failures. */
__attribute__((constructor)) static void begin(void) {
  const char* path = getenv("FAILING_REPORT");
  if (path == NULL || strcmp(program_invocation_short_name, "tessel-host") != 0) return;
  const int opened = (int)syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_CREAT | O_APPEND, 0644);
  report = (int)syscall(SYS_fcntl, opened, F_DUPFD_CLOEXEC, report_descriptor);
  syscall(SYS_close, opened);
  if (report < 0) _exit(96);
  read_variables();
  unsetenv("LD_PRELOAD");
  set_limit();
}

__attribute__((destructor)) static void end(void) {
  if (report < 0) return;
  is_inside = true;
  for (int i = 0; i < kinds; ++i) say("count %s %ld\n", kind_names[i], atomic_load(&counts[i]));
  say("failures %ld\n", atomic_load(&failed));
}

/* The report shows where the audit gave up. */
void abort(void) {
  struct trace trace = {.length = 0};
  is_inside = true;
  if (report >= 0) {
    _Unwind_Backtrace(add_frame, &trace);
    say_frames("aborted", &trace);
  }
  REAL(abort)();
  __builtin_unreachable();
}

/* ---- Files --------------------------------------------------------------------------------- */

static int refused(void) {
  errno = wanted_cause;
  return -1;
}

int open(const char* path, int flags, ...) {
  va_list values;
  va_start(values, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(values, mode_t) : 0;
  va_end(values);
  if (must_fail(kind_open, path, -1, CALLER)) return refused();
  return REAL(open)(path, flags, mode);
}

int openat(int folder, const char* path, int flags, ...) {
  va_list values;
  va_start(values, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(values, mode_t) : 0;
  va_end(values);
  if (must_fail(kind_open, path, -1, CALLER)) return refused();
  return REAL(openat)(folder, path, flags, mode);
}

/* What the compiler may make of the calls above and below: it knows that there is no mode, or how
   large the memory is. */
int __open_2(const char* path, int flags) {
  if (must_fail(kind_open, path, -1, CALLER)) return refused();
  return REAL(open)(path, flags);
}

int __openat_2(int folder, const char* path, int flags) {
  if (must_fail(kind_open, path, -1, CALLER)) return refused();
  return REAL(openat)(folder, path, flags);
}

/* The size that a short call may have, or 0 if it is to fail. */
static size_t cut_short(size_t size, int descriptor) {
  if (wanted_cause == cause_full) full_descriptor = descriptor;
  return wanted_cause == cause_short || wanted_cause == cause_full ? size / 2 : 0;
}

ssize_t write(int descriptor, const void* text, size_t size) {
  const bool counts_here = is_audit(CALLER);
  if (counts_here && full_descriptor == descriptor) {
    full_descriptor = -1;
    errno = ENOSPC;
    return -1;
  }
  if (counts_here && fails(kind_write, NULL, descriptor)) {
    size = cut_short(size, descriptor);
    if (wanted_cause > 0) return refused();
    if (size == 0) size = 1;
  }
  return REAL(write)(descriptor, text, size);
}

static ssize_t read_at(int descriptor, void* into, size_t size, off_t offset, bool is_to_fail) {
  if (is_to_fail && wanted_cause > 0) return refused();
  if (is_to_fail && wanted_cause == cause_end) return 0;
  return REAL(pread)(descriptor, into, is_to_fail ? size / 2 + 1 : size, offset);
}

ssize_t pread(int descriptor, void* into, size_t size, off_t offset) {
  return read_at(descriptor, into, size, offset, must_fail(kind_pread, NULL, descriptor, CALLER));
}

ssize_t __pread_chk(int descriptor, void* into, size_t size, off_t offset, size_t room) {
  if (size > room) abort();
  return read_at(descriptor, into, size, offset, must_fail(kind_pread, NULL, descriptor, CALLER));
}

static ssize_t read_next(int descriptor, void* into, size_t size, bool is_to_fail) {
  if (is_to_fail && wanted_cause > 0) return refused();
  return REAL(read)(descriptor, into, is_to_fail ? size / 2 + 1 : size);
}

ssize_t read(int descriptor, void* into, size_t size) {
  return read_next(descriptor, into, size, must_fail(kind_read, NULL, descriptor, CALLER));
}

ssize_t __read_chk(int descriptor, void* into, size_t size, size_t room) {
  if (size > room) abort();
  return read_next(descriptor, into, size, must_fail(kind_read, NULL, descriptor, CALLER));
}

int fstat(int descriptor, struct stat* state) {
  if (must_fail(kind_fstat, NULL, descriptor, CALLER)) return refused();
  return REAL(fstat)(descriptor, state);
}

int fstatvfs(int descriptor, struct statvfs* state) {
  if (must_fail(kind_fstatvfs, NULL, descriptor, CALLER)) return refused();
  return REAL(fstatvfs)(descriptor, state);
}

int fallocate(int descriptor, int mode, off_t offset, off_t size) {
  if (must_fail(kind_fallocate, NULL, descriptor, CALLER)) return refused();
  return REAL(fallocate)(descriptor, mode, offset, size);
}

int ftruncate(int descriptor, off_t size) {
  if (must_fail(kind_ftruncate, NULL, descriptor, CALLER)) return refused();
  return REAL(ftruncate)(descriptor, size);
}

int rename(const char* from, const char* to) {
  if (must_fail(kind_rename, from, -1, CALLER)) return refused();
  return REAL(rename)(from, to);
}

int unlink(const char* path) {
  if (must_fail(kind_unlink, path, -1, CALLER)) return refused();
  return REAL(unlink)(path);
}

/* A close that fails has still closed the descriptor. */
int close(int descriptor) {
  const bool is_to_fail = must_fail(kind_close, NULL, descriptor, CALLER);
  const int result = REAL(close)(descriptor);
  return is_to_fail ? refused() : result;
}

/* ---- Processes and threads ----------------------------------------------------------------- */

int posix_spawn(pid_t* child, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const arguments[],
                char* const variables[]) {
  if (must_fail(kind_spawn, path, -1, CALLER)) return wanted_cause;
  if (shell != NULL && strcmp(path, "/bin/sh") == 0) path = shell;
  return REAL(posix_spawn)(child, path, actions, attributes, arguments, variables);
}

int posix_spawn_file_actions_init(posix_spawn_file_actions_t* actions) {
  if (must_fail(kind_plan, "the streams", -1, CALLER)) return wanted_cause;
  return REAL(posix_spawn_file_actions_init)(actions);
}

int posix_spawnattr_init(posix_spawnattr_t* attributes) {
  if (must_fail(kind_plan, "the signals", -1, CALLER)) return wanted_cause;
  return REAL(posix_spawnattr_init)(attributes);
}

int posix_spawn_file_actions_adddup2(posix_spawn_file_actions_t* actions, int from, int to) {
  if (must_fail(kind_plan, "a stream", -1, CALLER)) return wanted_cause;
  return REAL(posix_spawn_file_actions_adddup2)(actions, from, to);
}

int posix_spawn_file_actions_addopen(posix_spawn_file_actions_t* actions, int stream,
                                     const char* path, int flags, mode_t mode) {
  if (must_fail(kind_plan, "a stream", -1, CALLER)) return wanted_cause;
  return REAL(posix_spawn_file_actions_addopen)(actions, stream, path, flags, mode);
}

int posix_spawn_file_actions_addclosefrom_np(posix_spawn_file_actions_t* actions, int from) {
  if (must_fail(kind_plan, "the other descriptors", -1, CALLER)) return wanted_cause;
  return REAL(posix_spawn_file_actions_addclosefrom_np)(actions, from);
}

/* ECHILD comes after the child has ended: somebody else has collected it. */
pid_t waitpid(pid_t child, int* status, int options) {
  const bool is_to_fail = must_fail(kind_wait, NULL, -1, CALLER);
  if (is_to_fail && wanted_cause != ECHILD) return refused();
  const pid_t result = REAL(waitpid)(child, status, options);
  return is_to_fail && result > 0 ? refused() : result;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) {
  if (must_fail(kind_thread, NULL, -1, CALLER)) return wanted_cause;
  return REAL(pthread_create)(thread, attributes, start, argument);
}

/* ---- Memory -------------------------------------------------------------------------------- */

static bool has_none(void) {
  if (!atomic_load(&armed) || !fails(kind_memory, NULL, -1)) return false;
  errno = ENOMEM;
  return true;
}

void* malloc(size_t size) {
  return has_none() ? NULL : __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
  return has_none() ? NULL : __libc_calloc(count, size);
}

void* realloc(void* old, size_t size) {
  return has_none() ? NULL : __libc_realloc(old, size);
}

void* mmap(void* at, size_t size, int rights, int flags, int descriptor, off_t offset) {
  if (!must_fail(kind_mmap, NULL, -1, CALLER)) {
    return REAL(mmap)(at, size, rights, flags, descriptor, offset);
  }
  errno = ENOMEM;
  return MAP_FAILED;
}
