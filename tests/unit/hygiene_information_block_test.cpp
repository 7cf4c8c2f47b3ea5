// The health report's information blocks are found with a pattern that matches blanks in one way
// only. What it takes away must be what the plain pattern takes away.
#include <array>
#include <random>
#include <string>

#include "base/text.h"
#include "hygiene/bundle_health.h"
#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

// The cleaned report as its steps are told, with the plain pattern.
std::string by_definition(std::string_view report) {
  static const pattern& block = constant(information_block_definition);
  static const pattern& blank_lines = constant("\n\n\n*");
  static const pattern& rules = constant("---*");
  const std::string text = sub(blank_lines, "\n", sub(rules, "", report));
  const std::string rest = sub(block, "", text);
  std::string result = "   ";
  if (strip(rest).empty()) return result;
  for (const std::string_view line : split(strip(rest), "\n")) {
    const bool names_bundle = line.find("Bundle-Ether") != std::string_view::npos;
    result += names_bundle ? "\n" : "\n   ";
    result += strip_set_left(line, " \t\n\r\f\v");
  }
  return result;
}

TEST(information_block_test, the_blocks_of_the_plain_pattern_go) {
  constexpr std::array<std::string_view, 18> pieces = {" ",
                                                       "  ",
                                                       "\n",
                                                       "\t",
                                                       "\n ",
                                                       "word:",
                                                       " 12 ",
                                                       "text",
                                                       "/",
                                                       ",",
                                                       ".",
                                                       "!",
                                                       "Bundle-Ether1",
                                                       "ID: 7 first line\n  second line\n  third\n",
                                                       "-",
                                                       "--",
                                                       "0",
                                                       ": 1 \n \n "};
  for (unsigned seed = 1; seed <= 5000; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const std::string report = "INFO:" + fragments(random, pieces, 2 + seed % 30);
    ASSERT_EQ(parse_bundle_health(report).first, by_definition(report)) << quoted(report);
  }
}

TEST(information_block_test, wide_blanks_fail_no_report) {
  const std::string blanks(1000, ' ');
  const std::string tabs(1000, '\t');
  const std::string report =
      "INFO: 1" + blanks + "b\n" + blanks + "b\n" + tabs + "!\nBundle-Ether12 is down\n";
  EXPECT_EQ(parse_bundle_health(report).second, 1);
}

}  // namespace
}  // namespace tessel
