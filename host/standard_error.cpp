#include "standard_error.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <initializer_list>

namespace tessel_host {

namespace {

using clock = std::chrono::steady_clock;

// Of all messages together, so that an audit that leaves many does not end late.
clock::duration patience = std::chrono::seconds(1);

// Without the signal that comes with EPIPE.
ssize_t write_without_signal(int descriptor, std::string_view text) {
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  sigset_t pending;
  sigpending(&pending);
  sigset_t before;
  ::sigprocmask(SIG_BLOCK, &pipe, &before);
  const ssize_t count = ::write(descriptor, text.data(), text.size());
  const int cause = errno;
  const timespec now{};
  if (count < 0 && cause == EPIPE && sigismember(&pending, SIGPIPE) == 0)
    ::sigtimedwait(&pipe, nullptr, &now);
  ::sigprocmask(SIG_SETMASK, &before, nullptr);
  errno = cause;
  return count;
}

// Waits for room while `limit` lasts, and takes from it what that took. A stream that has failed
// counts as one with room: a write finds out.
bool has_room(int descriptor, clock::duration& limit) {
  const auto began = clock::now();
  int found = 0;
  do {
    const auto left = std::max<clock::duration>(limit - (clock::now() - began), {});
    pollfd room{descriptor, POLLOUT, 0};
    found = ::poll(&room, 1,
                   static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(left).count()));
  } while (found < 0 && errno == EINTR && clock::now() - began < limit);
  limit = std::max<clock::duration>(limit - (clock::now() - began), {});
  return found > 0;
}

// Standard error, as long as a message is written. Between a look for room and a write the audit
// may fill a pipe, so it is opened once more, in a mode in which writes do not wait; the mode of
// the given one belongs to others, too. Where it cannot be opened, the look must do.
class stream {
 public:
  stream() {
    struct stat state {};
    if (::fstat(STDERR_FILENO, &state) != 0) return;
    is_pipe_ = S_ISFIFO(state.st_mode);
    is_socket_ = S_ISSOCK(state.st_mode);
    if (is_pipe_) own_ = ::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  }
  ~stream() {
    if (own_ >= 0) ::close(own_);
  }
  stream(const stream&) = delete;
  stream& operator=(const stream&) = delete;

  // Takes at most PIPE_BUF bytes, which a pipe gets as a whole or not at all. Returns false if some
  // are lost.
  bool take(std::string_view text, clock::duration& limit) const {
    bool may_wait = is_pipe_ || is_socket_;
    while (!text.empty()) {
      if (may_wait && !has_room(used(), limit)) return false;
      const ssize_t count = write_part(text);
      if (count >= 0) {
        text.remove_prefix(static_cast<std::size_t>(count));
      } else if (errno == EAGAIN && limit.count() > 0) {
        may_wait = true;
      } else if (errno != EINTR) {
        return false;
      }
    }
    return true;
  }

 private:
  int used() const { return own_ >= 0 ? own_ : STDERR_FILENO; }
  ssize_t write_part(std::string_view text) const {
    return is_socket_ ? ::send(used(), text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL)
                      : write_without_signal(used(), text);
  }

  int own_ = -1;
  bool is_pipe_ = false;
  bool is_socket_ = false;
};

void write_parts(std::initializer_list<std::string_view> parts) {
  const stream to;
  std::array<char, PIPE_BUF> piece;
  std::size_t size = 0;
  for (std::string_view part : parts)
    while (!part.empty()) {
      const std::size_t count = part.copy(piece.data() + size, piece.size() - size);
      part.remove_prefix(count);
      size += count;
      if (size < piece.size()) continue;
      if (!to.take({piece.data(), size}, patience)) return;
      size = 0;
    }
  to.take({piece.data(), size}, patience);
}

}  // namespace

void write_message(std::string_view message) {
  write_parts({"tessel-host: ", message, "\n"});
}

void write_text(std::string_view text) {
  write_parts({text});
}

void write_at_once(std::string_view text) {
  clock::duration none{};
  if (has_room(STDERR_FILENO, none)) stream().take(text, none);
}

}  // namespace tessel_host
