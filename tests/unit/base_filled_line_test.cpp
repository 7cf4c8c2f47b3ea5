#include "base/filled_line.h"

#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "base/command.h"
#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

struct row {
  filling kind;
  const char* name;  // in messages
  std::vector<std::string> admitted;
  std::vector<std::string> refused;
};

// All alphabets. Each rejects values that plant a command, except that of the chip command, which
// is between double quotes.
const std::vector<row>& rows() {
  static const std::vector<row> all = {
      {filling::address,
       "address",
       {"192.0.0.4", "10.0.0.1", "node-1", "lc_0.example", "fe80::1%eth0", "x", "0-", "::1"},
       {"", "-", "-x", "a/b", "a@b", "Not set", "a,b", "[::1]"}},
      {filling::node_name,
       "node name",
       {"0/RP0/CPU0", "D0/CB0/CPU0", "46/0/CPU0", "0/0/CPU0", "node_1"},
       {"", "0 0", "0-0"}},
      {filling::node_in_file_name,
       "node name",
       {"0_RP0_CPU0", "46_0_CPU0", "x"},
       {"", "0/0", "..", "."}},
      {filling::node_id,
       "node id",
       {"A", "0", "4096", "18446744073709551615"},
       {"", "AA", "A1", "0x1", "Not set", "-4096", "1.5", "[1]"}},
      {filling::npu, "NPU", {"all", "0", "12"}, {"", "al", "all0", "0x1", "-1", "A", "None"}},
      {filling::glif,
       "GLIF",
       {"", "1", "12ab", "0x1f", "AB_:", "____"},
       {"12345", "12.4", "1/2", "((((", " set", ".."}},
      {filling::capture,
       "capture name",
       {"1", "show_unit", "glif0x1f", "glif1:2_", "glif"},
       {"", "a/b", "..", "a.b", "a-b"}},
  };
  return all;
}

std::string one(filling kind, const std::string& text) {
  return filled_line("tool {} end", {{kind, text, "0/0/CPU0"}}).text();
}

TEST(filled_line, a_value_of_its_alphabet_is_filled_in_as_it_is) {
  for (const row& each : rows()) {
    for (const std::string& value : each.admitted) {
      EXPECT_EQ(one(each.kind, value), "tool " + value + " end");
    }
  }
}

TEST(filled_line, any_other_value_is_refused_with_its_name_and_its_node) {
  for (const row& each : rows()) {
    for (const std::string& value : each.refused) {
      SCOPED_TRACE(each.name + (" " + value));
      EXPECT_THAT(
          failure_of([&] { one(each.kind, value); }),
          testing::StartsWith(std::string("the ") + each.name + " of 0/0/CPU0 is '" + value + "'"));
    }
  }
}

TEST(filled_line, what_plants_a_command_is_refused_wherever_it_would_be_one) {
  for (const row& each : rows()) {
    for (const std::string& value : values_that_plant("/opt/nos/planted")) {
      SCOPED_TRACE(each.name + (" " + value));
      EXPECT_THAT(failure_of([&] { one(each.kind, value); }),
                  AllOf(HasSubstr(each.name), HasSubstr(" of 0/0/CPU0 is "), Not(HasSubstr("\n"))));
    }
  }
}

TEST(filled_line, the_failure_says_what_would_be_taken) {
  EXPECT_EQ(failure_of([] { one(filling::address, "$(touch x)"); }),
            "the address of 0/0/CPU0 is '$(touch x)', and a command line takes only "
            "[0-9A-Za-z_.:%][0-9A-Za-z_.:%-]*");
  EXPECT_EQ(failure_of([] {
              filled_line("{}", {{filling::npu, "0;x"}}).text();
            }),
            "the NPU is '0;x', and a command line takes only [0-9]+|all");
}

TEST(filled_line, each_value_has_its_place_and_none_is_filled_in_again) {
  const filled_line line(
      "a {} b {} c {}",
      {{filling::chip_command, "d {} {"}, {filling::npu, "1"}, {filling::node_id, "A"}});
  EXPECT_EQ(line.text(), "a d {} { b 1 c A");
  EXPECT_EQ(line.shown(), line.text());
}

TEST(filled_line, the_first_of_two_bad_values_is_named) {
  EXPECT_THAT(failure_of([] {
                filled_line("{} {}", {{filling::npu, "x"}, {filling::node_id, "y"}}).text();
              }),
              HasSubstr("NPU"));
}

TEST(filled_line, what_is_shown_is_on_one_line_whatever_the_value_is) {
  const filled_line line("ssh {} x", {{filling::address, std::string("a\nb\0\x1b[2Jc\r", 10)}});
  EXPECT_EQ(line.shown(), "ssh a\\nb\\x00\\x1b[2Jc\\x0d x");
}

TEST(filled_line, a_line_of_the_source_is_what_it_is) {
  EXPECT_EQ(filled_line("rm /tmp/tessel_* | grep '{}' \"$x\"").text(),
            "rm /tmp/tessel_* | grep '{}' \"$x\"");
  EXPECT_EQ(filled_line("").text(), "");
  EXPECT_EQ(failure_of([] { filled_line("echo a\0b").text(); }),
            "a NUL byte would end the command line");
}

// Only a literal becomes a line by itself.
TEST(filled_line, a_text_that_was_made_at_run_time_must_be_named_as_a_line) {
  EXPECT_TRUE((std::is_convertible_v<const char(&)[5], filled_line>));
  EXPECT_FALSE((std::is_convertible_v<std::string, filled_line>));
  EXPECT_FALSE((std::is_convertible_v<std::string_view, filled_line>));
  EXPECT_FALSE((std::is_convertible_v<const char*, filled_line>));
  EXPECT_FALSE((std::is_constructible_v<filled_line, char(&)[5]>));
  const std::string built = "tool " + std::string("{}");
  EXPECT_EQ(filled_line(built).text(), "tool {}");
  EXPECT_EQ(filled_line(built, {{filling::npu, "3"}}).text(), "tool 3");
  EXPECT_EQ(filled_line(std::string_view("a b").substr(2)).text(), "b");
}

// Tries every byte. The shell passes on unchanged what a chip command may contain; everything else
// is rejected.
TEST_F(router_test, a_chip_command_reaches_the_tool_as_it_is_or_not_at_all) {
  open_logs();
  tool("asic_shell_show", "printf %s \"$2\"");
  std::string admitted;
  std::string refused;
  for (int byte = 0; byte < 256; ++byte) {
    const std::string text(1, static_cast<char>(byte));
    try {
      admitted += filled_line("{}", {{filling::chip_command, text}}).text();
    } catch (const failure&) {
      refused += text;
    }
  }
  EXPECT_EQ(execute_bcmd(filled_line(admitted), "0", "0"), admitted);
  EXPECT_EQ(admitted.size(), 95U - 4U) << "printable ASCII but for the four of the shell";
  for (const char each : std::string_view("\"$`\\\n\0", 6)) {
    EXPECT_NE(refused.find(each), std::string::npos) << each;
  }
}

}  // namespace
}  // namespace tessel
