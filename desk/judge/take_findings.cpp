#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "desk/judge/judging.h"
#include "desk/model/coverage.h"

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
      return one.code == "TC-103" ? source::interface_db : source::bundle_manager;
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
  if (is_normal_note(at.of(), one)) {
    at.into.unexplained.push_back(index);
    return;
  }
  if (cause* above = cause_above(at, one)) {
    above->findings.push_back(index);
    return;
  }
  cause& into = cause_at(at, {subject_key(one), one.node, one.of});
  into.findings.push_back(index);
  if (!into.title.empty()) return;
  into.title = title_of(one);
  into.object = one.object;
  into.npu = one.npu;
  into.how_sure = is_doubt(one) ? sureness::unknown : sureness::named;
  into.why = into.how_sure == sureness::named ? "the audit names the place"
                                              : "it could not be verified, so nobody knows";
  into.next = command_for(at.of(), source_of(one), one.node, one.npu);
}

// The configured size of the router is beyond its limits.
bool is_scale(const finding& one) {
  return one.code >= "TC-619" && one.code <= "TC-622";
}

// One message about most of the bundles has one reason, and it is not in the bundles.
bool take_common(judging& at, const std::string& code) {
  constexpr std::size_t fewest_bundles = 4;
  std::set<std::string> bundles;
  std::vector<std::size_t> same;
  for (std::size_t i = 0; i < at.of().findings.size(); ++i) {
    const finding& one = at.of().findings[i];
    if (at.is_explained[i] || one.code != code || one.object.bundle.empty()) continue;
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

}  // namespace

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
  for (const bool doubts : {false, true})
    for (std::size_t i = 0; i < all.size(); ++i)
      if (!at.is_explained[i] && is_doubt(all[i]) == doubts) take_finding(at, i);
}

}  // namespace desk
