// The host that tessel-bench lets tessel-lab start. It starts itself a second time: the second
// process runs the audit, the first one measures the second from outside and then the floors.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "floors.h"
#include "measured_run.h"
#include "measures.h"
#include "observed.h"
#include "usage.h"

namespace bench {

namespace {

namespace fs = std::filesystem;

// Set in the second process: the moment of its start.
constexpr const char* started_variable = "TESSEL_BENCH_STARTED";

const fs::path logs = "/var/log";

host_request request_of(int argc, char** argv) {
  host_request request;
  for (int at = 1; at + 1 < argc; at += 2) {
    const std::string_view option = argv[at];
    if (option == "--library") request.library = argv[at + 1];
    if (option == "--node-id") request.node_id = std::stoi(argv[at + 1]);
  }
  return request;
}

struct ended_run {
  int status = 0;
  processor_time with_tools;
  double wall = 0;
};

// The words that start the second process: this program with the same arguments, or valgrind with
// all of that.
std::vector<std::string> command_of_second(int argc, char** argv) {
  std::vector<std::string> words;
  if (std::getenv(callgrind_variable) != nullptr)
    words = {"valgrind", "--tool=callgrind", "--quiet",
             "--callgrind-out-file=" + (logs / callgrind_file).string()};
  words.push_back(fs::read_symlink("/proc/self/exe").string());
  words.insert(words.end(), argv + 1, argv + argc);
  return words;
}

ended_run run_second(std::vector<std::string> words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const std::string console = (logs / console_file).string();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, console.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  const double started = now();
  setenv(started_variable, std::to_string(started).c_str(), 1);
  pid_t child = 0;
  const int refused =
      posix_spawnp(&child, arguments.front(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (refused != 0) throw std::runtime_error(words.front() + ": " + std::strerror(refused));
  ended_run ended;
  rusage used{};
  while (wait4(child, &ended.status, 0, &used) < 0) {
    if (errno != EINTR) throw std::runtime_error(std::string("wait4: ") + std::strerror(errno));
  }
  ended.wall = now() - started;
  ended.with_tools = time_of(used);
  return ended;
}

// The end of the process is what the kernel still does when the process has measured itself last:
// above all it takes back the memory.
void add_end(const ended_run& ended, measures& run) {
  using namespace value_name;
  const double known = run.value(own_user) + run.value(own_system) + run.value(tools);
  const double own = std::max(0.0, ended.with_tools.sum() - known);
  run.phases.push_back({"End of the process", {0, own}, ended.wall - run.value(wall), 0});
}

int measure(int argc, char** argv) {
  const ended_run ended = run_second(command_of_second(argc, argv));
  if (!WIFEXITED(ended.status) || WEXITSTATUS(ended.status) != 0) return 1;
  measures run = read_measures(logs / measures_file);
  add_end(ended, run);
  if (std::getenv(floors_variable) != nullptr) add_floors(run);
  write_measures(run, logs / measures_file);
  return 0;
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
  try {
    const char* started = std::getenv(bench::started_variable);
    if (started != nullptr)
      return bench::run_measured(bench::request_of(argc, argv), atof(started));
    return bench::measure(argc, argv);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "tessel-bench-host: %s\n", failure.what());
    return 1;
  }
}
