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

// Names with their kinds: "vrf", "acl" or "trustpoint".
struct named_things {
  std::map<std::string, std::string> replaced;
  std::map<std::string, std::string> kept;  // the audit reads them as words of its own
};

// Every name of these kinds in the capture's configurations. Leaves out the VRF "default", and
// names without a letter.
named_things configured_names(const capture& c, const name_kinds& kinds);

}  // namespace lab
