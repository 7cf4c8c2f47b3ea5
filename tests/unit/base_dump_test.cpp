#include "base/dump.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/records.h"
#include "base/text.h"
#include "support/fake_router.h"
#include "support/limited_memory.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using dump_test = router_test;

constexpr const char* out_path = "/var/log/out";

std::string dump_of(const value& obj, std::string_view layer = "DPA") {
  log_file outfile(out_path, file_mode::truncate);
  print_object(obj, outfile, layer);
  return file_text(out_path);
}

// A record whose first `times` serialisations fail.
class reluctant : public record {
 public:
  explicit reluctant(int times) : record(fields(), {"0x10"}), times_(times) {}
  value fields_as_map() const override {
    if (times_-- > 0) throw failure("fields are being held back");
    return record::fields_as_map();
  }

 private:
  static const row_keys& fields() {
    static const row_keys& names = *new row_keys{"ifh"};
    return names;
  }
  mutable int times_;
};

value reluctant_store(int times) {
  return map_of({{"BE12", std::shared_ptr<record>(std::make_shared<reluctant>(times))}});
}

TEST_F(dump_test, dumper_gives_the_fields_of_a_record) {
  EXPECT_EQ(dumper(new_record<subBundles>()).as_map().size(), 8U);
  EXPECT_THAT(dumper(new_record<Bundles>()).as_map().keys(), ElementsAre("Data"));
  EXPECT_THAT(failure_of([] { dumper("text"); }), HasSubstr("a record expected"));
}

