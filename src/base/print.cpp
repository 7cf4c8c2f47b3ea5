#include "base/print.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <stdio_ext.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "base/failure.h"
#include "base/held_signals.h"
#include "base/log_file.h"
#include "base/memory_reserve.h"
#include "base/worker.h"
#include "run/state.h"

namespace tessel {

namespace {

using clock = std::chrono::steady_clock;

// What the reader of standard error may take for a text before the rest of it is lost.
constexpr std::chrono::milliseconds patience_for_errors{100};

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

// Returns false if there is no room until `end`. A descriptor that has failed counts as one with
// room: a write names the cause.
bool has_room_before(clock::time_point end, int descriptor) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - clock::now()).count();
    pollfd awaited{descriptor, POLLOUT, 0};
    const int found = ::poll(&awaited, 1, static_cast<int>(std::max<std::int64_t>(left, 0)));
    if (found > 0) return true;
    if (found == 0 || errno != EINTR || left <= 0) return false;
  }
}

// Offers a text to a pipe or a socket, until `end`. Between a look for room and a write another
// process may fill a pipe, so the pipe is opened once more, in a mode in which writes do not wait;
// the mode of the given descriptor belongs to the host. Where it cannot be opened, the look must
// do. Returns 0 or the cause of the loss.
int cause_of_unoffered(int descriptor, bool is_socket, std::string_view text,
                       clock::time_point end) {
  const int own = is_socket ? -1
                            : open_beside_streams(fmt::format("/proc/self/fd/{}", descriptor),
                                                  O_WRONLY | O_NONBLOCK | O_NOCTTY, 0);
  const int used = own < 0 ? descriptor : own;
  int cause = 0;
  while (cause == 0 && !text.empty()) {
    // A pipe takes so much as a whole or not at all.
    std::string_view piece = text.substr(0, PIPE_BUF);
    if (!has_room_before(end, used)) {
      cause = EAGAIN;
    } else if (is_socket) {
      const ssize_t done = ::send(used, piece.data(), piece.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
      if (done < 0) cause = errno;
      if (done > 0) text.remove_prefix(static_cast<std::size_t>(done));
    } else {
      const std::size_t whole = piece.size();
      cause = cause_of_unwritten_part(used, piece);
      text.remove_prefix(whole - piece.size());
    }
    if ((cause == EINTR || cause == EAGAIN) && clock::now() < end) cause = 0;
  }
  if (own >= 0) ::close(own);
  return cause;
}

// A terminal and a file take a text as long as it takes. Returns 0 or the cause of the failure.
int cause_of_unwritten_error(int descriptor, std::string_view text, clock::time_point end) {
  struct stat state {};
  const bool is_known = ::fstat(descriptor, &state) == 0;
  if (is_known && (S_ISFIFO(state.st_mode) || S_ISSOCK(state.st_mode)))
    return cause_of_unoffered(descriptor, S_ISSOCK(state.st_mode), text, end);
  return cause_of_unwritten(descriptor, text, when_full::lose);
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
  const auto end = clock::now() + patience_for_errors;
  // The host has put a stream of its own in place.
  if (descriptor < 0) return cause_of_loss_in_stdio(stream, text);
  if (::__fpending(stream) > 0) {
    if (full == when_full::wait) wait_for_room(descriptor);
    if (full == when_full::lose && !has_room_before(end, descriptor)) return EAGAIN;
    const int cause = cause_without_signals([&] { return cause_of_unflushed(stream); });
    if (cause != 0) return cause;
  }
  return full == when_full::wait ? cause_of_unwritten(descriptor, text, full)
                                 : cause_of_unwritten_error(descriptor, text, end);
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
