#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <unordered_map>
#include <utility>

#include "desk/judge/judging.h"
#include "desk/model/coverage.h"
#include "desk/model/finding_source.h"

namespace desk {

namespace {

std::string layer_words(layer of) {
  switch (of) {
    case layer::config:
      return "the running configuration";
    case layer::pi:
      return "the bundle manager (PI)";
    case layer::pd:
      return "the agents (PD)";
    case layer::dpa:
      return "the forwarding layer (DPA)";
    case layer::bcm:
      return "the chip tables (BCM)";
    case layer::none:
      break;
  }
  return "the list of nodes";
}

std::string without(std::string text, std::string_view part) {
  for (std::size_t at = text.find(part); !part.empty() && at != std::string::npos;
       at = text.find(part, at))
    text.erase(at, part.size());
  return text;
}

// The audit asks for each sub-bundle, and keeps the handle of each that is listed. Of a handle that
// cannot be read it says TC-744.
bool lists_sub_bundles(const judging& at) {
  const auto has_handle = [](const object& one) {
    return one.kind == object_kind::sub_bundle &&
           std::any_of(one.cells.begin(), one.cells.end(),
                       [](const cell& c) { return c.from == source::interface_db; });
  };
  const auto& all = at.of().objects;
  return std::any_of(all.begin(), all.end(), has_handle) ||
         !at.findings.with_code("TC-744").empty();
}

// Where only some sub-bundles are listed, a complaint is no reason for the others.
bool lacks_interface_db(const judging& at, const coverage& hole) {
  return hole.interface_db == interface_db_state::lost ||
         (hole.interface_db == interface_db_state::complained && !lists_sub_bundles(at));
}

bool is_of_interface_db(const finding& one) {
  return one.what == field::presence && source_of(one) == source::interface_db;
}

// The message takes what nobody listed for missing, and nobody knows whether it is.
void leave_open(run& of, finding& one) {
  if (one.kind == finding_kind::failure) return;
  const auto counted = of.counts.find(one.kind);
  if (counted != of.counts.end() && counted->second != 0) {
    --counted->second;
    ++of.counts[finding_kind::failure];
  }
  one.kind = finding_kind::failure;
}

// What went missing on a node lacks entries in its own layer, and in any other what cannot be
// verified without it: where a layer misses an object, the audit does not compare the layers below,
// so what these lack has a reason of its own. A failure of the whole router explains every failure.
bool explains(const coverage& hole, const finding& one) {
  const bool is_open = is_doubt(one);
  // A part of a layer explains what is said of that layer, not what happened below it.
  if (hole.node.empty() && hole.state == coverage_state::partly)
    return is_open && one.of == hole.of;
  if (hole.node.empty()) return is_open && (one.of == layer::none || one.of >= hole.of);
  if (one.node != hole.node) return false;
  if (!hole.npu.empty() && !one.npu.empty() && one.npu != hole.npu) return false;
  const bool is_in_its_layer = one.of == layer::none || one.of == hole.of;
  return is_open || (one.what == field::presence && is_in_its_layer);
}

// Holes of which the same is to be said are one cause: the chips of a card, or all cards.
struct hole_group {
  const coverage* first;
  std::vector<std::string> nodes;
  std::vector<std::string> npus;
};

// What holes must share to be alike: on one node the reason, otherwise the reason without the names
// of the nodes. A note or complaint names its own node; what is left of it is the same.
std::string key_on_node(const coverage& of) {
  return fmt::format("{} {} {} {}", static_cast<int>(of.of), static_cast<int>(of.state), of.node,
                     of.reason);
}

std::string key_elsewhere(const coverage& of) {
  return fmt::format("{} {} {} {} {}", static_cast<int>(of.of), static_cast<int>(of.state),
                     of.node.empty(), of.npu.empty(), without(of.reason, of.node));
}

// Things that belong to holes, by what makes holes alike.
template <class Thing>
class by_likeness {
 public:
  void add(const coverage& of, Thing thing) {
    on_node_[key_on_node(of)].emplace_back(&of, thing);
    elsewhere_[key_elsewhere(of)].emplace_back(&of, thing);
  }
  // Those whose hole is alike, in their order.
  [[nodiscard]] std::vector<Thing> alike(const coverage& of) const {
    std::vector<Thing> found;
    if (const auto at = on_node_.find(key_on_node(of)); at != on_node_.end())
      for (const auto& [other, thing] : at->second)
        if (other->node == of.node) found.push_back(thing);
    if (const auto at = elsewhere_.find(key_elsewhere(of)); at != elsewhere_.end())
      for (const auto& [other, thing] : at->second)
        if (other->node != of.node) found.push_back(thing);
    std::sort(found.begin(), found.end());
    return found;
  }

