#include "desk/judge/judge.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <set>
#include <tuple>

#include "desk/judge/differences.h"
#include "desk/model/catalogue.h"
#include "desk/model/coverage.h"
#include "desk/model/numbers.h"

namespace desk {

namespace {

// The place that differs first, and all that is explained by it.
struct place_key {
  std::string bundle;
  std::string node;
  layer first;
  auto operator<=>(const place_key&) const = default;
};

struct judging {
  judged_run& into;
  std::vector<difference> differences;
  std::vector<bool> is_explained{};  // by finding

  const run& of() const { return into.of; }
};

const witness* first_odd(const difference& of) {
  const witness* first = nullptr;
  for (const witness& one : of.witnesses) {
    if (!one.is_odd) continue;
    if (first == nullptr || layer_of(one.from) < layer_of(first->from)) first = &one;
  }
  return first;
}

std::string layer_and_source(source from) {
  return fmt::format("{}, {}", word_for(layer_of(from)), tool_of(from));
}

// ---- What was not read --------------------------------------------------------------------------

std::string place_words(const coverage& at) {
  if (at.node.empty()) return "the router";
  return at.npu.empty() ? at.node : fmt::format("{} NPU {}", at.node, at.npu);
}

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
  return "";
}

// The node on which a member sits: its port object says so, or the agent that knows it.
std::string node_of_member(const run& of, const object_ref& named) {
  const object* member = of.find(object_kind::member, named.bundle, named.name);
  if (member == nullptr) return {};
  for (const cell& c : member->cells)
    if (c.from == source::agent && c.node != no_place)
      return of.nodes[static_cast<std::size_t>(c.node)].name;
  return {};
}

// What went missing on a node can raise findings about everything that it holds, in its layer and
// in those below. A failure of the whole router explains every failure.
bool explains(const run& of, const coverage& hole, const finding& one) {
  const bool is_doubt = one.kind == finding_kind::failure || one.kind == finding_kind::note;
  if (hole.node.empty()) return is_doubt && (one.of == layer::none || one.of >= hole.of);
  const std::string node = one.node.empty() ? node_of_member(of, one.object) : one.node;
  if (node != hole.node) return false;
  if (!hole.npu.empty() && !one.npu.empty() && one.npu != hole.npu) return false;
  const bool is_missing = one.what == field::presence || is_doubt;
  return is_missing && (one.of == layer::none || one.of >= hole.of || is_doubt);
}

void add_hole(judging& at, const coverage& hole) {
  cause made;
  made.object.kind = hole.node.empty()  ? object_kind::router
                     : hole.npu.empty() ? object_kind::node
                                        : object_kind::chip;
  made.object.name = hole.node;
  made.node = hole.node;
  made.npu = hole.npu;
  made.first = hole.of;
  made.how_sure = sureness::named;
  made.title = fmt::format("{}: {} {}: {}", place_words(hole), layer_words(hole.of),
                           word_for(hole.state), hole.reason);
  made.why = "nothing of it could be compared";
  if (!hole.command.empty()) made.next = hole.command;
  for (std::size_t i = 0; i < at.of().findings.size(); ++i) {
    if (at.is_explained[i] || !explains(at.of(), hole, at.of().findings[i])) continue;
    at.is_explained[i] = true;
    made.findings.push_back(i);
  }
  at.into.causes.push_back(std::move(made));
}

// ---- What differs -------------------------------------------------------------------------------

std::string subject_of(const object_ref& of) {
  if (of.kind == object_kind::member) return fmt::format("{} member {}", of.bundle, of.name);
  if (of.name.empty()) return of.bundle.empty() ? "the router" : of.bundle;
  return of.name;
}

std::string title_of(const difference& of) {
  const witness* odd = first_odd(of);
  if (of.what == field::presence)
    return fmt::format("{}: missing on {} ({})", subject_of(of.object),
                       places_of(of.witnesses, true), layer_and_source(odd->from));
  if (of.how_sure != sureness::majority) {
    std::vector<std::string> values;
    for (const witness& one : of.witnesses)
      if (one.is_odd)
        values.push_back(fmt::format("{} on {} ({})", one.value,
                                     one.node.empty() ? "the router" : one.node,
                                     word_for(layer_of(one.from))));
    return fmt::format("{}: {} is {}", subject_of(of.object), word_for(of.what),
                       fmt::join(values, ", "));
  }
  const auto right = std::find_if(of.witnesses.begin(), of.witnesses.end(), [](const witness& w) {
    return !w.is_odd && w.is == witness::state::holds;
  });
  return fmt::format("{}: {} is {} on {} ({}), {} on {}", subject_of(of.object), word_for(of.what),
                     odd->value, places_of(of.witnesses, true), word_for(layer_of(odd->from)),
                     right->value, places_of(of.witnesses, false));
}

cause& cause_at(judging& at, const place_key& key, std::map<place_key, std::size_t>& known) {
  const auto [found, is_new] = known.try_emplace(key, at.into.causes.size());
  if (is_new) {
    cause& made = at.into.causes.emplace_back();
    made.node = key.node;
    made.first = key.first;
    made.object = {object_kind::bundle, key.bundle, key.bundle};
  }
  return at.into.causes[found->second];
}

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

void take_difference(judging& at, difference of, std::map<place_key, std::size_t>& known) {
  const witness* odd = first_odd(of);
  const bool is_clear = of.how_sure == sureness::majority || of.how_sure == sureness::named;
  const place_key key = {of.object.bundle, is_clear ? odd->node : "", layer_of(odd->from)};
  cause& into = cause_at(at, key, known);
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

// ---- Findings without a difference of values ----------------------------------------------------

source source_of(const finding& one) {
  switch (one.of) {
    case layer::config:
      return source::running_config;
    case layer::pi:
      return one.code == "TC-103" ? source::interface_db : source::bundle_manager;
    case layer::pd:
      return source::agent;
    case layer::dpa:
      return one.what == field::mtu                             ? source::l1port
             : one.what == field::rif                           ? source::l3intf
             : one.what == field::lif || one.what == field::mac ? source::l2port
                                                                : source::lagport;
    case layer::bcm:
      return one.what == field::mtu ? source::chip_mtu : source::chip_lag;
    case layer::none:
      break;
  }
  return source::none;
}

std::string first_line(std::string_view text) {
  return std::string(text.substr(0, text.find('\n')));
}

std::string title_of(const finding& one) {
  const std::string place =
      one.npu.empty() ? one.node : fmt::format("{} NPU {}", one.node, one.npu);
  const std::string on = place.empty() ? "" : fmt::format(" on {}", place);
  const std::string in = one.of == layer::none ? "" : fmt::format(" ({})", word_for(one.of));
  if (one.kind == finding_kind::health)
    return fmt::format("{}: the bundle manager itself reports it: {}", one.object.bundle,
                       first_line(one.text));
  if (one.kind == finding_kind::stale)
    return fmt::format("{}: stale entry{}{}: {}",
                       one.object.bundle.empty() ? "no bundle" : one.object.bundle, on, in,
                       one.object.name);
  if (one.kind == finding_kind::failure)
    return fmt::format("{}: not verified{}{}: {}", subject_of(one.object), on, in,
                       first_line(one.text));
  if (one.kind == finding_kind::note)
    return fmt::format("{}: not checked{}{}: {}", subject_of(one.object), on, in,
                       first_line(one.text));
  if (!one.reported.empty() && !one.known.empty())
    return fmt::format("{}: {}{}{}: {} here, {} known before", subject_of(one.object),
                       one.what == field::none ? "value differs" : word_for(one.what), on, in,
                       one.reported, one.known);
  if (one.what == field::presence)
    return fmt::format("{}: missing{}{}", subject_of(one.object), on, in);
  return fmt::format("{}: {} differs{}{}", subject_of(one.object), word_for(one.what), on, in);
}

// An earlier cause of the same bundle that explains this finding as well: the chip holds no LAG of
// an id that is shifted on its node.
cause* cause_above(judging& at, const finding& one) {
  if (one.object.bundle.empty() || one.kind == finding_kind::health) return nullptr;
  for (cause& above : at.into.causes) {
    if (above.object.bundle != one.object.bundle || above.node.empty()) continue;
    if (above.node == one.node && (one.of == layer::none || above.first <= one.of)) return &above;
  }
  return nullptr;
}

bool is_normal_note(const run& of, const finding& one) {
  if (one.kind != finding_kind::note) return false;
  if (one.code == "TC-608" || one.code == "TC-616") return true;
  if (one.node.empty() || one.of == layer::none) return false;
  // Where nothing can be, the note is no finding.
  return std::none_of(of.covered.begin(), of.covered.end(), [&](const coverage& c) {
    return c.node == one.node && c.of == one.of && is_hole(c);
  });
}

void take_finding(judging& at, std::size_t index, std::map<place_key, std::size_t>& known) {
  const finding& one = at.of().findings[index];
  if (is_normal_note(at.of(), one)) {
    at.into.unexplained.push_back(index);
    return;
  }
  if (cause* above = cause_above(at, one)) {
    above->findings.push_back(index);
    return;
  }
  const std::string subject = one.object.bundle.empty() ? one.text : one.object.bundle;
  cause& into = cause_at(at, {subject, one.node, one.of}, known);
  into.findings.push_back(index);
  if (!into.title.empty()) return;
  into.title = title_of(one);
  into.object = one.object;
  into.npu = one.npu;
  into.how_sure = one.kind == finding_kind::failure || one.kind == finding_kind::note
                      ? sureness::unknown
                      : sureness::named;
  into.why = into.how_sure == sureness::named ? "the audit names the place"
                                              : "it could not be verified, so nobody knows";
  into.next = command_for(at.of(), source_of(one), one.node, one.npu);
}

// ---- Verdicts -----------------------------------------------------------------------------------

std::uint64_t number_of_bundle(std::string_view name) {
  constexpr std::size_t prefix = 2;  // "BE"
  std::uint64_t number = 0;
  if (name.size() > prefix)
    std::from_chars(name.data() + prefix, name.data() + name.size(), number);
  return number;
}

bool is_difference(const run& of, const cause& one) {
  return !one.differences.empty() ||
         std::any_of(one.findings.begin(), one.findings.end(), [&](std::size_t i) {
           const finding_kind kind = of.findings[i].kind;
           return kind != finding_kind::failure && kind != finding_kind::note;
         });
}

void judge_bundle(judging& at, const std::string& name) {
  bundle_verdict made;
  made.bundle = name;
  for (std::size_t i = 0; i < at.into.causes.size(); ++i) {
    const cause& one = at.into.causes[i];
    const bool is_its_own = one.object.bundle == name;
    const auto of_bundle = [&](std::size_t f) { return at.of().findings[f].object.bundle == name; };
    const auto count = static_cast<std::size_t>(
        std::count_if(one.findings.begin(), one.findings.end(), of_bundle));
    if (!is_its_own && count == 0) continue;
    made.causes.push_back(i);
    made.findings += count;
    if (is_its_own && is_difference(at.of(), one)) {
      made.is = verdict::differs;
      made.first = std::min(made.first, one.first);
    } else {
      made.not_judged.push_back(one.title);
    }
  }
  for (const coverage& hole : at.of().covered)
    if (is_hole(hole))
      made.not_judged.push_back(fmt::format("{} of {}", word_for(hole.of), place_words(hole)));
  if (made.is != verdict::differs && made.not_judged.empty()) made.is = verdict::agrees;
  at.into.bundles.push_back(std::move(made));
}

void judge_bundles(judging& at) {
  std::set<std::string> names;
  for (const object& one : at.of().objects)
    if (one.kind == object_kind::bundle && one.is_configured) names.insert(one.name);
  for (const finding& one : at.of().findings)
    if (!one.object.bundle.empty()) names.insert(one.object.bundle);
  std::vector<std::string> sorted(names.begin(), names.end());
  std::stable_sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
    return number_of_bundle(a) < number_of_bundle(b);
  });
  for (const std::string& name : sorted) judge_bundle(at, name);
}

