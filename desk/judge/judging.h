// What the steps of the judge share while they work on one run.
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

#include "desk/judge/judged_run.h"
#include "desk/model/mentions.h"

namespace desk {

// The place that differs first, and all that is explained by it.
struct place_key {
  std::string bundle;
  std::string node;
  layer first;
  bool operator<(const place_key& other) const {
    return std::tie(bundle, node, first) < std::tie(other.bundle, other.node, other.first);
  }
};

// The fields that differ on the objects of a cause, a bit for each field.
class fields_of_objects {
 public:
  void add(const object_ref& of, field what);
  // Those of this object, and of any bundle as such.
  [[nodiscard]] std::uint32_t of(const object_ref& one) const;

 private:
  std::uint32_t of_bundles_ = 0;
  std::unordered_map<object_key, std::uint32_t, object_key_hash, object_key_equal> of_parts_;
};

// What is asked of the causes again and again while findings are shared out. A run can have as many
// causes as findings, so none may be looked for among all.
class cause_index {
 public:
  // The cause has its place from now on.
  void add_cause(std::size_t cause, const desk::cause& of);
  // A cause without a node of its own that is on several.
  void add_place(std::size_t cause, const std::string& bundle, const std::string& node);
  void add_difference(std::size_t cause, const object_ref& object, field what);
  void add_finding(std::size_t cause, const object_ref& object, field what);

  // The causes of a bundle that are on this node, the first one first.
  [[nodiscard]] const std::vector<std::size_t>& on(std::string_view bundle,
                                                   std::string_view node) const;
  // The first cause with a finding about this object, or a difference of it.
  [[nodiscard]] std::optional<std::size_t> first_about(const object_ref& object) const;
  // The first cause in the tables of this chip.
  [[nodiscard]] std::optional<std::size_t> first_in_chip(std::string_view node,
                                                         std::string_view npu) const;
  // Of its differences if it has any, otherwise of its findings.
  [[nodiscard]] std::uint32_t fields(std::size_t cause, const object_ref& object) const;

 private:
  using name_pair = std::pair<std::string, std::string>;
  struct subject {
    bool has_difference = false;
    fields_of_objects of;
  };
  void note_subject(std::size_t cause, const object_ref& object);

  std::map<name_pair, std::vector<std::size_t>> on_node_;  // by bundle and node
  std::map<name_pair, std::size_t> in_chip_;               // by node and NPU
  std::unordered_map<object_key, std::size_t, object_key_hash, object_key_equal> about_;
  std::unordered_map<std::size_t, subject> subjects_;
};

// The findings by what is asked of them. Each list is in the order of run::findings.
class finding_index {
 public:
  explicit finding_index(const std::vector<finding>& all);
  using list = std::vector<std::size_t>;

  [[nodiscard]] const list& about(const object_ref& object) const;
  [[nodiscard]] const list& on_node(const std::string& node) const;
  // Of a bundle and all its parts, in the chips.
  [[nodiscard]] const list& in_chips(const std::string& bundle) const;
  [[nodiscard]] const list& with_code(const std::string& code) const;
  // "has no Bundle entry in location", which names the node and the layer only; no other kind of
  // object has such a message. Each is handed out
  // once: as many bundles as messages have one each, otherwise the first bundle has all of a place,
  // which have the same reason.
  void expect_without_entry(const std::string& node, layer in);
  [[nodiscard]] list take_without_entry(const std::string& node, layer in);
  // Each bundle that the place lacks has one.
  [[nodiscard]] bool is_one_each(const std::string& node, layer in) const;
  [[nodiscard]] const std::map<std::string, list>& codes() const { return codes_; }

 private:
  std::unordered_map<object_key, list, object_key_hash, object_key_equal> objects_;
  std::unordered_map<std::string, list> nodes_;
  std::unordered_map<std::string, list> in_chips_;  // by bundle
  std::map<std::string, list> codes_;
  struct shared_messages {
    list findings;
    std::size_t bundles = 0;  // that the place lacks
    std::size_t taken = 0;
  };
  std::map<std::pair<std::string, layer>, shared_messages> without_entry_;
};

struct judging {
  judged_run& into;
  std::vector<difference> differences{};
  std::vector<bool> is_explained{};                   // by finding
  std::map<place_key, std::size_t> known_causes{};    // indexes in judged_run::causes
  std::map<std::string, std::size_t> empty_agents{};  // by node, the cause that says so
  finding_index findings{into.of.findings};
  cause_index causes{};
  mention_finder names{into.of};

  [[nodiscard]] const run& of() const { return into.of; }
};

// The steps, in their order. Each adds causes and marks the findings that they explain.
void set_unmarked_aside(judging& at);  // entries that are not stale, which need no cause
void add_holes(judging& at);           // what was not read
void take_differences(judging& at);    // values and entries that differ
void take_findings(judging& at);       // what is left of the messages

// The cause for a place, which is made if it is new; its index in judged_run::causes.
[[nodiscard]] std::size_t cause_at(judging& at, const place_key& key);
// A cause that has its place and its findings already.
void add_cause(judging& at, cause made);
// From now on the cause explains it.
void give_finding(judging& at, std::size_t cause, std::size_t finding);

struct chip_name {
  std::string_view node;
  std::string_view npu;
};
// The first few, and in a comment of the shell how many are left: a large router has dozens of
// nodes.
[[nodiscard]] std::string one_line_of(std::vector<std::string> commands);

// What shows the LAGs of these chips: a command for each node, for all of its chips if several of
// them are named.
[[nodiscard]] std::string command_for_chips(const run& of, const std::vector<chip_name>& chips);

// Of the odd witnesses the one of the uppermost layer; null if none is odd.
[[nodiscard]] const witness* first_odd(const difference& of);

// Whether the audit would have said of this place that it has no entry, without naming the bundle.
[[nodiscard]] bool is_bundle_without_entry(const difference& of, const witness& at);

// A message about too much weight names no bundle: all those with its numbers, on its node if that
// is known, in the order in which they were read.
[[nodiscard]] std::vector<std::string> bundles_of_weight(judging& at, const finding& one);
[[nodiscard]] bool is_of_unknown_weight(const finding& one);

// The finding is about a chip's LAG or its members, which the audit looks up by their ids alone: no
// LIF and no RIF is its reason.
[[nodiscard]] bool leaves_lag_of_chip(field from, const finding& one);

// It could not be verified, as opposed to being wrong.
[[nodiscard]] bool is_doubt(const finding& one);
// The cause reports something that is wrong, not only what could not be judged.
[[nodiscard]] bool is_difference(const run& of, const cause& one);

// ---- Words --------------------------------------------------------------------------------------

// The first line of a text, no longer than this: a message may hold a name of 40,000 digits.
inline constexpr std::size_t longest_text = 160;
[[nodiscard]] std::string shortened(std::string_view text, std::size_t longest = longest_text);
[[nodiscard]] std::string title_of(const difference& of);
[[nodiscard]] std::string title_of(const finding& of);
// "BE1 member 0/0/0/1", with which a title begins.
[[nodiscard]] std::string title_subject(const object_ref& of);
[[nodiscard]] std::string words_for_place(const coverage& at);

}  // namespace desk
