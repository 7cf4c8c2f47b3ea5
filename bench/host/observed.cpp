#include "observed.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>

namespace bench {

namespace {

struct counters {
  std::atomic<std::size_t> threads_started = 0;
  std::atomic<std::size_t> threads = 1;
  std::atomic<std::size_t> most_threads = 1;
  std::atomic<std::size_t> running = 0;
  std::atomic<std::size_t> most_running = 0;
  std::atomic<std::size_t> most_descriptors = 0;
  std::mutex mutex;
  std::vector<command_seen> commands;       // guarded by mutex
  std::multimap<pid_t, std::size_t> alive;  // guarded by mutex: process to its place in `commands`
};

// Never destroyed, because threads of the library outlive main.
counters& seen() {
  static auto& all = *new counters;
  return all;
}

void raise_to(std::atomic<std::size_t>& most, std::size_t value) {
  std::size_t before = most;
  while (before < value && !most.compare_exchange_weak(before, value)) continue;
}

int note_descriptor(int descriptor) {
  if (descriptor >= 0) raise_to(seen().most_descriptors, static_cast<std::size_t>(descriptor) + 1);
  return descriptor;
}

std::FILE* note_stream(std::FILE* stream) {
  if (stream != nullptr) note_descriptor(fileno(stream));
  return stream;
}

std::string line_of(char* const arguments[]) {
  std::string last;
  for (std::size_t at = 0; arguments[at] != nullptr; ++at) last = arguments[at];
  return last;
}

using spawner = int (*)(pid_t*, const char*, const posix_spawn_file_actions_t*,
                        const posix_spawnattr_t*, char* const[], char* const[]);

int spawn_by(spawner real, pid_t* process, const char* path,
             const posix_spawn_file_actions_t* actions, const posix_spawnattr_t* attributes,
             char* const arguments[], char* const environment[]) {
  counters& all = seen();
  pid_t own = 0;
  command_seen command{line_of(arguments), now()};
  raise_to(all.most_running, ++all.running);
  const int refused = real(&own, path, actions, attributes, arguments, environment);
  if (process != nullptr) *process = own;
  if (refused != 0) {
    --all.running;
    return refused;
  }
  const std::lock_guard lock(all.mutex);
  all.alive.emplace(own, all.commands.size());
  all.commands.push_back(std::move(command));
  return 0;
}

void note_end(pid_t process) {
  counters& all = seen();
  const double end = now();
  const std::lock_guard lock(all.mutex);
  const auto found = all.alive.find(process);
  if (found == all.alive.end()) return;
  all.commands[found->second].end = end;
  all.alive.erase(found);
  --all.running;
}

bool is_end(int status) {
  return WIFEXITED(status) || WIFSIGNALED(status);
}

struct thread_work {
  void* (*routine)(void*);
  void* argument;
};

// Also counts a thread that ends by pthread_exit.
struct counted_thread {
  ~counted_thread() { --seen().threads; }
};

void* run_counted(void* given) {
  const std::unique_ptr<thread_work> work(static_cast<thread_work*>(given));
  const counted_thread counted;
  return work->routine(work->argument);
}

// True if a call with these flags has a further argument.
bool takes_mode(int flags) {
  return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

template <class Function>
Function real(const char* name) {
  void* found = dlsym(RTLD_NEXT, name);
  if (found != nullptr) return reinterpret_cast<Function>(found);
  std::fprintf(stderr, "tessel-bench-host: the C library has no %s\n", name);
  std::abort();
}

}  // namespace

double now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

observed what_was_observed() {
  counters& all = seen();
  const std::lock_guard lock(all.mutex);
  return {all.threads_started, all.most_threads, all.most_running, all.most_descriptors,
          all.commands};
}

}  // namespace bench

// In front of the C library
// ------------------------------------------------------------------------

// The C library's headers declare these with attributes that a definition need not repeat.
#define IN_FRONT extern "C" __attribute__((visibility("default")))

IN_FRONT int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                            void* (*routine)(void*), void* argument) noexcept {
  static const auto real = bench::real<decltype(&pthread_create)>("pthread_create");
  bench::counters& all = bench::seen();
  auto work = std::make_unique<bench::thread_work>(bench::thread_work{routine, argument});
  bench::raise_to(all.most_threads, ++all.threads);
  const int refused = real(thread, attributes, bench::run_counted, work.get());
  if (refused != 0) {
    --all.threads;
    return refused;
  }
  static_cast<void>(work.release());
  ++all.threads_started;
  return 0;
}

