#include "desk/judge/differences.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <set>
#include <tuple>
#include <unordered_map>

#include "desk/model/coverage.h"
#include "desk/model/numbers.h"

namespace desk {

namespace {

// Fields whose witnesses must all hold one value.
constexpr std::array compared_fields = {field::lag_id, field::lif, field::rif,      field::mac,
                                        field::mtu,    field::npu, field::member_id};

object_ref name_of(const run& of, const object& one) {
  return {one.kind, of.objects[one.bundle].name, one.name};
}

std::string name_of_node(const run& of, std::int16_t index) {
  return index == no_place ? std::string() : of.nodes[static_cast<std::size_t>(index)].name;
}

witness witness_of(const run& of, const cell& c) {
  witness one;
  one.from = c.from;
  one.node = name_of_node(of, c.node);
  if (c.npu != no_place) one.npu = std::to_string(c.npu);
  one.value = of.texts.text(c.value);
  return one;
}

// ---- What the audit compares --------------------------------------------------------------------

// What a node holds of a bundle counts where the bundle has members. Elsewhere the audit asks for
// its LAG only; a value there is shown beside the others, but it is no finding.
class compared_places {
 public:
  compared_places(const run& of, const object& bundle) : on_(of.nodes.size()) {
    for (const std::size_t part : bundle.parts) {
      const auto place = of.places.find(part);
      if (place == of.places.end() || place->second.node == no_place) continue;
      on_[static_cast<std::size_t>(place->second.node)] = true;
      is_known_ = true;
    }
    share_with_standby(of);
  }
  [[nodiscard]] bool has_members(std::size_t node) const { return on_[node]; }
  // Also if nothing says where the members are.
  [[nodiscard]] bool may_have_members(std::int16_t node) const {
    return node == no_place || !is_known_ || on_[static_cast<std::size_t>(node)];
  }

 private:
  // What a standby that is left out would hold is not compared.
  void share_with_standby(const run& of) {
    const route_processors all = route_processors_of(of);
    if (std::none_of(all.active.begin(), all.active.end(), [&](auto at) { return on_[at]; }))
      return;
    for (const std::size_t at : all.standby)
      if (of.nodes[at].takes_part) on_[at] = true;
  }

  std::vector<bool> on_;
  bool is_known_ = false;
};

bool is_of_layer_2(const object& one, const run& of) {
  return std::any_of(one.cells.begin(), one.cells.end(), [&](const cell& c) {
    return c.what == field::type && c.from == source::running_config &&
           of.texts.text(c.value) == "layer 2";
  });
}

bool is_compared(const run& of, const object& one, const compared_places& places, source from,
                 std::int16_t node) {
  if (one.kind == object_kind::member || node == no_place) return true;
  const bool is_sub = one.kind == object_kind::sub_bundle;
  if (is_sub && layer_of(from) == layer::dpa && !of.has_hqos) return false;
  if (is_sub && from == source::l2port) return false;
  if (from == source::agent && of.nodes[static_cast<std::size_t>(node)].role == "Standby")
    return false;
  if (from == source::l2intf && !is_sub && !is_of_layer_2(one, of)) return false;
  if (from == source::l3intf && is_of_layer_2(one, of)) return false;
  const bool is_asked_everywhere = from == source::lagport || layer_of(from) == layer::bcm;
  return is_asked_everywhere || places.may_have_members(node);
}

// ---- Values -------------------------------------------------------------------------------------

// The compared form of each text as a number, found once: most values come from every node.
class value_forms {
 public:
  text_id of(const run& of, field what, text_id value) {
    auto& known = known_[what == field::mac ? 0 : what == field::lif ? 1 : 2];
    if (known.empty()) known.assign(of.texts.size(), unknown);
    if (known[value] == unknown)
      known[value] = forms_.keep(compared_form(what, of.texts.text(value)));
    return known[value];
  }

