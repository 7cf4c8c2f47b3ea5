// Every function that reads a tool's text, behind one interface for fuzzing: bytes go in, nothing
// comes out, and nothing may crash, hang or lose a failure.
//
// Some functions read the texts of several tools. Their input holds these texts one after the
// other, with a `text_separator` between them.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

// No tool prints this character.
inline constexpr char text_separator = '\x1e';

struct fuzzed_parser {
  std::string_view name;
  // The beginnings of the command lines that print its texts, in the order of the texts. A quoted
  // argument may be left open.
  std::vector<std::string_view> commands;
  // Gets one text per command; commands that it runs itself are answered with these texts too. It
  // may throw `failure`, which `run` catches.
  void (*parse)(const std::vector<std::string>& texts);
};

std::span<const fuzzed_parser> parsers();

// The command lines that fetch these texts, as the audit writes them; some have a filter.
std::vector<std::string> command_lines();

// Calls one parser in a fresh state: a birch router with all its nodes and nothing collected.
// Afterwards frees what the parser left in the state.
void run(const fuzzed_parser& parser, std::string_view input);

}  // namespace fuzz
