// Where faults were planted, for programs that hold an answer about a router against the truth.
#include <set>

#include "lab/faults/faults.h"
#include "lab/faults/render_faulty.h"

namespace lab {

namespace {

// "dpa.lag" -> "DPA". The interface listing and the interface manager are asked for what PI holds.
std::string layer_of_field(std::string_view field) {
  const std::string_view table = field.substr(0, field.find('.'));
  if (table == "pd") return "PD";
  if (table == "dpa") return "DPA";
  return table == "chip" ? "BCM" : "PI";
}

std::string layer_of_tool(std::string_view tool) {
  if (tool.starts_with("/")) return "machine";
  if (tool == "cfg_render") return "config";
  if (tool == "lagmgr_agent_show") return "PD";
  if (tool.starts_with("lagmgr_") || tool == "iface_show" || tool == "ifmgr_show") return "PI";
  if (tool == "fwd_object_show") return "DPA";
  return tool == "asic_shell_show" ? "BCM" : "tool";
}

std::string harmed_by(const planted_fault& p) {
  if (!p.harmed.empty()) return p.harmed;
  for (const fault& known : fault_catalogue())
    if (known.name == p.name) return std::string(known.harms);
  return {};
}

// The only one; empty if there are several.
std::string single(const std::set<std::string>& all) {
  return all.size() == 1 ? *all.begin() : std::string{};
}

// A value that every node holds wrongly is wrong on none in particular. A fault beside it that is
// of one node is the one that can be found.
void take_place_of_values(fault_place& place, const planted_fault& p) {
  std::set<std::string> nodes;
  std::set<std::string> npus;
  for (const override_rule& rule : p.holds) {
    if (!rule.node.empty()) nodes.insert(rule.node);
    if (rule.npu >= 0) npus.insert(std::to_string(rule.npu));
  }
  place.node = single(nodes);
  place.npu = single(npus);
}

}  // namespace

fault_place place_of(const planted_fault& p) {
  const std::string harmed = harmed_by(p);
  fault_place place{
      .name = text_of(p),
      .layer = p.holds.empty() ? layer_of_tool(harmed) : layer_of_field(p.holds.front().field),
      .node = p.node,
      .npu = p.npu < 0 ? "" : std::to_string(p.npu),
      .bundle = p.bundle,
      .object = p.bundle.empty() ? harmed : p.object};
  if (!p.holds.empty()) take_place_of_values(place, p);
  if (place.layer == "config" || place.layer == "PI") place.node.clear();
  if (place.object == place.bundle) place.object.clear();
  return place;
}

std::vector<fault_place> places_of_faults(const router& r) {
  std::vector<planted_fault> planted;
  render(r, &planted);
  std::vector<fault_place> places;
  for (const planted_fault& one : planted) places.push_back(place_of(one));
  return places;
}

}  // namespace lab