 private:
  static constexpr text_id unknown = static_cast<text_id>(-1);
  text_pool forms_;
  std::array<std::vector<text_id>, 3> known_;
};

// Each table of a node that holds the value is a vote: the agent and the forwarding objects of one
// node are different layers.
struct vote {
  std::size_t count = 0;
  std::set<std::string> nodes;
};

// `counts` has each witness that can be the odd one.
void mark_minority(difference& of, const std::map<std::string, vote>& votes,
                   const std::vector<bool>& counts) {
  const auto more = [](const auto& a, const auto& b) { return a.second.count < b.second.count; };
  const auto top = std::max_element(votes.begin(), votes.end(), more);
  const auto has_rival = std::any_of(votes.begin(), votes.end(), [&](const auto& one) {
    return &one != &*top && one.second.count == top->second.count;
  });
  std::set<std::string> nodes;
  std::size_t all = 0;
  for (const auto& [form, one] : votes) {
    nodes.insert(one.nodes.begin(), one.nodes.end());
    all += one.count;
  }
  for (std::size_t i = 0; i < of.witnesses.size(); ++i) {
    witness& one = of.witnesses[i];
    if (one.is != witness::state::holds || !counts[i]) continue;
    one.is_odd = has_rival || compared_form(of.what, one.value) != top->first;
  }
  if (!has_rival) {
    of.how_sure = sureness::majority;
    of.why = fmt::format("{} of {} hold {}", top->second.count, all,
                         std::find_if(of.witnesses.begin(), of.witnesses.end(), [&](const auto& w) {
                           return w.is == witness::state::holds &&
                                  compared_form(of.what, w.value) == top->first;
                         })->value);
    return;
  }
  of.how_sure = nodes.size() <= 2 ? sureness::two_nodes : sureness::tie;
  of.why = nodes.size() <= 2 ? "only two places hold it, and they differ"
                             : "as many places hold one value as another";
}

// A bundle that layer 2 forwards has an l2intf object on its nodes, one of layer 3 an l3intf
// object.
void find_type(const run& of, const object& one, const compared_places& places,
               std::vector<difference>& into) {
  difference made;
  made.object = name_of(of, one);
  made.what = field::type;
  std::map<std::string, vote> votes;
  std::vector<bool> counts;
  std::set<std::string> compared;  // the values that count
  std::set<std::pair<source, std::int16_t>> seen;
  // Where the object that the configuration asks for is there, another one beside it does no harm.
  const source wanted = is_of_layer_2(one, of) ? source::l2intf : source::l3intf;
  std::set<std::int16_t> has_wanted;
  for (const cell& c : one.cells)
    if (c.from == wanted) has_wanted.insert(c.node);
  for (const cell& c : one.cells) {
    const bool is_configured = c.from == source::running_config && c.what == field::type;
    const bool is_interface = c.from == source::l2intf || c.from == source::l3intf;
    if (is_interface && c.from != wanted && has_wanted.contains(c.node)) continue;
    if (!is_configured && (!is_interface || !seen.emplace(c.from, c.node).second)) continue;
    witness at = witness_of(of, c);
    if (is_interface) at.value = c.from == source::l2intf ? "layer 2" : "layer 3";
    counts.push_back(places.may_have_members(c.node));
    if (counts.back()) compared.insert(at.value);
    vote& of_value = votes[at.value];
    ++of_value.count;
    of_value.nodes.insert(at.node);
    made.witnesses.push_back(std::move(at));
  }
  if (compared.size() < 2) return;
  mark_minority(made, votes, counts);
  into.push_back(std::move(made));
}

// The node of a member; other objects are held everywhere.
std::string_view only_node_of(const run& of, const object& one) {
  const auto place = of.places.find(static_cast<std::size_t>(&one - of.objects.data()));
  if (place == of.places.end() || place->second.node == no_place) return {};
  return of.nodes[static_cast<std::size_t>(place->second.node)].name;
}

// What was not read is no witness, but a person must see that it is missing.
void add_unread(const run& of, const object& one, difference& into) {
  std::map<layer, source> sources;
  for (const witness& w : into.witnesses) sources.try_emplace(layer_of(w.from), w.from);
  const std::string_view only_node = only_node_of(of, one);
  std::set<std::tuple<layer, std::string, std::string>> places;  // of the witnesses
  for (const coverage& entry : of.covered) {
    const auto from = sources.find(entry.of);
    if (from == sources.end() || entry.node.empty() || !is_hole(entry)) continue;
    if (entry.state == coverage_state::partly) continue;
    if (!only_node.empty() && entry.node != only_node) continue;
    if (places.empty()) {
      // Each with its NPU, and once without: a hole of the whole node asks for any.
      for (const witness& w : into.witnesses) {
        places.emplace(layer_of(w.from), w.node, w.npu);
        places.emplace(layer_of(w.from), w.node, "");
      }
    }
    if (places.contains({entry.of, entry.node, entry.npu})) continue;
    places.emplace(entry.of, entry.node, entry.npu);
    places.emplace(entry.of, entry.node, "");
    witness& missing = into.witnesses.emplace_back();
    missing.from = from->second;
    missing.node = entry.node;
    missing.npu = entry.npu;
    missing.is = witness::state::not_read;
    missing.value = entry.reason;
  }
}

// ---- Presence -----------------------------------------------------------------------------------

// Whether this table of this node was read and has anything in it.
bool has_entries(const run& of, source from, std::int16_t node, std::int16_t npu) {
  const auto at = of.tables.find({from, node, npu});
  return at != of.tables.end() && at->second != 0;
}

// The tables of a node in which an object can be missing.
constexpr std::array tables_of_nodes = {source::agent, source::lagport, source::l2port,
                                        source::l2intf, source::l3intf};

std::size_t number_of(source table) {
  return static_cast<std::size_t>(std::find(tables_of_nodes.begin(), tables_of_nodes.end(), table) -
                                  tables_of_nodes.begin());
}

using chip = std::pair<std::int16_t, std::int16_t>;  // node and NPU

// What was read as a whole, looked up once for all objects. Where a layer was read in part only,
// what it lacks may have been in the rest.
struct whole_layers {
  bool has_manager = true;
  bool has_agents = true;
  bool manager_has_entries = false;
  std::vector<bool> is_torn;  // the forwarding layer, by index in run::nodes
  std::set<chip> chips;
  std::vector<bool> has_no_row;  // of any bundle in the agents' table; the same index
  // By table and node: the node takes part, and its table has entries.
  std::array<std::vector<bool>, tables_of_nodes.size()> is_filled;
};

whole_layers whole_layers_of(const run& of) {
  const auto is_whole = [&](layer one) {
    const coverage* entry = coverage_of(of, one, {}, {});
    return entry == nullptr || !is_hole(*entry);
  };
  whole_layers made;
  made.has_manager = is_whole(layer::pi);
  made.has_agents = is_whole(layer::pd);
  made.manager_has_entries = has_entries(of, source::bundle_manager, no_place, no_place);
  made.is_torn.assign(of.nodes.size(), false);
  made.has_no_row.assign(of.nodes.size(), false);
  for (const coverage& one : of.covered) {
    const std::int16_t index = of.node_index(one.node);
    if (one.of == layer::dpa && index != no_place && is_hole(one))
      made.is_torn[static_cast<std::size_t>(index)] = true;
    if (one.of == layer::pd && index != no_place && one.state == coverage_state::empty)
      made.has_no_row[static_cast<std::size_t>(index)] = true;
    if (one.of == layer::bcm && index != no_place && one.state == coverage_state::read)
      made.chips.emplace(index, npu_in(one.npu));
  }
  for (std::size_t table = 0; table < tables_of_nodes.size(); ++table)
    for (std::size_t i = 0; i < of.nodes.size(); ++i)
      made.is_filled[table].push_back(
          of.nodes[i].takes_part &&
          has_entries(of, tables_of_nodes[table], static_cast<std::int16_t>(i), no_place));
  return made;
}

// Which of its tables hold an object, on which nodes.
class holders {
 public:
  explicit holders(std::size_t nodes) : nodes_(nodes), on_(tables_of_nodes.size() * nodes) {}
  holders(const run& of, const object& one) : holders(of.nodes.size()) { fill(one); }

