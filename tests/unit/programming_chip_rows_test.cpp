#include "programming/chip_rows.h"

#include <fmt/format.h>

#include <array>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "support/chip_world.h"
#include "support/fake_router.h"
#include "support/hostile.h"
#include "support/pattern_steps.h"
#include "support/together.h"

namespace tessel {
namespace {

using testing::Optional;
using testing::StartsWith;
using chip_rows_test = router_test;

raw_table table(std::string text) {
  return std::make_shared<const std::string>(std::move(text));
}

// The first hit of the plain search, which the index must return.
std::optional<std::string> first_hit(std::string_view definition, std::string_view filled_in,
                                     const raw_table& searched) {
  const matches found = findall(pattern(fill(definition, {filled_in})), *searched);
  return found.empty() ? std::nullopt : std::optional<std::string>(found.text(0));
}

struct row {
  const char* why;
  std::string text;
  const char* key;
  std::optional<std::string> expected;
};

TEST_F(chip_rows_test, a_payload_is_found_by_its_key) {
  const std::array rows = {
      row{"as printed", "  1 | Key=0x0000000000001005 Payload=0x00000044\n", "1005", "0x00000044"},
      row{"the first hit comes first", "1005 Payload=0x1\n1005 Payload=0x2\n", "1005", "0x1"},
      row{"the tail of a longer word", "ffff1005 Payload=0x1\n1005 Payload=0x2\n", "1005", "0x1"},
      row{"the head of a longer word does not count", "10050 Payload=0x1\n", "1005", std::nullopt},
      row{"another case is another key", "8FFF Payload=0x1\n", "8fff", std::nullopt},
      row{"a payload may itself be a key", "1005 Payload=2005 Payload=3005", "2005", "3005"},
      row{"and its own row still stands", "1005 Payload=2005 Payload=3005", "1005", "2005"},
      row{"several rows on one line", "1 Payload=a 2 Payload=b 3 Payload=c", "3", "c"},
      row{"white space may be line ends", "1005 \n\t Payload=0x1", "1005", "0x1"},
      row{"no white space, no row", "1005Payload=0x1", "1005", std::nullopt},
      row{"no payload, no row", "1005 Payload= 0x1\n1005 Payload=", "1005", std::nullopt},
      row{"a payload ends with the word", "1005 Payload=0x1-2", "1005", "0x1"},
      row{"bytes that are not text",
          std::string("\0\xff"
                      "1005 Payload=0x1\xfe",
                      19),
          "1005", "0x1"},
      row{"an empty table", "", "1005", std::nullopt},
      row{"an empty key has white space in front", "| Payload=0x1", "", "0x1"},
      row{"a key that is not a word", "Not set Payload=0x1", "Not set", "0x1"},
      row{"a point is any character", "1x05 Payload=0x1", "1.05", "0x1"},
      row{"but no line feed", "1\n05 Payload=0x1", "1.05", std::nullopt},
      row{"a key is a pattern, unescaped", "12Payload=0x1 1005 Payload=0x2", "1[02]+5", "0x2"},
      row{"of two alternatives one has the payload", "2 Payload=0x1", "1|2", "0x1"},
      row{"blanks of the key may be the first of the row", "5   Payload=0x1", "5  ", "0x1"},
      row{"one is left for the row", "5  Payload=0x1", "5  ", std::nullopt},
      row{"a run without a payload hides no row behind it", "5 5 5  Payload=0x1", "5 ", "0x1"},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    const raw_table searched = table(each.text);
    EXPECT_EQ(sem_table(searched).payload_of(each.key), each.expected);
    EXPECT_EQ(first_hit(sem_definition, each.key, searched), each.expected);
  }
}

TEST_F(chip_rows_test, a_mac_is_found_by_its_rif) {
  const std::string head = "IHP_VSI_LOW_CFG_1.IHP0[5]: <A=0x1,B=2";
  const std::array rows = {
      row{"as printed", head + ",C=3,MY_MAC=0x56bc,D=0>\n", "5", "56bc"},
      row{"directly behind the two fields", head + ",MY_MAC=0x56bc>", "5", "56bc"},
      row{"the first hit comes first", head + "MY_MAC=0x1\n" + head + "MY_MAC=0x2", "5", "1"},
      row{"of a line with two, the last MAC", head + "MY_MAC=0x1,MY_MAC=0x2>", "5", "2"},
      row{"two rows on one line share its last MAC",
          head + "MY_MAC=0x1> IHP_X.IHP0[6]: <A=1,B=2,MY_MAC=0x2>", "5", "2"},
      row{"and the second is found", head + "MY_MAC=0x1> IHP_X.IHP0[6]: <A=1,B=2,MY_MAC=0x2>", "6",
          "2"},
      row{"a row without a MAC is none", head + ">\n" + head + ",MY_MAC=0x2>", "5", "2"},
      row{"the MAC stands on the row's line", head + "\nMY_MAC=0x2>", "5", std::nullopt},
      row{"a decimal MAC is none", head + ",MY_MAC=5>", "5", std::nullopt},
      row{"core 1 is not looked at", "IHP_X.IHP1[5]: <A=0,B=0,MY_MAC=0x1>", "5", std::nullopt},
      row{"one field is too few", "IHP_X.IHP0[5]: <A=0,MY_MAC=0x1>", "5", std::nullopt},
      row{"the whole number", "IHP_X.IHP0[55]: <A=0,B=0,MY_MAC=0x1>", "5", std::nullopt},
      row{"a leading zero is another text", "IHP_X.IHP0[05]: <A=0,B=0,MY_MAC=0x1>", "5",
          std::nullopt},
      row{"any character in front of the core", "IHP_X IHP0[5]: <A=0,B=0,MY_MAC=0x1>", "5", "1"},
      row{"a negative RIF is looked up as it stands", "IHP_X.IHP0[-5]: <A=0,B=0,MY_MAC=0x1>", "-5",
          "1"},
      row{"an empty table", "", "5", std::nullopt},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    const raw_table searched = table(each.text);
    EXPECT_EQ(vsi_mac_of(searched, each.key), each.expected);
    EXPECT_EQ(first_hit(vsi_definition, each.key, searched), each.expected);
  }
}

TEST_F(chip_rows_test, only_a_row_in_literal_braces_is_braced) {
  EXPECT_TRUE(sem_table(table("1 Payload=0x1\n{}12 Payload=0x3{}\n")).has_braced_row());
  for (const char* text : {"", "12 Payload=0x3\n", "{}12 Payload=0x3\n", "{1}2 Payload=0x3{1}",
                           "{} Payload=0x3{}", "{}12 Payload=3{}"}) {
    EXPECT_FALSE(sem_table(table(text)).has_braced_row()) << text;
  }
}

TEST_F(chip_rows_test, a_sem_table_is_searched_whatever_it_holds) {
  for (const auto* outputs : {&meaningless_outputs(), &endless_outputs()}) {
    for (const bad_output& each : *outputs) {
      SCOPED_TRACE(each.why);
      const raw_table junk = each.output.as_shared_text();
      EXPECT_EQ(sem_table(junk).payload_of("1005"), std::nullopt);
      EXPECT_FALSE(sem_table(junk).has_braced_row());
      const raw_table row_behind = table(*junk + "\n{}1005 Payload=0x1{}\n");
      EXPECT_THAT(sem_table(row_behind).payload_of("1005"), Optional(std::string("0x1")));
      EXPECT_TRUE(sem_table(row_behind).has_braced_row());
    }
  }
}

TEST_F(chip_rows_test, a_key_that_is_not_a_word_is_found_whatever_the_table_holds) {
  for (const auto* outputs : {&meaningless_outputs(), &endless_outputs()}) {
    for (const bad_output& each : *outputs) {
      SCOPED_TRACE(each.why);
      const raw_table row_behind =
          table(std::string(each.output.as_text()) + "!Not set Payload=0x1\n");
      for (const char* key : {"Not set", "Not.set", ".", "t", "!Not set", "", " set"}) {
        EXPECT_THAT(sem_table(row_behind).payload_of(key), Optional(std::string("0x1"))) << key;
      }
      EXPECT_EQ(sem_table(row_behind).payload_of("not set"), std::nullopt);
      EXPECT_EQ(sem_table(row_behind).payload_of(" "), std::nullopt);
    }
  }
}

TEST_F(chip_rows_test, a_vsi_table_is_searched_whatever_it_holds) {
  for (const auto* outputs : {&meaningless_outputs(), &endless_outputs()}) {
    for (const bad_output& each : *outputs) {
      SCOPED_TRACE(each.why);
      const raw_table junk = each.output.as_shared_text();
      EXPECT_EQ(vsi_mac_of(junk, "5"), std::nullopt);
      const raw_table row_behind = table(*junk + "\n" + vsi_row("5", "2bc"));
      EXPECT_THAT(vsi_mac_of(row_behind, "5"), Optional(std::string("2bc")));
    }
  }
}

TEST_F(chip_rows_test, a_line_of_any_length_may_hold_a_row_or_any_number_of_them) {
  const std::string long_field(300'000, '7');
  EXPECT_THAT(vsi_mac_of(table("IHP_X.IHP0[5]: <A=1,B=" + long_field + ",MY_MAC=0x2bc>"), "5"),
              Optional(std::string("2bc")));
  std::string rows;
  for (int rif = 0; rif < 30'000; ++rif) rows += fmt::format("IHP_X.IHP0[{}]: <A=1,B=2> ", rif);
  const raw_table without = table(rows);
  const raw_table with = table(rows + "MY_MAC=0x1 MY_MAC=0x2bc\n" + rows);
  for (const char* rif : {"0", "777", "29999"}) {
    EXPECT_EQ(vsi_mac_of(without, rif), std::nullopt);
    EXPECT_THAT(vsi_mac_of(with, rif), Optional(std::string("2bc")));
  }
}

TEST_F(chip_rows_test, a_sem_table_takes_time_linear_in_its_length) {
  const std::array<near_miss, 6> shapes = {{
      {"a word", "", "5", ""},
      {"keys", "", "1005 ", ""},
      {"a key and blanks", "1005", " ", "Payloa"},
      {"payloads that are keys", "", "1005 Payload=", ""},
      {"rows without a payload", "", "1005 Payload= \n", ""},
      {"a payload without an end", "1005 Payload=", "0", ""},
  }};
  for (const near_miss& shape : shapes) expect_linear(sem_row, shape);
  const std::array<near_miss, 6> braced_shapes = {{
      {"braces", "", "{}", ""},
      {"a key without an end", "{}", "5", ""},
      {"a key and blanks", "{}5", " ", "Payloa"},
      {"keys in braces", "", "{}5 Payload=0x1{", ""},
      {"a payload without an end", "{}5 Payload=0x", "1", "{"},
      {"keys without a payload", "", "{}5 ", ""},
  }};
  for (const near_miss& shape : braced_shapes) expect_linear(braced_row, shape);
}

TEST_F(chip_rows_test, a_key_that_is_not_a_word_takes_time_linear_in_the_length_of_the_table) {
  const std::array<near_miss, 6> shapes = {{
      {"blanks", "", " ", "Payloa"},
      {"line feeds behind a key", "Not set", "\n", "Payload="},
      {"keys", "", "Not set ", ""},
      {"keys and runs of blanks", "", "Not set    \t", ""},
      {"a word", "", "t", " "},
      {"rows without a payload", "", "Not set Payload= ", ""},
  }};
  for (const char* key : {"", " ", ".", ". ", "Not set", "Not.set"}) {
    for (const near_miss& shape : shapes) expect_linear(fill(sem_payload, {key}), shape);
  }
}

TEST_F(chip_rows_test, a_vsi_table_takes_time_linear_in_its_length) {
  const std::array<near_miss, 11> shapes = {{
      {"a word", "", "X", ""},
      {"words", "", "X.", ""},
      {"heads of a block's name", "", "IHP", ""},
      {"a block's name without an end", "IHP", "X", ".IHP1[5]"},
      {"cores", "", "IHP0", ""},
      {"cores in brackets", "IHP", "IHP0[", ""},
      {"blocks without a RIF", "", "IHPX.IHP0[", ""},
      {"a RIF without an end", "IHPX.IHP0[", "5", "!"},
      {"a field without an end", "IHPX.IHP0[5]: <A", "A", "!"},
      {"a field's value without an end", "IHPX.IHP0[5]: <A=1,B=", "2", ""},
      {"rows whose second field is the next row", "", "IHPX.IHP0[5]: <A=1,B=", ""},
  }};
  for (const near_miss& shape : shapes) expect_linear(vsi_head, shape);
  const std::array<near_miss, 5> mac_shapes = {{
      {"a word", "", "M", ""},
      {"names", "", "MY_MAC", ""},
      {"fields without a MAC", "", "MY_MAC=0x,", ""},
      {"fields whose MAC is the next one's name", "", "MY_MAC=0x", ""},
      {"a MAC without an end", "MY_MAC=0x", "1", ""},
  }};
  for (const near_miss& shape : mac_shapes) expect_linear(vsi_mac, shape);
}

TEST_F(chip_rows_test, a_key_that_is_not_a_pattern_is_a_failure) {
  EXPECT_THAT(failure_of([] { sem_table(table("1005 Payload=0x1")).payload_of("(1005"); }),
              StartsWith("pattern "));
}

constexpr unsigned seeds = 3000;

constexpr std::array<std::string_view, 38> sem_pieces = {"1005",
                                                         "005",
                                                         "5",
                                                         "_5",
                                                         "f1005",
                                                         "8fff",
                                                         "0c88064",
                                                         "Payload",
                                                         "Payload=",
                                                         " ",
                                                         " ",
                                                         "\n",
                                                         "\t",
                                                         "\r\n",
                                                         " ",
                                                         "0x",
                                                         "0x44",
                                                         "=",
                                                         "|",
                                                         "Key=",
                                                         "Key",
                                                         "0x00001",
                                                         "{}",
                                                         "{",
                                                         "}",
                                                         "-",
                                                         ".",
                                                         "\xff",
                                                         "\xc3",
                                                         "\x80",
                                                         "A",
                                                         "z",
                                                         "_",
                                                         " Payload=0x1",
                                                         " Payload=1005",
                                                         " Payload=5 Payload=",
                                                         "1005 Payload=0x44\n",
                                                         "{}12 Payload=0x3{}"};

constexpr std::array<std::string_view, 36> vsi_pieces = {
    "IHP_VSI_LOW_CFG_1.IHP0[",
    "IHPX.IHP0[5]: <A=1,B=IHPX.IHP0[6]: <A=1,B=",
    "IHPXIHP0[5]: <A=1,B=2,",
    "IIHPX_IHP0[5]: <A=1,B=2,",
    "MY_MAC=0xMY_MAC=0x",
    ": <A=1,B=2",
    "IHP_X.IHP0[5]",
    "IHP_X.IHP0[5]: <A=1,B=2",
    "IHP_X.IHP0[55]: <A=1,B=2,MY_MAC=0x2bc>\n",
    "IHP_X.IHP0[5]: <A=1,B=2,MY_MAC=0x1bc>\n",
    "IHP1[5]: <A=1,B=2",
    "IHP0[5",
    "IHP0[",
    "IHP",
    "IHP0",
    "IHPIHP0",
    "_",
    ".",
    "[",
    "]",
    "]: <",
    ": <",
    "A=1,",
    "B=2",
    "MY_MAC=0x",
    "MY_MAC=0x2bc",
    "MY_MAC",
    ">",
    "\n",
    " ",
    "5",
    "05",
    "-5",
    "6",
    "\xff",
    ","};

TEST_F(chip_rows_test, sem_look_up_equals_the_plain_search_on_hostile_text) {
  const std::array<std::string_view, 30> keys = {"1005",
                                                 "005",
                                                 "5",
                                                 "_5",
                                                 "f1005",
                                                 "8fff",
                                                 "1",
                                                 "0x1",
                                                 "0x44",
                                                 "Payload",
                                                 "A",
                                                 "05",
                                                 "",
                                                 " ",
                                                 "  ",
                                                 "\n",
                                                 ".",
                                                 "..",
                                                 " .",
                                                 ". ",
                                                 "1.05",
                                                 "5 ",
                                                 " 05",
                                                 "=5",
                                                 "5\t",
                                                 "Key=5",
                                                 "|5",
                                                 "\xff"
                                                 "5",
                                                 "10*5+?",
                                                 "[05]|Key"};
  unsigned hits = 0;
  for (unsigned seed = 1; seed <= seeds; ++seed) {
    std::mt19937 random(seed);
    std::string text = fragments(random, sem_pieces, 2 + random() % 60);
    if (random() % 3 == 0) text.insert(random() % text.size(), 1, '\0');
    const raw_table searched = table(text);
    for (const std::string_view key : keys) {
      const sem_table rows(searched);
      const auto payload = rows.payload_of(key);
      hits += payload ? 1 : 0;
      ASSERT_EQ(payload, first_hit(sem_definition, key, searched))
          << "seed " << seed << ", key " << quoted(key) << ", text " << quoted(text);
    }
    ASSERT_EQ(sem_table(searched).has_braced_row(),
              !findall(pattern(braced_definition), *searched).empty())
        << "seed " << seed << ", text " << quoted(text);
    st().indexes.clear();
  }
  EXPECT_GT(hits, seeds / 4) << "too few of the texts hold a row";
}

TEST_F(chip_rows_test, vsi_look_up_equals_the_plain_search_on_hostile_text) {
  const std::array<std::string_view, 8> rifs = {"5", "55", "05", "-5", "6", "65", "0", "-55"};
  unsigned hits = 0;
  for (unsigned seed = 1; seed <= seeds; ++seed) {
    std::mt19937 random(seed);
    std::string text = fragments(random, vsi_pieces, 2 + random() % 40);
    if (random() % 3 == 0) text.insert(random() % text.size(), 1, '\0');
    const raw_table searched = table(text);
    for (const std::string_view rif : rifs) {
      const auto mac = vsi_mac_of(searched, rif);
      hits += mac ? 1 : 0;
      ASSERT_EQ(mac, first_hit(vsi_definition, rif, searched))
          << "seed " << seed << ", RIF " << rif << ", text " << quoted(text);
    }
    st().indexes.clear();
  }
  EXPECT_GT(hits, seeds / 4) << "too few of the texts hold a row";
}

TEST_F(chip_rows_test, fragments_of_a_table_take_time_linear_in_their_length) {
  for (const std::string_view expression : {sem_row, braced_row}) {
    expect_linear_on_fragments(expression, sem_pieces, 1000);
  }
  for (const char* key : {"", " ", ". ", "5", "5 "}) {
    expect_linear_on_fragments(fill(sem_payload, {key}), sem_pieces, 300);
  }
  for (const std::string_view expression : {vsi_head, vsi_mac}) {
    expect_linear_on_fragments(expression, vsi_pieces, 1000);
  }
}

TEST_F(chip_rows_test, many_threads_look_up_keys_of_many_lengths_in_one_table) {
  constexpr int entries = 400;
  std::string text;
  for (int number = 0; number < entries; ++number) {
    text += fmt::format("  1 | Key=0xabcdef01{:08x} Payload=0x{:x}\n", number, number);
    text += vsi_row(std::to_string(number), fmt::format("{:x}", number));
  }
  for (int round = 0; round < 10; ++round) {
    const raw_table searched = table(text);
    together(8, [&](int thread) {
      for (int step = 0; step < entries; ++step) {
        const int number = (step + thread * 50) % entries;
        const std::string padded = fmt::format("{:08x}", number);
        // Each thread asks for each length at a different time.
        const std::string_view key = tail(padded, 3U + static_cast<unsigned>((step + thread) % 6));
        EXPECT_THAT(sem_table(searched).payload_of(key), Optional(fmt::format("0x{:x}", number)));
        EXPECT_THAT(vsi_mac_of(searched, std::to_string(number)),
                    Optional(fmt::format("{:x}", number)));
        EXPECT_FALSE(sem_table(searched).has_braced_row());
      }
    });
  }
}

TEST_F(chip_rows_test, a_key_of_any_length_is_the_tail_of_a_word) {
  const std::string word = std::string(40, '7') + "1005";
  const raw_table searched = table("1 | Key=0x" + word + " Payload=0x1\n");
  const sem_table rows(searched);
  for (int time = 0; time < 2; ++time) {
    for (std::size_t length = 1; length <= word.size(); ++length) {
      EXPECT_THAT(rows.payload_of(tail(word, length)), Optional(std::string_view("0x1"))) << length;
    }
    EXPECT_EQ(rows.payload_of("8" + word), std::nullopt);
  }
}

TEST_F(chip_rows_test, a_look_up_goes_on_while_the_indexes_are_forgotten) {
  const raw_table searched = table("1005 Payload=0x1\n" + vsi_row("5", "2bc"));
  together(4, [&](int thread) {
    for (int step = 0; step < 300; ++step) {
      if (thread == 0) st().indexes.clear();
      EXPECT_THAT(sem_table(searched).payload_of("1005"), Optional(std::string("0x1")));
      EXPECT_THAT(vsi_mac_of(searched, "5"), Optional(std::string("2bc")));
    }
  });
}

}  // namespace
}  // namespace tessel
