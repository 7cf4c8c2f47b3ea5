#include "runs/audit.h"

#include <fmt/format.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include "lab/base/error.h"
#include "lab/capture/capture.h"
#include "lab/run/namespace_run.h"

namespace bench {

namespace {

namespace fs = std::filesystem;

std::string content_of(const fs::path& file) {
  std::ifstream in(file);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Another build of the library can be measured with the same lab and host.
fs::path library() {
  const char* named = std::getenv("TESSEL_BENCH_LIBRARY");
  return named != nullptr ? fs::path(named) : fs::path(TESSEL_BUILD_DIR) / "libtessel.so";
}

void set_variable(const char* name, bool wanted) {
  if (wanted)
    setenv(name, "1", 1);
  else
    unsetenv(name);
}

// A run that ended early costs less, so it must not count.
void insist_on_whole_run(const fs::path& logs, int status) {
  const std::string console = content_of(logs / console_file);
  if (status == 0 && console.find("***Done***") != std::string::npos &&
      console.find("Not Done") == std::string::npos)
    return;
  throw lab::lab_error(fmt::format("the audit did not run to its end (status {}); it printed:\n{}",
                                   status, console));
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

measures audit(const audit_request& wanted) {
  const fs::path build = TESSEL_BUILD_DIR;
  lab::run_request request;
  request.answers = lab::read_manifest(wanted.capture);
  request.folder = wanted.capture;
  request.logs = wanted.logs;
  request.record = wanted.record;
  request.host = build / "tessel-bench-host";
  request.library = library();
  request.lab = build / "tessel-lab";
  request.tool = build / "tessel-lab-tool";
  set_variable(floors_variable, wanted.with_floors);
  set_variable(callgrind_variable, wanted.with_callgrind);
  for (const char* left : {console_file, measures_file}) fs::remove(wanted.logs / left);
  const int status = lab::run_in_namespace(request);
  insist_on_whole_run(wanted.logs, status);
  return read_measures(wanted.logs / measures_file);
}

}  // namespace bench