TEST_F(dump_test, a_store_that_holds_a_record_is_serialised_field_by_field) {
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

TEST_F(dump_test, keys_are_sorted_and_empty_containers_stay_short) {
  EXPECT_EQ(dump_of(map_of({{"b", make_map()}, {"a", make_list()}, {"B", value()}})),
            "'Start of DPA entries...'\n{\n   \"B\":null,\n   \"a\":[],\n   \"b\":{}\n}\n"
            "'End of DPA entries...'\n");
}

TEST_F(dump_test, keys_of_a_map_of_any_size_and_order_are_sorted) {
  open_logs();
  for (const int size : {2, 32, 33, 100, 5000}) {
    for (const int step : {1, 7919}) {
      SCOPED_TRACE(std::to_string(size) + " keys, step " + std::to_string(step));
      std::vector<std::string> keys;
      const value store = make_map();
      for (int number = 0; number < size; ++number) {
        // In numeric order, which is not the order of the texts, or in none.
        keys.push_back("LAG " + std::to_string(number * step % 20011));
        store.as_map().set(keys.back(), number);
      }
      std::sort(keys.begin(), keys.end());
      std::string expected = "'Start of DPA entries...'\n{";
      for (const std::string& key : keys) {
        expected += (key == keys.front() ? "\n   \"" : ",\n   \"") + key +
                    "\":" + std::to_string(store.at(key).as_integer());
      }
      EXPECT_EQ(dump_of(store), expected + "\n}\n'End of DPA entries...'\n");
    }
  }
}

TEST_F(dump_test, a_character_that_JSON_cannot_hold_is_escaped_wherever_it_is) {
  open_logs();
  struct row {
    char character;
    const char* escaped;
  };
  for (const row& each :
       {row{'"', "\\\""}, row{'\\', "\\\\"}, row{'\n', "\\n"}, row{'\x1f', "\\u001f"},
        row{'\0', "\\u0000"}, row{'\x7f', "\x7f"}, row{'\xa2', "\xa2"}, row{' ', " "}}) {
    for (std::size_t before = 0; before < 20; ++before) {
      const std::string front(before, 'a');
      const std::string text = front + each.character + "bcdefghijk";
      EXPECT_EQ(dump_of(text), "'Start of DPA entries...'\n\"" + front + each.escaped +
                                   "bcdefghijk\"\n'End of DPA entries...'\n");
    }
  }
}

// The plain pattern, byte by byte.
std::string escaped(std::string_view text) {
  std::string out;
  for (const char c : text) {
    const auto at = std::string_view("\"\\\n\r\t").find(c);
    if (at != std::string_view::npos) {
      out += '\\';
      out += "\"\\nrt"[at];
    } else if (static_cast<unsigned char>(c) < 0x20) {
      out += fmt::format("\\u{:04x}", static_cast<unsigned char>(c));
    } else {
      out += c;
    }
  }
  return out;
}

TEST_F(dump_test, a_text_of_any_bytes_is_escaped_as_byte_by_byte) {
  open_logs();
  std::mt19937 random(7);
  for (const std::size_t size :
       {0U, 1U, 3U, 4U, 5U, 7U, 8U, 9U, 15U, 16U, 17U, 31U, 4095U, 4096U, 4097U, 70000U}) {
    // From texts without escapes to texts of nothing else.
    for (const unsigned plain : {1U, 2U, 8U, 1000U, 1U << 30}) {
      std::string text;
      while (text.size() < size) {
        text += static_cast<char>(random() % plain == 0 ? random() : 'a' + random() % 26);
      }
      const std::string dump = "'Start of DPA entries...'\n{\n   \"" + escaped(text) + "\":\"" +
                               escaped(text) + "\"\n}\n'End of DPA entries...'\n";
      ASSERT_EQ(dump_of(map_of({{text, text}})), dump) << size << " bytes, 1 of " << plain;
    }
  }
}

TEST_F(dump_test, rows_are_dumped_like_other_maps) {
  open_logs();
  static const row_keys& keys =
      *new row_keys{"gport", "a \"quoted\" key of a row\n", "Visited", ""};
  static const row_keys& unmarked = *new row_keys{"gport", "Node Description"};
  const value rows = make_map();
  const value maps = make_map();
  for (int number = 0; number < 40; ++number) {
    value row = number % 3 == 0 ? make_row(unmarked, number, make_map())
                                : make_row(keys, "0x1", make_list({number}), 0, "");
    if (number % 4 == 0) row.as_map().mark_visited();
    if (number % 7 == 0) row.as_map().set("mtu", number);
    const value same = make_map();
    for (const auto& [key, content] : row.as_map().items()) same.as_map().set(key, content);
    rows.as_map().set(std::to_string(number), row);
    maps.as_map().set(std::to_string(number), same);
  }
  EXPECT_EQ(dump_of(rows), dump_of(maps));
  EXPECT_THAT(dump_of(rows), HasSubstr("\n      \"a \\\"quoted\\\" key of a row\\n\":[\n"));
}

TEST_F(dump_test, tables_of_one_size_are_sorted_each_by_its_own_keys) {
  open_logs();
  constexpr int size = 200;
  std::mt19937 random(3);
  const value chips = make_map();
  std::string expected = "'Start of DPA entries...'\n{";
  for (const int chip : {0, 1, 2, 3, 4, 5}) {
    std::map<std::string, int> sorted;
    const value table = make_map();
    for (int number = 0; number < size; ++number) {
      // The first three chips have the same keys in the same order, the others have not.
      const int key = chip < 3 ? number * 7919 % 20011 : static_cast<int>(random() % 100000);
      if (sorted.contains(std::to_string(key))) --number;
      sorted[std::to_string(key)] = number;
      table.as_map().set(std::to_string(key), number);
    }
    chips.as_map().set(std::to_string(chip), table);
    expected += (chip == 0 ? "\n   \"" : ",\n   \"") + std::to_string(chip) + "\":";
    char before = '{';
    for (const auto& [key, number] : sorted) {
      expected += fmt::format("{}\n      \"{}\":{}", std::exchange(before, ','), key, number);
    }
    expected += "\n   }";
  }
  EXPECT_EQ(dump_of(chips), expected + "\n}\n'End of DPA entries...'\n");
}

TEST_F(dump_test, deep_maps_are_indented_at_any_depth) {
  open_logs();
  constexpr int levels = 30;
  value store = map_of({{"a", 1}, {"b", 2}});
  std::string expected = std::string("{\n") + std::string(3 * (levels + 1), ' ') + "\"a\":1,\n" +
                         std::string(3 * (levels + 1), ' ') + "\"b\":2\n" +
                         std::string(3 * levels, ' ') + "}";
  for (int level = levels; level > 0; --level) {
    const value inner = store;
    store = map_of({{"k", inner}});
    expected = "{\n" + std::string(3U * static_cast<unsigned>(level), ' ') + "\"k\":" + expected +
               "\n" + std::string(3U * static_cast<unsigned>(level - 1), ' ') + "}";
  }
  EXPECT_EQ(dump_of(store),
            "'Start of DPA entries...'\n" + expected + "\n'End of DPA entries...'\n");
}

TEST_F(dump_test, a_map_that_still_grows_is_dumped_like_any_other) {
  open_logs();
  const value store = make_shared_map();
  store.as_map().set("b", map_of({{"x", 1}}));
  store.as_map().set("a", 2);
  EXPECT_EQ(dump_of(store), dump_of(map_of({{"a", 2}, {"b", map_of({{"x", 1}})}})));
}

TEST_F(dump_test, an_inventory_that_is_the_number_0_is_dumped_as_it_is) {
  EXPECT_EQ(dump_of(ERROR, "VM information"),
            "'Start of VM information entries...'\n0\n'End of VM information entries...'\n");
}

TEST_F(dump_test, a_text_store_is_dumped_as_one_text_with_bytes_above_7f_as_they_are) {
  EXPECT_EQ(dump_of("a\"b\\c\td\ne\rf\x01g\x7fh\xc3\xa9\xff"),
            "'Start of DPA entries...'\n"
            "\"a\\\"b\\\\c\\td\\ne\\rf\\u0001g\x7fh\xc3\xa9\xff\"\n"
            "'End of DPA entries...'\n");
  EXPECT_EQ(dump_of(std::string("a\0b", 3)),
            "'Start of DPA entries...'\n\"a\\u0000b\"\n'End of DPA entries...'\n");
}

TEST_F(dump_test, a_store_of_many_megabytes_is_written_whole) {
  value store = make_map();
  const std::string row(1000, 'x');
  for (int number = 0; number < 5000; ++number) store.as_map().set(std::to_string(number), row);
  const std::string dump = dump_of(store);
  EXPECT_THAT(dump, StartsWith("'Start of DPA entries...'\n{\n   \"0\":\"xxx"));
  EXPECT_THAT(dump, EndsWith("\"\n}\n'End of DPA entries...'\n"));
  EXPECT_EQ(split(dump, "\n").size(), 5000U + 5);
}

TEST_F(dump_test, a_store_that_cannot_be_serialised_falls_to_the_printed_form_with_one_line) {
  open_logs();
  EXPECT_EQ(dump_of(reluctant_store(1)),
            "'Start of DPA entries...'\n{'BE12': {'ifh': '0x10'}}\n'End of DPA entries...'\n");
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("json print_object failed: fields are being held back"));
  EXPECT_THAT(log_lines(LOG_FILE_EXCEPTION),
              testing::Contains("Traceback (most recent call last):"));
  EXPECT_EQ(st().exception, 0) << "none of these failures counts";
}

