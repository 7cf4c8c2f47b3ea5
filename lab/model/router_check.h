// What no router can be, whatever its tools would print: two things with one number, a name that
// its type does not have, a value that no layer could hold.
#pragma once

#include <string>
#include <string_view>

#include "lab/model/router.h"

namespace lab {

// The place to tell of a thing: where it is described, or the file if that is not known.
std::string_view place_of(const std::string& written, std::string_view file);

// Throws `lab_error`, one line that begins with the place and names the object. The router's
// bundles, members and nodes belong together already.
void check_values(const router& r, std::string_view file);

}  // namespace lab
