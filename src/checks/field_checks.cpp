#include "checks/field_checks.h"

#include <fmt/format.h>

#include <optional>
#include <string>

#include "base/dump.h"
#include "base/findings.h"
#include "base/numbers.h"
#include "base/text.h"
#include "run/state.h"

namespace tessel {

namespace {

constexpr std::size_t compared_lif_digits = 4;
constexpr std::size_t shortest_glif = 5;

// The result of comparing a reported LIF with a record.
enum class lif_verdict { agrees, too_short, differs };

}  // namespace

int is_node_present(std::string_view nodename, const value& obj, std::string_view type,
                    std::string_view layer) {
  try {
    if (obj.contains(nodename)) return SUCCESS;
    return inconsistency("Inconsistency {}: {} has no {} entry in location {}", layer, type,
                         nodename);
  } catch (const std::exception& error) {
    return count_and_log(fmt::format("{}: is_node_present check failed for {} in {}", error.what(),
                                     nodename, layer));
  }
}

int is_entry_present(const value& entry, const value& obj, std::string_view layer,
                     const object_name& error_string) {
  try {
    if (entry == DEFAULT) return ERROR;
    const auto held = obj.get(entry.as_text());
    if (!held)
      return inconsistency("Inconsistency {}: {} has no entry for {}", layer, error_string);
    held->as_map().mark_visited();
    return SUCCESS;
  } catch (const std::exception& error) {
    return count_and_log(fmt::format("{}: is_entry_present verification failed for {} in {}",
                                     error.what(), error_string, layer));
  }
}

int check_lagid(const value& lagid, record& element, const object_name& error_string,
                std::string_view layer) {
  try {
    const auto held = element.expect("lagid", lagid);
    if (!held) return SUCCESS;
    return inconsistency("Inconsistency {}:{} Lag ID is not consistent in {}:{}, Expected:{}",
                         error_string, layer, plain(*held), plain(lagid));
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: lagid verification failed {}", error.what(), error_string));
  }
}

int check_mtu(const value& mtu, record& element, const object_name& error_string,
              std::string_view layer) {
  try {
    const auto held = element.expect("mtu", mtu);
    if (!held) return SUCCESS;
    return inconsistency("Inconsistency {}:{} MTU is not consistent in {}:{}, Expected:{}",
                         error_string, layer, plain(*held), plain(mtu));
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: mtu verification failed {}", error.what(), error_string));
  }
}

int check_rif(const value& rif, record& element, const object_name& error_string,
              std::string_view layer) {
  try {
    const auto held = element.expect("rif", rif);
    if (!held) return SUCCESS;
    return inconsistency("Inconsistency {}:{} RIF is not consistent in {}:{}, Expected:{}",
                         error_string, layer, plain(rif), plain(*held));
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: RIF verification failed for {}", error.what(), error_string));
  }
}

int check_memid(const value& memid, record& element, const object_name& error_string,
                std::string_view layer) {
  try {
    const auto held = element.expect("memid", memid);
    if (!held) return SUCCESS;
    return inconsistency("Inconsistency {}:{} Member ID is not consistent in {}:{}, Expected:{}",
                         error_string, layer, plain(memid), plain(*held));
  } catch (const std::exception& error) {
    // This message always says "error_string" literally; it does not contain the object's name.
    return log_and_count(
        fmt::format("{}: Member ID verification failed for error_string", error.what()));
  }
}

int check_lif(const value& lif, record& element, const object_name& error_string,
              std::string_view layer) {
  try {
    const std::string_view reported = lif.as_text();
    std::string held;
    const lif_verdict verdict = element.in_one_step("glif", [&](value& glif) {
      if (glif == DEFAULT) {
        if (reported.size() < shortest_glif) return lif_verdict::too_short;
        glif = lif;
        return lif_verdict::agrees;
      }
      held = glif.as_text();
      return tail(held, compared_lif_digits) == tail(reported, compared_lif_digits)
                 ? lif_verdict::agrees
                 : lif_verdict::differs;
    });
    if (verdict == lif_verdict::agrees) return SUCCESS;
    if (verdict == lif_verdict::too_short) {
      return inconsistency("Inconsistency {}:{} GLIF is not consistent in {}:{},Expected:0xXX{}",
                           error_string, layer, reported, strip_set(reported, "0x"));
    }
    return inconsistency("Inconsistency {}:{} GLIF is not consistent in {}:{},Expected:{}",
                         error_string, layer, reported, held);
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: LIF verification failed for {}", error.what(), error_string));
  }
}

int check_mac(const value& mac, record& element, const object_name& error_string,
              std::string_view layer) {
  try {
    const std::string held = element.get("mac").as_text();
    const std::string ele_mac = replace_all(held, ".", "");
    const std::string reported = replace_all(mac.as_text(), ":", "");
    if (ele_mac == reported) return SUCCESS;
    return inconsistency("Inconsistency {}:{} MAC is not consistent in {}:{}, Expected:{}",
                         error_string, layer, reported, held);
  } catch (const std::exception& error) {
    return log_and_count(
        fmt::format("{}: MAC verification failed for {}", error.what(), error_string));
  }
}

int check_bundle_type(const value& is_l2, record& element, const object_name& error_string,
                      std::string_view layer) {
  try {
    const value held = element.get("is_l2");
    if (held == value(to_integer(is_l2))) return SUCCESS;
    return inconsistency(
        "Inconsistency {}:{} Bundle type (is_l2/l3) is not consistent in {}:{} & Running config: "
        "{}",
        error_string, layer, plain(is_l2), plain(held));
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: bundle type (l2/l3) verification failed for {}",
                                     error.what(), error_string));
  }
}

}  // namespace tessel
