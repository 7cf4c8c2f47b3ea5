// The cost of the lab itself: a recorded run compared with a plain run, a tool call answered from a
// small and from the largest capture, and the rendering of the largest router. Runs to be compared
// alternate, so that a busy machine slows both alike.
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "lab/base/descriptors.h"
#include "lab/base/error.h"
#include "lab/base/processes.h"
#include "lab/capture/capture.h"
#include "lab/capture/file_names.h"
#include "lab/faults/render_faulty.h"
#include "lab/model/generate.h"
#include "lab/tool/latency.h"
#include "runs/audit.h"
#include "runs/sizes.h"

namespace bench {

namespace {

namespace fs = std::filesystem;
using seconds = std::chrono::duration<double>;

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

lab::generate_request usual_router() {
  return lab::default_request("birch");
}

lab::generate_request largest_router() {
  return sized_request("XL", "mixed", false);
}

// --- Recording

struct measured {
  std::vector<double> wall;
  std::vector<double> tools;

  void add(const measures& run) {
    wall.push_back(run.value(value_name::wall));
    tools.push_back(run.value(value_name::tools));
  }
};

// A recording's list has one line of explanation and then one line per call.
double calls_in(const fs::path& recorded) {
  std::ifstream list(recorded / "calls");
  double lines = -1;
  for (std::string line; std::getline(list, line);) ++lines;
  return lines;
}

struct comparison {
  fs::path capture;
  fs::path logs;
  fs::path record;
  measured plain;
  measured recorded;
  double calls = 0;

  void run_plain() { plain.add(audit({capture, logs, {}, false})); }
  void run_recorded() {
    recorded.add(audit({capture, logs, record, false}));
    calls = calls_in(record);
    fs::remove_all(record);
  }
};

void tell(const comparison& both, benchmark::State& state) {
  const auto best = [](const std::vector<double>& values) {
    return values.empty() ? 0 : *std::min_element(values.begin(), values.end());
  };
  const double plain = median(both.plain.wall);
  const double recorded = median(both.recorded.wall);
  const double cpu = median(both.recorded.tools) - median(both.plain.tools);
  state.counters["plain_s"] = plain;
  state.counters["recorded_s"] = recorded;
  state.counters["ratio"] = recorded / plain;
  // The ratio on a machine that does nothing else.
  state.counters["ratio_of_best"] = best(both.recorded.wall) / best(both.plain.wall);
  state.counters["calls"] = both.calls;
  state.counters["wall_ms_a_call"] = (recorded - plain) / both.calls * 1e3;
  state.counters["cpu_ms_a_call"] = cpu / both.calls * 1e3;
}

// One iteration is a plain run and a recorded run. Its time is that of the recorded run; the
// counters are medians and values computed from them.
void recording(benchmark::State& state, const char* latencies) {
  const temporary_folder folder;
  comparison both;
  both.capture = folder.path() / "capture";
  both.logs = folder.path() / "logs";
  both.record = folder.path() / "recorded";
  fs::create_directory(both.logs);
  lab::write_folder(lab::render(lab::generate(usual_router())), both.capture);
  if (*latencies != '\0') setenv(lab::latency_variable, latencies, 1);
  bool recorded_first = false;
  for (auto _ : state) {
    try {
      if (recorded_first) both.run_recorded();
      both.run_plain();
      if (!recorded_first) both.run_recorded();
      recorded_first = !recorded_first;
      state.SetIterationTime(both.recorded.wall.back());
    } catch (const std::exception& error) {
      state.SkipWithError(error.what());
      break;
    }
  }
  unsetenv(lab::latency_variable);
  tell(both, state);
}

// With tools as slow as on a router, and with tools that take no time.
BENCHMARK_CAPTURE(recording, tools_take_time, "ssh=150ms,chip=300ms,all=50ms")
    ->Iterations(9)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(recording, tools_answer_at_once, "")
    ->Iterations(41)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// --- Serving

// Seconds until a program has ended and all its output has been read. Throws `lab_error` if it
// fails.
double time_of(const fs::path& program, std::vector<std::string> words, const fs::path& capture) {
  std::string variable = "TESSEL_LAB_CAPTURE=" + capture.string();
  const std::vector<char*> arguments = lab::argument_list(words);
  std::array<char*, 2> environment{variable.data(), nullptr};
  lab::pipe_ends output = lab::new_pipe();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, output.in.number(), STDOUT_FILENO);

