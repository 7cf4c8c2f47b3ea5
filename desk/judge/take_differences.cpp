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

void take_difference(judging& at, difference of) {
  const witness* odd = first_odd(of);
  // Of several odd nodes none is the place.
  const bool has_one_node =
      std::all_of(of.witnesses.begin(), of.witnesses.end(),
                  [&](const witness& w) { return !w.is_odd || w.node == odd->node; });
  const bool is_clear =
      has_one_node && (of.how_sure == sureness::majority || of.how_sure == sureness::named);
  const place_key key = {of.object.bundle, is_clear ? odd->node : "", layer_of(odd->from)};
  cause& into = cause_at(at, key);
  for (std::size_t i = 0; i < at.of().findings.size(); ++i) {
    if (at.is_explained[i] || !belongs(of, at.of().findings[i])) continue;
    at.is_explained[i] = true;
    into.findings.push_back(i);
  }
  if (into.title.empty()) {
    into.title = title_of(of);
    into.object = of.object;
    into.how_sure = of.how_sure;
    into.why = of.why;
    into.npu = odd->npu;
    into.next = command_for(at.of(), odd->from, odd->node, odd->npu);
  }
  into.differences.push_back(std::move(of));
}

}  // namespace

cause& cause_at(judging& at, const place_key& key) {
  const auto [found, is_new] = at.known_causes.try_emplace(key, at.into.causes.size());
  if (is_new) {
    cause& made = at.into.causes.emplace_back();
    made.node = key.node;
    made.first = key.first;
    made.object = {object_kind::bundle, key.bundle, key.bundle};
  }
  return at.into.causes[found->second];
}

void take_differences(judging& at) {
  for (difference& one : at.differences) take_difference(at, std::move(one));
}

}  // namespace desk
