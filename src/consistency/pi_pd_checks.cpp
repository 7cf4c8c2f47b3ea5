#include "consistency/pi_pd_checks.h"

#include <fmt/format.h>

#include "base/findings.h"
#include "base/numbers.h"
#include "checks/both_passes.h"
#include "checks/field_checks.h"
#include "consistency/im_handles.h"
#include "run/state.h"

namespace tessel {

namespace {

bool is_standby(const node_view& node) {
  return node.act_standby.get() == "Standby";
}

}  // namespace

int check_bundles_PI(std::string_view bundle) {
  try {
    const value bdlInfoPI = st().bdlInfoPI.get();
    if (!is_entry_present(bundle, bdlInfoPI, "BM PI", bundle)) return ERROR;
    const value bdl = bdlInfoPI.at(bundle);
    record& element = bundle_record(bundle);
    element.set("ifh", bdl.at("ifh"));
    element.set("mac", bdl.at("mac"));
    element.set("mtu", bdl.at("mtu"));
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: BM PI Bundle verification failed for {}", error.what(), bundle));
  }
}

int check_sub_bundles_PI(std::string_view bundle) {
  try {
    const value sub_list = bundle_record(bundle).get("sub_bundles");
    for (const auto& [sub_bdl, sub_bundle] : sub_list.as_map().items()) {
      const auto ifh = im_handle_of(st().bdlSubPI.get().as_shared_text(), sub_bdl);
      if (!ifh) {
        inconsistency("Inconsistency {}:Data for sub-bundle {} not found in IM database", sub_bdl);
        continue;
      }
      sub_bundle.as_record().set("ifh", convert_to_hex(*ifh));
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: PI sub-bundle verification failed for {}", error.what(), bundle));
  }
}

int check_members_PI(std::string_view member, const bundle_view& bundle, const node_view& node,
                     const object_name& error_string) {
  try {
    const value members = bundle.members().at(node.name);
    const value pi_members = st().bdlInfoPI.get().at(bundle.name).at("members");
    if (!is_entry_present(member, pi_members, "BM PI Member", error_string)) return ERROR;
    record& element = members.at(member).as_record();
    element.set("ifh", pi_members.at(member).at("mifh"));
    element.set("mtu", st().mbrInfoPI.get().at(member));
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: BM PI verification failed for {}", error.what(), error_string));
  }
}

int check_bundles_PD(const bundle_view& bundle, const node_view& node,
                     const object_name& error_string) {
  try {
    if (is_standby(node)) return SUCCESS;
    const value bdlInfoPD = st().bdlInfoPD.get();
    if (!is_entry_present(bundle.name, bdlInfoPD, "BME", error_string)) return ERROR;
    const value pd = bdlInfoPD.at(bundle.name);
    if (!is_node_present(node.name, pd, "Bundle", "BME")) return ERROR;
    return check_lagid(pd.at(node.name).at("lagid"), bundle.element(), error_string, "BME");
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: BME Bundle verification failed for {}", error.what(), error_string));
  }
}

int check_members_PD(std::string_view member, const bundle_view& bundle, const node_view& node,
                     const object_name& error_string) {
  try {
    if (is_standby(node)) return SUCCESS;
    const value members = bundle.members().at(node.name);
    const value pd_members = st().bdlInfoPD.get().at(bundle.name).at("members").at(node.name);
    if (!is_entry_present(member, pd_members, "BME", error_string)) return ERROR;
    record& element = members.at(member).as_record();
    const value pd_member = pd_members.at(member);
    if (!(element.get("npu_id") == pd_member.at("npu"))) {
      return inconsistency("Inconsistency {}: NPU ID is not consistent in BME for Member {}, {}",
                           member, error_string);
    }
    return check_memid(pd_member.at("memid"), element, error_string, "BME_Members");
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: BME member verification failed for {}", error.what(), error_string));
  }
}

}  // namespace tessel
