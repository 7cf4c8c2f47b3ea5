#include "hygiene/stale_entries.h"

#include <array>
#include <latch>
#include <memory>
#include <random>
#include <string>
#include <string_view>

#include "base/dump.h"
#include "base/records.h"
#include "base/text.h"
#include "base/text_index.h"
#include "base/worker.h"
#include "programming/chip_rows.h"
#include "support/chip_world.h"
#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr std::string_view title = "Stale Entry Check.......................";
constexpr std::string_view start_line = "'Started Tessel Checker'\n";

value entry(int visited, std::string_view name) {
  return map_of({{"Visited", visited}, {"Node Description", name}});
}

// The stale log's lines for layers with these counts and no list.
std::string clean_layers() {
  return "'Number of stale entries in PI 0'\n'Number of stale entries in BME 0'\n"
         "'Number of stale entries in DPA 0'\n'Number of stale entries in BCM 0'\n";
}

// A router on which every entry was referred to.
class stale_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    open_logs();
    set_up_nodes();
    st().bdlInfoPI.set(ordered_map_of({{"BE12", entry(1, "BE12")}}));
    st().bdlInfoPD.set(ordered_map_of({{"BE12", map_of({{older_node, entry(1, "BE12_node")}})}}));
    st().DPA.set(
        ordered_map_of({{older_node, map_of({{"lagport", map_of({{"0x1", entry(1, "lag")}})}})}}));
    value older = older_tables("1005 Payload=0x44\n", "", vsi_row("16", "1"));
    older.as_map().set("diag_lag", map_of({{"LAG 0x1", entry(1, "LAG 0x1")}}));
    set_tables(older_node, "0", older);
    set_tables(j2_node, "0",
               ordered_map_of({{"VSI", map_of({{"16", "1"}})},
                               {"tm_lag", map_of({{"0x1", entry(1, "0x1")}})}}));
  }

  int check() {
    int result = -1;
    EXPECT_EQ(output_of([&] { result = check_stale_entries(); }), title);
    return result;
  }

  // The stale log after its start line.
  static std::string logged() {
    const std::string text = file_text(LOG_FILE_STALE_ENTRIES);
    EXPECT_THAT(text, StartsWith(start_line));
    return text.substr(start_line.size());
  }
};

value reduced_bcm() {
  return map_of(
      {{older_node,
        map_of({{"0", map_of({{"diag_lag", map_of({{"LAG 0x1", entry(1, "LAG 0x1")}})}})}})},
       {j2_node, map_of({{"0", map_of({{"tm_lag", map_of({{"0x1", entry(1, "0x1")}})}})}})}});
}

// --- The reduced store of the chips

TEST_F(stale_test, bcm_is_reduced_to_the_lag_tables_of_each_family) {
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(st().BCM.get(), reduced_bcm());
  EXPECT_FALSE(st().BCM.get().as_map().is_ordered());
  EXPECT_FALSE(st().BCM.get().at(older_node).as_map().is_ordered());
  EXPECT_FALSE(st().BCM.get().at(older_node).at("0").as_map().is_ordered());
  EXPECT_EQ(st().snapshot, 1);
}

TEST_F(stale_test, only_bcm_is_rebound) {
  const value pi = st().bdlInfoPI.get();
  const value pd = st().bdlInfoPD.get();
  const value dpa = st().DPA.get();
  const value lags = st().BCM.get().at(older_node).at("0").at("diag_lag");
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(&st().bdlInfoPI.get().as_map(), &pi.as_map());
  EXPECT_EQ(&st().bdlInfoPD.get().as_map(), &pd.as_map());
  EXPECT_EQ(&st().DPA.get().as_map(), &dpa.as_map());
  EXPECT_EQ(&st().BCM.get().at(older_node).at("0").at("diag_lag").as_map(), &lags.as_map())
      << "the LAG tables themselves are the same";
}

TEST_F(stale_test, the_raw_chip_tables_are_let_go) {
  raw_table sema = st().BCM.get().at(older_node).at("0").at("SEMA").as_shared_text();
  const std::weak_ptr<const std::string> watched = sema;
  EXPECT_TRUE(sem_table(sema).payload_of("1005").has_value());
  sema.reset();
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_TRUE(watched.expired());
}

TEST_F(stale_test, an_npu_without_its_lag_table_is_a_failure_that_names_the_last_node_come_to) {
  const value before = st().BCM.get();
  before.at(older_node).at("0").as_map().erase("diag_lag");
  EXPECT_EQ(check(), ERROR);
  EXPECT_EQ(&st().BCM.get().as_map(), &before.as_map()) << "nothing is dropped";
  EXPECT_EQ(st().snapshot, 0);
  EXPECT_EQ(logged(), "");
  expect_told({.exception = {"no key 'diag_lag': Stale entry verification failed in 0/0/CPU0"}});
  EXPECT_THAT(file_text(LOG_FILE_EXCEPTION), HasSubstr("Traceback (most recent call last):"));
}

