// The patterns for the health report. The one for information blocks must remove exactly what the
// plain pattern removes, and the time to read a report must grow only with its length.
#include <array>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "hygiene/bundle_health.h"
#include "support/fake_router.h"
#include "support/hostile.h"
#include "support/pattern_steps.h"

namespace tessel {
namespace {

// Cleans a report step by step as documented, with the plain pattern.
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

TEST(information_block_test, the_blocks_of_the_plain_pattern_go) {
  for (unsigned seed = 1; seed <= 5000; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const std::string report = "INFO:" + fragments(random, pieces, 2 + seed % 30);
    ASSERT_EQ(parse_bundle_health(report).first, by_definition(report)) << quoted(report);
  }
}

TEST(information_block_test, the_plain_pattern_finds_the_same_where_line_feeds_run) {
  static const pattern& definition = constant(information_block_definition);
  static const pattern& search = constant(information_block);
  std::size_t blocks = 0;
  for (unsigned seed = 1; seed <= 5000; ++seed) {
    std::mt19937 random(seed);
    const std::string text = fragments(random, pieces, 2 + seed % 30);
    const matches found = findall(search, text);
    ASSERT_EQ(list_text(found), list_text(findall(definition, text)))
        << "seed " << seed << ", text " << quoted(text);
    blocks += found.size();
  }
  EXPECT_GT(blocks, 2000U) << "too few of the texts hold a block";
}

struct searched_shape {
  std::string_view expression;
  near_miss shape;
};

TEST(health_steps_test, rules_and_empty_lines_take_time_linear_in_the_length_of_the_report) {
  const std::array<searched_shape, 5> shapes = {{
      {health_rule, {"single hyphens", "", "- ", ""}},
      {health_rule, {"a word", "", "x", ""}},
      {health_rule, {"one rule", "", "-", ""}},
      {health_empty_lines, {"empty lines that blanks keep apart", "", "\n ", ""}},
      {health_empty_lines, {"empty lines", "", "\n", ""}},
  }};
  for (const auto& [expression, shape] : shapes) expect_linear(expression, shape);
}

TEST(health_steps_test, a_table_head_takes_time_linear_in_the_length_of_the_report) {
  const std::array<near_miss, 9> shapes = {{
      {"a head without the second column", "Process", " ", "Nod"},
      {"a head without a row", "Process Node Result", "\n", ""},
      {"a row of one word", "Process Node Result ", "x", ""},
      {"a row of one word and blanks", "Process Node Result x", "\t", "!"},
      {"a row that ends early", "Process Node Result ", "x", "\t!"},
      {"heads upon heads", "", "Process Node Result\n", ""},
      {"heads with a row of one word", "", "Process Node Result x!\n", ""},
      {"first columns", "", "Process", ""},
      {"first columns apart", "", "Process ", ""},
  }};
  for (const near_miss& shape : shapes) expect_linear(health_table_head, shape);
}

TEST(health_steps_test, an_information_block_takes_time_linear_in_the_length_of_the_report) {
  const std::array<near_miss, 20> shapes = {{
      {"a word", "", "x", ""},
      {"a word and its colon", "", "x", ":"},
      {"words", "", "x ", ""},
      {"heads of blocks", "", "INFO: ", ""},
      {"numbers with a colon", "", "1: ", ""},
      {"a head and blanks", "INFO:", " ", "!"},
      {"a number without an end", "INFO: ", "7", "!"},
      {"a number and blanks", "INFO: 1", "\t", "!"},
      {"a number and line feeds", "INFO: 1", "\n", "!"},
      {"a first line without an end", "INFO: 1 ", "x ", "!"},
      {"a first line and line feeds", "INFO: 1 x", "\n", "!"},
      {"a first line and blanks", "INFO: 1 x\n", " \t", "!"},
      {"a second line without an end", "INFO: 1 x\n ", "x ", "!"},
      {"a second line and line feeds", "INFO: 1 x\n y", "\n", "!"},
      {"a second line and tabs", "INFO: 1 x\n y\n", "\t", "!"},
      {"blank lines that end in no blank", "INFO: 1", " \t\n", "!"},
      {"the last blanks of two lines, and tabs", "INFO: 1 \n\t \n", "\t", "!"},
      {"the last blank of a line, tabs and a line", "INFO: 1 \n", "\t", "x !"},
      {"blocks of two lines", "", "INFO: 1 x\n y\n!", ""},
      {"blocks of which each ends in the next one's head", "", "INFO: 1 a\n b\n ", "!"},
  }};
  for (const near_miss& shape : shapes) expect_linear(information_block, shape);
}

TEST(health_steps_test, fragments_of_a_report_take_time_linear_in_their_length) {
  std::vector<std::string_view> all(pieces.begin(), pieces.end());
  all.insert(all.end(), {"INFO: 1", "INFO: 1 x", " \n", "\n\n", "Process", "Process Node Result",
                         "Node", "x "});
  for (const std::string_view expression :
       {health_rule, health_empty_lines, health_table_head, information_block}) {
    expect_linear_on_fragments(expression, all, 1000);
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
