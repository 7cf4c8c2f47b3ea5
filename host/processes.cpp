#include "processes.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

namespace tessel_host {

namespace {

struct closes_folder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

// The numbers among the names in the folder.
std::vector<pid_t> numbers_in(const std::string& path) {
  std::vector<pid_t> numbers;
  const std::unique_ptr<DIR, closes_folder> folder(::opendir(path.c_str()));
  if (!folder) return numbers;
  while (const dirent* const entry = ::readdir(folder.get())) {
    const std::string_view name(entry->d_name);
    pid_t number = 0;
    const auto [stop, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (error == std::errc{} && stop == name.data() + name.size()) numbers.push_back(number);
  }
  return numbers;
}

std::optional<process> process_at(const std::string& file, pid_t id) {
  const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return std::nullopt;
  std::array<char, 1024> bytes{};
  const ssize_t size = ::read(descriptor, bytes.data(), bytes.size() - 1);
  ::close(descriptor);
  const std::string_view text(bytes.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
  // The name of the program stands in parentheses and may hold anything.
  const std::size_t name_end = text.rfind(')');
  process found;
  found.id = id;
  if (name_end == text.npos ||
      std::sscanf(text.data() + name_end + 1,
                  " %c %d %*d %*d %*d %*d %*u %*u %*u %*u %*u %*u %*u %*d %*d %*d %*d %d %*d %llu",
                  &found.state, &found.parent, &found.threads, &found.began) != 4) {
    return std::nullopt;
  }
  return found;
}

bool has_thread_ended(const process& one) {
  return one.state == 'Z' || one.state == 'X';
}

// The first thread of a process may end before the others.
bool has_ended(const process& one) {
  return has_thread_ended(one) && one.threads <= 1;
}

bool is_among(const process& one, const std::vector<process>& some) {
  return std::any_of(some.begin(), some.end(), [&](const process& other) {
    return other.id == one.id && other.began == one.began;
  });
}

std::vector<process> all_processes() {
  std::vector<process> all;
  for (const pid_t id : numbers_in("/proc"))
    if (const auto one = process_of(id)) all.push_back(*one);
  return all;
}

}  // namespace

std::optional<process> process_of(pid_t id) {
  return process_at("/proc/" + std::to_string(id) + "/stat", id);
}

std::vector<process> running_below(pid_t ancestor, const std::vector<process>& spared) {
  std::vector<process> others = all_processes();
  std::erase_if(others, [&](const process& one) { return is_among(one, spared); });
  std::vector<pid_t> family = {ancestor};
  std::vector<process> found;
  for (std::size_t at = 0; at < family.size(); ++at) {
    const auto is_other = [parent = family[at]](const process& one) {
      return one.parent != parent;
    };
    const auto children = std::partition(others.begin(), others.end(), is_other);
    for (auto child = children; child != others.end(); ++child) {
      family.push_back(child->id);
      if (!has_ended(*child)) found.push_back(*child);
    }
    others.erase(children, others.end());
  }
  return found;
}

std::vector<process> children_of(pid_t parent) {
  std::vector<process> children = all_processes();
  std::erase_if(children, [parent](const process& one) { return one.parent != parent; });
  return children;
}

bool is_halted(pid_t id) {
  const std::string tasks = "/proc/" + std::to_string(id) + "/task";
  const std::vector<pid_t> threads = numbers_in(tasks);
  return std::all_of(threads.begin(), threads.end(), [&](pid_t thread) {
    const auto state = process_at(tasks + "/" + std::to_string(thread) + "/stat", thread);
    return !state || has_thread_ended(*state) || state->state == 'T' || state->state == 't';
  });
}

void send_signal(const process& to, int number) {
  const auto handle = static_cast<int>(::syscall(SYS_pidfd_open, to.id, 0));
  if (handle < 0 && errno == ESRCH) return;
  // What the handle refers to cannot change any more. An old kernel has no handles; there only a
  // moment is left in which the id may change hands.
  const auto now = process_of(to.id);
  if (now && now->began == to.began) {
    if (handle < 0) {
      ::kill(to.id, number);
    } else {
      static_cast<void>(::syscall(SYS_pidfd_send_signal, handle, number, nullptr, 0));
    }
  }
  if (handle >= 0) ::close(handle);
}

}  // namespace tessel_host
