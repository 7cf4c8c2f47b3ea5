#include "base/value.h"

#include <array>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/records.h"
#include "support/fake_router.h"
#include "support/together.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using value_test = router_test;

std::vector<std::string> keys_of(const value& entries) {
  return entries.as_map().keys();
}

std::string numbered(int number) {
  return "key " + std::to_string(number);
}

TEST_F(value_test, what_was_moved_from_is_none) {
  for (const value& each : {value("text"), make_map(), make_list({1}), value(7)}) {
    value from = each;
    const value made = std::move(from);
    EXPECT_TRUE(made == each);
    EXPECT_EQ(from.kind(), value_kind::none);
    EXPECT_FALSE(from.truthy());
    value again = each;
    value assigned;
    assigned = std::move(again);
    EXPECT_TRUE(assigned == each);
    EXPECT_THAT(failure_of([&] { again.as_text(); }), HasSubstr("nothing"));
    value& itself = assigned;
    assigned = std::move(itself);
    EXPECT_TRUE(assigned == each) << "into itself it stays";
  }
}

TEST_F(value_test, equality_is_by_kind_and_content) {
  const value bundle = new_record<Bundles>();
  struct row {
    const char* why;
    value left;
    value right;
    bool equal;
  };
  const std::array rows = {
      row{"an integer never equals a text", 0, "0", false},
      row{"an integer never equals the unset marker", 0, DEFAULT, false},
      row{"the integer 0 is not nothing", 0, value(), false},
      row{"nothing equals nothing", value(), value(), true},
      row{"an empty text is not an empty list", "", list_of({}), false},
      row{"an empty map is not an empty list", make_map(), list_of({}), false},
      row{"same number", 4096, std::int64_t{4096}, true},
      row{"numbers beyond 32 bits", std::int64_t{1} << 40, std::int64_t{1} << 40, true},
      row{"only the high half differs", std::int64_t{1} << 40, 0, false},
      row{"same text", "0x1", std::string("0x1"), true},
      row{"case counts", "0xa", "0xA", false},
      row{"a NUL byte counts", std::string("a\0b", 3), std::string("a\0c", 3), false},
      row{"maps by content", map_of({{"a", 1}, {"b", 2}}), map_of({{"a", 1}, {"b", 2}}), true},
      row{"order does not count", map_of({{"a", 1}, {"b", 2}}), map_of({{"b", 2}, {"a", 1}}), true},
      row{"plain or ordered does not count", map_of({{"a", 1}}), ordered_map_of({{"a", 1}}), true},
      row{"one key more", map_of({{"a", 1}}), map_of({{"a", 1}, {"b", 2}}), false},
      row{"another key", map_of({{"a", 1}}), map_of({{"b", 1}}), false},
      row{"a nested difference", map_of({{"a", map_of({{"b", 1}})}}),
          map_of({{"a", map_of({{"b", "1"}})}}), false},
      row{"lists by content", list_of({"0", "1"}), list_of({"0", "1"}), true},
      row{"the order of a list", list_of({"0", "1"}), list_of({"1", "0"}), false},
      row{"a record equals itself", bundle, bundle, true},
      row{"and no other", bundle, new_record<Bundles>(), false},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    EXPECT_EQ(each.left == each.right, each.equal);
    EXPECT_EQ(each.right == each.left, each.equal);
  }
  EXPECT_TRUE(value(DEFAULT) == DEFAULT);
  EXPECT_FALSE(value(0) == DEFAULT);
  EXPECT_FALSE(value("1") == 1);
  EXPECT_TRUE(value(1) == 1);
}

TEST_F(value_test, a_text_of_any_length_stays_what_it_is) {
  for (const std::size_t length :
       {0U, 1U, 3U, 4U, 7U, 8U, 9U, 14U, 15U, 16U, 17U, 100U, 255U, 256U, 257U, 5000U}) {
    SCOPED_TRACE(length);
    std::string text;
    for (std::size_t at = 0; at < length; ++at) text += static_cast<char>(at * 37 + 1);
    const value moved = std::string(text);
    const value copied = text;
    const value viewed = std::string_view(text);
    for (const value& each : {moved, copied, viewed}) {
      EXPECT_TRUE(each.is_text());
      EXPECT_EQ(each.as_text(), text);
      EXPECT_EQ(*each.as_shared_text(), text);
      EXPECT_EQ(each, moved);
      EXPECT_EQ(each.truthy(), length > 0);
      value other = each;
      value taken = std::move(other);
      EXPECT_EQ(taken.as_text(), text);
      EXPECT_EQ(value(each).as_text(), text) << "of a temporary";
    }
    EXPECT_FALSE(moved == text + "x");
    EXPECT_EQ(moved.as_shared_text(), value(moved).as_shared_text()) << "copies share it";
  }
}

