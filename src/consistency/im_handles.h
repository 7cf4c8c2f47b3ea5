// The interface manager's sub-bundle listing, read once and looked up by sub-bundle name.
//
//   0x3000a60 BE12.100 ...
//   im_handle_of(listing, "BE12.100")   // "0x3000a60"
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tessel {

// Defines one search of the listing; the braces take the name with its points escaped. The blank
// after the braces keeps BE1.1 from matching BE1.10.
inline constexpr std::string_view im_handle_definition = R"((0x\w+)\s{} )";

// The first handle that the listing has for `sub_bdl` ("BE12.100"), as printed; nothing if it has
// none. Throws `failure` if the listing cannot be searched. Any thread.
std::optional<std::string> im_handle_of(const std::shared_ptr<const std::string>& listing,
                                        std::string_view sub_bdl);

}  // namespace tessel
