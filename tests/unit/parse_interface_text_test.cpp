#include "parse/interface_text.h"

#include <array>
#include <random>
#include <string>
#include <vector>

#include "base/failure.h"
#include "base/text.h"
#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

bool found_by(std::string_view definition, std::string_view text, std::string_view head) {
  return !findall(pattern(fill(definition, {head})), text).empty();
}

value tags_by_definition(std::string_view text, std::string_view head) {
  const std::string tagged = list_text(findall(pattern(fill(tagged_definition, {head})), text));
  const matches tags = findall(pattern(tag_definition), tagged);
  value_list found;
  for (std::size_t at = 0; at < tags.size(); ++at) found.emplace_back(tags.text(at));
  return make_list(found);
}

void expect_equal_to_definitions(std::string_view text, std::string_view head) {
  SCOPED_TRACE("head " + quoted(head) + " in " + quoted(text));
  EXPECT_EQ(is_layer_2(text, head), found_by(l2_definition, text, head));
  EXPECT_EQ(has_encapsulation(text, head), found_by(keyword_definition, text, head));
  EXPECT_EQ(make_list(tags_of(text, head)), tags_by_definition(text, head));
  EXPECT_EQ(is_untagged(text, head), found_by(untagged_definition, text, head));
}

constexpr std::string_view head_of_12_5 = "interface Bundle-Ether12.5";

TEST(interface_text_test, a_tagged_layer_2_interface_shows_its_tags) {
  constexpr std::string_view text =
      "'interface Bundle-Ether12.5 l2transport encapsulation dot1q 10 second-dot1q 20'";
  EXPECT_TRUE(is_layer_2(text, head_of_12_5));
  EXPECT_TRUE(has_encapsulation(text, head_of_12_5));
  EXPECT_EQ(make_list(tags_of(text, head_of_12_5)), list_of({"10", "20"}));
  EXPECT_FALSE(is_untagged(text, head_of_12_5));
}

TEST(interface_text_test, a_text_without_the_head_shows_nothing) {
  for (const std::string_view text : {"", "\n", "'interface Bundle-Ether12",
                                      "'interface Bundle-Ether12.6 l2transport "
                                      "encapsulation untagged encapsulation dot1q 5'"}) {
    SCOPED_TRACE(text);
    EXPECT_FALSE(is_layer_2(text, head_of_12_5));
    EXPECT_FALSE(has_encapsulation(text, head_of_12_5));
    EXPECT_TRUE(tags_of(text, head_of_12_5).empty());
    EXPECT_FALSE(is_untagged(text, head_of_12_5));
  }
}

TEST(interface_text_test, an_encapsulation_counts_only_behind_a_head_that_follows_a_character) {
  EXPECT_FALSE(has_encapsulation("interface Bundle-Ether12.5 encapsulation", head_of_12_5));
  EXPECT_FALSE(has_encapsulation(" interface Bundle-Ether12.5 encapsulation", head_of_12_5));
  EXPECT_TRUE(has_encapsulation("'interface Bundle-Ether12.5 encapsulation", head_of_12_5));
  EXPECT_FALSE(has_encapsulation("'interface Bundle-Ether12.5\nencapsulation", head_of_12_5));
}

// The heads of one test are read with and without a pattern, and are parts of each other.
const std::vector<std::string>& heads() {
  static const std::vector<std::string> all = {
      "interface Bundle-Ether1.5",
      "interface Bundle-Ether1.50",
      "interface Bundle-Ether1",
      ".5",
      ".",
      "5",
      "'interface Bundle-Ether1.5",
      "interface Bundle-Ether1.5 encapsulation",
      "Bundle-Ether(1.5)",
      "(1)(.)5",
      "Ether1\\.5",
      "interface Bundle-Ether[0-9].5",
      "interface Bundle-Ether1\x1e",
      std::string("Ether1\0", 7),
  };
  return all;
}