  void fill(const object& one) {
    std::fill(on_.begin(), on_.end(), false);
    holds_.fill(false);
    is_everywhere_.fill(false);
    in_manager_ = false;
    for (const cell& c : one.cells) {
      in_manager_ = in_manager_ || c.from == source::bundle_manager;
      const std::size_t table = number_of(c.from);
      if (table == tables_of_nodes.size()) continue;
      holds_[table] = true;
      if (c.node == no_place)
        is_everywhere_[table] = true;
      else
        on_[table * nodes_ + static_cast<std::size_t>(c.node)] = true;
    }
  }
  [[nodiscard]] bool in_manager() const { return in_manager_; }
  [[nodiscard]] bool anywhere(std::size_t table) const { return holds_[table]; }
  [[nodiscard]] bool on(std::size_t table, std::size_t node) const {
    return on_[table * nodes_ + node];
  }
  // Also if no node is known.
  [[nodiscard]] bool may_be_on(std::size_t table, std::size_t node) const {
    return is_everywhere_[table] || on(table, node);
  }

 private:
  std::size_t nodes_;
  std::vector<bool> on_;
  std::array<bool, tables_of_nodes.size()> holds_{};
  std::array<bool, tables_of_nodes.size()> is_everywhere_{};
  bool in_manager_ = false;
};

bool has_field(const object& one, field what) {
  return std::any_of(one.cells.begin(), one.cells.end(),
                     [&](const cell& c) { return c.what == what; });
}

// Whether it would have been recognised in this table: the forwarding layer knows handles only.
bool is_known_to(const run& of, const object& one, source from) {
  if (from == source::agent) return has_entries(of, from, no_place, no_place);
  return from == source::lagport && has_field(one, field::handle);
}

// Which chips have which LAGs, by the compared form of the id.
struct lags_of_chips {
  std::vector<chip> chips;  // those that were read, by node and NPU
  std::unordered_map<text_id, std::vector<std::size_t>> chips_with;  // places in `chips`
  std::unordered_map<text_id, std::set<std::size_t>> objects_with;   // places in run::objects
};

// All objects are compared with the same layers.
struct comparison {
  const run& of;
  whole_layers whole = whole_layers_of(of);
  holders held{of.nodes.size()};                              // of the object at hand
  std::unordered_map<std::size_t, holders> of_bundle{};       // by index in run::objects
  std::unordered_map<std::size_t, compared_places> places{};  // the same
  value_forms forms{};
  std::optional<lags_of_chips> lags{};  // once a LAG id differs
  std::vector<difference> found{};
};

const compared_places& places_of(comparison& at, const object& one) {
  const object& bundle = at.of.objects[one.bundle];
  return at.places.try_emplace(one.bundle, at.of, bundle).first->second;
}

// Whether a node is asked for an object in this table. What a torn table lacks is not known.
bool is_asked(const comparison& at, const object& one, const compared_places& places,
              std::size_t table, std::size_t node) {
  // The agents' table is one for all nodes. A node of which it has no row lacks those that its
  // members must have, unless the node answers nothing at all.
  const bool lacks_rows = tables_of_nodes[table] == source::agent && at.whole.has_no_row[node] &&
                          at.of.nodes[node].takes_part && !at.whole.is_torn[node] &&
                          places.has_members(node);
  if (!at.whole.is_filled[table][node] && !lacks_rows) return false;
  if (!is_compared(at.of, one, places, tables_of_nodes[table], static_cast<std::int16_t>(node)))
    return false;
  const bool may_be_torn = tables_of_nodes[table] != source::agent && at.whole.is_torn[node];
  return !may_be_torn || at.held.on(table, node);
}

// Where the table was read and holds other objects, but not this one.
void find_absent(comparison& at, const object& one, std::size_t table) {
  const source from = tables_of_nodes[table];
  if (from == source::agent && !at.whole.has_agents) return;
  const bool is_expected = one.kind == object_kind::bundle && is_known_to(at.of, one, from);
  if (!at.held.anywhere(table) && !is_expected) return;
  const compared_places& places = places_of(at, one);
  std::size_t asked = 0;
  std::size_t holding = 0;
  for (std::size_t i = 0; i < at.of.nodes.size(); ++i) {
    if (!is_asked(at, one, places, table, i)) continue;
    ++asked;
    holding += at.held.on(table, i) ? 1 : 0;
  }
  if (holding == asked) return;
  difference made;
  made.object = name_of(at.of, one);
  made.what = field::presence;
  for (std::size_t i = 0; i < at.of.nodes.size(); ++i) {
    if (!is_asked(at, one, places, table, i)) continue;
    witness& place = made.witnesses.emplace_back();
    place.from = from;
    place.node = at.of.nodes[i].name;
    place.is_odd = !at.held.on(table, i);
    place.is = place.is_odd ? witness::state::absent : witness::state::holds;
    place.value = place.is_odd ? "" : "present";
  }
  made.how_sure = sureness::named;
  made.why = holding == 0 ? "no node holds it, and it is configured"
                          : fmt::format("{} of {} nodes hold it", holding, asked);
  at.found.push_back(std::move(made));
}

// The bundle manager holds a bundle for the whole router.
void find_absent_in_manager(comparison& at, const object& one) {
  if (!at.whole.has_manager || !at.whole.manager_has_entries) return;
  if (one.kind != object_kind::bundle || at.held.in_manager()) return;
  difference made;
  made.object = name_of(at.of, one);
  made.what = field::presence;
  made.how_sure = sureness::named;
  made.why = "it is configured with members";
  witness config;
  config.from = source::running_config;
  config.value = "present";
  witness manager;
  manager.from = source::bundle_manager;
  manager.is = witness::state::absent;
  manager.is_odd = true;
  made.witnesses = {config, manager};
  at.found.push_back(std::move(made));
}

// A member sits on one node: its agent there knows it, the forwarding layer and the chips of that
// node must hold it as well.
void find_absent_member(comparison& at, const object& one) {
  const run& of = at.of;
  const auto place = of.places.find(static_cast<std::size_t>(&one - of.objects.data()));
  if (place == of.places.end() || place->second.node == no_place) return;
  const auto node = static_cast<std::size_t>(place->second.node);
  const holders& bundle =
      at.of_bundle.try_emplace(one.bundle, of, of.objects[one.bundle]).first->second;
  difference made;
  const auto check = [&](source from, bool is_read, bool has_bundle, bool holds) {
    // Where the whole bundle is missing, that is the finding.
    if (!is_read || !has_bundle) return;
    witness& seen = made.witnesses.emplace_back();
    seen.from = from;
    if (from != source::bundle_manager) seen.node = of.nodes[node].name;
    seen.is_odd = !holds;
    seen.is = holds ? witness::state::holds : witness::state::absent;
    seen.value = holds ? "present" : "";
  };
  const auto check_table = [&](source from, bool is_read) {
    const std::size_t table = number_of(from);
    check(from, is_read && has_entries(of, from, place->second.node, no_place),
          bundle.may_be_on(table, node), at.held.may_be_on(table, node));
  };
  check(source::bundle_manager, at.whole.has_manager && at.whole.manager_has_entries,
        bundle.in_manager(), at.held.in_manager());
  check_table(source::agent, at.whole.has_agents);
  check_table(source::lagport, has_field(one, field::handle) && !at.whole.is_torn[node]);
  if (std::none_of(made.witnesses.begin(), made.witnesses.end(),
                   [](const witness& w) { return w.is_odd; }))
    return;
  made.object = name_of(of, one);
  made.what = field::presence;
  made.how_sure = sureness::named;
  made.why = "the other layers hold it";
  at.found.push_back(std::move(made));
}

difference compare(const run& of, const object& one, field what) {
  difference made;
  made.object = name_of(of, one);
  made.what = what;
  std::map<std::string, vote> votes;
  std::vector<bool> counts;
  std::set<std::string> compared;  // the values that count
  const compared_places places(of, of.objects[one.bundle]);
  for (const cell& c : one.cells) {
    if (c.what != what) continue;
    made.witnesses.push_back(witness_of(of, c));
    counts.push_back(is_compared(of, one, places, c.from, c.node));
    if (counts.back()) compared.insert(compared_form(what, made.witnesses.back().value));
    vote& of_value = votes[compared_form(what, made.witnesses.back().value)];
    ++of_value.count;
    of_value.nodes.insert(made.witnesses.back().node);
  }
  const bool is_asked_for =
      std::find(compared_fields.begin(), compared_fields.end(), what) != compared_fields.end();
  if (is_asked_for && compared.size() > 1) mark_minority(made, votes, counts);
  return made;
}

}  // namespace

difference compare_field(const run& of, const object& one, field what) {
  difference made = compare(of, one, what);
  add_unread(of, one, made);
  return made;
}

namespace {

// Whether the witnesses of a field hold more than one value, for each of `compared_fields`.
std::array<bool, compared_fields.size()> fields_that_differ(comparison& at, const object& one) {
  std::array<bool, compared_fields.size()> differs{};
  std::array<const cell*, compared_fields.size()> first{};
  const compared_places& places = places_of(at, one);
  for (const cell& c : one.cells) {
    const auto field_at = std::find(compared_fields.begin(), compared_fields.end(), c.what);
    if (field_at == compared_fields.end()) continue;
    const auto i = static_cast<std::size_t>(field_at - compared_fields.begin());
    if (differs[i] || (first[i] != nullptr && first[i]->value == c.value)) continue;
    if (!is_compared(at.of, one, places, c.from, c.node)) continue;
    if (first[i] == nullptr) first[i] = &c;
    if (first[i]->value == c.value) continue;
    differs[i] = at.forms.of(at.of, c.what, first[i]->value) != at.forms.of(at.of, c.what, c.value);
  }
  return differs;
}

// ---- LAGs in chips ------------------------------------------------------------------------------

void index_lags(comparison& at) {
  if (at.lags) return;
  lags_of_chips& made = at.lags.emplace();
  for (const auto& [place, ids] : at.of.chip_lags) {
    if (!at.whole.chips.contains(place)) continue;
    for (const text_id id : ids)
      made.chips_with[at.forms.of(at.of, field::lag_id, id)].push_back(made.chips.size());
    made.chips.push_back(place);
  }
  for (const auto& [id, objects] : at.of.lag_ids)
    made.objects_with[at.forms.of(at.of, field::lag_id, id)].insert(objects.begin(), objects.end());
}

// The ids under which a chip may have the LAG of an object, as compared forms.
struct lag_ids {
  std::map<std::int16_t, std::set<text_id>> of_node;  // that its forwarding layer or agent holds
  std::set<text_id> of_most;                          // several if there is a tie
};

lag_ids lag_ids_of(comparison& at, const object& one) {
  lag_ids made;
  std::map<text_id, std::size_t> votes;
  for (const cell& c : one.cells) {
    if (c.what != field::lag_id || c.node == no_place) continue;
    const text_id form = at.forms.of(at.of, c.what, c.value);
    made.of_node[c.node].insert(form);
    ++votes[form];
  }
  const auto more = [](const auto& a, const auto& b) { return a.second < b.second; };
  const auto top = std::max_element(votes.begin(), votes.end(), more);
  for (const auto& [form, count] : votes)
    if (count == top->second) made.of_most.insert(form);
  return made;
}

// What shows that a chip of a node has the LAG: the id that its own node holds, or that of most.
// A LAG of an id that another object has is that one's, unless most hold it of this one.
std::set<text_id> proofs_of(const comparison& at, const object& one, const lag_ids& ids,
                            const std::set<text_id>& own) {
  std::set<text_id> made = own;
  made.insert(ids.of_most.begin(), ids.of_most.end());
  const std::size_t self = static_cast<std::size_t>(&one - at.of.objects.data());
  std::erase_if(made, [&](text_id id) {
    const auto others = at.lags->objects_with.find(id);
    const bool is_anothers = others != at.lags->objects_with.end() &&
                             (others->second.size() > 1 || !others->second.contains(self));
    return is_anothers && (ids.of_most.size() > 1 || !ids.of_most.contains(id));
  });
  return made;
}

// Of sub-bundles the audit asks with hierarchical QoS only.
bool is_asked_for_lag(const comparison& at, const object& one, std::int16_t node) {
  const auto index = static_cast<std::size_t>(node);
  constexpr std::size_t lagport = 1;
  static_assert(tables_of_nodes[lagport] == source::lagport);
  if (!at.held.on(lagport, index)) return false;
  return one.kind == object_kind::bundle || at.of.has_hqos;
}

// The chips of the nodes that hold a LAG, by their place in the index, and whether each has it.
std::vector<std::pair<std::size_t, bool>> chips_asked_for(comparison& at, const object& one) {
  const lag_ids ids = lag_ids_of(at, one);
  const std::vector<chip>& chips = at.lags->chips;
  std::vector<std::pair<std::size_t, bool>> made;
  for (const auto& [node, own] : ids.of_node) {
    if (!is_asked_for_lag(at, one, node)) continue;
    const std::set<text_id> proofs = proofs_of(at, one, ids, own);
    if (proofs.empty()) continue;
    const auto first = std::lower_bound(chips.begin(), chips.end(), chip{node, no_place});
    for (auto i = first; i != chips.end() && i->first == node; ++i) {
      const auto place = static_cast<std::size_t>(i - chips.begin());
      const bool has_it = std::any_of(proofs.begin(), proofs.end(), [&](text_id id) {
        const auto with = at.lags->chips_with.find(id);
        return with != at.lags->chips_with.end() &&
               std::binary_search(with->second.begin(), with->second.end(), place);
      });
      made.emplace_back(place, has_it);
    }
  }
  return made;
}

witness witness_of_lag(const comparison& at, const chip& place, bool has_it) {
  witness seen;
  seen.from = source::chip_lag;
  seen.node = name_of_node(at.of, place.first);
  seen.npu = std::to_string(place.second);
  seen.is_odd = !has_it;
  seen.is = has_it ? witness::state::holds : witness::state::absent;
  seen.value = has_it ? "present" : "";
  return seen;
}

// Where the LAG id differs, the audit asks all chips for the one that it saw first. Whether a chip
// has the LAG under the id of its own node, or under that of most, only its table shows.
void find_absent_lag(comparison& at, const object& one) {
  constexpr std::size_t most_chips_listed = 300;  // no router has more
  index_lags(at);
  const auto chips = chips_asked_for(at, one);
  const auto holding = static_cast<std::size_t>(
      std::count_if(chips.begin(), chips.end(), [](const auto& each) { return each.second; }));
  const std::size_t absent = chips.size() - holding;
  if (absent == 0) return;
  difference made;
  std::size_t left = most_chips_listed - std::min(most_chips_listed, absent);
  for (const auto& [place, has_it] : chips) {
    if (made.witnesses.size() == most_chips_listed) break;
    if (has_it && left == 0) continue;
    if (has_it) --left;
    made.witnesses.push_back(witness_of_lag(at, at.lags->chips[place], has_it));
  }
  made.object = name_of(at.of, one);
  made.what = field::presence;
  made.how_sure = sureness::named;
  made.why = fmt::format("{} of {} chips have its LAG, by the id of their node or of most", holding,
                         chips.size());
  at.found.push_back(std::move(made));
}

void find_values(comparison& at, const object& one) {
  const auto differs = fields_that_differ(at, one);
  for (std::size_t i = 0; i < compared_fields.size(); ++i) {
    if (!differs[i]) continue;
    at.found.push_back(compare_field(at.of, one, compared_fields[i]));
    if (compared_fields[i] == field::lag_id) find_absent_lag(at, one);
  }
}

}  // namespace

std::vector<difference> find_differences(const run& of) {
  comparison at{of};
  for (const object& one : of.objects) {
    if (!one.is_configured) continue;
    at.held.fill(one);
    find_values(at, one);
    if (one.kind == object_kind::member) {
      find_absent_member(at, one);
      continue;
    }
    if (one.kind == object_kind::bundle) find_type(of, one, places_of(at, one), at.found);
    find_absent_in_manager(at, one);
    for (std::size_t table = 0; table < tables_of_nodes.size(); ++table)
      find_absent(at, one, table);
  }
  return std::move(at.found);
}

std::string places_of(const std::vector<witness>& witnesses, bool odd) {
  std::vector<std::string> names;
  for (const witness& one : witnesses) {
    if (one.is == witness::state::not_read || one.is_odd != odd) continue;
    std::string name = one.node.empty() ? std::string("the router") : one.node;
    if (!one.npu.empty()) name += " NPU " + one.npu;
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
  }
  constexpr std::size_t most = 3;
  if (names.size() > most) return fmt::format("{} places", names.size());
  return fmt::format("{}", fmt::join(names, ", "));
}

}  // namespace desk
