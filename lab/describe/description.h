// Reads router descriptions: TOML files that give the parts of a router; the other values are
// derived.
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
// A file with `base = "birch-small"` starts from that router. It changes a node of the same name, a
// bundle of the same number or a member on the same port, and adds everything else.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "lab/model/router.h"

namespace lab {

// The folder of the descriptions: TESSEL_LAB_ROUTERS, or `routers` beside this program, where a
// build has a link to the source tree's, or else the installed data. No absolute path: an
// installation may be moved, and must not depend on the tree that it was built from.
std::filesystem::path routers_directory();

// Returns the router of that name, or of that file if `name` ends in ".toml"; derived and checked.
// Throws `lab_error` that names file and line for an unknown key, a wrong kind of value, an
// impossible router or a base that leads back to itself.
router load_router(const std::string& name);

// The same from a text; messages use `where` as the file's name.
router parse_router(const std::string& text, const std::string& where);

// The names of all described routers, in order. Throws `lab_error` if their folder is missing.
std::vector<std::string> router_names();

}  // namespace lab
