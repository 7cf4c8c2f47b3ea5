// The bundle or port that a line of a tool's output is about.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "lab/capture/capture.h"

namespace lab {

// Interface handle ("0x3000004") to name ("BE1"), as the interface manager lists them.
using handle_names = std::unordered_map<std::string, std::string>;
void add_handle_names(const capture& c, handle_names& names);

struct owned_line {
  std::string_view line;
  std::string owner;  // a bundle ("BE1", "BE1.100"), a port ("Hu0/0/0/1"), or empty
};

// A line without a name belongs to the first bundle of its block, or else to the first port; a
// blank line or a "!" ends a block.
std::vector<owned_line> lines_with_owners(std::string_view text, const handle_names& names);

}  // namespace lab
