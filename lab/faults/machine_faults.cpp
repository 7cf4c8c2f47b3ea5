// Faults of the route processor on which the audit itself runs: files that it cannot write.
#include <fmt/format.h>

#include <charconv>

#include "lab/faults/sites.h"

namespace lab {
namespace {

bool edit_blocked(capture& c, const router& r, planted_fault& p) {
  if (p.argument == "0" && r.type == "fir")
    return false;  // its nodes are invalid for an unknown model
  const std::string name = p.argument.empty() ? "running_cfg" : p.argument;
  p.harmed = fmt::format("/tmp/tessel_{}.log", name);
  c.blocked_captures.push_back(name);
  return true;
}

bool edit_full_log(capture& c, const router&, planted_fault& p) {
  const std::string name = p.argument.empty() ? "inconsistencies" : p.argument;
  p.harmed = fmt::format("/var/log/tessel_{}.log", name);
  c.full_logs.push_back(name);
  return true;
}

// Sets `size` to the argument, if there is one. False unless it is a number above 0.
bool take_size(std::uint64_t& size, const planted_fault& p) {
  if (p.argument.empty()) return true;
  const char* end = p.argument.data() + p.argument.size();
  const auto read = std::from_chars(p.argument.data(), end, size);
  return read.ec == std::errc{} && read.ptr == end && size > 0;
}

bool edit_file_limit(capture& c, const router&, planted_fault& p) {
  c.file_limit = 50000;
  p.harmed = "/var/log";
  return take_size(c.file_limit, p);
}

bool edit_full_tmp(capture& c, const router&, planted_fault& p) {
  c.tmp_kibibytes = 4;
  p.harmed = "/tmp";
  return take_size(c.tmp_kibibytes, p);
}

constexpr std::string_view not_run = "{}: execution failed for {}";

constexpr fault rows[] = {
    {.name = "capture-blocked",
     .description = "a folder blocks /tmp/tessel_NAME.log, where the audit keeps a command's "
                    "output; =NAME (default: running_cfg)",
     .finding = not_run,
     .also = {{"{}: dump_running_config failed", checkpoint::groundwork},
              {"{}: parse_running_config failed", checkpoint::groundwork, phase::parsing}},
     .at = checkpoint::groundwork,
     .stops_from = phase::consistency,
     .edit = edit_blocked,
     .takes_argument = true},
    {.name = "capture-blocked=0",
     .description =
         "the same for commands without a name of their own; the version tool is the first",
     .finding = not_run,
     .also = {{"{}: get_router_type failed", checkpoint::groundwork, phase::start},
              {"ERROR: Not able to get router type", checkpoint::groundwork, phase::start}},
     .at = checkpoint::groundwork,
     .shown = phase::start,
     .stops_from = phase::collecting},
    {.name = "capture-blocked=show_unit_all_A",
     .description = "the same for the list of chip units",
     .finding = not_run,
     .also = {{"{}: Not able to get ASIC information", checkpoint::groundwork, phase::start}},
     .at = checkpoint::chip_units,
     .shown = phase::start,
     .stops_from = phase::start},
    {.name = "capture-blocked=BM_PI",
     .description = "the same for the bundle manager's table",
     .finding = not_run,
     .also = {{"{}: parse_bundle_info_PI failed", checkpoint::groundwork}},
     .at = checkpoint::groundwork,
     .stops_from = phase::consistency},
    {.name = "capture-blocked=BME_PD",
     .description = "the same for the agents' table",
     .finding = not_run,
     .also = {{"{}: dump_parse_bundle_info_PD failed", checkpoint::groundwork}},
     .at = checkpoint::groundwork,
     .stops_from = phase::consistency},
    {.name = "log-full",
     .description =
         "/var/log has no room for /var/log/tessel_NAME.log; =NAME (default: inconsistencies)",
     .finding = "Log ERROR: No space left on device/Not able to access file system",
     .at = checkpoint::groundwork,
     .shown = phase::start,
     .stops_from = phase::start,
     .edit = edit_full_log,
     .takes_argument = true},
    {.name = "log-full=stale_entries",
     .description = "/var/log has no room for the log of stale entries",
     .finding = "{}: Log init failed",
     .at = checkpoint::groundwork,
     .shown = phase::start,
     .stops_from = phase::start},
    {.name = "log-full=debug",
     .description = "/var/log has no room for the debug log, which receives what is parsed",
     .finding = "{}: get_bundles from running config failed",
     .also = {{"INFO: No Bundle is configured/No member is added to Bundle", checkpoint::groundwork,
               phase::parsing}},
     .at = checkpoint::groundwork,
     .shown = phase::parsing,
     .stops_from = phase::parsing},
    {.name = "file-limit",
     .description = "no file of the audit can grow beyond a size; =BYTES (default: 50000)",
     .finding = "json print_object failed: {}",
     .also = {{"pprint print_object failed: {}", checkpoint::groundwork, phase::start}},
     .at = checkpoint::groundwork,
     .shown = phase::start,
     .stops_from = phase::start,
     .edit = edit_file_limit,
     .takes_argument = true},
    {.name = "tmp-full",
     .description = "/tmp has little room; =KIBIBYTES (default: 4)",
     .finding = not_run,
     .also = {{"{}: get_router_type failed", checkpoint::groundwork, phase::start},
              {"{}: Not able to get ASIC information", checkpoint::groundwork, phase::start}},
     .at = checkpoint::chip_units,
     .shown = phase::start,
     .stops_from = phase::start,
     .edit = edit_full_tmp,
     .takes_argument = true},
};
constexpr auto table = hiding(reach::router, rows);

}  // namespace

std::span<const fault> machine_faults() {
  return table;
}

}  // namespace lab
