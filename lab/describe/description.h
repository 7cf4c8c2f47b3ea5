// Reads router descriptions: TOML files that say what a router is made of and leave the rest to
// derivation.
//
//     description = "one card, one bundle"
//     type = "birch"
//
//     [[node]]
//     name = "0/RP0/CPU0"
//     id = 4096
//
//     [[node]]
//     name = "0/0/CPU0"
//     chip = "BCM88680"
//     npus = 2
//
//     [[bundle]]
//     number = 1
//     kind = "l3"
//     members = [{ port = "HundredGigE0/0/0/0", node = "0/0/CPU0", npu = 0 }]
//     subs = [{ number = 100, kind = "l2", encapsulation = "dot1q 100" }]
//
// A file with `base = "birch-small"` starts from that router; a node of the same name, a bundle of
// the same number or a member on the same port is changed, everything else is added.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "lab/model/router.h"

namespace lab {

// Where descriptions are looked up: TESSEL_LAB_ROUTERS, the source tree, the installed data.
std::filesystem::path routers_directory();

// Returns the router of that name, or of that file if `name` ends in ".toml"; derived and checked.
// Throws `lab_error` that names file and line: an unknown key, a wrong kind of value, an
// impossible router, a base that leads back to itself.
router load_router(const std::string& name);

// The same from text; `where` stands in messages as the file's name.
router parse_router(const std::string& text, const std::string& where);

// Names of all described routers, in order. Throws `lab_error` if there is no such directory.
std::vector<std::string> router_names();

}  // namespace lab
