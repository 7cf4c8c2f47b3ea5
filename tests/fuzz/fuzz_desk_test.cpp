// Every reader of the report on small logs, whole and mutilated, and on what once broke one. The
// mutations repeat with the reader's number.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>

#include "desk/commands/load.h"
#include "desk/judge/judge.h"
#include "desk/show/json.h"
#include "desk_readers.h"
#include "mutilated.h"

namespace {

constexpr std::string_view start = "2026-11-22 11:00:00,000: Started Tessel Checker\n";

constexpr std::string_view inconsistencies =
    "2026-11-22 11:00:01,000: Inconsistency 1:BE1(0x3000004), 0/0/CPU0 Lag ID is not consistent in "
    "DPA_Bundles:0x1, Expected:0x401\n"
    "2026-11-22 11:00:01,000: Inconsistency 2: MTU verification failed for 0/0/0/0, "
    "NPU0,0/0/0/0,BE1(0x3000004), 0/0/CPU0 ,NPU: 0\n";

constexpr std::string_view exceptions =
    "2026-11-22 11:00:01,000: no key '0/1/0/0': get_member_pp_port failed for HundredGigE0/1/0/0\n"
    "Traceback (most recent call last):\n  File \"src/x.cpp\", line 1, in y\nfailure: no key\n"
    "2026-11-22 11:00:01,000: INFO: DPA lagport object dont have any bundle data/no bundle member "
    "from, 0/1/CPU0\n";

constexpr std::string_view stale =
    "'Started Tessel Checker'\n'Number of stale entries in DPA 1'\n'Start of DPA entries...'\n[\n  "
    " {\n"
    "      \"Node Description\":\"Lag 0x1_npu0_node0/1/CPU0_mifh0x1ffff00\",\n      \"Visited\":0\n"
    "   }\n]\n'End of DPA entries...'\n";

constexpr std::string_view debug = R"(ssh: connect to host 192.0.0.6 port 22: No route to host
'Start of TESSELDB entries...'
{"BE1":{"Data":{"is_l2":0,"lagid":"0x1","members":{"0/0/CPU0":{"0/0/0/0":{"nodename":"0/0/CPU0",
"npu_id":"0","mtu":"9216"}}},"sub_bundles":{"BE1.5":{"ifh":"0x3000064","encap":["5"]}}}}}
'End of TESSELDB entries...'
'Start of BM PI entries...'
{"BE1":{"ifh":"0x3000004","mac":"0026.5e00.0a02","members":{"0/0/0/0":{"mifh":"0x1000040"}}}}
'End of BM PI entries...'
'Start of BM PD entries...'
{"BE1":{"0/0/CPU0":{"lagid":"0x1"},"members":{"0/0/CPU0":{"0/0/0/0":{"npu":"0","memid":"0x0"}}}}}
'End of BM PD entries...'
'Start of DPA entries...'
{"0/0/CPU0":{"lagport":{"0x3000004":{"lagid":"0x401"}}}}
'End of DPA entries...'
'Start of VM information entries...'
{"0/0/CPU0":{"dump":1,"nodeip":"192.0.0.6","npu_list":["0","1"]}}
'End of VM information entries...'
)";

constexpr std::string_view journal =
    R"({"n":1,"event":"run","format":1,"version":"1.2.3","time":"2026-11-22T12:47:38.152Z","pid":3}
{"n":2,"event":"start","id":1,"at":0.01,"pid":4,"node":"0/0/CPU0","command":"fwd_object_show -t x"}
{"n":3,"event":"end","id":1,"at":0.03,"pid":4,"node":"0/0/CPU0","seconds":0.02,"status":0,"bytes":7}
)";

std::string text_of(std::string_view log) {
  if (log == "tessel_debug.log") return std::string(debug);
  if (log == "tessel_stale_entries.log") return std::string(stale);
  if (log == "tessel_journal.jsonl") return std::string(journal);
  if (log == "tessel_exception.log") return std::string(start).append(exceptions);
  if (log == "tessel_inconsistencies.log") return std::string(start).append(inconsistencies);
  return std::string(start);
}

std::string input_of(const fuzz::desk_reader& reader) {
  std::string input;
  for (const std::string_view log : reader.logs) {
    if (log != reader.logs.front()) input += fuzz::log_separator;
    input += text_of(log);
  }
  return input;
}

// The report of these logs, as JSON.
std::string report_in(const std::string& folder) {
  desk::report_options options;
  options.logs = folder;
  std::ostringstream out;
  for (const auto* log : {"tessel_debug.log", "tessel_exception.log", "tessel_inconsistencies.log"})
    std::ofstream(folder + "/" + log) << text_of(log);
  desk::show_json(desk::judge(desk::load_run(options)), out);
  return out.str();
}

class fuzz_desk : public testing::TestWithParam<std::size_t> {
 protected:
  void SetUp() override {
    folder = testing::TempDir() + "fuzz_desk.XXXXXX";
    ASSERT_NE(::mkdtemp(folder.data()), nullptr);
  }
  void TearDown() override { std::filesystem::remove_all(folder); }

  static const fuzz::desk_reader& reader() { return fuzz::desk_readers()[GetParam()]; }

  std::string folder;
};

TEST_P(fuzz_desk, survives_its_logs_and_their_mutations) {
#ifdef TESSEL_UNDER_SANITIZER
  constexpr int rounds = 40;
#else
  constexpr int rounds = 200;
#endif
  std::mt19937 random(static_cast<unsigned>(GetParam()));
  const bool is_json = reader().name == "earlier_report";
  const std::string whole = is_json ? report_in(folder) : input_of(reader());
  fuzz::run(reader(), whole, folder);
  for (int round = 0; round < rounds; ++round) {
    std::string text = fuzz::mutilated(whole, random);
    fuzz::run(reader(), text, folder);
    fuzz::run(reader(), fuzz::mutilated(text, random), folder);
  }
}

TEST_P(fuzz_desk, survives_what_once_broke_it) {
  const std::filesystem::path cases =
      std::filesystem::path(TESSEL_FUZZ_CASES) / std::string(reader().name);
  if (!std::filesystem::is_directory(cases)) return;
  for (const auto& entry : std::filesystem::directory_iterator(cases)) {
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string input{std::istreambuf_iterator<char>(file), {}};
    fuzz::run(reader(), input, folder);
  }
}

TEST(fuzz_desk_of_cases, each_folder_of_cases_has_the_name_of_a_reader) {
  const auto all = fuzz::desk_readers();
  std::size_t folders = 0;
  for (const auto& each : std::filesystem::directory_iterator(TESSEL_FUZZ_CASES)) {
    ++folders;
    const std::string name = each.path().filename();
    EXPECT_TRUE(std::any_of(all.begin(), all.end(), [&](const auto& reader) {
      return reader.name == name;
    })) << name;
  }
  EXPECT_GT(folders, 0U);
}

INSTANTIATE_TEST_SUITE_P(readers, fuzz_desk,
                         testing::Range(std::size_t{0}, fuzz::desk_readers().size()),
                         [](const auto& named) {
                           return std::string(fuzz::desk_readers()[named.param].name);
                         });

}  // namespace