TEST_F(dump_test, a_store_that_cannot_be_printed_either_still_gets_its_end_marker) {
  open_logs();
  EXPECT_EQ(dump_of(reluctant_store(2)), "'Start of DPA entries...'\n'End of DPA entries...'\n");
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("json print_object failed: fields are being held back",
                          "pprint print_object failed: fields are being held back"));
  EXPECT_EQ(st().exception, 0);
}

#if MEMORY_CAN_BE_LIMITED
// 7 if a dump for which no large piece of memory is left says so and has its end.
int status_of_dump_without_memory() {
  open_logs();
  log_file outfile(out_path, file_mode::truncate);
  const rlimit limit{0, RLIM_INFINITY};  // so that the heap stays as it is
  if (::setrlimit(RLIMIT_AS, &limit) != 0) return 1;
  constexpr std::size_t piece_of_a_dump = std::size_t{1} << 16U;
  while (void* const kept = std::malloc(piece_of_a_dump)) *static_cast<char*>(kept) = 1;
  print_object(map_of({{"BE12", "0x10"}}), outfile, "DPA");
  const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
  ::setrlimit(RLIMIT_AS, &none);
  if (messages(LOG_FILE_EXCEPTION) !=
      std::vector<std::string>{"json print_object failed: std::bad_alloc"})
    return 2;
  return file_text(out_path) ==
                 "'Start of DPA entries...'\n{'BE12': '0x10'}\n'End of DPA entries...'\n"
             ? 7
             : 3;
}

TEST_F(dump_test, without_memory_for_a_piece_a_store_is_printed_and_has_its_end) {
  EXPECT_EQ(status_in_child(status_of_dump_without_memory), 7);
}
#endif

TEST_F(dump_test, what_follows_a_half_written_store_begins_on_a_line_of_its_own) {
  open_logs();
  value store = reluctant_store(2);
  store.as_map().set("A", std::string(3 << 20, 'x'));
  EXPECT_TRUE(dump_of(store).ends_with("\n'End of DPA entries...'\n"));
  store = reluctant_store(1);
  store.as_map().set("A", std::string(3 << 20, 'x'));
  EXPECT_NE(dump_of(store).find("\n{'BE12': {'ifh': '0x10'}, 'A': 'xxx"), std::string::npos);
}

TEST_F(dump_test, a_marker_that_cannot_be_written_is_the_callers_failure) {
  open_logs();
  log_file full("/dev/full", file_mode::append);
  EXPECT_THAT(failure_of([&] { print_object(map_of({}), full, "DPA"); }),
              HasSubstr("No space left on device"));
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), ElementsAre());
}

TEST_F(dump_test, a_label_stands_in_quotes_whatever_it_holds) {
  EXPECT_THAT(dump_of(map_of({}), "router's"),
              StartsWith("\"Start of router's entries...\"\n{}\n\"End of"));
}

TEST_F(dump_test, a_note_is_one_quoted_line) {
  log_file outfile(out_path, file_mode::truncate);
  pprint("no encap\tfor BE12.1\n", outfile);
  pprint("it's", outfile);
  EXPECT_THAT(log_lines(out_path), ElementsAre("'no encap\\tfor BE12.1\\n'", "\"it's\""));
}

TEST_F(dump_test, the_plain_form_of_a_text_is_the_text) {
  EXPECT_EQ(plain("a'b\n"), "a'b\n");
  EXPECT_EQ(plain(4096), "4096");
  EXPECT_EQ(plain(list_of({"0"})), "['0']");
  EXPECT_EQ(plain(value()), "None");
}

TEST_F(dump_test, the_printed_form_shows_every_kind) {
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
