// A folder of logs for one test, as runs of the audit leave it.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "desk/model/run_logs.h"

namespace desk {

// When the runs in the logs started.
inline std::vector<std::string> starts_of(const log_set& logs) {
  std::vector<std::string> starts;
  for (const run_in_logs& one : runs_in(logs)) starts.push_back(one.started);
  return starts;
}

class log_folder : public testing::Test {
 protected:
  // To which a run appends, in the order in which it begins them.
  static constexpr std::array appended = {"exception", "inconsistencies", "programming_error",
                                          "delay_delete"};

  void SetUp() override {
    std::string name = testing::TempDir() + "desk_logs.XXXXXX";
    ASSERT_NE(::mkdtemp(name.data()), nullptr);
    folder = name;
  }
  void TearDown() override { std::filesystem::remove_all(folder); }

  [[nodiscard]] std::string path_of(const std::string& log) const {
    return folder + "/tessel_" + log + ".log";
  }
  void append(const std::string& log, const std::string& text) const {
    std::ofstream(path_of(log), std::ios::binary | std::ios::app) << text;
  }
  void write(const std::string& log, const std::string& text) const {
    std::ofstream(path_of(log), std::ios::binary) << text;
  }
  void empty(const std::string& log) const { write(log, ""); }
  static std::string line(const std::string& time, const std::string& text) {
    return time + ": " + text + "\n";
  }

  // A run begins so many of its logs; bundle health is the fifth, and begun anew.
  void start(const std::string& time, std::size_t logs = appended.size() + 1) const {
    const std::string text = line(time, "Started Tessel Checker");
    for (std::size_t i = 0; i < appended.size() && i < logs; ++i) append(appended.at(i), text);
    if (logs > appended.size()) write("bundle_health", text);
  }
  // And the two without times behind them.
  void start_all(const std::string& time) const {
    start(time);
    empty("debug");
    append("stale_entries", "'Started Tessel Checker'\n");
  }

  std::string folder;
};

}  // namespace desk
