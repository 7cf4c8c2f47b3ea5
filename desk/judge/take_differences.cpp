#include <fmt/format.h>

#include <algorithm>

#include "desk/judge/differences.h"
#include "desk/judge/judging.h"
#include "desk/model/coverage.h"

namespace desk {

namespace {

// A difference and a finding speak of the same thing: the object and the field, or the object and
// that it is missing.
bool belongs(const difference& of, const finding& one) {
  if (one.kind == finding_kind::stale || one.kind == finding_kind::health) return false;
  if (one.object == of.object) return one.what == of.what || one.what == field::none;
  // "has no Bundle entry in location" names the node only.
  if (one.code != "TC-101" || of.what != field::presence) return false;
  return std::any_of(of.witnesses.begin(), of.witnesses.end(), [&](const witness& w) {
    return w.is_odd && w.node == one.node && layer_of(w.from) == one.of;
  });
}

// The findings that can belong to it, in their order.
std::vector<std::size_t> candidates_for(judging& at, const difference& of) {
  std::vector<std::size_t> found = at.findings.about(of.object);
  if (of.what != field::presence) return found;
  for (const witness& w : of.witnesses) {
    if (!w.is_odd) continue;
    const auto more = at.findings.take_without_entry(w.node, layer_of(w.from));
    found.insert(found.end(), more.begin(), more.end());
  }
  std::sort(found.begin(), found.end());
  found.erase(std::unique(found.begin(), found.end()), found.end());
  return found;
}

void take_difference(judging& at, difference of) {
  const witness* odd = first_odd(of);
  // Of several odd nodes none is the place.
  const bool has_one_node =
      std::all_of(of.witnesses.begin(), of.witnesses.end(),
                  [&](const witness& w) { return !w.is_odd || w.node == odd->node; });
  const bool is_clear =
      has_one_node && (of.how_sure == sureness::majority || of.how_sure == sureness::named);
  const place_key key = {of.object.bundle, is_clear ? odd->node : "", layer_of(odd->from)};
  const std::size_t index = cause_at(at, key);
  for (const std::size_t i : candidates_for(at, of)) {
    if (at.is_explained[i] || !belongs(of, at.of().findings[i])) continue;
    at.is_explained[i] = true;
    give_finding(at, index, i);
  }
  cause& into = at.into.causes[index];
  if (into.title.empty()) {
    into.title = title_of(of);
    into.object = of.object;
    into.how_sure = of.how_sure;
    into.why = of.why;
    into.npu = odd->npu;
    into.next = command_for(at.of(), odd->from, odd->node, odd->npu);
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
  for (difference& one : at.differences) take_difference(at, std::move(one));
}

}  // namespace desk
