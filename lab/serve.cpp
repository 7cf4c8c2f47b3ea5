#include "serve.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "capture.h"

namespace lab {
namespace {

std::string tool_of(const std::vector<std::string>& command) {
  const std::size_t slash = command.front().rfind('/');
  return slash == std::string::npos ? command.front() : command.front().substr(slash + 1);
}

std::string readable(const std::vector<std::string>& command) {
  std::string line = tool_of(command);
  for (std::size_t i = 1; i < command.size(); ++i) {
    const std::string& word = command[i];
    const bool plain = !word.empty() && word.find_first_of(" \t\n\"*") == std::string::npos;
    line += plain ? " " + word : " \"" + word + "\"";
  }
  return line;
}

call resolve_ssh(const std::vector<std::string>& command) {
  std::size_t next = 1;
  while (next < command.size() && command[next].starts_with('-')) {
    if (command[next] != "-q" && command[next] != "-o")
      return {{}, {}, fmt::format("ssh: unknown option {}", command[next])};
    next += command[next] == "-o" ? 2 : 1;
  }
  if (next >= command.size()) return {{}, {}, "ssh: no address"};
  const std::string& address = command[next];
  if (address.empty() || address.front() == '.' || address.find('/') != std::string::npos)
    return {{}, {}, fmt::format("ssh: \"{}\" is no address", address)};
  std::string remote;
  for (std::size_t i = next + 1; i < command.size(); ++i)
    remote += (remote.empty() ? "" : " ") + command[i];
  if (remote.empty()) return {{}, {}, "ssh: no command"};
  return {address, file_name(remote), {}};
}

void note_call(const std::string& line) {
  const char* file = std::getenv("TESSEL_LAB_CALLS");
  if (file == nullptr || *file == '\0') return;
  const int fd = open(file, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return;
  // One write, so that the lines of calls that run side by side stay whole.
  const std::string whole = line + "\n";
  if (write(fd, whole.data(), whole.size()) < 0)
    fmt::print(stderr, "{}: {}\n", file, std::strerror(errno));
  close(fd);
}

bool write_all(int out, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(out, data, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    data += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

// The kernel copies by itself where it can; where it can't (a file opened for appending), we do.
bool copy_all(int in, int out) {
  constexpr std::size_t chunk = 1U << 30;
  for (;;) {
    const ssize_t copied = sendfile(out, in, nullptr, chunk);
    if (copied == 0) return true;
    if (copied < 0 && errno == EINTR) continue;
    if (copied < 0) break;
  }
  if (errno != EINVAL && errno != ENOSYS) return false;
  std::array<char, 1U << 16> buffer{};
  for (;;) {
    const ssize_t got = read(in, buffer.data(), buffer.size());
    if (got == 0) return true;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 || !write_all(out, buffer.data(), static_cast<std::size_t>(got))) return false;
  }
}

std::string capture_folder() {
  const char* named = std::getenv("TESSEL_LAB_CAPTURE");
  return named != nullptr && *named != '\0' ? named : "/opt/nos/capture";
}

int open_answer(const std::string& folder, const std::string& file) {
  const int in = open((folder + "/" + file).c_str(), O_RDONLY | O_CLOEXEC);
  const std::string shared = in < 0 && errno == ENOENT ? shared_file_name(file) : std::string{};
  return shared.empty() ? in : open((folder + "/" + shared).c_str(), O_RDONLY | O_CLOEXEC);
}

}  // namespace

call resolve(const std::vector<std::string>& command) {
  if (tool_of(command) == "ssh") return resolve_ssh(command);
  return {std::string{local_place},
          file_name(tool_of(command), {command.begin() + 1, command.end()}),
          {}};
}

int serve(const std::vector<std::string>& command) {
  note_call(readable(command));
  const call wanted = resolve(command);
  if (!wanted.problem.empty()) {
    fmt::print(stderr, "{}\n", wanted.problem);
    return ssh_failed;
  }
  const std::string folder = capture_folder() + "/" + wanted.place;
  const int in = open_answer(folder, wanted.file);
  if (in < 0) {
    if (wanted.place != local_place && access(folder.c_str(), F_OK) != 0) {
      fmt::print(stderr, "ssh: connect to host {} port 22: No route to host\n", wanted.place);
      return ssh_failed;
    }
    fmt::print(stderr, "{}: not known to this router ({}/{}): {}\n", readable(command),
               wanted.place, wanted.file, std::strerror(errno));
    return unknown_command;
  }
  if (!copy_all(in, STDOUT_FILENO)) {
    fmt::print(stderr, "{}: {}\n", tool_of(command), std::strerror(errno));
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}

}  // namespace lab
