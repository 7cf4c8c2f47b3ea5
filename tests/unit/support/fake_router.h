// The environment of a unit test: a fresh run state, the platform's tools as small shell scripts,
// the log files, standard output.
//
//   using tessel::router_test;
//   TEST_F(router_test, an_unknown_model_gives_invalid) {
//     open_logs();
//     tool_prints("sw_version_show", "some TR-OAK () processor\n");
//     EXPECT_EQ(tessel::get_router_type(), tessel::invalid);
//     EXPECT_THAT(calls(), testing::ElementsAre("sw_version_show"));
//   }
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/constants.h"
#include "base/dump.h"
#include "base/failure.h"
#include "base/numbers.h"
#include "base/records.h"
#include "base/value.h"
#include "run/state.h"

namespace tessel {

// The form in which gtest shows a value: {'key': 'text', 'other': 1}.
void PrintTo(const value& shown, std::ostream* out);

// map_of({{"lagid", "0x1"}, {"Visited", 0}})
using entry_list = std::initializer_list<std::pair<std::string_view, value>>;
value map_of(entry_list entries);
value ordered_map_of(entry_list entries);
value list_of(std::initializer_list<value> items);
// new_record<Bundles>()
template <class Record>
value new_record() {
  return std::shared_ptr<record>(std::make_shared<Record>());
}

// Replaces the run state within a test, for functions that are called again and again.
void start_new_state();

// Starts each test with a fresh state, no log files, no capture files and no tools.
class router_test : public testing::Test {
 protected:
  void SetUp() override;
};

// Installs a tool under /opt/nos/bin and on the path: a script for /bin/sh with this body. It
// replaces an earlier script of that name. `calls` lists each call.
void tool(std::string_view name, std::string_view shell_script_body);
// Installs a tool that prints `text`, byte for byte, whatever its arguments.
void tool_prints(std::string_view name, std::string_view text);
// The calls of all tools so far, in order: "name argument argument".
std::vector<std::string> calls();

// Opens the log files as a run does; fails the test if it cannot.
void open_logs();

// `file_text` is a file's whole content, or empty if there is no such file. `log_lines` are its
// lines without line ends. `messages` are a channel's lines without time stamps, start line and
// tracebacks.
std::string file_text(std::string_view path);
std::vector<std::string> log_lines(std::string_view path);
std::vector<std::string> messages(std::string_view path);
void write_file(std::string_view path, std::string_view text);
bool file_exists(std::string_view path);

// What `body` writes to standard output, or to standard error.
std::string output_of(const std::function<void()>& body);
std::string error_output_of(const std::function<void()>& body);

// The text of the failure that `body` throws; fails the test if it throws none.
std::string failure_of(const std::function<void()>& body);

// The value that `body` returns in a forked child, or 128 plus the number of the signal that ended
// it. For tests that would spoil this process: limits, closed descriptors, signal dispositions.
int status_in_child(const std::function<int()>& body);

// While the object lives, the folder is another file system: one that cannot be written, or one
// that is full. The folder's previous content is hidden meanwhile.
class read_only_folder {
 public:
  explicit read_only_folder(std::string folder);
  ~read_only_folder();
  read_only_folder(const read_only_folder&) = delete;
  read_only_folder& operator=(const read_only_folder&) = delete;

 private:
  std::string folder_;
};

class full_folder {
 public:
  explicit full_folder(std::string folder);
  ~full_folder();
  full_folder(const full_folder&) = delete;
  full_folder& operator=(const full_folder&) = delete;

  // Frees the space.
  void make_room();

 private:
  std::string folder_;
};

}  // namespace tessel