TEST_F(value_test, keys_that_differ_in_one_byte_are_different_keys) {
  value entries = make_map();
  std::vector<std::string> keys = {""};
  for (const std::size_t length : {1U, 4U, 8U, 9U, 15U, 16U, 40U}) {
    for (std::size_t at = 0; at < length; ++at) {
      for (const char other : {'\0', 'b', '\xff'}) {
        keys.emplace_back(length, 'a');
        keys.back()[at] = other;
      }
    }
  }
  for (std::size_t at = 0; at < keys.size(); ++at) {
    entries.as_map().set(keys[at], static_cast<int>(at));
  }
  EXPECT_EQ(keys_of(entries), keys);
  for (std::size_t at = 0; at < keys.size(); ++at) {
    EXPECT_EQ(entries.at(keys[at]), static_cast<int>(at));
    EXPECT_EQ(entries.in(keys[at]), static_cast<int>(at));
  }
}

TEST_F(value_test, a_literal_is_a_text_and_a_key_like_any_other) {
  const value name = value::literal("Node Description");
  EXPECT_EQ(name, "Node Description");
  EXPECT_EQ(name, value(std::string("Node Description")));
  EXPECT_EQ(*name.as_shared_text(), "Node Description");
  value entries = make_map();
  entries.as_map().put(name, "a");
  entries.as_map().set("Node Description", "b");
  entries.as_map().put(value::literal("mtu"), "c");
  EXPECT_EQ(entries.at("mtu"), "c");
  EXPECT_EQ(entries.at("Node Description"), "b");
  EXPECT_EQ(entries.as_map().size(), 2U);
}

TEST_F(value_test, an_entry_can_be_read_in_its_place) {
  const value entries = map_of({{"mtu", "1514"}, {"none", value()}});
  EXPECT_EQ(&entries.in("mtu"), &entries.in("mtu"));
  EXPECT_EQ(entries.in("mtu"), "1514");
  EXPECT_EQ(entries.get("mtu"), value("1514"));
  EXPECT_TRUE(entries.get("none").has_value());
  EXPECT_FALSE(entries.get("rif").has_value());
  EXPECT_THAT(failure_of([&] { entries.in("rif"); }), HasSubstr("no key 'rif'"));
  EXPECT_THAT(failure_of([&] { entries.in("mtu").in("rif"); }), HasSubstr("the text '1514'"));
  EXPECT_THAT(failure_of([&] { static_cast<void>(entries.in("mtu").get("rif")); }),
              HasSubstr("'rif' looked for in the text '1514'"));
  entries.as_map().mark_visited();
  EXPECT_EQ(entries.in("Visited"), 1);
}

TEST_F(value_test, a_shared_map_gives_copies_only_until_it_is_frozen) {
  const value store = make_shared_map();
  store.as_map().set("0/0/CPU0", 1);
  EXPECT_TRUE(store.as_map().is_locked());
  EXPECT_THAT(failure_of([&] { store.in("0/0/CPU0"); }), HasSubstr("still grows"));
  store.as_map().freeze();
  EXPECT_FALSE(store.as_map().is_locked());
  EXPECT_EQ(store.in("0/0/CPU0"), 1);
}

TEST_F(value_test, a_map_is_walked_in_order_with_its_late_mark) {
  for (const value& entries : {map_of({{"b", 1}, {"a", 2}}), make_shared_map()}) {
    entries.as_map().set("b", 1);
    entries.as_map().set("a", 2);
    entries.as_map().mark_visited();
    std::vector<std::pair<std::string, value>> walked;
    entries.as_map().for_each([&walked](std::string_view key, const value& content) {
      walked.emplace_back(key, content);
    });
    EXPECT_EQ(walked, entries.as_map().items());
    EXPECT_EQ(walked.size(), 3U);
  }
}

