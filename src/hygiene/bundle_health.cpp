#include "hygiene/bundle_health.h"

#include <fmt/format.h>

#include "base/command.h"
#include "base/findings.h"
#include "base/logs.h"
#include "base/print.h"
#include "base/text.h"
#include "run/state.h"

namespace tessel {

namespace {

constexpr std::string_view bundle_word = "Bundle-Ether";

// Bundle lines start at the margin, all others after three blanks. The first line is empty and has
// the three blanks too; an empty text gives only this line.
std::string indented(std::string_view text) {
  std::string result = "   ";
  if (text.empty()) return result;
  for (const std::string_view line : split(text, "\n")) {
    result += '\n';
    if (line.find(bundle_word) == std::string_view::npos) result += "   ";
    result += strip_set_left(line, white_space);
  }
  return result;
}

}  // namespace

int check_bundle_health() {
  run_state& run = st();
  try {
    print_title("Bundle Health Check");
    run.bdlHealthCheck =
        execute(R"(lagmgr_health | grep "-v" "-E" "Checking|checking|Overall result")");
    const auto [bdl_error, err_count] = parse_bundle_health(run.bdlHealthCheck.as_text());
    run.bdlHealthCheckCount = err_count;
    logger(bdl_error, "bundle_health");
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: Bundle health check failed", error.what()));
  }
}

std::pair<std::string, std::int64_t> parse_bundle_health(std::string_view bdlHealthCheck) {
  static const pattern& rule = constant(health_rule);
  static const pattern& empty_lines = constant(health_empty_lines);
  static const pattern& block = constant(information_block);
  static const pattern& table_head = constant(health_table_head);
  const std::string report = sub(empty_lines, "\n", sub(rule, "", bdlHealthCheck));
  const bool has_information = report.find("INFO:") != std::string::npos;
  const std::string errors = sub(has_information ? block : table_head, "", report);
  std::string output = indented(strip(errors));
  const auto err_count = static_cast<std::int64_t>(split(output, bundle_word).size()) - 1;
  return {std::move(output), err_count};
}

}  // namespace tessel