// What the texts are made of.
constexpr std::array<std::string_view, 46> pieces = {"'interface Bundle-Ether1.5",
                                                     "'interface Bundle-Ether1.5",
                                                     "'interface Bundle-Ether1.50",
                                                     "-interface Bundle-Ether1x5",
                                                     "interface Bundle-Ether1.5",
                                                     "'interface Bundle-Ether1\n5",
                                                     "'interface Bundle-Ether1\r5",
                                                     "'interface Bundle-Ether1",
                                                     "interface Bundle-Ether2",
                                                     "interinterface ",
                                                     " l2transport",
                                                     "l2transport",
                                                     " encapsulation",
                                                     " encapsulation ",
                                                     "l2transport encapsulation",
                                                     " untagged",
                                                     "untagged",
                                                     "dot1q 5",
                                                     " dot1q 6",
                                                     "dot1q 7 second-dot1q 8",
                                                     " second-dot1q ",
                                                     "dot1ad 9",
                                                     "dot1ad any dot1q 10",
                                                     "dot1ad dot1q dot1q 11",
                                                     "dot1ad 12dot1q dot1q 13",
                                                     "dot1ad adot5 dot1q 14",
                                                     "encapsulation dot1ad ",
                                                     "encapsulation dot1q ",
                                                     " dotdot 1",
                                                     "dot",
                                                     "\n",
                                                     "\n",
                                                     "\r",
                                                     "\v",
                                                     " ",
                                                     "'",
                                                     "x",
                                                     "0",
                                                     "5",
                                                     ".",
                                                     "\xe9",
                                                     std::string_view("\0", 1),
                                                     "\x1e",
                                                     " encapsulation dot1q 12",
                                                     "'interface Bundle-Ether1.5 l2transport",
                                                     " encapsulation untagged"};

TEST(interface_text_test, each_function_finds_what_its_pattern_finds) {
  std::size_t tagged = 0;
  std::size_t untagged = 0;
  for (unsigned seed = 1; seed <= 20000; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const std::string text = fragments(random, pieces, 2 + seed % 24);
    const std::string& head = seed % 2 == 0 ? heads()[0] : heads()[seed / 2 % heads().size()];
    expect_equal_to_definitions(text, head);
    if (testing::Test::HasFailure()) return;
    tagged += tags_of(text, head).empty() ? 0 : 1;
    untagged += is_untagged(text, head) ? 1 : 0;
  }
  EXPECT_GT(tagged, 1000U) << "the texts must be worth the comparison";
  EXPECT_GT(untagged, 400U);
}

TEST(interface_text_test, a_head_of_any_length_is_found_as_the_pattern_finds_it) {
  for (const std::size_t digits : {100U, 106U, 107U, 108U, 120U, 1000U, 20000U}) {
    const std::string head = "interface Bundle-Ether" + std::string(digits, '7') + ".5";
    for (const std::string& first : {"'" + head, "'" + head.substr(0, head.size() - 1), head}) {
      expect_equal_to_definitions(first + " l2transport encapsulation dot1q 5", head);
      expect_equal_to_definitions(first + "0 l2transport encapsulation untagged", head);
    }
  }
}

TEST(interface_text_test, a_head_that_is_too_large_for_a_pattern_or_none_is_a_failure) {
  for (const std::string& head : {std::string(40'000, '7'), std::string("interface (")}) {
    SCOPED_TRACE(head.substr(0, 20));
    EXPECT_THROW(is_layer_2("x", head), failure);
    EXPECT_THROW(has_encapsulation("x", head), failure);
    EXPECT_THROW(tags_of("x", head), failure);
    EXPECT_THROW(is_untagged("x", head), failure);
  }
}

TEST(interface_text_test, a_text_that_is_none_is_read_as_the_patterns_read_it) {
  for (const bad_output& each : meaningless_outputs()) {
    SCOPED_TRACE(each.why);
    const std::string junk(each.output.as_text().substr(0, 1U << 20));
    expect_equal_to_definitions(junk, head_of_12_5);
    expect_equal_to_definitions("'aaa " + junk.substr(0, 1U << 12) + "encapsulation", "a.a");
  }
}

}  // namespace
}  // namespace tessel