// What differs before what could not be judged; of either the one with more behind it.
void sort_causes(judged_run& of) {
  const auto rank = [&](const cause& one) {
    return std::make_tuple(is_difference(of.of, one) ? 0 : 1, one.first);
  };
  std::stable_sort(of.causes.begin(), of.causes.end(),
                   [&](const cause& a, const cause& b) { return rank(a) < rank(b); });
}

}  // namespace

judged_run judge(run of) {
  judged_run made;
  made.of = std::move(of);
  judging at{made, find_differences(made.of)};
  at.is_explained.assign(made.of.findings.size(), false);
  for (const coverage& hole : made.of.covered)
    if (is_hole(hole) && hole.state != coverage_state::unknown) add_hole(at, hole);
  std::map<place_key, std::size_t> known;
  for (difference& one : at.differences) take_difference(at, std::move(one), known);
  for (std::size_t i = 0; i < made.of.findings.size(); ++i)
    if (!at.is_explained[i]) take_finding(at, i, known);
  sort_causes(made);
  judge_bundles(at);
  made.is_wholly_judged =
      std::all_of(made.bundles.begin(), made.bundles.end(),
                  [](const bundle_verdict& one) { return one.not_judged.empty(); }) &&
      made.of.end == run_end::complete;
  return made;
}

