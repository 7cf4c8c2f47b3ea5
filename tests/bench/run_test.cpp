// A whole audit, measured.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "lab/base/namespaces.h"
#include "lab/capture/capture.h"
#include "lab/faults/render_faulty.h"
#include "runs/audit.h"
#include "runs/sizes.h"

namespace bench {
namespace {

namespace fs = std::filesystem;
using namespace value_name;

bool may_run() {
  try {
    lab::insist_on_namespace();
    return true;
  } catch (const lab::no_privileges&) {
    return false;
  }
}

// One run for all tests.
class run_test : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (!may_run()) return;
    folder_ = std::make_unique<temporary_folder>();
    fs::create_directory(logs());
    lab::write_folder(lab::render(lab::generate(sized_request("S", "older", false))), capture());
    run_ = audit({capture(), logs(), {}, true, false});
  }
  static void TearDownTestSuite() { folder_.reset(); }
  void SetUp() override {
    if (!folder_) GTEST_SKIP() << "no right to make a mount namespace";
  }

  static fs::path capture() { return folder_->path() / "capture"; }
  static fs::path logs() { return folder_->path() / "logs"; }

  static inline std::unique_ptr<temporary_folder> folder_;
  static inline measures run_;
};

TEST_F(run_test, each_phase_is_seen_once_and_in_order) {
  std::vector<std::string> names;
  for (const phase_cost& phase : run_.phases) names.push_back(phase.name);
  EXPECT_THAT(names,
              testing::ElementsAre("Start", "Router, nodes, chips", "Dumping Data", "Parsing Data",
                                   "Bundle Consistency Check", "Bundle Programming Check",
                                   "Stale Entry Check", "Bundle Health Check", "Results",
                                   "Snapshot and end", "End of the process"));
}

TEST_F(run_test, the_phases_before_the_end_add_up_to_the_whole) {
  double own = 0;
  for (const phase_cost& phase : run_.phases)
    if (phase.name != "End of the process") own += phase.own.sum();
  EXPECT_NEAR(own, run_.value(own_user) + run_.value(own_system), 0.002);
}

// The first and the last command clear the folder of the captures.
TEST_F(run_test, every_command_is_seen_from_its_start_to_its_end) {
  ASSERT_EQ(run_.value(commands), static_cast<double>(run_.commands.size()));
  EXPECT_EQ(run_.commands.front().line, "rm /tmp/tessel*");
  EXPECT_EQ(run_.commands.back().line, "rm /tmp/tessel_*");
  for (const command_run& command : run_.commands) EXPECT_LT(command.begin, command.end);
}

// The active route processor and the card have a chip each, and each chip has six tables.
TEST_F(run_test, the_counts_are_those_of_one_run) {
  const auto of_chips = std::count_if(
      run_.commands.begin(), run_.commands.end(),
      [](const command_run& command) { return command.line.find(" -u 0 ") != std::string::npos; });
  EXPECT_EQ(of_chips, 12);
  EXPECT_GT(run_.value(most_commands), 1);
  EXPECT_LT(run_.value(most_commands), run_.value(commands));
  EXPECT_GT(run_.value(threads), 0);
  EXPECT_LE(run_.value(most_threads), run_.value(threads) + 1);
  constexpr double streams = 3;
  EXPECT_GT(run_.value(most_files), streams);
}

TEST_F(run_test, the_floors_cover_all_texts) {
  double texts = 0;
  for (const auto& entry : fs::recursive_directory_iterator(capture()))
    if (entry.is_regular_file()) texts += static_cast<double>(entry.file_size());
  EXPECT_GT(run_.value(text_bytes), 0);
  EXPECT_LT(run_.value(text_bytes), texts);
  EXPECT_GT(run_.value(starting), 0);
  EXPECT_EQ(run_.value(snapshot_bytes),
            static_cast<double>(fs::file_size(logs() / "tessel_debug.log")));
}

}  // namespace
}  // namespace bench
