#include "programming/entry_checks.h"

#include <fmt/format.h>

#include "base/dump.h"
#include "base/failure.h"
#include "base/findings.h"
#include "base/numbers.h"
#include "base/text.h"
#include "checks/both_passes.h"
#include "programming/chip_rows.h"
#include "programming/lif_map.h"
#include "run/state.h"

namespace tessel {

namespace {

constexpr std::size_t compared_mac_digits = 3;

std::int64_t low_bits_of_mac(const record& obj) {
  const std::string mac = obj.get("mac").as_text();
  return to_hexadecimal(tail(mac, compared_mac_digits)) & mask;
}

void report_rif_missing(const record& obj, const object_name& err) {
  report_programming_error("Programming Error {}: DPA RIF {} not found in BCM for {}",
                           plain(obj.get("rif")), err);
}

}  // namespace

int verify_vlan_domain(const value& bundle_vd, const value& member_vd, const value& member,
                       const object_name& err) {
  try {
    if (bundle_vd == member_vd) return SUCCESS;
    return report_programming_error(
        "Programming Error {}: {} Vlan Domain {} != Member {} Vlan Domain {}", err,
        plain(bundle_vd), plain(member), plain(member_vd));
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: vlan domain verification failed for {}", error.what(), err));
  }
}

value verify_sem_entry(std::string_view llif, const chip& where, std::string_view key) {
  try {
    for (const sem_name name : {sem_name::a, sem_name::b}) {
      const sem_table& table = where.sem(name);
      if (llif != any_llif) {
        if (table.has_braced_row()) return SUCCESS;
      } else if (const auto payload = table.payload_of(key)) {
        return convert_to_hex(*payload);
      }
    }
    return ERROR;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: SEM entry verification failed", error.what()));
  }
}

int verify_sem_entry_j2(std::string_view, const chip& where, std::string_view pp_port,
                        std::string_view glif) {
  try {
    static const pattern& in_lif = constant(R"((?<=\s)IN_LIF\s+(\d+))");
    const value lif = where.table("lif").at(pp_port);
    const std::string_view digits = glif_tail(glif);
    const value lif_map = ask_lif_map(where.nodename(), where.npu(), digits);
    const matches found = findall(in_lif, lif_map.as_text());
    if (found.empty()) throw failure(fmt::format("no in-LIF for {}", digits));
    return lif == found.text(0) ? SUCCESS : ERROR;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: SEM entry verification failed", error.what()));
  }
}

int verify_rif_entry(const record& obj, const chip& where, const object_name& err, int is_sub) {
  try {
    if (is_sub) return SUCCESS;
    const std::string rif = std::to_string(to_integer(obj.get("rif")));
    const auto bcmMac = vsi_mac_of(where.table("VSI").as_shared_text(), rif);
    if (!bcmMac) {
      report_rif_missing(obj, err);
      return SUCCESS;
    }
    const std::int64_t piMac = low_bits_of_mac(obj);
    if (piMac != (to_hexadecimal(*bcmMac) & mask)) {
      report_programming_error("Programming Error {}: BM PI MAC {} != BCM MAC MSB {} for {}",
                               plain(obj.get("mac")), *bcmMac, err);
      check_delete_pending(obj, err);
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: RIF verification failed for {}", error.what(), err));
  }
}

int verify_rif_entry_j2(const record& obj, const chip& where, const object_name& err, int is_sub,
                        const value& rif) {
  try {
    if (is_sub) return SUCCESS;
    const std::string row = plain(convert_hex_to_int(rif));
    const std::int64_t bcmMac = to_decimal(where.table("VSI").at(row));
    if (bcmMac == 0) {
      report_rif_missing(obj, err);
      return SUCCESS;
    }
    const std::int64_t piMac = low_bits_of_mac(obj);
    if (piMac != bcmMac) {
      // The message would quote the first element of the chip's MAC, which on this family is a
      // number. So the difference appears only in the counter and as this function's failure.
      ++st().programming_error;
      throw failure(fmt::format("the chip's MAC {} has no first element", bcmMac));
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: RIF verification failed for {}", error.what(), err));
  }
}

}  // namespace tessel
