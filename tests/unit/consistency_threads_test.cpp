// Workers of many nodes use the same records, counters and stores at the same time.
#include <fmt/format.h>

#include <atomic>
#include <string>
#include <string_view>
#include <vector>

#include "base/print.h"
#include "base/text.h"
#include "checks/both_passes.h"
#include "checks/field_checks.h"
#include "consistency/consistency_pass.h"
#include "report/results.h"
#include "support/bundle_world.h"
#include "support/together.h"

namespace tessel {
namespace {

using std::string_view;
using testing::ElementsAre;
using testing::IsEmpty;
using consistency_threads_test = bundle_test;

using field_check = int (*)(const value&, record&, const object_name&, string_view);

struct checked_field {
  field_check check;
  std::string field;
};
const std::vector<checked_field> checked_fields = {{check_lagid, "lagid"},
                                                   {check_mtu, "mtu"},
                                                   {check_rif, "rif"},
                                                   {check_memid, "memid"},
                                                   {check_lif, "glif"}};

value unset_record() {
  value element = new_record<Bundles>();
  element.as_record().set("memid", DEFAULT);
  return element;
}

// The numbers in the findings, in the order of the lines.
std::vector<std::int64_t> quoted_numbers() {
  static const pattern& number = constant(R"(^Inconsistency (\d+):)");
  std::vector<std::int64_t> numbers;
  for (const std::string& line : findings()) {
    const matches found = findall(number, line);
    EXPECT_EQ(found.size(), 1U) << "a torn line: " << line;
    if (!found.empty()) numbers.push_back(to_decimal(found.text(0)));
  }
  return numbers;
}

// Counting and logging are one step, so the lines are also in the order of their numbers.
void expect_each_number_once(std::int64_t count) {
  std::vector<std::int64_t> expected;
  for (std::int64_t number = 1; number <= count; ++number) expected.push_back(number);
  EXPECT_EQ(quoted_numbers(), expected);
  EXPECT_EQ(st().inconsistent, count);
}

TEST_F(consistency_threads_test, of_two_layers_that_disagree_exactly_one_is_reported) {
  constexpr int rounds = 60;
  std::int64_t told = 0;
  for (int round = 0; round < rounds; ++round) {
    for (const auto& [check, field] : checked_fields) {
      const value element = unset_record();
      std::atomic<int> agreeing = 0;
      together(2, [&, check = check](int number) {
        agreeing += check(number == 0 ? "0x11111" : "0x22222", element.as_record(), "BE12", "DPA");
      });
      EXPECT_EQ(agreeing, 1) << field;
      EXPECT_EQ(st().inconsistent, ++told) << field;
      const value held = element.as_record().get(field);
      EXPECT_TRUE(held == "0x11111" || held == "0x22222") << printed(held);
      const std::string other = held == "0x11111" ? "0x22222" : "0x11111";
      EXPECT_THAT(last(findings()), testing::HasSubstr(other));
      EXPECT_THAT(last(findings()), testing::HasSubstr(held.as_text()));
    }
  }
  expect_each_number_once(told);
}

TEST_F(consistency_threads_test,
       of_many_nodes_each_that_disagrees_with_the_first_is_reported_once) {
  constexpr int nodes = 16;
  for (const auto& [check, field] : checked_fields) {
    st().inconsistent = 0;
    const value element = unset_record();
    together(nodes, [&, check = check](int number) {
      check(number % 4 == 0 ? "0x11111" : "0x22222", element.as_record(), "BE12", "DPA");
    });
    const bool few_came_first = element.as_record().get(field) == "0x11111";
    EXPECT_EQ(st().inconsistent, few_came_first ? 12 : 4) << field;
  }
}

TEST_F(consistency_threads_test, of_many_nodes_that_agree_none_is_reported) {
  const value element = unset_record();
  together(16, [&](int) {
    for (const auto& [check, field] : checked_fields) {
      EXPECT_EQ(check("0x11111", element.as_record(), "BE12", "DPA"), SUCCESS) << field;
    }
  });
  EXPECT_EQ(counted(), outcome());
}

TEST_F(consistency_threads_test, the_findings_carry_the_numbers_1_to_n_each_once) {
  constexpr int workers = 12;
  constexpr int each = 40;
  const value element = unset_record();
  element.as_record().set("rif", "0x1");
  together(workers, [&](int number) {
    const std::string node = fmt::format("0/{}/CPU0", number);
    for (int round = 0; round < each; ++round) {
      if (round % 2 == 0) {
        check_rif("0x2", element.as_record(), node, "DPA");
      } else {
        is_node_present(node, map_of({}), "Bundle", "DPA");
      }
    }
  });
  expect_each_number_once(std::int64_t{workers} * each);
}

TEST_F(consistency_threads_test, failures_and_delete_notes_are_all_counted_and_logged) {
  constexpr int workers = 12;
  constexpr int each = 10;
  const value element = new_record<Bundles>();
  element.as_record().set("delPending", 1);
  together(workers, [&](int) {
    for (int round = 0; round < each; ++round) {
      check_memid("0x1", element.as_record(), "BE12", "DPA");  // this record has no such field
      check_delete_pending(element.as_record(), "BE12");
    }
  });
  EXPECT_EQ(counted(), (outcome{.exception = workers * each, .deletePending = workers * each}));
  EXPECT_EQ(exceptions().size(), std::size_t{workers} * each);
  EXPECT_EQ(delete_notes().size(), std::size_t{workers} * each);
  EXPECT_TRUE(all_have_tracebacks());
}

// --- marks

// Walks a store as the snapshot and the stale entry check do. Each mark must be 0 or 1.
void walk(const value& store) {
  if (!store.is_map()) return;
  for (const auto& [key, content] : store.as_map().items()) {
    if (key == "Visited") {
      EXPECT_TRUE(content == 0 || content == 1) << printed(content);
    } else {
      walk(content);
    }
  }
}

TEST_F(consistency_threads_test, marks_are_set_while_the_stores_are_walked) {
  constexpr int entries = 200;
  const value store = make_ordered_map();
  for (int number = 0; number < entries; ++number) {
    // Half of the entries are published without a mark, as the NPUs' tables are.
    store.as_map().set(std::to_string(number), number % 2 == 0
                                                   ? map_of({{"Visited", 0}, {"lagid", "0x1"}})
                                                   : ordered_map_of({{"lagid", "0x1"}}));
  }
  together(8, [&](int worker) {
    if (worker < 2) {
      for (int round = 0; round < 5; ++round) walk(store);
    } else if (worker == 2) {
      EXPECT_FALSE(printed(store).empty());
      print_object(store, *st().dl_fd.require(), "marks");
    } else {
      for (int number = 0; number < entries; ++number) {
        EXPECT_EQ(is_entry_present(std::to_string(number), store, "DPA", "BE12"), SUCCESS);
      }
    }
  });
  for (const auto& [key, entry] : store.as_map().items()) EXPECT_EQ(entry.at("Visited"), 1) << key;
  EXPECT_EQ(counted(), outcome());
}

// --- the whole pass on many nodes

// Adds nodes that hold no member; half of them report another LAG id.
void enter_more_nodes(int count) {
  for (int number = 0; number < count; ++number) {
    const std::string nodename = fmt::format("0/{}/CPU0", number + 2);
    put(st().nodeinfo.get(), {nodename},
        map_of({{"dump", 1}, {"act_standby", "Active"}, {"asic_supported", 0}}));
    const value lagports = make_map();
    for (const string_view ifh : {be12::ifh, be12::l3_sub_ifh, be12::l2_sub_ifh}) {
      lagports.as_map().set(ifh, map_of({{"lagid", number % 2 == 0 ? "0xa" : "0xb"},
                                         {"members", make_map()},
                                         {"max_member_count", DEFAULT},
                                         {"deletePending", 1},
                                         {"Visited", 0}}));
    }
    put(st().DPA.get(), {nodename}, ordered_map_of({{"lagport", lagports}}));
  }
}

void leave_only_more_nodes(int count) {
  for (const string_view nodename : {be12::older, be12::j2}) {
    put(st().nodeinfo.get(), {nodename, "dump"}, 0);
  }
  enter_more_nodes(count);
}

TEST_F(consistency_threads_test, on_many_nodes_half_of_which_disagree_half_are_reported) {
  constexpr int nodes = 20;
  leave_only_more_nodes(nodes);
  output_of([] { EXPECT_EQ(check_bundle_consistency(), SUCCESS); });
  st().pid_list.join_all();
  // The bundle and two sub-bundles.
  expect_each_number_once(3 * nodes / 2);
  EXPECT_EQ(st().exception, 0);
  EXPECT_EQ(st().deletePending, 3 * nodes / 2);
  EXPECT_EQ(delete_notes().size(), std::size_t{3 * nodes / 2});
  EXPECT_EQ(bundle_record("BE12").get("vlan_domain").as_map().size(), std::size_t{nodes});
  for (int number = 0; number < nodes; ++number) {
    const std::string nodename = fmt::format("0/{}/CPU0", number + 2);
    EXPECT_EQ(look(st().DPA.get(), {nodename, "lagport", be12::ifh, "Visited"}), 1) << nodename;
  }
}

TEST_F(consistency_threads_test, no_line_is_lost_of_workers_that_run_on_behind_the_pass) {
  constexpr int nodes = 12;
  leave_only_more_nodes(nodes);
  st().tesselDb.as_map().set("hqos", 0);
  {
    const std::lock_guard no_line_yet(st().log_mutex);
    output_of([] { EXPECT_EQ(check_bundle_consistency(), SUCCESS); });
    EXPECT_TRUE(reaches(st().inconsistent, 1)) << "the first of them holds up the others";
    EXPECT_THAT(findings(), IsEmpty());
  }
  // The next phases read and write the same stores.
  walk(st().DPA.get());
  print_object(st().DPA.get(), *st().dl_fd.require(), "DPA");
  print_object(st().tesselDb, *st().dl_fd.require(), "TESSELDB");
  st().pid_list.join_all();
  expect_each_number_once(nodes / 2);
}

TEST_F(consistency_threads_test, workers_of_bundles_run_on_while_the_results_are_printed) {
  constexpr int nodes = 12;
  leave_only_more_nodes(nodes);
  output_of([] {
    EXPECT_EQ(check_bundle_consistency(), SUCCESS);
    print("Done");
    print_results();
  });
  st().pid_list.join_all();
  EXPECT_EQ(st().printed_results, 1);
  expect_each_number_once(3 * nodes / 2);
}

TEST_F(consistency_threads_test, members_of_one_node_are_compared_side_by_side) {
  constexpr int members = 24;
  put(st().nodeinfo.get(), {be12::j2, "dump"}, 0);
  put(st().nodeinfo.get(), {be12::older, "asic_supported"}, 0);
  const value configured = bundle_record("BE12").get("members").at(be12::older);
  for (int number = 10; number < 10 + members; ++number) {
    const std::string tail = fmt::format("0/0/0/{}", number);
    const std::string mifh = fmt::format("0x{}", number);
    const value port = new_record<memberInfo>();
    port.as_record().set("npu_id", "0");
    port.as_record().set("mtu", "1514");
    configured.as_map().set(tail, port);
    put(st().voq_usage.get(), {tail}, port);
    put(st().bdlInfoPI.get(), {"BE12", "members", tail}, map_of({{"mifh", mifh}, {"Visited", 0}}));
    put(st().mbrInfoPI.get(), {tail}, "1514");
    put(st().bdlInfoPD.get(), {"BE12", "members", be12::older, tail},
        map_of({{"npu", "0"}, {"memid", "0x1"}, {"Visited", 0}}));
    put(st().DPA.get(), {be12::older, "lagport", be12::ifh, "members", "0", mifh},
        map_of({{"memid", number % 2 == 0 ? "0x1" : "0x2"}, {"Visited", 0}}));
  }
  output_of([] { EXPECT_EQ(check_bundle_consistency(), SUCCESS); });
  st().pid_list.join_all();
  expect_each_number_once(members / 2);
  EXPECT_EQ(st().exception, 0);
}

}  // namespace
}  // namespace tessel
