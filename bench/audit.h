// A whole audit in the lab, measured from inside the host: this program starts itself as its host.
#pragma once

#include <filesystem>

namespace bench {

// Set in the environment of a host that is to write its times into /var/log.
inline constexpr const char* host_variable = "TESSEL_BENCH_HOST";

// Loads the library named in the arguments ("--library FILE"), runs the audit without output, and
// at the end of the process leaves the CPU seconds of the process itself and of its tools in
// "/var/log/times". Does not return when the audit completes.
int run_as_host(int argc, char** argv);

// Goes with all that is in it, whatever happens meanwhile.
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

// Seconds: CPU of the audit itself and of its tools, wall time from the lab's start to its end.
struct audit_times {
  double own = 0;
  double tools = 0;
  double wall = 0;
};

// Audits a capture folder; `record`, if not empty, is the capture to be recorded on the way. Throws
// `lab_error` if the audit did not complete.
audit_times audit(const std::filesystem::path& capture, const std::filesystem::path& logs,
                  const std::filesystem::path& record = {});

}  // namespace bench
