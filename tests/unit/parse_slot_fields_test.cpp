#include "parse/slot_fields.h"

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

constexpr std::string_view block =
    "  0:dpa_intf_t mifh => 0x60\n"
    "  0:uint8_t mbr_npu_id => 1\n"
    "  0:uint16_t weight => 2\n"
    "  11:uint8_t mbr_npu_id => 3\n"
    "  11:uint16_t \t weight   =>  4\n"
    "  1:uint8_t mbr_npu_id => 5\n"
    "  1:uint16_t weight => 6\n"
    "  0:UINT16_T PORT_CLASS_ID => 7\n"
    "  1:uint16_t port_class_id => 8\n";

slot_fields fields_of(std::string_view text) {
  slot_fields fields;
  fields.read(text);
  return fields;
}

TEST(slot_fields_test, a_slot_has_its_member_npu_weight_and_domain) {
  const slot_fields fields = fields_of(block);
  EXPECT_EQ(fields.members(),
            (std::vector<std::pair<std::string_view, std::string_view>>{{"0", "0x60"}}));
  EXPECT_EQ(fields.npu_of("0"), "1");
  EXPECT_EQ(fields.weight_of("0"), "2");
  EXPECT_EQ(fields.port_class_of("0"), "7");
  EXPECT_EQ(fields.port_class_of("1"), "8");
}

TEST(slot_fields_test, the_line_of_slot_11_answers_for_slot_1_if_it_comes_first) {
  const slot_fields fields = fields_of(block);
  EXPECT_EQ(fields.npu_of("11"), "3");
  EXPECT_EQ(fields.npu_of("1"), "3");
  EXPECT_EQ(fields.weight_of("1"), "4");
}

TEST(slot_fields_test, a_slot_without_a_line_has_nothing) {
  const slot_fields fields = fields_of(block);
  EXPECT_EQ(fields.npu_of("2"), std::nullopt);
  EXPECT_EQ(fields.npu_of("01"), std::nullopt);
  EXPECT_EQ(fields_of("").npu_of("0"), std::nullopt);
}

TEST(slot_fields_test, a_block_is_read_without_the_last_one) {
  slot_fields fields = fields_of(block);
  fields.read("1:uint8_t mbr_npu_id => 9\n");
  EXPECT_TRUE(fields.members().empty());
  EXPECT_EQ(fields.npu_of("1"), "9");
  EXPECT_EQ(fields.npu_of("0"), std::nullopt);
  EXPECT_EQ(fields.weight_of("0"), std::nullopt);
  EXPECT_EQ(fields.port_class_of("0"), std::nullopt);
}

TEST(slot_fields_test, the_digits_of_a_handle_are_no_slot) {
  EXPECT_EQ(fields_of("0:dpa_intf_t mifh => 12:dpa_intf_t mifh => 3").members().size(), 1U);
}

// The result of one search for a slot.
std::optional<std::string_view> by_definition(std::string_view definition, letter_case letters,
                                              std::string_view text, std::string_view slot) {
  const matches found = findall(pattern(fill(definition, {slot}), letters), text);
  if (found.empty()) return std::nullopt;
  return found.text(0);
}

void expect_equal_to_definitions(std::string_view text) {
  static const pattern& member = constant(slot_fields::member_definition);
  SCOPED_TRACE(quoted(text));
  const slot_fields fields = fields_of(text);
  const matches members = findall(member, text);
  ASSERT_EQ(fields.members().size(), members.size());
  for (std::size_t at = 0; at < members.size(); ++at) {
    EXPECT_EQ(fields.members()[at], std::make_pair(members[at][0], members[at][1]));
  }
  for (const std::string_view slot : {"0", "1", "5", "01", "11", "10", "511", "65535"}) {
    SCOPED_TRACE(slot);
    EXPECT_EQ(fields.npu_of(slot),
              by_definition(slot_fields::npu_definition, letter_case::kept, text, slot));
    EXPECT_EQ(fields.weight_of(slot),
              by_definition(slot_fields::weight_definition, letter_case::kept, text, slot));
    EXPECT_EQ(fields.port_class_of(slot),
              by_definition(slot_fields::port_class_definition, letter_case::ignored, text, slot));
  }
}

TEST(slot_fields_test, a_look_up_gives_what_the_pattern_of_a_slot_gives_first) {
  constexpr std::array<std::string_view, 31> pieces = {"0",
                                                       "1",
                                                       "5",
                                                       "11",
                                                       "10",
                                                       "01",
                                                       ":",
                                                       " ",
                                                       "\n",
                                                       "\t",
                                                       "x",
                                                       "=>",
                                                       std::string_view("\0", 1),
                                                       ":uint8_t mbr_npu_id => ",
                                                       ":uint8_t mbr_npu_id\t=>\n",
                                                       ":uint8_t mbr_npu_id => 1",
                                                       ":uint16_t weight => ",
                                                       ":uint16_t \t weight\n=>  ",
                                                       ":uint16_t weight => 5",
                                                       ":uint16_t port_class_id => ",
                                                       ":UINT16_T Port_class_id => ",
                                                       ":uint16_t port_class_id => 1",
                                                       "\n  1:uint8_t mbr_npu_id => 0\n",
                                                       "\n  11:uint16_t weight => 1\n",
                                                       "\n  10:uint16_t port_class_id => 255\n",
                                                       ":dpa_intf_t mifh => ",
                                                       ":dpa_intf_t\tmifh\n=>\v0x1",
                                                       "1:dpa_intf_t mifh => 0x5",
                                                       ":uint16_t port_class_id\t=> 1",
                                                       ":u\xcent16_t port_class_id => 1",
                                                       "uint8_t mbr_npu_id => 1"};
  for (unsigned seed = 1; seed <= 3000; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const std::string text = fragments(random, pieces, 2 + seed % (seed % 4 == 0 ? 120 : 30));
    expect_equal_to_definitions(text);
    if (testing::Test::HasFailure()) return;
  }
}

}  // namespace
}  // namespace tessel
