#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "desk/judge/record.h"
#include "desk/store/run_store.h"
#include "example_runs.h"

namespace desk {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class store : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = testing::TempDir() + "desk-store-XXXXXX";
    ASSERT_NE(::mkdtemp(name.data()), nullptr);
    folder = name;
    file = (folder / "runs.db").string();
  }
  void TearDown() override { fs::remove_all(folder); }

  void sql(const char* text) const {
    sqlite3* base = nullptr;
    ASSERT_EQ(sqlite3_open(file.c_str(), &base), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(base, text, nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(base);
    sqlite3_close(base);
  }
  [[nodiscard]] std::string refusal(run_store::access how) const {
    try {
      const run_store opened(file, how);
      for (const std::string& router : opened.routers()) (void)opened.runs_of(router);
    } catch (const store_error& error) {
      return error.what();
    }
    return "no error";
  }

  fs::path folder;
  std::string file;
};

run_record run_of(const std::string& router, const std::string& started) {
  run_record made = record_of(run_with_faults());
  made.router = router;
  made.started = started;
  return made;
}

void expect_equal(const run_record& one, const run_record& other) {
  EXPECT_EQ(one.router, other.router);
  EXPECT_EQ(one.origin, other.origin);
  EXPECT_EQ(one.started, other.started);
  EXPECT_EQ(one.end, other.end);
  EXPECT_EQ(one.is_open, other.is_open);
  EXPECT_EQ(one.bundles, other.bundles);
  EXPECT_EQ(one.differing, other.differing);
  EXPECT_EQ(one.open_bundles, other.open_bundles);
  EXPECT_EQ(one.known_bundles, other.known_bundles);
  EXPECT_EQ(one.lost_logs, other.lost_logs);
  ASSERT_EQ(one.holes.size(), other.holes.size());
  for (std::size_t i = 0; i < one.holes.size(); ++i) {
    EXPECT_EQ(one.holes[i].of, other.holes[i].of);
    EXPECT_EQ(one.holes[i].node, other.holes[i].node);
    EXPECT_EQ(one.holes[i].npu, other.holes[i].npu);
  }
  ASSERT_EQ(one.findings.size(), other.findings.size());
  for (std::size_t i = 0; i < one.findings.size(); ++i) {
    const known_finding& a = one.findings[i];
    const known_finding& b = other.findings[i];
    EXPECT_EQ(std::tie(a.fingerprint, a.code, a.bundle, a.node, a.npu, a.of, a.log, a.title),
              std::tie(b.fingerprint, b.code, b.bundle, b.node, b.npu, b.of, b.log, b.title));
    EXPECT_EQ(std::tie(a.cause, a.values, a.count, a.is_doubt),
              std::tie(b.cause, b.values, b.count, b.is_doubt));
  }
}

TEST_F(store, gives_back_what_it_keeps) {
  std::vector<run_record> runs = {record_of(run_with_faults()), record_of(run_not_judged()),
                                  record_of(run_that_stopped()), record_of(hostile_run()),
                                  record_of(healthy_run())};
  for (std::size_t i = 0; i < runs.size(); ++i) {
    runs[i].router = "r1";
    runs[i].started = "2026-11-2" + std::to_string(i);
    runs[i].lost_logs.insert("tessel_stale_entries.log");
  }
  for (const run_record& run : runs) run_store(file, run_store::access::write).keep(run);
  const auto kept = run_store(file, run_store::access::read).runs_of("r1");
  ASSERT_EQ(kept.size(), runs.size());
  for (std::size_t i = 0; i < runs.size(); ++i) expect_equal(kept[i], runs[i]);
}

TEST_F(store, keeps_a_text_with_a_zero_byte_and_broken_characters) {
  run_record run = run_of("r\xff", "2026");
  run.findings.at(0).title = std::string("a\0b\xc3", 4);
  run_store opened(file, run_store::access::write);
  opened.keep(run);
  const auto kept = opened.runs_of("r\xff");
  ASSERT_EQ(kept.size(), 1U);
  EXPECT_EQ(kept[0].findings.at(0).title, run.findings.at(0).title);
}

TEST_F(store, orders_runs_by_their_start_and_replaces_a_run_that_it_has) {
  run_store opened(file, run_store::access::write);
  opened.keep(run_of("r1", "2026-11-21"));
  opened.keep(run_of("r1", "2026-11-20"));
  run_record again = run_of("r1", "2026-11-21");
  again.findings.clear();
  opened.keep(again);
  opened.keep(run_of("r2", "2026-11-21"));
  EXPECT_THAT(opened.routers(), ElementsAre("r1", "r2"));
  const auto runs = opened.runs_of("r1");
  ASSERT_EQ(runs.size(), 2U);
  EXPECT_EQ(runs[0].started, "2026-11-20");
  EXPECT_THAT(runs[1].findings, IsEmpty());
}

TEST_F(store, keeps_what_it_has_of_a_run_if_that_is_more) {
  run_store opened(file, run_store::access::write);
  run_record whole = run_of("r1", "2026-11-21");
  whole.end = run_end::complete;
  EXPECT_TRUE(opened.keep(whole));
  run_record messages_only = whole;
  messages_only.end = run_end::unknown;
  messages_only.findings.clear();
  EXPECT_FALSE(opened.keep(messages_only));
  expect_equal(opened.runs_of("r1").at(0), whole);
  messages_only.started = "2026-11-20";
  EXPECT_TRUE(opened.keep(messages_only));
  whole.started = "2026-11-20";
  EXPECT_TRUE(opened.keep(whole));
  EXPECT_EQ(opened.runs_of("r1").at(0).end, run_end::complete);
}

TEST_F(store, drops_old_runs_of_one_router_with_all_that_is_theirs) {
  {
    run_store opened(file, run_store::access::write);
    for (const char* started : {"2026-11-19", "2026-11-20", "2026-11-21"})
      opened.keep(run_of("r1", started));
    opened.keep(run_of("r2", "2026-11-18"));
    opened.drop_old("r1", 1);
    ASSERT_EQ(opened.runs_of("r1").size(), 1U);
    EXPECT_EQ(opened.runs_of("r1")[0].started, "2026-11-21");
    EXPECT_EQ(opened.runs_of("r2").size(), 1U);
  }
  sqlite3* base = nullptr;
  ASSERT_EQ(sqlite3_open(file.c_str(), &base), SQLITE_OK);
  for (const char* table : {"finding", "bundle", "hole", "lost_log"}) {
    const std::string query =
        std::string("SELECT count(*) FROM ") + table + " WHERE run NOT IN (SELECT id FROM run)";
    sqlite3_stmt* of = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(base, query.c_str(), -1, &of, nullptr), SQLITE_OK);
    ASSERT_EQ(sqlite3_step(of), SQLITE_ROW);
    EXPECT_EQ(sqlite3_column_int(of, 0), 0) << table;
    sqlite3_finalize(of);
  }
  sqlite3_close(base);
}

