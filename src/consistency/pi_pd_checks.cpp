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

bool is_standby(std::string_view nodename) {
  return st().nodeinfo.get().at(nodename).at("act_standby") == "Standby";
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

int check_members_PI(std::string_view member, std::string_view bundle, std::string_view nodename,
                     std::string_view error_string) {
  try {
    const value members = bundle_record(bundle).get("members").at(nodename);
    const value pi_members = st().bdlInfoPI.get().at(bundle).at("members");
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

int check_bundles_PD(std::string_view bundle, std::string_view nodename,
                     std::string_view error_string) {
  try {
    if (is_standby(nodename)) return SUCCESS;
    const value bdlInfoPD = st().bdlInfoPD.get();
    if (!is_entry_present(bundle, bdlInfoPD, "BME", error_string)) return ERROR;
    const value pd = bdlInfoPD.at(bundle);
    if (!is_node_present(nodename, pd, "Bundle", "BME")) return ERROR;
    return check_lagid(pd.at(nodename).at("lagid"), bundle_record(bundle), error_string, "BME");
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: BME Bundle verification failed for {}", error.what(), error_string));
  }
}

int check_members_PD(std::string_view member, std::string_view bundle, std::string_view nodename,
                     std::string_view error_string) {
  try {
    if (is_standby(nodename)) return SUCCESS;
    const value members = bundle_record(bundle).get("members").at(nodename);
    const value pd_members = st().bdlInfoPD.get().at(bundle).at("members").at(nodename);
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
