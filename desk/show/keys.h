// The words of the machine formats: lower case, without blanks, and the same from version to
// version. People read `word_for` instead, which may change.
#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "desk/judge/judged_run.h"
#include "desk/model/names.h"
#include "desk/model/run.h"

namespace desk {

inline constexpr std::array all_finding_kinds = {
    finding_kind::inconsistency, finding_kind::programming, finding_kind::delay_delete,
    finding_kind::stale,         finding_kind::health,      finding_kind::failure,
    finding_kind::note};
inline constexpr std::array all_verdicts = {verdict::agrees, verdict::differs, verdict::not_judged};
inline constexpr std::array all_coverage_states = {
    coverage_state::read,   coverage_state::partly,         coverage_state::empty,
    coverage_state::failed, coverage_state::not_understood, coverage_state::never_asked,
    coverage_state::unknown};

// Every value has a key, also "none"; a compiler warns about a new value without one. Any thread.
[[nodiscard]] std::string_view key_for(layer of);
[[nodiscard]] std::string_view key_for(field of);
[[nodiscard]] std::string_view key_for(source of);
[[nodiscard]] std::string_view key_for(object_kind of);
[[nodiscard]] std::string_view key_for(coverage_state of);
[[nodiscard]] std::string_view key_for(finding_kind of);
[[nodiscard]] std::string_view key_for(run_end of);
[[nodiscard]] std::string_view key_for(stale_search of);
[[nodiscard]] std::string_view key_for(verdict of);
[[nodiscard]] std::string_view key_for(sureness of);
[[nodiscard]] std::string_view key_for(decltype(witness::is) of);

// The last value of each kind, whose key `key_for` also gives for what is no value at all.
template <typename Value>
inline constexpr Value last_value = Value::unknown;
template <>
inline constexpr layer last_value<layer> = layer::none;
template <>
inline constexpr field last_value<field> = field::none;
template <>
inline constexpr source last_value<source> = source::none;
template <>
inline constexpr object_kind last_value<object_kind> = object_kind::entry;
template <>
inline constexpr finding_kind last_value<finding_kind> = finding_kind::note;
template <>
inline constexpr verdict last_value<verdict> = verdict::not_judged;
template <>
inline constexpr witness::state last_value<witness::state> = witness::state::not_read;

// The value that has this key, or nothing. Any thread.
template <typename Value>
[[nodiscard]] std::optional<Value> value_for_key(std::string_view key) {
  for (unsigned i = 0; i <= static_cast<unsigned>(last_value<Value>); ++i)
    if (key_for(static_cast<Value>(i)) == key) return static_cast<Value>(i);
  return std::nullopt;
}

}  // namespace desk