int exit_status(const judged_run& of) {
  const bool has_findings = std::any_of(of.causes.begin(), of.causes.end(), [&](const cause& one) {
    return is_difference(of.of, one);
  });
  if (has_findings) return 1;
  return of.is_wholly_judged ? 0 : 3;
}

std::string_view word_for(verdict is) {
  switch (is) {
    case verdict::agrees:
      return "agrees";
    case verdict::differs:
      return "differs";
    case verdict::not_judged:
      break;
  }
  return "not judged";
}

std::string_view word_for(sureness is) {
  switch (is) {
    case sureness::named:
      return "sure";
    case sureness::majority:
      return "majority";
    case sureness::tie:
      return "tie";
    case sureness::two_nodes:
      return "two only";
    case sureness::unknown:
      break;
  }
  return "unknown";
}

std::string_view word_for(coverage_state is) {
  switch (is) {
    case coverage_state::read:
      return "read";
    case coverage_state::partly:
      return "partly read";
    case coverage_state::empty:
      return "empty";
    case coverage_state::failed:
      return "failed";
    case coverage_state::not_understood:
      return "not understood";
    case coverage_state::never_asked:
      return "never asked";
    case coverage_state::unknown:
      break;
  }
  return "unknown";
}

std::string_view word_for(finding_kind is) {
  switch (is) {
    case finding_kind::inconsistency:
      return "inconsistency";
    case finding_kind::programming:
      return "programming error";
    case finding_kind::delay_delete:
      return "delayed delete";
    case finding_kind::stale:
      return "stale entry";
    case finding_kind::health:
      return "bundle health";
    case finding_kind::failure:
      return "failure";
    case finding_kind::note:
      break;
  }
  return "note";
}

}  // namespace desk
