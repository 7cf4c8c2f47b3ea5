#include "parse/slot_fields.h"

#include <array>
#include <optional>
#include <random>
#include <string>

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

TEST(slot_fields_test, a_slot_has_its_npu_weight_and_domain) {
  EXPECT_EQ(slot_fields(slot_fields::npu(), block).first_of("0"), "1");
  EXPECT_EQ(slot_fields(slot_fields::weight(), block).first_of("0"), "2");
  EXPECT_EQ(slot_fields(slot_fields::port_class(), block).first_of("0"), "7");
  EXPECT_EQ(slot_fields(slot_fields::port_class(), block).first_of("1"), "8");
}

TEST(slot_fields_test, the_line_of_slot_11_answers_for_slot_1_if_it_comes_first) {
  EXPECT_EQ(slot_fields(slot_fields::npu(), block).first_of("11"), "3");
  EXPECT_EQ(slot_fields(slot_fields::npu(), block).first_of("1"), "3");
  EXPECT_EQ(slot_fields(slot_fields::weight(), block).first_of("1"), "4");
}

TEST(slot_fields_test, a_slot_without_a_line_has_nothing) {
  EXPECT_EQ(slot_fields(slot_fields::npu(), block).first_of("2"), std::nullopt);
  EXPECT_EQ(slot_fields(slot_fields::npu(), block).first_of("01"), std::nullopt);
  EXPECT_EQ(slot_fields(slot_fields::npu(), "").first_of("0"), std::nullopt);
}

// The result of one search for a slot.
std::optional<std::string_view> by_definition(const slot_fields::field& which, letter_case letters,
                                              std::string_view text, std::string_view slot) {
  const matches found = findall(pattern(fill(which.definition, {slot}), letters), text);
  if (found.empty()) return std::nullopt;
  return found.text(0);
}

void expect_equal_to_definition(const slot_fields::field& which, letter_case letters,
                                std::string_view text) {
  const slot_fields lines(which, text);
  for (const std::string_view slot : {"0", "1", "5", "01", "11", "10", "511", "65535"}) {
    EXPECT_EQ(lines.first_of(slot), by_definition(which, letters, text, slot))
        << "slot " << slot << " in " << quoted(text);
  }
}

TEST(slot_fields_test, a_look_up_gives_what_the_pattern_of_a_slot_gives_first) {
  constexpr std::array<std::string_view, 26> pieces = {"0",
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
                                                       "uint8_t mbr_npu_id => 1"};
  for (unsigned seed = 1; seed <= 3000; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const std::string text = fragments(random, pieces, 2 + seed % 30);
    expect_equal_to_definition(slot_fields::npu(), letter_case::kept, text);
    expect_equal_to_definition(slot_fields::weight(), letter_case::kept, text);
    expect_equal_to_definition(slot_fields::port_class(), letter_case::ignored, text);
    if (testing::Test::HasFailure()) return;
  }
}

}  // namespace
}  // namespace tessel
