#include "support/fake_router.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "base/logs.h"
#include "base/text.h"

namespace tessel {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view bin_folder = "/opt/nos/bin";
constexpr std::string_view path_folder = "/opt/nos/path";
constexpr std::string_view text_folder = "/opt/nos/text";
constexpr std::string_view calls_file = "/opt/nos/calls";

[[noreturn]] void cannot(std::string_view action) {
  throw std::runtime_error(fmt::format("cannot {}: {}", action, std::strerror(errno)));
}

void empty_folder(std::string_view folder) {
  fs::create_directories(folder);
  for (const auto& entry : fs::directory_iterator(folder)) fs::remove_all(entry);
}

value filled(value target, entry_list entries) {
  for (const auto& [key, content] : entries) target.as_map().set(key, content);
  return target;
}

void write_script(const std::string& path, const std::string& script) {
  // A new file each time, because a script that is running cannot be written to.
  fs::remove(path);
  write_file(path, script);
  fs::permissions(path, fs::perms(0755));
}

// Not a file in /tmp, because some tests take /tmp away.
std::string stream_output_of(std::FILE* stream, const std::function<void()>& body) {
  const int number = ::fileno(stream);
  std::fflush(stream);
  const int kept = ::fcntl(number, F_DUPFD_CLOEXEC, 3);
  const int memory = ::memfd_create("output", MFD_CLOEXEC);
  if (kept < 0 || memory < 0 || ::dup2(memory, number) < 0) cannot("capture output");
  const auto restore = [&] {
    std::fflush(stream);
    ::dup2(kept, number);
    ::close(kept);
  };
  try {
    body();
  } catch (...) {
    restore();
    ::close(memory);
    throw;
  }
  restore();
  std::string text(static_cast<std::size_t>(::lseek(memory, 0, SEEK_END)), '\0');
  if (::pread(memory, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
    cannot("read the captured output");
  }
  ::close(memory);
  return text;
}

// Otherwise many tests in one process would run out of descriptors.
void close_logs(run_state& run) {
  for (const auto& [name, channel] : run.log_dictionary) channel->close();
  run.dl_fd.close();
  run.stale_fd.close();
}

bool starts_with_time_stamp(std::string_view line) {
  static const pattern& stamp = constant(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d,\d{3}: )");
  return !findall(stamp, line).empty();
}

constexpr std::size_t stamp_length = sizeof("2026-11-21 07:38:53,123: ") - 1;

}  // namespace

void PrintTo(const value& shown, std::ostream* out) {
  *out << printed(shown);
}

value map_of(entry_list entries) {
  return filled(make_map(), entries);
}
value ordered_map_of(entry_list entries) {
  return filled(make_ordered_map(), entries);
}
value list_of(std::initializer_list<value> items) {
  return make_list(value_list(items));
}

void start_new_state() {
  // States are never freed; this keeps them reachable for a leak checker.
  static auto* const states = new std::vector<run_state*>;
  if (!states->empty()) close_logs(*states->back());
  states->push_back(&new_state());
}

void router_test::SetUp() {
  start_new_state();
  for (const std::string_view folder :
       {std::string_view("/tmp"), std::string_view("/var/log"), bin_folder, path_folder}) {
    empty_folder(folder);
  }
  fs::remove(calls_file);
}

void tool(std::string_view name, std::string_view shell_script_body) {
  const std::string script = fmt::format("#!/bin/sh\necho \"{0}${{*:+ $*}}\" >>{1}\n{2}\n", name,
                                         calls_file, shell_script_body);
  for (const std::string_view folder : {bin_folder, path_folder}) {
    write_script(fmt::format("{}/{}", folder, name), script);
  }
}

void tool_prints(std::string_view name, std::string_view text) {
  fs::create_directories(text_folder);
  const std::string file = fmt::format("{}/{}", text_folder, name);
  write_file(file, text);
  tool(name, "exec cat " + file);
}

std::vector<std::string> calls() {
  return log_lines(calls_file);
}

void open_logs() {
  ASSERT_EQ(log_init(), SUCCESS);
}

std::string file_text(std::string_view path) {
  std::ifstream file{std::string(path), std::ios::binary};
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> log_lines(std::string_view path) {
  const std::string text = file_text(path);
  std::vector<std::string> lines;
  for (const std::string_view line : split(text, "\n")) lines.emplace_back(line);
  if (lines.back().empty()) lines.pop_back();
  return lines;
}

std::vector<std::string> messages(std::string_view path) {
  std::vector<std::string> found;
  for (const std::string& line : log_lines(path)) {
    if (!starts_with_time_stamp(line)) continue;
    const std::string message = line.substr(stamp_length);
    if (message != "Started Tessel Checker") found.push_back(message);
  }
  return found;
}

void write_file(std::string_view path, std::string_view text) {
  std::ofstream file{std::string(path), std::ios::binary | std::ios::trunc};
  file << text << std::flush;
  if (!file) cannot(fmt::format("write {}", path));
}

bool file_exists(std::string_view path) {
  return fs::exists(path);
}

std::string output_of(const std::function<void()>& body) {
  return stream_output_of(stdout, body);
}
std::string error_output_of(const std::function<void()>& body) {
  return stream_output_of(stderr, body);
}

std::string failure_of(const std::function<void()>& body) {
  try {
    body();
  } catch (const failure& error) {
    return error.what();
  }
  ADD_FAILURE() << "no failure was thrown";
  return "";
}

int status_in_child(const std::function<int()>& body) {
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child < 0) cannot("fork");
  if (child == 0) {
    int status = 125;
    try {
      status = body();
    } catch (const std::exception& error) {
      std::fprintf(stderr, "in the child: %s\n", error.what());
    }
    std::fflush(nullptr);
    ::_exit(status);
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

read_only_folder::read_only_folder(std::string folder) : folder_(std::move(folder)) {
  if (::mount("tmpfs", folder_.c_str(), "tmpfs", MS_RDONLY, nullptr) != 0) cannot("mount");
}

read_only_folder::~read_only_folder() {
  ::umount2(folder_.c_str(), MNT_DETACH);
}

full_folder::full_folder(std::string folder) : folder_(std::move(folder)) {
  if (::mount("tmpfs", folder_.c_str(), "tmpfs", 0, "size=256k") != 0) cannot("mount");
  std::ofstream filler(folder_ + "/filler", std::ios::binary);
  while (filler << std::string(4096, 'x') << std::flush) {
  }
}

full_folder::~full_folder() {
  ::umount2(folder_.c_str(), MNT_DETACH);
}

void full_folder::make_room() {
  fs::remove(folder_ + "/filler");
}

}  // namespace tessel
