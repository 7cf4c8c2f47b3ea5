#include "collect/port_listing.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "base/command.h"
#include "base/failure.h"
#include "base/findings.h"
#include "base/logs.h"
#include "base/numbers.h"
#include "base/records.h"
#include "base/text.h"
#include "base/value.h"
#include "run/state.h"

namespace tessel {

namespace {

std::string_view word(const std::vector<std::string_view>& words, std::size_t at) {
  if (at < words.size()) return words[at];
  throw failure(fmt::format("no word {} in a line of {}", at, words.size()));
}

std::shared_ptr<memberInfo> port_of_line(std::string_view line, const value& nodename) {
  const auto words = split_words(line);
  auto member = std::make_shared<memberInfo>();
  member->set("name", word(words, 0));
  member->set("ifh", convert_to_hex(fmt::format("0x{}", word(words, 1))));
  member->set("npu_id", word(words, 2));
  member->set("npu_core", word(words, 3));
  member->set("pp_port", word(words, 4));
  member->set("sys_port", word(words, 5));
  member->set("voq", word(words, 6));
  member->set("nodename", nodename);
  return member;
}

value ports_of_listing(const value_list& lines) {
  run_state& run = st();
  value members = make_map();
  value nodename = DEFAULT;
  for (const value& each : lines) {
    const std::string_view line = each.as_text();
    if (line.find("Node ID:") != std::string_view::npos) {
      // This chassis lists every port once per route processor.
      if (run.router == aspen && !(nodename == DEFAULT)) break;
      nodename = run.router == aspen ? run.activenodeinfo : value(word(split_words(line), 2));
    } else if (line.find("local") != std::string_view::npos) {
      const auto member = port_of_line(line, nodename);
      const std::string name = member->get("name").as_text();
      members.as_map().set(std::string_view(name).substr(std::min<std::size_t>(2, name.size())),
                           std::shared_ptr<record>(member));
    }
  }
  return members;
}

}  // namespace

int dump_voq_usage() {
  run_state& run = st();
  try {
    const value output = execute("qos_voq_show -v x -i 0x10 -n A -t n -p 0x0", "voq_usage");
    const auto lines = split(output.as_text(), "\n");
    run.voq_usage.set(make_list({lines.begin(), lines.end()}));
    return SUCCESS;
  } catch (const std::exception& error) {
    return count_and_log(fmt::format("{}: dump_voq_usage failed", error.what()));
  }
}

int fill_member_details() {
  run_state& run = st();
  try {
    dump_voq_usage();
    const value lines = run.voq_usage.get();
    // If the listing could not be fetched, the store is still a map, and there are no lines.
    const value members = ports_of_listing(lines.is_list() ? lines.as_list() : value_list());
    run.voq_usage.set(members);
    if (members.truthy()) return SUCCESS;
    logger("ERROR: 'sh controller npu voq_usage' has no port information", "exception");
    ++run.exception;
    return ERROR;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: dump_parse_fill_member_details failed", error.what()));
  }
}

}  // namespace tessel
