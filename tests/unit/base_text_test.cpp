#include "base/text.h"

#include <array>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

#include "support/fake_router.h"
#include "support/pattern_steps.h"
#include "support/together.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using text_test = router_test;
using texts = std::vector<std::string>;

texts copied(const std::vector<std::string_view>& pieces) {
  return {pieces.begin(), pieces.end()};
}

std::vector<texts> rows_of(const matches& found) {
  std::vector<texts> rows;
  for (std::size_t at = 0; at < found.size(); ++at) {
    rows.emplace_back(found[at].begin(), found[at].end());
  }
  return rows;
}

// A pattern compiled to machine code. Such patterns are never freed; this keeps them reachable for
// a leak checker.
const pattern& compiled(const char* expression, letter_case letters = letter_case::kept) {
  static auto* const all = new std::vector<const pattern*>;
  all->push_back(&constant(expression, letters));
  return *all->back();
}

// The matches of a pattern with one group or none.
texts found_in(std::string_view expression, std::string_view subject) {
  texts all;
  const matches found = findall(pattern(expression), subject);
  for (std::size_t at = 0; at < found.size(); ++at) all.emplace_back(found.text(at));
  return all;
}

std::string text_of(std::initializer_list<std::string_view> entries) {
  const std::vector<std::string_view> list(entries);
  return list_text(list);
}

TEST_F(text_test, findall_gives_matches_groups_or_tuples) {
  struct row {
    const char* why;
    const char* expression;
    std::string subject;
    std::vector<texts> expected;
  };
  const std::array rows = {
      row{"no group: the match", "\\d+", "a1b22", {{"1"}, {"22"}}},
      row{"one group: the group", "LAG (\\d+)", "LAG 1, LAG 22", {{"1"}, {"22"}}},
      row{"several: a tuple", "(\\w+)=(\\d+)", "a=1 b=2", {{"a", "1"}, {"b", "2"}}},
      row{"a group that does not capture",
          "(?:LAG|lag) \\d",
          "LAG 1 lag 2",
          {{"LAG 1"}, {"lag 2"}}},
      row{"no match", "x", "abc", {}},
      row{"empty text", "x*y", "", {}},
      row{"left to right, not overlapping", "aa", "aaaaa", {{"aa"}, {"aa"}}},
      row{"lazy", "<(.+?)>", "<a><b>", {{"a"}, {"b"}}},
      row{"look-ahead", "(.+?)(?=processor)", "TR-ELM1 processor\n", {{"TR-ELM1 "}}},
      row{"look-behind", "(?<=\\w)\\d+\\/\\d+\\/\\d+.*", "HundredGigE0/0/0/1", {{"0/0/0/1"}}},
      row{"a point matches no line feed", "a.b", "a\nb a\rb", {{"a\rb"}}},
      row{"nor does it cross lines", "k.*", "k1\nk2", {{"k1"}, {"k2"}}},
      row{"a dollar stands for the end, or the last line feed", "\\w$", "a\nb\n", {{"b"}}},
      row{"\\w is ASCII", "\\w+", "caf\xc3\xa9 x", {{"caf"}, {"x"}}},
      row{"\\s is ASCII white space",
          "a\\sb",
          "a\tb a\xa0"
          "b a\vb",
          {{"a\tb"}, {"a\vb"}}},
      row{"\\d is ASCII",
          "\\d",
          "\xd9\xa3"
          "3",
          {{"3"}}},
      row{"bytes, not characters", "^..$", "\xc3\xa9", {{"\xc3\xa9"}}},
      row{"invalid UTF-8 harms nothing", "b(\\d)", "\xff\xfe b1\xc3", {{"1"}}},
      row{"a NUL byte harms nothing", "b(\\d)", std::string("a\0b1\0b2", 7), {{"1"}, {"2"}}},
      row{"case counts", "be\\d", "BE1 be2", {{"be2"}}},
      row{"an empty match at each place", "x*", "ab", {{""}, {""}, {""}}},
      row{"and behind a longer one", "a*", "baac", {{""}, {"aa"}, {""}, {""}}},
      row{"which may stand where an empty one does", "|a", "ab", {{""}, {"a"}, {""}, {""}}},
      row{"an empty group of a match", "LAG(\\d*)", "LAG1 LAG", {{"1"}, {""}}},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    EXPECT_EQ(rows_of(findall(pattern(each.expression), each.subject)), each.expected);
    EXPECT_EQ(rows_of(findall(compiled(each.expression), each.subject)), each.expected)
        << "compiled to machine code";
  }
}

