#include "parse/bundle_pi.h"

#include <fmt/format.h>

#include <string>

#include "base/command.h"
#include "base/findings.h"
#include "base/logs.h"
#include "base/numbers.h"
#include "base/text.h"
#include "run/state.h"

namespace tessel {

namespace {

struct bundle_head {
  std::string name;
  std::string ifh;
};

// Counts and logs that `what` is missing from a bundle's piece.
void report_missing(std::string_view what, const bundle_head& head) {
  ++st().exception;
  logger(fmt::format("ERROR: Not able to find {} in BM PI for {}({})", what, head.name, head.ifh),
         "exception");
}

value members_of(std::string_view bundle, std::string_view name) {
  // Finds what member_line_definition finds, but each match in only one way. If a line has no
  // handle after a member's name, the search continues at the end of the line, or at a "Member
  // interface" whose name is on the next line.
  static const pattern& member_line = constant(
      R"(Member interface\s++(?:(\w++(?<=\w\d)\/\d++\/\d++.*?)\s\((\w+))"
      R"(|\w++(?<=\w\d)\/\d++\/\d++(?>.*?(?=Member interface[^\S\n]*+\n)|.*+)(*SKIP)(*FAIL)))");
  value members = make_map();
  const matches found = findall(member_line, bundle);
  for (std::size_t at = 0; at < found.size(); ++at) {
    const std::string_view printed_name = found[at][0];
    value member = make_map();
    member.as_map().set("mifh", convert_to_hex(found[at][1]));
    member.as_map().set("Visited", 0);
    member.as_map().set("Node Description", fmt::format("{}_{}", name, printed_name));
    // The interface type takes two letters.
    members.as_map().set(printed_name.substr(2), member);
  }
  return members;
}

// Adds the bundle of one piece to `bundles`. Returns false if the piece ends the whole parser.
bool add_bundle(std::string_view bundle, map& bundles) {
  static const pattern& head_line = constant(R"(Bundle interface handle\s+(BE\d+)\s.(\w+))");
  static const pattern& mac_line = constant(R"(MAC address\s+(\w\w\w\w.\w\w\w\w.\w\w\w\w))");
  static const pattern& mtu_line = constant(R"(Operational MTU\s+(\w+))");
  const matches match = findall(head_line, bundle);
  if (match.empty()) return true;
  const bundle_head head{std::string(match[0][0]), convert_to_hex(match[0][1])};
  const matches mac = findall(mac_line, bundle);
  if (mac.empty()) {
    report_missing("MAC-Address", head);
    return false;
  }
  const matches mtu = findall(mtu_line, bundle);
  if (mtu.empty()) {
    report_missing("Operational MTU", head);
    return false;
  }
  const value members = members_of(bundle, head.name);
  if (!members.truthy()) {
    ++st().info;
    logger(fmt::format("INFO: No member is added to bundle {}({})", head.name, head.ifh),
           "exception");
    return true;
  }
  value bdl = make_map();
  bdl.as_map().set("mtu", mtu.text(0));
  bdl.as_map().set("mac", mac.text(0));
  bdl.as_map().set("members", members);
  bdl.as_map().set("Visited", 0);
  bdl.as_map().set("Node Description", head.name);
  bdl.as_map().set("ifh", head.ifh);
  bundles.set(head.name, bdl);
  return true;
}

}  // namespace

value parse_bundle_info_PI(std::string_view text) {
  value bdltmp = make_map();
  for (const std::string_view bundle : split(text, "Bundle-Ether")) {
    if (!add_bundle(bundle, bdltmp.as_map())) return ERROR;
  }
  return bdltmp;
}

int dump_parse_bundle_info_PI() {
  run_state& run = st();
  try {
    const value output = execute(
        "lagmgr_table_show -d -P 0x0 -N all -L 0x3 -O all | "
        "grep -E 'Bundle|Member|Operational MTU|Local'",
        "BM_PI");
    run.bdlInfoPI.set(output);
    const value bdltmp = parse_bundle_info_PI(output.as_text());
    if (!bdltmp.is_map()) return ERROR;
    run.bdlInfoPI.set(bdltmp);
    if (!bdltmp.truthy()) {
      ++run.exception;
      logger("INFO: BMPI dont have any bundle data", "exception");
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: parse_bundle_info_PI failed", error.what()));
  }
}

}  // namespace tessel
