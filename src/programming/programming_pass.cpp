#include "programming/programming_pass.h"

#include <fmt/format.h>

#include <cstdint>
#include <unordered_set>

#include "base/dump.h"
#include "base/failure.h"
#include "base/findings.h"
#include "base/numbers.h"
#include "base/print.h"
#include "base/text.h"
#include "base/worker.h"
#include "checks/both_passes.h"
#include "platform/router_type.h"
#include "programming/entry_checks.h"
#include "programming/mapping_checks.h"
#include "programming/sem_keys.h"
#include "run/state.h"

namespace tessel {

namespace {

constexpr int of_bundle = 0;
constexpr int of_sub_bundle = 1;

// Names a bundle or sub-bundle on one NPU of a node.
std::string object_on_npu(std::string_view name, const record& element, std::string_view npu,
                          std::string_view nodename) {
  return fmt::format("{}({}) NPU {},{}", name, plain(element.get("ifh")), npu, nodename);
}

// Reports a missing VLAN domain only if the run has no earlier inconsistency or failure, which
// would explain it. First waits for all workers, because other bundles' workers may still report
// one.
void report_vlan_domain_missing(const std::string& bundle, const record& element,
                                const std::string& nodename) {
  st().pid_list.join_all();
  if (st().exception != 0 || st().inconsistent != 0) return;
  const std::string err = fmt::format("{}({}), {}", bundle, plain(element.get("ifh")), nodename);
  report_programming_error("Programming Error{}:Not able to get vlan domain for {}", err);
  check_delete_pending(element, err);
}

// Starts the task of each NPU at its first member whose VLAN domain agrees.
void start_npus(const std::string& bundle, const std::string& nodename, worker_list& workers) {
  const record& element = bundle_record(bundle);
  const value members = element.get("members").at(nodename);
  std::unordered_set<std::string> started;
  for (const auto& [mName, mem] : members.as_map().items()) {
    const record& port = mem.as_record();
    const std::string npu = port.get("npu_id").as_text();
    const auto named = [&] { return object_on_npu(bundle, element, npu, nodename); };
    const object_name err(named);
    const value bundle_vd = element.get("vlan_domain").at(nodename).at(npu);
    const bool j2 = is_j2(nodename) != ERROR;
    if (!j2 && !verify_vlan_domain(bundle_vd, port.get("vlan_domain").at(nodename),
                                   port.get("name"), err)) {
      check_delete_pending(element, err);
      continue;
    }
    const std::string vd(strip_set(bundle_vd.as_text(), "0x"));
    if (!started.insert(npu).second) continue;
    const auto task = j2 ? check_bdl_prgm_task_j2 : check_bdl_prgm_task;
    workers.append(
        start_worker([=, mem = mem, err = err.text()] { task(bundle, nodename, mem, vd, err); }));
  }
}

void check_one_bundle(const std::string& bundle) {
  // The bundle's workers of the consistency pass set its VLAN domains. A slow worker must not make
  // a healthy router look faulty.
  wait_for_bundle_level(bundle);
  worker_list pid_list_prgm;
  const record& element = bundle_record(bundle);
  for (const auto& [nodename, node] : st().nodeinfo.get().as_map().items()) {
    if (!node.at("asic_supported").truthy() || !node.at("dump").truthy()) continue;
    if (!element.get("members").contains(nodename)) continue;
    if (!element.get("vlan_domain").contains(nodename)) {
      report_vlan_domain_missing(bundle, element, nodename);
      continue;
    }
    start_npus(bundle, nodename, pid_list_prgm);
  }
  pid_list_prgm.join_all();
}

// The tables at hand do not say where a global LIF is: the chip is asked for each.
bool is_asked_of_chip(record& sub_obj) {
  return sub_obj.in_one_step("encap", [](const value& encap) {
    return encap.is_list() && way_to_entries(encap.as_list()) == found_by::global_lif;
  });
}

// Calls `check` for each sub-bundle, then `check_bundle` if the bundle has untagged traffic, and
// waits. Where the chip is asked, all its answers are awaited at once, each on a worker of its own;
// the comparisons of the others need none. On a chip that is never asked, `can_be_asked` is false.
template <class SubCheck, class BundleCheck>
void check_with_sub_bundles(const std::string& bundle, const chip& where, bool can_be_asked,
                            SubCheck check, BundleCheck check_bundle) {
  record& element = bundle_record(bundle);
  const value sub_list = element.get("sub_bundles");
  worker_list pid_list_prgm;
  const join_at_end waiting(pid_list_prgm);
  sub_list.as_map().for_each([&, place = here::current()](std::string_view sub, const value& each) {
    record& sub_obj = each.as_record(place);
    const auto named = [&] { return object_on_npu(sub, sub_obj, where.npu(), where.nodename()); };
    if (can_be_asked && is_asked_of_chip(sub_obj)) {
      pid_list_prgm.append(start_worker([&check, &sub_obj, on_chip = chip(where),
                                         sub_err = named()] { check(sub_obj, on_chip, sub_err); }));
    } else {
      run_contained([&] { check(sub_obj, where, object_name(named)); });
    }
  });
  if (element.get("untagged") == 1) check_bundle(element);
}

// The key of a sub-bundle with two tags.
std::string two_tag_key(std::string_view vd, const value& outer) {
  const std::int64_t first = to_decimal(outer);
  std::int64_t tag = 0;
  if (__builtin_mul_overflow(first, 2, &tag)) {
    throw failure(fmt::format("{} is too large a VLAN", plain(outer)));
  }
  return two_tag_key_of(vd, first, tag);
}

}  // namespace

int check_bundle_programming() {
  run_state& run = st();
  try {
    print_title("Bundle Programming Check");
    run.chip_tables.set(run.BCM.get());
    for (const std::string& bundle : run.tesselDb.as_map().keys()) {
      if (bundle != "hqos") check_one_bundle(bundle);
    }
    run.chip_tables.set(value());
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: Bundle programming verification failed", error.what()));
  }
}

int check_bdl_prgm_task(const std::string& bundle, const std::string& nodename, const value& mem,
                        const std::string& vd, const std::string& err) {
  try {
    const chip where(nodename, mem.as_record().get("npu_id").as_text());
    check_with_sub_bundles(
        bundle, where, true,
        [&](record& sub_obj, const chip& on_chip, const object_name& sub_err) {
          check_sub_bdl_prgm_task(sub_obj, on_chip, vd, sub_err);
        },
        [&](record& element) {
          verify_lif_rif_mac_mapping_key_vd(element, where, untagged_key(vd), err, of_bundle);
        });
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format(
        "{}: Hardware data unavailable/check_bdl_prgm_task failed for {}", error.what(), bundle));
  }
}

