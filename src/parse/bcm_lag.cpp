#include "parse/bcm_lag.h"

#include <fmt/format.h>

#include <string>
#include <vector>

#include "base/dump.h"
#include "base/failure.h"
#include "base/findings.h"
#include "base/logs.h"
#include "base/numbers.h"
#include "base/text.h"
#include "parse/lag_rows.h"
#include "run/state.h"

namespace tessel {

namespace {

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

// What the parsers of one text keep from LAG to LAG.
struct lag_reader {
  npu_place place;
  map& bundle;
  std::vector<diag_lag_row> rows;  // so that no LAG needs new memory for them
};

const row_keys& keys_of_member() {
  static const row_keys& keys = *new row_keys{"gport", "is_active", "Node Description"};
  return keys;
}

value diag_lag_members(std::string_view lag, std::string_view lagid, lag_reader& reader) {
  value mem = make_map();
  find_diag_lag_rows(lag, reader.rows);
  if (reader.rows.empty()) return mem;
  mem.as_map().reserve(reader.rows.size() + entries_of_lag);
  for (const diag_lag_row& row : reader.rows) {
    const std::string memid = hex_of(row.member);
    mem.as_map().set(memid, make_row(keys_of_member(), row.gport, row.is_active,
                                     make_text({lagid, reader.place.suffix, "_memid", memid})));
  }
  return mem;
}

void add_diag_lag(std::string_view lag, lag_reader& reader) {
  const std::string_view id = diag_lag_id(lag);
  if (id.empty()) {
    pprint(fmt::format("Data Not Found: Not able to get lag id from diag_lag output, Location {}, "
                       "NPU {}",
                       reader.place.nodename, reader.place.npu),
           *st().dl_fd.require());
    return;
  }
  const std::string lagid = "LAG " + hex_of(id);
  value mem = diag_lag_members(lag, lagid, reader);
  if (mem.truthy()) {
    mem.as_map().set("Visited", 0);
    mem.as_map().set("Node Description", make_text({lagid, reader.place.suffix}));
  }
  reader.bundle.set(lagid, std::move(mem));
}

const row_keys& keys_of_tm_lag() {
  static const row_keys& keys = *new row_keys{"members", "Visited", "Node Description"};
  return keys;
}

// Of a LAG without a member, and of one that is not the last of its piece.
const row_keys& keys_of_unmarked_tm_lag() {
  static const row_keys& keys = *new row_keys{"members"};
  return keys;
}

// The LAG of `tm lag` whose rows are being read. They may continue in the next piece.
struct tm_lag {
  std::string id;  // empty before the first one
  value_list members;
  bool is_marked = false;
  bool is_stored = true;  // there is nothing to store yet
  // Nearly all LAGs are those of sub-bundles, which have no members of their own.
  value no_members = make_list();
};

void begin(tm_lag& lag, std::string_view id) {
  lag.id = hex_of(id);
  lag.members.clear();
  lag.is_marked = false;
  lag.is_stored = false;
}

void add_member(tm_lag& lag, std::string_view gport) {
  lag.members.emplace_back(gport);
  lag.is_stored = false;
}

void mark(tm_lag& lag) {
  if (lag.members.empty() || lag.is_marked) return;
  lag.is_marked = true;
  lag.is_stored = false;
}

// Takes the place of what an earlier piece has shown of the LAG.
void store(tm_lag& lag, lag_reader& reader) {
  if (lag.is_stored) return;
  const value members = lag.members.empty() ? lag.no_members : make_list(lag.members);
  reader.bundle.set(lag.id, lag.is_marked ? make_row(keys_of_tm_lag(), members, 0,
                                                     make_text({lag.id, reader.place.suffix}))
                                          : make_row(keys_of_unmarked_tm_lag(), members));
  lag.is_stored = true;
}

// Only the last LAG of a piece is marked; nearly all pieces have just one.
void add_tm_lag(std::string_view piece, tm_lag& lag, lag_reader& reader) {
  tm_lag_rows rows(piece);
  while (rows.next()) {
    if (!rows.lag_id().empty()) {
      store(lag, reader);
      begin(lag, rows.lag_id());
    }
    if (rows.gport().empty()) continue;
    if (lag.id.empty()) break;
    add_member(lag, rows.gport());
  }
  if (lag.id.empty()) throw failure(fmt::format("no key {}", quoted(lag.id)));
  mark(lag);
  store(lag, reader);
}

}  // namespace

value parse_diag_lag_BCM(const value& diag_lag, std::string_view nodename, std::string_view npu) {
  try {
    const auto pieces = split(diag_lag.as_text(), "LAG");
    value bundle = make_map(pieces.size());
    lag_reader reader{place_of(nodename, npu), bundle.as_map(), {}};
    for (std::size_t at = 1; at < pieces.size(); ++at) add_diag_lag(pieces[at], reader);
    if (!bundle.truthy()) take_chip_as_unusable(nodename);
    return bundle;
  } catch (const std::exception& error) {
    return count_and_log(fmt::format("{}: parse diag_lag output failed Location {}, NPU {}",
                                     error.what(), nodename, npu));
  }
}

value parse_tm_lag(const value& tm_lag_text, std::string_view nodename, std::string_view npu) {
  try {
    value bundle = make_map();
    lag_reader reader{place_of(nodename, npu), bundle.as_map(), {}};
    tm_lag_pieces pieces(tm_lag_text.as_text());
    tm_lag lag;
    while (pieces.next()) add_tm_lag(pieces.piece(), lag, reader);
    if (!bundle.truthy()) take_chip_as_unusable(nodename);
    return bundle;
  } catch (const std::exception& error) {
    return count_and_log(fmt::format("{}: parse tm_lag output failed Location {}, NPU {}",
                                     error.what(), nodename, npu));
  }
}

}  // namespace tessel
