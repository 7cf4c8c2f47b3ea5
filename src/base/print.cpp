#include "base/print.h"

#include <fmt/format.h>
#include <poll.h>
#include <stdio_ext.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "base/failure.h"
#include "base/held_signals.h"
#include "base/memory_reserve.h"
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

// Calls `write`, which returns 0 or the cause of a failure, without the signals that come with one.
// They are held for this call alone: whoever waits for a reader may start a carrier, which would
// inherit the mask.
template <class Write>
int cause_without_signals(Write write) {
  const held_signals held({SIGPIPE, SIGXFSZ});
  const int cause = write();
  if (cause != 0) held.take();
  return cause;
}

// Writes a part of `text` and removes it. Returns 0 or the cause of the failure.
int cause_of_unwritten_part(int descriptor, std::string_view& text) {
  return cause_without_signals([&] {
    const ssize_t done = ::write(descriptor, text.data(), text.size());
    if (done < 0) return errno;
    text.remove_prefix(static_cast<std::size_t>(done));
    return 0;
  });
}

// What happens to a text for which a descriptor that does not block has no room.
enum class when_full { wait, lose };

// Returns 0 or the cause of the failure.
int cause_of_unwritten(int descriptor, std::string_view text, when_full full) {
  while (!text.empty()) {
    const int cause = cause_of_unwritten_part(descriptor, text);
    if (cause == EAGAIN && full == when_full::wait) {
      wait_for_room(descriptor);
    } else if (cause != 0 && cause != EINTR) {
      return cause;
    }
  }
  return 0;
}

int cause_of_unflushed(std::FILE* stream) {
  errno = 0;
  return std::fflush(stream) == 0 ? 0 : errno;
}

int cause_of_loss_in_stdio(std::FILE* stream, std::string_view text) {
  return cause_without_signals([&] {
    if (std::fwrite(text.data(), 1, text.size(), stream) != text.size()) return errno;
    return cause_of_unflushed(stream);
  });
}

// Writes beside stdio, which drops what an interrupted write has left. Returns 0 or the cause of
// the failure.
int cause_of_loss(std::FILE* stream, std::string_view text, when_full full) {
  const int descriptor = ::fileno(stream);
  // The host has put a stream of its own in place.
  if (descriptor < 0) return cause_of_loss_in_stdio(stream, text);
  if (::__fpending(stream) > 0) {
    if (full == when_full::wait) wait_for_room(descriptor);
    const int cause = cause_without_signals([&] { return cause_of_unflushed(stream); });
    if (cause != 0) return cause;
  }
  return cause_of_unwritten(descriptor, text, full);
}

// The caller holds print_mutex.
void write_out(std::string_view text) {
  const int cause = cause_of_loss(stdout, text, when_full::wait);
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
  const words_first no_line_is_lost;
  // A short line needs no memory, the lack of which it may report.
  fmt::memory_buffer line;
  fmt::format_to(std::back_inserter(line), "{}{}\n", run.line_is_open ? " " : "", text);
  run.line_is_open = false;
  write_out({line.data(), line.size()});
}

void print_title(std::string_view title) {
  run_state& run = st();
  const patient_lock lock(run.print_mutex);
  fmt::memory_buffer line;
  fmt::format_to(std::back_inserter(line), "{}{:.<{}}", run.line_is_open ? " " : "", title,
                 std::size_t{DOTS});
  run.line_is_open = true;
  write_out({line.data(), line.size()});
}

void end_open_line() {
  run_state& run = st();
  const patient_lock lock(run.print_mutex);
  if (!run.line_is_open) return;
  run.line_is_open = false;
  write_out("\n");
}

void print_error(std::string_view text) {
  cause_of_loss(stderr, text, when_full::lose);
}

}  // namespace tessel
