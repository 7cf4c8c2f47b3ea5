// Faults of the route processor on which the audit itself runs: files that it cannot write.
#include <fmt/format.h>

#include <charconv>

#include "lab/faults/sites.h"

namespace lab {
namespace {

bool edit_blocked(capture& c, const router& r, planted_fault& p) {
  if (p.argument == "0" && r.type == "fir") return false;  // as an unknown model
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
  constexpr std::string_view not_run = "{}: execution failed for {}";
  std::vector<fault> faults{
      {.name = "capture-blocked",
       .description = "a folder stands where the audit keeps the output of a command, "
                      "/tmp/tessel_NAME.log; =NAME, running_cfg unless given",
       .finding = not_run,
       .also = {{"{}: dump_running_config failed", phase::collecting},
                {"{}: parse_running_config failed", phase::parsing}},
       .shown = phase::collecting,
       .stops_from = phase::consistency,
       .edit = edit_blocked,
       .takes_argument = true},
      {.name = "capture-blocked=0",
       .description = "the same for commands without a name of their own, the version tool's first",
       .finding = not_run,
       .also = {{"{}: get_router_type failed", phase::start},
                {"ERROR: Not able to get router type", phase::start}},
       .shown = phase::start,
       .stops_from = phase::collecting,
       .edit = edit_blocked},
      {.name = "capture-blocked=show_unit_all_A",
       .description = "the same for the list of chip units",
       .finding = not_run,
       .also = {{"{}: Not able to get ASIC information", phase::start}},
       .shown = phase::start,
       .depth = -1,
       .stops_from = phase::start,
       .edit = edit_blocked},
      {.name = "capture-blocked=BM_PI",
       .description = "the same for the bundle manager's table",
       .finding = not_run,
       .also = {{"{}: parse_bundle_info_PI failed", phase::collecting}},
       .shown = phase::collecting,
       .stops_from = phase::consistency,
       .edit = edit_blocked},
      {.name = "capture-blocked=BME_PD",
       .description = "the same for the agents' table",
       .finding = not_run,
       .also = {{"{}: dump_parse_bundle_info_PD failed", phase::collecting}},
       .shown = phase::collecting,
       .stops_from = phase::consistency,
       .edit = edit_blocked},
      {.name = "log-full",
       .description = "/var/log has no room for /var/log/tessel_NAME.log; =NAME, inconsistencies "
                      "unless given",
       .finding = "Log ERROR: No space left on device/Not able to access file system",
       .shown = phase::start,
       .stops_from = phase::start,
       .edit = edit_full_log,
       .takes_argument = true},
      {.name = "log-full=stale_entries",
       .description = "/var/log has no room for the log of stale entries",
       .finding = "{}: Log init failed",
       .shown = phase::start,
       .stops_from = phase::start,
       .edit = edit_full_log},
      {.name = "log-full=debug",
       .description = "/var/log has no room for the debug log, which takes what is parsed",
       .finding = "{}: get_bundles from running config failed",
       .also = {{"INFO: No Bundle is configured/No member is added to Bundle", phase::parsing}},
       .shown = phase::parsing,
       .stops_from = phase::parsing,
       .edit = edit_full_log},
      {.name = "file-limit",
       .description = "no file of the audit grows beyond so many bytes; =BYTES, 50000 unless given",
       .finding = "json print_object failed: {}",
       .also = {{"pprint print_object failed: {}", phase::start}},
       .shown = phase::start,
       .stops_from = phase::start,
       .edit = edit_file_limit,
       .takes_argument = true},
  };
  for (fault& one : faults) one.hides = reach::router;
  return faults;
}

}  // namespace lab
