#include "desk/show/keys.h"

namespace desk {

std::string_view key_for(layer of) {
  using enum layer;
  switch (of) {
    case config:
      return "config";
    case pi:
      return "pi";
    case pd:
      return "pd";
    case dpa:
      return "dpa";
    case bcm:
      return "bcm";
    case none:
      break;
  }
  return "none";
}

std::string_view key_for(field of) {
  using enum field;
  switch (of) {
    case presence:
      return "presence";
    case handle:
      return "handle";
    case lag_id:
      return "lag_id";
    case lif:
      return "lif";
    case rif:
      return "rif";
    case mac:
      return "mac";
    case mtu:
      return "mtu";
    case npu:
      return "npu";
    case member_id:
      return "member_id";
    case system_port:
      return "system_port";
    case vlan_domain:
      return "vlan_domain";
    case type:
      return "type";
    case encapsulation:
      return "encapsulation";
    case deletion:
      return "deletion";
    case weight:
      return "weight";
    case weight_limit:
      return "weight_limit";
    case sem:
      return "sem";
    case none:
      break;
  }
  return "none";
}

std::string_view key_for(source of) {
  using enum source;
  switch (of) {
    case running_config:
      return "running_config";
    case bundle_manager:
      return "bundle_manager";
    case interfaces:
      return "interfaces";
    case interface_db:
      return "interface_db";
    case agent:
      return "agent";
    case lagport:
      return "lagport";
    case l1port:
      return "l1port";
    case l2port:
      return "l2port";
    case l2intf:
      return "l2intf";
    case l3intf:
      return "l3intf";
    case chip_lag:
      return "chip_lag";
    case chip_mtu:
      return "chip_mtu";
    case chip_domain:
      return "chip_domain";
    case chip_entry:
      return "chip_entry";
    case none:
      break;
  }
  return "none";
}

std::string_view key_for(object_kind of) {
  using enum object_kind;
  switch (of) {
    case router:
      return "router";
    case node:
      return "node";
    case chip:
      return "chip";
    case bundle:
      return "bundle";
    case member:
      return "member";
    case sub_bundle:
      return "sub_bundle";
    case entry:
      break;
  }
  return "entry";
}

std::string_view key_for(coverage_state of) {
  using enum coverage_state;
  switch (of) {
    case read:
      return "read";
    case partly:
      return "partly";
    case empty:
      return "empty";
    case failed:
      return "failed";
    case not_understood:
      return "not_understood";
    case never_asked:
      return "never_asked";
    case unknown:
      break;
  }
  return "unknown";
}

std::string_view key_for(finding_kind of) {
  using enum finding_kind;
  switch (of) {
    case inconsistency:
      return "inconsistency";
    case programming:
      return "programming";
    case delay_delete:
      return "delay_delete";
    case stale:
      return "stale";
    case health:
      return "health";
    case failure:
      return "failure";
    case note:
      break;
  }
  return "note";
}

std::string_view key_for(run_end of) {
  using enum run_end;
  switch (of) {
    case complete:
      return "complete";
    case stopped:
      return "stopped";
    case cut_off:
      return "cut_off";
    case unknown:
      break;
  }
  return "unknown";
}

std::string_view key_for(stale_search of) {
  using enum stale_search;
  switch (of) {
    case done:
      return "done";
    case skipped:
      return "skipped";
    case unknown:
      break;
  }
  return "unknown";
}

std::string_view key_for(verdict of) {
  using enum verdict;
  switch (of) {
    case agrees:
      return "agrees";
    case differs:
      return "differs";
    case not_judged:
      break;
  }
  return "not_judged";
}

std::string_view key_for(sureness of) {
  using enum sureness;
  switch (of) {
    case named:
      return "named";
    case majority:
      return "majority";
    case tie:
      return "tie";
    case two_nodes:
      return "two_nodes";
    case unknown:
      break;
  }
  return "unknown";
}

std::string_view key_for(decltype(witness::is) of) {
  using enum witness::state;
  switch (of) {
    case holds:
      return "holds";
    case absent:
      return "absent";
    case not_read:
      break;
  }
  return "not_read";
}

}  // namespace desk
