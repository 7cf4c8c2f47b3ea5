// Faults of the running configuration that an operator or a broken transfer could leave.
#include "lab/faults/sites.h"

namespace lab {
namespace {

// Used in place of a node: these faults belong to the text, not to a bundle or node.
constexpr const char* in_configuration = "configuration";

bool edit_no_banner(capture& c, const router&, planted_fault& p) {
  p.node = in_configuration;
  return replace_once(configuration(c), "Tarmac OS Configuration 7.3.2", "Configuration");
}

bool edit_no_end(capture& c, const router&, planted_fault& p) {
  p.node = in_configuration;
  return replace_once(configuration(c), "\nend\n", "\n");
}

bool edit_unconfigured(capture& c, const router&, planted_fault&) {
  std::string& text = configuration(c);
  bool any = false;
  while (replace_once(text, "\n bundle id ", "\n lag ")) any = true;
  return any;
}

// The first bundle's stanza once more.
bool edit_duplicate(capture& c, const router&, planted_fault&) {
  std::string& text = configuration(c);
  const std::size_t start = text.find("interface Bundle-Ether");
  const std::size_t end = start == std::string::npos ? start : text.find("\n!\n", start);
  if (end == std::string::npos) return false;
  text.insert(start, text.substr(start, end + 3 - start));
  return true;
}

// A sub-bundle of the configuration, by the fault's place.
template <typename Suits>
sub_bundle* choose_sub(router& r, planted_fault& p, Suits suits) {
  std::vector<std::pair<bundle*, sub_bundle*>> subs;
  for (bundle& b : r.bundles)
    for (sub_bundle& s : b.subs)
      if (!b.members.empty() && suits(s)) subs.emplace_back(&b, &s);
  if (subs.empty()) return nullptr;
  const auto& [b, sub] = placed(subs, p);
  note_place(p, {b, nullptr, nullptr}, name_of(*sub));
  return sub;
}

bool plant_no_encapsulation(router& r, planted_fault& p) {
  sub_bundle* sub = choose_sub(r, p, [](const sub_bundle&) { return true; });
  if (sub == nullptr) return false;
  sub->encapsulation.clear();
  return true;
}

// A comma before the encapsulation: the audit reads the stanza only as far as the comma.
bool plant_sub_comma(router& r, planted_fault& p) {
  sub_bundle* sub = choose_sub(r, p, [](const sub_bundle&) { return true; });
  if (sub == nullptr) return false;
  sub->description = "customer 17, east";
  return true;
}

// Likewise before the word that makes a bundle layer 2.
bool plant_bundle_comma(router& r, planted_fault& p) {
  const site s = find_site(r, p, [](const site& one) { return one.b->l2; });
  if (!s) return false;
  note_place(p, {s.b, nullptr, nullptr}, name_of(*s.b));
  for (bundle& b : r.bundles)
    if (name_of(b) == p.bundle) b.description = "customers, east";
  return true;
}

bool plant_untagged(router& r, planted_fault& p) {
  sub_bundle* sub = choose_sub(r, p, [](const sub_bundle& one) { return one.l2; });
  if (sub == nullptr) return false;
  sub->encapsulation = "untagged";
  return true;
}

// On older chips, where the key of an untagged sub-bundle looks like its VLAN domain.
bool plant_no_key(router& r, planted_fault& p) {
  sub_bundle* sub = choose_sub(r, p, [](const sub_bundle& one) { return one.l2; });
  if (sub == nullptr) return false;
  for (const site& s : sites_of(r))
    if (has_older_chip(s) && name_of(*s.b) == p.bundle) {
      sub->encapsulation = "untagged";
      return true;
    }
  return false;
}

bool plant_no_key_with_hqos(router& r, planted_fault& p) {
  return r.hqos && plant_no_key(r, p);
}
bool plant_no_key_without_hqos(router& r, planted_fault& p) {
  return !r.hqos && plant_no_key(r, p);
}

bool edit_blanks(capture& c, const router&, planted_fault&) {
  constexpr std::size_t many = 5000;
  return describe_port(c, "out" + std::string(many, ' ') + "of band");
}

constexpr std::string_view untagged_note =
    "INFO: Found untagged encap config, SEM entry check for {bundle} will not be performed";

constexpr fault table[] = {
    {.name = "config-no-banner",
     .description = "the running configuration lacks its banner",
     .finding = "PARSE-ERROR: Not able to find the start of the running config",
     .harms = "cfg_render",
     .at = checkpoint::configuration,
     .shown = phase::collecting,
     .hides = reach::node,  // without the start the audit does not look for the end
     .counted = false,
     .edit = edit_no_banner},
    {.name = "config-no-end",
     .description = "the running configuration breaks off before its end line",
     .finding = "PARSE-ERROR: Not able to find the end of the running config",
     .harms = "cfg_render",
     .at = checkpoint::configuration,
     .shown = phase::collecting,
     .hides = reach::nothing,
     .counted = false,
     .edit = edit_no_end},
    {.name = "config-no-members",
     .description = "no port of the running configuration belongs to a bundle",
     .finding = "INFO: No Bundle is configured/No member is added to Bundle",
     .harms = "cfg_render",
     .at = checkpoint::groundwork,
     .shown = phase::parsing,
     .hides = reach::router,
     .stops_from = phase::consistency,
     .edit = edit_unconfigured},
    {.name = "config-blanks",
     .description = "a description in the running configuration contains 5000 blanks in a row",
     .harms = "cfg_render",
     .at = checkpoint::groundwork,
     .shown = phase::parsing,
     .hides = reach::nothing,
     .counted = false,
     .edit = edit_blanks},
    {.name = "config-duplicate",
     .description = "the running configuration contains the first bundle twice",
     .finding = "DEBUG: Duplicate Key, ignoring cfg {}",
     .harms = "cfg_render",
     .at = checkpoint::groundwork,
     .shown = phase::parsing,
     .hides = reach::nothing,
     .counted = false,
     .edit = edit_duplicate},
    {.name = "sub-no-encapsulation",
     .description = "a sub-bundle is configured without an encapsulation",
     .finding = "{}: Dont have any encapsulation config.",
     .harms = "cfg_render",
     .at = checkpoint::configuration,
     .plant = plant_no_encapsulation},
    {.name = "config-comma-sub",
     .description = "a comma in a sub-bundle's description cuts off its encapsulation",
     .finding = "{}: Dont have any encapsulation config.",
     .harms = "cfg_render",
     .at = checkpoint::configuration,
     .plant = plant_sub_comma},
    {.name = "config-comma-bundle",
     .description = "a comma in a layer 2 bundle's description cuts off its type; the audit takes "
                    "it for layer 3",
     .finding = "{}: DPA bundle consistency check failed for {object}({}), {}",
     .harms = "cfg_render",
     .at = checkpoint::dpa_intf,
     .hides = reach::bundle_everywhere,
     .plant = plant_bundle_comma},
    {.name = "sub-untagged",
     .description = "a sub-bundle is configured to accept untagged frames",
     .finding = untagged_note,
     .harms = "cfg_render",
     .at = checkpoint::configuration,
     .plant = plant_untagged},
    {.name = "sub-no-key",
     .description =
         "an older chip knows the LIF of an untagged sub-bundle but can hold no key for it",
     .finding = untagged_note,
     .also = {{"{}: verify_lif_rif_mac_mapping_key_llif failed for {object}({}) NPU {},{}",
               checkpoint::chip_entry}},
     .harms = "cfg_render",
     .at = checkpoint::configuration,
     .plant = plant_no_key_with_hqos},
    {.name = "sub-no-glif",
     .description = "without hqos, no layer reports the LIF of an untagged sub-bundle",
     .finding = untagged_note,
     .also = {{"Programming Error {}: LIF/RIF verification failed for {object}({}) NPU {},{}: "
               "GLIF {} is not valid",
               checkpoint::chip_entry}},
     .harms = "cfg_render",
     .at = checkpoint::configuration,
     .plant = plant_no_key_without_hqos},
};

}  // namespace

std::span<const fault> configuration_faults() {
  return table;
}

}  // namespace lab
