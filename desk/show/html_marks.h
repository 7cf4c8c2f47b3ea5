// How the page marks what is good and what is not: by a colour, a sign and a word.
#pragma once

#include <cstdint>
#include <string_view>

#include "desk/judge/judged_run.h"

namespace desk {

// The greater one is the worse.
enum class mark : std::uint8_t { nothing, fine, doubt, warning, fault };

struct look {
  std::string_view css;  // the class
  std::string_view sign;
  std::string_view word;
};

[[nodiscard]] look look_of(mark of);
[[nodiscard]] mark mark_of(finding_kind kind);
[[nodiscard]] mark mark_of(verdict is);
[[nodiscard]] mark mark_of(const coverage& answer);
[[nodiscard]] mark mark_of(const run& of, const cause& why);
[[nodiscard]] mark mark_of(const judged_run& of);

}  // namespace desk
