// What the tools of a generated router print, as the parsers get it.
#pragma once

#include <string>
#include <string_view>

#include "lab/capture/capture.h"
#include "lab/model/generate.h"

namespace bench {

// A router with this many bundles: four members each, eight layer 2 and one layer 3 sub-bundle for
// every bundle, on four cards of two NPUs, hqos on.
lab::generate_request sized(unsigned bundles);

// The answer to one command line, at an address or "local", with the lines that hold a match of
// `kept` and none of `dropped` (either may be empty), as grep would leave them.
std::string text_of(unsigned bundles, std::string_view place, std::string_view command_line,
                    std::string_view kept = "", std::string_view dropped = "");

// The address of the n-th line card.
std::string card_address(unsigned bundles, unsigned card);

}  // namespace bench
