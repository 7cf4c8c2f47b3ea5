// Checks for impossible routers: two objects with one number, a name that the type does not have, a
// value that no layer can hold.
#pragma once

#include <string>
#include <string_view>

#include "lab/model/router.h"

namespace lab {

// The place of an object for messages: the line of its description, or the file if that is not
// known.
std::string_view place_of(const std::string& written, std::string_view file);

// Throws `lab_error`, one line that begins with the place and names the object. The members must
// already refer to existing nodes.
void check_values(const router& r, std::string_view file);

}  // namespace lab