TEST_F(text_test, findall_with_a_group_that_took_no_part_gives_an_empty_text_in_its_place) {
  const std::string subject = "BE1.5 BE2";
  EXPECT_EQ(rows_of(findall(pattern("BE(\\d+)(\\.\\d+)?"), subject)),
            (std::vector<texts>{{"1", ".5"}, {"2", ""}}));
  EXPECT_EQ(rows_of(findall(pattern("(x)?(B)E"), subject)),
            (std::vector<texts>{{"", "B"}, {"", "B"}}));
  EXPECT_EQ(rows_of(findall(pattern("BE2(x)?"), subject)), (std::vector<texts>{{""}}))
      << "a single group as well";
}

TEST_F(text_test, findall_gives_views_into_the_text) {
  const std::string subject = "LAG 1";
  const matches found = findall(pattern("\\d"), subject);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found.text(0).data(), subject.data() + 4);
}

TEST_F(text_test, case_is_ignored_only_where_asked) {
  EXPECT_EQ(findall(pattern("untagged", letter_case::ignored), "Untagged UNTAGGED").size(), 2U);
  EXPECT_EQ(findall(compiled("untagged", letter_case::ignored), "Untagged UNTAGGED").size(), 2U);
  EXPECT_TRUE(findall(pattern("untagged"), "Untagged UNTAGGED").empty());
}

TEST_F(text_test, an_invalid_expression_is_a_failure_that_names_it) {
  EXPECT_THAT(failure_of([] { pattern("BE(12"); }), HasSubstr("'BE(12'"));
  EXPECT_THAT(failure_of([] { pattern("[z-a]"); }), HasSubstr("'[z-a]'"));
  EXPECT_THAT(failure_of([] { constant("*"); }), HasSubstr("'*'"));
}

TEST_F(text_test, a_search_that_runs_away_is_a_failure_and_no_empty_result) {
  const std::string subject = std::string(40, 'a') + "b";
  const pattern interpreted("^(?:a|a|a)+$");
  for (const pattern* runaway : {&interpreted, &compiled("^(?:a|a|a)+$")}) {
    EXPECT_THAT(failure_of([&] { findall(*runaway, subject); }), HasSubstr("match limit"));
    EXPECT_THAT(failure_of([&] { sub(*runaway, "x", subject); }), HasSubstr("41 bytes"));
    EXPECT_THAT(failure_of([&] { split(subject, *runaway); }), HasSubstr("'^(?:a|a|a)+$'"));
  }
}

TEST_F(text_test, the_limit_of_a_search_grows_with_the_text) {
  // Each pattern goes back through the whole text once or twice.
  const std::string subject = "a b" + std::string(16U << 20, 'x');
  for (const char* expression : {"a.*(b|c d)", "a.*?(y|$)", "a (?:b|c).*(?:x|y)$"}) {
    SCOPED_TRACE(expression);
    EXPECT_EQ(findall(pattern(expression), subject).size(), 1U);
    EXPECT_EQ(findall(compiled(expression), subject).size(), 1U);
  }
}