  const auto start = std::chrono::steady_clock::now();
  pid_t child = 0;
  const int problem =
      posix_spawn(&child, program.c_str(), &actions, nullptr, arguments.data(), environment.data());
  output.in.close();
  std::array<char, 1U << 16> buffer{};
  while (lab::read_some(output.out.number(), buffer.data(), buffer.size()) > 0) continue;
  int status = 0;
  if (problem == 0) lab::collect(child, status);
  const seconds taken = std::chrono::steady_clock::now() - start;
  posix_spawn_file_actions_destroy(&actions);
  if (problem != 0 || status != 0)
    throw lab::lab_error(program.string() + ": " +
                         (problem != 0 ? std::strerror(problem) : "it failed"));
  return taken.count();
}

double files_in(const fs::path& folder) {
  const fs::recursive_directory_iterator all(folder);
  return static_cast<double>(std::count_if(
      begin(all), end(all), [](const fs::directory_entry& e) { return e.is_regular_file(); }));
}

// Times for the same short answer from a small and from the largest capture, and for the longest
// answer compared with `cat`.
struct serving_times {
  fs::path folder;
  std::vector<double> small;
  std::vector<double> largest;
  std::vector<double> longest;
  std::vector<double> cat;

  double call(const std::vector<std::string>& words, const char* capture) const {
    const fs::path program = folder / fs::path(words.front()).filename();
    return time_of(program, words, folder / capture);
  }
  void measure() {
    small.push_back(call({"/opt/nos/bin/sw_version_show"}, "small"));
    largest.push_back(call({"/opt/nos/bin/sw_version_show"}, "largest"));
    longest.push_back(call({"iface_show", "-i", ".*"}, "largest"));
    cat.push_back(time_of("/bin/cat", {"cat", longest_answer().string()}, folder));
  }
  fs::path longest_answer() const {
    return folder / "largest" / "local" / lab::file_name("iface_show", {"-i", ".*"});
  }
};

// The size of the capture must not affect the time of a call: `ratio` is about 1.
void serving(benchmark::State& state) {
  const temporary_folder folder;
  const fs::path program = fs::path(TESSEL_BUILD_DIR) / "tessel-lab-tool";
  for (const char* tool : {"sw_version_show", "iface_show"})
    fs::create_symlink(program, folder.path() / tool);
  lab::write_folder(lab::render(lab::generate(usual_router())), folder.path() / "small");
  lab::write_folder(lab::render(lab::generate(largest_router())), folder.path() / "largest");
  serving_times times;
  times.folder = folder.path();
  for (auto _ : state) {
    try {
      times.measure();
      state.SetIterationTime(times.largest.back());
    } catch (const std::exception& error) {
      state.SkipWithError(error.what());
      break;
    }
  }
  const auto counter = [&](const char* name, double value) { state.counters[name] = value; };
  counter("small_ms", median(times.small) * 1e3);
  counter("largest_ms", median(times.largest) * 1e3);
  counter("ratio", median(times.largest) / median(times.small));
  counter("small_files", files_in(folder.path() / "small"));
  counter("largest_files", files_in(folder.path() / "largest"));
  counter("longest_mb", static_cast<double>(fs::file_size(times.longest_answer())) / 1e6);
  counter("longest_ms", median(times.longest) * 1e3);
  counter("cat_ms", median(times.cat) * 1e3);
}

BENCHMARK(serving)->Iterations(501)->UseManualTime()->Unit(benchmark::kMillisecond);

// --- Rendering

// Times the way from the request to the folder that holds all answers.
void rendering_largest(benchmark::State& state) {
  const temporary_folder folder;
  int number = 0;
  for (auto _ : state) {
    const lab::capture answers = lab::render(lab::generate(largest_router()));
    lab::write_folder(answers, folder.path() / std::to_string(++number));
  }
}

BENCHMARK(rendering_largest)->Iterations(3)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace bench
