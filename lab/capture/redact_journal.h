// Removes confidential data from the journal of a recorded run.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace lab {

// Returns the journal with its texts as `redacted` returns them. What nobody can be certain about
// is left out: a line that is not a journal's, a key that no journal has, and a text that was cut
// or holds an escape, beside which an address may not be recognised.
std::string redacted_journal(std::string_view journal,
                             const std::function<std::string(const std::string&)>& redacted);

}  // namespace lab
