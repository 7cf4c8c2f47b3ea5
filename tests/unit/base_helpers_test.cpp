#include "base/helpers.h"

#include <array>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "base/records.h"
#include "base/text.h"
#include "support/fake_router.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using helpers_test = router_test;

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
constexpr const char* out_path = "/var/log/out";

std::string dump_of(const value& obj, std::string_view layer = "DPA") {
  log_file outfile(out_path, file_mode::truncate);
  print_object(obj, outfile, layer);
  return file_text(out_path);
}

// Cannot be serialised the first `times` times.
class reluctant : public record {
 public:
  explicit reluctant(int times) : record(fields{{"ifh", "0x10"}}), times_(times) {}
  value fields_as_map() const override {
    if (times_-- > 0) throw failure("fields are being held back");
    return record::fields_as_map();
  }

 private:
  using fields = std::vector<std::pair<std::string, value>>;
  mutable int times_;
};

value reluctant_store(int times) {
  return map_of({{"BE12", std::shared_ptr<record>(std::make_shared<reluctant>(times))}});
}

TEST_F(helpers_test, automatic_base) {
  struct row {
    const char* why;
    std::string text;
    const char* decimal;  // null: is no number
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

TEST_F(helpers_test, convert_hex_to_int_of_0x10_16_unset_and_a_number) {
  EXPECT_EQ(convert_hex_to_int("0x10"), "16");
  EXPECT_EQ(convert_hex_to_int("16"), "16");
  EXPECT_EQ(convert_hex_to_int("Not set"), "Not set");
  EXPECT_EQ(convert_hex_to_int(16), 16) << "a number is not read, so it stays a number";
}

TEST_F(helpers_test, convert_hex_to_int_leaves_every_other_kind_as_it_is) {
  const value entries = map_of({{"0x10", 1}});
  EXPECT_EQ(convert_hex_to_int(entries), entries);
  EXPECT_EQ(convert_hex_to_int(list_of({"0x10"})), list_of({"0x10"}));
  EXPECT_EQ(convert_hex_to_int(value()), value());
  EXPECT_EQ(convert_hex_to_int(ERROR), 0);
}

TEST_F(helpers_test, convert_to_hex_of_16_as_number_and_text_and_of_0x10) {
  EXPECT_EQ(convert_to_hex(16), "0x10");
  EXPECT_EQ(convert_to_hex("16"), "0x10");
  EXPECT_EQ(convert_to_hex("0x10"), "0x10");
}

TEST_F(helpers_test, convert_to_hex_of_010_is_0x8_by_the_first_reading) {
  EXPECT_EQ(convert_to_hex("010"), "0x8");
}

TEST_F(helpers_test, convert_to_hex_tries_plain_decimal_second) {
  EXPECT_EQ(convert_to_hex("08"), "0x8");
  EXPECT_EQ(convert_to_hex("0190"), "0xbe");
  EXPECT_EQ(convert_to_hex("-09"), "-0x9");
}

TEST_F(helpers_test, convert_to_hex_is_lower_case_without_leading_zeros) {
  EXPECT_EQ(convert_to_hex("0x00ABcD"), "0xabcd");
  EXPECT_EQ(convert_to_hex(0), "0x0");
  EXPECT_EQ(convert_to_hex("-0"), "0x0");
  EXPECT_EQ(convert_to_hex(-16), "-0x10");
  EXPECT_EQ(convert_to_hex(largest), "0x7fffffffffffffff");
  EXPECT_EQ(convert_to_hex(smallest), "-0x8000000000000000");
  EXPECT_EQ(convert_to_hex("340282366920938463463374607431768211456"),
            "0x100000000000000000000000000000000");
}

TEST_F(helpers_test, convert_to_hex_of_what_is_no_number_is_the_callers_failure) {
  EXPECT_THAT(failure_of([] { convert_to_hex(DEFAULT); }), HasSubstr("'Not set'"));
  EXPECT_THAT(failure_of([] { convert_to_hex(""); }), HasSubstr("''"));
  EXPECT_THAT(failure_of([] { convert_to_hex("12 34"); }), HasSubstr("'12 34'"));
  EXPECT_THAT(failure_of([] { convert_to_hex(value()); }), HasSubstr("nothing"));
  EXPECT_THAT(failure_of([] { convert_to_hex(map_of({})); }), HasSubstr("a map"));
  EXPECT_EQ(st().exception, 0);
}

TEST_F(helpers_test, a_megabyte_of_digits_is_refused_at_once) {
  const std::string digits(1 << 20, '7');
  EXPECT_EQ(convert_hex_to_int(digits), digits);
  EXPECT_LT(failure_of([&] { convert_to_hex(digits); }).size(), 500U);
}

TEST_F(helpers_test, numbers_that_must_fit_64_bits) {
  EXPECT_EQ(to_integer("0x3FF"), 1023);
  EXPECT_EQ(to_integer("-0x8000000000000000"), smallest);
  EXPECT_EQ(to_integer("9223372036854775807"), largest);
  EXPECT_THAT(failure_of([] { to_integer("9223372036854775808"); }),
              HasSubstr("'9223372036854775808' is too large"));
  EXPECT_THAT(failure_of([] { to_integer("-9223372036854775809"); }), HasSubstr("too large"));
  EXPECT_THAT(failure_of([] { to_integer("0x10000000000000000"); }), HasSubstr("too large"));
  EXPECT_THAT(failure_of([] { to_integer(16); }), HasSubstr("16")) << "only a text is read";
}

TEST_F(helpers_test, plain_decimal) {
  EXPECT_EQ(to_decimal("08"), 8);
  EXPECT_EQ(to_decimal(" -12 "), -12);
  EXPECT_EQ(to_decimal(12), 12);
  EXPECT_THAT(failure_of([] { to_decimal("0x10"); }), HasSubstr("'0x10'"));
  EXPECT_THAT(failure_of([] { to_decimal(DEFAULT); }), HasSubstr("'Not set'"));
  EXPECT_THAT(failure_of([] { to_decimal(list_of({})); }), HasSubstr("a list"));
}

TEST_F(helpers_test, plain_hexadecimal) {
  EXPECT_EQ(to_hexadecimal("3FF"), 1023);
  EXPECT_EQ(to_hexadecimal("0x3ff"), 1023);
  EXPECT_EQ(to_hexadecimal("010"), 16);
  EXPECT_THAT(failure_of([] { to_hexadecimal("xyz"); }), HasSubstr("'xyz'"));
  EXPECT_THAT(failure_of([] { to_hexadecimal(""); }), HasSubstr("''"));
}

TEST_F(helpers_test, convert_object_to_hex_converts_outer_keys_and_inner_values) {
  const value object = map_of({{"16", map_of({{"lagid", "10"}, {"weight", 255}})},
                               {"0x20", map_of({})},
                               {"010", map_of({{"16", "08"}})}});
  const value expected = map_of({{"0x10", map_of({{"lagid", "0xa"}, {"weight", "0xff"}})},
                                 {"0x20", map_of({})},
                                 {"0x8", map_of({{"16", "0x8"}})}});
  EXPECT_EQ(convert_object_to_hex(object), expected);
  EXPECT_EQ(object.at("16").at("weight"), 255) << "what was converted stays";
}

TEST_F(helpers_test, convert_object_to_hex_lets_failures_out) {
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

TEST_F(helpers_test, dumper_gives_the_fields_of_a_record) {
  EXPECT_EQ(dumper(new_record<subBundles>()).as_map().size(), 8U);
  EXPECT_THAT(dumper(new_record<Bundles>()).as_map().keys(), ElementsAre("Data"));
  EXPECT_THAT(failure_of([] { dumper("text"); }), HasSubstr("a record expected"));
}

TEST_F(helpers_test, a_store_that_holds_a_record_is_serialised_field_by_field) {
  open_logs();
  const value sub_bundle = new_record<subBundles>();
  sub_bundle.as_record().set("encap", list_of({"100", "200"}));
  sub_bundle.as_record().set("is_l2", 0);
  EXPECT_EQ(dump_of(map_of({{"BE12.1", sub_bundle}}), "TESSELDB"), R"('Start of TESSELDB entries...'
{
   "BE12.1":{
      "delPending":"Not set",
      "encap":[
         "100",
         "200"
      ],
      "glif":"Not set",
      "ifh":"Not set",
      "is_l2":0,
      "lagid":"Not set",
      "llif":"Not set",
      "rif":"Not set"
   }
}
'End of TESSELDB entries...'
)");
  EXPECT_THAT(dump_of(map_of({{"BE12", new_record<Bundles>()}})),
              HasSubstr("\"BE12\":{\n      \"Data\":{\n         \"delPending\":\"Not set\""));
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), ElementsAre());
}

TEST_F(helpers_test, keys_are_sorted_and_empty_containers_stay_short) {
  EXPECT_EQ(dump_of(map_of({{"b", make_map()}, {"a", make_list()}, {"B", value()}})),
            "'Start of DPA entries...'\n{\n   \"B\":null,\n   \"a\":[],\n   \"b\":{}\n}\n"
            "'End of DPA entries...'\n");
}

TEST_F(helpers_test, an_inventory_that_is_the_number_0_is_dumped_as_it_is) {
  EXPECT_EQ(dump_of(ERROR, "VM information"),
            "'Start of VM information entries...'\n0\n'End of VM information entries...'\n");
}

TEST_F(helpers_test, a_text_store_is_dumped_as_one_text_with_bytes_above_7f_as_they_are) {
  EXPECT_EQ(dump_of("a\"b\\c\td\ne\rf\x01g\x7fh\xc3\xa9\xff"),
            "'Start of DPA entries...'\n"
            "\"a\\\"b\\\\c\\td\\ne\\rf\\u0001g\x7fh\xc3\xa9\xff\"\n"
            "'End of DPA entries...'\n");
  EXPECT_EQ(dump_of(std::string("a\0b", 3)),
            "'Start of DPA entries...'\n\"a\\u0000b\"\n'End of DPA entries...'\n");
}

TEST_F(helpers_test, a_store_of_many_megabytes_is_written_whole) {
  value store = make_map();
  const std::string row(1000, 'x');
  for (int number = 0; number < 5000; ++number) store.as_map().set(std::to_string(number), row);
  const std::string dump = dump_of(store);
  EXPECT_THAT(dump, StartsWith("'Start of DPA entries...'\n{\n   \"0\":\"xxx"));
  EXPECT_THAT(dump, EndsWith("\"\n}\n'End of DPA entries...'\n"));
  EXPECT_EQ(split(dump, "\n").size(), 5000U + 5);
}

TEST_F(helpers_test, a_store_that_cannot_be_serialised_falls_to_the_printed_form_with_one_line) {
  open_logs();
  EXPECT_EQ(dump_of(reluctant_store(1)),
            "'Start of DPA entries...'\n{'BE12': {'ifh': '0x10'}}\n'End of DPA entries...'\n");
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("json print_object failed: fields are being held back"));
  EXPECT_THAT(log_lines(LOG_FILE_EXCEPTION),
              testing::Contains("Traceback (most recent call last):"));
  EXPECT_EQ(st().exception, 0) << "none of these failures counts";
}

