/* Preloaded into a host, delays its threads by chance where they lock, wait, wake each other,
   begin, write, read and run commands: about one call in sixteen, up to 300 microseconds. So
   threads meet in ways that a quiet machine never shows. The runner delayed sets these variables:

     DELAYS_REPORT   file that receives the counts in the end; without it, nothing happens
     DELAYS_SEED     the chance; without it there is no delay, the rest is the same
     DELAYS_CORES    what the process sees as the number of its processors
     DELAYS_LATE     for how many milliseconds a late worker sleeps; 100 without it

   One thread in four that has reported a LAG is a late worker: it sleeps when it holds no lock any
   more, so that the other levels of its bundle end first. One of them sleeps on until a while after
   the programming pass has begun.

   Backups that a rotation of a log would replace stay, as LOG.1.1, LOG.1.2 and so on.

   No sanitizer builds this. ThreadSanitizer's functions of the same names come first and call
   these ones. So nothing here calls them by their names. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <spawn.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

enum { one_call_in = 16, longest_us = 300, one_report_in = 4 };
enum { most_late_us = 20000000 };
enum { starts_at_once = 256 };

static atomic_bool armed;
static const char* report;
static uint64_t seed;
static uint64_t late_us = 100000;
static atomic_long threads, delays, late, overtaken, rotations;
static atomic_long latest_bundle; /* of the last line about a sub-bundle */
static atomic_bool programming_has_begun, somebody_is_last;

static __thread uint64_t state;
static __thread bool has_begun;
static __thread int held;         /* locks of this thread */
static __thread long late_bundle; /* whose worker is to sleep as soon as it holds none */

