// One run of the audit as the desk sees it: what it found, what each layer said about each object,
// and what it asked at all. The readers fill it, the judge and the views only read it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "desk/model/names.h"
#include "desk/model/text_pool.h"
#include "desk/read/journal.h"

namespace desk {

// ---- Objects ------------------------------------------------------------------------------------

enum class object_kind : std::uint8_t { router, node, chip, bundle, member, sub_bundle, entry };

// An object as a finding names it. `bundle` is empty if no bundle is concerned or none is known.
struct object_ref {
  object_kind kind = object_kind::router;
  std::string bundle;  // "BE12"
  std::string name;    // "BE12", "0/0/0/1", "BE12.100", "0/0/CPU0", an entry's description
  bool operator==(const object_ref&) const = default;
};

inline constexpr std::int16_t no_place = -1;

// What one source said about one field of an object. A router of the largest size has a million.
struct cell {
  field what = field::none;
  source from = source::none;
  std::int16_t node = no_place;  // index in run::nodes; no_place: the router as a whole
  std::int16_t npu = no_place;
  text_id value = 0;
};

// What an object is looked up by. A member is one of its bundle.
struct object_key {
  object_kind kind;
  std::string bundle;
  std::string name;
};
struct object_key_view {
  object_key_view(object_kind of_kind, std::string_view of_bundle, std::string_view of_name)
      : kind(of_kind), bundle(of_bundle), name(of_name) {}
  object_key_view(const object_key& of) : kind(of.kind), bundle(of.bundle), name(of.name) {}
  bool operator==(const object_key_view&) const = default;
  object_kind kind;
  std::string_view bundle;
  std::string_view name;
};
struct object_key_hash {
  using is_transparent = void;
  std::size_t operator()(const object_key_view& of) const;
};
struct object_key_equal {
  using is_transparent = void;
  bool operator()(const object_key_view& a, const object_key_view& b) const { return a == b; }
};

struct object {
  object_kind kind = object_kind::bundle;
  std::string name;
  std::size_t bundle = 0;  // index of its bundle in run::objects; of a bundle: its own
  bool is_configured = false;
  std::vector<cell> cells;
  std::vector<std::size_t> parts;  // of a bundle: its members and sub-bundles
};

// ---- Nodes and coverage -------------------------------------------------------------------------

// The newer family of chips, as node::asic names it.
inline constexpr std::string_view jericho2 = "BCM8869";

struct node {
  std::string name;  // "0/0/CPU0"
  std::string id;    // decimal, as the chips' shell takes it
  std::string address;
  std::string asic;
  std::string role;  // "Active", "Standby", "Not set"
  std::string band;
  std::string type;  // "LC", "RP"
  bool takes_part = false;
  bool has_supported_asic = false;
  bool is_empty_slot = false;  // listed, but nothing is there
  std::vector<std::string> npus;
};

enum class coverage_state : std::uint8_t {
  read,
  partly,
  empty,
  failed,
  not_understood,
  never_asked,
  unknown
};

// Where sub-bundles have their handles.
enum class interface_db_state : std::uint8_t {
  read,        // nothing says otherwise
  complained,  // its tool, which may have listed everything all the same
  lost         // its tool was refused, failed, was cut short or printed nothing
};

// What came of asking one layer on one node, or one chip.
struct coverage {
  layer of = layer::none;
  std::string node;  // empty: the router as a whole
  std::string npu;   // empty: the node as a whole
  coverage_state state = coverage_state::unknown;
  std::string reason;        // in words; empty only if the state is read
  std::string command;       // the read-only command that shows it; may be empty
  std::size_t commands = 0;  // by the journal: how many, how long together, how much they printed
  double seconds = 0;
  std::uint64_t bytes = 0;
  bool has_trouble = false;  // a command of it ended badly, by the journal
  bool is_normal = false;    // nothing can be there: a route processor without ports
  interface_db_state interface_db = interface_db_state::read;  // of PI
};

// Where a member sits, as its port object says.
struct place {
  std::int16_t node = no_place;
  std::int16_t npu = no_place;
  std::string core;
  std::string port;              // in the packet processor
  std::optional<text_id> mtu{};  // of the port; not compared: the audit does that
};

// What the audit asks the chips of a bundle or sub-bundle, as the run knew it in the end. Kept only
// for a run whose chips' tables are read, too.
struct chip_question {
  bool is_untagged = false;
  bool is_l2 = false;
  std::optional<text_id> lag{};
  std::optional<text_id> lif{};  // the global one
  std::optional<text_id> rif{};
  std::vector<std::string> tags{};                                     // of a sub-bundle
  std::map<std::pair<std::int16_t, std::int16_t>, text_id> domains{};  // by node and NPU
};

// ---- Findings -----------------------------------------------------------------------------------

enum class finding_kind : std::uint8_t {
  inconsistency,
  programming,
  delay_delete,
  stale,
  health,
  failure,
  note
};

struct finding {
  std::string code;  // "TC-101"; "TC-000" for a line that the catalogue does not know
  finding_kind kind = finding_kind::inconsistency;
  object_ref object;
  std::string node;  // empty: none is named
  std::string npu;
  layer of = layer::none;  // the layer that the message names
  field what = field::none;
  std::string reported;  // by the layer that is named
  std::string known;     // from the layers before
  std::string text;      // the whole message, without the time
  std::string time;      // "2026-11-22 11:01:03,219"; empty in logs without time stamps
  std::string log;       // the file's name: "tessel_inconsistencies.log"
  std::size_t line = 0;  // in that file, from 1
  std::optional<std::uint64_t> number;  // the finding's own count in the run
};

// Code, object, node, NPU and layer, in a form that stays the same from run to run and from
// version to version: "TC-103|member|BE1|0/0/0/1|0/0/CPU0|0|DPA". Values, numbers and times are
// not in it, so a finding whose values changed is the same finding.
[[nodiscard]] std::string fingerprint(const finding& of);

// ---- The run ------------------------------------------------------------------------------------

// What run::stores says of a dump that lacks its end, and of one that cannot be read up to there:
// the audit writes one in its plain form if something keeps it from writing JSON.
inline constexpr std::string_view store_cut_off = "cut off";
inline constexpr std::string_view store_unread = "not read";

enum class run_end : std::uint8_t {
  complete,  // it came to its result table
  stopped,   // it ended before: too little could be read
  cut_off,   // its logs end in the middle
  unknown
};

// Stale entries are looked for in a run that has found nothing before.
enum class stale_search : std::uint8_t { done, skipped, unknown };

struct run {
  std::string started;  // as in the logs, empty if unknown
  std::string router_type;
  std::string origin;  // the folder or the capture that was read
  std::string router;  // its name, empty if nobody said it
  run_end end = run_end::unknown;
  std::vector<std::string> marks;  // what is partial, lost or not understood, a sentence each
  std::vector<node> nodes;
  std::vector<object> objects;
  std::vector<coverage> covered;
  std::vector<finding> findings;
  std::map<finding_kind, std::size_t> counts;  // of findings that were counted, also of lost ones
  text_pool texts;
  std::map<std::size_t, place> places;                            // of members, by object
  std::unordered_map<text_id, std::vector<std::size_t>> lag_ids;  // known id to (sub-)bundles
  // By LAG id, node and NPU the sub-bundle of which a chip's LAG is: those with members, all of
  // which are its bundle's. Only with hierarchical QoS.
  std::map<std::tuple<text_id, std::int16_t, std::int16_t>, std::size_t> sub_bundle_lags;
  // By node and NPU the ids of all LAGs that the chip has, also of those that no bundle has.
  std::map<std::pair<std::int16_t, std::int16_t>, std::vector<text_id>> chip_lags;
  // Of a capture: by object what the chips' own tables hold of it, which the judge does not
  // compare; by node and NPU the first table that could not be read.
  bool keeps_questions = false;
  std::unordered_map<std::size_t, chip_question> chip_questions;
  std::unordered_map<std::size_t, std::vector<cell>> chip_cells;
  std::map<std::pair<std::int16_t, std::int16_t>, std::string> chip_troubles;
  // How many entries a table holds; a table that is missing has not come to the snapshot.
  std::map<std::tuple<source, std::int16_t, std::int16_t>, std::size_t> tables;
  // Dump to "read", "empty", "not understood", `store_cut_off` or `store_unread`.
  std::map<std::string, std::string> stores;
  // Layers of whose tables every entry lacks what each must have, with the words for it.
  std::map<layer, std::string> not_understood;
  std::vector<std::string> debug_notes;  // of the audit itself, from the debug log
  std::vector<std::string> complaints;   // of the tools, from the debug log
  std::vector<std::string> lost_logs;    // of messages, which could not be read or were not written
  std::vector<std::string> cut_logs;     // of messages, whose oldest ones were rotated away
  std::vector<std::string> unwritten;    // logs that are there, without a start of this run
  bool is_last = true;  // of the runs in its logs: only the last one has a snapshot
  bool has_snapshot = false;
  bool has_parsed_configuration = false;  // its dump stands before the checks
  bool has_journal = false;
  std::optional<journal> log_of_commands;
  bool has_chip_tables = false;
  bool has_hqos = false;  // only then the audit compares sub-bundles in the forwarding layer
  stale_search stale = stale_search::unknown;

  // The object, or nothing. A member is looked up with its bundle.
  [[nodiscard]] const object* find(object_kind kind, std::string_view bundle,
                                   std::string_view name) const;
  // The index of the object, which is made if it is missing; its bundle as well.
  std::size_t object_at(object_kind kind, std::string_view bundle, std::string_view name);
  [[nodiscard]] std::int16_t node_index(std::string_view name) const;  // no_place if it is unknown
  // What it wrote into the debug log, the last one, it wrote behind the starts of all others.
  [[nodiscard]] bool has_begun_all_logs() const { return has_snapshot || has_parsed_configuration; }

  std::unordered_map<object_key, std::size_t, object_key_hash, object_key_equal> index;
};

// By their places in run::nodes. A standby that is live has the members of the active one; one that
// is not is never asked.
struct route_processors {
  std::vector<std::size_t> active;
  std::vector<std::size_t> standby;
};

[[nodiscard]] route_processors route_processors_of(const run& of);

}  // namespace desk
