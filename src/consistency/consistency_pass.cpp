#include "consistency/consistency_pass.h"

#include <fmt/format.h>

#include <algorithm>
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

// A job for each object would mostly wake carriers and put them to sleep.
constexpr std::size_t least_objects_of_a_walk = 8;

using node_list = std::vector<node_view>;
using node_turns = std::vector<const node_view*>;

// A bundle and the nodes that take part. Workers share it, because those of the bundle level may
// outlive the pass.
struct walked_bundle {
  std::shared_ptr<const bundle_view> bundle;
  std::shared_ptr<const node_list> nodes;
};

// The nodes whose `dump` flag is set; after collection nothing changes it.
std::shared_ptr<const node_list> dumped_nodes() {
  auto nodes = std::make_shared<node_list>();
  for (const auto& [nodename, node] : st().nodeinfo.get().as_map().items()) {
    if (node.at("dump").truthy()) nodes->emplace_back(nodename);
  }
  return nodes;
}

node_turns all_of(const node_list& nodes) {
  node_turns turns;
  for (const node_view& node : nodes) turns.push_back(&node);
  return turns;
}

bool is_asic_supported(const node_view& node) {
  return node.asic_supported.get().truthy();
}

// The first node that reports a value sets the expectation for the others. So the nodes take turns
// at one object, in their order, and the same router gives the same findings in every run. One
// worker walks them; what ends the check of one node does not end the walk.
//
// A walk may take several objects to each node: what the node holds of one lies beside what it
// holds of the next, and a large router's tables do not fit into the processor's cache.
template <class Check>
void walk(const walked_bundle& walked, const node_turns& nodes,
          const std::vector<std::string>& objects, Check check) {
  for (const node_view* node : nodes) {
    for (const std::string& object : objects) {
      run_contained([&] { check(object, *walked.bundle, *node); });
    }
  }
}

template <class Check>
std::shared_ptr<worker> start_walk(const walked_bundle& walked, node_turns nodes,
                                   std::vector<std::string> objects, Check check) {
  return start_worker([walked, nodes = std::move(nodes), objects = std::move(objects), check] {
    walk(walked, nodes, objects, check);
  });
}

// The pass does not wait for these workers. They are in the run-wide list, which nobody joins
// before the stale entry check.
void start_bundle_level(const walked_bundle& walked) {
  run_state& run = st();
  const std::string& name = walked.bundle->name;
  const auto pid = start_walk(walked, all_of(*walked.nodes), {name},
                              [](const std::string&, const bundle_view& bundle,
                                 const node_view& node) { check_bundles(bundle, node); });
  run.bundle_workers[name] = pid;
  run.pid_list.append(pid);
}

// The chip's members are looked up under the LAG id that the bundle level finds. Without this wait,
// a faster member level would report them as missing.
void wait_for_lag_id(const bundle_view& bundle) {
  if (bundle.element().get("lagid") == DEFAULT) wait_for_bundle_level(bundle.name);
}

// The members of the bundle on nodes that take part, each with its nodes. A member is on one node,
// but the active route processor and its standby can share one record.
std::vector<std::pair<std::string, node_turns>> members_with_nodes(const walked_bundle& walked) {
  std::vector<std::pair<std::string, node_turns>> found;
  std::unordered_map<std::string, std::size_t> positions;
  const value& members = walked.bundle->members();
  for (const node_view& node : *walked.nodes) {
    if (!members.contains(node.name)) continue;
    for (const std::string& member : members.in(node.name).as_map().keys()) {
      const auto [at, is_new] = positions.try_emplace(member, found.size());
      if (is_new) found.emplace_back(member, node_turns());
      found[at->second].second.push_back(&node);
    }
  }
  return found;
}

// Calls `take` with the objects of a bundle in parts, at most one for each core.
template <class Object, class Take>
void for_each_part(const std::vector<Object>& objects, Take take) {
  const std::size_t cores = width_of_crew();
  const std::size_t of_a_core = (objects.size() + cores - 1) / cores;
  const std::size_t size = std::max(least_objects_of_a_walk, of_a_core);
  for (std::size_t from = 0; from < objects.size(); from += size) {
    const auto first = objects.begin() + static_cast<std::ptrdiff_t>(from);
    const std::size_t count = std::min(size, objects.size() - from);
    take(std::vector(first, first + static_cast<std::ptrdiff_t>(count)));
  }
}

