// The words and numbers that every phase shares.
#pragma once

#include <cstdint>
#include <string_view>

namespace tessel {

// What a field holds that has no value yet.
inline constexpr std::string_view DEFAULT = "Not set";

// What a function returns when it did its job, and when it failed.
inline constexpr int SUCCESS = 1;
inline constexpr int ERROR = 0;

// The width to which a phase pads its title with ".".
inline constexpr std::size_t DOTS = 40;

enum router_type : int {
  notset = 0,
  invalid = 1,
  aspen = 2,
  birch = 3,
  cedar = 4,
  cedarl = 5,
  dogwood = 6,
  elm = 7,
  fir = 8,
  gorse = 9,
};

inline constexpr std::string_view LOG_FILE_EXCEPTION = "/var/log/tessel_exception.log";
inline constexpr std::string_view LOG_FILE_INCONSISTENT = "/var/log/tessel_inconsistencies.log";
inline constexpr std::string_view LOG_FILE_PROGRAMMING_ERROR =
    "/var/log/tessel_programming_error.log";
inline constexpr std::string_view LOG_FILE_DELETE_PENDING = "/var/log/tessel_delay_delete.log";
inline constexpr std::string_view LOG_FILE_STALE_ENTRIES = "/var/log/tessel_stale_entries.log";
inline constexpr std::string_view LOG_FILE_BUNDLE_HEALTH = "/var/log/tessel_bundle_health.log";
inline constexpr std::string_view LOG_FILE_DEBUG = "/var/log/tessel_debug.log";

}  // namespace tessel
