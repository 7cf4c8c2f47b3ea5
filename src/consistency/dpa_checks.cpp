#include "consistency/dpa_checks.h"

#include <fmt/format.h>

#include <string>

#include "base/dump.h"
#include "base/findings.h"
#include "base/numbers.h"
#include "base/text.h"
#include "checks/both_passes.h"
#include "checks/field_checks.h"
#include "run/state.h"

namespace tessel {

namespace {

// Drops the padding: the objects print a LIF in fixed width, so 0x00012345 becomes 0x12345.
std::string short_lif(const value& lif) {
  return joined({"0x", strip_set_left(lif.as_text(), "0x")});
}

// Returns true if `verdict` is SUCCESS. After a disagreement, also reports whether the object is on
// its way out.
bool agrees(int verdict, const record& element, const object_name& error_string) {
  if (!verdict) check_delete_pending(element, error_string);
  return verdict != ERROR;
}

void check_member_scale(const value& dpa) {
  const value limit = dpa.at("max_member_count");
  if (limit == DEFAULT) return;
  const value weight = dpa.at("weight");
  if (to_wide_decimal(weight) <= to_wide_decimal(limit)) return;
  inconsistency(
      "Inconsistency {}: member scale limit exceeded due to weights of members ({}) being more "
      "than allowed ({})",
      plain(weight), plain(limit));
}

// Compares a bundle's interface objects on a node that has members of the bundle: LIF, RIF and MAC
// of the l2port, then RIF of the l3intf or LIF of the l2intf. The messages name the l2port for all.
bool bundle_interfaces_agree(const node_view& node, std::string_view ifh, record& element,
                             const object_name& error_string) {
  constexpr std::string_view layer = "DPA_Bundles_l2port";
  const std::string lif_l2 = short_lif(node.l2port.get().at(ifh).at("lif"));
  if (!agrees(check_lif(lif_l2, element, error_string, layer), element, error_string)) return false;
  const std::string rif_l2 = convert_to_hex(node.l2port.get().at(ifh).at("rif"));
  if (!agrees(check_rif(rif_l2, element, error_string, layer), element, error_string)) return false;
  const value mac_l2 = node.l2port.get().at(ifh).at("mac");
  if (!agrees(check_mac(mac_l2, element, error_string, layer), element, error_string)) return false;
  if (element.get("is_l2") == 0) {
    const value rif_l3 = node.l3intf.get().at(ifh).at("rif");
    return agrees(check_rif(rif_l3, element, error_string, layer), element, error_string);
  }
  const std::string lif_intf = short_lif(node.l2intf.get().at(ifh).at("lif"));
  return agrees(check_lif(lif_intf, element, error_string, layer), element, error_string);
}

// The bundle's VLAN domain on each NPU. On a layer 2 bundle each is compared with the domain of the
// l2intf object.
value vlan_domains(const node_view& node, std::string_view ifh, const record& element,
                   const object_name& error_string) {
  const value dpa = node.lagport.get().at(ifh);
  value vd = make_map();
  for (const std::string& npu : dpa.at("members").as_map().keys()) {
    const std::string domain = convert_to_hex(dpa.at("vlan_domain").at(npu));
    vd.as_map().set(npu, domain);
    if (!(element.get("is_l2") == 1)) continue;
    const std::string l2intf_vd = convert_to_hex(node.l2intf.get().at(ifh).at("vlan_domain"));
    if (l2intf_vd == domain) continue;
    inconsistency("Inconsistency {}:{} vlan_domain is not consistent in DPA_l2intf:{}, Expected:{}",
                  error_string, l2intf_vd, domain);
  }
  return vd;
}

}  // namespace

int check_bundles_DPA(const bundle_view& bundle, const node_view& node,
                      const object_name& error_string) {
  try {
    if (!is_node_present(node.name, node.DPA, "Bundle", "DPA")) return ERROR;
    record& element = bundle.element();
    const value handle = element.get("ifh");
    const value& lagport = node.lagport.get();
    if (!is_entry_present(handle, lagport, "DPA", error_string)) return ERROR;
    const std::string_view ifh = handle.as_text();
    const value& dpa = lagport.in(ifh);
    element.set("delPending", dpa.at("deletePending"));
    check_member_scale(dpa);
    // A wrong LAG id is the only disagreement that does not end the check.
    agrees(check_lagid(dpa.at("lagid"), element, error_string, "DPA_Bundles"), element,
           error_string);
    if (bundle.members().contains(node.name) &&
        !bundle_interfaces_agree(node, ifh, element, error_string)) {
      return ERROR;
    }
    const value vd = vlan_domains(node, ifh, element, error_string);
    element.get("vlan_domain").as_map().set(node.name, vd);
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: DPA bundle consistency check failed for {}", error.what(), error_string));
  }
}

int check_members_DPA(std::string_view member, const bundle_view& bundle, const node_view& node,
                      const object_name& error_string) {
  try {
    if (!is_node_present(node.name, node.DPA, "Bundle", "DPA")) return ERROR;
    record& element = bundle.element();
    const value ifh = element.get("ifh");
    const value& lagport = node.lagport.get();
    if (!is_entry_present(ifh, lagport, "DPA", error_string)) return ERROR;
    record& port = bundle.members().in(node.name).in(member).as_record();
    const value& dpa = lagport.in(ifh.as_text()).in("members");
    const value mifh = port.get("ifh");
    const value mtu = st().voq_usage.get().at(member).as_record().get("mtu");
    const std::string mem_npu = port.get("npu_id").as_text();
    const value& dpa_members = dpa.in(mem_npu);
    if (!is_entry_present(mifh, dpa_members, "DPA", error_string)) return ERROR;
    const value& memid = dpa_members.in(mifh.as_text()).in("memid");
    if (check_memid(memid, port, error_string, "DPA_Members") &&
        check_mtu(mtu, port, error_string, "DPA_Members")) {
      return SUCCESS;
    }
    // The bundle level sets `delPending`, so wait for it first.
    wait_for_bundle_level(bundle.name);
    check_delete_pending(element, error_string);
    return ERROR;
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: DPA Member verification failed for {}", error.what(), error_string));
  }
}

int check_sub_bundles_DPA(std::string_view sub, const bundle_view& bundle, const node_view& node,
                          const object_name& error_string) {
  try {
    record& element = bundle.sub_bundle(sub);
    const value handle = element.get("ifh");
    const value& lagport = node.lagport.get();
    if (!is_entry_present(handle, lagport, "DPA", error_string)) return ERROR;
    const std::string_view ifh = handle.as_text();
    const value& dpa = lagport.in(ifh);
    element.set("delPending", dpa.in("deletePending"));
    const int lagid_verdict =
        check_lagid(dpa.in("lagid"), element, error_string, "DPA_Sub_Bundles");
    if (!agrees(lagid_verdict, element, error_string)) return ERROR;
    if (!bundle.members().contains(node.name)) return SUCCESS;
    const std::string lif_l2 = short_lif(node.l2intf.get().in(ifh).in("lif"));
    const int lif_verdict = check_lif(lif_l2, element, error_string, "DPA_Sub_Bundles_l2intf");
    if (!agrees(lif_verdict, element, error_string)) return ERROR;
    if (!(element.get("is_l2") == 0)) return SUCCESS;
    // The way through decimal drops leading zeros. The message names the layer of the bundle level.
    const std::string rif_l3 =
        convert_to_hex(convert_hex_to_int(node.l3intf.get().in(ifh).in("rif")));
    const int rif_verdict = check_rif(rif_l3, element, error_string, "DPA_Bundles_l2port");
    return agrees(rif_verdict, element, error_string) ? SUCCESS : ERROR;
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: DPA Sub-Bundle verification failed for {}", error.what(), error_string));
  }
}

}  // namespace tessel
