#include "consistency/consistency_pass.h"

#include <fmt/format.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/dump.h"
#include "base/findings.h"
#include "base/logs.h"
#include "base/print.h"
#include "base/worker.h"
#include "checks/both_passes.h"
#include "consistency/bcm_checks.h"
#include "consistency/dpa_checks.h"
#include "consistency/pi_pd_checks.h"
#include "consistency/scale_check.h"
#include "run/state.h"

namespace tessel {

namespace {

// The nodes whose `dump` flag is set now.
std::vector<std::string> dumped_nodes() {
  std::vector<std::string> nodes;
  for (const auto& [nodename, node] : st().nodeinfo.get().as_map().items()) {
    if (node.at("dump").truthy()) nodes.push_back(nodename);
  }
  return nodes;
}

bool is_asic_supported(const std::string& nodename) {
  return st().nodeinfo.get().at(nodename).at("asic_supported").truthy();
}

// The first node that reports a value sets the expectation for the others. So the nodes take turns
// at one object, in their order, and the same router gives the same findings in every run. One
// worker walks them; what ends the check of one node does not end the walk.
template <class Check>
std::shared_ptr<worker> start_walk(std::vector<std::string> nodenames, Check check) {
  return start_worker([nodenames = std::move(nodenames), check = std::move(check)] {
    for (const std::string& nodename : nodenames) run_contained([&] { check(nodename); });
  });
}

// The pass does not wait for these workers. They are in the run-wide list, which nobody joins
// before the stale entry check.
void start_bundle_level(const std::string& bundle) {
  run_state& run = st();
  const auto pid = start_walk(
      dumped_nodes(), [bundle](const std::string& nodename) { check_bundles(bundle, nodename); });
  run.bundle_workers[bundle] = pid;
  run.pid_list.append(pid);
}

// The chip's members are looked up under the LAG id that the bundle level finds. Without this wait,
// a faster member level would report them as missing.
void wait_for_lag_id(const std::string& bundle) {
  if (bundle_record(bundle).get("lagid") == DEFAULT) wait_for_bundle_level(bundle);
}

// The members of the bundle on nodes that take part, each with its nodes. A member is on one node,
// but the active route processor and its standby can share one record.
std::vector<std::pair<std::string, std::vector<std::string>>> members_with_nodes(
    const std::string& bundle) {
  std::vector<std::pair<std::string, std::vector<std::string>>> found;
  std::unordered_map<std::string, std::size_t> positions;
  const value members = bundle_record(bundle).get("members");
  for (const std::string& nodename : dumped_nodes()) {
    if (!members.contains(nodename)) continue;
    for (const std::string& member : members.at(nodename).as_map().keys()) {
      const auto [at, is_new] = positions.try_emplace(member, found.size());
      if (is_new) found.emplace_back(member, std::vector<std::string>());
      found[at->second].second.push_back(nodename);
    }
  }
  return found;
}

void run_member_level(const std::string& bundle) {
  worker_list pid_list_members;
  for (auto& [member, nodenames] : members_with_nodes(bundle)) {
    pid_list_members.append(
        start_walk(std::move(nodenames), [member = member, bundle](const std::string& nodename) {
          check_members(member, bundle, nodename);
        }));
  }
  pid_list_members.join_all();
}

// Checks every node that takes part, with or without members of the bundle.
void run_sub_bundle_level(const std::string& bundle) {
  worker_list pid_list_sub;
  const std::vector<std::string> nodenames = dumped_nodes();
  for (const std::string& sub : bundle_record(bundle).get("sub_bundles").as_map().keys()) {
    pid_list_sub.append(start_walk(nodenames, [sub, bundle](const std::string& nodename) {
      check_sub_bundles(sub, bundle, nodename);
    }));
  }
  pid_list_sub.join_all();
}

void check_one_bundle(const std::string& bundle) {
  if (!check_bundles_PI(bundle)) return;
  if (!check_sub_bundles_PI(bundle)) return;
  start_bundle_level(bundle);
  run_member_level(bundle);
  run_sub_bundle_level(bundle);
}

}  // namespace

int check_bundle_consistency() {
  run_state& run = st();
  try {
    print_title("Bundle Consistency Check");
    if (check_bundle_scale() == ERROR) {
      ++run.exception;
      logger("INFO: bundle scale check failed", "exception");
    }
    for (const std::string& bundle : run.tesselDb.as_map().keys()) {
      if (bundle != "hqos") check_one_bundle(bundle);
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: Consistency check failed", error.what()));
  }
}

int check_bundles(const std::string& bundle, const std::string& nodename) {
  try {
    const record& element = bundle_record(bundle);
    const std::string error_string =
        fmt::format("{}({}), {}", bundle, plain(element.get("ifh")), nodename);
    if (element.get("members").contains(nodename) &&
        !check_bundles_PD(bundle, nodename, error_string)) {
      return ERROR;
    }
    if (!check_bundles_DPA(bundle, nodename, error_string)) return ERROR;
    if (is_asic_supported(nodename) && !check_bundles_BCM(bundle, nodename, error_string)) {
      return ERROR;
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: Bundle consistency check failed for {}, {}", error.what(),
                                     bundle, nodename));
  }
}

int check_members(const std::string& member, const std::string& bundle,
                  const std::string& nodename) {
  try {
    const std::string error_string = fmt::format("{},{}({}), {}", member, bundle,
                                                 plain(bundle_record(bundle).get("ifh")), nodename);
    if (!check_members_PI(member, bundle, nodename, error_string)) return ERROR;
    if (!check_members_PD(member, bundle, nodename, error_string)) return ERROR;
    if (!check_members_DPA(member, bundle, nodename, error_string)) return ERROR;
    if (!is_asic_supported(nodename)) return SUCCESS;
    wait_for_lag_id(bundle);
    if (!check_members_BCM(member, bundle, nodename, error_string)) return ERROR;
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: Member consistency check failed for {} {}, {}",
                                     error.what(), member, bundle, nodename));
  }
}

int check_sub_bundles(const std::string& sub_bdl, const std::string& bundle,
                      const std::string& nodename) {
  try {
    const record& element = bundle_record(bundle).get("sub_bundles").at(sub_bdl).as_record();
    const std::string error_string =
        fmt::format("{}({}),{}", sub_bdl, plain(element.get("ifh")), nodename);
    // Without hierarchical QoS, sub-bundles have no LAG of their own.
    if (!st().tesselDb.at("hqos").truthy()) return SUCCESS;
    if (!check_sub_bundles_DPA(sub_bdl, bundle, nodename, error_string)) return ERROR;
    if (is_asic_supported(nodename) &&
        !check_sub_bundles_BCM(sub_bdl, bundle, nodename, error_string)) {
      return ERROR;
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: Sub-Bundle consistency check failed for {} {}, {}",
                                     error.what(), sub_bdl, bundle, nodename));
  }
}

}  // namespace tessel
