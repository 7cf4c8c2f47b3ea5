// What the steps of the judge share while they work on one run.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "desk/judge/judged_run.h"

namespace desk {

// The place that differs first, and all that is explained by it.
struct place_key {
  std::string bundle;
  std::string node;
  layer first;
  auto operator<=>(const place_key&) const = default;
};

struct judging {
  judged_run& into;
  std::vector<difference> differences{};
  std::vector<bool> is_explained{};                 // by finding
  std::map<place_key, std::size_t> known_causes{};  // indexes in judged_run::causes

  [[nodiscard]] const run& of() const { return into.of; }
};

// The steps, in their order. Each adds causes and marks the findings that they explain.
void add_holes(judging& at);         // what was not read
void take_differences(judging& at);  // values and entries that differ
void take_findings(judging& at);     // what is left of the messages

// The cause for a place, which is made if it is new.
[[nodiscard]] cause& cause_at(judging& at, const place_key& key);

// Of the odd witnesses the one of the uppermost layer; null if none is odd.
[[nodiscard]] const witness* first_odd(const difference& of);

// It could not be verified, as opposed to being wrong.
[[nodiscard]] bool is_doubt(const finding& one);
// More is configured than the router allows: a note, but about something that is wrong.
[[nodiscard]] bool is_scale(const finding& one);
// The cause reports something that is wrong, not only what could not be judged.
[[nodiscard]] bool is_difference(const run& of, const cause& one);

// ---- Words --------------------------------------------------------------------------------------

// The first line of a text, no longer than this: a message may hold a name of 40,000 digits.
inline constexpr std::size_t longest_text = 160;
[[nodiscard]] std::string shortened(std::string_view text, std::size_t longest = longest_text);
[[nodiscard]] std::string title_of(const difference& of);
[[nodiscard]] std::string title_of(const finding& of);
[[nodiscard]] std::string words_for_place(const coverage& at);

}  // namespace desk
