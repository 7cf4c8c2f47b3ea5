// The seed corpus: what the tools of the lab's routers print.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "parsers.h"

namespace fuzz {

// Every answer of every described router, each once. All throw `lab::lab_error`.
std::vector<std::string> all_texts();

// The inputs that one parser gets on these routers, behind the audit's own filters, each once.
std::vector<std::string> seeds(const fuzzed_parser& parser);

// Writes the seeds of each parser as files for libFuzzer, into a folder of the parser's name.
void write_seeds(const std::filesystem::path& folder);

}  // namespace fuzz
