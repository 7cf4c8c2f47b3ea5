// Helpers of the lab's tests: patterns as the audit applies them, its filters, shell commands.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "lab/capture/capture.h"
#include "lab/model/router.h"

namespace lab_test {

using groups = std::vector<std::string>;  // a match's groups, or the match if it has none

// All matches, left to right. Byte-wise, line feed as the only line end.
std::vector<groups> findall(const std::string& pattern, const std::string& text);

// The output of a pipeline such as "grep -E 'x' | grep -v 'y'" for a text.
std::string filtered(const std::string& text, const std::string& pipeline);

// A folder that is removed after the test, never one that an audit would clear.
class scratch_folder {
 public:
  scratch_folder();
  ~scratch_folder();
  scratch_folder(const scratch_folder&) = delete;
  scratch_folder& operator=(const scratch_folder&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

struct outcome {
  int status = 0;  // 128 + n for signal n
  std::string out;
  std::string err;
};

// Ends a test that lacks a privilege: as failed if CI is set, else as skipped with a message. The
// test must return after the call.
void cannot_run_here(const std::string& why);

// Runs a shell line and waits for it.
outcome run_shell(const std::string& line);

void write_text(const std::filesystem::path& file, const std::string& text);
std::string read_text(const std::filesystem::path& file);

// A described router with its answers, without faults.
struct rendered {
  lab::router r;
  lab::capture c;
  const std::string& local(const std::string& command) const;
  const std::string& on(const std::string& node_name, const std::string& command) const;
  const std::string& chip(const std::string& command, unsigned npu, const lab::node& n) const;
};
// Rendered once for all tests of a process; lives as long as that.
const rendered& rendered_router(const std::string& name);
rendered rendered_text(const std::string& description);

}  // namespace lab_test
