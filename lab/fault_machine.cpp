// Faults of the route processor on which the audit itself runs: files that it cannot write.
#include <fmt/format.h>

#include <charconv>

#include "fault_sites.h"

namespace lab {
namespace {

bool edit_blocked(capture& c, const router&, planted_fault& p) {
  c.blocked_captures.push_back(p.argument.empty() ? "running_cfg" : p.argument);
  return true;
}

bool edit_full_log(capture& c, const router&, planted_fault& p) {
  c.full_logs.push_back(p.argument.empty() ? "inconsistencies" : p.argument);
  return true;
}

bool edit_file_limit(capture& c, const router&, planted_fault& p) {
  constexpr std::uint64_t usual_limit = 50000;
  c.file_limit = usual_limit;
  if (p.argument.empty()) return true;
  const char* end = p.argument.data() + p.argument.size();
  const auto read = std::from_chars(p.argument.data(), end, c.file_limit);
  return read.ec == std::errc{} && read.ptr == end && c.file_limit > 0;
}

}  // namespace

std::vector<fault> machine_faults() {
  std::vector<fault> faults{
      {.name = "capture-blocked",
       .description = "a folder stands where the audit keeps the output of a command, "
                      "/tmp/tessel_NAME.log; =NAME, running_cfg unless given",
       .finding = "{}: execution failed for {}",
       .stops_from = phase::collecting,
       .edit = edit_blocked},
      {.name = "log-full",
       .description = "/var/log has no room for /var/log/tessel_NAME.log; =NAME, inconsistencies "
                      "unless given",
       .finding = "Log ERROR: No space left on device/Not able to access file system",
       .stops_from = phase::start,
       .edit = edit_full_log},
      {.name = "file-limit",
       .description = "no file of the audit grows beyond so many bytes; =BYTES, 50000 unless given",
       .finding = "json print_object failed: {}",
       .stops_from = phase::start,
       .edit = edit_file_limit},
  };
  for (fault& one : faults) {
    one.shown = phase::start;
    one.hides = reach::router;
    one.takes_argument = true;
  }
  return faults;
}

}  // namespace lab