TEST_F(helpers_test, a_store_that_cannot_be_printed_either_still_gets_its_end_marker) {
  open_logs();
  EXPECT_EQ(dump_of(reluctant_store(2)), "'Start of DPA entries...'\n'End of DPA entries...'\n");
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("json print_object failed: fields are being held back",
                          "pprint print_object failed: fields are being held back"));
  EXPECT_EQ(st().exception, 0);
}

TEST_F(helpers_test, what_follows_a_half_written_store_begins_on_a_line_of_its_own) {
  open_logs();
  value store = reluctant_store(2);
  store.as_map().set("A", std::string(3 << 20, 'x'));
  EXPECT_TRUE(dump_of(store).ends_with("\n'End of DPA entries...'\n"));
  store = reluctant_store(1);
  store.as_map().set("A", std::string(3 << 20, 'x'));
  EXPECT_NE(dump_of(store).find("\n{'BE12': {'ifh': '0x10'}, 'A': 'xxx"), std::string::npos);
}

TEST_F(helpers_test, a_marker_that_cannot_be_written_is_the_callers_failure) {
  open_logs();
  log_file full("/dev/full", file_mode::append);
  EXPECT_THAT(failure_of([&] { print_object(map_of({}), full, "DPA"); }),
              HasSubstr("No space left on device"));
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), ElementsAre());
}

