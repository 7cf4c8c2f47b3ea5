// The libFuzzer target: an input is a text for the one parser that TESSEL_PARSER names.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "parsers.h"

namespace {

const fuzz::fuzzed_parser* chosen_parser = nullptr;

const fuzz::fuzzed_parser& parser_of_environment() {
  const char* set = std::getenv("TESSEL_PARSER");
  const std::string_view name = set != nullptr ? set : "";
  const auto all = fuzz::parsers();
  const auto found = std::find_if(all.begin(), all.end(),
                                  [name](const auto& parser) { return parser.name == name; });
  if (found != all.end()) return *found;
  std::fprintf(stderr, "fuzz_parsers: TESSEL_PARSER is \"%s\"; set it to one of:\n",
               set ? set : "");
  for (const auto& parser : all) std::fprintf(stderr, "  %s\n", parser.name.data());
  std::exit(64);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  chosen_parser = &parser_of_environment();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::run(*chosen_parser, {reinterpret_cast<const char*>(data), size});
  return 0;
}
