// The fixed parts of the page.
#pragma once

#include <string_view>

namespace desk {

[[nodiscard]] std::string_view page_style();
[[nodiscard]] std::string_view page_script();

// Of the script, in the form of a content security policy. A browser runs no script with another
// one; a test compares it with the script.
[[nodiscard]] std::string_view page_script_hash();

}  // namespace desk
