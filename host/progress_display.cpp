#include "progress_display.h"

#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "standard_error.h"

namespace tessel_host {

namespace {

using namespace std::chrono_literals;

constexpr auto pause_on_terminal = 250ms;
constexpr auto pause_between_lines = 10s;
constexpr auto pause_of_relay = 100ms;
constexpr auto patience_for_reader = 100ms;
constexpr std::size_t usual_width = 80;
constexpr std::size_t longest_line = 1000;  // a pipe that has room takes it without waiting

// The same for /dev/tty and for the terminal that it stands for.
unsigned device_of(int terminal) {
  unsigned device = 0;
  if (::ioctl(terminal, TIOCGDEV, &device) == 0) return device;
  struct stat state {};
  return ::fstat(terminal, &state) == 0 ? static_cast<unsigned>(state.st_rdev) : 0;
}

std::size_t width() {
  winsize size{};
  const bool is_known = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
  return is_known ? size.ws_col : usual_width;
}

// Who gives the host a group of its own and waits for it names the group that the terminal knows.
pid_t group_of_caller() {
  const char* const named = std::getenv("TESSEL_FOREGROUND");
  const std::string_view text = named == nullptr ? "" : named;
  pid_t group = 0;
  std::from_chars(text.data(), text.data() + text.size(), group);
  return group;
}

// A host in the background would draw into what somebody types. A terminal that is not the
// session's own, as behind su -c, has no background.
bool is_in_foreground() {
  const pid_t shown = ::tcgetpgrp(STDERR_FILENO);
  return shown < 0 || shown == ::getpgrp() || (shown > 0 && shown == group_of_caller());
}

}  // namespace

bool streams_share_a_terminal() {
  return ::isatty(STDOUT_FILENO) == 1 && ::isatty(STDERR_FILENO) == 1 &&
         device_of(STDOUT_FILENO) == device_of(STDERR_FILENO);
}

progress_way choose_progress(std::optional<bool> asked) {
  if (asked == false || streams_share_a_terminal()) return progress_way::none;
  if (::isatty(STDERR_FILENO) == 1) return progress_way::redrawn;
  return asked == true ? progress_way::lines : progress_way::none;
}

progress_display::progress_display(progress_way way, std::unique_ptr<journal_tail> journal,
                                   std::unique_ptr<journal_relay> relay, clock::time_point began)
    : way_(journal ? way : progress_way::none),
      journal_(std::move(journal)),
      relay_(journal_ ? std::move(relay) : nullptr),
      began_(began),
      next_(began + (way_ == progress_way::lines ? clock::duration(pause_between_lines)
                                                 : clock::duration(pause_on_terminal))),
      next_relay_(began + pause_of_relay) {}

double progress_display::seconds_until(clock::time_point now) const {
  return std::chrono::duration<double>(now - began_).count();
}

void progress_display::read() {
  if (!journal_) return;
  journal_->take_lines([this](std::string_view line) {
    if (const auto event = read_event(line)) seen_.take(*event);
    if (relay_) relay_->add(line);
  });
}

void progress_display::hand_on(clock::time_point now) {
  if (!relay_ || now < next_relay_) return;
  read();
  relay_->flush();
  next_relay_ = now + pause_of_relay;
}

void progress_display::look(clock::time_point now) {
  hand_on(now);
  if (way_ == progress_way::none || now < next_) return;
  read();
  if (way_ == progress_way::redrawn) {
    next_ = now + pause_on_terminal;
    return draw(now);
  }
  next_ = now + pause_between_lines;
  const std::string places = seen_.places();
  write_line(seen_.present(seconds_until(now)) +
             (places.empty() ? "" : "; done by node and chip: " + places));
}

std::optional<progress_display::clock::duration> progress_display::pause(
    clock::time_point now) const {
  if (way_ == progress_way::none && !relay_) return std::nullopt;
  const auto next = way_ == progress_way::none ? next_relay_
                    : relay_                   ? std::min(next_, next_relay_)
                                               : next_;
  return std::max<clock::duration>(next - now, 1ms);
}

// The cursor goes back to the start of the line, so that whatever the audit says covers it.
void progress_display::draw(clock::time_point now) {
  if (!is_in_foreground()) return;
  write_at_once("\r" + seen_.drawn(seconds_until(now), width() - 1) + "\x1b[K\r");
  is_drawn_ = true;
}

void progress_display::erase() {
  if (is_drawn_) write_at_once("\r\x1b[K");
  is_drawn_ = false;
}

void progress_display::write_line(const std::string& text) {
  write_at_once("tessel-host: " + text.substr(0, longest_line) + "\n");
}

void progress_display::end(clock::time_point now) {
  read();
  if (relay_) relay_->finish(patience_for_reader);
  erase();
  seconds_ = seconds_until(now);
  if (way_ == progress_way::lines) write_line(seen_.summary(seconds_));
}

}  // namespace tessel_host
