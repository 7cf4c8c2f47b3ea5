// Measures what tessel-report costs beside reading its logs once. Needs permission to make a mount
// namespace, unless the logs are there.
#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "lab/base/namespaces.h"
#include "lab/capture/capture.h"
#include "lab/faults/render_faulty.h"
#include "lab/model/generate.h"
#include "runs/audit.h"
#include "runs/options.h"
#include "runs/sizes.h"

namespace bench {

namespace {

namespace fs = std::filesystem;

constexpr const char* usage =
    R"(usage: tessel-report-bench [SIZE...] [--family FAMILY] [--hqos on|off] [--repeat N]
       tessel-report-bench --logs DIR [--repeat N]

Audits generated routers, reads the logs once with read(2), runs each command of tessel-report on
them and prints what it took, as a Markdown table. What is not named means all of it.
  SIZE             S, M, L or XL; several may be named
  --family FAMILY  the chips: older, jericho2 or mixed
  --hqos on|off    hierarchical QoS
  --repeat N       of N runs of each show the shortest (1)
  --logs DIR       measure these logs, audit nothing
)";

const std::vector<std::vector<const char*>>& commands() {
  static const std::vector<std::vector<const char*>> all = {{"summary"},
                                                            {"summary", "--short"},
                                                            {"summary", "--all"},
                                                            {"bundle", "BE1"},
                                                            {"coverage"},
                                                            {"runs"},
                                                            {"json"},
                                                            {"junit"},
                                                            {"sarif"},
                                                            {"prometheus"},
                                                            {"nagios"},
                                                            {"html"}};
  return all;
}

struct cost {
  double wall = 0;
  double processor = 0;
  double peak_mib = 0;
};

cost lesser(const cost& a, const cost& b) {
  return {std::min(a.wall, b.wall), std::min(a.processor, b.processor),
          std::max(a.peak_mib, b.peak_mib)};
}

double seconds_of(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

// What `work` costs in a process of its own, which ends with its result.
cost measured(const std::function<int()>& work, int most_status) {
  const auto begin = std::chrono::steady_clock::now();
  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("cannot start a process");
  if (child == 0) ::_exit(work());
  int status = 0;
  rusage used{};
  if (::wait4(child, &status, 0, &used) != child) throw std::runtime_error("cannot wait for it");
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - begin;
  if (!WIFEXITED(status) || WEXITSTATUS(status) > most_status)
    throw std::runtime_error(fmt::format("it ended with status {:#x}", status));
  constexpr double kib_of_mib = 1024;
  return {wall.count(), seconds_of(used.ru_utime) + seconds_of(used.ru_stime),
          static_cast<double>(used.ru_maxrss) / kib_of_mib};
}

int read_all(const fs::path& logs) {
  std::vector<char> buffer(std::size_t{256} << 10U);
  for (const fs::directory_entry& file : fs::directory_iterator(logs)) {
    const int from = ::open(file.path().c_str(), O_RDONLY | O_CLOEXEC);
    if (from < 0) return EXIT_FAILURE;
    while (::read(from, buffer.data(), buffer.size()) > 0) {
    }
    ::close(from);
  }
  return EXIT_SUCCESS;
}

int report(const fs::path& logs, const std::vector<const char*>& words) {
  const std::string program = std::string(TESSEL_BUILD_DIR) + "/tessel-report";
  std::vector<char*> arguments;
  const auto add = [&](const char* word) { arguments.push_back(const_cast<char*>(word)); };
  add(program.c_str());
  add("--logs");
  add(logs.c_str());
  std::for_each(words.begin(), words.end(), add);
  arguments.push_back(nullptr);
  const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (::dup2(nowhere, STDOUT_FILENO) < 0) return EXIT_FAILURE;
  ::execv(program.c_str(), arguments.data());
  constexpr int cannot_start = 127;
  return cannot_start;
}

cost best_of(unsigned repeat, const std::function<int()>& work, int most_status) {
  cost best = measured(work, most_status);
  for (unsigned count = 1; count < repeat; ++count)
    best = lesser(best, measured(work, most_status));
  return best;
}

void show_table(const fs::path& logs, unsigned repeat) {
  constexpr int most_status_of_report = 3;
  std::uintmax_t bytes = 0;
  for (const fs::directory_entry& file : fs::directory_iterator(logs)) bytes += file.file_size();
  const cost reading = best_of(
      repeat, [&] { return read_all(logs); }, EXIT_SUCCESS);
  fmt::print("{:.1f} MB of logs\n\n", static_cast<double>(bytes) * 1e-6);
  fmt::print(
      "| command | wall s | CPU s | CPU / reading | peak MiB |\n| --- | ---: | ---: | ---: | ---: "
      "|\n");
  fmt::print("| reading | {:.3f} | {:.3f} | 1 | – |\n", reading.wall, reading.processor);
  for (const auto& words : commands()) {
    const cost one = best_of(
        repeat, [&] { return report(logs, words); }, most_status_of_report);
    fmt::print("| {} | {:.3f} | {:.3f} | {:.1f} | {:.0f} |\n", fmt::join(words, " "), one.wall,
               one.processor, one.processor / reading.processor, one.peak_mib);
    std::fflush(stdout);
  }
}

int make_logs(const fs::path& folder, const std::string& size, const std::string& family,
              bool hqos) {
  const lab::router router = lab::generate(sized_request(size, family, hqos));
  audit_request request;
  request.capture = folder / "capture";
  request.logs = folder / "logs";
  fs::create_directory(request.logs);
  lab::write_folder(lab::render(router), request.capture);
  (void)audit(request);
  fs::remove_all(request.capture);
  return EXIT_SUCCESS;
}

void measure_router(const options& wanted, const std::string& size, const std::string& family,
                    bool hqos) {
  const temporary_folder folder;
  // The kernel counts the memory of the process that starts another for the other one as well, so
  // a large router must not have been in this one.
  const auto make = [&] {
    try {
      return make_logs(folder.path(), size, family, hqos);
    } catch (const std::exception& failure) {
      fmt::print(stderr, "tessel-report-bench: {}\n", failure.what());
      return EXIT_FAILURE;
    }
  };
  (void)measured(make, EXIT_SUCCESS);
  // The audit is measured as well, beside its logs.
  for (const fs::directory_entry& file : fs::directory_iterator(folder.path() / "logs"))
    if (file.path().extension() != ".log") fs::remove(file.path());
  fmt::print("\n{}, {}, hqos {}: ", size, family, hqos ? "on" : "off");
  show_table(folder.path() / "logs", wanted.repeat);
}

int run(int argc, char** argv) {
  std::vector<char*> words(argv, argv + argc);
  std::string logs;
  const auto named = std::find(words.begin(), words.end(), std::string("--logs"));
  if (named != words.end()) {
    if (named + 1 == words.end()) throw bad_options("--logs needs a value");
    logs = *(named + 1);
    words.erase(named, named + 2);
  }
  const options wanted = parse_options(static_cast<int>(words.size()), words.data());
  if (!wanted.latency.empty() || !wanted.callgrind.empty())
    throw bad_options("--latency and --callgrind are for audits");
  if (wanted.help) {
    fmt::print("{}", usage);
    return EXIT_SUCCESS;
  }
  if (!logs.empty()) {
    show_table(logs, wanted.repeat);
    return EXIT_SUCCESS;
  }
  lab::insist_on_namespace();
  for (const std::string& family : wanted.families)
    for (const bool hqos : wanted.hqos)
      for (const std::string& size : wanted.sizes) measure_router(wanted, size, family, hqos);
  return EXIT_SUCCESS;
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
  try {
    return bench::run(argc, argv);
  } catch (const bench::bad_options& wrong) {
    fmt::print(stderr, "tessel-report-bench: {}; see --help\n", wrong.what());
    return 64;
  } catch (const lab::no_privileges& missing) {
    fmt::print(stderr, "tessel-report-bench: {}\n", missing.what);
    return lab::missing_privileges;
  } catch (const std::exception& failure) {
    fmt::print(stderr, "tessel-report-bench: {}\n", failure.what());
    return EXIT_FAILURE;
  }
}
