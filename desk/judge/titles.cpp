#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "desk/judge/differences.h"
#include "desk/judge/judging.h"
#include "desk/model/numbers.h"

namespace desk {

namespace {

constexpr std::size_t longest_name = 48;

std::string layer_and_source(source from) {
  return fmt::format("{}, {}", word_for(layer_of(from)), tool_of(from));
}

// "0x501 on 0/0/CPU0 (DPA)", and the same of each other value that is odd.
std::string odd_values_of(const difference& of) {
  std::map<std::string, std::vector<witness>> by_value;
  for (const witness& one : of.witnesses)
    if (one.is_odd) by_value[compared_form(of.what, one.value)].push_back(one);
  std::vector<std::string> values;
  values.reserve(by_value.size());
  for (const auto& [form, same] : by_value)
    values.push_back(fmt::format("{} on {} ({})", same.front().value, places_of(same, true),
                                 word_for(layer_of(same.front().from))));
  return fmt::format("{}", fmt::join(values, ", "));
}

}  // namespace

std::string title_subject(const object_ref& of) {
  const std::string bundle = shortened(of.bundle, longest_name);
  std::string name = shortened(of.name, longest_name);
  if (of.kind == object_kind::member)
    return bundle.empty() ? fmt::format("member {}", name)
                          : fmt::format("{} member {}", bundle, name);
  if (name.empty()) return bundle.empty() ? "the router" : bundle;
  return name;
}

std::string shortened(std::string_view text, std::size_t longest) {
  text = text.substr(0, text.find('\n'));
  if (text.size() <= longest) return std::string(text);
  return fmt::format("{}... ({} characters)", text.substr(0, longest), text.size());
}

const witness* first_odd(const difference& of) {
  const witness* first = nullptr;
  for (const witness& one : of.witnesses) {
    if (!one.is_odd) continue;
    if (first == nullptr || layer_of(one.from) < layer_of(first->from)) first = &one;
  }
  return first;
}

namespace {

// The witnesses of the value that most hold. Where the audit does not ask, another value is no odd
// one, and still not the right one.
std::vector<witness> right_ones(const difference& of) {
  std::map<std::string, std::vector<witness>> by_form;
  for (const witness& one : of.witnesses)
    if (!one.is_odd && one.is == witness::state::holds)
      by_form[compared_form(of.what, one.value)].push_back(one);
  return std::max_element(
             by_form.begin(), by_form.end(),
             [](const auto& a, const auto& b) { return a.second.size() < b.second.size(); })
      ->second;
}

}  // namespace

std::string title_of(const difference& of) {
  const witness* odd = first_odd(of);
  if (of.what == field::presence)
    return fmt::format("{}: missing on {} ({})", title_subject(of.object),
                       places_of(of.witnesses, true), layer_and_source(odd->from));
  if (of.how_sure != sureness::majority) {
    std::vector<std::string> values;
    for (const witness& one : of.witnesses)
      if (one.is_odd)
        values.push_back(fmt::format("{} on {} ({})", one.value,
                                     one.node.empty() ? "the router" : one.node,
                                     word_for(layer_of(one.from))));
    return fmt::format("{}: {} is {}", title_subject(of.object), word_for(of.what),
                       fmt::join(values, ", "));
  }
  const std::vector<witness> right = right_ones(of);
  return fmt::format("{}: {} is {}, {} on {}", title_subject(of.object), word_for(of.what),
                     odd_values_of(of), right.front().value, places_of(right, false));
}

std::string title_of(const finding& one) {
  const std::string place =
      one.npu.empty() ? one.node : fmt::format("{} NPU {}", one.node, one.npu);
  const std::string on = place.empty() ? "" : fmt::format(" on {}", place);
  const std::string in = one.of == layer::none ? "" : fmt::format(" ({})", word_for(one.of));
  if (one.kind == finding_kind::health)
    return fmt::format("{}: the bundle manager itself reports: {}",
                       one.object.bundle.empty() ? "the router" : one.object.bundle,
                       shortened(one.text));
  if (one.kind == finding_kind::stale)
    return fmt::format("{}: stale entry{}{}: {}",
                       one.object.bundle.empty() ? "no bundle" : one.object.bundle, on, in,
                       one.object.name);
  if (one.kind == finding_kind::failure)
    return fmt::format("{}: not verified{}{}: {}", title_subject(one.object), on, in,
                       shortened(one.text));
  if (is_scale(one))
    return fmt::format("the router: over its limit{}: {}", in, shortened(one.text));
  if (one.kind == finding_kind::note)
    return fmt::format("{}: not checked{}{}: {}", title_subject(one.object), on, in,
                       shortened(one.text));
  if (one.what == field::weight)
    return fmt::format(
        "{}: {}{}{}: {}, the limit is {}",
        is_of_unknown_weight(one) ? "a bundle that no message names" : title_subject(one.object),
        word_for(one.what), on, in, one.reported, one.known);
  if (is_of_notation(one))
    return fmt::format("{}: {}{}{}: {} and {} are one value in two notations",
                       title_subject(one.object), word_for(one.what), on, in, one.reported,
                       one.known);
  if (!one.reported.empty() && !one.known.empty())
    return fmt::format("{}: {}{}{}: {} here, {} known before", title_subject(one.object),
                       one.what == field::none ? "value differs" : word_for(one.what), on, in,
                       one.reported, one.known);
  if (one.what == field::presence)
    return fmt::format("{}: missing{}{}", title_subject(one.object), on, in);
  if (!one.known.empty())
    return fmt::format("{}: {} {} missing{}{}", title_subject(one.object), word_for(one.what),
                       one.known, on, in);
  return fmt::format("{}: {} differs{}{}", title_subject(one.object), word_for(one.what), on, in);
}

std::string words_for_place(const coverage& at) {
  if (at.node.empty()) return "the router";
  return at.npu.empty() ? at.node : fmt::format("{} NPU {}", at.node, at.npu);
}

std::string_view words_for(const witness& one) {
  switch (one.is) {
    case witness::state::absent:
      return "missing";
    case witness::state::not_read:
      return "not read";
    case witness::state::holds:
      break;
  }
  return one.value;
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
