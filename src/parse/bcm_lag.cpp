#include "parse/bcm_lag.h"

#include <fmt/format.h>

#include <string>

#include "base/cursor.h"
#include "base/dump.h"
#include "base/failure.h"
#include "base/findings.h"
#include "base/logs.h"
#include "base/numbers.h"
#include "base/text.h"
#include "run/state.h"

namespace tessel {

namespace {

const value node_description = value::literal("Node Description");
constexpr std::size_t entries_of_member = 3;
constexpr std::size_t entries_of_lag = 2;  // beside the members

// The location of an NPU, for descriptions.
struct npu_place {
  std::string_view nodename;
  std::string_view npu;
  std::string suffix;
};

npu_place place_of(std::string_view nodename, std::string_view npu) {
  return {nodename, npu, fmt::format("_npu{}_node{}", npu, nodename)};
}

void take_chip_as_unusable(std::string_view nodename) {
  run_state& run = st();
  ++run.info;
  logger(
      fmt::format("INFO: BCM hardware dont have any bundle data/no bundle member from Location {}",
                  nodename),
      "exception");
  run.nodeinfo.get().at(nodename).as_map().update("asic_supported", 0);
}

value diag_lag_members(std::string_view lag, std::string_view lagid, const npu_place& place) {
  static const pattern& row = constant(R"((?<!\d)(\d++)\s++\|\s++(\w++)\s++\|\s++([YN]))");
  value mem = make_map();
  // Most LAGs have no member, and a row has this mark.
  if (lag.find('|') == std::string_view::npos) return mem;
  const matches rows = findall(row, lag);
  if (!rows.empty()) mem.as_map().reserve(rows.size() + entries_of_lag);
  for (std::size_t at = 0; at < rows.size(); ++at) {
    const auto cells = rows[at];
    const std::string memid = convert_to_hex(cells[0]);
    value member = make_map(entries_of_member);
    member.as_map().set("gport", cells[1]);
    member.as_map().set("is_active", cells[2]);
    member.as_map().put(node_description, joined({lagid, place.suffix, "_memid", memid}));
    mem.as_map().set(memid, std::move(member));
  }
  return mem;
}

void add_diag_lag(std::string_view lag, const npu_place& place, map& bundle) {
  const std::string_view id = diag_lag_id(lag);
  if (id.empty()) {
    pprint(fmt::format("Data Not Found: Not able to get lag id from diag_lag output, Location {}, "
                       "NPU {}",
                       place.nodename, place.npu),
           *st().dl_fd.require());
    return;
  }
  const std::string lagid = "LAG " + convert_to_hex(id);
  value mem = diag_lag_members(lag, lagid, place);
  if (mem.truthy()) {
    mem.as_map().set("Visited", 0);
    mem.as_map().put(node_description, joined({lagid, place.suffix}));
  }
  bundle.set(lagid, std::move(mem));
}

// Finds what tm_lag_row_definition finds: a number, the LAG id, a word, the global port, a word. It
// is written so that a blank cell matches in only one way.
constexpr std::string_view tm_lag_row =
    "\\s\\|(?:\\s++(\\d++)\\s++|\\s\\s++)\\|(?:\\s++\\w++\\s++|\\s\\s++)\\|"
    "(?:\\s++(\\w++)\\s++|\\s\\s++)\\|(?:\\s++(\\w++)\\s++|\\s\\s++)\\|\n";

// `lag_id` stays from piece to piece, because a LAG's rows may continue in the next piece.
void add_tm_lag(std::string_view lag, const npu_place& place, std::string& lag_id, map& bundle) {
  static const pattern& row = constant(tm_lag_row);
  const matches rows = findall(row, lag);
  for (std::size_t at = 0; at < rows.size(); ++at) {
    const std::string_view id = rows[at][0];
    const std::string_view mem_gport = rows[at][1];
    if (!id.empty()) {
      lag_id = convert_to_hex(id);
      value entry = make_map();
      entry.as_map().set("members", make_list());
      bundle.set(lag_id, entry);
    }
    if (!mem_gport.empty()) bundle.at(lag_id).at("members").as_list().emplace_back(mem_gport);
  }
  const value entry = bundle.at(lag_id);
  if (entry.at("members").truthy()) {
    entry.as_map().set("Visited", 0);
    entry.as_map().put(node_description, joined({lag_id, place.suffix}));
  }
}

}  // namespace

std::string_view diag_lag_id(std::string_view lag) {
  constexpr std::string_view head = "ID:";
  for (std::size_t at = lag.find(head); at != std::string_view::npos; at = lag.find(head, at + 1)) {
    cursor behind(lag, at + head.size());
    if (!behind.skip_blank()) continue;
    if (const std::string_view id = behind.digits(); !id.empty()) return id;
  }
  return {};
}

value parse_diag_lag_BCM(const value& diag_lag, std::string_view nodename, std::string_view npu) {
  try {
    const npu_place place = place_of(nodename, npu);
    const auto pieces = split(diag_lag.as_text(), "LAG");
    value bundle = make_map(pieces.size());
    for (std::size_t at = 1; at < pieces.size(); ++at) {
      add_diag_lag(pieces[at], place, bundle.as_map());
    }
    if (!bundle.truthy()) take_chip_as_unusable(nodename);
    return bundle;
  } catch (const std::exception& error) {
    return count_and_log(fmt::format("{}: parse diag_lag output failed Location {}, NPU {}",
                                     error.what(), nodename, npu));
  }
}

value parse_tm_lag(const value& tm_lag, std::string_view nodename, std::string_view npu) {
  try {
    const npu_place place = place_of(nodename, npu);
    static const pattern& lag_start = constant(R"(\|\s+\d+\s+\|\s+\d+\s+\|)");
    value bundle = make_map();
    std::string lag_id;
    const auto pieces = split(tm_lag.as_text(), lag_start);
    for (std::size_t at = 1; at < pieces.size(); ++at) {
      add_tm_lag(pieces[at], place, lag_id, bundle.as_map());
    }
    if (!bundle.truthy()) take_chip_as_unusable(nodename);
    return bundle;
  } catch (const std::exception& error) {
    return count_and_log(fmt::format("{}: parse tm_lag output failed Location {}, NPU {}",
                                     error.what(), nodename, npu));
  }
}

}  // namespace tessel
