#include "run_bench.h"

#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "namespace_run.h"
#include "render.h"
#include "texts.h"

namespace bench {

namespace {

namespace fs = std::filesystem;

double cpu_seconds(int who) {
  rusage used{};
  getrusage(who, &used);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(used.ru_utime) + seconds(used.ru_stime);
}

void leave_times() {
  std::ofstream times(fs::path("/var/log") / times_file);
  times << cpu_seconds(RUSAGE_SELF) << ' ' << cpu_seconds(RUSAGE_CHILDREN) << '\n';
}

struct run_times {
  double own = 0;
  double tools = 0;
  double wall = 0;
};

// Goes with all that is in it, whatever happens meanwhile.
class temporary_folder {
 public:
  temporary_folder() {
    std::string name = (fs::temp_directory_path() / "bench-run-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw lab::lab_error("no temporary folder");
    path_ = name;
  }
  ~temporary_folder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  temporary_folder(const temporary_folder&) = delete;
  temporary_folder& operator=(const temporary_folder&) = delete;

  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

run_times run_once(const fs::path& capture, const fs::path& logs) {
  lab::run_request request;
  request.answers = lab::read_manifest(capture);
  request.folder = capture;
  request.logs = logs;
  request.host = fs::read_symlink("/proc/self/exe");
  request.library = fs::path(TESSEL_BUILD_DIR) / "libtessel.so";
  request.lab = fs::path(TESSEL_BUILD_DIR) / "tessel-lab";
  const auto start = std::chrono::steady_clock::now();
  const int status = lab::run_in_namespace(request);
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
  run_times times;
  std::ifstream left(logs / times_file);
  if (status != 0 || !(left >> times.own >> times.tools)) {
    throw lab::lab_error("the audit did not complete; is a mount namespace available?");
  }
  times.wall = wall.count();
  return times;
}

// The time of an iteration is the process's own CPU; the tools' stands beside it.
void whole_run(benchmark::State& state) {
  const temporary_folder folder;
  const fs::path capture = folder.path() / "capture";
  const fs::path logs = folder.path() / "logs";
  fs::create_directory(logs);
  lab::write_folder(lab::render(lab::generate(sized(static_cast<unsigned>(state.range(0))))),
                    capture);
  setenv(host_variable, "1", 1);
  run_times sum;
  for (auto _ : state) {
    try {
      const run_times times = run_once(capture, logs);
      state.SetIterationTime(times.own);
      sum.tools += times.tools;
      sum.wall += times.wall;
    } catch (const std::exception& error) {
      state.SkipWithError(error.what());
      break;
    }
  }
  unsetenv(host_variable);
  state.counters["tools_cpu_s"] = benchmark::Counter(sum.tools, benchmark::Counter::kAvgIterations);
  state.counters["wall_s"] = benchmark::Counter(sum.wall, benchmark::Counter::kAvgIterations);
  state.SetComplexityN(state.range(0));
}

BENCHMARK(whole_run)->Arg(25)->Arg(50)->Arg(100)->UseManualTime()->Complexity()->Unit(
    benchmark::kMillisecond);

}  // namespace

int run_as_host(int argc, char** argv) {
  std::string file = "libtessel.so";
  for (int at = 1; at + 1 < argc; ++at) {
    if (std::string(argv[at]) == "--library") file = argv[at + 1];
  }
  void* library = dlopen(file.c_str(), RTLD_NOW);
  if (library == nullptr) {
    std::fprintf(stderr, "tessel-bench: %s\n", dlerror());
    return 1;
  }
  const auto init = reinterpret_cast<void (*)()>(dlsym(library, "tessel_init"));
  const auto run = reinterpret_cast<std::int32_t (*)(std::int32_t)>(dlsym(library, "tessel_run"));
  if (init == nullptr || run == nullptr) {
    std::fprintf(stderr, "tessel-bench: %s lacks an entry point\n", file.c_str());
    return 1;
  }
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
  std::atexit(leave_times);
  init();
  constexpr std::int32_t first_route_processor = 4096;
  return run(first_route_processor) == 0 ? 1 : 2;
}

}  // namespace bench