/* The next definition, looked up once: a look-up takes the loader's lock. */
#define REAL(name)                                                   \
  (__extension__({                                                   \
    static _Atomic(void*) found;                                     \
    void* next = atomic_load_explicit(&found, memory_order_acquire); \
    if (next == NULL) {                                              \
      next = dlsym(RTLD_NEXT, #name);                                \
      atomic_store_explicit(&found, next, memory_order_release);     \
    }                                                                \
    (__typeof__(&name))next;                                         \
  }))

/* ---- Chance -------------------------------------------------------------------------------- */

static uint64_t mixed(uint64_t number) {
  number = (number ^ (number >> 30)) * 0xbf58476d1ce4e5b9U;
  number = (number ^ (number >> 27)) * 0x94d049bb133111ebU;
  return number ^ (number >> 31);
}

static uint64_t below(uint64_t limit) {
  if (!has_begun) {
    state = mixed(seed) + (uint64_t)atomic_fetch_add(&threads, 1);
    has_begun = true;
  }
  state += 0x9e3779b97f4a7c15U;
  return mixed(mixed(state)) % limit;
}

static void sleep_for(uint64_t microseconds) {
  const struct timespec length = {(time_t)(microseconds / 1000000),
                                  (long)(microseconds % 1000000) * 1000};
  const int before = errno;
  syscall(SYS_nanosleep, &length, NULL);
  errno = before;
}

static void delay(void) {
  if (!atomic_load_explicit(&armed, memory_order_acquire) || below(one_call_in) != 0) return;
  atomic_fetch_add_explicit(&delays, 1, memory_order_relaxed);
  if (below(4) == 0) {
    syscall(SYS_sched_yield);
  } else {
    sleep_for(below(longest_us));
  }
}

/* ---- Late workers -------------------------------------------------------------------------- */

static void took(bool has_taken) {
  if (has_taken) ++held;
}

/* Nobody in the consistency pass waits for a worker that was overtaken. */
static void be_last(void) {
  if (atomic_exchange(&somebody_is_last, true)) return;
  for (long slept = 0; slept < most_late_us && !atomic_load(&programming_has_begun);
       slept += longest_us) {
    sleep_for(longest_us);
  }
  sleep_for(late_us);
}

/* A later bundle begins only when all levels of the one before have ended but its own. */
static void released(void) {
  if (--held > 0 || late_bundle == 0) return;
  const long bundle = late_bundle;
  late_bundle = 0;
  atomic_fetch_add(&late, 1);
  atomic_store(&latest_bundle, bundle);
  sleep_for(late_us);
  if (atomic_load(&latest_bundle) == bundle) return;
  atomic_fetch_add(&overtaken, 1);
  be_last();
}

/* A line "<time>: Inconsistency 7:BE12(...", or "...:BE12.345(..." about a sub-bundle. */
static void note_line(const char* line, size_t size) {
  static const char title[] = "Bundle Programming Check";
  static const char word[] = ": Inconsistency ";
  const size_t stamp = strlen("2026-11-21 09:59:19,001");
  char text[64];
  if (memmem(line, size, title, strlen(title)) != NULL) atomic_store(&programming_has_begun, true);
  if (size < sizeof text || memcmp(line + stamp, word, strlen(word)) != 0) return;
  const size_t length = sizeof text - stamp - strlen(word);
  memcpy(text, line + stamp + strlen(word), length);
  text[length] = '\0';
  char* rest = text + strspn(text, "0123456789");
  if (strncmp(rest, ":BE", 3) != 0) return;
  const long bundle = strtol(rest + 3, &rest, 10);
  if (*rest == '.') atomic_store(&latest_bundle, bundle);
  if (*rest == '(' && below(one_report_in) == 0) late_bundle = bundle;
}

/* ---- Begin and end ------------------------------------------------------------------------- */

/* The tools do not inherit this library, and so no delays. */
__attribute__((constructor)) static void begin(void) {
  report = getenv("DELAYS_REPORT");
  if (report == NULL || strcmp(program_invocation_short_name, "tessel-host") != 0) return;
  unsetenv("LD_PRELOAD");
  const char* number = getenv("DELAYS_SEED");
  if (number == NULL) return;
  seed = strtoul(number, NULL, 10);
  const char* lateness = getenv("DELAYS_LATE");
  if (lateness != NULL) late_us = strtoul(lateness, NULL, 10) * 1000;
  atomic_store_explicit(&armed, true, memory_order_release);
}

__attribute__((destructor)) static void end(void) {
  if (!atomic_exchange(&armed, false)) return;
  char line[160];
  const int length =
      snprintf(line, sizeof line, "%ld delays in %ld threads, %ld late workers, %ld overtaken\n",
               delays, threads, late, overtaken);
  const int file = (int)syscall(SYS_openat, AT_FDCWD, report, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (syscall(SYS_write, file, line, (size_t)length) != length) _exit(99);
  syscall(SYS_close, file);
}

/* ---- Threads ------------------------------------------------------------------------------- */

/* Not on the heap: the new thread would free it before ThreadSanitizer knows the thread. */
struct start {
  atomic_bool is_taken;
  void* (*function)(void*);
  void* argument;
};

static struct start starts[starts_at_once];

static struct start* free_start(void) {
  for (int i = 0; i < starts_at_once; ++i) {
    if (!atomic_exchange(&starts[i].is_taken, true)) return &starts[i];
  }
  return NULL;
}

static void* begin_late(void* given) {
  struct start* start = given;
  void* (*function)(void*) = start->function;
  void* argument = start->argument;
  atomic_store(&start->is_taken, false);
  delay();
  return function(argument);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*function)(void*),
                   void* argument) {
  delay();
  struct start* start = free_start();
  if (start == NULL) return REAL(pthread_create)(thread, attributes, function, argument);
  start->function = function;
  start->argument = argument;
  const int result = REAL(pthread_create)(thread, attributes, begin_late, start);
  if (result != 0) atomic_store(&start->is_taken, false);
  return result;
}

int sched_yield(void) {
  delay();
  return REAL(sched_yield)();
}

int sched_getaffinity(pid_t process, size_t size, cpu_set_t* set) {
  const char* cores = report == NULL ? NULL : getenv("DELAYS_CORES");
  if (cores == NULL) return REAL(sched_getaffinity)(process, size, set);
  memset(set, 0, size);
  for (size_t i = 0; i < strtoul(cores, NULL, 10); ++i) CPU_SET_S(i, size, set);
  return 0;
}

/* ---- Locks --------------------------------------------------------------------------------- */

int pthread_mutex_lock(pthread_mutex_t* mutex) {
  delay();
  const int result = REAL(pthread_mutex_lock)(mutex);
  took(result == 0);
  return result;
}

int pthread_mutex_trylock(pthread_mutex_t* mutex) {
  delay();
  const int result = REAL(pthread_mutex_trylock)(mutex);
  took(result == 0);
  return result;
}

/* Held for longer, or away for a while just after. */
int pthread_mutex_unlock(pthread_mutex_t* mutex) {
  delay();
  const int result = REAL(pthread_mutex_unlock)(mutex);
  delay();
  released();
  return result;
}

int pthread_rwlock_rdlock(pthread_rwlock_t* lock) {
  delay();
  const int result = REAL(pthread_rwlock_rdlock)(lock);
  took(result == 0);
  return result;
}

int pthread_rwlock_wrlock(pthread_rwlock_t* lock) {
  delay();
  const int result = REAL(pthread_rwlock_wrlock)(lock);
  took(result == 0);
  return result;
}

int pthread_rwlock_tryrdlock(pthread_rwlock_t* lock) {
  delay();
  const int result = REAL(pthread_rwlock_tryrdlock)(lock);
  took(result == 0);
  return result;
}

int pthread_rwlock_trywrlock(pthread_rwlock_t* lock) {
  delay();
  const int result = REAL(pthread_rwlock_trywrlock)(lock);
  took(result == 0);
  return result;
}

int pthread_rwlock_unlock(pthread_rwlock_t* lock) {
  delay();
  const int result = REAL(pthread_rwlock_unlock)(lock);
  delay();
  released();
  return result;
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
  delay();
  const int result = REAL(pthread_cond_wait)(condition, mutex);
  delay();
  return result;
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                           const struct timespec* end) {
  delay();
  const int result = REAL(pthread_cond_timedwait)(condition, mutex, end);
  delay();
  return result;
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const struct timespec* end) {
  delay();
  const int result = REAL(pthread_cond_clockwait)(condition, mutex, clock, end);
  delay();
  return result;
}

int pthread_cond_signal(pthread_cond_t* condition) {
  delay();
  const int result = REAL(pthread_cond_signal)(condition);
  delay();
  return result;
}

int pthread_cond_broadcast(pthread_cond_t* condition) {
  delay();
  const int result = REAL(pthread_cond_broadcast)(condition);
  delay();
  return result;
}

/* ---- Files and commands -------------------------------------------------------------------- */

ssize_t write(int descriptor, const void* text, size_t size) {
  delay();
  if (atomic_load(&armed)) note_line(text, size);
  return REAL(write)(descriptor, text, size);
}

ssize_t pread(int descriptor, void* into, size_t size, off_t offset) {
  delay();
  return REAL(pread)(descriptor, into, size, offset);
}

int rename(const char* from, const char* to) {
  if (report != NULL && strncmp(from, "/var/log/tessel_", 16) == 0) {
    char name[256];
    snprintf(name, sizeof name, "%s.%ld", to, atomic_fetch_add(&rotations, 1) + 1);
    const int before = errno;
    syscall(SYS_linkat, AT_FDCWD, to, AT_FDCWD, name, 0);
    errno = before;
  }
  return REAL(rename)(from, to);
}

int posix_spawn(pid_t* process, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const arguments[],
                char* const environment[]) {
  delay();
  const int result = REAL(posix_spawn)(process, path, actions, attributes, arguments, environment);
  delay();
  return result;
}

pid_t waitpid(pid_t process, int* status, int options) {
  delay();
  return REAL(waitpid)(process, status, options);
}
