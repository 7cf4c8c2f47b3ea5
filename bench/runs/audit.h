// Runs a whole audit in the lab and measures it: the lab starts tessel-bench-host as its host.
#pragma once

#include <filesystem>

#include "host/measures.h"

namespace bench {

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

struct audit_request {
  std::filesystem::path capture;  // a capture folder
  std::filesystem::path logs;     // an existing folder
  std::filesystem::path record;   // where to record the run; empty: nowhere
  bool with_floors = false;
  bool with_callgrind = false;  // leaves `callgrind_file` in `logs`
};

// Throws `lab_error` if the audit did not run to its end.
measures audit(const audit_request& request);

}  // namespace bench
