/* clang-format off */
/* Preloaded into a host, halts it at a chosen point of the audit. bad_host and watched_host, which
   the runners start, set these variables:

     HALT_REPORT   file that receives, when the host ends, a line for each phase: its number of
                   steps, a blank and its title. Without it, nothing happens
     HALT_SIGNAL   number of the signal by which the host halts itself, SIGKILL or SIGSTOP
     HALT_MARK     file that the host makes at this point instead, and sleeps for 50 ms: long enough
                   for another process to do something to it in this phase
     HALT_PHASE    number of the phase in which it does: 0 before the first title, 1 from the first
                   title on, and so on. What follows "Overall Results:" is the last one
     HALT_STEP     how many steps into the phase: 0 right after its title has been written

   A step is an allocation, a write, a read of a file or the start of a command. */
/* clang-format on */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

enum { most_phases = 16, title_size = 64 };

extern void* __libc_malloc(size_t);
extern void* __libc_calloc(size_t, size_t);
extern void* __libc_realloc(void*, size_t);

static const char* report;
static const char* mark;
static int halt_signal;
static long halt_phase = -1;
static long halt_step;
static char titles[most_phases][title_size] = {"Start"};
static atomic_long steps[most_phases];
static atomic_long phase;

#define REAL(name) (__extension__(__typeof__(&name)) dlsym(RTLD_NEXT, #name))

static void make_mark(void) {
  const struct timespec pause = {0, 50000000};
  const int made = open(mark, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  if (made < 0) _exit(95);
  close(made);
  nanosleep(&pause, NULL);
}

static void halt_if_due(long at, long step) {
  if (at != halt_phase || step != halt_step) return;
  if (halt_signal != 0) kill(getpid(), halt_signal);
  if (mark != NULL) make_mark();
}

static void step(void) {
  if (report == NULL) return;
  const long at = atomic_load(&phase);
  halt_if_due(at, atomic_fetch_add(&steps[at], 1) + 1);
}

/* Titles are padded with dots. A title may follow the end of a line, or stand alone. */
static size_t title_in(const char* text, size_t size, const char** title) {
  static const char results[] = "Overall Results:";
  const char* const end = memmem(text, size, ".....", 5);
  const char* const last = memmem(text, size, results, sizeof results - 1);
  *title = last;
  if (last != NULL) return sizeof results - 2;
  if (end == NULL) return 0;
  const char* const line = memrchr(text, '\n', (size_t)(end - text));
  *title = line == NULL ? text : line + 1;
  while (*title < end && **title == ' ') ++*title;
  return (size_t)(end - *title);
}

static void begin_phase(const char* text, size_t size) {
  const char* title = NULL;
  const size_t length = title_in(text, size, &title);
  if (length == 0) return;
  const long at = atomic_load(&phase) + 1;
  if (at >= most_phases || length >= title_size) _exit(98);
  memcpy(titles[at], title, length);
  atomic_store(&phase, at);
  halt_if_due(at, 0);
}

static long number_in(const char* name, long otherwise) {
  const char* text = getenv(name);
  return text == NULL ? otherwise : atol(text);
}

/* The tools do not inherit this library. */
__attribute__((constructor)) static void begin(void) {
  if (strcmp(program_invocation_short_name, "tessel-host") != 0) return;
  halt_signal = (int)number_in("HALT_SIGNAL", 0);
  halt_phase = number_in("HALT_PHASE", -1);
  halt_step = number_in("HALT_STEP", 0);
  mark = getenv("HALT_MARK");
  unsetenv("LD_PRELOAD");
  report = getenv("HALT_REPORT");
}

__attribute__((destructor)) static void end(void) {
  if (report == NULL) return;
  const char* const path = report;
  report = NULL;
  FILE* file = fopen(path, "w");
  if (file == NULL) _exit(97);
  for (long i = 0; i <= atomic_load(&phase); ++i) {
    fprintf(file, "%ld %s\n", atomic_load(&steps[i]), titles[i]);
  }
  if (fclose(file) != 0) _exit(96);
}

ssize_t write(int descriptor, const void* text, size_t size) {
  step();
  const ssize_t done = REAL(write)(descriptor, text, size);
  const int cause = errno;
  if (report != NULL && descriptor == STDOUT_FILENO && done > 0) begin_phase(text, (size_t)done);
  errno = cause;
  return done;
}

ssize_t pread(int descriptor, void* into, size_t size, off_t offset) {
  step();
  return REAL(pread)(descriptor, into, size, offset);
}

int posix_spawn(pid_t* child, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const arguments[],
                char* const variables[]) {
  step();
  return REAL(posix_spawn)(child, path, actions, attributes, arguments, variables);
}

void* malloc(size_t size) {
  step();
  return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
  step();
  return __libc_calloc(count, size);
}

void* realloc(void* old, size_t size) {
  step();
  return __libc_realloc(old, size);
}