TEST_F(stale_test, a_node_that_holds_no_map_is_a_failure) {
  st().BCM.get().as_map().set(j2_node, ERROR);
  EXPECT_EQ(check(), ERROR);
  expect_told(
      {.exception = {"a map expected, found the integer 0: Stale entry verification failed in "
                     "0/1/CPU0"}});
}

TEST_F(stale_test, a_failure_behind_the_reduction_names_the_last_node_whatever_it_was) {
  st().stale_fd.close();
  int result = -1;
  output_of([&] { result = check_stale_entries(); });
  EXPECT_EQ(result, ERROR);
  EXPECT_EQ(st().snapshot, 1);
  EXPECT_EQ(st().exception, 1);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre(EndsWith(": Stale entry verification failed in 0/1/CPU0")));
}

TEST_F(stale_test, an_empty_bcm_is_not_a_failure_by_itself) {
  st().BCM.set(make_ordered_map());
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(logged(), clean_layers());
  expect_told({});
}

TEST_F(stale_test, with_an_empty_bcm_a_failure_leaves_the_function) {
  st().BCM.set(make_ordered_map());
  st().stale_fd.close();
  output_of([] {
    EXPECT_THAT(failure_of([] { check_stale_entries(); }), StartsWith("no node to name: "));
  });
  EXPECT_EQ(st().snapshot, 1);
  expect_told({});
}

// --- What shows a stale mark

value some_text(std::mt19937& random) {
  static const std::array texts = {"",
                                   "0x1",
                                   "Visited",
                                   "'Visited': 0, ",
                                   "Visit",
                                   "ed': 0,",
                                   "a longer text without the word",
                                   "a longer text, not Visited: 0,"};
  return texts[random() % 12 < 10 ? random() % 2 : random() % texts.size()];
}

value some_key(std::mt19937& random) {
  static const std::array keys = {"Visited", "lagid",     "members",  "mtu",      "0x1",
                                  "rif",     "xVisitedx", "Visited'", "\nVisited"};
  return keys[random() % (random() % 20 == 0 ? keys.size() : 6)];
}

// A value of the kinds that stores hold, seldom of others.
value some_store(std::mt19937& random, int depth) {
  const auto kind = random() % 40;
  if (depth == 0 || kind < 10) return static_cast<int>(random() % 2);
  if (kind < 20) return some_text(random);
  if (kind == 20) return make_list({some_store(random, depth - 1)});
  if (kind == 21) return new_record<subBundles>();
  if (kind == 22) return value();
  const value made = random() % 2 == 0 ? make_map() : make_shared_map();
  const std::size_t entries = random() % 4;
  for (std::size_t at = 0; at < entries; ++at) {
    const value key = some_key(random);
    made.as_map().put(key, some_store(random, depth - 1));
  }
  if (random() % 8 == 0) made.as_map().mark_visited();
  return made;
}

TEST_F(stale_test, a_store_shows_a_stale_mark_where_its_printed_form_does) {
  static const pattern& definition = constant(stale_mark_definition);
  std::mt19937 random(11);
  std::array<int, 2> seen = {};
  for (int round = 0; round < 20000; ++round) {
    const value store = map_of({{"a", some_store(random, 4)}, {"b", some_store(random, 4)}});
    const std::string text = printed(store);
    const bool expected = !findall(definition, text).empty();
    ASSERT_EQ(shows_stale_mark(store), expected) << text;
    ++seen[expected ? 1 : 0];
  }
  EXPECT_GT(seen[0], 1000);
  EXPECT_GT(seen[1], 500);
}

// --- The gate

struct gate_row {
  const char* why;
  counter run_state::*count;
};
constexpr std::array gates = {
    gate_row{"an inconsistency", &run_state::inconsistent},
    gate_row{"a programming error", &run_state::programming_error},
    gate_row{"a failure", &run_state::exception},
    gate_row{"a note", &run_state::info},
};

TEST_F(stale_test, after_any_finding_failure_or_note_no_stale_entry_is_ever_reported) {
  for (const gate_row& each : gates) {
    SCOPED_TRACE(each.why);
    SetUp();
    st().bdlInfoPI.set(ordered_map_of({{"BE13", entry(0, "BE13")}}));
    const std::size_t workers = st().pid_list.size();
    ++(st().*each.count);
    EXPECT_EQ(check(), SUCCESS);
    EXPECT_EQ(st().staleEntries, 0);
    EXPECT_EQ(logged(), "") << "no line of a count";
    EXPECT_EQ(st().BCM.get(), reduced_bcm());
    EXPECT_EQ(st().snapshot, 1);
    EXPECT_EQ(st().pid_list.size(), workers);
  }
}

