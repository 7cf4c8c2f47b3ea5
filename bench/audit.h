// Times a whole audit in the lab from inside the host: the lab starts this program as its host.
#pragma once

#include <filesystem>

namespace bench {

// Environment variable that makes this program act as a host and write its times to /var/log.
inline constexpr const char* host_variable = "TESSEL_BENCH_HOST";

// Loads the library named in the arguments ("--library FILE") and runs the audit without output.
// When the process ends, writes the CPU seconds of the process itself and of its tools to
// "/var/log/times". Does not return if the audit completes.
int run_as_host(int argc, char** argv);

// A folder that is removed with its content at the end of the scope, also if an exception leaves
// it.
class temporary_folder {
 public:
  temporary_folder();
  ~temporary_folder();
  temporary_folder(const temporary_folder&) = delete;
  temporary_folder& operator=(const temporary_folder&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// Seconds: the CPU time of the audit itself and of its tools, and the wall time from the lab's
// start to its end.
struct audit_times {
  double own = 0;
  double tools = 0;
  double wall = 0;
};

// Audits a capture folder and, unless `record` is empty, records the run there. Throws `lab_error`
// if the audit did not complete.
audit_times audit(const std::filesystem::path& capture, const std::filesystem::path& logs,
                  const std::filesystem::path& record = {});

}  // namespace bench
