#include "desk/judge/differences.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <set>

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

// ---- Values -------------------------------------------------------------------------------------

// Each table of a node that holds the value is a vote: the agent and the forwarding objects of one
// node are different layers.
struct vote {
  std::size_t count = 0;
  std::set<std::string> nodes;
};

void mark_minority(difference& of, const std::map<std::string, vote>& votes) {
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
  for (witness& one : of.witnesses) {
    if (one.is != witness::state::holds) continue;
    one.is_odd = has_rival || compared_form(of.what, one.value) != top->first;
  }
  if (!has_rival) {
    of.how_sure = sureness::majority;
    of.why = fmt::format("{} of {} hold {}", top->second.count, all,
                         std::find_if(of.witnesses.begin(), of.witnesses.end(), [](const auto& w) {
                           return w.is == witness::state::holds && !w.is_odd;
                         })->value);
    return;
  }
  of.how_sure = nodes.size() <= 2 ? sureness::two_nodes : sureness::tie;
  of.why = nodes.size() <= 2 ? "only two places hold it, and they differ"
                             : "as many places hold one value as another";
}

// A bundle that layer 2 forwards has an l2intf object on its nodes, one of layer 3 an l3intf
// object.
void find_type(const run& of, const object& one, std::vector<difference>& into) {
  difference made;
  made.object = name_of(of, one);
  made.what = field::type;
  std::map<std::string, vote> votes;
  std::set<std::pair<source, std::int16_t>> seen;
  for (const cell& c : one.cells) {
    const bool is_configured = c.from == source::running_config && c.what == field::type;
    const bool is_interface = c.from == source::l2intf || c.from == source::l3intf;
    if (!is_configured && (!is_interface || !seen.emplace(c.from, c.node).second)) continue;
    witness at = witness_of(of, c);
    if (is_interface) at.value = c.from == source::l2intf ? "layer 2" : "layer 3";
    vote& of_value = votes[at.value];
    ++of_value.count;
    of_value.nodes.insert(at.node);
    made.witnesses.push_back(std::move(at));
  }
  if (votes.size() < 2) return;
  mark_minority(made, votes);
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
  for (const coverage& entry : of.covered) {
    const auto from = sources.find(entry.of);
    if (from == sources.end() || entry.node.empty() || !is_hole(entry)) continue;
    if (entry.state == coverage_state::partly) continue;
    if (!only_node.empty() && entry.node != only_node) continue;
    const bool is_known =
        std::any_of(into.witnesses.begin(), into.witnesses.end(), [&](const witness& w) {
          return layer_of(w.from) == entry.of && w.node == entry.node &&
                 (entry.npu.empty() || w.npu == entry.npu);
        });
    if (is_known) continue;
    witness& missing = into.witnesses.emplace_back();
    missing.from = from->second;
    missing.node = entry.node;
    missing.npu = entry.npu;
    missing.is = witness::state::not_read;
    missing.value = entry.reason;
  }
}

// ---- Presence -----------------------------------------------------------------------------------

// Where a layer was read in part only, what it lacks may have been in the rest.
struct whole_layers {
  bool has_manager = true;
  bool has_agents = true;
  std::vector<bool> is_torn;  // the forwarding layer, by index in run::nodes
};

whole_layers whole_layers_of(const run& of) {
  const auto is_whole = [&](layer one) {
    const coverage* entry = coverage_of(of, one, {}, {});
    return entry == nullptr || !is_hole(*entry);
  };
  whole_layers made{is_whole(layer::pi), is_whole(layer::pd), {}};
  made.is_torn.assign(of.nodes.size(), false);
  for (const coverage& one : of.covered) {
    const std::int16_t index = of.node_index(one.node);
    if (one.of == layer::dpa && index != no_place && is_hole(one))
      made.is_torn[static_cast<std::size_t>(index)] = true;
  }
  return made;
}

// Whether this table of this node was read and has anything in it.
bool has_entries(const run& of, source from, std::int16_t node, std::int16_t npu) {
  const auto at = of.tables.find({from, node, npu});
  return at != of.tables.end() && at->second != 0;
}

bool has_field(const object& one, field what) {
  return std::any_of(one.cells.begin(), one.cells.end(),
                     [&](const cell& c) { return c.what == what; });
}

// Whether it would have been recognised in this table: the forwarding layer knows handles only.
bool is_known_to(const run& of, const object& one, source from) {
  if (from == source::agent) return has_entries(of, from, no_place, no_place);
  return from == source::lagport && has_field(one, field::handle);
}

