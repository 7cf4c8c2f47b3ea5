#include "consistency/bcm_checks.h"

#include <fmt/format.h>

#include <string>

#include "base/dump.h"
#include "base/failure.h"
#include "base/findings.h"
#include "base/numbers.h"
#include "base/text.h"
#include "checks/both_passes.h"
#include "checks/field_checks.h"
#include "platform/port_numbers.h"
#include "platform/router_type.h"
#include "run/state.h"

namespace tessel {

namespace {

value npus_of(std::string_view nodename) {
  return st().nodeinfo.get().at(nodename).at("npu_list");
}

value tables_of(std::string_view nodename, std::string_view npu) {
  return st().BCM.get().at(nodename).at(npu);
}

record& voq_port(std::string_view member, here where = here::current()) {
  return st().voq_usage.get().at(member, where).as_record(where);
}

// Names a sub-bundle on one NPU. Only a message needs the name.
std::string sub_bundle_on_npu(std::string_view sub, const record& element, std::string_view npu,
                              std::string_view nodename) {
  return fmt::format("{}({}), NPU {}, {}", sub, plain(element.get("ifh")), npu, nodename);
}

// One member on one NPU, as the checks of both chip families need it.
struct member_on_npu {
  std::string_view member;
  std::string_view bundle;
  std::string_view nodename;
  std::string_view npu;
  std::string error_string;
  record& element;  // the bundle's
  record& port;     // the member's
};

// The bundle level sets `delPending`, so wait for it first.
void check_bundle_delete_pending(const member_on_npu& at) {
  wait_for_bundle_level(at.bundle);
  check_delete_pending(at.element, at.error_string);
}

void report_member_missing(const member_on_npu& at) {
  inconsistency("Inconsistency {}: Member ID not found in BCM for {}, {} ,NPU: {}", at.member,
                at.error_string, at.npu);
  check_bundle_delete_pending(at);
}

void report_mtu(const member_on_npu& at) {
  inconsistency("Inconsistency {}: MTU verification failed for {}, {} ,NPU: {}", at.member,
                at.error_string, at.npu);
  check_bundle_delete_pending(at);
}

// The earlier chips' MTU tables are indexed by core and port. One chassis numbers ports across all
// cores of a chip.
std::string mtu_port(std::string_view pp_port, std::string_view npu_core) {
  if (st().router != aspen) return std::string(pp_port);
  return port_on_core(pp_port, npu_core);
}

void check_member_non_j2(const member_on_npu& at) {
  const std::string lagid = "LAG " + at.element.get("lagid").as_text();
  const value tables = tables_of(at.nodename, at.npu);
  const value diag_lag = tables.at("diag_lag");
  if (!diag_lag.as_map().empty()) {
    const value bcm_members = diag_lag.at(lagid);
    if (!bcm_members.contains(at.port.get("memid").as_text())) report_member_missing(at);
  }
  if (!(at.port.get("npu_id") == at.npu)) return;
  const value member_mtu = tables.at("member_mtu");
  if (member_mtu.as_map().empty()) return;
  const std::string npu_core = voq_port(at.member).get("npu_core").as_text();
  const std::string port = mtu_port(voq_port(at.member).get("pp_port").as_text(), npu_core);
  if (!(at.port.get("mtu") == member_mtu.at(npu_core).at(port))) report_mtu(at);
}

// Compares the ends, because global ports are printed with more digits than system ports.
bool has_system_port(const value& bcm_members, std::string_view temp_string) {
  if (temp_string.empty()) return false;
  for (const value& sysport : bcm_members.as_list()) {
    if (std::string_view(sysport.as_text()).ends_with(temp_string)) return true;
  }
  return false;
}

void check_member_j2(const member_on_npu& at) {
  const std::string lagid = at.element.get("lagid").as_text();
  const value mem = st().bdlInfoPD.get().at(at.bundle).at("members").at(at.nodename);
  const value tables = tables_of(at.nodename, at.npu);
  const value tm_lag = tables.at("tm_lag");
  if (!tm_lag.as_map().empty()) {
    const value bcm_members = tm_lag.at(lagid).at("members");
    const std::string sysport = mem.at(at.member).at("sysport").as_text();
    const bool entry_found = has_system_port(bcm_members, strip_set_left(sysport, "0x"));
    if (!entry_found) report_member_missing(at);
  }
  if (!(at.port.get("npu_id") == at.npu)) return;
  const value lag_mtu = tables.at("lag_mtu");
  if (lag_mtu.as_map().empty()) return;
  const std::string lag_id = plain(convert_hex_to_int(lagid));
  const std::string npu_core = voq_port(at.member).get("npu_core").as_text();
  const value bundle_port = tables.at("bdl_pp_port").at(lag_id).at(npu_core);
  const value m_profile = lag_mtu.at(npu_core).at(bundle_port.as_text());
  const value hw_mtu =
      convert_hex_to_int(tables.at("mtu_profile").at(npu_core).at(m_profile.as_text()));
  // This chassis needs the port number adjustment of the earlier chips, and Jericho2 has none.
  if (st().router == aspen) throw failure("no port number on this family of chips");
  if (!(at.port.get("mtu") == hw_mtu)) report_mtu(at);
}

}  // namespace

int check_bundles_BCM(std::string_view bundle, std::string_view nodename,
                      std::string_view error_string) {
  std::string object(error_string);
  try {
    const value BCM = st().BCM.get();
    if (!is_node_present(nodename, BCM, "Bundle", "BCM")) return ERROR;
    record& element = bundle_record(bundle);
    const value npu_list = npus_of(nodename);
    for (const value& npu : npu_list.as_list()) {
      // Grows with each NPU: a message names all NPUs visited so far, the latest first.
      object = fmt::format("NPU{},{}", npu.as_text(), object);
      if (!is_entry_present(npu, BCM.at(nodename), "BCM", object)) return ERROR;
      const value tables = BCM.at(nodename).at(npu.as_text());
      const std::string lag_id = plain(element.get("lagid"));
      const bool j2 = is_j2(nodename) != ERROR;
      const value bcm = tables.at(j2 ? "tm_lag" : "diag_lag");
      // An earlier chip that reports no LAG at all is not compared.
      if (!j2 && bcm.as_map().empty()) continue;
      const std::string lagid = j2 ? lag_id : "LAG " + lag_id;
      if (!bcm.contains(lagid)) {
        inconsistency("Inconsistency {}: {} not found in BCM for {}", lagid, object);
        check_delete_pending(element, object);
        continue;
      }
      bcm.at(lagid).as_map().mark_visited();
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: BCM lag verification failed for {}", error.what(), object));
  }
}

int check_members_BCM(std::string_view member, std::string_view bundle, std::string_view nodename,
                      std::string_view error_string) {
  std::string object(error_string);
  try {
    record& element = bundle_record(bundle);
    const value members = element.get("members").at(nodename);
    const value npu_list = npus_of(nodename);
    for (const value& npu : npu_list.as_list()) {
      // Grows with each NPU: a message names all NPUs visited so far, the latest first.
      object = fmt::format("NPU{},{}", npu.as_text(), object);
      const member_on_npu at{
          member, bundle, nodename, npu.as_text(), object, element, members.at(member).as_record()};
      if (is_j2(nodename)) {
        check_member_j2(at);
      } else {
        check_member_non_j2(at);
      }
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: BCM member verification failed for {}", error.what(), object));
  }
}

int check_sub_bundles_BCM(std::string_view sub, std::string_view bundle, std::string_view nodename,
                          std::string_view error_string) {
  // What the message of a failure names: the object, once it is found, on the NPU of that moment.
  value node;
  const record* element = nullptr;
  std::string_view npu;
  const auto object = [&] {
    return element == nullptr ? std::string(error_string)
                              : sub_bundle_on_npu(sub, *element, npu, nodename);
  };
  try {
    node = st().nodeinfo.get().at(nodename);
    value chips;
    std::string lag_id;
    for (const value& each : node.at("npu_list").as_list()) {
      npu = each.as_text();
      if (element == nullptr) {
        element = &bundle_record(bundle).get("sub_bundles").at(sub).as_record();
        chips = st().BCM.get().at(nodename);
        lag_id = plain(element->get("lagid"));
      }
      const value tables = chips.at(npu);
      if (is_j2(nodename)) {
        if (tables.at("tm_lag").contains(lag_id)) continue;
        inconsistency("Inconsistency {}: {} not found in BCM for {}", lag_id, object());
        check_delete_pending(*element, object());
        continue;
      }
      const std::string lagid = "LAG " + lag_id;
      if (tables.at("diag_lag").contains(lagid)) continue;
      inconsistency("Inconsistency {}: {} not found in BCM for {},NPU: {}", lagid, object(), npu);
      check_delete_pending(*element, object());
      return ERROR;
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: BCM verification failed for {}", error.what(), object()));
  }
}

}  // namespace tessel
