#include "desk/show/escape.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "command_line/one_line.h"
#include "desk/show/terminal.h"
#include "tests/desk/example_runs.h"

namespace desk {
namespace {

using namespace std::string_literals;

const std::string broken = "\xef\xbf\xbd";

TEST(escape, leaves_valid_text_as_it_is) {
  const std::string text = "BE1 \xc3\xbc \xe2\x82\xac \xf0\x9f\x8c\x8d";
  EXPECT_EQ(utf8(text), text);
  EXPECT_EQ(xml(text), text);
  EXPECT_EQ(html(text), text);
  EXPECT_EQ(prometheus_label(text), text);
  EXPECT_EQ(nagios_text(text), text);
}

TEST(escape, replaces_each_byte_that_is_no_utf8) {
  EXPECT_EQ(utf8("a\xff"
                 "b"),
            "a" + broken + "b");
  EXPECT_EQ(utf8("\xe2\x82"), broken + broken) << "cut off";
  EXPECT_EQ(utf8("\xc0\xaf"), broken + broken) << "too long for its code";
  EXPECT_EQ(utf8("\xe0\x9f\xbf"), broken + broken + broken) << "too long for its code";
  EXPECT_EQ(utf8("\xed\xa0\x80"), broken + broken + broken) << "half of a pair";
  EXPECT_EQ(utf8("\xf4\x90\x80\x80"), broken + broken + broken + broken) << "above the last code";
  EXPECT_EQ(utf8("\xc3("), broken + "(");
  EXPECT_EQ(utf8("\xf4\x8f\xbf\xbf"), "\xf4\x8f\xbf\xbf") << "the last code";
  EXPECT_EQ(utf8("a\0b"s), "a\0b"s);
}

TEST(escape, a_terminal_gets_no_byte_that_is_no_utf8) {
  EXPECT_EQ(printable("a\xc3\xbc\xe2\x82\xac\xf0\x9f\x8c\x8d"),
            "a\xc3\xbc\xe2\x82\xac\xf0\x9f\x8c\x8d");
  EXPECT_EQ(printable("\xe0\x9f\xbf"), broken + broken + broken) << "too long for its code";
  EXPECT_EQ(printable("\xed\xa0\x80"), broken + broken + broken) << "half of a pair";
  EXPECT_EQ(printable("\xf4\x90\x80\x80"), broken + broken + broken + broken);
  EXPECT_EQ(printable("\xc2\x9b"), broken) << "a control character";
}

TEST(escape, xml_has_no_character_that_it_forbids) {
  EXPECT_EQ(xml("<a b=\"c\" d='e'>&]]>"), "&lt;a b=&quot;c&quot; d=&#39;e&#39;&gt;&amp;]]&gt;");
  EXPECT_EQ(xml("a\tb\nc\rd"), "a&#9;b&#10;c&#13;d");
  EXPECT_EQ(xml_text("a\tb\nc\rd<"), "a\tb\nc&#13;d&lt;");
  EXPECT_EQ(xml("\0\x1b\x0b"s), broken + broken + broken);
  EXPECT_EQ(xml("\x7f\xc2\x9b"), "&#127;&#155;");
  EXPECT_EQ(xml("\xef\xbf\xbe"), broken);
}

TEST(escape, lets_no_text_turn_the_line_around_it) {
  for (const char* turn : {"\xd8\x9c", "\xe2\x80\x8e", "\xe2\x80\x8f", "\xe2\x80\xaa",
                           "\xe2\x80\xae", "\xe2\x81\xa6", "\xe2\x81\xa9"}) {
    const std::string text = "a"s + turn;
    EXPECT_EQ(printable(text), "a" + broken);
    EXPECT_EQ(xml(text), "a" + broken);
    EXPECT_EQ(html(text), "a" + broken);
    EXPECT_EQ(prometheus_label(text), "a" + broken);
    EXPECT_EQ(nagios_text(text), "a ");
  }
}

TEST(escape, html_has_no_tag_and_no_control_character) {
  EXPECT_EQ(html("<script>\"'&"), "&lt;script&gt;&quot;&#39;&amp;");
  EXPECT_EQ(html("\x1b\0\r\x7f\xc2\x9b\xef\xb7\x90"s),
            broken + broken + broken + broken + broken + broken);
  EXPECT_EQ(html("a\tb\nc"), "a\tb\nc");
}

TEST(escape, a_label_stays_within_its_quotes_and_its_line) {
  EXPECT_EQ(prometheus_label("a\\b\"c\nd"), "a\\\\b\\\"c\\nd");
  EXPECT_EQ(prometheus_label("\x1b\r"), broken + broken);
}

TEST(escape, the_text_of_a_plug_in_is_one_line_without_a_bar) {
  EXPECT_EQ(nagios_text("a|b\nc\r\x1b[31m\xc2\x85\xe2\x80\xa8"
                        "d"),
            "a/b c  [31m  d");
}

TEST(escape, a_uri_has_only_plain_characters) {
  EXPECT_EQ(uri_path("logs/a b\xff<>%"), "logs/a%20b%EF%BF%BD%3C%3E%25");
}

TEST(escape, a_start_ends_between_characters) {
  EXPECT_EQ(start_of("a\xe2\x82\xac", 4), "a\xe2\x82\xac");
  EXPECT_EQ(start_of("a\xe2\x82\xac", 3), "a");
  EXPECT_EQ(start_of("\xe2\x82\xac", 1), "");
  EXPECT_EQ(start_of("abc", 2), "ab");
}

TEST(one_line, shows_what_would_control_a_terminal_or_turn_the_line) {
  using command_line::one_line;
  EXPECT_EQ(one_line("a\n\x1b\x7f"), "a\\x0a\\x1b\\x7f");
  EXPECT_EQ(one_line("x\u202ey\u061c"), "x\\xe2\\x80\\xaey\\xd8\\x9c");
  EXPECT_EQ(one_line("\u2068\xc2\x9b"), "\\xe2\\x81\\xa8\\xc2\\x9b");
  EXPECT_EQ(one_line("B\u00fcndel \u20ac \xc2"), "B\u00fcndel \u20ac \xc2");
  EXPECT_EQ(one_line("\x9b[31m"), "\\x9b[31m") << "the beginning of a sequence in one byte";
  EXPECT_EQ(one_line("\u20ac\x9b\xe2\x9b|"), "\u20ac\\x9b\xe2\\x9b|") << "cut off";
  EXPECT_EQ(one_line("\xe0\x9b\x9b\xed\xa0\x80"), "\xe0\\x9b\\x9b\xed\xa0\\x80") << "no characters";
  EXPECT_EQ(one_line("\xf0\x9f\x94\x97 \u011b"), "\xf0\x9f\x94\x97 \u011b") << "their bytes are";
  EXPECT_EQ(one_line("\xc2[\xc2"
                     "A"),
            "\xc2[\xc2"
            "A");
}

// Whatever goes in, what comes out is a text that every format accepts.
TEST(escape, makes_any_bytes_valid) {
  std::mt19937 random(7);
  for (int round = 0; round < 2000; ++round) {
    std::string raw;
    for (auto length = random() % 30; length > 0; --length)
      raw += random() % 3 == 0 ? hostile_texts()[5][random() % hostile_texts()[5].size()]
                               : static_cast<char>(random());
    const std::string valid = utf8(raw);
    EXPECT_EQ(utf8(valid), valid);
    EXPECT_EQ(xml(raw), xml(valid));
    EXPECT_EQ(html(raw), html(valid));
    EXPECT_EQ(html(raw).find_first_of("<>\"'\0\x1b\x7f"s), std::string::npos);
    EXPECT_EQ(xml(raw).find_first_of("<>\"'\0\x1b\x7f\n\r"s), std::string::npos);
    EXPECT_EQ(nagios_text(raw).find_first_of("|\n\r\0\x1b"s), std::string::npos);
    EXPECT_EQ(prometheus_label(raw).find('\n'), std::string::npos);
  }
}

}  // namespace
}  // namespace desk