// Where the table was read and holds other objects, but not this one.
void find_absent(const run& of, const object& one, source from, const whole_layers& whole,
                 std::vector<difference>& into) {
  if (from == source::agent && !whole.has_agents) return;
  std::set<std::int16_t> holders;
  for (const cell& c : one.cells)
    if (c.from == from) holders.insert(c.node);
  const bool is_expected = one.kind == object_kind::bundle && is_known_to(of, one, from);
  if (holders.empty() && !is_expected) return;
  difference made;
  made.object = name_of(of, one);
  made.what = field::presence;
  for (std::size_t i = 0; i < of.nodes.size(); ++i) {
    const auto index = static_cast<std::int16_t>(i);
    if (!of.nodes[i].takes_part || !has_entries(of, from, index, no_place)) continue;
    if (from != source::agent && whole.is_torn[i] && !holders.contains(index)) continue;
    witness at;
    at.from = from;
    at.node = of.nodes[i].name;
    at.is_odd = !holders.contains(index);
    at.is = at.is_odd ? witness::state::absent : witness::state::holds;
    at.value = at.is_odd ? "" : "present";
    made.witnesses.push_back(std::move(at));
  }
  const auto absent = std::count_if(made.witnesses.begin(), made.witnesses.end(),
                                    [](const witness& w) { return w.is_odd; });
  if (absent == 0) return;
  made.how_sure = sureness::named;
  const std::size_t holding = made.witnesses.size() - static_cast<std::size_t>(absent);
  made.why = holding == 0 ? "no node holds it, and it is configured"
                          : fmt::format("{} of {} nodes hold it", holding, made.witnesses.size());
  into.push_back(std::move(made));
}

// The bundle manager holds a bundle for the whole router.
void find_absent_in_manager(const run& of, const object& one, std::vector<difference>& into) {
  const bool holds = std::any_of(one.cells.begin(), one.cells.end(),
                                 [](const cell& c) { return c.from == source::bundle_manager; });
  const bool is_read = has_entries(of, source::bundle_manager, no_place, no_place);
  if (one.kind != object_kind::bundle || holds || !is_read) return;
  difference made;
  made.object = name_of(of, one);
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
  into.push_back(std::move(made));
}

// A member sits on one node: its agent there knows it, the forwarding layer and the chips of that
// node must hold it as well.
void find_absent_member(const run& of, const object& one, const whole_layers& whole,
                        std::vector<difference>& into) {
  const auto place = of.places.find(static_cast<std::size_t>(&one - of.objects.data()));
  if (place == of.places.end() || place->second.node == no_place) return;
  const std::int16_t node = place->second.node;
  difference made;
  made.object = name_of(of, one);
  made.what = field::presence;
  const object& bundle = of.objects[one.bundle];
  const auto check = [&](source from, bool is_read) {
    // Where the whole bundle is missing, that is the finding.
    const bool has_bundle = std::any_of(
        bundle.cells.begin(), bundle.cells.end(),
        [&](const cell& c) { return c.from == from && (c.node == node || c.node == no_place); });
    if (!is_read || !has_bundle) return;
    witness at;
    at.from = from;
    at.node = name_of_node(of, node);
    const bool holds = std::any_of(one.cells.begin(), one.cells.end(), [&](const cell& c) {
      return c.from == from && (c.node == node || c.node == no_place);
    });
    at.is_odd = !holds;
    at.is = holds ? witness::state::holds : witness::state::absent;
    at.value = holds ? "present" : "";
    if (from == source::bundle_manager) at.node.clear();
    made.witnesses.push_back(std::move(at));
  };
  check(source::bundle_manager,
        whole.has_manager && has_entries(of, source::bundle_manager, no_place, no_place));
  check(source::agent, whole.has_agents && has_entries(of, source::agent, node, no_place));
  check(source::lagport, has_field(one, field::handle) &&
                             has_entries(of, source::lagport, node, no_place) &&
                             !whole.is_torn[static_cast<std::size_t>(node)]);
  if (std::none_of(made.witnesses.begin(), made.witnesses.end(),
                   [](const witness& w) { return w.is_odd; }))
    return;
  made.how_sure = sureness::named;
  made.why = "the other layers hold it";
  into.push_back(std::move(made));
}

difference compare(const run& of, const object& one, field what) {
  difference made;
  made.object = name_of(of, one);
  made.what = what;
  std::map<std::string, vote> votes;
  for (const cell& c : one.cells) {
    if (c.what != what) continue;
    made.witnesses.push_back(witness_of(of, c));
    vote& of_value = votes[compared_form(what, made.witnesses.back().value)];
    ++of_value.count;
    of_value.nodes.insert(made.witnesses.back().node);
  }
  const bool is_compared =
      std::find(compared_fields.begin(), compared_fields.end(), what) != compared_fields.end();
  if (is_compared && votes.size() > 1) mark_minority(made, votes);
  return made;
}

}  // namespace

difference compare_field(const run& of, const object& one, field what) {
  difference made = compare(of, one, what);
  add_unread(of, one, made);
  return made;
}

std::vector<difference> find_differences(const run& of) {
  std::vector<difference> found;
  const whole_layers whole = whole_layers_of(of);
  for (const object& one : of.objects) {
    if (!one.is_configured) continue;
    for (const field what : compared_fields) {
      difference made = compare(of, one, what);
      const bool differs = std::any_of(made.witnesses.begin(), made.witnesses.end(),
                                       [](const witness& w) { return w.is_odd; });
      if (!differs) continue;
      add_unread(of, one, made);
      found.push_back(std::move(made));
    }
    if (one.kind == object_kind::member) {
      find_absent_member(of, one, whole, found);
      continue;
    }
    if (one.kind == object_kind::bundle) find_type(of, one, found);
    if (whole.has_manager) find_absent_in_manager(of, one, found);
    for (const source from :
         {source::agent, source::lagport, source::l2port, source::l2intf, source::l3intf})
      find_absent(of, one, from, whole, found);
  }
  return found;
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
