#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "desk/judge/judging.h"
#include "desk/model/command_lines.h"
#include "desk/model/coverage.h"
#include "desk/model/finding_source.h"
#include "desk/model/findings.h"
#include "desk/model/numbers.h"

namespace desk {

namespace {

// The table of the chip, or the tool, that shows a finding again where its field does not say it.
struct table_of_code {
  std::string_view code;
  std::string_view older;
  std::string_view jericho2;
  std::string_view second{};  // of older chips
};
constexpr std::string_view lif_mapping = "diag pp lif id=0x{} gl=1 type=in";
constexpr std::string_view lif_table = "dbal table dump table=IN_AC_UNTAGGED_DB";
constexpr std::string_view sem_table = "diag dbal dbd 3";
constexpr std::string_view other_sem_table = "diag dbal dbd 4";
constexpr std::array tables_of_codes = std::to_array<table_of_code>({
    {"TC-106", lif_mapping, lif_table},
    {"TC-203", sem_table, lif_table, other_sem_table},
    {"TC-204", lif_mapping, lif_table},
    {"TC-757", sem_table, lif_table, other_sem_table},
    {"TC-759", lif_mapping, lif_table},
    {"TC-760", lif_mapping, lif_table},
});

// "0x00014000" of "... find GLIF 0x00014000 to LLIF ...", or what the forwarding layer holds.
std::string lif_of(const run& of, const finding& one) {
  constexpr std::string_view word = "GLIF ";
  std::string_view text = one.text;
  if (const std::size_t at = text.find(word); at != std::string_view::npos) {
    text.remove_prefix(at + word.size());
    return std::string(text.substr(0, text.find(' ')));
  }
  const object* about = of.find(one.object.kind, one.object.bundle, one.object.name);
  if (about != nullptr)
    for (const cell& c : about->cells)
      if (c.what == field::lif) return std::string(of.texts.text(c.value));
  return {};
}

std::string command_for_table(const run& of, const finding& one) {
  const auto known =
      std::find_if(tables_of_codes.begin(), tables_of_codes.end(),
                   [&](const table_of_code& table) { return table.code == one.code; });
  const std::int16_t index = of.node_index(one.node);
  if (known == tables_of_codes.end() || index == no_place || one.of != layer::bcm) return {};
  const node& at = of.nodes[static_cast<std::size_t>(index)];
  const auto ask = [&](std::string_view table) { return command_on_chips(at, one.npu, table); };
  if (at.asic == jericho2) return ask(known->jericho2);
  if (!known->second.empty()) {
    const std::string first = ask(known->older);
    const std::string second = ask(known->second);
    return first == second ? first : first + "; " + second;
  }
  std::string table(known->older);
  if (const std::size_t blank = table.find("{}"); blank != std::string::npos) {
    const std::string lif = lif_of(of, one);
    if (lif.empty()) return {};
    constexpr std::size_t asked_digits = 4;  // the chip is asked by the end of the global LIF
    table.replace(blank, 2, lif.substr(lif.size() - std::min(lif.size(), asked_digits)));
  }
  return ask(table);
}

// Nothing is looked up by a MAC, an MTU or a weight; by the ids of a LAG and its members and by the
// NPU, no LIF, no router interface and no MAC.
bool can_be_unverified_after(field from, field what) {
  switch (from) {
    case field::mac:
    case field::mtu:
    case field::weight:
    case field::weight_limit:
      return false;
    case field::lag_id:
    case field::member_id:
    case field::npu:
      return what == field::none || what == field::presence || what == field::lag_id ||
             what == field::member_id || what == field::npu;
    default:
      return true;
  }
}

// A layer is programmed by the values of the one above. So a LAG under another id, or a global LIF
// or router interface of another number, is missing further down; an MTU is not.
bool can_follow(field from, const finding& one) {
  if (from == field::presence || from == one.what) return true;
  if (leaves_lag_of_chip(from, one)) return false;
  if (is_doubt(one)) return can_be_unverified_after(from, one.what);
  if (one.of != layer::bcm) return false;
  switch (from) {
    case field::lag_id:
    case field::member_id:
    case field::npu:
      return one.what == field::presence;
    case field::lif:
    case field::rif:
      return one.what == field::presence || one.what == field::lif || one.what == field::rif;
    default:
      return false;
  }
}

constexpr auto field_count = static_cast<unsigned>(field::none) + 1;

bool explains(const judging& at, std::size_t above, const finding& one) {
  const layer first = at.into.causes[above].first;
  if (one.of != layer::none && first > one.of) return false;
  // What is wrong with a member or sub-bundle does not harm the rest of its bundle.
  const std::uint32_t fields = at.causes.fields(above, one.object);
  for (unsigned i = 0; i < field_count; ++i)
    if ((fields >> i & 1U) != 0 && can_follow(static_cast<field>(i), one)) return true;
  return false;
}

// An earlier cause of the same bundle and node that explains this finding as well. A delayed delete
// comes with an inconsistency of the same object, on whichever node that is.
std::optional<std::size_t> cause_above(const judging& at, const finding& one) {
  if (one.object.bundle.empty() || one.kind == finding_kind::health) return {};
  const auto& on_node = at.causes.on(one.object.bundle, one.node);
  const auto above = std::find_if(on_node.begin(), on_node.end(),
                                  [&](std::size_t cause) { return explains(at, cause, one); });
  std::optional<std::size_t> found;
  if (above != on_node.end()) found = *above;
  if (one.kind != finding_kind::delay_delete) return found;
  const auto same = at.causes.first_about(one.object);
  return same && (!found || *same < *found) ? same : found;
}

// The chip's list of LAGs has a line of another form. That is legal, and only if something is
// missing there it may be the reason.
std::optional<std::size_t> cause_of_line(const judging& at, const finding& one) {
  return at.causes.first_in_chip(one.node, one.npu);
}

// What is open of the layers and nodes, looked up once for all notes.
using open_places = std::set<std::pair<std::string, layer>>;

open_places open_places_of(const run& of) {
  open_places open;
  for (const coverage& one : of.covered)
    if (is_hole(one)) open.emplace(one.node, one.of);
  return open;
}

bool is_normal_note(const open_places& open, const finding& one) {
  if (one.kind != finding_kind::note) return false;
  // Fewer threads, or files that stay: the audit says itself that it is complete all the same.
  if (one.code == "TC-903" || one.code == "TC-904") return true;
  if (one.code == "TC-608" || one.code == "TC-616") return true;
  if (one.node.empty() || one.of == layer::none) return false;
  // Where nothing can be, the note is no finding.
  return !open.contains({one.node, one.of});
}

// A message about too much weight names no place, and its numbers are those of none or of several.
bool has_unknown_place(const finding& one) {
  return one.what == field::weight && one.node.empty();
}

// Why the judge is as sure as it is of what a message says.
std::string_view why_of(const finding& one) {
  if (is_scale(one)) return "the audit counted what is configured";
  if (has_unknown_place(one)) return "the message shows the numbers only, and they name no place";
  if (is_of_unknown_weight(one))
    return "the message shows the numbers only, and more than one bundle or none has these";
  if (one.what == field::weight)
    return "the message shows the numbers only, which are this place's";
  if (is_of_notation(one)) return "both mean the same, and the audit may have compared no further";
  return is_doubt(one) ? "it could not be verified, so nobody knows" : "the audit names the place";
}

std::string command_for_sources(const run& of, const finding& one, const std::string& node) {
  const std::string next = command_for(of, source_of(one), node, one.npu);
  const std::string other = command_for(of, other_source_of(of, one), node, one.npu);
  return next.empty() || other.empty() || other == next ? next : next + "; " + other;
}

std::string next_for(const run& of, const finding& one) {
  if (one.kind == finding_kind::health) return "lagmgr_health";
  std::string next = command_for_platform(of, one);
  if (next.empty()) next = command_for_table(of, one);
  return next.empty() ? command_for_sources(of, one, one.node) : next;
}

// A message that this program does not know says nothing but its own text.
void take_unknown(judging& at, std::size_t index) {
  const finding& one = at.of().findings[index];
  cause made;
  made.title = fmt::format("a message that this version of tessel-report does not know: {}",
                           shortened(one.text));
  made.object = one.object;
  made.node = one.node;
  made.how_sure = sureness::unknown;
  made.why = fmt::format("it stands in {}:{}", one.log, one.line);
  made.findings.push_back(index);
  at.is_explained[index] = true;
  add_cause(at, std::move(made));
}

// Of two messages that say the same, each has a count of its own.
std::string without_number(std::string text) {
  constexpr std::string_view digits = "0123456789";
  const std::size_t begin = std::min(text.find_first_of(digits), text.size());
  const std::size_t end = std::min(text.find_first_not_of(digits, begin), text.size());
  return text.erase(begin, end - begin);
}

// Findings with the same key, node and layer are one cause.
std::string subject_key(const finding& one) {
  // Whatever the command was, the reason why it could not run is the same.
  if (one.code == "TC-701") return one.text.substr(0, one.text.find(": execution failed"));
  // The bundle manager names many bundles in one line.
  if (one.kind == finding_kind::health) return fmt::format("{} {}", one.log, one.line);
  if (!one.object.bundle.empty()) return one.object.bundle;
  return one.number ? without_number(one.text) : one.text;
}

// "BE1 or BE12: weight on 0/0/CPU0 (DPA): 2, the limit is 1".
std::string title_of_weight(judging& at, const finding& one) {
  constexpr std::size_t most = 4;
  const std::vector<std::string> bundles = bundles_of_weight(at, one);
  std::string title = title_of(one);
  if (bundles.empty()) return title;
  return (bundles.size() > most ? fmt::format("one of {} bundles", bundles.size())
                                : fmt::format("{}", fmt::join(bundles, " or "))) +
         title.substr(title.find(':'));
}

// With the node that has the value, where the message names another one.
finding placed(const run& of, finding one) {
  one.node = node_of_value(of, one);
  return one;
}

void take_finding(judging& at, const open_places& open, std::size_t index) {
  const finding one = placed(at.of(), at.of().findings[index]);
  const bool is_line = one.code == "TC-905";
  const bool is_normal = is_line || is_normal_note(open, one);
  std::optional<std::size_t> above;
  if (is_line) above = cause_of_line(at, one);
  if (!is_normal) above = cause_above(at, one);
  if (above) {
    give_finding(at, *above, index);
    return;
  }
  if (is_normal) {
    at.into.unexplained.push_back(index);
    return;
  }
  // What does not follow from the cause of this place is no part of it.
  const bool is_apart = is_doubt(one) && !one.object.bundle.empty() && !one.node.empty();
  const std::string subject = subject_key(one) + (is_apart ? " not verified" : "");
  const std::size_t made = cause_at(at, {subject, one.node, one.of});
  give_finding(at, made, index);
  cause& into = at.into.causes[made];
  if (!into.title.empty()) return;
  into.title = is_of_unknown_weight(one) ? title_of_weight(at, one) : title_of(one);
  into.object = one.object;
  into.npu = one.npu;
  const bool is_unknown =
      (is_doubt(one) && !is_scale(one)) || has_unknown_place(one) || is_of_unknown_weight(one);
  into.how_sure = is_unknown ? sureness::unknown : sureness::named;
  into.why = why_of(one);
  into.next = next_for(at.of(), one);
  at.causes.add_cause(made, into);
}

// Each once, in the order in which they came: a damaged log can name as many nodes as it has lines.
class node_names {
 public:
  void add(const std::string& name) {
    if (known_.insert(name).second) names_.push_back(name);
  }
  [[nodiscard]] const std::vector<std::string>& all() const { return names_; }

