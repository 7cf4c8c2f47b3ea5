// The seed corpus: what the tools of the lab's routers print.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace fuzz {

// Every answer of every described router, each once. Throws `lab::lab_error`.
std::vector<std::string> seeds();

// Writes them, behind a byte for each parser, as files for libFuzzer.
void write_seeds(const std::filesystem::path& folder);

}  // namespace fuzz
