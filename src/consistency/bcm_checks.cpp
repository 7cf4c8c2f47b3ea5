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

const value& tables_of(const chip_view& chip) {
  return chip.tables.get();
}

record& voq_port(std::string_view member, here where = here::current()) {
  return st().voq_usage.get().at(member, where).as_record(where);
}

// Grows with each NPU: a message names all NPUs visited so far, the latest first.
std::string behind_npus(const node_view& node, std::size_t visited, const object_name& object) {
  std::string text = object.text();
  for (std::size_t at = 0; at < visited; ++at) {
    text = fmt::format("NPU{},{}", node.chips()[at].npu.as_text(), text);
  }
  return text;
}

// One member on one NPU, as the checks of both chip families need it.
struct member_on_npu {
  std::string_view member;
  const bundle_view& bundle;
  const node_view& node;
  const chip_view& chip;
  const object_name& error_string;
  record& element;  // the bundle's
  record& port;     // the member's
};

// The bundle level sets `delPending`, so wait for it first.
void check_bundle_delete_pending(const member_on_npu& at) {
  wait_for_bundle_level(at.bundle.name);
  check_delete_pending(at.element, at.error_string);
}

void report_member_missing(const member_on_npu& at) {
  inconsistency("Inconsistency {}: Member ID not found in BCM for {}, {} ,NPU: {}", at.member,
                at.error_string, at.chip.npu.as_text());
  check_bundle_delete_pending(at);
}

void report_mtu(const member_on_npu& at) {
  inconsistency("Inconsistency {}: MTU verification failed for {}, {} ,NPU: {}", at.member,
                at.error_string, at.chip.npu.as_text());
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
  const value& tables = tables_of(at.chip);
  const value& diag_lag = at.chip.lags.get();
  if (!diag_lag.as_map().empty()) {
    const value& bcm_members = diag_lag.in(lagid);
    if (!bcm_members.contains(at.port.get("memid").as_text())) report_member_missing(at);
  }
  if (!(at.port.get("npu_id") == at.chip.npu)) return;
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
  const value mem = st().bdlInfoPD.get().at(at.bundle.name).at("members").at(at.node.name);
  const value& tables = tables_of(at.chip);
  const value& tm_lag = at.chip.lags.get();
  if (!tm_lag.as_map().empty()) {
    const value& bcm_members = tm_lag.in(lagid).in("members");
    const std::string sysport = mem.at(at.member).at("sysport").as_text();
    const bool entry_found = has_system_port(bcm_members, strip_set_left(sysport, "0x"));
    if (!entry_found) report_member_missing(at);
  }
  if (!(at.port.get("npu_id") == at.chip.npu)) return;
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

int check_bundles_BCM(const bundle_view& bundle, const node_view& node,
                      const object_name& error_string) {
  std::size_t visited = 0;
  const auto named = [&] { return behind_npus(node, visited, error_string); };
  const object_name object(named);
  try {
    // The store as it is now: a late worker may come after the stale check has replaced it.
    const value BCM = st().BCM.get();
    if (!is_node_present(node.name, BCM, "Bundle", "BCM")) return ERROR;
    record& element = bundle.element();
    for (const chip_view& chip : node.chips()) {
      chip.npu.as_text();
      ++visited;
      if (!is_entry_present(chip.npu, BCM.at(node.name), "BCM", object)) return ERROR;
      const std::string lag_id = plain(element.get("lagid"));
      const bool j2 = node.is_jericho2();
      const value& bcm = chip.lags.get();
      // An earlier chip that reports no LAG at all is not compared.
      if (!j2 && bcm.as_map().empty()) continue;
      const std::string lagid = j2 ? lag_id : "LAG " + lag_id;
      if (!bcm.contains(lagid)) {
        inconsistency("Inconsistency {}: {} not found in BCM for {}", lagid, object);
        check_delete_pending(element, object);
        continue;
      }
      bcm.in(lagid).as_map().mark_visited();
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: BCM lag verification failed for {}", error.what(), object));
  }
}

int check_members_BCM(std::string_view member, const bundle_view& bundle, const node_view& node,
                      const object_name& error_string) {
  std::size_t visited = 0;
  const auto named = [&] { return behind_npus(node, visited, error_string); };
  const object_name object(named);
  try {
    record& element = bundle.element();
    const value& members = bundle.members().in(node.name);
    for (const chip_view& chip : node.chips()) {
      chip.npu.as_text();
      ++visited;
      const member_on_npu at{
          member, bundle, node, chip, object, element, members.in(member).as_record()};
      if (node.is_jericho2()) {
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

int check_sub_bundles_BCM(std::string_view sub, const bundle_view& bundle, const node_view& node,
                          const object_name& error_string) {
  // What a message names: the object, once it is found, on the NPU of that moment.
  const record* element = nullptr;
  std::string_view npu;
  const auto named = [&] {
    if (element == nullptr) return error_string.text();
    return fmt::format("{}({}), NPU {}, {}", sub, plain(element->get("ifh")), npu, node.name);
  };
  const object_name object(named);
  try {
    std::string lag_id;
    for (const chip_view& chip : node.chips()) {
      npu = chip.npu.as_text();
      if (element == nullptr) {
        element = &bundle.sub_bundle(sub);
        lag_id = plain(element->get("lagid"));
      }
      const value& lags = chip.lags.get();
      if (node.is_jericho2()) {
        if (lags.contains(lag_id)) continue;
        inconsistency("Inconsistency {}: {} not found in BCM for {}", lag_id, object);
        check_delete_pending(*element, object);
        continue;
      }
      const std::string lagid = "LAG " + lag_id;
      if (lags.contains(lagid)) continue;
      inconsistency("Inconsistency {}: {} not found in BCM for {},NPU: {}", lagid, object, npu);
      check_delete_pending(*element, object);
      return ERROR;
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: BCM verification failed for {}", error.what(), object));
  }
}

}  // namespace tessel