// ---- What is no store ---------------------------------------------------------------------------

TEST_F(store, a_file_that_is_missing_is_made_only_to_write) {
  EXPECT_THAT(refusal(run_store::access::read), HasSubstr("unable to open database file"));
  EXPECT_FALSE(fs::exists(file));
  EXPECT_EQ(refusal(run_store::access::write), "no error");
  EXPECT_EQ(refusal(run_store::access::read), "no error");
}

TEST_F(store, another_file_is_refused_and_left_alone) {
  std::ofstream(file) << std::string(4096, 'x');
  EXPECT_THAT(refusal(run_store::access::write), HasSubstr("is not a database"));
  EXPECT_EQ(fs::file_size(file), 4096U);
}

TEST_F(store, a_database_of_another_program_is_refused) {
  sql("CREATE TABLE run (id INTEGER)");
  EXPECT_THAT(refusal(run_store::access::write), HasSubstr("no store of tessel-report"));
  EXPECT_THAT(refusal(run_store::access::read), HasSubstr("no store of tessel-report"));
}

TEST_F(store, a_later_version_is_refused) {
  { const run_store made(file, run_store::access::write); }
  sql("PRAGMA user_version = 2");
  EXPECT_THAT(refusal(run_store::access::read), HasSubstr("has version 2, this program reads 1"));
}

TEST_F(store, a_word_that_it_does_not_know_is_damage) {
  run_store(file, run_store::access::write).keep(run_of("r1", "2026"));
  sql("UPDATE finding SET layer = 'XYZ'");
  EXPECT_THAT(refusal(run_store::access::read), HasSubstr("\"XYZ\" is no layer"));
}

TEST_F(store, a_store_that_is_cut_off_is_refused) {
  {
    run_store opened(file, run_store::access::write);
    for (int i = 0; i < 50; ++i) opened.keep(run_of("r1", std::to_string(i)));
  }
  const auto whole = fs::file_size(file);
  for (const auto size : {whole / 2, whole / 10}) {
    fs::resize_file(file, size);
    EXPECT_THAT(refusal(run_store::access::read), HasSubstr("cannot use the store"));
  }
}

TEST_F(store, a_folder_that_cannot_be_written_is_named) {
  file = "/proc/no-such-folder/runs.db";
  EXPECT_THAT(refusal(run_store::access::write), HasSubstr("/proc/no-such-folder/runs.db"));
}

// ---- Several at once ----------------------------------------------------------------------------

TEST_F(store, writers_wait_for_each_other) {
  constexpr int writers = 4;
  constexpr int runs = 5;
  std::vector<std::thread> threads;
  std::atomic<int> failures = 0;
  for (int w = 0; w < writers; ++w)
    threads.emplace_back([&, w] {
      for (int i = 0; i < runs; ++i) {
        try {
          run_store(file, run_store::access::write)
              .keep(run_of("r" + std::to_string(w), std::to_string(i)));
        } catch (const store_error&) {
          ++failures;
        }
      }
    });
  for (std::thread& one : threads) one.join();
  EXPECT_EQ(failures, 0);
  const run_store opened(file, run_store::access::read);
  ASSERT_EQ(opened.routers().size(), static_cast<std::size_t>(writers));
  for (const std::string& router : opened.routers())
    EXPECT_EQ(opened.runs_of(router).size(), static_cast<std::size_t>(runs));
}

TEST_F(store, a_writer_that_is_killed_leaves_the_runs_as_they_were) {
  run_store(file, run_store::access::write).keep(run_of("r1", "2026-11-20"));
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    sqlite3* base = nullptr;
    if (sqlite3_open(file.c_str(), &base) != SQLITE_OK) ::_exit(1);
    // A small cache makes it write to the file before the end.
    const int done = sqlite3_exec(
        base,
        "PRAGMA cache_size = 1; BEGIN IMMEDIATE; CREATE TABLE large (text); "
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2000) "
        "INSERT INTO large SELECT hex(randomblob(500)) FROM n; DELETE FROM finding;",
        nullptr, nullptr, nullptr);
    if (done != SQLITE_OK) ::_exit(1);
    ::kill(::getpid(), SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  ASSERT_TRUE(fs::exists(file + "-journal"));
  const auto runs = run_store(file, run_store::access::write).runs_of("r1");
  ASSERT_EQ(runs.size(), 1U);
  expect_equal(runs[0], run_of("r1", "2026-11-20"));
}

}  // namespace
}  // namespace desk