TEST_F(text_test, a_search_that_needs_a_deep_stack_gets_it_or_fails) {
  static const pattern& deep = constant("^(?:a|b)*c");
  const std::string fits = std::string(200'000, 'a') + "c";
  EXPECT_EQ(findall(deep, fits).size(), 1U);
  const std::string too_deep(30'000'000, 'b');
  EXPECT_NE(failure_of([&] { findall(deep, too_deep); }), "");
}

TEST_F(text_test, sub_replaces_every_match_by_the_text_as_it_is) {
  EXPECT_EQ(sub(pattern("_"), "/", "Hu0_0_0_1"), "Hu0/0/0/1");
  EXPECT_EQ(sub(pattern("x"), "/", "abc"), "abc");
  EXPECT_EQ(sub(pattern("\\s+"), "", " a b\n"), "ab");
  EXPECT_EQ(sub(pattern("(b)"), "\\1$1&", "abc"), "a\\1$1&c") << "no references";
  EXPECT_EQ(sub(pattern("x*"), "-", "ab"), "-a-b-");
  EXPECT_EQ(sub(pattern("a"), "aa", "aba"), "aabaa") << "what was put in is not searched";
  EXPECT_EQ(sub(pattern("b"), "", std::string("a\0b", 3)), std::string("a\0", 2));
}

TEST_F(text_test, split_of_a_text_that_begins_with_the_separator_has_an_empty_first_piece) {
  EXPECT_THAT(copied(split("BE1BE2", "BE")), ElementsAre("", "1", "2"));
  EXPECT_THAT(copied(split("BE1BE2", pattern("BE"))), ElementsAre("", "1", "2"));
}

TEST_F(text_test, split_by_a_separator_that_does_not_occur_gives_the_whole_text) {
  EXPECT_THAT(copied(split("BE1BE2", "lag")), ElementsAre("BE1BE2"));
  EXPECT_THAT(copied(split("BE1BE2", pattern("lag"))), ElementsAre("BE1BE2"));
}

TEST_F(text_test, split_keeps_empty_pieces) {
  EXPECT_THAT(copied(split(",a,,b,", ",")), ElementsAre("", "a", "", "b", ""));
  EXPECT_THAT(copied(split(",a,,b,", pattern(","))), ElementsAre("", "a", "", "b", ""));
  EXPECT_THAT(copied(split("", ",")), ElementsAre(""));
  EXPECT_THAT(copied(split("", pattern(","))), ElementsAre(""));
  EXPECT_THAT(copied(split(" a  b ", pattern("\\s+"))), ElementsAre("", "a", "b", ""));
  EXPECT_THAT(copied(split("aaaa", "aaa")), ElementsAre("", "a")) << "no overlaps";
}

TEST_F(text_test, split_by_nothing_is_a_failure_and_does_not_hang) {
  EXPECT_THAT(failure_of([] { split("abc", ""); }), HasSubstr("separator"));
  EXPECT_EQ(replace_all("abc", "", "x"), "abc");
}

TEST_F(text_test, split_words_cuts_at_white_space_without_empty_pieces) {
  EXPECT_THAT(copied(split_words(" \ta  b\r\nc\v\fd\n")), ElementsAre("a", "b", "c", "d"));
  EXPECT_THAT(copied(split_words("")), IsEmpty());
  EXPECT_THAT(copied(split_words(" \n ")), IsEmpty());
  EXPECT_THAT(copied(split_words("a")), ElementsAre("a"));
  EXPECT_THAT(copied(split_words("a\xa0"
                                 "b")),
              ElementsAre("a\xa0"
                          "b"));
}

TEST_F(text_test, strip_removes_white_space_at_both_ends) {
  EXPECT_EQ(strip(" \t\r\n\v\fa b\n"), "a b");
  EXPECT_EQ(strip(" \n"), "");
  EXPECT_EQ(strip(""), "");
  EXPECT_EQ(strip(std::string_view("\0a\0", 3)), std::string_view("\0a\0", 3))
      << "NUL is not a blank";
}

TEST_F(text_test, a_set_of_characters_is_trimmed_and_no_prefix) {
  EXPECT_EQ(strip_set("0x0010x", "0x"), "1");
  EXPECT_EQ(strip_set_left("0x0010x", "0x"), "10x") << "at the beginning only";
  EXPECT_EQ(strip_set("0x0", "0x"), "");
  EXPECT_EQ(strip_set_left("0x0", "0x"), "");
  EXPECT_EQ(strip_set("abc", "0x"), "abc");
  EXPECT_EQ(strip_set("", "0x"), "");
  EXPECT_EQ(strip_set(" a ", ""), " a ") << "an empty set trims nothing";
}

TEST_F(text_test, tail_is_the_end_of_a_text_or_all_of_it) {
  EXPECT_EQ(tail("0x12345", 3), "345");
  EXPECT_EQ(tail("45", 3), "45");
  EXPECT_EQ(tail("345", 3), "345");
  EXPECT_EQ(tail("345", 0), "");
  EXPECT_EQ(tail("", 3), "");
}

TEST_F(text_test, replace_all_replaces_each_occurrence) {
  EXPECT_EQ(replace_all("Bundle-Ether1 Bundle-Ether2", "Bundle-Ether", "BE"), "BE1 BE2");
  EXPECT_EQ(replace_all("aaa", "a", "aa"), "aaaaaa");
  EXPECT_EQ(replace_all("abc", "x", "y"), "abc");
  EXPECT_EQ(replace_all("", "x", "y"), "");
}

TEST_F(text_test, a_value_with_a_point_matches_any_character_there) {
  const std::string filled = fill("BE{}\\s+(\\w+)", {"1.100"});
  EXPECT_EQ(filled, "BE1.100\\s+(\\w+)") << "nothing is escaped";
  EXPECT_THAT(found_in(filled, "BE1.100 up\nBE1x100 down\nBE11100 left\nBE1\n100 no"),
              ElementsAre("up", "down", "left"));
}

TEST_F(text_test, templates_are_filled_from_left_to_right) {
  EXPECT_EQ(fill("{}_{}_{}", {"1", "0", "4096"}), "1_0_4096");
  EXPECT_EQ(fill("{}-{}", {"{}", "x"}), "{}-x") << "what was put in is not filled";
  EXPECT_EQ(fill("\\d{4}{}", {"x"}), "\\d{4}x") << "a repeat count is not a place";
  EXPECT_EQ(fill("a", {"x"}), "a");
  EXPECT_EQ(fill("{}{}", {"x"}), "x{}");
  EXPECT_EQ(fill("", {}), "");
}

TEST_F(text_test, the_quoted_form) {
  struct row {
    const char* why;
    std::string text;
    const char* expected;
  };
  const std::array rows = {
      row{"plain", "BE1", "'BE1'"},
      row{"nothing", "", "''"},
      row{"a single quote and no double one", "it's", "\"it's\""},
      row{"a double quote", "say \"x\"", "'say \"x\"'"},
      row{"both", "it's \"x\"", "'it\\'s \"x\"'"},
      row{"line ends", "a\nb\r\n", "'a\\nb\\r\\n'"},
      row{"tab", "a\tb", "'a\\tb'"},
      row{"backslash", "a\\b", "'a\\\\b'"},
      row{"backslash in double quotes", "'\\", "\"'\\\\\""},
      row{"other control characters", std::string("\0\x01\v\x1f", 4), "'\\x00\\x01\\x0b\\x1f'"},
      row{"bytes from 0x7f", "\x7f\x80\xff", "'\\x7f\\x80\\xff'"},
      row{"the last printable one", " ~", "' ~'"},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    EXPECT_EQ(tessel::quoted(each.text), each.expected);
  }
}

TEST_F(text_test, the_list_text_form_of_texts) {
  EXPECT_EQ(text_of({}), "[]");
  EXPECT_EQ(text_of({"BE1"}), "['BE1']");
  EXPECT_EQ(text_of({"BE1", "", "a\nb", "it's"}), "['BE1', '', 'a\\nb', \"it's\"]");
  EXPECT_EQ(text_of({"", ""}), "['', '']") << "an empty first entry counts";
}

TEST_F(text_test, the_list_text_form_of_matches) {
  EXPECT_EQ(list_text(findall(pattern("x"), "abc")), "[]");
  EXPECT_EQ(list_text(findall(pattern("\\d"), "1 2")), "['1', '2']");
  EXPECT_EQ(list_text(findall(pattern("(\\d)x"), "1x 2x")), "['1', '2']");
  EXPECT_EQ(list_text(findall(pattern("(\\w)=(\\d)?"), "a=1 b=")), "[('a', '1'), ('b', '')]");
}

TEST_F(text_test, steps_are_counted_for_items_and_for_the_bytes_that_they_pass) {
  EXPECT_EQ(steps_of("a", ""), 1U) << "the letter is tried once";
  EXPECT_EQ(steps_of("a", "b"), 3U) << "twice, and the search goes on by a byte";
  EXPECT_EQ(steps_of("a", "a"), 4U) << "twice, and in between it is passed and the end reached";
  const near_miss blanks{"blanks", "", " ", ""};
  const std::uint64_t of_thousand = steps_of("\\s++x", blanks.text(1000));
  EXPECT_GT(of_thousand, 1000U * 1000U / 2);
  EXPECT_GT(steps_of("\\s++x", blanks.text(2000)), of_thousand * 39 / 10) << "the square";
  EXPECT_LT(steps_of("(?<!\\s)\\s++x", blanks.text(2000)), 20'000U);
}

TEST_F(text_test, one_pattern_is_searched_by_many_threads) {
  static const pattern& row = constant("(\\w+)=(\\d+)");
  std::string subject;
  for (int number = 0; number < 500; ++number) subject += "key=" + std::to_string(number) + "\n";
  const pattern filled("key=(4\\d\\d)$");
  together(6, [&](int number) {
    for (int round = 0; round < 20; ++round) {
      EXPECT_EQ(findall(number % 2 == 0 ? row : filled, subject).size(),
                number % 2 == 0 ? 500U : 1U);
    }
  });
}

// What `findall` must return, found by trying the pattern at every position.
texts every_match_of_a_then_digits(std::string_view subject) {
  texts found;
  for (std::size_t at = 0; at < subject.size(); ++at) {
    if (subject[at] != 'a') continue;
    std::size_t end = at + 1;
    while (end < subject.size() && subject[end] >= '0' && subject[end] <= '9') ++end;
    found.emplace_back(subject.substr(at, end - at));
    at = end - 1;
  }
  return found;
}

TEST_F(text_test, random_bytes_are_searched_like_by_hand) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  static const pattern& digits = constant("a\\d*");
  const std::string alphabet("a012\n\xff\0 ", 8);
  for (int round = 0; round < 500; ++round) {
    std::string subject(random() % 60, ' ');
    for (char& c : subject) c = alphabet[random() % alphabet.size()];
    texts found;
    const matches all = findall(digits, subject);
    for (std::size_t at = 0; at < all.size(); ++at) found.emplace_back(all.text(at));
    ASSERT_EQ(found, every_match_of_a_then_digits(subject)) << tessel::quoted(subject);
    ASSERT_EQ(found, found_in("a\\d*", subject)) << tessel::quoted(subject);
    std::string joined;
    for (const std::string_view piece : split(subject, "\n")) joined += std::string(piece) + "\n";
    ASSERT_EQ(joined, subject + "\n");
  }
}

}  // namespace
}  // namespace tessel
