#include "host/measures.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "runs/audit.h"

namespace bench {
namespace {

TEST(measures, what_is_written_is_read) {
  const temporary_folder folder;
  measures run;
  run.values["wall"] = 1.25;
  run.phases = {{"Dumping Data", {0.5, 0.25}, 1.5, 4096}};
  run.commands = {{"ssh  a b | grep c", 0.125, 0.375}};
  write_measures(run, folder.path() / "measures");
  const measures read = read_measures(folder.path() / "measures");
  EXPECT_EQ(read.values, run.values);
  ASSERT_EQ(read.phases.size(), 1U);
  EXPECT_EQ(read.phases[0].name, "Dumping Data");
  EXPECT_EQ(read.phases[0].own.user, 0.5);
  EXPECT_EQ(read.phases[0].own.system, 0.25);
  EXPECT_EQ(read.phases[0].wall, 1.5);
  EXPECT_EQ(read.phases[0].peak_kib, 4096U);
  ASSERT_EQ(read.commands.size(), 1U);
  EXPECT_EQ(read.commands[0].line, "ssh  a b | grep c");
  EXPECT_EQ(read.commands[0].begin, 0.125);
  EXPECT_EQ(read.commands[0].end, 0.375);
}

TEST(measures, an_unreadable_line_is_named) {
  const temporary_folder folder;
  const std::filesystem::path file = folder.path() / "measures";
  std::ofstream(file) << "value one wall\n";
  try {
    read_measures(file);
    FAIL();
  } catch (const std::runtime_error& wrong) {
    EXPECT_THAT(wrong.what(), testing::EndsWith("measures: unreadable line \"value one wall\""));
  }
}

TEST(measures, a_missing_file_is_a_failure) {
  EXPECT_THROW(read_measures("/nowhere/measures"), std::runtime_error);
}

}  // namespace
}  // namespace bench