TEST_F(helpers_test, a_label_stands_in_quotes_whatever_it_holds) {
  EXPECT_THAT(dump_of(map_of({}), "router's"),
              StartsWith("\"Start of router's entries...\"\n{}\n\"End of"));
}

TEST_F(helpers_test, a_note_is_one_quoted_line) {
  log_file outfile(out_path, file_mode::truncate);
  pprint("no encap\tfor BE12.1\n", outfile);
  pprint("it's", outfile);
  EXPECT_THAT(log_lines(out_path), ElementsAre("'no encap\\tfor BE12.1\\n'", "\"it's\""));
}

TEST_F(helpers_test, the_plain_form_of_a_text_is_the_text) {
  EXPECT_EQ(plain("a'b\n"), "a'b\n");
  EXPECT_EQ(plain(4096), "4096");
  EXPECT_EQ(plain(list_of({"0"})), "['0']");
  EXPECT_EQ(plain(value()), "None");
}

TEST_F(helpers_test, the_printed_form_shows_every_kind) {
  EXPECT_EQ(printed(value()), "None");
  EXPECT_EQ(printed(-7), "-7");
  EXPECT_EQ(printed("a'b"), "\"a'b\"");
  EXPECT_EQ(printed(make_map()), "{}");
  EXPECT_EQ(printed(make_list()), "[]");
  EXPECT_EQ(printed(map_of({{"b", list_of({"x", 1, value()})}, {"a", map_of({{"c", 0}})}})),
            "{'b': ['x', 1, None], 'a': {'c': 0}}")
      << "in insertion order";
  EXPECT_THAT(printed(new_record<memberInfo>()), StartsWith("{'name': 'Not set', 'ifh': "));
}

}  // namespace
}  // namespace tessel
