// The output of a generated router's tools, as the parsers get it.
#pragma once

#include <string>
#include <string_view>

#include "lab/capture/capture.h"
#include "lab/model/generate.h"

namespace bench {

// A router with this many bundles, on four cards of two NPUs, with hqos on. Each bundle has four
// members, eight layer 2 sub-bundles and one layer 3 sub-bundle.
lab::generate_request sized(unsigned bundles);

// The answer to one command line at `place`, an address or "local". As grep would, it keeps the
// lines that match `kept` and none of `dropped`; either may be empty.
std::string text_of(unsigned bundles, std::string_view place, std::string_view command_line,
                    std::string_view kept = "", std::string_view dropped = "");

// The address of the n-th line card.
std::string card_address(unsigned bundles, unsigned card);

}  // namespace bench