 private:
  std::set<std::string> known_;
  std::vector<std::string> names_;
};

// "0/0/CPU0, 0/1/CPU0", or how many if they are more than a person reads.
std::string words_for_nodes(const std::vector<std::string>& nodes) {
  constexpr std::size_t most = 4;
  return nodes.size() > most ? fmt::format("{} nodes", nodes.size())
                             : fmt::format("{}", fmt::join(nodes, ", "));
}

// Messages of one code and layer.
struct same_messages {
  std::set<std::string> bundles;
  node_names nodes;
  std::vector<std::size_t> findings;

  void add(const run& of, std::size_t index) {
    const finding& one = of.findings[index];
    bundles.insert(one.object.bundle);
    if (!one.node.empty()) nodes.add(std::string(node_of_value(of, one)));
    findings.push_back(index);
  }
  [[nodiscard]] bool are_of_most(std::size_t configured) const {
    constexpr std::size_t fewest_bundles = 4;
    return bundles.size() >= fewest_bundles && bundles.size() * 4 >= configured * 3;
  }
};

// A node's forwarding layer and chips answer for that node. So the nodes on which most bundles have
// the message share its reason, and another node has its own; if there is no such node, all of them
// share it.
same_messages common_of(const judging& at, const same_messages& all, std::size_t configured) {
  const layer of = at.of().findings[all.findings.front()].of;
  if (of != layer::dpa && of != layer::bcm) return all;
  std::map<std::string_view, same_messages> by_node;
  const auto node_of = [&](std::size_t i) { return node_of_value(at.of(), at.of().findings[i]); };
  for (const std::size_t i : all.findings) by_node[node_of(i)].add(at.of(), i);
  same_messages made;
  for (const std::size_t i : all.findings)
    if (by_node[node_of(i)].are_of_most(configured)) made.add(at.of(), i);
  return made.findings.empty() ? all : made;
}

// A command for each node, for all of its chips where the messages are about several.
std::string next_of_all(const run& of, const std::vector<std::size_t>& findings) {
  std::vector<finding> shown;  // the first one of each node
  std::map<std::string_view, std::size_t> by_node;
  for (const std::size_t i : findings) {
    const finding& one = of.findings[i];
    const auto [known, is_new] = by_node.try_emplace(node_of_value(of, one), shown.size());
    if (is_new)
      shown.push_back(placed(of, one));
    else if (shown[known->second].npu != one.npu)
      shown[known->second].npu.clear();
  }
  std::vector<std::string> commands;
  for (const finding& one : shown) {
    std::string next = next_for(of, one);
    if (next.empty() || std::find(commands.begin(), commands.end(), next) != commands.end())
      continue;
    commands.push_back(std::move(next));
  }
  return one_line_of(std::move(commands));
}

void add_common(judging& at, const same_messages& common, std::size_t configured) {
  const finding& first = at.of().findings[common.findings.front()];
  cause made;
  made.first = first.of;
  const std::vector<std::string>& nodes = common.nodes.all();
  if (nodes.size() == 1) {
    made.node = nodes.front();
    made.object = {object_kind::node, {}, made.node};
  }
  made.title = fmt::format(
      "{} of {} bundles{}: the same message of each: {}", common.bundles.size(), configured,
      nodes.empty() ? "" : fmt::format(" on {}", words_for_nodes(nodes)), shortened(first.text));
  made.how_sure = is_doubt(first) ? sureness::unknown : sureness::named;
  made.why = "look for one reason that they share, such as a tool that printed nothing";
  made.next = next_of_all(at.of(), common.findings);
  if (made.next.empty() && first.of == layer::dpa) made.next = "/opt/nos/bin/plat_nodes_show -v";
  made.findings = common.findings;
  for (const std::size_t i : common.findings) at.is_explained[i] = true;
  add_cause(at, std::move(made));
}

// One message about most of the bundles has one reason, and it is not in the bundles.
void take_common(judging& at, const std::string& code, std::size_t configured) {
  std::map<layer, same_messages> by_layer;
  for (const std::size_t i : at.findings.with_code(code)) {
    const finding& one = at.of().findings[i];
    if (at.is_explained[i]) continue;
    const object* bundle = at.of().find(object_kind::bundle, one.object.bundle, one.object.bundle);
    if (bundle != nullptr && bundle->is_configured) by_layer[one.of].add(at.of(), i);
  }
  for (const auto& [of, all] : by_layer)
    if (all.are_of_most(configured)) add_common(at, common_of(at, all, configured), configured);
}

// The audit takes no number of fewer than three digits for a global LIF, and mostly it is zero.
bool is_global_lif(std::string_view value) {
  constexpr std::uint64_t smallest = 0x100;
  return number_in(value).value_or(0) >= smallest;
}

// The nodes whose object has no global LIF: the audit asks only those with members.
node_names nodes_without_lif(const run& of, const object_ref& named) {
  node_names nodes;
  const object* one = of.find(named.kind, named.bundle, named.name);
  if (one == nullptr) return nodes;
  for (const cell& c : one->cells)
    if (c.what == field::lif && c.node != no_place && !is_global_lif(of.texts.text(c.value)))
      nodes.add(of.nodes[static_cast<std::size_t>(c.node)].name);
  return nodes;
}

// A bundle or sub-bundle to which no node gave a global LIF: none of them is the odd one.
void take_unset(judging& at, std::size_t first) {
  const finding& one = at.of().findings[first];
  node_names found = nodes_without_lif(at.of(), one.object);
  cause made;
  for (const std::size_t i : at.findings.about(one.object)) {
    const finding& other = at.of().findings[i];
    if (i < first || at.is_explained[i] || other.code != one.code) continue;
    at.is_explained[i] = true;
    made.findings.push_back(i);
    found.add(other.node);
  }
  const std::vector<std::string>& nodes = found.all();
  made.title =
      fmt::format("{}: no global LIF on {} (DPA)", one.object.name, words_for_nodes(nodes));
  made.object = one.object;
  made.node = nodes.size() == 1 ? nodes.front() : "";
  made.first = layer::dpa;
  made.how_sure = sureness::named;
  const bool is_zero = number_in(one.reported).value_or(0) == 0;
  made.why = is_zero ? "the value is zero: none was allocated"
                     : fmt::format("{} is too short for one", shortened(one.reported));
  made.next = command_for_sources(at.of(), one, nodes.front());
  add_cause(at, std::move(made));
}

// The audit compares these with what it was told first: by another node, or a LAG id by the agent
// of the same node. A message names the place that it asked later.
bool compares_places(const finding& one) {
  const bool is_lag = one.what == field::lag_id && (one.of == layer::pd || one.of == layer::dpa);
  const bool is_interface =
      one.of == layer::dpa && (one.what == field::lif || one.what == field::rif);
  const bool has_both = !one.reported.empty() && !one.known.empty() && !one.node.empty();
  return (is_lag || is_interface) && has_both && !is_of_notation(one);
}

bool has_values(const run& of, const finding& one) {
  const object* about = of.find(one.object.kind, one.object.bundle, one.object.name);
  return about != nullptr && std::any_of(about->cells.begin(), about->cells.end(),
                                         [&](const cell& c) { return c.what == one.what; });
}

// Without the values of all nodes, from a run whose snapshot is lost, the messages show two values
// and not which of them is the odd one.
void take_compared(judging& at, std::size_t first) {
  const finding& one = at.of().findings[first];
  cause made;
  using value_in_layer = std::pair<std::string, layer>;
  std::map<value_in_layer, node_names> nodes;
  for (const std::size_t i : at.findings.about(one.object)) {
    const finding& other = at.of().findings[i];
    const bool is_same = other.code == one.code && other.known == one.known;
    if (i < first || at.is_explained[i] || !is_same || !compares_places(other)) continue;
    at.is_explained[i] = true;
    made.findings.push_back(i);
    nodes[{other.reported, other.of}].add(other.node);
  }
  std::vector<std::string> values;
  values.reserve(nodes.size());
  for (const auto& [value, holders] : nodes)
    values.push_back(fmt::format("{} on {} ({})", value.first, fmt::join(holders.all(), ", "),
                                 word_for(value.second)));
  made.title = fmt::format("{}: {} is {}, and {} in a place that no message names",
                           title_subject(one.object), word_for(one.what), fmt::join(values, ", "),
                           one.known);
  made.object = one.object;
  made.first = one.what == field::lag_id ? layer::pd : one.of;
  made.how_sure = sureness::unknown;
  made.why = "the messages compare places; which one is odd only a snapshot shows";
  made.next = next_for(at.of(), one);
  if (made.next.empty()) made.next = "/opt/nos/bin/plat_nodes_show -v";
  add_cause(at, std::move(made));
}

}  // namespace

void set_unmarked_aside(judging& at) {
  for (const std::size_t i : at.findings.with_code(std::string(code_of_unmarked))) {
    at.is_explained[i] = true;
    at.into.unexplained.push_back(i);
  }
}

bool leaves_lag_of_chip(field from, const finding& one) {
  if (from != field::lif && from != field::rif) return false;
  constexpr std::array codes =
      std::to_array<std::string_view>({"TC-115", "TC-116", "TC-117", "TC-750", "TC-751", "TC-752"});
  return std::find(codes.begin(), codes.end(), one.code) != codes.end();
}

std::vector<std::string> bundles_of_weight(judging& at, const finding& one) {
  std::vector<std::string> made;
  std::set<std::string> known;
  for (const auto& place : at.names.weighing(one.reported, one.known)) {
    const bool is_there =
        one.node.empty() || (place.node != no_place &&
                             at.of().nodes[static_cast<std::size_t>(place.node)].name == one.node);
    const std::string& bundle = at.of().objects[place.one->bundle].name;
    if (is_there && known.insert(bundle).second) made.push_back(bundle);
  }
  return made;
}

bool is_of_unknown_weight(const finding& one) {
  return one.what == field::weight && one.object.bundle.empty();
}

bool is_scale(const finding& one) {
  return one.code >= "TC-619" && one.code <= "TC-622";
}

bool is_of_notation(const finding& one) {
  // Its chip has no row with a domain for the port; a domain is written as "0x0".
  if (one.code == "TC-202" && one.reported == "0") return false;
  return !one.reported.empty() && !one.known.empty() && one.what != field::none &&
         compared_form(one.what, one.reported) == compared_form(one.what, one.known);
}

bool is_of_notation(const run& of, const cause& one) {
  return one.differences.empty() && !one.findings.empty() &&
         std::all_of(one.findings.begin(), one.findings.end(),
                     [&](std::size_t i) { return is_of_notation(of.findings[i]); });
}

bool is_doubt(const finding& one) {
  return one.kind == finding_kind::failure || one.kind == finding_kind::note || is_of_notation(one);
}

bool is_difference(const run& of, const cause& one) {
  return !one.differences.empty() ||
         std::any_of(one.findings.begin(), one.findings.end(), [&](std::size_t i) {
           return !is_doubt(of.findings[i]) || is_scale(of.findings[i]);
         });
}

// What the audit found before what it could not verify, so that a cause is named by the former.
void take_findings(judging& at) {
  const auto& all = at.of().findings;
  const auto& objects = at.of().objects;
  const auto configured =
      static_cast<std::size_t>(std::count_if(objects.begin(), objects.end(), [](const object& o) {
        return o.kind == object_kind::bundle && o.is_configured;
      }));
  const auto is_of_objects = [&](std::size_t i) {
    return all[i].kind != finding_kind::health && !all[i].code.starts_with("TC-6");
  };
  for (const auto& [code, same] : at.findings.codes())
    if (std::any_of(same.begin(), same.end(), is_of_objects)) take_common(at, code, configured);
  for (const std::size_t i : at.findings.with_code("TC-109"))
    if (!at.is_explained[i]) take_unset(at, i);
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (at.is_explained[i]) continue;
    if (all[i].code == "TC-000" && !is_doubt(all[i])) take_unknown(at, i);
    if (compares_places(all[i]) && !has_values(at.of(), all[i])) take_compared(at, i);
  }
  const open_places open = open_places_of(at.of());
  for (const bool doubts : {false, true})
    for (std::size_t i = 0; i < all.size(); ++i)
      if (!at.is_explained[i] && is_doubt(all[i]) == doubts) take_finding(at, open, i);
}

}  // namespace desk
