#include <fmt/format.h>

#include <algorithm>

#include "desk/judge/judging.h"
#include "desk/model/coverage.h"

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

// What went missing on a node can raise findings about everything that it holds, in its layer and
// in those below. A failure of the whole router explains every failure.
bool explains(const coverage& hole, const finding& one) {
  const bool is_open = is_doubt(one);
  // A part of a layer explains what is said of that layer, not what happened below it.
  if (hole.node.empty() && hole.state == coverage_state::partly)
    return is_open && one.of == hole.of;
  if (hole.node.empty()) return is_open && (one.of == layer::none || one.of >= hole.of);
  if (one.node != hole.node) return false;
  if (!hole.npu.empty() && !one.npu.empty() && one.npu != hole.npu) return false;
  const bool is_missing = one.what == field::presence || is_open;
  return is_missing && (one.of == layer::none || one.of >= hole.of || is_open);
}

// Holes of which the same is to be said are one cause: the chips of a card, or all cards.
struct hole_group {
  const coverage* first;
  std::vector<std::string> nodes;
  std::vector<std::string> npus;
};

bool is_alike(const coverage& a, const coverage& b) {
  if (a.of != b.of || a.state != b.state || a.node.empty() != b.node.empty()) return false;
  if (a.node == b.node) return a.reason == b.reason;
  // A note or complaint names its own node; what is left of it is the same.
  return without(a.reason, a.node) == without(b.reason, b.node) && a.npu.empty() == b.npu.empty();
}

std::vector<hole_group> groups_of_holes(const run& of) {
  std::vector<hole_group> groups;
  for (const coverage& one : of.covered) {
    if (!is_hole(one) || one.state == coverage_state::unknown) continue;
    // What was not read at all was not read for any node.
    const coverage* whole = coverage_of(of, one.of, {}, {});
    if (!one.node.empty() && whole != nullptr && is_hole(*whole)) continue;
    const auto same = std::find_if(groups.begin(), groups.end(),
                                   [&](const hole_group& g) { return is_alike(*g.first, one); });
    hole_group& group =
        same == groups.end() ? groups.emplace_back(hole_group{&one, {}, {}}) : *same;
    if (std::find(group.nodes.begin(), group.nodes.end(), one.node) == group.nodes.end())
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
  for (std::size_t i = 0; i < at.of().findings.size(); ++i) {
    if (at.is_explained[i] || !explains(hole, at.of().findings[i])) continue;
    at.is_explained[i] = true;
    into.findings.push_back(i);
  }
}

void add_hole(judging& at, const hole_group& group) {
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
  made.title = fmt::format("{}: {} {}: {}", words_for(group), layer_words(hole.of),
                           word_for(hole.state), shortened(hole.reason));
  made.why = hole.state == coverage_state::partly ? "a part of it could not be compared"
                                                  : "nothing of it could be compared";
  made.next = hole.command;
  for (const coverage& one : at.of().covered)
    if (is_hole(one) && is_alike(hole, one)) take_explained(at, one, made);
  at.into.causes.push_back(std::move(made));
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
  at.into.causes.push_back(std::move(made));
}

}  // namespace

void add_holes(judging& at) {
  if (has_no_bundle(at.of())) return add_no_bundle(at);
  for (const hole_group& group : groups_of_holes(at.of())) add_hole(at, group);
}

}  // namespace desk
