// Every parser as a fuzzer sees it: bytes in, nothing out, and no crash, hang or lost failure.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace fuzz {

struct fuzzed_parser {
  std::string_view name;
  // An ordinary failure is a parser's right; it is caught here.
  void (*parse)(const std::string& text);
};

std::span<const fuzzed_parser> parsers();

// Puts a fresh birch router's state in place. Once, before any parser is called.
void set_up();

// Calls one parser and forgets what it left in the state.
void run(const fuzzed_parser& parser, const std::string& text);

}  // namespace fuzz
