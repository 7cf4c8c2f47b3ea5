#include "lab/tool/serve.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <thread>

#include "lab/base/complain.h"
#include "lab/base/descriptors.h"
#include "lab/base/error.h"
#include "lab/base/files.h"
#include "lab/base/place.h"
#include "lab/capture/answer_list.h"
#include "lab/capture/file_names.h"
#include "lab/tool/latency.h"

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

// True if the text can be a folder's name and has no blanks.
bool is_address(const std::string& text) {
  const bool plain = std::all_of(text.begin(), text.end(), [](unsigned char c) {
    return std::isalnum(c) != 0 || (c != 0 && std::strchr("._:%@-", c) != nullptr);
  });
  return plain && !text.empty() && text.front() != '.';
}

// The files of "for f in FILE FILE; do test -x $f || echo $f; done", none of "true"; nothing for
// any other line.
std::optional<std::vector<std::string>> tested_files(std::string_view line) {
  constexpr std::string_view begin = "for f in ";
  constexpr std::string_view end = "; do test -x $f || echo $f; done";
  if (line == "true") return std::vector<std::string>{};
  if (!line.starts_with(begin) || !line.ends_with(end) || line.size() < begin.size() + end.size())
    return std::nullopt;
  line = line.substr(begin.size(), line.size() - begin.size() - end.size());
  if (line.find_first_of(";&|<>$`'\"\\*?()") != std::string_view::npos) return std::nullopt;
  std::vector<std::string> files;
  while (!line.empty()) {
    const std::size_t blank = std::min(line.find(' '), line.size());
    files.emplace_back(line.substr(0, blank));
    line.remove_prefix(std::min(blank + 1, line.size()));
  }
  return files;
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
  if (!is_address(address)) return {{}, {}, fmt::format("ssh: \"{}\" is not an address", address)};
  std::string remote;
  for (std::size_t i = next + 1; i < command.size(); ++i)
    remote += (remote.empty() ? "" : " ") + command[i];
  if (remote.empty()) return {{}, {}, "ssh: no command"};
  return {address, file_name(remote), {}, tested_files(remote)};
}

void note_call(const std::string& line) {
  const char* name = std::getenv("TESSEL_LAB_CALLS");
  if (name == nullptr || *name == '\0') return;
  const descriptor calls = open_file(name, O_WRONLY | O_APPEND | O_CREAT, 0644);
  if (!calls.is_open()) return;
  // One write, so that lines of simultaneous calls do not mix.
  const std::string whole = line + "\n";
  if (write(calls.number(), whole.data(), whole.size()) < 0)
    complain(fmt::format("{}: {}", name, std::strerror(errno)));
}

// Lets the kernel copy where it can; copies here where it cannot (a file opened for appending).
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
    const ssize_t got = read_some(in, buffer.data(), buffer.size());
    if (got <= 0) return got == 0;
    const std::string_view text{buffer.data(), static_cast<std::size_t>(got)};
    if (write_all(out, text) < text.size()) return false;
  }
}

std::string capture_folder() {
  const char* named = std::getenv("TESSEL_LAB_CAPTURE");
  return named != nullptr && *named != '\0' ? named : "/opt/nos/capture";
}

