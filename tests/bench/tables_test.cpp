#include "runs/tables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace bench {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

result sized(const char* size, double parsing) {
  result r{size, "older", true, 0, {}};
  r.run.phases = {{"Parsing Data", {parsing / 2, parsing / 2}, 0, 0}};
  return r;
}

// A run with late tools, whose longest chain took two seconds.
result late(const char* size, double wall) {
  result r = sized(size, 1);
  r.chain = 2;
  r.run.values[value_name::wall] = wall;
  return r;
}

TEST(tables, costs_are_set_against_the_sum_of_the_floors) {
  result r = sized("XL", 1);
  for (const auto& [name, number] :
       {std::pair{value_name::own_user, 2.0}, std::pair{value_name::own_system, 1.0},
        std::pair{value_name::matching, 0.5}, std::pair{value_name::reading, 0.25},
        std::pair{value_name::starting, 0.125}, std::pair{value_name::writing, 0.125},
        std::pair{value_name::text_bytes, 3e6}})
    r.run.values[name] = number;
  EXPECT_THAT(cost_row(r), testing::StartsWith("| XL | older | on | 3.0 | 3.000 | 2.000 | 1.000 | "
                                               "1.000 | 0.500 | 0.250 | 0.125 | 0.125 | 3.00 |"));
}

TEST(tables, counts_are_set_against_what_is_allowed) {
  result r = sized("L", 1);
  for (const auto& [name, number] :
       {std::pair{value_name::text_bytes, 18.0 * 1024 * 1024},
        std::pair{value_name::peak_kib, 200.0 * 1024}, std::pair{value_name::threads, 160.0},
        std::pair{value_name::most_threads, 7.0}, std::pair{value_name::most_files, 24.0},
        std::pair{value_name::commands, 50.0}, std::pair{value_name::most_commands, 16.0}})
    r.run.values[name] = number;
  EXPECT_EQ(count_row(r),
            "| L | older | on | 200.0 | 2.00 | 160 | 2.00 | 7 | 24 | 0.50 | 50 | 16 | 0.0 |\n");
}

TEST(tables, a_phase_shows_its_growth_from_the_half_router_to_the_whole) {
  const std::string text = phase_tables({sized("L", 0.5), sized("XL", 1.25)});
  EXPECT_THAT(text, HasSubstr("| phase | L | XL | L→XL |\n"));
  EXPECT_THAT(text, EndsWith("| Parsing Data | 500.0 | 1250.0 | 2.50 |\n"));
}

TEST(tables, the_growth_of_a_phase_that_takes_no_time_is_not_shown) {
  EXPECT_THAT(phase_tables({sized("L", 0.004), sized("XL", 0.4)}),
              EndsWith("| Parsing Data | 4.0 | 400.0 | – |\n"));
}

TEST(tables, the_limits_name_the_router_that_exceeds_them_most) {
  result small = sized("S", 0.5);
  small.run.values[value_name::own_user] = 0.02;
  small.run.values[value_name::first_line] = 0.025;
  result half = sized("L", 0.5);
  half.run.values = {{value_name::own_user, 4}, {value_name::matching, 1}};
  result whole = sized("XL", 1);
  whole.run.values = {{value_name::own_user, 5}, {value_name::matching, 2}};
  const std::string text = limit_table({small, half, whole});
  EXPECT_THAT(text, HasSubstr("| own CPU on L and XL, of the floors | 3 | 4.00 | L older hqos | "
                              "no |\n"));
  EXPECT_THAT(text, HasSubstr("| growth of a phase from L to XL | 2.2 | 2.00 | XL older hqos | "
                              "yes |\n"));
  EXPECT_THAT(text, HasSubstr("| first line on S | 20 ms | 25.00 ms | S older hqos | no |\n"));
  EXPECT_THAT(text, HasSubstr("| own CPU on S | 30 ms | 20.00 ms | S older hqos | yes |\n"));
}

TEST(tables, a_limit_that_is_for_none_of_the_routers_is_left_out) {
  EXPECT_THAT(limit_table({sized("M", 1)}), testing::Not(HasSubstr("on S")));
}

TEST(tables, wall_time_is_set_against_the_longest_chain) {
  EXPECT_EQ(chain_row(late("M", 2.5)), "| M | older | on | 2.500 | 2.000 | 1.250 |\n");
}

TEST(tables, with_late_tools_only_the_time_beside_them_has_a_limit) {
  const std::string text = limit_table({late("M", 2.08), late("L", 2.2)});
  EXPECT_THAT(text, EndsWith("| wall time, of the longest chain | 1.05 | 1.10 | L older hqos | no |"
                             "\n"));
  EXPECT_THAT(text, testing::Not(HasSubstr("own CPU")));
}

}  // namespace
}  // namespace bench
