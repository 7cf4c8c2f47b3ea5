#include "base/journal.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "base/command.h"
#include "base/journal_line.h"
#include "base/text.h"
#include "support/fake_router.h"
#include "support/hung_disk.h"
#include "support/together.h"
#include "tessel/tessel.h"

namespace tessel {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using namespace std::chrono_literals;

constexpr const char* variable = "TESSEL_JOURNAL";
constexpr const char* file = "/var/log/journal";
const std::string seconds = R"([0-9]+\.[0-9]{6})";

std::string in_quotes(std::string_view text, std::size_t most = 100) {
  journal_line line;
  line.add_quoted(text, most);
  return std::string(line.text());
}

TEST(journal_line, a_text_is_escaped_so_that_every_reader_of_json_takes_it) {
  struct row {
    const char* why;
    std::string text;
    std::string expected;
  };
  const std::array rows = {
      row{"empty", "", R"("")"},
      row{"a command", "grep 'a|b'", R"("grep 'a|b'")"},
      row{"quotes and backslashes", R"(a "b" \d)", R"("a \"b\" \\d")"},
      row{"line ends and tabs", "a\nb\rc\td", R"("a\nb\rc\td")"},
      row{"other control characters", std::string("\0\x01\x1b\x1f\x7f", 5),
          R"("\u0000\u0001\u001b\u001f\u007f")"},
      row{"control characters of two bytes", "\xc2\x80\xc2\x9f\xc2\xa0",
          "\"\\u0080\\u009f\xc2\xa0\""},
      row{"characters of two to four bytes", "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80",
          "\"\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80\""},
      row{"the last characters before and after the surrogates", "\xed\x9f\xbf\xee\x80\x80",
          "\"\xed\x9f\xbf\xee\x80\x80\""},
      row{"the last character", "\xf4\x8f\xbf\xbf", "\"\xf4\x8f\xbf\xbf\""},
      row{"a byte that begins nothing", "a\xff\x80z", R"("a\ufffd\ufffdz")"},
      row{"a character that is cut off", "a\xe2\x82", R"("a\ufffd\ufffd")"},
      row{"a character that another interrupts", "\xe2\x82z", R"("\ufffd\ufffdz")"},
      row{"a surrogate", "\xed\xa0\x80", R"("\ufffd\ufffd\ufffd")"},
      row{"more bytes than needed", "\xc0\xaf\xe0\x9f\xbf\xf0\x8f\xbf\xbf",
          R"("\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd\ufffd")"},
      row{"too large a number", "\xf4\x90\x80\x80\xf5", R"("\ufffd\ufffd\ufffd\ufffd\ufffd")"},
  };
  for (const row& each : rows) EXPECT_EQ(in_quotes(each.text), each.expected) << each.why;
}

TEST(journal_line, a_text_that_is_too_long_is_cut_between_two_characters) {
  EXPECT_EQ(in_quotes("abcd", 4), R"("abcd")");
  EXPECT_EQ(in_quotes("abcde", 4), R"("abcd")");
  EXPECT_EQ(in_quotes("abc\n", 4), R"("abc")") << "no half escape";
  EXPECT_EQ(in_quotes("abc\xc3\xa4", 4), R"("abc")") << "no half character";
  journal_line line;
  line.add_quoted("abcd", 4);
  EXPECT_FALSE(line.is_cut());
  line.add_quoted("abcde", 4);
  EXPECT_TRUE(line.is_cut());
}

TEST(journal_line, nothing_is_written_behind_its_end) {
  journal_line line;
  line.add(std::string(longest_journal_line + 10, 'x'));
  line.add_quoted("y", 10);
  EXPECT_EQ(line.text(), std::string(longest_journal_line, 'x'));
}

class journal_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    ::unsetenv(variable);
  }
};

// Opens the journal as tessel_init does and closes the host's descriptor.
void journal_to(int descriptor) {
  st().journal.open(descriptor);
  ::close(descriptor);
}

