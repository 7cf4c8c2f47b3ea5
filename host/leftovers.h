// The files that an audit leaves if it does not come to its end, and what is in their place.
#pragma once

#include <cstddef>
#include <ctime>
#include <string>
#include <vector>

namespace tessel_host {

// The capture files in /tmp that were written at or after that time and belong to the caller's
// user, sorted. Only files: no links and no folders.
[[nodiscard]] std::vector<std::string> captures_since(std::time_t began);

// Removes them. Returns those that stay.
std::vector<std::string> remove_captures_since(std::time_t began);

// What has the name of a capture in /tmp and what the audit cannot remove when it begins, such as a
// folder: each path with what it is and whose, "'/tmp/tessel_0.log' (a folder of user 1000)", the
// first ones by name and then how many more. Empty if there is none. Anybody can make one.
[[nodiscard]] std::string captures_in_the_way();

// Removes the part of a line at the end of the file. Returns false if it cannot, or if that is no
// file, a link, or another user's.
bool drop_torn_line(const std::string& path);

}  // namespace tessel_host
