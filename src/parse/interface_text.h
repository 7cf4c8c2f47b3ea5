// What the text of an interface says about it. A configuration has one for each of thousands of
// sub-bundles, and a pattern with a name in it would be compiled for one search.
//
//   'interface Bundle-Ether12.100 l2transport encapsulation dot1q 100'
//
// Each function here finds what the pattern beside it defines; the braces take the interface head.
// The head is not escaped, so its point matches any character. A head of plain characters and
// points is looked for without a pattern. Any other head is looked for with one, which finds the
// same if all that the head matches has one length. These functions throw `failure` if such a head
// makes no valid pattern or too large a one.
//
// All functions may be called from any thread.
#pragma once

#include <string_view>

#include "base/here.h"
#include "base/value.h"

namespace tessel {

// True if the text shows the interface as layer 2.
inline constexpr std::string_view l2_definition = "{}.*l2transport";
bool is_layer_2(std::string_view text, std::string_view head, here where = here::current());

inline constexpr std::string_view keyword_definition =
    R"([^\s]{}.*(encapsulation|l2transport encapsulation))";
bool has_encapsulation(std::string_view text, std::string_view head, here where = here::current());

// The VLAN tags, outer first: what `tag_definition` finds in the list text form of what
// `tagged_definition` finds.
inline constexpr std::string_view tagged_definition =
    R"([^\s]{}.*(encapsulation|l2transport encapsulation) )"
    R"((dot1q \d+ second-dot1q \d+|dot1ad \w+ dot1q \d+|dot1q \d+|dot1ad \d+))";
inline constexpr std::string_view tag_definition = R"(dot\w+\s(\d+))";
value_list tags_of(std::string_view text, std::string_view head, here where = here::current());

inline constexpr std::string_view untagged_definition = "{} l2transport.*encapsulation.*(untagged)";
bool is_untagged(std::string_view text, std::string_view head, here where = here::current());

}  // namespace tessel