void journal_to_file() {
  journal_to(::open(file, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
}

struct ends {
  int reader;
  int writer;
};

ends new_pipe() {
  std::array<int, 2> both{};
  EXPECT_EQ(::pipe2(both.data(), O_CLOEXEC), 0);
  return {both[0], both[1]};
}

ends new_sockets(int type) {
  std::array<int, 2> both{};
  EXPECT_EQ(::socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, both.data()), 0);
  return {both[0], both[1]};
}

// What is there now.
std::string read_present(int descriptor) {
  ::fcntl(descriptor, F_SETFL, O_NONBLOCK);
  std::string text;
  std::array<char, 4096> part{};
  for (;;) {
    const ssize_t count = ::read(descriptor, part.data(), part.size());
    if (count <= 0) return text;
    text.append(part.data(), static_cast<std::size_t>(count));
  }
}

std::vector<std::string> lines_of(std::string_view text) {
  std::vector<std::string> lines;
  for (const std::string_view line : split(text, "\n")) lines.emplace_back(line);
  EXPECT_EQ(lines.back(), "") << "the last line has its end";
  lines.pop_back();
  return lines;
}

std::vector<std::string> journal_lines() {
  return lines_of(file_text(file));
}

// The line's number; fails the test if the line is not whole.
int number_of(std::string_view line) {
  EXPECT_THAT(line, AllOf(StartsWith("{\"n\":"), EndsWith("}")));
  int number = 0;
  std::from_chars(line.data() + 5, line.data() + line.size(), number);
  return number;
}

void expect_increasing(const std::vector<std::string>& lines) {
  int before = 0;
  for (const std::string& line : lines) {
    EXPECT_GT(number_of(line), before);
    before = number_of(line);
  }
}

// Two lines, of about 250 bytes each.
void journal_a_command(std::string_view line = "true") {
  journaled_command command(st().journal, "0/0/CPU0", "");
  command.start(1, line);
  command.note_status(0);
  command.end(0);
}

TEST_F(journal_test, a_descriptor_is_taken_from_the_environment_once) {
  const int given = ::open("/dev/null", O_WRONLY);
  ::setenv(variable, std::to_string(given).c_str(), 1);
  EXPECT_EQ(take_asked_journal().descriptor, given);
  EXPECT_EQ(std::getenv(variable), nullptr);
  EXPECT_EQ(::fcntl(given, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(take_asked_journal().descriptor, -1) << "it is not set any more";
  ::close(given);
}

TEST_F(journal_test, what_names_no_open_descriptor_gives_no_journal_and_is_removed) {
  for (const char* set : {"", "x", "-1", "+9", " 9", "9 ", "9x", "0x9", "1e1", "0", "1", "2",
                          "1000000", "99999999999999999999"}) {
    ::setenv(variable, set, 1);
    EXPECT_EQ(take_asked_journal().descriptor, -1) << set;
    EXPECT_EQ(std::getenv(variable), nullptr) << set;
  }
  EXPECT_EQ(::fcntl(STDERR_FILENO, F_GETFD) & FD_CLOEXEC, 0) << "a standard stream stays";
}

TEST_F(journal_test, a_time_limit_may_be_asked_for_with_the_journal_and_not_without) {
  const int given = ::open("/dev/null", O_WRONLY);
  const std::string number = std::to_string(given);
  const auto taken = [](const std::string& set) {
    ::setenv(variable, set.c_str(), 1);
    return take_asked_journal();
  };
  EXPECT_EQ(taken(number).timeout, 0s);
  EXPECT_EQ(taken(number + " timeout=1").timeout, 1s);
  EXPECT_EQ(taken(number + " timeout=86400").timeout, 24h);
  EXPECT_EQ(taken(number + " timeout=86400").descriptor, given);
  for (const char* wrong :
       {" timeout=", " timeout=0", " timeout=-1", " timeout=86401", " timeout=99999999999",
        "  timeout=3", " timeout=3 ", " timeout=+3", " timeout= 3", " timeout=3s", ",timeout=3",
        " timeout=3 timeout=4", " Timeout=3", " timeout"}) {
    const asked_journal asked = taken(number + wrong);
    EXPECT_EQ(asked.descriptor, -1) << wrong;
    EXPECT_EQ(asked.timeout, 0s) << wrong;
    EXPECT_EQ(std::getenv(variable), nullptr) << wrong;
  }
  EXPECT_EQ(taken("1000000 timeout=3").timeout, 0s) << "there is no such descriptor";
  ::close(given);
}

TEST_F(journal_test, tessel_init_takes_both) {
  const int given = ::open(file, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ::setenv(variable, (std::to_string(given) + " timeout=7").c_str(), 1);
  tessel_init();
  EXPECT_TRUE(st().journal.is_open());
  EXPECT_EQ(st().command_timeout, 7s);
  ::close(given);
  start_new_state();
  EXPECT_EQ(st().command_timeout, 0s);
}

TEST_F(journal_test, only_what_can_be_written_without_a_wait_becomes_a_journal) {
  const ends pipe = new_pipe();
  EXPECT_FALSE(st().journal.is_open()) << "nobody has asked";
  for (const int unfit :
       {::open("/var/log", O_RDONLY | O_CLOEXEC), ::open("/dev/null", O_RDONLY | O_CLOEXEC),
        ::open("/dev/null", O_PATH | O_CLOEXEC), pipe.reader, -1, 1'000'000}) {
    st().journal.open(unfit);
    EXPECT_FALSE(st().journal.is_open()) << unfit;
  }
  ASSERT_EQ(::mkfifo("/opt/nos/fifo", 0600), 0);
  const int reader = ::open("/opt/nos/fifo", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const int writer = ::open("/opt/nos/fifo", O_WRONLY | O_CLOEXEC);
  ::close(reader);
  journal_to(writer);
  EXPECT_FALSE(st().journal.is_open()) << "a FIFO whose reader has gone";
  journal_to(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  EXPECT_TRUE(st().journal.is_open());
}

TEST_F(journal_test, without_descriptors_there_is_no_journal) {
  EXPECT_EQ(status_in_child([] {
              const int given = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
              const rlimit few = {static_cast<rlim_t>(given) + 1, static_cast<rlim_t>(given) + 1};
              ::setrlimit(RLIMIT_NOFILE, &few);
              while (::open("/dev/null", O_RDONLY | O_CLOEXEC) >= 0) {
              }
              st().journal.open(given);
              return st().journal.is_open() ? 1 : 7;
            }),
            7);
}

TEST_F(journal_test, the_flags_of_what_the_host_has_opened_stay) {
  const ends pipe = new_pipe();
  const ends sockets = new_sockets(SOCK_STREAM);
  for (const int given : {pipe.writer, sockets.writer}) {
    const int before = ::fcntl(given, F_GETFL);
    st().journal.open(given);
    journal_a_command();
    EXPECT_EQ(::fcntl(given, F_GETFL), before);
    start_new_state();
  }
}

TEST_F(journal_test, a_command_gets_a_line_when_it_starts_and_one_when_it_ends) {
  open_logs();
  journal_to_file();
  EXPECT_EQ(execute("printf 'a b'"), "a b");
  EXPECT_THAT(
      journal_lines(),
      ElementsAre(MatchesRegex(R"(\{"n":1,"event":"start","id":1,"at":)" + seconds +
                               R"(,"pid":[0-9]+,"node":null,"command":"printf 'a b'"\})"),
                  MatchesRegex(R"(\{"n":2,"event":"end","id":1,"at":)" + seconds +
                               R"(,"pid":[0-9]+,"node":null,"command":"printf 'a b'","seconds":)" +
                               seconds + R"(,"status":0,"bytes":3\})")));
}

TEST_F(journal_test, the_pid_is_that_of_the_shell_and_the_start_is_written_before_the_end) {
  open_logs();
  journal_to_file();
  const value seen = execute("echo $$; until grep start /var/log/journal; do :; done");
  const std::string pid(split(seen.as_text(), "\n").front());
  for (const std::string& line : journal_lines()) {
    EXPECT_THAT(line, HasSubstr(",\"pid\":" + pid + ","));
  }
}

TEST_F(journal_test, the_end_says_how_the_shell_has_ended) {
  open_logs();
  journal_to_file();
  struct row {
    const char* cmd;
    const char* expected;
  };
  const std::array rows = {
      row{"true", R"("status":0,"bytes":0})"},
      row{"exit 3", R"("status":3,"bytes":0})"},
      row{"exit 255", R"("status":255,"bytes":0})"},
      row{"/opt/nos/bin/no_such_tool", R"("status":127,"bytes":0})"},
      row{"false | echo x", R"("status":0,"bytes":2})"},
      row{"echo x | false", R"("status":1,"bytes":0})"},
      row{"echo x; kill -KILL $$", R"("signal":9,"bytes":2})"},
      row{"head -c 100000 /dev/zero", R"("status":0,"bytes":100000})"},
  };
  for (const row& each : rows) {
    execute(filled_line(each.cmd));
    EXPECT_THAT(journal_lines().back(), EndsWith(each.expected)) << each.cmd;
  }
}

TEST_F(journal_test, a_status_that_the_host_reaps_is_unknown) {
  open_logs();
  journal_to_file();
  EXPECT_EQ(status_in_child([] {
              ::signal(SIGCHLD, SIG_IGN);
              return execute("echo x; exit 1") == "x\n" ? 7 : 1;
            }),
            7);
  EXPECT_THAT(journal_lines().back(), EndsWith(R"("status":null,"bytes":2})"));
}

TEST_F(journal_test, a_command_that_took_a_while_says_how_long) {
  open_logs();
  journal_to_file();
  execute("sleep 0.2");
  EXPECT_THAT(journal_lines().back(),
              MatchesRegex(R"(.*,"seconds":(0\.[2-9]|[1-9][0-9]*\.[0-9])[0-9]{5},"status.*)"));
}

TEST_F(journal_test, a_command_whose_time_is_over_says_so) {
  open_logs();
  journal_to_file();
  st().command_timeout = 1s;
  error_output_of([] { EXPECT_EQ(execute("echo one; sleep 60"), "one\n"); });
  EXPECT_THAT(journal_lines().back(),
              MatchesRegex(R"(.*,"seconds":[1-9].*,"signal":9,"bytes":4,"timeout":true\})"));
  execute("true");
  EXPECT_THAT(journal_lines().back(), EndsWith(R"("status":0,"bytes":0})"));
  const full_folder tmp("/tmp");
  error_output_of([] { EXPECT_EQ(execute("echo one; sleep 60"), ERROR); });
  EXPECT_THAT(journal_lines().back(),
              MatchesRegex(R"(.*,"failed":"cannot be sure .*","timeout":true\})"));
}

TEST_F(journal_test, a_failure_before_the_shell_has_no_start_and_no_pid) {
  open_logs();
  journal_to_file();
  EXPECT_EQ(execute("true", "no/such/folder"), ERROR);
  EXPECT_EQ(execute({"ssh {} x", {{filling::address, "; reboot", "0/0/CPU0"}}}), ERROR);
  EXPECT_EQ(execute("true"), "");
  const auto lines = journal_lines();
  ASSERT_THAT(lines, SizeIs(4));
  EXPECT_THAT(lines[0],
              MatchesRegex(R"(\{"n":1,"event":"end","id":1,"at":)" + seconds +
                           R"(,"pid":null,"node":null,"command":"true","seconds":null,)"
                           R"("failed":"cannot open [^"]*: No such file or directory"\})"));
  EXPECT_THAT(lines[1],
              AllOf(HasSubstr(R"("id":2,)"),
                    HasSubstr(R"("pid":null,"node":"0/0/CPU0","command":"ssh ; reboot x",)"),
                    HasSubstr(R"("failed":"the address of 0/0/CPU0 is )")));
  EXPECT_THAT(lines[3], HasSubstr(R"("id":3,)"));
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), SizeIs(2)) << "as without a journal";
}

TEST_F(journal_test, a_failure_after_the_shell_ends_what_has_started) {
  open_logs();
  journal_to_file();
  const full_folder tmp("/tmp");
  EXPECT_EQ(execute("echo one"), ERROR);
  const auto lines = journal_lines();
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_THAT(lines[1],
              AllOf(HasSubstr(R"("event":"end","id":1,)"), HasSubstr(R"("command":"echo one")"),
                    MatchesRegex(R"(.*"seconds":)" + seconds +
                                 R"(,"failed":"cannot be sure of the whole output, .*"\})"),
                    Not(HasSubstr("bytes"))));
}

TEST_F(journal_test, a_failure_of_execute_bcmd_itself_is_in_the_journal) {
  open_logs();
  journal_to_file();
  EXPECT_EQ(execute_bcmd("show unit", "0;", "A"), ERROR);
  EXPECT_THAT(journal_lines(),
              ElementsAre(AllOf(HasSubstr(R"("pid":null,"node":null,"command":"show unit",)"),
                                HasSubstr(R"("failed":"the NPU of node id A is )"))));
  EXPECT_EQ(st().exception, 1);
}

TEST_F(journal_test, the_node_and_the_chip_that_a_command_asks_are_named) {
  open_logs();
  journal_to_file();
  tool_prints("asic_shell_show", "");
  st().nodeinfo.set(ordered_map_of({{"0/RP0/CPU0", map_of({{"nodeip", DEFAULT}})},
                                    {"0/1/CPU0", map_of({{"nodeip", "192.0.0.6"}})}}));
  const auto last_after = [](const value& result) {
    EXPECT_EQ(result, "");
    return journal_lines().back();
  };
  EXPECT_THAT(last_after(execute({": {}", {{filling::address, "192.0.0.4", "0/0/CPU0"}}})),
              HasSubstr(R"(,"node":"0/0/CPU0","command":": 192.0.0.4",)"));
  EXPECT_THAT(last_after(execute({": {}", {{filling::node_name, "0/2/CPU0"}}})),
              HasSubstr(R"(,"node":"0/2/CPU0","command":": 0/2/CPU0",)"));
  EXPECT_THAT(last_after(execute_bcmd("x", "3", 4096, "192.0.0.6")),
              HasSubstr(R"(,"node":"0/1/CPU0","npu":"3","command":"/opt)"));
  EXPECT_THAT(last_after(execute_bcmd("x", "all", "A")), HasSubstr(R"(,"node":null,"command":)"));
  EXPECT_THAT(last_after(execute_bcmd("x", "0", 1, "192.0.0.7")),
              HasSubstr(R"(,"node":null,"npu":"0","command":)"))
      << "an address that no node has";
}

TEST_F(journal_test, long_texts_are_cut_and_their_line_says_so) {
  open_logs();
  journal_to_file();
  EXPECT_EQ(execute(filled_line(": " + std::string(3000, 'x'))), "");
  EXPECT_EQ(execute(filled_line(": " + std::string(200'000, '\xff'))), ERROR);
  const auto lines = journal_lines();
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_THAT(lines[0], EndsWith(std::string(2046, 'x') + R"(","cut":true})"));
  EXPECT_THAT(lines[1], AllOf(HasSubstr(std::string(2046, 'x') + R"(","seconds":)"),
                              EndsWith(R"("status":0,"bytes":0,"cut":true})")));
  EXPECT_THAT(lines[2],
              EndsWith(R"("failed":"cannot start /bin/sh: Argument list too long","cut":true})"));
}

TEST_F(journal_test, no_line_is_longer_than_a_pipe_takes_at_once) {
  journal_to_file();
  const std::string longest(5000, '\x01');
  journaled_command command(st().journal, longest, longest);
  command.fail(longest, longest);
  const auto lines = journal_lines();
  ASSERT_THAT(lines, SizeIs(1));
  EXPECT_LE(lines[0].size(), longest_journal_line);
  EXPECT_GT(lines[0].size(), 3000U);
  EXPECT_THAT(lines[0], EndsWith(R"(","cut":true})"));
}

TEST_F(journal_test, a_run_has_a_first_and_a_last_line) {
  journal_to_file();
  st().journal.begin(4352);
  journal_a_command();
  st().journal.finish();
  journal_a_command("late");
  st().journal.finish();
  const auto lines = journal_lines();
  ASSERT_THAT(lines, SizeIs(4));
  EXPECT_THAT(lines[0],
              MatchesRegex(R"(\{"n":1,"event":"run","format":1,"version":"[0-9]+\.[0-9]+\.[0-9]+",)"
                           R"("time":"20[0-9]{2}-[01][0-9]-[0-3][0-9]T[0-2][0-9]:[0-5][0-9]:)"
                           R"([0-6][0-9]\.[0-9]{3}Z","pid":)" +
                           std::to_string(::getpid()) + R"(,"node_id":4352\})"));
  EXPECT_THAT(lines[3], MatchesRegex(R"(\{"n":4,"event":"finished","at":)" + seconds + R"(\})"));
}

TEST_F(journal_test, many_threads_write_whole_lines_in_the_order_of_their_numbers) {
  const ends pipe = new_pipe();
  journal_to(pipe.writer);
  constexpr int threads = 4;
  constexpr int rounds = 300;
  std::string text;
  {
    const std::jthread reader([&] {
      std::array<char, 1000> part{};
      for (ssize_t count = 1; count > 0;) {
        count = ::read(pipe.reader, part.data(), part.size());
        if (count > 0) text.append(part.data(), static_cast<std::size_t>(count));
      }
    });
    together(threads, [](int number) {
      for (int round = 0; round < rounds; ++round) {
        journal_a_command(std::to_string(number) + std::string(200, 'x'));
      }
    });
    st().journal.close();
  }
  const auto lines = lines_of(text);
  EXPECT_GT(lines.size(), 50U);
  expect_increasing(lines);
  for (const std::string& line : lines) {
    EXPECT_THAT(line, HasSubstr(R"(,"pid":1,"node":"0/0/CPU0","command":")"));
  }
}

TEST_F(journal_test, threads_that_share_a_file_lose_nothing) {
  // So few lines that all of them fit into memory while one thread is writing.
  journal_to_file();
  together(4, [](int) {
    for (int round = 0; round < 50; ++round) journal_a_command();
  });
  st().journal.finish();
  const auto lines = journal_lines();
  ASSERT_THAT(lines, SizeIs(401));
  for (std::size_t at = 0; at < lines.size(); ++at) {
    EXPECT_EQ(number_of(lines[at]), static_cast<int>(at) + 1);
  }
}

TEST_F(journal_test, a_full_pipe_loses_whole_lines_and_the_numbers_show_the_gap) {
  open_logs();
  const ends pipe = new_pipe();
  ::fcntl(pipe.writer, F_SETPIPE_SZ, 4096);
  journal_to(pipe.writer);
  for (int round = 0; round < 50; ++round) journal_a_command();
  EXPECT_EQ(execute("echo one"), "one\n");
  const auto first = lines_of(read_present(pipe.reader));
  EXPECT_GT(first.size(), 5U);
  EXPECT_LT(first.size(), 50U);
  expect_increasing(first);
  EXPECT_EQ(execute("echo two"), "two\n");
  const auto later = lines_of(read_present(pipe.reader));
  ASSERT_THAT(later, SizeIs(2));
  EXPECT_EQ(number_of(later[0]), 103) << "what was lost has its numbers, too";
  EXPECT_EQ(st().exception, 0);
}

TEST_F(journal_test, a_reader_that_goes_away_costs_only_the_lines) {
  for (const bool is_pipe : {true, false}) {
    SCOPED_TRACE(is_pipe);
    EXPECT_EQ(status_in_child([&] {
                ::signal(SIGPIPE, SIG_DFL);
                open_logs();
                const ends both = is_pipe ? new_pipe() : new_sockets(SOCK_STREAM);
                journal_to(both.writer);
                execute("true");
                ::close(both.reader);
                if (!(execute("echo one") == "one\n")) return 1;
                st().journal.finish();
                sigset_t left;
                ::sigpending(&left);
                return st().exception == 0 && sigismember(&left, SIGPIPE) == 0 ? 7 : 2;
              }),
              7);
  }
}

TEST_F(journal_test, a_socket_gets_the_lines_and_a_full_one_delays_nobody) {
  for (const int type : {SOCK_STREAM, SOCK_DGRAM, SOCK_SEQPACKET}) {
    SCOPED_TRACE(type);
    start_new_state();
    const ends both = new_sockets(type);
    journal_to(both.writer);
    for (int round = 0; round < 5000; ++round) journal_a_command();
    const auto lines = lines_of(read_present(both.reader));
    EXPECT_GT(lines.size(), 5U);
    EXPECT_LT(lines.size(), 10'000U);
    journal_a_command("after the gap");
    const auto later = lines_of(read_present(both.reader));
    EXPECT_THAT(later.back(), HasSubstr("after the gap"));
    EXPECT_EQ(number_of(later.back()), 10'002);
    ::close(both.reader);
  }
}

TEST_F(journal_test, a_line_that_a_limit_cuts_off_is_ended_before_the_next_one) {
  EXPECT_EQ(status_in_child([] {
              ::signal(SIGXFSZ, SIG_DFL);
              journal_to_file();
              journal_a_command();
              rlimit limit = {file_text(file).size() + 20, RLIM_INFINITY};
              ::setrlimit(RLIMIT_FSIZE, &limit);
              journal_a_command("lost");
              limit.rlim_cur = RLIM_INFINITY;
              ::setrlimit(RLIMIT_FSIZE, &limit);
              journal_a_command("found");
              return 7;
            }),
            7);
  const auto lines = journal_lines();
  ASSERT_THAT(lines, SizeIs(5));
  EXPECT_EQ(lines[2], R"({"n":3,"event":"star)") << "the twenty bytes that had room";
  EXPECT_EQ(number_of(lines[3]), 5);
}

TEST_F(journal_test, a_disk_that_hangs_holds_nobody_but_who_writes) {
  journal_to_file();
  std::jthread writer;
  {
    hung_disk disk(file);
    writer = std::jthread([] { journal_a_command("first"); });
    disk.wait_for_a_writer();
    for (int round = 0; round < 1000; ++round) journal_a_command("second");
    const auto before = std::chrono::steady_clock::now();
    st().journal.finish();
    EXPECT_LT(std::chrono::steady_clock::now() - before, 60s);
  }
  writer.join();
  const auto lines = journal_lines();
  EXPECT_THAT(lines.front(), HasSubstr("first"));
  EXPECT_GT(lines.size(), 100U) << "they have waited in memory";
  EXPECT_LT(lines.size(), 1000U) << "as many as there is room for";
  expect_increasing(lines);
}

TEST_F(journal_test, a_host_asks_by_the_environment_and_no_command_sees_that) {
  EXPECT_EQ(status_in_child([] {
              const int given = ::open(file, O_WRONLY | O_CREAT | O_TRUNC, 0600);
              ::setenv(variable, std::to_string(given).c_str(), 1);
              tessel_init();
              ::close(given);
              if (std::getenv(variable) != nullptr) return 1;
              execute("env | grep TESSEL");
              tessel_finalize();
              execute("too late");
              return 7;
            }),
            7);
  const auto lines = journal_lines();
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_THAT(lines[1], EndsWith(R"("status":1,"bytes":0})"));
}

TEST_F(journal_test, a_run_that_stops_early_has_no_last_line) {
  tool_prints("sw_version_show", "Tarmac TR-OAK () processor\n");
  const std::string printed_text = output_of([] {
    EXPECT_EQ(status_in_child([] {
                const int given = ::open(file, O_WRONLY | O_CREAT | O_TRUNC, 0600);
                ::setenv(variable, std::to_string(given).c_str(), 1);
                tessel_init();
                return tessel_run(4096) == TESSEL_STOPPED_EARLY ? 7 : 1;
              }),
              7);
  });
  EXPECT_EQ(printed_text, "ERROR: Not able to get router type\n");
  const auto lines = journal_lines();
  EXPECT_THAT(lines.front(), HasSubstr(R"("event":"run")"));
  EXPECT_THAT(lines.front(), EndsWith(R"("node_id":4096})"));
  EXPECT_THAT(lines.back(), HasSubstr(R"("event":"end")"));
}

}  // namespace
}  // namespace tessel