IN_FRONT int posix_spawn(pid_t* process, const char* path,
                         const posix_spawn_file_actions_t* actions,
                         const posix_spawnattr_t* attributes, char* const arguments[],
                         char* const environment[]) {
  static const auto real = bench::real<bench::spawner>("posix_spawn");
  return bench::spawn_by(real, process, path, actions, attributes, arguments, environment);
}

IN_FRONT int posix_spawnp(pid_t* process, const char* path,
                          const posix_spawn_file_actions_t* actions,
                          const posix_spawnattr_t* attributes, char* const arguments[],
                          char* const environment[]) {
  static const auto real = bench::real<bench::spawner>("posix_spawnp");
  return bench::spawn_by(real, process, path, actions, attributes, arguments, environment);
}

IN_FRONT pid_t wait4(pid_t process, int* status, int options, rusage* used) noexcept {
  static const auto real = bench::real<decltype(&wait4)>("wait4");
  int own = 0;
  const pid_t ended = real(process, &own, options, used);
  if (ended > 0 && bench::is_end(own)) bench::note_end(ended);
  if (ended > 0 && status != nullptr) *status = own;
  return ended;
}

IN_FRONT pid_t waitpid(pid_t process, int* status, int options) {
  return wait4(process, status, options, nullptr);
}

IN_FRONT int waitid(idtype_t kind, id_t which, siginfo_t* info, int options) {
  static const auto real = bench::real<decltype(&waitid)>("waitid");
  siginfo_t own{};
  const int result = real(kind, which, &own, options);
  if (result == 0 && own.si_pid > 0 && (options & WEXITED) != 0 && (options & WNOWAIT) == 0)
    bench::note_end(own.si_pid);
  if (result == 0 && info != nullptr) *info = own;
  return result;
}

IN_FRONT int open(const char* path, int flags, ...) {
  static const auto real = bench::real<int (*)(const char*, int, ...)>("open");
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = bench::takes_mode(flags) ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return bench::note_descriptor(real(path, flags, mode));
}

IN_FRONT int openat(int folder, const char* path, int flags, ...) {
  static const auto real = bench::real<int (*)(int, const char*, int, ...)>("openat");
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = bench::takes_mode(flags) ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return bench::note_descriptor(real(folder, path, flags, mode));
}

IN_FRONT int fcntl(int descriptor, int command, ...) {
  static const auto real = bench::real<int (*)(int, int, ...)>("fcntl");
  va_list rest;
  va_start(rest, command);
  void* argument = va_arg(rest, void*);
  va_end(rest);
  const int result = real(descriptor, command, argument);
  if (command == F_DUPFD || command == F_DUPFD_CLOEXEC) bench::note_descriptor(result);
  return result;
}

IN_FRONT int dup(int descriptor) noexcept {
  static const auto real = bench::real<int (*)(int)>("dup");
  return bench::note_descriptor(real(descriptor));
}

IN_FRONT int pipe2(int* ends, int flags) noexcept {
  static const auto real = bench::real<int (*)(int*, int)>("pipe2");
  const int result = real(ends, flags);
  if (result == 0) bench::note_descriptor(std::max(ends[0], ends[1]));
  return result;
}

IN_FRONT int pipe(int* ends) noexcept {
  return pipe2(ends, 0);
}

IN_FRONT std::FILE* fopen(const char* path, const char* mode) {
  static const auto real = bench::real<std::FILE* (*)(const char*, const char*)>("fopen");
  return bench::note_stream(real(path, mode));
}

IN_FRONT std::FILE* fopen64(const char* path, const char* mode) {
  return fopen(path, mode);
}