TEST_F(stale_test, the_gate_does_not_wait_for_workers_that_still_run) {
  std::latch go(1);
  const auto running = start_worker([&go] { go.wait(); });
  st().pid_list.append(running);
  ++st().inconsistent;
  EXPECT_EQ(check(), SUCCESS) << "comes back, or this test never ends";
  go.count_down();
  running->join();
}

TEST_F(stale_test, a_delete_pending_note_does_not_close_the_gate) {
  ++st().deletePending;
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(logged(), clean_layers());
}

// --- The walk

TEST_F(stale_test, a_layer_with_a_clean_store_still_gets_its_line_with_the_count_0) {
  const std::size_t workers = st().pid_list.size();
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(logged(), clean_layers());
  EXPECT_EQ(st().staleEntries, 0);
  EXPECT_EQ(st().pid_list.size(), workers) << "no worker is started";
  expect_told({});
}

TEST_F(stale_test, an_empty_store_prints_no_match_and_starts_no_worker) {
  for (cell* store : {&st().bdlInfoPI, &st().bdlInfoPD, &st().DPA}) store->set(make_ordered_map());
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(logged(), clean_layers());
  EXPECT_EQ(st().pid_list.size(), 0U);
}

TEST_F(stale_test, a_stale_entry_of_each_layer_is_counted_and_listed) {
  st().bdlInfoPI.get().as_map().set("BE13", entry(0, "BE13"));
  st().bdlInfoPD.get().as_map().set("BE14", map_of({{older_node, entry(0, "BE14_node")}}));
  st().DPA.get().at(older_node).at("lagport").as_map().set("0x2", entry(0, "lag2"));
  st().DPA.get().at(older_node).at("lagport").as_map().set("0x3", entry(0, "lag3"));
  st().BCM.get().at(older_node).at("0").at("diag_lag").as_map().set("LAG 0x2", entry(0, "LAG 0x2"));
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(st().staleEntries, 5);
  EXPECT_EQ(logged(),
            R"('Number of stale entries in PI 1'
'Start of PI entries...'
[
   {
      "Node Description":"BE13",
      "Visited":0
   }
]
'End of PI entries...'
'Number of stale entries in BME 1'
'Start of BME entries...'
[
   {
      "Node Description":"BE14_node",
      "Visited":0
   }
]
'End of BME entries...'
'Number of stale entries in DPA 2'
'Start of DPA entries...'
[
   {
      "Node Description":"lag2",
      "Visited":0
   },
   {
      "Node Description":"lag3",
      "Visited":0
   }
]
'End of DPA entries...'
'Number of stale entries in BCM 1'
'Start of BCM entries...'
[
   {
      "Node Description":"LAG 0x2",
      "Visited":0
   }
]
'End of BCM entries...'
)");
  EXPECT_EQ(st().pid_list.size(), 4U);
  expect_told({});
}

TEST_F(stale_test, a_stale_entry_in_a_jericho2_table_is_found) {
  st().BCM.get().at(j2_node).at("0").at("tm_lag").as_map().set("0x9", entry(0, "0x9"));
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(st().staleRecurrsion.at("BCM"), 1);
}

TEST_F(stale_test,
       a_mark_of_0_that_stands_last_in_its_map_does_not_start_the_walk_of_its_layer_alone) {
  const value last = map_of({{"Node Description", "BE13"}, {"Visited", 0}});
  st().bdlInfoPI.get().as_map().set("BE13", last);
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(logged(), clean_layers());
  EXPECT_EQ(st().pid_list.size(), 0U);
}

TEST_F(stale_test, once_the_walk_of_a_layer_starts_it_finds_all_marks_at_0_wherever_they_stand) {
  const value last = map_of({{"Node Description", "BE13"}, {"Visited", 0}});
  st().bdlInfoPI.get().as_map().set("BE13", last);
  st().bdlInfoPI.get().as_map().set("BE14", entry(0, "BE14"));
  st().bdlInfoPD.get().as_map().set("BE13", last);
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(st().staleRecurrsion.at("PI"), 2);
  EXPECT_EQ(st().staleRecurrsion.at("BME"), 0) << "another layer starts by itself";
  EXPECT_EQ(st().staleEntries, 2);
}