TEST_F(value_test, room_for_more_or_less_than_comes_changes_nothing) {
  for (const std::size_t room : {1U, 8U, 9U, 100U}) {
    for (const int size : {0, 1, 8, 9, 30, 300}) {
      value entries = make_map(room);
      for (int number = 0; number < size; ++number) entries.as_map().set(numbered(number), number);
      for (int number = 0; number < size; ++number) EXPECT_EQ(entries.at(numbered(number)), number);
      EXPECT_EQ(entries.as_map().size(), static_cast<std::size_t>(size));
      EXPECT_FALSE(entries.contains(numbered(size)));
    }
  }
}

TEST_F(value_test, truth) {
  EXPECT_FALSE(value().truthy());
  EXPECT_FALSE(value(0).truthy());
  EXPECT_FALSE(value("").truthy());
  EXPECT_FALSE(make_map().truthy());
  EXPECT_FALSE(make_list().truthy());
  EXPECT_TRUE(value(-1).truthy());
  EXPECT_TRUE(value(std::int64_t{1} << 32).truthy());
  EXPECT_TRUE(value("0").truthy()) << "a text result counts as true";
  EXPECT_TRUE(value(DEFAULT).truthy());
  EXPECT_TRUE(map_of({{"a", 0}}).truthy());
  EXPECT_TRUE(list_of({0}).truthy());
  EXPECT_TRUE(new_record<memberInfo>().truthy());
}

TEST_F(value_test, a_wrong_kind_is_a_failure_that_names_what_was_found) {
  struct row {
    value found;
    const char* text;
  };
  const std::array rows = {
      row{0, "the integer 0"},
      row{DEFAULT, "the text 'Not set'"},
      row{value(), "nothing"},
      row{map_of({{"a", 1}}), "a map of 1"},
      row{list_of({1, 2}), "a list of 2"},
      row{new_record<subBundles>(), "a record"},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.text);
    const value& found = each.found;
    int failures = 0;
    const auto refused = [&](bool fits, const std::function<void()>& access) {
      if (fits) return;
      EXPECT_THAT(failure_of(access), HasSubstr(each.text));
      ++failures;
    };
    refused(found.is_integer(), [&] { found.as_integer(); });
    refused(found.is_text(), [&] { found.as_text(); });
    refused(found.is_text(), [&] { found.as_shared_text(); });
    refused(found.is_map(), [&] { found.as_map(); });
    refused(found.is_list(), [&] { found.as_list(); });
    refused(found.is_record(), [&] { found.as_record(); });
    EXPECT_GE(failures, 4);
  }
}

TEST_F(value_test, a_missing_key_is_a_failure_that_names_it) {
  const value few = map_of({{"lagid", "0x1"}});
  value many = make_map();
  for (int number = 0; number < 100; ++number) many.as_map().set(numbered(number), number);
  for (const value& entries : {few, many}) {
    EXPECT_THAT(failure_of([&] { entries.at("mtu"); }), HasSubstr("'mtu'"));
    EXPECT_THAT(failure_of([&] { entries.as_map().update("mtu", 1); }), HasSubstr("'mtu'"));
    EXPECT_FALSE(entries.contains("mtu"));
    EXPECT_EQ(entries.as_map().find("mtu"), value());
  }
}

TEST_F(value_test, a_failure_remembers_where_the_look_up_stands) {
  try {
    map_of({}).at("mtu");
    FAIL();
  } catch (const failure& error) {
    EXPECT_THAT(error.where().file_name(), HasSubstr("base_value_test.cpp"));
  }
}

TEST_F(value_test, a_slot_of_DPA_can_hold_ERROR_and_a_reader_fails_on_it) {
  const value node = ordered_map_of({{"lagport", ERROR}, {"l2port", "lagport"}});
  EXPECT_THAT(failure_of([&] { node.at("lagport").at("0x10"); }), HasSubstr("the integer 0"));
  EXPECT_THAT(failure_of([&] { node.at("lagport").as_map(); }), HasSubstr("the integer 0"));
}

TEST_F(value_test, a_presence_test_on_ERROR_or_a_text_is_a_failure_and_no_substring_test) {
  for (const value& slot : {value(ERROR), value("0x10 lagport"), value(), list_of({"0x10"})}) {
    EXPECT_THAT(failure_of([&] { static_cast<void>(slot.contains("0x10")); }), HasSubstr("'0x10'"));
  }
}

