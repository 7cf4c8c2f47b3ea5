// The files of an audit, by the names that the library gives them. A test holds them against its
// sources.
#pragma once

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

namespace tessel_host {

inline constexpr const char* log_folder = "/var/log";
inline constexpr const char* capture_folder = "/tmp";
inline constexpr const char* debug_log = "/var/log/tessel_debug.log";
inline constexpr const char* exception_log = "/var/log/tessel_exception.log";

inline constexpr std::array<std::string_view, 7> log_names = {
    "tessel_exception.log",    "tessel_inconsistencies.log", "tessel_programming_error.log",
    "tessel_delay_delete.log", "tessel_bundle_health.log",   "tessel_stale_entries.log",
    "tessel_debug.log"};

// True for a log, and for whatever begins with its name, as its backup does.
[[nodiscard]] constexpr bool is_name_of_log(std::string_view name) {
  return std::any_of(log_names.begin(), log_names.end(),
                     [name](std::string_view log) { return name.starts_with(log); });
}

// Why a file of the host may not have this path: the audit would write to it or remove it. Empty if
// it may.
[[nodiscard]] std::string why_not_ours(const std::string& path);

// True if both paths lead to one file, or would, if it is not there yet.
[[nodiscard]] bool is_same_file(const std::string& one, const std::string& other);

// Of what the system says when a file cannot be opened, two causes are not plain.
[[nodiscard]] std::string cause_of(int error);

}  // namespace tessel_host
