#include "parse/bundle_pd.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>

#include "base/command.h"
#include "base/findings.h"
#include "base/logs.h"
#include "base/memory_limit.h"
#include "base/numbers.h"
#include "base/text.h"
#include "run/state.h"

namespace tessel {

namespace {

constexpr std::size_t first_node_row = 3;    // in a bundle's block, after its header lines
constexpr std::size_t first_member_row = 4;  // in a node's part, after its header lines
constexpr std::size_t row_words = 4;

// Only the agents name the route processors without CPU0; this adds it. A table that is no text is
// its caller's failure, and the traceback names that one.
value with_usual_name(const value& output, std::string_view printed, std::string_view usual,
                      here where = here::current()) {
  const std::string_view text = output.as_text(where);
  const std::size_t found = count_of(text, printed);
  if (found == 0) return output;
  const std::size_t size = text.size() + found * (usual.size() - printed.size());
  text_share share(st().texts, size, "the agents' table with the usual names of nodes");
  return held_text(replace_all(text, printed, usual), std::move(share));
}

void add_node_row(std::string_view line, map& bundle) {
  const auto words = split_words(line);
  if (words.size() != row_words) return;
  value row = make_map();
  row.as_map().set("lagid", convert_to_hex(words[1]));
  row.as_map().set("gport", words[2]);
  row.as_map().set("npu_mask", words[3]);
  bundle.set(words[0], row);
}

void add_member_row(std::string_view line, std::string_view bundle_id, std::string_view nodename,
                    map& members) {
  const auto words = split_words(line);
  if (words.size() != row_words) return;
  const std::string memid = convert_to_hex(words[1]);
  value mem = make_map();
  mem.as_map().set("npu", words[0]);
  mem.as_map().set("memid", memid);
  mem.as_map().set("sysport", words[2]);
  mem.as_map().set("Visited", 0);
  mem.as_map().set("Node Description",
                   fmt::format("{}_npu{}_node{}_memid{}", bundle_id, words[0], nodename, memid));
  // The interface type takes two letters.
  members.set(words[3].substr(std::min<std::size_t>(2, words[3].size())), mem);
}

// Adds one "Node:" part. Returns the node's name.
std::string add_node_part(std::string_view part, std::string_view bundle_id, map& members) {
  const auto lines = split(part, "\n");
  std::string nodename(strip(lines[0]));
  value node_members = make_map();
  for (std::size_t at = first_member_row; at < lines.size(); ++at) {
    add_member_row(lines[at], bundle_id, nodename, node_members.as_map());
  }
  members.set(nodename, node_members);
  return nodename;
}

void add_block(std::string_view block, map& bundle_pd) {
  const auto lag_info = split(block, "Node:");
  const auto lines = split(lag_info[0], "\n");
  const std::string bundle_id = fmt::format("BE{}", lines[0]);
  if (bundle_id.size() < 3) return;
  value bundle = make_map();
  const value members = make_map();
  bundle.as_map().set("members", members);
  for (std::size_t at = first_node_row; at < lines.size(); ++at) {
    add_node_row(lines[at], bundle.as_map());
  }
  std::string nodename;
  for (std::size_t at = 1; at < lag_info.size(); ++at) {
    nodename = add_node_part(lag_info[at], bundle_id, members.as_map());
  }
  bundle.as_map().set("members", members);
  if (members.truthy()) {
    bundle.as_map().set("Visited", 0);
    bundle.as_map().set("Node Description", fmt::format("{}_node{}", bundle_id, nodename));
  }
  bundle_pd.set(bundle_id, bundle);
}

}  // namespace

value parse_bundle_info_PD(std::string_view text) {
  value bundle_pd = make_map();
  for (const std::string_view block : split(text, "Bundle-Ether")) {
    add_block(block, bundle_pd.as_map());
  }
  return bundle_pd;
}

int dump_parse_bundle_info_PD() {
  run_state& run = st();
  try {
    value output = execute("lagmgr_agent_show -m -a all", "BME_PD");
    run.bdlInfoPD.set(output);
    // The store takes each text at once, so that the one before it is freed: it may be large.
    output = with_usual_name(output, "0/RP0/0", "0/RP0/CPU0");
    run.bdlInfoPD.set(output);
    output = with_usual_name(output, "0/RP1/0", "0/RP1/CPU0");
    run.bdlInfoPD.set(output);
    const value bundle_pd = parse_bundle_info_PD(output.as_text());
    run.bdlInfoPD.set(bundle_pd);
    if (!bundle_pd.truthy()) {
      ++run.exception;
      logger("INFO: Bundlemgr PD dont have any bundle data", "exception");
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return count_and_log(fmt::format("{}: dump_parse_bundle_info_PD failed", error.what()));
  }
}

}  // namespace tessel
