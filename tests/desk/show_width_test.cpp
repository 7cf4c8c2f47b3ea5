// Views keep to the width of the terminal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "desk/judge/record.h"
#include "desk/model/catalogue.h"
#include "desk/show/coverage_view.h"
#include "desk/show/series.h"
#include "desk/show/terminal.h"
#include "tests/desk/example_runs.h"

namespace desk {
namespace {

void expect_width(const std::string& text, std::size_t width) {
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) EXPECT_LE(columns_of(line), width) << line;
}

terminal terminal_of(std::size_t width) {
  terminal on;
  on.width = width;
  return on;
}

TEST(width, is_kept_by_coverage) {
  judged_run run = run_not_judged();
  run.of.stale = stale_search::skipped;
  journal_command& slow = run.of.log_of_commands->commands.emplace_back();
  slow.command = "ssh 172.0.9.0 /opt/nos/bin/fwd_object_show -t lagport -D and more of the same";
  slow.has_ended = true;
  slow.status = 255;
  for (const std::size_t width : {60U, 80U}) {
    std::ostringstream out;
    show_coverage(run, terminal_of(width), out);
    expect_width(out.str(), width);
    EXPECT_THAT(out.str(), testing::HasSubstr("places were not wholly read"));
  }
}

TEST(coverage_view, says_how_each_command_ended_by_what_the_journal_knows) {
  judged_run run = run_not_judged();
  auto& commands = run.of.log_of_commands->commands;
  commands.assign(6, {});
  for (const std::size_t i : {1U, 2U, 3U, 4U, 5U}) commands[i].has_ended = true;
  for (std::size_t i = 0; i < commands.size(); ++i)
    commands[i].command = "tool-" + std::to_string(i);
  commands[1].signal = 9;
  commands[2].signal = 9;
  commands[2].is_timed_out = true;
  commands[3].status = 2;
  commands[4].is_timed_out = true;  // and could not be ended
  commands[5].status = 1;           // grep found nothing
  const auto shown = [&] {
    std::ostringstream out;
    show_coverage(run, terminal_of(100), out);
    return out.str();
  };
  EXPECT_THAT(shown(), testing::HasSubstr("  tool-0: had not ended when the run did\n"
                                          "  tool-1: ended by signal 9\n"
                                          "  tool-2: ended, because its time was over\n"
                                          "  tool-3: exit status 2\n"
                                          "  tool-4: ended, because its time was over\n"));
  EXPECT_THAT(shown(), testing::Not(testing::HasSubstr("tool-5:")));
  run.of.log_of_commands->lacks_lines = true;
  EXPECT_THAT(shown(), testing::HasSubstr("  tool-0: the journal has lost how it ended\n"));
}

TEST(coverage_view, says_of_which_chip_tables_the_logs_alone_know) {
  const std::string words = "Of each chip the logs show the table of LAGs only";
  judged_run run = healthy_run();
  const auto shown = [&] {
    std::ostringstream out;
    show_coverage(run, terminal_of(80), out);
    expect_width(out.str(), 80);
    EXPECT_THAT(out.str(), testing::HasSubstr("\nEverything that was asked was read.\n"));
    return out.str();
  };
  run.of.log_of_commands.reset();
  EXPECT_THAT(shown(), testing::HasSubstr(words));
  run.of.keeps_questions = true;
  EXPECT_THAT(shown(), testing::Not(testing::HasSubstr(words))) << "a capture";
  run.of.keeps_questions = false;
  run.of.log_of_commands.emplace();
  EXPECT_THAT(shown(), testing::Not(testing::HasSubstr(words))) << "a journal";
  run.of.log_of_commands.reset();
  std::erase_if(run.of.covered, [](const coverage& one) { return one.of == layer::bcm; });
  EXPECT_THAT(shown(), testing::Not(testing::HasSubstr(words))) << "no chip";
}

TEST(width, is_kept_by_a_comparison) {
  judged_run before = healthy_run();
  judged_run now = run_with_faults();
  before.of.origin = now.of.origin = "/srv/logs/of/the/router/with/a/long/path";
  now.of.end = run_end::cut_off;
  const series both = track({record_of(before), record_of(now)});
  for (const std::size_t width : {60U, 80U}) {
    std::ostringstream out;
    show_diff(both, {}, terminal_of(width), out);
    expect_width(out.str(), width);
  }
}

TEST(width, is_kept_by_the_texts_of_all_messages) {
  for (const catalogue_entry& each : catalogue()) {
    std::istringstream lines(reflowed(each.text, 80));
    std::string line;
    while (std::getline(lines, line)) {
      if (!line.starts_with(' ')) {
        EXPECT_LE(columns_of(line), 80U) << each.code << ": " << line;
      }
    }
    EXPECT_EQ(reflowed(each.text, 10'000), each.text) << each.code;
  }
}

TEST(width, of_a_paragraph_leaves_lists_and_code_alone) {
  EXPECT_EQ(reflowed("one two\nthree four\n\nfive\n  a b c d e f\n", 8),
            "one two\nthree\nfour\n\nfive\n  a b c d e f\n");
  EXPECT_EQ(reflowed("- one two\n- three four five\n", 12), "- one two\n- three four\nfive\n");
  EXPECT_EQ(reflowed("", 10), "");
  EXPECT_EQ(reflowed("\n\n", 10), "\n\n");
}

}  // namespace
}  // namespace desk