int check_bdl_prgm_task_j2(const std::string& bundle, const std::string& nodename, const value& mem,
                           const std::string& vd, const std::string& err) {
  try {
    const chip where(nodename, mem.as_record().get("npu_id").as_text());
    const value npu_core = mem.as_record().get("npu_core");
    check_with_sub_bundles(
        bundle, where, false,
        [&](record& sub_obj, const chip& on_chip, const object_name& sub_err) {
          check_sub_bdl_prgm_task_j2(sub_obj, on_chip, vd, npu_core, sub_err);
        },
        [&](record& element) {
          verify_lif_rif_mac_mapping_key_vd_j2(element, where, npu_core, err, of_bundle);
        });
    return SUCCESS;
  } catch (const std::exception& error) {
    // The message is the same as on the earlier chips.
    return log_and_count(fmt::format(
        "{}: Hardware data unavailable/check_bdl_prgm_task failed for {}", error.what(), bundle));
  }
}

int check_sub_bdl_prgm_task(record& sub_obj, const chip& where, std::string_view vd,
                            const object_name& err) {
  try {
    const value encap = sub_obj.get("encap");
    const value_list& tags = encap.as_list();
    switch (way_to_entries(tags)) {
      case found_by::one_tag:
        verify_lif_rif_mac_mapping_key_vd(sub_obj, where, one_tag_key(vd, to_decimal(tags[0])), err,
                                          of_sub_bundle);
        break;
      case found_by::two_tags:
        verify_lif_rif_mac_mapping_key_vd(sub_obj, where, two_tag_key(vd, tags[0]), err,
                                          of_sub_bundle);
        break;
      case found_by::global_lif:
        verify_lif_rif_mac_mapping_key_llif(sub_obj, where, vd, err, of_sub_bundle);
        break;
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: verify_lif_rif_mac_mapping failed for {}", error.what(), err));
  }
}

int check_sub_bdl_prgm_task_j2(record& sub_obj, const chip& where, std::string_view,
                               const value& npu_core, const object_name& err) {
  try {
    verify_lif_rif_mac_mapping_key_vd_j2(sub_obj, where, npu_core, err, of_sub_bundle);
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: verify_lif_rif_mac_mapping failed for {}", error.what(), err));
  }
}

}  // namespace tessel
