// The steps of the readers without a pattern, each by itself, on texts that its tool never prints.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "parse/block_fields.h"
#include "parse/interface_text.h"
#include "parse/lag_rows.h"
#include "parse/slot_fields.h"
#include "steps.h"

namespace tessel {
namespace {

using reader = std::function<void(std::string_view text)>;

// Expects that a text of four times the length takes at most four times the steps, up to a
// mebibyte; with TESSEL_LONG_STEPS in the environment up to four.
void expect_linear(const reader& read, std::string_view head, std::string_view unit,
                   std::string_view tail) {
  SCOPED_TRACE(quoted(head) + ", " + quoted(unit) + " again and again, " + quoted(tail));
  const std::size_t longest = std::getenv("TESSEL_LONG_STEPS") == nullptr ? 256U << 10 : 4U << 20;
  std::uint64_t last = 0;
  for (std::size_t bytes = 16U << 10; bytes <= longest; bytes *= 4) {
    std::string text(head);
    while (text.size() < bytes) text += unit;
    text += tail;
    const std::uint64_t steps = steps_of([&] { read(text); });
    if (last > 0) {
      EXPECT_LE(steps, last * 4 + last / 4 + 2000) << bytes << " bytes";
    }
    last = steps;
  }
  EXPECT_GT(last, 100U) << "the reader must be one whose steps are counted";
}

void read_lags(std::string_view text) {
  std::vector<diag_lag_row> rows;
  diag_lag_id(text);
  find_diag_lag_rows(text, rows);
  tm_lag_pieces pieces(text);
  while (pieces.next()) {
  }
  tm_lag_rows table(text);
  while (table.next()) {
  }
}

TEST(readers_test, rows_of_lags) {
  for (const std::string_view unit : {"|", " ", "1", "a", "\n", "|\n", "  |\n", " |", "1 |", "| 1 ",
                                      " 1 | a |", "ID:", "ID: ", " 1 | 2 | 3 | 4 | 5\n|"}) {
    for (const std::string_view head : {"", "| 1 | 2 |", "|  |  |  |"}) {
      expect_linear(read_lags, head, unit, "|\n");
    }
  }
}

void read_slots(std::string_view text) {
  slot_fields fields;
  fields.read(text);
  for (int count = 0; count < 1000; ++count) fields.npu_of("2");
}

TEST(readers_test, fields_of_slots) {
  for (const std::string_view unit :
       {"1", ":", "1:uint8_t mbr_npu_id => 1\n", "1:uint16_t weight => 1\n", ":uint16_t ", "\n",
        "7:dpa_intf_t mifh => 1", "11111111111111111111111111:uint8_t mbr_npu_id => 1\n",
        "1:uint16_t\t", "1:uint16_t weight  "}) {
    expect_linear(read_slots, "mifh:uint16_t", unit, "");
    expect_linear(read_slots, "1:uint16_t weight", unit, "");
  }
}

void read_block(std::string_view text) {
  const field_lines words(field_lines::values::words, text);
  const field_lines more(field_lines::values::words_and_colons, text);
  words.last_of("none");
  more.last_of("none");
  last_values last(field_lines::values::words_and_colons);
  last.want("rif");
  last.read(text);
  lagport_head_of(text);
  member_limit_of(text);
  interface_handle_of(text);
}

TEST(readers_test, fields_of_blocks) {
  for (const std::string_view unit :
       {"=>", " =>", "a =>", "=> a", " => ", "rif => 1", "a", ":", " ", "\n", "dpa_intf_t",
        "dpa_intf_t intf => ", "dpa_intf_t intf => 1\n", "@dpa_intf_t ", "@dpa_intf_t intf  ",
        "uint32_t max_member_count", "uint32_t max_member_count => "}) {
    for (const std::string_view head :
         {"", "rif => 1", "dpa_intf_t intf => ", "dpa_intf_t intf => 1\n", "@dpa_intf_t",
          "@dpa_intf_t intf", "uint32_t max_member_count", "uint32_t max_member_count =>"}) {
      expect_linear(read_block, head, unit, "!");
    }
  }
}

void read_interface(std::string_view text) {
  for (const char* head : {"interface Bundle-Ether12.5", "interface Bundle-Ether(12).5"}) {
    is_layer_2(text, head);
    has_encapsulation(text, head);
    tags_of(text, head);
    is_untagged(text, head);
  }
}

TEST(readers_test, texts_of_interfaces) {
  for (const std::string_view unit :
       {"interface Bundle-Ether12", "'interface Bundle-Ether12.5", " encapsulation",
        " encapsulation dot1ad ", "dot", " l2transport", "7", " ", "\n",
        " interface Bundle-Ether12.5 l2transport encapsulation dot1q x"}) {
    expect_linear(read_interface, "'interface Bundle-Ether12.5", unit, "");
  }
}

}  // namespace
}  // namespace tessel