TEST_F(stale_test, what_was_visited_meanwhile_is_not_stale) {
  const value seen = entry(0, "BE13");
  st().bdlInfoPI.get().as_map().set("BE13", seen);
  seen.as_map().mark_visited();
  const value late = map_of({{"members", map_of({})}});
  st().bdlInfoPI.get().as_map().set("BE14", late);
  late.as_map().mark_visited();
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(logged(), clean_layers());
}

TEST_F(stale_test, what_a_slow_worker_still_visits_is_not_stale) {
  const value seen = entry(0, "BE13");
  st().bdlInfoPI.get().as_map().set("BE13", seen);
  bool came_too_soon = false;
  std::latch is_listed(1);
  st().pid_list.append(start_worker([&] {
    is_listed.wait();
    came_too_soon = happens_too_soon([] { return st().pid_list.size() > 1; });
    seen.as_map().mark_visited();
  }));
  is_listed.count_down();
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_FALSE(came_too_soon) << "the walk of a layer began";
  EXPECT_EQ(logged(), clean_layers());
}

TEST_F(stale_test, all_workers_of_the_run_are_waited_for_before_the_counts_are_written) {
  bool has_ended = false;
  bool came_too_soon = false;
  st().pid_list.append(start_worker([&] {
    came_too_soon = happens_too_soon([] { return !logged().empty(); });
    has_ended = true;
  }));
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_TRUE(has_ended);
  EXPECT_FALSE(came_too_soon);
  EXPECT_EQ(logged(), clean_layers());
}

// --- Below one map

TEST_F(stale_test, plain_maps_are_entered_depth_first_and_nothing_else) {
  value object_with_mark = new_record<subBundles>();
  object_with_mark.as_record().set("Visited", 0);
  const value deep = entry(0, "deep");
  const value shallow = map_of({{"below", map_of({{"more", deep}})}, {"Visited", 0}});
  const value walked = ordered_map_of({
      {"plain", shallow},
      {"ordered", ordered_map_of({{"Visited", 0}, {"x", 1}})},
      {"list", list_of({entry(0, "in a list")})},
      {"record", object_with_mark},
      {"text", "Visited"},
      {"number", 0},
      {"nothing", value()},
  });
  EXPECT_EQ(get_non_visited_nodes(walked, "DPA"), SUCCESS);
  EXPECT_EQ(st().staleRecurrsion.at("DPA"), 2);
  EXPECT_THAT(st().listRecurrsion.at("DPA"), ElementsAre(deep, shallow));
  EXPECT_EQ(&st().listRecurrsion.at("DPA")[1].as_map(), &shallow.as_map());
  EXPECT_EQ(st().staleRecurrsion.at("PI"), 0);
}

TEST_F(stale_test, only_the_integer_0_under_visited_is_a_mark_of_0) {
  EXPECT_EQ(get_non_visited_nodes(map_of({{"a", map_of({{"Visited", "0"}})},
                                          {"b", map_of({{"Visited", 1}})},
                                          {"c", map_of({{"visited", 0}})},
                                          {"d", map_of({{"Visited", DEFAULT}})},
                                          {"e", map_of({{"Visited", map_of({})}})},
                                          {"f", map_of({{"Visited", value()}})}}),
                                  "PI"),
            SUCCESS);
  EXPECT_EQ(st().staleRecurrsion.at("PI"), 0);
}

TEST_F(stale_test, a_map_under_the_key_visited_is_entered) {
  const value inner = map_of({{"Visited", 0}});
  get_non_visited_nodes(map_of({{"Visited", inner}}), "PI");
  EXPECT_THAT(st().listRecurrsion.at("PI"), ElementsAre(inner));
}

TEST_F(stale_test, a_mark_of_the_outermost_map_counts_even_of_an_ordered_one) {
  const value outer = ordered_map_of({{"Visited", 0}});
  get_non_visited_nodes(outer, "BCM");
  EXPECT_THAT(st().listRecurrsion.at("BCM"), ElementsAre(outer));
}

TEST_F(stale_test, what_cannot_be_walked_is_a_failure_that_names_the_layer) {
  EXPECT_EQ(get_non_visited_nodes("text", "BME"), ERROR);
  expect_told({.exception = {
                   "a map expected, found the text 'text': get_non_visited_nodes failed in BME"}});
}

TEST_F(stale_test, a_failure_is_logged_before_it_is_counted) {
  EXPECT_TRUE(logs_before_counting([] { get_non_visited_nodes(ERROR, "BME"); }));
  st().BCM.get().as_map().set(j2_node, ERROR);
  output_of([] { EXPECT_TRUE(logs_before_counting([] { check_stale_entries(); })); });
}

}  // namespace
}  // namespace tessel
