#include "base/print.h"

#include <fmt/format.h>
#include <poll.h>
#include <stdio_ext.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "base/failure.h"
#include "base/held_signals.h"
#include "base/worker.h"
#include "run/state.h"

namespace tessel {

namespace {

// A descriptor that does not block refuses a write while its reader is slow.
void wait_for_room(int descriptor) {
  const blocking until_the_reader_has_read;
  pollfd awaited{descriptor, POLLOUT, 0};
  while (::poll(&awaited, 1, -1) < 0 && errno == EINTR) {
  }
}

// Returns 0 or the cause of the failure.
int cause_of_unwritten(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t done = ::write(descriptor, text.data(), text.size());
    if (done >= 0) {
      text.remove_prefix(static_cast<std::size_t>(done));
    } else if (errno == EAGAIN) {
      wait_for_room(descriptor);
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

int cause_of_unflushed(std::FILE* stream) {
  errno = 0;
  return std::fflush(stream) == 0 ? 0 : errno;
}

// Writes beside stdio, which drops what an interrupted write has left. Returns 0 or the cause of
// the failure.
int cause_of_loss(std::FILE* stream, std::string_view text) {
  const held_signals held({SIGPIPE, SIGXFSZ});
  const int descriptor = ::fileno(stream);
  int cause = 0;
  if (descriptor < 0) {  // the host has put a stream of its own in place
    cause = std::fwrite(text.data(), 1, text.size(), stream) == text.size() ? 0 : errno;
    if (cause == 0) cause = cause_of_unflushed(stream);
  } else {
    if (::__fpending(stream) > 0) {
      wait_for_room(descriptor);
      cause = cause_of_unflushed(stream);
    }
    if (cause == 0) cause = cause_of_unwritten(descriptor, text);
  }
  if (cause != 0) held.take();
  return cause;
}

// The caller holds print_mutex.
void write_out(std::string_view text) {
  const int cause = cause_of_loss(stdout, text);
  if (cause == 0) return;
  // Clear the error: a retry of what stdio still holds would fail again and block the exit of the
  // process.
  std::clearerr(stdout);
  throw failure(fmt::format("cannot write standard output: {}", std::strerror(cause)));
}

}  // namespace

void print(std::string_view text) {
  run_state& run = st();
  const patient_lock lock(run.print_mutex);
  const std::string line = fmt::format("{}{}\n", run.line_is_open ? " " : "", text);
  run.line_is_open = false;
  write_out(line);
}

void print_title(std::string_view title) {
  run_state& run = st();
  const patient_lock lock(run.print_mutex);
  const std::string line =
      fmt::format("{}{:.<{}}", run.line_is_open ? " " : "", title, std::size_t{DOTS});
  run.line_is_open = true;
  write_out(line);
}

void end_open_line() {
  run_state& run = st();
  const patient_lock lock(run.print_mutex);
  if (!run.line_is_open) return;
  run.line_is_open = false;
  write_out("\n");
}

void print_error(std::string_view text) {
  cause_of_loss(stderr, text);
}

}  // namespace tessel