TEST_F(value_test, a_map_keeps_insertion_order_at_any_size) {
  for (const int size : {0, 1, 7, 8, 9, 10, 31, 32, 33, 1000, 20000}) {
    SCOPED_TRACE(size);
    value entries = make_map();
    std::vector<std::string> expected;
    for (int number = 0; number < size; ++number) {
      // Neither sorted nor in the order of any hash.
      const std::string key = numbered((number * 7919) % 20011);
      entries.as_map().set(key, number);
      expected.push_back(key);
    }
    EXPECT_EQ(entries.as_map().size(), expected.size());
    EXPECT_EQ(keys_of(entries), expected);
    for (int number = 0; number < size; ++number) {
      ASSERT_EQ(entries.at(expected[static_cast<std::size_t>(number)]), number);
    }
    EXPECT_FALSE(entries.contains("key"));
    EXPECT_FALSE(entries.contains(""));
  }
}

TEST_F(value_test, replacing_keeps_the_place_and_erasing_closes_the_gap) {
  for (const int size : {3, 9, 100}) {
    SCOPED_TRACE(size);
    value entries = make_ordered_map();
    for (int number = 0; number < size; ++number) entries.as_map().set(numbered(number), number);
    entries.as_map().set(numbered(1), "replaced");
    EXPECT_EQ(keys_of(entries)[1], numbered(1));
    EXPECT_EQ(entries.at(numbered(1)), "replaced");

    for (int number = 0; number < size; number += 2) entries.as_map().erase(numbered(number));
    entries.as_map().erase("never there");
    EXPECT_EQ(entries.as_map().size(), static_cast<std::size_t>(size / 2));
    for (int number = 0; number < size; ++number) {
      EXPECT_EQ(entries.contains(numbered(number)), number % 2 == 1) << number;
    }
    entries.as_map().set(numbered(0), "again");
    EXPECT_EQ(keys_of(entries).back(), numbered(0)) << "a key that comes back comes last";
  }
}

TEST_F(value_test, a_map_knows_whether_it_is_ordered) {
  EXPECT_FALSE(make_map().as_map().is_ordered());
  EXPECT_TRUE(make_ordered_map().as_map().is_ordered());
  EXPECT_TRUE(make_shared_map().as_map().is_ordered());
  EXPECT_FALSE(make_shared_map(map::order::plain).as_map().is_ordered());
}

TEST_F(value_test, two_values_can_be_the_same_map) {
  value active = make_map();
  const value standby = active;
  active.as_map().set("0/0/0/1", map_of({{"mtu", "1514"}}));
  EXPECT_EQ(standby.as_map().size(), 1U);
  standby.at("0/0/0/1").as_map().set("mtu", "9000");
  EXPECT_EQ(active.at("0/0/0/1").at("mtu"), "9000");
}

TEST_F(value_test, what_at_returns_stays_when_the_entry_is_replaced) {
  value entries = map_of({{"mtu", "1514"}, {"Visited", 0}});
  const value mtu = entries.at("mtu");
  const value visited = entries.at("Visited");
  entries.as_map().set("mtu", "9000");
  entries.as_map().mark_visited();
  EXPECT_EQ(mtu, "1514");
  EXPECT_EQ(visited, 0);
}

TEST_F(value_test, assignment_takes_over_kind_and_content) {
  value held = "text";
  held = 7;
  EXPECT_EQ(held, 7);
  held = list_of({1});
  EXPECT_EQ(held, list_of({1}));
  const value& same = held;
  held = same;
  EXPECT_EQ(held, list_of({1})) << "assigned to itself";
  held = value();
  EXPECT_EQ(held.kind(), value_kind::none);
}

