// The seed corpus: the output of the tools on the lab's routers.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "parsers.h"

namespace fuzz {

// Every answer of every described router, each once. All functions throw `lab::lab_error`.
std::vector<std::string> all_texts();

// The inputs of one parser on these routers, after the audit's own filters, each once.
std::vector<std::string> seeds(const fuzzed_parser& parser);

// Writes the seeds of each parser as files for libFuzzer, in a folder with the parser's name.
void write_seeds(const std::filesystem::path& folder);

}  // namespace fuzz
