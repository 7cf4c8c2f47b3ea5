#include "base/numbers.h"

#include <array>
#include <cstdint>
#include <limits>
#include <random>
#include <string>

#include "support/fake_router.h"

namespace tessel {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using numbers_test = router_test;

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();

TEST_F(numbers_test, automatic_base) {
  struct row {
    const char* why;
    std::string text;
    const char* decimal;  // null: not a number
  };
  const std::array rows = {
      row{"hexadecimal with its prefix", "0x10", "16"},
      row{"prefix in upper case", "0X1f", "31"},
      row{"digits in either case", "0xaBcD", "43981"},
      row{"decimal", "16", "16"},
      row{"a bare leading zero means octal", "010", "8"},
      row{"which 08 is not", "08", nullptr},
      row{"nor 019", "019", nullptr},
      row{"zero", "0", "0"},
      row{"many zeros are octal", "000", "0"},
      row{"white space around", " \t16\r\n", "16"},
      row{"white space around hexadecimal", " 0x10 ", "16"},
      row{"minus", "-16", "-16"},
      row{"plus", "+16", "16"},
      row{"a sign before the prefix", "-0x10", "-16"},
      row{"minus nothing", "-0", "0"},
      row{"a sign and octal", "-010", "-8"},
      row{"two signs", "--1", nullptr},
      row{"a blank behind the sign", "- 1", nullptr},
      row{"a sign alone", "-", nullptr},
      row{"a prefix alone", "0x", nullptr},
      row{"a sign behind the prefix", "0x-1", nullptr},
      row{"letters behind", "16x", nullptr},
      row{"a unit behind", "9000 bytes", nullptr},
      row{"hexadecimal digits without the prefix", "ff", nullptr},
      row{"a fraction", "1.0", nullptr},
      row{"a NUL byte behind", std::string("16\0", 3), nullptr},
      row{"nothing", "", nullptr},
      row{"blanks only", "  ", nullptr},
      row{"the unset marker", std::string(DEFAULT), nullptr},
      row{"the largest of 64 bits", "0x7fffffffffffffff", "9223372036854775807"},
      row{"64 bits without a sign", "0xffffffffffffffff", "18446744073709551615"},
      row{"longer ones are not wrapped", "0x10000000000000000", "18446744073709551616"},
      row{"very long ones", "1" + std::string(40, '0'),
          "10000000000000000000000000000000000000000"},
      row{"invalid UTF-8", "\xff\xfe", nullptr},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    const value converted = convert_hex_to_int(each.text);
    if (each.decimal != nullptr) {
      EXPECT_EQ(converted, each.decimal);
    } else {
      EXPECT_EQ(converted, each.text) << "comes back unchanged";
      EXPECT_THAT(failure_of([&] { to_integer(each.text); }), StartsWith(brief_text(each.text)));
    }
  }
}

TEST_F(numbers_test, convert_hex_to_int_of_0x10_16_unset_and_a_number) {
  EXPECT_EQ(convert_hex_to_int("0x10"), "16");
  EXPECT_EQ(convert_hex_to_int("16"), "16");
  EXPECT_EQ(convert_hex_to_int("Not set"), "Not set");
  EXPECT_EQ(convert_hex_to_int(16), 16) << "a number is not read, so it stays a number";
}

TEST_F(numbers_test, convert_hex_to_int_leaves_every_other_kind_as_it_is) {
  const value entries = map_of({{"0x10", 1}});
  EXPECT_EQ(convert_hex_to_int(entries), entries);
  EXPECT_EQ(convert_hex_to_int(list_of({"0x10"})), list_of({"0x10"}));
  EXPECT_EQ(convert_hex_to_int(value()), value());
  EXPECT_EQ(convert_hex_to_int(ERROR), 0);
}

TEST_F(numbers_test, convert_to_hex_of_16_as_number_and_text_and_of_0x10) {
  EXPECT_EQ(convert_to_hex(16), "0x10");
  EXPECT_EQ(convert_to_hex("16"), "0x10");
  EXPECT_EQ(convert_to_hex("0x10"), "0x10");
}

TEST_F(numbers_test, short_and_long_numbers_are_converted_alike) {
  std::mt19937_64 random(1);
  for (int round = 0; round < 20000; ++round) {
    const std::uint64_t number = random() >> round % 64;
    const std::string hex = fmt::format("0x{:x}", number);
    const std::string decimal = std::to_string(number);
    // A blank in front makes the text one that is read without the shortcut.
    for (const std::string& text : {hex, decimal, fmt::format("0x0{:X}", number)}) {
      ASSERT_EQ(convert_to_hex(text), hex) << text;
      ASSERT_EQ(convert_to_hex(" " + text), hex) << text;
      ASSERT_EQ(convert_hex_to_int(text), decimal) << text;
      ASSERT_EQ(convert_hex_to_int(" " + text), decimal) << text;
      ASSERT_EQ(to_wide(text), to_wide(" " + text)) << text;
    }
    ASSERT_EQ(to_wide_decimal("0" + decimal), to_wide_decimal(" 0" + decimal));
  }
  EXPECT_EQ(convert_hex_to_int("+1"), "1");
  EXPECT_EQ(convert_hex_to_int("00"), "0");
  for (const char* same : {"-1", "--1", "0x-1", "0x", "0x+1", "1-", "1x", "", "0_1"}) {
    EXPECT_EQ(convert_hex_to_int(same), same);
  }
}

TEST_F(numbers_test, convert_to_hex_of_010_is_0x8_by_the_first_reading) {
  EXPECT_EQ(convert_to_hex("010"), "0x8");
}

TEST_F(numbers_test, convert_to_hex_tries_plain_decimal_second) {
  EXPECT_EQ(convert_to_hex("08"), "0x8");
  EXPECT_EQ(convert_to_hex("0190"), "0xbe");
  EXPECT_EQ(convert_to_hex("-09"), "-0x9");
}

TEST_F(numbers_test, convert_to_hex_is_lower_case_without_leading_zeros) {
  EXPECT_EQ(convert_to_hex("0x00ABcD"), "0xabcd");
  EXPECT_EQ(convert_to_hex(0), "0x0");
  EXPECT_EQ(convert_to_hex("-0"), "0x0");
  EXPECT_EQ(convert_to_hex(-16), "-0x10");
  EXPECT_EQ(convert_to_hex(largest), "0x7fffffffffffffff");
  EXPECT_EQ(convert_to_hex(smallest), "-0x8000000000000000");
  EXPECT_EQ(convert_to_hex("340282366920938463463374607431768211456"),
            "0x100000000000000000000000000000000");
}

TEST_F(numbers_test, convert_to_hex_of_a_text_that_is_not_a_number_is_the_callers_failure) {
  EXPECT_THAT(failure_of([] { convert_to_hex(DEFAULT); }), HasSubstr("'Not set'"));
  EXPECT_THAT(failure_of([] { convert_to_hex(""); }), HasSubstr("''"));
  EXPECT_THAT(failure_of([] { convert_to_hex("12 34"); }), HasSubstr("'12 34'"));
  EXPECT_THAT(failure_of([] { convert_to_hex(value()); }), HasSubstr("nothing"));
  EXPECT_THAT(failure_of([] { convert_to_hex(map_of({})); }), HasSubstr("a map"));
  EXPECT_EQ(st().exception, 0);
}

TEST_F(numbers_test, a_megabyte_of_digits_is_refused_at_once) {
  const std::string digits(1 << 20, '7');
  EXPECT_EQ(convert_hex_to_int(digits), digits);
  EXPECT_LT(failure_of([&] { convert_to_hex(digits); }).size(), 500U);
}

TEST_F(numbers_test, numbers_that_must_fit_64_bits) {
  EXPECT_EQ(to_integer("0x3FF"), 1023);
  EXPECT_EQ(to_integer("-0x8000000000000000"), smallest);
  EXPECT_EQ(to_integer("9223372036854775807"), largest);
  EXPECT_THAT(failure_of([] { to_integer("9223372036854775808"); }),
              HasSubstr("'9223372036854775808' is too large"));
  EXPECT_THAT(failure_of([] { to_integer("-9223372036854775809"); }), HasSubstr("too large"));
  EXPECT_THAT(failure_of([] { to_integer("0x10000000000000000"); }), HasSubstr("too large"));
  EXPECT_THAT(failure_of([] { to_integer(16); }), HasSubstr("16")) << "only a text is read";
}

TEST_F(numbers_test, plain_decimal) {
  EXPECT_EQ(to_decimal("08"), 8);
  EXPECT_EQ(to_decimal(" -12 "), -12);
  EXPECT_EQ(to_decimal(12), 12);
  EXPECT_THAT(failure_of([] { to_decimal("0x10"); }), HasSubstr("'0x10'"));
  EXPECT_THAT(failure_of([] { to_decimal(DEFAULT); }), HasSubstr("'Not set'"));
  EXPECT_THAT(failure_of([] { to_decimal(list_of({})); }), HasSubstr("a list"));
}

TEST_F(numbers_test, plain_hexadecimal) {
  EXPECT_EQ(to_hexadecimal("3FF"), 1023);
  EXPECT_EQ(to_hexadecimal("0x3ff"), 1023);
  EXPECT_EQ(to_hexadecimal("010"), 16);
  EXPECT_THAT(failure_of([] { to_hexadecimal("xyz"); }), HasSubstr("'xyz'"));
  EXPECT_THAT(failure_of([] { to_hexadecimal(""); }), HasSubstr("''"));
}

TEST_F(numbers_test, convert_object_to_hex_converts_outer_keys_and_inner_values) {
  const std::string wide = "340282366920938463463374607431768211456";  // 2 to the power of 128
  const std::string zeroes(32, '0');
  const value object = map_of({{"16", map_of({{"lagid", "10"}, {"weight", 255}})},
                               {"0x20", map_of({})},
                               {"010", map_of({{"16", "08"}, {"mac", wide}})}});
  const value expected = map_of({{"0x10", map_of({{"lagid", "0xa"}, {"weight", "0xff"}})},
                                 {"0x20", map_of({})},
                                 {"0x8", map_of({{"16", "0x8"}, {"mac", "0x1" + zeroes}})}});
  EXPECT_EQ(convert_object_to_hex(object), expected);
  EXPECT_EQ(object.at("16").at("weight"), 255) << "what was converted stays";
}

TEST_F(numbers_test, convert_object_to_hex_lets_failures_out) {
  EXPECT_THAT(failure_of([] {
                convert_object_to_hex(map_of({{"BE1", map_of({})}}));
              }),
              HasSubstr("'BE1'"));
  EXPECT_THAT(failure_of([] {
                convert_object_to_hex(map_of({{"1", map_of({{"a", DEFAULT}})}}));
              }),
              HasSubstr("'Not set'"));
  EXPECT_THAT(failure_of([] {
                convert_object_to_hex(map_of({{"1", ERROR}}));
              }),
              HasSubstr("the integer 0"));
  EXPECT_THAT(failure_of([] { convert_object_to_hex(ERROR); }), HasSubstr("the integer 0"));
}

TEST_F(numbers_test, numbers_beyond_64_bits_are_reckoned_with) {
  EXPECT_EQ(number_value(to_wide("0xFFFFFFFFFFFFFFFF")), "18446744073709551615");
  EXPECT_EQ(number_value(to_wide("-9223372036854775809")), "-9223372036854775809");
  EXPECT_EQ(number_value(to_wide("0x7fffffffffffffff")), largest);
  EXPECT_EQ(number_value(to_wide("-0x8000000000000000")), smallest);
  EXPECT_EQ(number_value(to_wide_decimal("0018446744073709551616")), "18446744073709551616");
  EXPECT_EQ(number_value(to_wide_decimal(smallest)), smallest);
  EXPECT_EQ(number_value(to_wide("0x" + std::string(24, 'f'))), "79228162514264337593543950335");
  EXPECT_THAT(failure_of([] { to_wide("0x1" + std::string(24, '0')); }), HasSubstr("too large"));
  EXPECT_THAT(failure_of([] { to_wide("none"); }), HasSubstr("'none' is no number"));
  EXPECT_THAT(failure_of([] { to_wide_decimal("0x10"); }), HasSubstr("'0x10' is no number"));
}

TEST_F(numbers_test, the_low_bits_of_a_number_of_any_length) {
  EXPECT_EQ(to_low_bits("0x1001000"), 0x1001000U);
  EXPECT_EQ(to_low_bits("0xFFFFFFFFFFFFFFFF"), ~std::uint64_t{0});
  EXPECT_EQ(to_low_bits("18446744073709551621"), 5U);
  EXPECT_EQ(to_low_bits("0xabc" + std::string(200, '0') + "1234"), 0x1234U);
  EXPECT_EQ(to_low_bits("-1"), ~std::uint64_t{0});
  EXPECT_EQ(to_low_bits("0"), 0U);
  EXPECT_THAT(failure_of([] { to_low_bits("1 2"); }), HasSubstr("'1 2' is no number"));
  EXPECT_THAT(failure_of([] { to_low_bits(ERROR); }), HasSubstr("the integer 0"));
}

}  // namespace
}  // namespace tessel
