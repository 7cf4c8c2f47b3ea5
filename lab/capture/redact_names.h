// The names that a configuration gives to VRFs, access lists and trustpoints.
#pragma once

#include <map>
#include <string>

#include "lab/capture/capture.h"

namespace lab {

// Which kinds of names are replaced, too.
struct name_kinds {
  bool vrf = false;
  bool acl = false;
  bool trustpoint = false;
};

// Every name of these kinds in the capture's configurations, with its kind: "vrf", "acl" or
// "trustpoint". Leaves out the VRF "default", and names without a letter.
std::map<std::string, std::string> configured_names(const capture& c, const name_kinds& kinds);

}  // namespace lab
