#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <set>

#include "desk/judge/differences.h"
#include "desk/judge/judging.h"
#include "desk/model/coverage.h"
#include "desk/model/numbers.h"

namespace desk {

namespace {

// The finding is about a place that is odd, in the same layer or in one below.
bool is_at_odd_place(const difference& of, const finding& one) {
  return std::any_of(of.witnesses.begin(), of.witnesses.end(), [&](const witness& w) {
    const bool is_on_node = w.node.empty() || w.node == one.node;
    return w.is_odd && is_on_node && layer_of(w.from) <= one.of;
  });
}

bool is_of_compared_layer(const difference& of, const finding& one) {
  return std::any_of(of.witnesses.begin(), of.witnesses.end(),
                     [&](const witness& w) { return layer_of(w.from) == one.of; });
}

// What the chip was asked for, or compared with: a message shows it, and a failure if it is the key
// of a table.
std::string_view asked_value(const finding& one) {
  if (!is_doubt(one)) return one.known;
  constexpr std::string_view no_key = "no key '";
  if (!one.text.starts_with(no_key)) return {};
  std::string_view key = std::string_view(one.text).substr(no_key.size());
  key = lag_id_in(key.substr(0, key.find('\'')));
  return key.starts_with("0x") ? key : std::string_view();
}

// The odd values of a difference, as they are compared.
using odd_forms = std::set<std::string>;

odd_forms odd_forms_of(const difference& of) {
  odd_forms forms;
  if (of.what == field::presence) return forms;
  for (const witness& one : of.witnesses)
    if (one.is_odd) forms.insert(compared_form(of.what, one.value));
  return forms;
}

// The audit asks the chips of all nodes for the value that the first node has. If that is the odd
// one, those of the other nodes lack it, and they are right. A bundle's LAG id is also what its
// members are looked up by.
bool asks_for_odd_value(const difference& of, const odd_forms& odd, const finding& one) {
  if (one.of != layer::bcm || odd.empty()) return false;
  const bool is_lag = of.what == field::lag_id && one.object.bundle == of.object.bundle &&
                      one.object.kind != object_kind::sub_bundle;
  const bool is_of_object =
      one.object == of.object && (of.what == field::lag_id || one.what == of.what);
  if (!is_lag && !is_of_object) return false;
  const std::string_view asked = asked_value(one);
  return !asked.empty() && odd.contains(compared_form(of.what, asked));
}

// "has no Bundle entry in location" names the node only.
bool is_without_entry(const difference& of, const finding& one) {
  if (one.code != "TC-101" || of.what != field::presence) return false;
  return std::any_of(of.witnesses.begin(), of.witnesses.end(), [&](const witness& w) {
    return w.is_odd && w.node == one.node && layer_of(w.from) == one.of;
  });
}

// A difference and a finding speak of the same thing: the object and the field, or the object and
// that it is missing. Which of the nodes a message names depends on their order only, so where the
// nodes of a layer are compared it may be any of them.
bool belongs(const difference& of, const odd_forms& odd, const finding& one) {
  if (one.kind == finding_kind::stale || one.kind == finding_kind::health) return false;
  if (is_without_entry(of, one) || asks_for_odd_value(of, odd, one)) return true;
  if (one.object != of.object) return false;
  if (one.what == field::none) return is_at_odd_place(of, one) && !leaves_lag_of_chip(of.what, one);
  if (one.what != of.what) return false;
  const bool is_compared = of.what != field::presence && is_of_compared_layer(of, one);
  return is_compared || is_at_odd_place(of, one);
}

// The findings that can belong to it, in their order.
std::vector<std::size_t> candidates_for(judging& at, const difference& of) {
  std::vector<std::size_t> found = at.findings.about(of.object);
  const auto add = [&](const std::vector<std::size_t>& more) {
    found.insert(found.end(), more.begin(), more.end());
  };
  if (of.what == field::lag_id && of.object.kind == object_kind::bundle)
    add(at.findings.in_chips(of.object.bundle));
  for (const witness& w : of.witnesses)
    if (is_bundle_without_entry(of, w))
      add(at.findings.take_without_entry(w.node, layer_of(w.from)));
  std::sort(found.begin(), found.end());
  found.erase(std::unique(found.begin(), found.end()), found.end());
  return found;
}

bool is_of_one_chip(const difference& of, const witness& odd) {
  return std::all_of(of.witnesses.begin(), of.witnesses.end(),
                     [&](const witness& w) { return !w.is_odd || w.npu == odd.npu; });
}

// The cause that says of each node on which it is missing that its agent shows no bundle at all.
std::optional<std::size_t> cause_of_empty_agents(const judging& at, const difference& of) {
  std::optional<std::size_t> found;
  if (of.what != field::presence) return found;
  for (const witness& w : of.witnesses) {
    if (!w.is_odd) continue;
    const auto known = at.empty_agents.find(w.node);
    if (w.from != source::agent || known == at.empty_agents.end()) return {};
    if (found && *found != known->second) return {};
    found = known->second;
  }
  return found;
}

// Of several bundles that the place lacks, or of one that no table shows.
bool has_message_of_any_bundle(const judging& at, const cause& of) {
  return std::any_of(of.findings.begin(), of.findings.end(), [&](std::size_t i) {
    const finding& one = at.of().findings[i];
    return one.code == "TC-101" && one.object.bundle.empty() &&
           !at.findings.is_one_each(one.node, one.of);
  });
}

std::string next_of(const run& of, const difference& made, const witness& odd) {
  if (odd.from != source::chip_lag) return command_for(of, odd.from, odd.node, odd.npu);
  std::vector<chip_name> chips;
  for (const witness& w : made.witnesses)
    if (w.is_odd && w.from == source::chip_lag) chips.push_back({w.node, w.npu});
  return command_for_chips(of, chips);
}

void take_difference(judging& at, difference of) {
  if (const auto empty = cause_of_empty_agents(at, of)) {
    cause& into = at.into.causes[*empty];
    into.why = "the agents' table was read to its end; what has members there is missing in it";
    at.causes.add_difference(*empty, of.object, of.what);
    into.differences.push_back(std::move(of));
    return;
  }
  const witness* odd = first_odd(of);
  // Of several odd nodes none is the place.
  const bool has_one_node =
      std::all_of(of.witnesses.begin(), of.witnesses.end(),
                  [&](const witness& w) { return !w.is_odd || w.node == odd->node; });
  const bool is_clear =
      has_one_node && (of.how_sure == sureness::majority || of.how_sure == sureness::named);
  const place_key key = {of.object.bundle, is_clear ? odd->node : "", layer_of(odd->from)};
  const std::size_t index = cause_at(at, key);
  const odd_forms odd_values = odd_forms_of(of);
  for (const std::size_t i : candidates_for(at, of)) {
    if (at.is_explained[i] || !belongs(of, odd_values, at.of().findings[i])) continue;
    at.is_explained[i] = true;
    give_finding(at, index, i);
  }
  cause& into = at.into.causes[index];
  if (into.title.empty()) {
    into.title = title_of(of);
    into.object = of.object;
    into.how_sure = of.how_sure;
    into.why = of.why;
    if (is_of_one_chip(of, *odd)) into.npu = odd->npu;
    into.next = next_of(at.of(), of, *odd);
    at.causes.add_cause(index, into);
  }
  // What is missing on several nodes is so on each: what could not be verified there follows from
  // it.
  if (key.node.empty() && of.what == field::presence)
    for (const witness& w : of.witnesses)
      if (w.is_odd && !w.node.empty()) at.causes.add_place(index, of.object.bundle, w.node);
  at.causes.add_difference(index, of.object, of.what);
  into.differences.push_back(std::move(of));
}

}  // namespace

void take_differences(judging& at) {
  for (const difference& one : at.differences)
    for (const witness& w : one.witnesses)
      if (is_bundle_without_entry(one, w))
        at.findings.expect_without_entry(w.node, layer_of(w.from));
  for (difference& one : at.differences) take_difference(at, std::move(one));
  for (cause& one : at.into.causes)
    if (!one.differences.empty() && has_message_of_any_bundle(at, one))
      one.why += "; TC-101 names no bundle, and may be of another";
}

}  // namespace desk
