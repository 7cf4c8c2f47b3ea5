#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <optional>

#include "archive.h"
#include "beside.h"
#include "capture.h"
#include "commands.h"
#include "latency.h"
#include "namespace_run.h"
#include "record.h"
#include "record_check.h"
#include "render.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

fs::path existing_file(const fs::path& file, const char* option) {
  if (!fs::is_regular_file(file))
    throw lab_error(
        fmt::format("{}: there is no such file; name it with {}", file.string(), option));
  return fs::absolute(file);
}

}  // namespace

fs::path own_program() {
  return fs::read_symlink("/proc/self/exe");
}

fs::path host_of(const option_values& o) {
  const fs::path beside = own_program().parent_path() / "tessel-host";
  return existing_file(o.has("--host") ? fs::path{o.value_of("--host")} : beside, "--host");
}

// A build leaves it beside this program, an installation in its folder of libraries.
fs::path library_of(const option_values& o) {
  const fs::path folder = own_program().parent_path();
  const fs::path beside = folder / "libtessel.so";
  const fs::path installed = (folder / TESSEL_BIN_TO_LIB / "libtessel.so").lexically_normal();
  const fs::path usual = !fs::exists(beside) && fs::exists(installed) ? installed : beside;
  return existing_file(o.has("--library") ? fs::path{o.value_of("--library")} : usual, "--library");
}

fs::path logs_folder(const std::string& named) {
  if (named.empty()) {
    const char* temporary = std::getenv("TMPDIR");
    std::string folder =
        std::string{temporary == nullptr ? "/tmp" : temporary} + "/lab-logs.XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) throw lab_error(folder + ": cannot be made");
    fmt::print(stderr, "tessel-lab: the logs are in {}\n", folder);
    return folder;
  }
  std::error_code failure;
  fs::create_directories(named, failure);
  if (failure) throw lab_error(fmt::format("{}: {}", named, failure.message()));
  return fs::absolute(named);
}

namespace {

fs::path calls_file(const std::string& named) {
  if (named.empty()) return {};
  const int fd = open(named.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) throw lab_error(fmt::format("{}: cannot be written", named));
  close(fd);
  return fs::absolute(named);
}

fs::path record_place(const std::string& named) {
  if (named.empty()) return {};
  check_recording_place(named);
  fs::path place = fs::absolute(named);
  if (!place.has_filename()) place = place.parent_path();  // "out/"
  if (!fs::is_directory(place.parent_path()))
    throw lab_error(fmt::format("{}: there is no such folder", place.parent_path().string()));
  return place;
}

// A capture folder answers as it stands; a packed one is unpacked into memory, a router is rendered
// first.
void set_answers(const option_values& o, run_request& request) {
  std::vector<std::string> faults = o.all_of("--fault");
  const std::vector<planted_ssh_fault> ssh_faults = take_ssh_faults(faults);
  request.real_ssh = o.has("--real-ssh");
  if (!ssh_faults.empty() && !request.real_ssh)
    throw usage_error(fmt::format("run: fault {} needs --real-ssh", ssh_faults.front().name));
  const std::string& what = o.operands[0];
  const bool is_file = fs::is_regular_file(what) && !what.ends_with(".toml");
  if ((fs::is_directory(what) || is_file) && !faults.empty())
    throw usage_error("run: a fault is planted into a router, not into a capture");
  if (fs::is_directory(what)) {
    request.folder = fs::absolute(what);
    request.answers = read_manifest(what);
    check_recording_folder(what, what);
  } else if (is_file) {
    request.answers = read_packed(what);
  } else {
    request.answers = render(faulty_router(what, faults));
  }
  if (request.real_ssh) request.nodes = nodes_behind_ssh(request.answers, ssh_faults);
}

// The tools read it themselves.
void set_latencies(const option_values& o) {
  unsetenv(latency_variable);
  if (!o.has("--latency")) return;
  const std::string told = o.value_of("--latency");
  try {
    parse_latencies(told);
  } catch (const lab_error& failure) {
    throw usage_error(fmt::format("run: {}", failure.what()));
  }
  setenv(latency_variable, told.c_str(), 1);
}

}  // namespace

int run_command(const std::vector<std::string>& arguments) {
  const option_values o =
      parse_options(arguments, {.with_value = {"--fault", "--logs", "--host", "--library",
                                               "--keep-calls", "--record", "--latency"},
                                .flags = {"--real-ssh"},
                                .rest = true});
  expect_operands(o, 1, "ROUTER or CAPTURE");
  set_latencies(o);
  run_request request;
  set_answers(o, request);
  request.lab = own_program();
  request.host = host_of(o);
  request.library = library_of(o);
  request.logs = logs_folder(o.value_of("--logs"));
  request.calls = calls_file(o.value_of("--keep-calls"));
  request.record = record_place(o.value_of("--record"));
  request.host_arguments = o.rest;
  // Made here, outside: whatever ends this process, what removes the folder outlives it.
  std::optional<folder_beside> work;
  if (!request.record.empty()) {
    request.record_told = o.value_of("--record");
    request.record_work = work.emplace(request.record).path();
  }
  return run_in_namespace(request);
}

}  // namespace lab