TEST_F(value_test, update_overwrites_an_integer_and_nothing_else) {
  value entries = map_of({{"dump", 0}, {"asic", DEFAULT}});
  entries.as_map().update("dump", std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(entries.at("dump"), std::numeric_limits<std::int64_t>::min());
  EXPECT_THAT(failure_of([&] { entries.as_map().update("asic", 1); }), HasSubstr("'Not set'"));
  EXPECT_EQ(entries.at("asic"), DEFAULT);
}

TEST_F(value_test, Visited_of_an_entry_that_no_check_reached_stays_the_integer_0) {
  const value members =
      map_of({{"0/0/0/1", map_of({{"Visited", 0}})}, {"0/0/0/2", map_of({{"Visited", 0}})}});
  members.at("0/0/0/1").as_map().mark_visited();
  EXPECT_EQ(members.at("0/0/0/1").at("Visited"), 1);
  EXPECT_EQ(members.at("0/0/0/2").at("Visited"), 0);
}

TEST_F(value_test, a_mark_on_an_entry_without_one_becomes_its_last_key) {
  for (const int size : {0, 3, 8, 9, 50}) {
    SCOPED_TRACE(size);
    value entry = make_map();
    for (int number = 0; number < size; ++number) entry.as_map().set(numbered(number), number);
    entry.as_map().mark_visited();
    entry.as_map().mark_visited();
    EXPECT_EQ(entry.at("Visited"), 1);
    EXPECT_TRUE(entry.contains("Visited"));
    EXPECT_EQ(entry.as_map().find("Visited"), 1);
    EXPECT_EQ(entry.as_map().size(), static_cast<std::size_t>(size + 1));
    EXPECT_EQ(keys_of(entry).back(), "Visited");
    EXPECT_EQ(entry.as_map().items().back(), std::make_pair(std::string("Visited"), value(1)));
    EXPECT_EQ(keys_of(entry).size(), static_cast<std::size_t>(size + 1));
  }
}

TEST_F(value_test, a_mark_overwrites_a_Visited_of_another_kind) {
  const value entry = map_of({{"Visited", "no"}, {"lagid", "0x1"}});
  entry.as_map().mark_visited();
  EXPECT_EQ(entry.at("Visited"), 1);
  EXPECT_THAT(keys_of(entry), ElementsAre("Visited", "lagid"));
  EXPECT_EQ(entry.as_map().items().front().second, 1);
  EXPECT_TRUE(entry == map_of({{"lagid", "0x1"}, {"Visited", 1}}));
}

TEST_F(value_test, a_value_in_a_message_is_kept_short) {
  EXPECT_EQ(brief_text("0x1"), "'0x1'");
  EXPECT_EQ(brief_text(std::string(100, 'a')), "'" + std::string(100, 'a') + "'");
  EXPECT_EQ(brief_text(std::string(101, 'a')), "'" + std::string(100, 'a') + "'... (101 bytes)");
  EXPECT_EQ(brief_text("two\nlines"), "'two\\nlines'");
  EXPECT_LT(brief(std::string(50'000'000, '\xff')).size(), 500U);
}

// The plain pattern: keys and contents in a list.
class plain_map {
 public:
  value* find(const std::string& key) {
    for (auto& [held, content] : entries_) {
      if (held == key) return &content;
    }
    return nullptr;
  }
  void set(const std::string& key, const value& content) {
    if (value* held = find(key)) {
      *held = content;
    } else {
      entries_.emplace_back(key, content);
    }
  }
  void erase(const std::string& key) {
    std::erase_if(entries_, [&key](const auto& each) { return each.first == key; });
  }
  const std::vector<std::pair<std::string, value>>& items() const { return entries_; }

 private:
  std::vector<std::pair<std::string, value>> entries_;
};

// Keys of many lengths and forms, some of which differ in one byte only.
std::vector<std::string> hostile_keys() {
  std::vector<std::string> keys = {"", "Visited", "Visite", "Visited ", "Node Description"};
  for (const std::size_t length : {1U, 3U, 4U, 7U, 8U, 9U, 12U, 15U, 16U, 17U, 40U}) {
    for (const char end : {'\0', 'a', '1', '\xff'}) keys.push_back(std::string(length, 'a') + end);
  }
  return keys;
}

void expect_same(const value& entries, plain_map& plain, const std::vector<std::string>& keys) {
  ASSERT_EQ(entries.as_map().items(), plain.items());
  ASSERT_EQ(entries.as_map().size(), plain.items().size());
  ASSERT_EQ(entries.truthy(), !plain.items().empty());
  std::vector<std::pair<std::string, value>> walked;
  entries.as_map().for_each(
      [&](std::string_view key, const value& content) { walked.emplace_back(key, content); });
  ASSERT_EQ(walked, plain.items());
  for (const std::string& key : keys) {
    const value* expected = plain.find(key);
    ASSERT_EQ(entries.contains(key), expected != nullptr);
    ASSERT_EQ(entries.get(key).has_value(), expected != nullptr);
    if (expected == nullptr) continue;
    ASSERT_EQ(entries.at(key), *expected);
    ASSERT_EQ(entries.in(key), *expected);
  }
}

void change_somehow(const value& entries, plain_map& plain, const std::vector<std::string>& keys,
                    std::mt19937& random) {
  const std::string& key = keys[random() % keys.size()];
  const value content =
      random() % 2 == 0 ? value(static_cast<int>(random() % 9)) : value(std::string(20, 'x'));
  switch (random() % 6) {
    case 0:
      entries.as_map().erase(key);
      plain.erase(key);
      break;
    case 1:
      entries.as_map().reserve(random() % 40);
      break;
    case 2:
      if (const value* held = plain.find(key); held != nullptr && held->is_integer()) {
        entries.as_map().update(key, 77);
        plain.set(key, 77);
      }
      break;
    case 3:
      entries.as_map().put(key, content);
      plain.set(key, content);
      break;
    default:
      entries.as_map().set(key, content);
      plain.set(key, content);
  }
}

TEST_F(value_test, a_map_of_any_origin_is_what_a_plain_list_of_entries_is) {
  static const row_keys& row = *new row_keys{"lagid", "Visited", "Node Description", ""};
  static const row_keys& unmarked = *new row_keys{"gport", "is_active"};
  const std::vector<std::string> keys = hostile_keys();
  for (unsigned seed = 0; seed < 600; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::array maps = {make_map(), make_map(seed % 30),
                       make_row(row, "0x1", 0, "LAG 0x1 of node 0/0/CPU0", make_map()),
                       make_row(unmarked, "0x2", "Y"), make_shared_map()};
    // Moved, because a copy makes an empty map, which otherwise is made when it is asked for.
    value entries = std::move(maps[seed % maps.size()]);
    if (seed % maps.size() == 4) entries.as_map().freeze();
    plain_map plain;
    for (const auto& [key, content] : entries.as_map().items()) plain.set(key, content);
    ASSERT_NO_FATAL_FAILURE(expect_same(entries, plain, keys));
    const std::size_t changes = random() % 60;
    for (std::size_t change = 0; change < changes; ++change) {
      change_somehow(entries, plain, keys, random);
    }
    ASSERT_NO_FATAL_FAILURE(expect_same(entries, plain, keys));
    entries.as_map().mark_visited();
    plain.set("Visited", 1);
    ASSERT_NO_FATAL_FAILURE(expect_same(entries, plain, keys));
  }
}

TEST_F(value_test, a_row_equals_a_map_with_the_same_entries_and_stays_one_when_it_grows) {
  static const row_keys& keys = *new row_keys{"gport", "is_active", "Node Description"};
  const value row = make_row(keys, "0x42", "Y", "LAG 0x1_npu0_node0/0/CPU0");
  const value entries = map_of(
      {{"gport", "0x42"}, {"is_active", "Y"}, {"Node Description", "LAG 0x1_npu0_node0/0/CPU0"}});
  EXPECT_EQ(row, entries);
  EXPECT_EQ(entries, row);
  EXPECT_EQ(row.as_map().shared_keys(), &keys);
  EXPECT_EQ(entries.as_map().shared_keys(), nullptr);
  EXPECT_FALSE(row.as_map().is_ordered());

  row.as_map().set("gport", "0x43");
  EXPECT_EQ(row.as_map().shared_keys(), &keys) << "no other key";
  EXPECT_EQ(row.in("gport"), "0x43");
  row.as_map().set("mtu", "1514");
  EXPECT_EQ(row.as_map().shared_keys(), nullptr);
  EXPECT_THAT(keys_of(row), ElementsAre("gport", "is_active", "Node Description", "mtu"));
  EXPECT_EQ(row.in("Node Description"), "LAG 0x1_npu0_node0/0/CPU0");

  const value other = make_row(keys, 1, 2, 3);
  EXPECT_THAT(keys_of(other), ElementsAre("gport", "is_active", "Node Description"));
  other.as_map().mark_visited();
  EXPECT_EQ(other.as_map().shared_keys(), nullptr) << "not all of it is in the row";
  EXPECT_EQ(other.in("Visited"), 1);
}

TEST_F(value_test, a_row_is_ordered_if_it_is_made_so) {
  static const row_keys& keys = *new row_keys{"ifh"};
  value_list contents = {"0x10"};
  const value row = make_row(keys, contents, map::order::ordered);
  EXPECT_TRUE(row.as_map().is_ordered());
  row.as_map().set("mtu", "1514");
  EXPECT_TRUE(row.as_map().is_ordered());
  EXPECT_EQ(contents[0].kind(), value_kind::none) << "moved into the row";
}

TEST_F(value_test, keys_that_cannot_make_a_row_are_a_failure) {
  EXPECT_THAT(failure_of([] { row_keys({"lagid", "mtu", "lagid"}); }), HasSubstr("'lagid'"));
  EXPECT_THAT(failure_of([] {
                row_keys({"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "12", "13",
                          "14", "15", "16"});
              }),
              HasSubstr("17 keys; at most 16"));
  static const row_keys& keys = *new row_keys{"lagid", "mtu"};
  EXPECT_THAT(failure_of([] { make_row(keys, "0x1"); }), HasSubstr("1 contents for a row of 2"));
  EXPECT_EQ(keys.position("mtu"), 1U);
  EXPECT_EQ(keys.position("mt"), keys.size());
  EXPECT_EQ(keys[1], "mtu");
}

TEST_F(value_test, an_empty_map_is_one_map_for_all_that_share_it) {
  const value entry = make_map();
  const value holder = make_map();
  holder.as_map().set("members", make_map());
  EXPECT_FALSE(entry.truthy());
  EXPECT_FALSE(entry.contains("mtu"));
  EXPECT_FALSE(entry.get("mtu").has_value());
  EXPECT_THAT(failure_of([&] { entry.at("mtu"); }), HasSubstr("no key 'mtu'"));
  EXPECT_THAT(failure_of([&] { entry.in("mtu"); }), HasSubstr("no key 'mtu'"));
  EXPECT_EQ(entry, make_map());
  const value copy = entry;
  copy.as_map().set("mtu", "1514");
  EXPECT_EQ(entry.at("mtu"), "1514");
  holder.at("members").as_map().mark_visited();
  EXPECT_EQ(holder.in("members").in("Visited"), 1);
  value moved_from = make_map();
  const value moved = std::move(moved_from);
  EXPECT_TRUE(moved.is_map());
  EXPECT_EQ(moved_from.kind(), value_kind::none);
}

TEST_F(value_test, many_threads_that_ask_for_an_empty_map_get_the_same_one) {
  for (int round = 0; round < 100; ++round) {
    const value lags = make_map();
    lags.as_map().set("LAG 0x1", make_map());  // moved in, so it is not made yet
    std::array<const map*, 4> seen = {};
    together(4, [&](int number) {
      const value& lag = lags.in("LAG 0x1");
      if (number % 2 == 0) static_cast<void>(lag.truthy());
      const value copy = lag;
      copy.as_map().mark_visited();
      seen[static_cast<std::size_t>(number)] = &lag.as_map();
    });
    for (const map* each : seen) EXPECT_EQ(each, seen[0]);
    EXPECT_EQ(lags.in("LAG 0x1").in("Visited"), 1);
  }
}

// The key that the compiler makes of a literal is the key of the same text at run time.
template <std::size_t Size>
void expect_literal_is_text(const value& entries, const char (&text)[Size], text_key literal) {
  const std::string at_run_time(text, Size - 1);
  EXPECT_EQ(literal.text(), at_run_time);
  EXPECT_EQ(literal.hash(), text_key(at_run_time).hash());
  entries.as_map().set(literal, static_cast<int>(Size));
  EXPECT_EQ(entries.at(at_run_time), static_cast<int>(Size));
  entries.as_map().set(at_run_time, "again");
  EXPECT_EQ(entries.at(literal), "again");
}

TEST_F(value_test, a_literal_key_is_the_key_of_its_text) {
  const value entries = make_map();
#define EXPECT_LITERAL(text) expect_literal_is_text(entries, text, text)
  EXPECT_LITERAL("");
  EXPECT_LITERAL("a");
  EXPECT_LITERAL("rif");
  EXPECT_LITERAL("lags");
  EXPECT_LITERAL("members");
  EXPECT_LITERAL("weighted");
  EXPECT_LITERAL("npu\0core");
  EXPECT_LITERAL("\xff\x80\x7f\x01");
  EXPECT_LITERAL("deletePending");
  EXPECT_LITERAL("fifteen letters");
  EXPECT_LITERAL("Node Description");
  EXPECT_LITERAL("a key that is longer than all that fit into a value");
#undef EXPECT_LITERAL
  EXPECT_EQ(entries.as_map().size(), 12U);
}

TEST_F(value_test, a_text_of_parts_is_the_text_that_they_make) {
  for (std::size_t size = 0; size < 40; ++size) {
    const std::string text(size, 'x');
    const value made = make_text({text, "_npu", "", text});
    EXPECT_EQ(made, text + "_npu" + text);
    EXPECT_EQ(map_of({{text + "_npu" + text, 1}}).at(made.as_text()), 1);
  }
  EXPECT_EQ(make_text({}), "");
}

TEST_F(value_test, marks_are_set_by_many_threads_while_others_walk_the_map) {
  constexpr int rounds = 200;
  const value with = map_of({{"lagid", "0x1"}, {"Visited", 0}});
  const value without = map_of({{"lagid", "0x1"}});
  static const row_keys& keys = *new row_keys{"lagid"};
  const value row = make_row(keys, "0x1");
  together(8, [&](int number) {
    for (int round = 0; round < rounds; ++round) {
      for (const value& entry : {with, without, row}) {
        if (number % 2 == 0) {
          entry.as_map().mark_visited();
          continue;
        }
        for (const auto& [key, content] : entry.as_map().items()) {
          EXPECT_TRUE(key != "Visited" || content == 0 || content == 1);
        }
        static_cast<void>(entry.as_map().size());
        static_cast<void>(entry.as_map().keys());
        static_cast<void>(entry == with);
      }
    }
  });
  EXPECT_EQ(with.at("Visited"), 1);
  EXPECT_EQ(without.at("Visited"), 1);
  EXPECT_EQ(without.as_map().size(), 2U);
  EXPECT_EQ(row, without);
}

TEST_F(value_test, an_integer_is_overwritten_by_many_threads_while_others_copy_it) {
  const value node = map_of({{"dump", 1}});
  together(6, [&](int number) {
    for (int round = 0; round < 500; ++round) {
      if (number < 3) {
        node.as_map().update("dump", number);
      } else {
        const value copy = node.at("dump");
        EXPECT_LT(copy.as_integer(), 3);
      }
    }
  });
}

TEST_F(value_test, a_shared_map_takes_inserts_from_many_threads_while_it_is_walked) {
  constexpr int threads = 8;
  constexpr int each = 300;
  const value store = make_shared_map();
  together(threads, [&](int number) {
    std::size_t seen = 0;
    for (int round = 0; round < each; ++round) {
      const std::string key = std::to_string(number) + "/" + std::to_string(round);
      store.as_map().set(key, map_of({{"ifh", round}}));
      EXPECT_EQ(store.at(key).at("ifh"), round);
      if (round % 50 != 0) continue;
      const std::size_t now = store.as_map().items().size();
      EXPECT_GT(now, seen) << "nothing that was there is lost";
      seen = now;
    }
  });
  EXPECT_EQ(store.as_map().size(), static_cast<std::size_t>(threads * each));
  for (int number = 0; number < threads; ++number) {
    EXPECT_TRUE(store.contains(std::to_string(number) + "/" + std::to_string(each - 1)));
  }
}

TEST_F(value_test, what_is_published_with_one_insert_is_read_without_a_lock) {
  const value store = make_shared_map();
  together(4, [&](int number) {
    if (number == 0) {
      value node = make_ordered_map();
      for (int npu = 0; npu < 50; ++npu) node.as_map().set(std::to_string(npu), "table");
      store.as_map().set("0/0/CPU0", node);
      return;
    }
    while (!store.contains("0/0/CPU0")) std::this_thread::yield();
    EXPECT_EQ(store.at("0/0/CPU0").as_map().size(), 50U);
    EXPECT_EQ(store.at("0/0/CPU0").at("49"), "table");
  });
}

}  // namespace
}  // namespace tessel
