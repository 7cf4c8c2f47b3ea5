#include "checks/store_part.h"

#include <array>
#include <random>
#include <string>
#include <string_view>

#include "base/failure.h"
#include "base/records.h"
#include "support/fake_router.h"

namespace tessel {
namespace {

using testing::HasSubstr;

// What a look-up gives, or how it fails.
template <class LookUp>
std::string outcome_of(LookUp look_up) {
  try {
    return "found " + brief(look_up());
  } catch (const failure& error) {
    return std::string("failed: ") + error.what();
  }
}

TEST(store_part_test, a_part_is_the_same_entry_and_not_a_copy_of_it) {
  const value inner = map_of({{"lagid", "0x1"}});
  const store_part part = store_part(map_of({{"lagport", inner}})).at("lagport");
  inner.as_map().mark_visited();
  EXPECT_EQ(part.get().at("Visited"), 1);
  EXPECT_EQ(part.found(), &part.get());
}

TEST(store_part_test, what_is_missing_fails_only_where_it_is_read_and_each_time) {
  const store_part missing = store_part(map_of({{"0/0/CPU0", make_map()}})).at("0/1/CPU0");
  const store_part beyond = missing.at("lagport").field("ifh");
  for (int time = 0; time < 2; ++time) {
    EXPECT_THAT(failure_of([&] { missing.get(); }), HasSubstr("no key '0/1/CPU0'"));
    EXPECT_THAT(failure_of([&] { beyond.get(); }), HasSubstr("no key '0/1/CPU0'"));
  }
  EXPECT_EQ(missing.found(), nullptr);
}

TEST(store_part_test, a_failure_names_the_function_that_reads) {
  const store_part missing = store_part(make_map()).at("lagport");
  try {
    missing.get();
    ADD_FAILURE() << "no failure";
  } catch (const failure& error) {
    EXPECT_EQ(std::string_view(error.where().file_name()), here::current().file_name());
    EXPECT_EQ(std::string_view(error.where().function_name()), here::current().function_name());
  }
}

TEST(store_part_test, a_part_of_a_record_is_its_field) {
  const store_part part = store_part(new_record<Bundles>());
  EXPECT_TRUE(part.field("members").get().is_map());
  EXPECT_THAT(failure_of([&] { part.field("lag").get(); }), HasSubstr("no field 'lag'"));
  EXPECT_THAT(failure_of([] { store_part("text").field("lag").get(); }),
              HasSubstr("a record expected"));
}

TEST(store_part_test, parts_fail_and_are_found_like_plain_look_ups_on_stores_with_gaps) {
  std::mt19937 random(15);
  const std::array<std::string, 4> names = {"0/0/CPU0", "lagport", "0x3000120", "a\nb"};
  const auto any_name = [&] { return names[random() % names.size()]; };
  const auto any_leaf = [&]() -> value {
    switch (random() % 4) {
      case 0:
        return ERROR;
      case 1:
        return "Not set";
      case 2:
        return make_list();
      default:
        return make_map();
    }
  };
  int found = 0;
  for (int round = 0; round < 2000; ++round) {
    const value root = random() % 2 == 0 ? make_shared_map() : make_map();
    for (int entry = 0; entry < 6; ++entry) {
      const value inner = random() % 3 == 0 ? any_leaf() : map_of({{any_name(), any_leaf()}});
      root.as_map().set(any_name(), inner);
    }
    const std::string first = any_name();
    const std::string second = any_name();
    const std::string plain = outcome_of([&] { return root.at(first).at(second); });
    EXPECT_EQ(outcome_of([&] { return store_part(root).at(first).at(second).get(); }), plain);
    if (plain.starts_with("found")) ++found;
  }
  EXPECT_GT(found, 200);
  EXPECT_LT(found, 1800);
}

}  // namespace
}  // namespace tessel
