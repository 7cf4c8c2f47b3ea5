// Every parser on what its tools print in the lab, whole and mutilated: cut, doubled, with bytes
// flipped or gone, without line ends; and on what the others print. The mutations repeat with the
// parser's number.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "mutilated.h"
#include "parsers.h"
#include "run/state.h"
#include "seeds.h"

namespace {

// What the audit prints would bury what the tests do.
class fuzz_replay : public testing::TestWithParam<std::size_t> {
 protected:
  void SetUp() override { testing::internal::CaptureStdout(); }
  void TearDown() override { testing::internal::GetCapturedStdout(); }

  const fuzz::fuzzed_parser& parser() const { return fuzz::parsers()[GetParam()]; }
};

TEST_P(fuzz_replay, survives_its_seeds_and_their_mutations) {
  const auto inputs = fuzz::seeds(parser());
  ASSERT_FALSE(inputs.empty());
  std::mt19937 random(static_cast<unsigned>(GetParam()));
  for (const std::string& input : inputs) {
    fuzz::run(parser(), input);
    fuzz::run(parser(), fuzz::mutilated(input, random));
    fuzz::run(parser(), fuzz::mutilated(fuzz::mutilated(input, random), random));
  }
}

// Texts that a parser once failed on, or took too long for.
TEST_P(fuzz_replay, survives_the_cases_that_were_found) {
  const std::filesystem::path cases = std::filesystem::path(TESSEL_FUZZ_CASES) / parser().name;
  if (!std::filesystem::exists(cases)) return;
  for (const auto& each : std::filesystem::directory_iterator(cases)) {
    std::ifstream file(each.path(), std::ios::binary);
    ASSERT_TRUE(file) << each.path();
    fuzz::run(parser(), std::string{std::istreambuf_iterator<char>(file), {}});
  }
}

TEST(fuzz_replay_of_cases, each_folder_of_cases_has_the_name_of_a_parser) {
  const auto all = fuzz::parsers();
  std::size_t folders = 0;
  for (const auto& each : std::filesystem::directory_iterator(TESSEL_FUZZ_CASES)) {
    ++folders;
    const std::string name = each.path().filename();
    EXPECT_TRUE(std::any_of(all.begin(), all.end(), [&](const auto& parser) {
      return parser.name == name;
    })) << name;
  }
  EXPECT_GT(folders, 0U);
}

TEST_P(fuzz_replay, survives_what_other_tools_print) {
  static const auto texts = fuzz::all_texts();
  ASSERT_FALSE(texts.empty());
  std::mt19937 random(static_cast<unsigned>(GetParam()));
  for (const std::string& text : texts) fuzz::run(parser(), fuzz::mutilated(text, random));
}

INSTANTIATE_TEST_SUITE_P(parsers, fuzz_replay,
                         testing::Range<std::size_t>(0, fuzz::parsers().size()),
                         [](const testing::TestParamInfo<std::size_t>& parameter) {
                           return std::string(fuzz::parsers()[parameter.param].name);
                         });

// The inputs of the lab's healthy routers are useless if they stop at the first phase.
TEST(fuzz_replay_of_whole_runs, reaches_the_last_phase) {
  const auto parsers = fuzz::parsers();
  const auto whole_run = std::find_if(parsers.begin(), parsers.end(), [](const auto& parser) {
    return parser.name == "whole_run";
  });
  ASSERT_NE(whole_run, parsers.end());
  std::size_t complete = 0;
  testing::internal::CaptureStdout();
  for (const std::string& input : fuzz::seeds(*whole_run)) {
    fuzz::run(*whole_run, input);
    const tessel::run_state& run = tessel::st();
    if (run.snapshot == 1 && run.tesselDb.as_map().size() > 1) ++complete;
    if (complete > 5) break;
  }
  testing::internal::GetCapturedStdout();
  EXPECT_GT(complete, 5U);
}

}  // namespace