// Returns false if there is no such file. Throws `lab_error` if it cannot be copied.
bool copy_file(const std::string& file, int out) {
  // Only regular files of the capture: a link leads elsewhere, a pipe would block the audit.
  const descriptor in = open_file(file, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
  if (!in.is_open() && errno == ENOENT) return false;
  if (!in.is_open() || !copy_all(in.number(), out)) fail(file);
  return true;
}

// The number of earlier calls of this command line by all processes of a run: the offset at which
// an appended byte lands. 0 if there is no folder to count in.
std::size_t calls_before(const struct stat& list) {
  const char* named = std::getenv("TESSEL_LAB_STATE");
  const std::string folder = named != nullptr && *named != '\0' ? named : "/opt/nos/state";
  const std::string file = fmt::format("{}/{}-{}", folder, list.st_dev, list.st_ino);
  const descriptor counted = open_file(file, O_WRONLY | O_APPEND | O_CREAT, 0644);
  if (!counted.is_open()) return 0;
  const off_t behind =
      write(counted.number(), ".", 1) == 1 ? lseek(counted.number(), 0, SEEK_CUR) : 1;
  return static_cast<std::size_t>(behind > 0 ? behind - 1 : 0);
}

// Returns nothing if the command line has no list of answers.
std::optional<int> serve_from_list(const std::string& file) {
  const std::string list_file = file + std::string{list_suffix};
  struct stat status {};
  if (stat(list_file.c_str(), &status) != 0) return std::nullopt;
  const std::vector<listed_answer> list = parse_answer_list(read_own(list_file), list_file);
  const listed_answer& answer = list[std::min(calls_before(status), list.size() - 1)];
  const std::string output = numbered_file(file, answer.number);
  const std::string complaint = output + std::string{complaint_suffix};
  if (answer.complains && !copy_file(complaint, STDERR_FILENO))
    throw lab_error(fmt::format("{}: is missing", complaint));
  if (!copy_file(output, STDOUT_FILENO)) throw lab_error(fmt::format("{}: is missing", output));
  return answer.status;
}

// These tools are called by their full path, all others by name. On a router a wrong call finds
// nothing.
constexpr std::array<std::string_view, 5> called_by_place{
    "asic_shell_show", "board_api_probe", "fwd_object_show", "plat_nodes_show", "sw_version_show"};

bool is_found(const std::vector<std::string>& command, const call& wanted) {
  const std::string tool = wanted.file.substr(0, wanted.file.find(','));
  const bool has_place =
      std::find(called_by_place.begin(), called_by_place.end(), tool) != called_by_place.end();
  const bool by_place = std::any_of(command.begin(), command.end(), [&](const std::string& word) {
    return word.find("/" + tool) != std::string::npos;
  });
  return has_place == by_place;
}

void wait_latency(const std::string& tool, const call& wanted) {
  const char* given = std::getenv(latency_variable);
  if (given == nullptr || *given == '\0') return;
  const std::string remote_tool =
      wanted.place == local_place ? std::string{} : wanted.file.substr(0, wanted.file.find(','));
  std::this_thread::sleep_for(latency_of(parse_latencies(given), tool, remote_tool));
}

int no_route(const std::string& address) {
  complain(fmt::format("ssh: connect to host {} port 22: No route to host", address));
  return ssh_failed;
}

// False if every call that was recorded in the folder of a node has failed in ssh itself.
bool was_reached(const std::filesystem::path& folder) {
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string file = entry.path().string();
    if (!file.ends_with(list_suffix)) {
      if (entry.path().filename().string().find(';') == std::string::npos) return true;
      continue;
    }
    for (const listed_answer& answer : parse_answer_list(read_own(file), file))
      if (answer.status != ssh_failed) return true;
  }
  return false;
}

// Prints what is missing. The tools of all nodes are those of the run: what is missing is missing
// everywhere.
int answer_test(const call& wanted) {
  const std::string folder = capture_folder() + "/" + wanted.place;
  const bool is_known = access(folder.c_str(), F_OK) == 0;
  if (!is_known || !was_reached(folder)) return no_route(wanted.place);
  std::string missing;
  for (const std::string& file : *wanted.tested)
    if (access(file.c_str(), X_OK) != 0) missing += file + "\n";
  return write_all(STDOUT_FILENO, missing) == missing.size() ? EXIT_SUCCESS : EXIT_FAILURE;
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
    complain(wanted.problem);
    return ssh_failed;
  }
  if (!is_found(command, wanted)) {
    complain(fmt::format("{}: not found, neither by that name nor at that place",
                         wanted.file.substr(0, wanted.file.find(','))));
    return unknown_command;
  }
  const std::string folder = capture_folder() + "/" + wanted.place;
  const std::string file = folder + "/" + wanted.file;
  try {
    wait_latency(tool_of(command), wanted);
    if (copy_file(file, STDOUT_FILENO)) return EXIT_SUCCESS;
    if (const auto status = serve_from_list(file)) return *status;
    const std::string shared = shared_file_name(wanted.file);
    if (!shared.empty() && copy_file(folder + "/" + shared, STDOUT_FILENO)) return EXIT_SUCCESS;
    if (wanted.tested) return answer_test(wanted);
  } catch (const std::exception& failure) {
    complain(fmt::format("{}: {}", tool_of(command), failure.what()));
    return EXIT_FAILURE;
  }
  if (wanted.place != local_place && access(folder.c_str(), F_OK) != 0)
    return no_route(wanted.place);
  complain(fmt::format("{}: not known to this router ({}/{})", readable(command), wanted.place,
                       wanted.file));
  return unknown_command;
}

}  // namespace lab
