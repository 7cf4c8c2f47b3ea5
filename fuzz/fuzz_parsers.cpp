// The libFuzzer target: the first byte picks the parser, the rest is its text.
#include <cstddef>
#include <cstdint>
#include <string>

#include "parsers.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool ready = (fuzz::set_up(), true);
  if (!ready || size == 0) return 0;
  const auto parsers = fuzz::parsers();
  fuzz::run(parsers[data[0] % parsers.size()],
            std::string(reinterpret_cast<const char*>(data + 1), size - 1));
  return 0;
}
