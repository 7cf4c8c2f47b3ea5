#include "base/memory_limit.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <utility>

#include "base/failure.h"

namespace tessel {

namespace {

using path_buffer = std::array<char, 4096>;

// The beginning of a small file of the system, in `into`; empty if it cannot be read.
template <std::size_t Size>
std::string_view beginning_of(const char* path, std::array<char, Size>& into) {
  int descriptor = -1;
  do {
    descriptor = ::open(path, O_RDONLY | O_CLOEXEC);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0) return {};
  std::size_t filled = 0;
  while (filled < into.size()) {
    const ssize_t count = ::read(descriptor, into.data() + filled, into.size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    filled += static_cast<std::size_t>(count);
  }
  ::close(descriptor);
  return {into.data(), filled};
}

// The parts as one path, with its end, or nullptr if it does not fit.
const char* path_of(path_buffer& buffer, std::initializer_list<std::string_view> parts) {
  std::size_t used = 0;
  for (const std::string_view part : parts) {
    if (part.size() >= buffer.size() - used) return nullptr;
    used += part.copy(buffer.data() + used, part.size());
  }
  buffer.at(used) = '\0';
  return buffer.data();
}

// The number at the start of `text`; `max` and anything else that is no number is no limit.
std::uint64_t number_in(std::string_view text) {
  while (text.starts_with(' ')) text.remove_prefix(1);
  std::uint64_t number = 0;
  const auto end = std::from_chars(text.data(), text.data() + text.size(), number);
  return end.ec == std::errc() ? number : UINT64_MAX;
}

void lower(memory_limit& limit, std::uint64_t bytes, const char* from) {
  if (bytes < limit.bytes) limit = {bytes, from};
}

// The limit in `file` of the group at `path` and of all groups around it: each of them counts. A
// container may not show a group by its own path, but always shows its outermost one.
void lower_by_group(memory_limit& limit, std::string_view mount, std::string_view path,
                    std::string_view file) {
  for (;;) {
    while (path.ends_with('/')) path.remove_suffix(1);
    path_buffer buffer{};
    std::array<char, 32> text{};
    if (const char* const whole = path_of(buffer, {mount, path, file})) {
      lower(limit, number_in(beginning_of(whole, text)), "the memory limit of the control group");
    }
    if (path.empty()) return;
    path = path.substr(0, path.rfind('/') == path.npos ? 0 : path.rfind('/'));
  }
}

// True if "cpu,memory" has the name of the controller of memory.
bool names_memory(std::string_view controllers) {
  while (!controllers.empty()) {
    const std::size_t end = std::min(controllers.find(','), controllers.size());
    if (controllers.substr(0, end) == "memory") return true;
    controllers.remove_prefix(std::min(end + 1, controllers.size()));
  }
  return false;
}

// A line "NUMBER:CONTROLLERS:PATH". Version 2 has no controllers in it.
void lower_by_line(memory_limit& limit, std::string_view groups, std::string_view line) {
  const std::size_t first = line.find(':');
  const std::size_t second = line.find(':', first == line.npos ? first : first + 1);
  if (second == line.npos) return;
  const std::string_view controllers = line.substr(first + 1, second - first - 1);
  const std::string_view path = line.substr(second + 1);
  if (controllers.empty()) {
    lower_by_group(limit, groups, path, "/memory.max");
  } else if (names_memory(controllers)) {
    path_buffer buffer{};
    const char* const mount = path_of(buffer, {groups, "/memory"});
    if (mount != nullptr) lower_by_group(limit, mount, path, "/memory.limit_in_bytes");
  }
}

void lower_by_groups(memory_limit& limit, std::string_view proc, std::string_view groups) {
  path_buffer buffer{};
  std::array<char, 8192> text{};
  const char* const path = path_of(buffer, {proc, "/self/cgroup"});
  if (path == nullptr) return;
  std::string_view lines = beginning_of(path, text);
  while (!lines.empty()) {
    const std::size_t end = std::min(lines.find('\n'), lines.size());
    lower_by_line(limit, groups, lines.substr(0, end));
    lines.remove_prefix(std::min(end + 1, lines.size()));
  }
}

void lower_by_machine(memory_limit& limit, std::string_view proc) {
  constexpr std::string_view label = "MemAvailable:";
  constexpr std::uint64_t kibibyte = 1024;
  path_buffer buffer{};
  std::array<char, 4096> text{};
  const char* const path = path_of(buffer, {proc, "/meminfo"});
  if (path == nullptr) return;
  const std::string_view lines = beginning_of(path, text);
  const std::size_t at = lines.find(label);
  if (at == lines.npos) return;
  const std::uint64_t free = number_in(lines.substr(at + label.size()));
  if (free < UINT64_MAX / kibibyte) lower(limit, free * kibibyte, "the free memory of the machine");
}

}  // namespace

memory_limit read_memory_limit(std::string_view proc, std::string_view groups) {
  memory_limit limit;
  lower_by_machine(limit, proc);
  lower_by_groups(limit, proc, groups);
  rlimit own{};
  if (::getrlimit(RLIMIT_AS, &own) == 0 && own.rlim_cur != RLIM_INFINITY) {
    lower(limit, own.rlim_cur, "RLIMIT_AS");
  }
  return limit;
}

void text_account::set_limit(const memory_limit& limit) {
  most_ = limit.bytes / 2;
  from_ = limit.from;
}

void text_account::take(std::uint64_t size, std::string_view what) {
  std::uint64_t before = held();
  do {
    const std::uint64_t left = most_ - std::min(most_, before);
    if (size > left) {
      throw failure(
          fmt::format("cannot hold {}: it has {} bytes, at most {} bytes are left in the half of "
                      "{} that outputs "
                      "may take; give the audit more memory",
                      what, size, left, from_));
    }
  } while (!held_.compare_exchange_weak(before, before + size, std::memory_order_relaxed));
}

text_share::text_share(text_account& account, std::uint64_t size, std::string_view what)
    : account_(&account), size_(size) {
  account.take(size, what);
}

text_share::text_share(text_share&& other) noexcept
    : account_(other.account_), size_(std::exchange(other.size_, 0)) {}

text_share::~text_share() {
  account_->give_back(size_);
}

value held_text(std::string text, text_share share) {
  constexpr std::size_t least_shared = 256;  // a shorter one is copied wherever it goes
  if (text.size() < least_shared) return text;
  struct holder {
    holder(std::string&& whole, text_share&& taken)
        : share(std::move(taken)), text(std::move(whole)) {}
    text_share share;  // given back when the text is freed
    std::string text;
  };
  const auto kept = std::make_shared<const holder>(std::move(text), std::move(share));
  return std::shared_ptr<const std::string>(kept, &kept->text);
}

value held_copy(text_account& account, std::string_view part, std::string_view what) {
  text_share share(account, part.size(), what);
  return held_text(std::string(part), std::move(share));
}

}  // namespace tessel
