#include "audit.h"

#include <dlfcn.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <system_error>

#include "lab/base/error.h"
#include "lab/model/router.h"
#include "lab/run/namespace_run.h"

namespace bench {

namespace {

namespace fs = std::filesystem;

constexpr const char* times_file = "times";

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

}  // namespace

temporary_folder::temporary_folder() {
  std::string name = (fs::temp_directory_path() / "bench-run-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw lab::lab_error("no temporary folder");
  path_ = name;
}

temporary_folder::~temporary_folder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

audit_times audit(const fs::path& capture, const fs::path& logs, const fs::path& record) {
  lab::run_request request;
  request.answers = lab::read_manifest(capture);
  request.folder = capture;
  request.logs = logs;
  request.record = record;
  request.host = fs::read_symlink("/proc/self/exe");
  request.library = fs::path(TESSEL_BUILD_DIR) / "libtessel.so";
  request.lab = fs::path(TESSEL_BUILD_DIR) / "tessel-lab";
  request.tool = fs::path(TESSEL_BUILD_DIR) / "tessel-lab-tool";
  fs::remove(logs / times_file);
  setenv(host_variable, "1", 1);
  const auto start = std::chrono::steady_clock::now();
  const int status = lab::run_in_namespace(request);
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
  unsetenv(host_variable);
  audit_times times;
  std::ifstream left(logs / times_file);
  if (status != 0 || !(left >> times.own >> times.tools))
    throw lab::lab_error("the audit did not complete; is a mount namespace available?");
  times.wall = wall.count();
  return times;
}

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
