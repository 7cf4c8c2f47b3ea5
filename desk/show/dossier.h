// One bundle, all layers side by side.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include "desk/judge/judged_run.h"
#include "desk/show/terminal.h"

namespace desk {

// The bundle that a person means by a name ("BE12", "be12", "12", "Bundle-Ether12", "BE12.100"), a
// member ("0/0/0/1", "HundredGigE0/0/0/1"), a handle or a LAG id ("0x3000120", "0x11"). Nothing if
// the run has none.
[[nodiscard]] std::optional<std::string> bundle_meant(const judged_run& judged,
                                                      std::string_view word);

// "BE12.100" of a word that names a sub-bundle which neither the snapshot nor a message has; empty
// if one has it, if the word names none, or if no whole snapshot was read to know it from.
[[nodiscard]] std::string unknown_sub_bundle(const run& of, std::string_view word);

void show_dossier(const judged_run& of, std::string_view bundle, const terminal& on,
                  std::ostream& out);

}  // namespace desk