void run_member_level(const walked_bundle& walked) {
  worker_list pid_list_members;
  for_each_part(members_with_nodes(walked), [&](auto some) {
    pid_list_members.append(start_worker([walked, some = std::move(some)] {
      for (const auto& [member, nodes] : some) walk(walked, nodes, {member}, check_members);
    }));
  });
  pid_list_members.join_all();
}

// Checks every node that takes part, with or without members of the bundle.
void run_sub_bundle_level(const walked_bundle& walked) {
  worker_list pid_list_sub;
  for_each_part(walked.bundle->sub_bundles().as_map().keys(), [&](auto subs) {
    pid_list_sub.append(
        start_walk(walked, all_of(*walked.nodes), std::move(subs), check_sub_bundles));
  });
  pid_list_sub.join_all();
}

// Makes `nodes` at the first bundle that gets so far.
void check_one_bundle(const std::string& bundle, std::shared_ptr<const node_list>& nodes) {
  if (!check_bundles_PI(bundle)) return;
  if (!check_sub_bundles_PI(bundle)) return;
  if (!nodes) nodes = dumped_nodes();
  const walked_bundle walked{std::make_shared<const bundle_view>(bundle), nodes};
  start_bundle_level(walked);
  run_member_level(walked);
  run_sub_bundle_level(walked);
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
    std::shared_ptr<const node_list> nodes;
    for (const std::string& bundle : run.tesselDb.as_map().keys()) {
      if (bundle != "hqos") check_one_bundle(bundle, nodes);
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: Consistency check failed", error.what()));
  }
}

int check_bundles(const bundle_view& bundle, const node_view& node) {
  try {
    const value ifh = bundle.element().get("ifh");
    const auto named = [&] {
      return fmt::format("{}({}), {}", bundle.name, plain(ifh), node.name);
    };
    const object_name error_string(named);
    if (bundle.members().contains(node.name) && !check_bundles_PD(bundle, node, error_string)) {
      return ERROR;
    }
    if (!check_bundles_DPA(bundle, node, error_string)) return ERROR;
    if (is_asic_supported(node) && !check_bundles_BCM(bundle, node, error_string)) return ERROR;
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: Bundle consistency check failed for {}, {}", error.what(),
                                     bundle.name, node.name));
  }
}

int check_members(std::string_view member, const bundle_view& bundle, const node_view& node) {
  try {
    const value ifh = bundle.element().get("ifh");
    const auto named = [&] {
      return fmt::format("{},{}({}), {}", member, bundle.name, plain(ifh), node.name);
    };
    const object_name error_string(named);
    if (!check_members_PI(member, bundle, node, error_string)) return ERROR;
    if (!check_members_PD(member, bundle, node, error_string)) return ERROR;
    if (!check_members_DPA(member, bundle, node, error_string)) return ERROR;
    if (!is_asic_supported(node)) return SUCCESS;
    wait_for_lag_id(bundle);
    if (!check_members_BCM(member, bundle, node, error_string)) return ERROR;
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: Member consistency check failed for {} {}, {}",
                                     error.what(), member, bundle.name, node.name));
  }
}

int check_sub_bundles(std::string_view sub_bdl, const bundle_view& bundle, const node_view& node) {
  try {
    const record& element = bundle.sub_bundle(sub_bdl);
    // Without hierarchical QoS, sub-bundles have no LAG of their own.
    if (!bundle.hqos.get().truthy()) return SUCCESS;
    const value ifh = element.get("ifh");
    const auto named = [&] { return fmt::format("{}({}),{}", sub_bdl, plain(ifh), node.name); };
    const object_name error_string(named);
    if (!check_sub_bundles_DPA(sub_bdl, bundle, node, error_string)) return ERROR;
    if (is_asic_supported(node) && !check_sub_bundles_BCM(sub_bdl, bundle, node, error_string)) {
      return ERROR;
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: Sub-Bundle consistency check failed for {} {}, {}",
                                     error.what(), sub_bdl, bundle.name, node.name));
  }
}

}  // namespace tessel
