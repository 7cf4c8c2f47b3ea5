#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "desk/judge/judging.h"
#include "desk/model/coverage.h"
#include "desk/model/numbers.h"

namespace desk {

namespace {

source source_in_chip(field what) {
  if (what == field::mtu) return source::chip_mtu;
  if (what == field::vlan_domain) return source::chip_domain;
  if (what == field::rif || what == field::mac || what == field::lif) return source::chip_entry;
  return source::chip_lag;
}

source source_of(const finding& one) {
  switch (one.of) {
    case layer::config:
      return source::running_config;
    case layer::pi:
      return one.code == "TC-103" || one.code == "TC-744" ? source::interface_db
             : one.code == "TC-743"                       ? source::interfaces
                                                          : source::bundle_manager;
    case layer::pd:
      return source::agent;
    case layer::dpa:
      return one.what == field::mtu                             ? source::l1port
             : one.what == field::rif                           ? source::l3intf
             : one.what == field::lif || one.what == field::mac ? source::l2port
                                                                : source::lagport;
    case layer::bcm:
      return source_in_chip(one.what);
    case layer::none:
      break;
  }
  return source::none;
}

// A layer is programmed by the values of the one above. So a LAG under another id, or a global LIF
// or router interface of another number, is missing further down; an MTU is not.
bool can_follow(field from, const finding& one) {
  if (from == field::presence || from == one.what || is_doubt(one)) return true;
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

// A delayed delete comes with an inconsistency of the same object, on whichever node that is.
bool is_to_be_deleted(const run& of, const cause& above, const finding& one) {
  if (one.kind != finding_kind::delay_delete) return false;
  return std::any_of(above.differences.begin(), above.differences.end(),
                     [&](const difference& from) { return from.object == one.object; }) ||
         std::any_of(above.findings.begin(), above.findings.end(),
                     [&](std::size_t i) { return of.findings[i].object == one.object; });
}

bool explains(const run& of, const cause& above, const finding& one) {
  if (is_to_be_deleted(of, above, one)) return true;
  if (above.object.bundle != one.object.bundle || above.node.empty() || above.node != one.node)
    return false;
  if (one.of != layer::none && above.first > one.of) return false;
  // What is wrong with a member or sub-bundle does not harm the rest of its bundle.
  const auto follows = [&](const object_ref& on, field from) {
    return (on.kind == object_kind::bundle || on == one.object) && can_follow(from, one);
  };
  if (!above.differences.empty())
    return std::any_of(above.differences.begin(), above.differences.end(),
                       [&](const difference& from) { return follows(from.object, from.what); });
  return std::any_of(above.findings.begin(), above.findings.end(), [&](std::size_t i) {
    return follows(of.findings[i].object, of.findings[i].what);
  });
}

// An earlier cause of the same bundle that explains this finding as well.
cause* cause_above(judging& at, const finding& one) {
  if (one.object.bundle.empty() || one.kind == finding_kind::health) return nullptr;
  const auto above =
      std::find_if(at.into.causes.begin(), at.into.causes.end(),
                   [&](const cause& other) { return explains(at.of(), other, one); });
  return above == at.into.causes.end() ? nullptr : &*above;
}

// The chip's list of LAGs has a line of another form. That is legal, and only if something is
// missing there it may be the reason.
cause* cause_of_line(judging& at, const finding& one) {
  const auto same =
      std::find_if(at.into.causes.begin(), at.into.causes.end(), [&](const cause& other) {
        return other.first == layer::bcm && other.node == one.node && other.npu == one.npu;
      });
  return same == at.into.causes.end() ? nullptr : &*same;
}

bool is_normal_note(const run& of, const finding& one) {
  if (one.kind != finding_kind::note) return false;
  // Fewer threads, or files that stay: the audit says itself that it is complete all the same.
  if (one.code == "TC-903" || one.code == "TC-904") return true;
  if (one.code == "TC-608" || one.code == "TC-616") return true;
  if (one.node.empty() || one.of == layer::none) return false;
  // Where nothing can be, the note is no finding.
  return std::none_of(of.covered.begin(), of.covered.end(), [&](const coverage& c) {
    return c.node == one.node && c.of == one.of && is_hole(c);
  });
}

// Why the judge is as sure as it is of what a message says.
std::string_view why_of(const finding& one) {
  if (is_scale(one)) return "the audit counted what is configured";
  return is_doubt(one) ? "it could not be verified, so nobody knows" : "the audit names the place";
}

// Findings with the same key, node and layer are one cause.
std::string subject_key(const finding& one) {
  // Whatever the command was, the reason why it could not run is the same.
  if (one.code == "TC-701") return one.text.substr(0, one.text.find(": execution failed"));
  // The bundle manager names many bundles in one line.
  if (one.kind == finding_kind::health) return fmt::format("{} {}", one.log, one.line);
  return one.object.bundle.empty() ? one.text : one.object.bundle;
}

void take_finding(judging& at, std::size_t index) {
  const finding& one = at.of().findings[index];
  const bool is_line = one.code == "TC-905";
  const bool is_normal = is_line || is_normal_note(at.of(), one);
  cause* above = is_line ? cause_of_line(at, one) : is_normal ? nullptr : cause_above(at, one);
  if (above != nullptr) {
    above->findings.push_back(index);
    return;
  }
  if (is_normal) {
    at.into.unexplained.push_back(index);
    return;
  }
  cause& into = cause_at(at, {subject_key(one), one.node, one.of});
  into.findings.push_back(index);
  if (!into.title.empty()) return;
  into.title = title_of(one);
  into.object = one.object;
  into.npu = one.npu;
  into.how_sure = is_doubt(one) && !is_scale(one) ? sureness::unknown : sureness::named;
  into.why = why_of(one);
  into.next = command_for_platform(at.of(), one);
  if (into.next.empty()) into.next = command_for(at.of(), source_of(one), one.node, one.npu);
}

// One message about most of the bundles has one reason, and it is not in the bundles.
bool take_common(judging& at, const std::string& code) {
  constexpr std::size_t fewest_bundles = 4;
  std::set<std::string> bundles;
  std::vector<std::size_t> same;
  for (std::size_t i = 0; i < at.of().findings.size(); ++i) {
    const finding& one = at.of().findings[i];
    if (at.is_explained[i] || one.code != code) continue;
    const object* bundle = at.of().find(object_kind::bundle, one.object.bundle, one.object.bundle);
    if (bundle == nullptr || !bundle->is_configured) continue;
    bundles.insert(one.object.bundle);
    same.push_back(i);
  }
  const auto configured = static_cast<std::size_t>(std::count_if(
      at.of().objects.begin(), at.of().objects.end(),
      [](const object& o) { return o.kind == object_kind::bundle && o.is_configured; }));
  if (bundles.size() < fewest_bundles || bundles.size() * 4 < configured * 3) return false;
  const finding& first = at.of().findings[same.front()];
  cause made;
  made.first = first.of;
  made.title = fmt::format("{} of {} bundles: the same message of each: {}", bundles.size(),
                           configured, shortened(first.text));
  made.how_sure = is_doubt(first) ? sureness::unknown : sureness::named;
  made.why = "look for one reason that they share, such as a tool that printed nothing";
  made.next = command_for(at.of(), source_of(first), first.node, first.npu);
  if (made.next.empty() && first.of == layer::dpa) made.next = "/opt/nos/bin/plat_nodes_show -v";
  made.findings = same;
  for (const std::size_t i : same) at.is_explained[i] = true;
  at.into.causes.push_back(std::move(made));
  return true;
}

void add_once(std::vector<std::string>& names, const std::string& name) {
  if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
}

// The nodes whose object has no global LIF: the audit asks only those with members.
std::vector<std::string> nodes_without_lif(const run& of, const object_ref& named) {
  std::vector<std::string> nodes;
  const object* one = of.find(named.kind, named.bundle, named.name);
  if (one == nullptr) return nodes;
  for (const cell& c : one->cells)
    if (c.what == field::lif && c.node != no_place && number_in(of.texts.text(c.value)) == 0U)
      add_once(nodes, of.nodes[static_cast<std::size_t>(c.node)].name);
  return nodes;
}

// A bundle or sub-bundle to which no node gave a global LIF: none of them is the odd one.
void take_unset(judging& at, std::size_t first) {
  const finding& one = at.of().findings[first];
  std::vector<std::string> nodes = nodes_without_lif(at.of(), one.object);
  cause made;
  for (std::size_t i = first; i < at.of().findings.size(); ++i) {
    const finding& other = at.of().findings[i];
    if (at.is_explained[i] || other.code != one.code || other.object != one.object) continue;
    at.is_explained[i] = true;
    made.findings.push_back(i);
    add_once(nodes, other.node);
  }
  constexpr std::size_t most = 4;
  made.title = fmt::format("{}: no global LIF on {} (DPA)", one.object.name,
                           nodes.size() > most ? fmt::format("{} nodes", nodes.size())
                                               : fmt::format("{}", fmt::join(nodes, ", ")));
  made.object = one.object;
  made.node = nodes.size() == 1 ? nodes.front() : "";
  made.first = layer::dpa;
  made.how_sure = sureness::named;
  made.why = "the value is zero: none was allocated";
  const bool is_sub = one.object.kind == object_kind::sub_bundle;
  made.next =
      command_for(at.of(), is_sub ? source::l2intf : source::l2port, nodes.front(), one.npu);
  at.into.causes.push_back(std::move(made));
}

}  // namespace

bool is_scale(const finding& one) {
  return one.code >= "TC-619" && one.code <= "TC-622";
}

bool is_doubt(const finding& one) {
  return one.kind == finding_kind::failure || one.kind == finding_kind::note;
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
  std::set<std::string> codes;
  for (const finding& one : all)
    if (one.kind != finding_kind::health && !one.code.starts_with("TC-6")) codes.insert(one.code);
  for (const std::string& code : codes) take_common(at, code);
  for (std::size_t i = 0; i < all.size(); ++i)
    if (!at.is_explained[i] && all[i].code == "TC-109") take_unset(at, i);
  for (const bool doubts : {false, true})
    for (std::size_t i = 0; i < all.size(); ++i)
      if (!at.is_explained[i] && is_doubt(all[i]) == doubts) take_finding(at, i);
}

}  // namespace desk
