#include "parse/block_fields.h"

#include <array>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "base/text.h"
#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

using line_list = std::vector<std::pair<std::string_view, std::string_view>>;

TEST(block_fields_test, a_block_has_its_fields) {
  constexpr std::string_view block =
      " 0\n"
      "  @dpa_intf_t intf => 0x3000120\n"
      "  uint16_t lag_id => 0x1\n"
      "  uint32_t max_member_count  =>  64\n"
      "  dpa_mac_t bia_mac => 00:26:5e\n"
      "  uint32_t lif => 0x1\n"
      "  uint32_t lif => 0x2\n";
  const auto head = lagport_head_of(block);
  ASSERT_TRUE(head.has_value());
  EXPECT_EQ(head->ifh, "0x3000120");
  EXPECT_EQ(head->lagid, "0x1");
  EXPECT_EQ(member_limit_of(block), "64");
  EXPECT_EQ(interface_handle_of(block), "0x3000120");
  const field_lines lines(field_lines::values::words_and_colons, block);
  EXPECT_EQ(lines.last_of("bia_mac"), "00:26:5e");
  EXPECT_EQ(lines.last_of("lif"), "0x2") << "the last one counts";
  EXPECT_EQ(lines.last_of("rif"), std::nullopt);
  EXPECT_EQ(field_lines(field_lines::values::words, block).last_of("bia_mac"), "00");
}

TEST(block_fields_test, an_empty_block_has_none) {
  EXPECT_FALSE(lagport_head_of("").has_value());
  EXPECT_EQ(member_limit_of(""), "");
  EXPECT_EQ(interface_handle_of(""), "");
  EXPECT_TRUE(field_lines(field_lines::values::words, "").lines().empty());
}

const pattern& defined(std::string_view definition) {
  return constant(definition);
}

line_list lines_by(const pattern& definition, std::string_view text) {
  line_list lines;
  const matches found = findall(definition, text);
  for (std::size_t at = 0; at < found.size(); ++at) lines.emplace_back(found[at][0], found[at][1]);
  return lines;
}

std::string_view first_by(const pattern& definition, std::string_view text) {
  const matches found = findall(definition, text);
  return found.empty() ? std::string_view() : found.text(0);
}

void expect_equal_to_definitions(std::string_view text) {
  static const pattern& words = defined(field_lines::words_definition);
  static const pattern& with_colons = defined(field_lines::words_and_colons_definition);
  static const pattern& head = defined(lagport_head_definition);
  static const pattern& limit = defined(member_limit_definition);
  static const pattern& handle = defined(interface_handle_definition);
  EXPECT_EQ(field_lines(field_lines::values::words, text).lines(), lines_by(words, text));
  EXPECT_EQ(field_lines(field_lines::values::words_and_colons, text).lines(),
            lines_by(with_colons, text));
  for (const auto kind : {field_lines::values::words, field_lines::values::words_and_colons}) {
    const field_lines lines(kind, text);
    last_values wanted(kind);
    for (const std::string_view name : {"a", "b_1", "intf"}) wanted.want(name);
    wanted.read(" intf => 7");
    wanted.read(text);
    EXPECT_EQ(wanted.of(0), lines.last_of("a"));
    EXPECT_EQ(wanted.of(1), lines.last_of("b_1"));
    EXPECT_EQ(wanted.of(2), lines.last_of("intf"));
  }
  const auto found = lagport_head_of(text);
  const line_list heads = lines_by(head, text);
  ASSERT_EQ(found.has_value(), !heads.empty());
  if (found) {
    EXPECT_EQ(std::make_pair(found->ifh, found->lagid), heads.front());
  }
  EXPECT_EQ(member_limit_of(text), first_by(limit, text));
  EXPECT_EQ(interface_handle_of(text), first_by(handle, text));
}

TEST(block_fields_test, each_function_finds_what_its_pattern_finds_first) {
  constexpr std::array<std::string_view, 34> pieces = {"=>",
                                                       " => ",
                                                       " =>",
                                                       "=> ",
                                                       "\t=>\n",
                                                       "a",
                                                       "b_1",
                                                       "0x1",
                                                       "64",
                                                       ":",
                                                       "::",
                                                       "=",
                                                       " ",
                                                       "\n",
                                                       "\v",
                                                       "@",
                                                       "dpa_intf_t",
                                                       "@dpa_intf_t",
                                                       " intf",
                                                       "dpa_intf_t intf => ",
                                                       "@dpa_intf_t  intf\t=>  ",
                                                       "0x30\n  uint16_t lag_id => ",
                                                       "\n uint16_t lag_id =",
                                                       " lag_id =\n ",
                                                       "uint32_t max_member_count",
                                                       "uint32_t max_member_count => ",
                                                       "uint32_t max_member_count\n=>\t",
                                                       "ID: ",
                                                       "ID:\n",
                                                       "ID:",
                                                       "I",
                                                       "\xe9",
                                                       std::string_view("\0", 1),
                                                       "dpa_intf_t intf => 1\n u lag_id => 2"};
  for (unsigned seed = 1; seed <= 20000; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const std::string text = fragments(random, pieces, 1 + seed % 24);
    SCOPED_TRACE(quoted(text));
    expect_equal_to_definitions(text);
    if (testing::Test::HasFailure()) return;
  }
}

TEST(block_fields_test, a_text_that_is_none_is_read_as_the_patterns_read_it) {
  for (const bad_output& each : meaningless_outputs()) {
    SCOPED_TRACE(each.why);
    if (each.output.is_text()) expect_equal_to_definitions(each.output.as_text());
  }
}

}  // namespace
}  // namespace tessel
