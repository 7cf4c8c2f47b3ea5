#include "programming/mapping_checks.h"

#include <fmt/format.h>

#include <string>

#include "base/dump.h"
#include "base/failure.h"
#include "base/findings.h"
#include "base/numbers.h"
#include "base/text.h"
#include "checks/both_passes.h"
#include "checks/field_checks.h"
#include "programming/entry_checks.h"
#include "programming/lif_map.h"
#include "run/state.h"

namespace tessel {

namespace {

bool has_rif_to_verify(const record& obj) {
  return !obj.get("is_l2").truthy() && !(obj.get("rif") == DEFAULT);
}

void report_sem_missing(const record& obj, const object_name& err) {
  report_programming_error("Programming Error {}: SEMA/B entry is not present for glif {},{}",
                           plain(obj.get("glif")), err);
  check_delete_pending(obj, err);
}

// The LIF at `distance` from `llif`. A LIF that is held as text fails, since no number can be added
// to it.
std::string neighbour(const value& llif, std::int64_t distance) {
  if (!llif.is_integer()) {
    throw failure(fmt::format("cannot add {} to {}", distance, brief(llif)));
  }
  return std::to_string(llif.as_integer() + distance);
}

bool has_sem_entry(const value& llif, const chip& where, std::string_view key) {
  const auto present = [&](const std::string& number) {
    return verify_sem_entry(strip_set(number, "0x"), where, key).truthy();
  };
  return present(plain(llif)) || present(neighbour(llif, 1)) || present(neighbour(llif, -1));
}

}  // namespace

int get_glif_to_llif_vsi_mapping(std::string_view nodename, std::string_view npu, record& obj,
                                 const object_name& err, value* llif) {
  try {
    const std::string full_glif = obj.get("glif").as_text();
    const std::string_view glif = glif_tail(full_glif);
    const value lif_map = ask_lif_map(nodename, npu, glif);
    const matches found = lif_mappings_of(lif_map.as_text(), glif);
    if (found.empty()) {
      return report_programming_error(
          "Programming Error {}: Not able to find GLIF {} to LLIF mapping for {}", full_glif, err);
    }
    const value mapped = convert_to_hex(found[0][0]);
    obj.set("llif", mapped);
    if (llif != nullptr) *llif = mapped;
    if (!obj.get("is_l2").truthy()) {
      check_rif(convert_to_hex(found[0][1]), obj, err, "BCM_LIF_TO_VSI_MAPPING");
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: get_glif_to_llif_vsi_mapping failed for {}", error.what(), err));
  }
}

int verify_lif_rif_mac_mapping_key_llif(record& obj, const chip& where, std::string_view key,
                                        const object_name& err, int is_sub) {
  try {
    if (obj.get("glif") == DEFAULT) {
      // A note for support, which is neither counted nor shown to the operator.
      pprint(fmt::format("Programming Error {}: LIF/RIF verification failed for {}: GLIF {} is not "
                         "valid",
                         std::int64_t{st().programming_error}, err, plain(obj.get("glif"))),
             *st().dl_fd.require());
      return SUCCESS;
    }
    value llif;
    if (!get_glif_to_llif_vsi_mapping(where.nodename(), where.npu(), obj, err, &llif))
      return SUCCESS;
    if (!has_sem_entry(llif, where, key)) report_sem_missing(obj, err);
    if (has_rif_to_verify(obj)) verify_rif_entry(obj, where, err, is_sub);
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: verify_lif_rif_mac_mapping_key_llif failed for {}", error.what(), err));
  }
}

int verify_lif_rif_mac_mapping_key_vd(record& obj, const chip& where, std::string_view key,
                                      const object_name& err, int is_sub) {
  try {
    const value llif = verify_sem_entry(any_llif, where, key);
    if (llif == ERROR) {
      report_sem_missing(obj, err);
    } else {
      obj.set("llif", llif);
    }
    if (has_rif_to_verify(obj)) verify_rif_entry(obj, where, err, is_sub);
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: verify_lif_rif_mac_mapping_key_vd failed for {}", error.what(), err));
  }
}

int verify_lif_rif_mac_mapping_key_vd_j2(record& obj, const chip& where, const value&,
                                         const object_name& err, int is_sub) {
  try {
    // Only to fail if the record has no such field.
    convert_hex_to_int(obj.get("lagid"));
    if (has_rif_to_verify(obj)) {
      verify_rif_entry_j2(obj, where, err, is_sub, obj.get("rif"));
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    // The message is the same as on the earlier chips.
    return log_and_count(
        fmt::format("{}: verify_lif_rif_mac_mapping_key_vd failed for {}", error.what(), err));
  }
}

}  // namespace tessel
