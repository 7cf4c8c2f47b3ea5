// How the earlier chips' tables SEMA and SEMB are asked for an object.
//
//   one_tag_key("111", 100)   // "111064"
//   untagged_key("111")       // "111fff"
//
// `vd` is the bundle's VLAN domain without the characters "0" and "x" at both ends. The functions
// throw no `failure`. Any thread.
#pragma once

#include <fmt/compile.h>
#include <fmt/format.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "base/value.h"

namespace tessel {

// Where a sub-bundle's entries are on a chip, by its tags.
enum class found_by : std::uint8_t { one_tag, two_tags, global_lif };

inline found_by way_to_entries(const value_list& tags) {
  if (tags.size() == 1 && !(tags[0] == "untagged")) return found_by::one_tag;
  return tags.size() == 2 ? found_by::two_tags : found_by::global_lif;
}

// The key of a sub-bundle with one tag.
inline std::string one_tag_key(std::string_view vd, std::int64_t tag) {
  return fmt::format(FMT_COMPILE("{}{:03x}"), vd, tag);
}

// The key of a sub-bundle with two tags. Both of its fields are made from the outer tag: `doubled`
// is twice that.
inline std::string two_tag_key_of(std::string_view vd, std::int64_t outer, std::int64_t doubled) {
  return fmt::format(FMT_COMPILE("{:03x}{}{:03x}"), doubled, vd, outer);
}

// The key of a bundle with untagged traffic.
inline std::string untagged_key(std::string_view vd) {
  return std::string(vd) + "fff";
}

}  // namespace tessel
