#include "measured_run.h"

#include <dlfcn.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "measures.h"
#include "observed.h"
#include "usage.h"

namespace bench {

namespace {

// The phase that runs, and where the process stood when it began.
struct open_phase {
  std::string name;
  processor_time own;
  double begin = 0;
};

struct run_so_far {
  double started = 0;
  std::optional<double> first_line;
  open_phase phase;
  std::vector<phase_cost> ended;
};

// Never destroyed: the library prints until the process ends.
run_so_far& run() {
  static auto& all = *new run_so_far;
  return all;
}

void begin_phase(std::string name) {
  run_so_far& all = run();
  const double moment = now();
  const processor_time own = time_used(RUSAGE_SELF);
  if (!all.phase.name.empty())
    all.ended.push_back(
        {all.phase.name, own - all.phase.own, moment - all.phase.begin, peak_kib()});
  all.phase = {std::move(name), own, moment};
}

// A phase prints its title first, filled up with dots and without a line end.
std::string phase_begun_by(std::string_view text) {
  if (text.ends_with('.')) {
    const std::string_view title = text.substr(text.find_first_not_of(" \n"));
    return std::string(title.substr(0, title.find('.')));
  }
  if (text.find("Overall Results:") != std::string_view::npos) return "Results";
  if (text.find("***Done***") != std::string_view::npos) return "Snapshot and end";
  return {};
}

ssize_t print(void*, const char* text, std::size_t size) {
  if (!run().first_line) run().first_line = now();
  std::string name = phase_begun_by({text, size});
  if (!name.empty()) begin_phase(std::move(name));
  return write(STDOUT_FILENO, text, size);
}

void take_over_standard_output() {
  cookie_io_functions_t functions{};
  functions.write = print;
  std::FILE* const stream = fopencookie(nullptr, "w", functions);
  if (stream != nullptr) stdout = stream;
}

measures all_measures() {
  begin_phase("");
  const observed seen = what_was_observed();
  const run_so_far& all = run();
  const processor_time own = time_used(RUSAGE_SELF);
  measures result;
  const auto set = [&](const char* name, double number) { result.values[name] = number; };
  set(value_name::own_user, own.user);
  set(value_name::own_system, own.system);
  set(value_name::tools, time_used(RUSAGE_CHILDREN).sum());
  set(value_name::wall, now() - all.started);
  set(value_name::first_line, all.first_line.value_or(now()) - all.started);
  set(value_name::peak_kib, static_cast<double>(peak_kib()));
  set(value_name::threads, static_cast<double>(seen.threads_started));
  set(value_name::most_threads, static_cast<double>(seen.most_threads));
  set(value_name::most_files, static_cast<double>(seen.most_descriptors));
  set(value_name::commands, static_cast<double>(seen.commands.size()));
  set(value_name::most_commands, static_cast<double>(seen.most_commands));
  result.phases = all.ended;
  for (const command_seen& command : seen.commands)
    result.commands.push_back(
        {command.line, command.begin - all.started, command.end - all.started});
  return result;
}

void leave_measures() {
  try {
    write_measures(all_measures(), std::filesystem::path("/var/log") / measures_file);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "tessel-bench-host: %s\n", failure.what());
  }
}

}  // namespace

int run_measured(const host_request& request, double started) {
  run().started = started;
  run().phase = {"Start", {}, started};
  // Functions that are registered first run last.
  if (std::atexit(leave_measures) != 0) return 1;
  begin_phase("Router, nodes, chips");
  take_over_standard_output();
  void* library = dlopen(request.library.c_str(), RTLD_NOW);
  const auto entry = [&](const char* name) { return library ? dlsym(library, name) : nullptr; };
  const auto init = reinterpret_cast<void (*)()>(entry("tessel_init"));
  const auto call = reinterpret_cast<std::int32_t (*)(std::int32_t)>(entry("tessel_run"));
  if (init == nullptr || call == nullptr) {
    std::fprintf(stderr, "tessel-bench-host: %s: %s\n", request.library.c_str(), dlerror());
    return 1;
  }
  init();
  call(request.node_id);
  return 2;
}

}  // namespace bench
