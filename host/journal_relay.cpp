#include "journal_relay.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

namespace tessel_host {

namespace {

// The journal of the largest router has less.
constexpr std::size_t most_waiting = std::size_t{16} * 1024 * 1024;

constexpr std::chrono::seconds longest_finish{1};

// As many whole lines as a pipe takes as a whole or not at all. No line of a journal is longer.
std::string_view next_lines(std::string_view waiting) {
  const std::size_t last = waiting.rfind('\n', PIPE_BUF - 1);
  return waiting.substr(0, (last == waiting.npos ? waiting.find('\n') : last) + 1);
}

}  // namespace

journal_relay::journal_relay(int descriptor, bool is_socket)
    : descriptor_(descriptor), is_socket_(is_socket) {}

journal_relay::~journal_relay() {
  ::close(descriptor_);
}

void journal_relay::add(std::string_view line) {
  if (is_gone_ || waiting_.size() - done_ + line.size() + 1 > most_waiting) return;
  waiting_ += line;
  waiting_ += '\n';
}

void journal_relay::flush() {
  while (done_ < waiting_.size()) {
    const std::string_view lines = next_lines(std::string_view(waiting_).substr(done_));
    const ssize_t count =
        is_socket_ ? ::send(descriptor_, lines.data(), lines.size(), MSG_DONTWAIT | MSG_NOSIGNAL)
                   : ::write(descriptor_, lines.data(), lines.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK) is_gone_ = true;
    if (count <= 0) break;
    done_ += static_cast<std::size_t>(count);
  }
  if (is_gone_) done_ = waiting_.size();
  if (done_ < waiting_.size() && done_ < most_waiting / 2) return;
  waiting_.erase(0, done_);
  done_ = 0;
}

void journal_relay::finish(std::chrono::milliseconds pause) {
  const auto end = std::chrono::steady_clock::now() + longest_finish;
  for (flush(); done_ < waiting_.size() && std::chrono::steady_clock::now() < end; flush()) {
    pollfd room{descriptor_, POLLOUT, 0};
    if (::poll(&room, 1, static_cast<int>(pause.count())) == 0) return;
  }
}

std::unique_ptr<journal_relay> relay_to(int descriptor) {
  struct stat state {};
  const int flags = ::fcntl(descriptor, F_GETFL);
  if (flags < 0 || (flags & O_PATH) != 0 || ::fstat(descriptor, &state) != 0) return nullptr;
  const bool is_socket = S_ISSOCK(state.st_mode);
  const bool is_file = S_ISREG(state.st_mode);
  const bool is_reopened = S_ISFIFO(state.st_mode) || S_ISCHR(state.st_mode);
  if (!is_socket && ((flags & O_ACCMODE) == O_RDONLY || (!is_file && !is_reopened))) return nullptr;
  // The mode in which a write does not wait belongs to what was opened, which others may share.
  const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
  const int own = is_reopened ? ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)
                              : ::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  return own < 0 ? nullptr : std::make_unique<journal_relay>(own, is_socket);
}

}  // namespace tessel_host