 private:
  using list = std::vector<std::pair<const coverage*, Thing>>;
  std::unordered_map<std::string, list> on_node_;
  std::unordered_map<std::string, list> elsewhere_;
};

std::vector<hole_group> groups_of_holes(const run& of) {
  std::vector<hole_group> groups;
  by_likeness<std::size_t> known;
  std::set<layer> not_read;  // at all, so not for any node
  for (const coverage& one : of.covered)
    if (one.node.empty() && one.npu.empty() && is_hole(one)) not_read.insert(one.of);
  for (const coverage& one : of.covered) {
    if (!is_hole(one) || one.state == coverage_state::unknown) continue;
    if (!one.node.empty() && not_read.contains(one.of)) continue;
    const auto same = known.alike(one);
    if (same.empty()) {
      known.add(one, groups.size());
      groups.push_back({&one, {}, {}});
    }
    hole_group& group = same.empty() ? groups.back() : groups[same.front()];
    if (std::find(group.nodes.rbegin(), group.nodes.rend(), one.node) == group.nodes.rend())
      group.nodes.push_back(one.node);
    if (!one.npu.empty()) group.npus.push_back(one.npu);
  }
  return groups;
}

std::string words_for(const hole_group& of) {
  constexpr std::size_t most = 4;
  if (of.first->node.empty()) return "the router";
  if (of.nodes.size() > most) return fmt::format("{} nodes", of.nodes.size());
  std::string words = fmt::format("{}", fmt::join(of.nodes, ", "));
  if (of.nodes.size() == 1 && of.npus.size() == 1) words += " NPU " + of.npus.front();
  if (of.nodes.size() == 1 && of.npus.size() > 1)
    words += fmt::format(" NPU {}-{}", of.npus.front(), of.npus.back());
  return words;
}

void take_explained(judging& at, const coverage& hole, cause& into) {
  const bool has_no_interface_db = lacks_interface_db(at, hole);
  const auto take = [&](std::size_t i) {
    if (at.is_explained[i]) return;
    finding& one = at.into.of.findings[i];
    if (has_no_interface_db && is_of_interface_db(one))
      leave_open(at.into.of, one);
    else if (!explains(hole, one))
      return;
    at.is_explained[i] = true;
    into.findings.push_back(i);
  };
  if (!hole.node.empty()) {
    for (const std::size_t i : at.findings.on_node(hole.node)) take(i);
    return;
  }
  for (std::size_t i = 0; i < at.of().findings.size(); ++i) take(i);
}

// A node of which a chip was asked, and perhaps not all.
bool is_of_other_chips(const run& of, const coverage& hole) {
  return hole.of == layer::bcm && hole.npu.empty() && hole.state == coverage_state::never_asked &&
         std::any_of(of.covered.begin(), of.covered.end(), [&](const coverage& one) {
           return one.of == layer::bcm && one.node == hole.node && !one.npu.empty();
         });
}

void add_hole(judging& at, const hole_group& group, const by_likeness<const coverage*>& holes) {
  const coverage& hole = *group.first;
  cause made;
  const bool is_one = group.nodes.size() == 1;
  made.object.kind = hole.node.empty()        ? object_kind::router
                     : group.npus.size() == 1 ? object_kind::chip
                                              : object_kind::node;
  made.object.name = is_one ? hole.node : "";
  made.node = is_one ? hole.node : "";
  made.npu = is_one && group.npus.size() == 1 ? hole.npu : "";
  made.first = hole.of;
  made.how_sure = sureness::named;
  const bool is_of_others = is_of_other_chips(at.of(), hole);
  made.title = fmt::format("{}: {} {}: {}", words_for(group),
                           is_of_others ? "other chips (BCM)" : layer_words(hole.of),
                           word_for(hole.state), shortened(hole.reason));
  made.why = hole.state == coverage_state::partly ? "a part of it could not be compared"
             : is_of_others                       ? "what they hold could not be compared"
                                                  : "nothing of it could be compared";
  made.next = hole.command;
  std::vector<chip_name> chips;
  for (const coverage* one : holes.alike(hole)) chips.push_back({one->node, one->npu});
  if (hole.of == layer::bcm && !hole.npu.empty() && chips.size() > 1)
    made.next = command_for_chips(at.of(), chips);
  for (const coverage* one : holes.alike(hole)) take_explained(at, *one, made);
  if (hole.of == layer::pd && hole.state == coverage_state::empty && !hole.node.empty())
    for (const std::string& node : group.nodes)
      at.empty_agents.try_emplace(node, at.into.causes.size());
  add_cause(at, std::move(made));
}

// Nobody has configured a bundle, and no layer holds one: there is nothing to judge.
bool has_no_bundle(const run& of) {
  const auto is_empty = [&](layer one) {
    const coverage* whole = coverage_of(of, one, {}, {});
    return whole != nullptr && whole->state == coverage_state::empty;
  };
  return of.objects.empty() && is_empty(layer::config) && is_empty(layer::pi) &&
         is_empty(layer::pd);
}

void add_no_bundle(judging& at) {
  cause made;
  made.title = "the router: no bundle with members is configured, and no layer holds one";
  made.first = layer::config;
  made.how_sure = sureness::named;
  made.why = "configuration, PI and PD agree";
  made.next = command_for(at.of(), source::running_config, {}, {});
  for (std::size_t i = 0; i < at.of().findings.size(); ++i) {
    at.is_explained[i] = true;
    made.findings.push_back(i);
  }
  add_cause(at, std::move(made));
}

}  // namespace

void add_holes(judging& at) {
  if (has_no_bundle(at.of())) return add_no_bundle(at);
  by_likeness<const coverage*> holes;
  for (const coverage& one : at.of().covered)
    if (is_hole(one)) holes.add(one, &one);
  for (const hole_group& group : groups_of_holes(at.of())) add_hole(at, group, holes);
}

}  // namespace desk
