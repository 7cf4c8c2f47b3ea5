// Every function that reads a tool's text as a fuzzer sees it: bytes in, nothing out, and no crash,
// hang or lost failure.
//
// Some read the texts of several tools; these stand in the input one behind the other, a
// `text_separator` between them.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

// No tool prints it.
inline constexpr char text_separator = '\x1e';

struct fuzzed_parser {
  std::string_view name;
  // The beginnings of the command lines that print its texts, in the texts' order. A quoted
  // argument may be left open.
  std::vector<std::string_view> commands;
  // An ordinary failure is a parser's right; it is caught by `run`. There is a text for each
  // command, and who asks for a command himself is answered with it.
  void (*parse)(const std::vector<std::string>& texts);
};

std::span<const fuzzed_parser> parsers();

// The command lines that fetch these texts, as the audit writes them; some behind a filter.
std::vector<std::string> command_lines();

// Calls one parser in a fresh state, that of a birch router with all its nodes and nothing
// collected, and forgets what it left there.
void run(const fuzzed_parser& parser, std::string_view input);

}  // namespace fuzz
