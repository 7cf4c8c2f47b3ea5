// Tests of the host's command line, its error messages and its exit statuses.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "arguments.h"
#include "command_line/one_line.h"
#include "library.h"

namespace {

using namespace tessel_host;

host_arguments parse(const std::vector<const char*>& arguments) {
  return parse_arguments(arguments);
}

std::string complaint_about(const std::vector<const char*>& arguments) {
  try {
    static_cast<void>(parse_arguments(arguments));
  } catch (const usage_error& error) {
    return error.what();
  }
  return "no complaint";
}

TEST(read_node_id, takes_decimal_and_hexadecimal_numbers_of_32_bits) {
  struct row {
    const char* why;
    const char* text;
    std::optional<std::uint32_t> expected;
  };
  const std::vector<row> rows = {
      {"decimal", "4352", 4352},
      {"zero", "0", 0},
      {"hexadecimal", "0x1100", 4352},
      {"capital prefix and digits", "0X1aF", 431},
      {"a leading zero is decimal", "010", 10},
      {"the largest", "4294967295", 4294967295U},
      {"the largest in hexadecimal", "0xffffffff", 4294967295U},
      {"one bit too many", "4294967296", std::nullopt},
      {"hexadecimal with 33 bits", "0x100000000", std::nullopt},
      {"far too long", "99999999999999999999999", std::nullopt},
      {"empty", "", std::nullopt},
      {"prefix alone", "0x", std::nullopt},
      {"negative", "-1", std::nullopt},
      {"negative hexadecimal", "0x-1", std::nullopt},
      {"explicit plus", "+1", std::nullopt},
      {"white space in front", " 1", std::nullopt},
      {"white space behind", "1 ", std::nullopt},
      {"something behind", "4096x", std::nullopt},
      {"hexadecimal digits without prefix", "1f", std::nullopt},
      {"a fraction", "1.0", std::nullopt},
  };
  for (const auto& row : rows) EXPECT_EQ(read_node_id(row.text), row.expected) << row.why;
}

TEST(parse_arguments, runs_with_node_id_4096_where_nothing_is_given) {
  const auto parsed = parse({});
  EXPECT_EQ(parsed.action, host_action::run);
  EXPECT_EQ(parsed.node_id, 4096U);
  EXPECT_EQ(parsed.library, std::nullopt);
  EXPECT_EQ(parsed.journal, std::nullopt);
  EXPECT_FALSE(parsed.in_process);
  EXPECT_TRUE(parse({"--in-process"}).in_process);
  EXPECT_EQ(parsed.progress, std::nullopt);
  EXPECT_EQ(parse({"--progress"}).progress, true);
  EXPECT_EQ(parse({"--progress", "--no-progress"}).progress, false);
}

TEST(parse_arguments, reads_values_behind_a_blank_or_an_equals_sign) {
  const auto apart = parse({"--library", "/x/lib.so", "--node-id", "0x10"});
  EXPECT_EQ(apart.library, "/x/lib.so");
  EXPECT_EQ(apart.node_id, 16U);
  const auto joined = parse({"--node-id=17", "--library=a=b.so"});
  EXPECT_EQ(joined.library, "a=b.so");
  EXPECT_EQ(joined.node_id, 17U);
}

TEST(parse_arguments, lets_the_last_of_equal_options_count) {
  EXPECT_EQ(parse({"--node-id", "1", "--node-id", "2"}).node_id, 2U);
}

TEST(parse_arguments, shows_help_rather_than_the_version_or_a_run) {
  EXPECT_EQ(parse({"--help"}).action, host_action::help);
  EXPECT_EQ(parse({"-h"}).action, host_action::help);
  EXPECT_EQ(parse({"--version"}).action, host_action::version);
  EXPECT_EQ(parse({"--version", "--help"}).action, host_action::help);
  EXPECT_EQ(parse({"--help", "--version"}).action, host_action::help);
  EXPECT_EQ(parse({"--version", "--version"}).action, host_action::version);
}

TEST(parse_arguments, names_what_is_wrong) {
  const std::string hint = "; see tessel-host --help";
  EXPECT_EQ(complaint_about({"--verbose"}), "unknown option --verbose" + hint);
  EXPECT_EQ(complaint_about({"--verbose=1"}), "unknown option --verbose" + hint);
  EXPECT_EQ(complaint_about({"--lib", "x.so"}), "unknown option --lib" + hint)
      << "no abbreviations";
  EXPECT_EQ(complaint_about({"--node-id", "1", "--"}), "unknown option --" + hint);
  EXPECT_EQ(complaint_about({"-n"}), "unknown option -n" + hint);
  EXPECT_EQ(complaint_about({"-"}), "unknown option -" + hint);
  EXPECT_EQ(complaint_about({"-5"}), "unknown option -5" + hint);
  EXPECT_EQ(complaint_about({"---x"}), "unknown option ---x" + hint);
  EXPECT_EQ(complaint_about({"4096"}), "unknown command \"4096\"" + hint);
  EXPECT_EQ(complaint_about({"4096", "4097"}), "unknown command \"4096\"" + hint);
  EXPECT_EQ(complaint_about({""}), "unknown command \"\"" + hint);
  EXPECT_EQ(complaint_about({"a\nb\x1b"}), "unknown command \"a\\x0ab\\x1b\"" + hint);
  EXPECT_EQ(complaint_about({"--library"}), "--library needs a value" + hint);
  EXPECT_EQ(complaint_about({"--node-id"}), "--node-id needs a value" + hint);
  EXPECT_EQ(complaint_about({"--library", "--node-id", "1"}),
            "--library needs a value before --node-id" + hint);
  const std::string empty = "--library \"\": the value is empty; name a file" + hint;
  EXPECT_EQ(complaint_about({"--library="}), empty);
  EXPECT_EQ(complaint_about({"--library=", "x.so"}), empty);
  EXPECT_EQ(complaint_about({"--library", ""}), empty);
  EXPECT_EQ(complaint_about({"--journal", ""}),
            "--journal \"\": the value is empty; name a file" + hint);
  EXPECT_EQ(complaint_about({"--help=yes"}), "--help takes no value" + hint);
  EXPECT_EQ(complaint_about({"--help="}), "--help takes no value" + hint);
  EXPECT_EQ(complaint_about({"--version=2"}), "--version takes no value" + hint);
  EXPECT_EQ(complaint_about({"--version=true"}), "--version takes no value" + hint);
  EXPECT_EQ(complaint_about({"--node-id", "node"}),
            "--node-id \"node\": not a node id; give a decimal number, or a hexadecimal one after "
            "0x, from 0 to 4294967295" +
                hint);
}

TEST(parse_arguments, reads_limits_in_seconds) {
  EXPECT_EQ(parse({}).deadline, std::nullopt);
  EXPECT_EQ(parse({}).command_timeout, std::nullopt);
  EXPECT_EQ(parse({"--deadline", "1"}).deadline, std::chrono::seconds(1));
  EXPECT_EQ(parse({"--command-timeout", "86400"}).command_timeout, std::chrono::seconds(86400));
  for (const char* const wrong : {"", "0", "-1", "86401", "1.5", "1s", " 1", "99999999999"})
    for (const std::string option : {"--deadline", "--command-timeout"})
      EXPECT_EQ(complaint_about({option.c_str(), wrong}),
                option + " \"" + wrong +
                    "\": not a number of seconds; give a whole one from 1 to 86400; see "
                    "tessel-host --help");
}

TEST(parse_arguments, takes_the_command_doctor) {
  EXPECT_EQ(parse({"doctor"}).action, host_action::doctor);
  EXPECT_EQ(parse({"--library", "x", "--node-id", "1", "doctor"}).action, host_action::doctor);
  EXPECT_EQ(parse({"doctor", "--help"}).action, host_action::help);
  EXPECT_EQ(complaint_about({"doctor", "x"}),
            "doctor: unexpected argument \"x\"; see tessel-host doctor --help");
  const std::vector<std::vector<const char*>> rows = {
      {"--progress"},  {"--deadline", "1"}, {"--command-timeout", "1"},
      {"--wait"},      {"--report"},        {"--check"},
      {"--json", "x"}, {"--journal", "x"},  {"--support-file", "x"},
      {"--in-process"}};
  for (std::vector<const char*> row : rows) {
    const std::string option = row[0];
    row.push_back("doctor");
    EXPECT_EQ(complaint_about(row),
              "doctor: " + option + " is for an audit; see tessel-host doctor --help");
  }
}

TEST(parse_arguments, refuses_what_needs_a_host_that_watches) {
  const std::vector<std::vector<const char*>> rows = {
      {"--progress"}, {"--deadline", "1"}, {"--command-timeout", "1"}, {"--wait"}, {"--report"},
      {"--check"},    {"--json", "x"},     {"--support-file", "x"}};
  for (std::vector<const char*> row : rows) {
    const std::string option = row[0];
    row.push_back("--in-process");
    EXPECT_EQ(
        complaint_about(row),
        option + " needs a host that watches; leave out --in-process; see tessel-host --help");
  }
  EXPECT_TRUE(parse({"--in-process", "--no-progress"}).in_process);
}

TEST(parse_arguments, refuses_each_wrong_value_of_a_repeated_option) {
  EXPECT_NE(complaint_about({"--node-id", "x", "--node-id", "2"}), "no complaint");
}

TEST(parse_arguments, has_no_option_for_a_configuration_file) {
  EXPECT_EQ(complaint_about({"--config", "x"}), "unknown option --config; see tessel-host --help");
}

TEST(one_line, writes_control_characters_as_numbers_and_nothing_else) {
  using command_line::one_line;
  EXPECT_EQ(one_line(std::string("a\0b\x1f\x7f", 5)), "a\\x00b\\x1f\\x7f");
  EXPECT_EQ(one_line("\t\n\r"), "\\x09\\x0a\\x0d");
  EXPECT_EQ(one_line(" ~\xc3\xa4\xff\\"), " ~\xc3\xa4\xff\\");
  EXPECT_EQ(one_line(""), "");
}

TEST(describe_returned_run, distinguishes_an_early_stop_from_an_abort) {
  EXPECT_EQ(describe_returned_run(0, "because").status, 1);
  EXPECT_EQ(describe_returned_run(0, "because").message,
            "the audit did not complete: it stopped before it collected anything; because");
  EXPECT_EQ(describe_returned_run(-2, "because").status, 2);
  EXPECT_EQ(describe_returned_run(-2, "because").message,
            "the audit did not complete: it was aborted by the failure in the traceback above");
  EXPECT_EQ(describe_returned_run(7, "because").status, 2);
  EXPECT_EQ(describe_returned_run(7, "because").message,
            "the audit did not complete: tessel_run returned 7, which it never should");
}

TEST(is_of_complete_run, reads_how_the_run_of_a_report_has_ended) {
  EXPECT_TRUE(is_of_complete_run(R"({"origin":"x","end":"complete","last":true})"));
  EXPECT_TRUE(is_of_complete_run(R"({"origin":"x", "end": "complete"})"));
  EXPECT_FALSE(is_of_complete_run(R"({"end":"stopped","x":{"end":"complete"}})"));
  EXPECT_FALSE(is_of_complete_run(R"({"origin":"\"end\":\"complete\"","end":"cut off"})"));
  EXPECT_FALSE(is_of_complete_run(R"({"end":)"));
  EXPECT_FALSE(is_of_complete_run(""));
}

TEST(choose_library, takes_what_is_asked_for_before_anything_else) {
  EXPECT_EQ(choose_library("./mine.so"), "./mine.so");
}

// The outcome of a process: standard output, standard error and exit status (128 + n for signal n).
struct ended {
  std::string out;
  std::string err;
  int status = 0;
};

std::string text_of(std::FILE* file) {
  std::rewind(file);
  std::string text;
  std::array<char, 4096> block{};
  for (std::size_t count = 0; (count = std::fread(block.data(), 1, block.size(), file)) > 0;) {
    text.append(block.data(), count);
  }
  std::fclose(file);
  return text;
}

ended run_shell(const std::string& line) {
  std::FILE* err = std::tmpfile();
  const std::string redirected = line + " 2>&" + std::to_string(fileno(err));
  std::FILE* pipe = popen(redirected.c_str(), "r");
  ended result;
  for (int c = 0; (c = std::fgetc(pipe)) != EOF;) result.out += static_cast<char>(c);
  const int status = pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.err = text_of(err);
  return result;
}

// Several commands as one, so that the standard error of all comes back.
ended run_together(const std::string& commands) {
  return run_shell("{ " + commands + "; }");
}

const std::string host = TESSEL_HOST;
const std::string stand_ins = STAND_IN_FOLDER;

void expect_one_line(const std::string& text) {
  EXPECT_EQ(text.find('\n'), text.size() - 1) << text;
  EXPECT_TRUE(text.starts_with("tessel-host: ")) << text;
}

ended run_with_library(const std::string& library, const std::string& more = "") {
  return run_shell(host + " --library " + library + " " + more);
}

TEST(host, calls_the_entry_points_in_order_with_the_node_id) {
  EXPECT_EQ(run_with_library(stand_ins + "/libstopped.so").out, "init\nrun 4096\nfinalize\n");
  EXPECT_EQ(run_with_library(stand_ins + "/libstopped.so", "--node-id 0x1100").out,
            "init\nrun 4352\nfinalize\n");
  EXPECT_EQ(run_with_library(stand_ins + "/libstopped.so", "--node-id 4294967295").out,
            "init\nrun 4294967295\nfinalize\n");
}

TEST(host, says_that_the_audit_stopped_early_and_ends_with_1) {
  const auto result = run_with_library(stand_ins + "/libstopped.so");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(
      result.err,
      "tessel-host: " + describe_returned_run(0, "what it printed above says why").message + "\n");
}

TEST(host, says_that_the_audit_was_aborted_and_ends_with_2) {
  const auto result = run_with_library(stand_ins + "/libaborted.so");
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, "tessel-host: " + describe_returned_run(-2, "").message + "\n");
}

TEST(host, names_a_result_that_it_does_not_know) {
  const auto result = run_with_library(stand_ins + "/libodd.so");
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, "tessel-host: " + describe_returned_run(5, "").message + "\n");
}

// The names that a variable for one of the host's options could have.
std::vector<std::string> variables_of_options() {
  std::vector<std::string> names;
  for (const char* const option :
       {"NODE_ID", "LIBRARY", "JOURNAL", "HELP", "VERSION", "CONFIG", "OPTIONS"})
    for (const char* const prefix : {"", "TESSEL_", "TESSEL_HOST_", "HOST_"})
      names.push_back(std::string(prefix) + option);
  return names;
}

TEST(host, takes_no_option_from_the_environment) {
  std::string set;
  for (const std::string& name : variables_of_options()) set += name + "=17 ";
  const auto result = run_shell("env " + set + host + " --library " + stand_ins + "/libstopped.so");
  EXPECT_EQ(result.status, 1) << result.err;
  EXPECT_EQ(result.out, "init\nrun 4096\nfinalize\n");
}

TEST(host, takes_no_option_from_a_file) {
  const std::filesystem::path folder =
      testing::TempDir() + "/host_files_" + std::to_string(getpid());
  std::filesystem::create_directories(folder / ".config" / "tessel-host");
  for (const char* const name :
       {"config.ini", "config.toml", "tessel-host.ini", "tessel-host.toml", "tessel-host.conf",
        ".tessel-host", ".tesselrc", ".config/tessel-host/config.toml"})
    std::ofstream(folder / name) << "node-id=17\nlibrary=\"/nowhere\"\n";
  const auto result =
      run_shell("cd " + folder.string() + " && HOME=$PWD XDG_CONFIG_HOME=$PWD/.config " + host +
                " --library " + stand_ins + "/libstopped.so");
  std::filesystem::remove_all(folder);
  EXPECT_EQ(result.status, 1) << result.err;
  EXPECT_EQ(result.out, "init\nrun 4096\nfinalize\n");
}

TEST(host, names_a_library_that_is_not_there) {
  const auto result = run_with_library("/nonexistent/libtessel.so");
  EXPECT_EQ(result.status, status_library_unavailable);
  expect_one_line(result.err);
  EXPECT_NE(result.err.find("cannot load library '/nonexistent/libtessel.so'"), std::string::npos);
  EXPECT_NE(result.err.find("check the path"), std::string::npos);
}

TEST(host, names_a_library_name_that_the_dynamic_linker_does_not_find) {
  const auto result = run_with_library("libnowhere.so");
  EXPECT_EQ(result.status, status_library_unavailable);
  expect_one_line(result.err);
  EXPECT_NE(result.err.find("LD_LIBRARY_PATH"), std::string::npos) << result.err;
}

TEST(host, says_how_to_name_a_library_in_the_working_folder) {
  const auto result = run_shell("cd " + stand_ins + " && " + host + " --library libstopped.so");
  EXPECT_EQ(result.status, status_library_unavailable);
  expect_one_line(result.err);
  EXPECT_NE(result.err.find("write --library ./libstopped.so"), std::string::npos) << result.err;
}

TEST(host, finds_a_library_by_name_through_the_dynamic_linker) {
  const auto result =
      run_shell("LD_LIBRARY_PATH=" + stand_ins + " " + host + " --library libstopped.so");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "init\nrun 4096\nfinalize\n");
}

TEST(host, takes_the_library_of_its_installation_where_none_is_beside_it) {
  const std::string folder = testing::TempDir() + "/host_installed_" + std::to_string(getpid());
  const std::filesystem::path program = folder + "/bin/tessel-host";
  const auto library =
      (program.parent_path() / TESSEL_BIN_TO_LIB / "libtessel.so").lexically_normal();
  const auto copy = std::filesystem::copy_options::overwrite_existing;
  std::filesystem::create_directories(program.parent_path());
  std::filesystem::create_directories(library.parent_path());
  std::filesystem::copy_file(host, program, copy);
  std::filesystem::copy_file(stand_ins + "/libaborted.so", library, copy);
  const auto installed = run_shell(program.string());
  EXPECT_EQ(installed.status, 2) << installed.err;
  EXPECT_EQ(installed.out, "init\nrun 4096\nfinalize\n");

  std::filesystem::copy_file(stand_ins + "/libstopped.so", folder + "/bin/libtessel.so", copy);
  EXPECT_EQ(run_shell(program.string()).status, 1) << "the one beside it comes first";
  std::filesystem::remove_all(folder);
}

TEST(host, takes_the_library_with_the_number_of_its_interface_first_in_each_place) {
  const std::string folder = testing::TempDir() + "/host_numbered_" + std::to_string(getpid());
  const std::filesystem::path program = folder + "/bin/tessel-host";
  const auto libraries = (program.parent_path() / TESSEL_BIN_TO_LIB).lexically_normal();
  std::filesystem::create_directories(program.parent_path());
  std::filesystem::create_directories(libraries);
  const auto put = [](const std::string& from, const std::filesystem::path& to) {
    std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing);
  };
  put(host, program);
  put(stand_ins + "/libaborted.so", libraries / "libtessel.so");
  put(stand_ins + "/libstopped.so", libraries / "libtessel.so.0");
  EXPECT_EQ(run_shell(program.string()).status, 1) << "an installation has the number";
  put(stand_ins + "/libaborted.so", program.parent_path() / "libtessel.so");
  EXPECT_EQ(run_shell(program.string()).status, 2) << "the one beside it comes first";
  put(stand_ins + "/libstopped.so", program.parent_path() / "libtessel.so.0");
  EXPECT_EQ(run_shell(program.string()).status, 1);
  std::filesystem::remove_all(folder);
}

TEST(host, asks_the_dynamic_linker_for_the_library_with_and_without_the_number) {
  const std::string folder = testing::TempDir() + "/host_linker_" + std::to_string(getpid());
  const std::string libraries = folder + "/libraries";
  std::filesystem::create_directories(libraries);
  std::filesystem::copy_file(host, folder + "/tessel-host");
  const std::string command = "LD_LIBRARY_PATH=" + libraries + " " + folder + "/tessel-host";
  std::filesystem::copy_file(stand_ins + "/libaborted.so", libraries + "/libtessel.so");
  EXPECT_EQ(run_shell(command).status, 2);
  std::filesystem::copy_file(stand_ins + "/libstopped.so", libraries + "/libtessel.so.0");
  EXPECT_EQ(run_shell(command).status, 1);
  std::filesystem::remove_all(folder);
}

TEST(host, takes_the_library_beside_itself_where_none_is_named) {
  const std::string folder = testing::TempDir() + "/host_beside_" + std::to_string(getpid());
  std::filesystem::create_directories(folder);
  const auto copy = std::filesystem::copy_options::overwrite_existing;
  std::filesystem::copy_file(host, folder + "/tessel-host", copy);
  std::filesystem::copy_file(stand_ins + "/libaborted.so", folder + "/libtessel.so", copy);
  const auto beside = run_shell(folder + "/tessel-host");
  EXPECT_EQ(beside.status, 2);
  EXPECT_EQ(beside.out, "init\nrun 4096\nfinalize\n");

  std::filesystem::remove(folder + "/libtessel.so");
  const auto without = run_shell("LD_LIBRARY_PATH=/nonexistent " + folder + "/tessel-host");
  std::filesystem::remove_all(folder);
  EXPECT_EQ(without.status, status_library_unavailable);
  EXPECT_NE(without.err.find("cannot load library 'libtessel.so'"), std::string::npos);
}

TEST(host, names_a_file_that_is_not_a_library) {
  const auto result = run_with_library("/etc/passwd");
  EXPECT_EQ(result.status, status_library_unavailable);
  expect_one_line(result.err);
}

TEST(host, names_the_entry_point_that_a_library_lacks) {
  const auto result = run_with_library(stand_ins + "/liblacking.so");
  EXPECT_EQ(result.status, status_library_unavailable);
  expect_one_line(result.err);
  EXPECT_NE(result.err.find("has no entry point 'tessel_run'"), std::string::npos) << result.err;
  EXPECT_EQ(result.out, "") << "nothing is called before all entry points are there";
}

// A folder of its own for a test of journals.
class journal : public testing::Test {
 protected:
  void SetUp() override {
    folder_ = testing::TempDir() + "/host_journal_" + std::to_string(getpid());
    std::filesystem::create_directories(folder_);
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::string at(const std::string& name) const { return folder_ + "/" + name; }
  static std::string content_of(const std::string& file) {
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  static mode_t mode_of(const std::string& file) {
    struct stat state {};
    EXPECT_EQ(::stat(file.c_str(), &state), 0) << file;
    return state.st_mode & 07777U;
  }
  static ended run_with(const std::string& file, const std::string& before = "") {
    return run_shell(before + host + " --library " + stand_ins + "/libstopped.so --journal " +
                     file);
  }
  void expect_refused(const std::string& file, const std::string& cause) const {
    const auto result = run_with(file, "cd " + folder_ + "; ");
    EXPECT_EQ(result.status, status_file_refused) << file;
    EXPECT_EQ(result.out, "") << "the audit has not begun";
    EXPECT_EQ(result.err, "tessel-host: cannot write the journal '" + file + "': " + cause +
                              "; name another file with --journal FILE\n");
  }
  std::string folder_;
};

TEST_F(journal, is_a_new_file_for_its_owner_alone) {
  const auto result = run_with(at("new"), "umask 0; ");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "init\nrun 4096\nfinalize\n") << "as without a journal";
  EXPECT_EQ(content_of(at("new")), "journal of 1\n");
  EXPECT_EQ(mode_of(at("new")), 0600U);
}

TEST_F(journal, may_have_a_name_from_the_working_folder) {
  run_with("relative", "cd " + folder_ + "; ");
  EXPECT_EQ(content_of(at("relative")), "journal of 1\n");
}

TEST_F(journal, replaces_what_was_in_the_file) {
  std::ofstream(at("old")) << std::string(1000, 'x');
  ::chmod(at("old").c_str(), 0644);
  run_with(at("old"));
  EXPECT_EQ(content_of(at("old")), "journal of 1\n");
  EXPECT_EQ(mode_of(at("old")), 0600U);
}

TEST_F(journal, is_no_standard_stream_where_the_host_has_none) {
  run_shell("exec <&- " + host + " --library " + stand_ins + "/libstopped.so --journal " +
            at("new"));
  EXPECT_EQ(content_of(at("new")), "journal of 1\n");
}

TEST_F(journal, is_refused_where_it_would_not_become_a_file) {
  std::ofstream(at("precious")) << "kept";
  std::filesystem::create_symlink("precious", at("link"));
  std::filesystem::create_symlink("nowhere", at("dangling"));
  std::filesystem::create_hard_link(at("precious"), at("second"));
  ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0600), 0);
  expect_refused("link", "it is a link");
  expect_refused("dangling", "it is a link");
  expect_refused("second", "it has a second name, a hard link");
  expect_refused("fifo", "it is not a file");
  expect_refused("/dev/null", "it is not a file");
  expect_refused(".", "Is a directory");
  expect_refused("no/such", "No such file or directory");
  expect_refused("/tmp/tessel_journal", "the audit removes /tmp/tessel*");
  expect_refused("/var/log/tessel_exception.log", "it is a log of the audit");
  expect_refused("/var/log/../log/tessel_debug.log", "it is a log of the audit");
  EXPECT_EQ(content_of(at("precious")), "kept");
  EXPECT_FALSE(std::filesystem::exists(at("nowhere")));
}

TEST_F(journal, is_refused_where_another_user_could_read_it) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
  std::ofstream(at("given")) << "kept";
  ASSERT_EQ(::chown(at("given").c_str(), 1, 1), 0);
  expect_refused("given", "it belongs to another user");
  EXPECT_EQ(content_of(at("given")), "kept");
}

TEST_F(journal, is_not_made_where_the_library_is_missing) {
  const auto result = run_shell(host + " --library /nonexistent.so --journal " + at("new"));
  EXPECT_EQ(result.status, status_library_unavailable);
  EXPECT_FALSE(std::filesystem::exists(at("new")));
}

// Audits beside each other: $other has the lock when the next command begins, and its audit works
// until the file $WORK_UNTIL is there, so that nothing depends on how busy the machine is.
class one_audit : public testing::Test {
 protected:
  one_audit() { ::setenv("WORK_UNTIL", go_.c_str(), 1); }
  ~one_audit() override {
    ::unsetenv("WORK_UNTIL");
    std::filesystem::remove(go_);
  }
  one_audit(const one_audit&) = delete;
  one_audit& operator=(const one_audit&) = delete;

 private:
  const std::string go_ = testing::TempDir() + "/host_go_" + std::to_string(getpid());
};

const std::string working = host + " --library " + stand_ins + "/libworking.so ";
const std::string locked =
    "other=$!; until grep -q \" $other \" /proc/locks || ! kill -0 $other; do sleep 0.01; done; ";
const std::string beside = working + ">/dev/null & " + locked;
const std::string other_ends = "; touch $WORK_UNTIL; wait $other";
// Lets the other audit end when this command has said that it waits.
std::string when_it_waits(const std::string& command, const std::string& then) {
  return "{ " + command + " 2>&1 >&3 | { IFS= read -r said; " + then +
         " printf '%s\\n' \"$said\" >&2; cat >&2; }; } 3>&1";
}

TEST_F(one_audit, runs_at_a_time) {
  const auto result =
      run_together(beside + working + "; echo status $? $other" + other_ends + "; echo $?");
  const std::size_t status = result.out.find("status 75 ");
  ASSERT_NE(status, std::string::npos) << result.out << result.err;
  EXPECT_TRUE(result.out.ends_with("\n0\n")) << "the first one goes on: " << result.out;
  const std::string other = result.out.substr(10, result.out.find('\n') - 10);
  EXPECT_EQ(result.err, "tessel-host: another audit is running (process " + other +
                            "); start this one with --wait to run it afterwards\n");
}

TEST_F(one_audit, keeps_its_journal_when_a_second_is_refused) {
  const std::string journal = testing::TempDir() + "/host_lock_" + std::to_string(getpid());
  const std::string with_journal = " --journal " + journal;
  run_together(working + with_journal + " >/dev/null & " + locked + working + with_journal +
               other_ends);
  std::ifstream in(journal);
  const std::string text{std::istreambuf_iterator<char>(in), {}};
  EXPECT_TRUE(text.starts_with("{\"n\":1,")) << text;
  EXPECT_NE(text.find("finished"), std::string::npos) << text;
  std::filesystem::remove(journal);
}

TEST_F(one_audit, may_wait_for_the_other) {
  const auto result = run_together(
      beside + when_it_waits("{ " + working + "--wait; echo $?; }", "touch $WORK_UNTIL;"));
  EXPECT_EQ(result.out, "Dumping Data.... Done\n0\n");
  EXPECT_TRUE(result.err.starts_with("tessel-host: waiting for the end of another audit (process "))
      << result.err;
}

TEST_F(one_audit, is_seen_by_the_doctor) {
  const auto result = run_together(beside + host + " doctor; echo $other" + other_ends);
  const std::size_t last = result.out.rfind('\n', result.out.size() - 2) + 1;
  const std::string other = result.out.substr(last, result.out.size() - 1 - last);
  EXPECT_NE(result.out.find("\nwarn audits: one is running (process " + other +
                            "); run the next one with --wait\n"),
            std::string::npos)
      << result.out << result.err;
}

// Holds the lock as another user's program may; it is ended as $other.
const std::string stranger = "flock -o /var/log sleep 60 >/dev/null 2>&1 & " + locked;

TEST_F(one_audit, is_refused_by_a_lock_that_may_be_of_no_audit) {
  const auto result = run_together(stranger + working +
                                   "; echo status $? $other; kill $other; wait $other 2>/dev/null");
  const std::string other = result.out.substr(10, result.out.find('\n') - 10);
  EXPECT_EQ(result.out, "status 75 " + other + "\n");
  EXPECT_EQ(result.err, "tessel-host: process " + other +
                            " (flock) holds the lock on /var/log and may be no audit; end it, or "
                            "start this one with --wait to run it when the lock is free\n");
}

TEST_F(one_audit, waits_for_the_lock_no_longer_than_its_deadline) {
  struct row {
    std::string holder;
    std::string wait;
    std::string end;
  };
  const std::array rows = {
      row{beside + "kill -STOP $other; ", "the end of another audit (process N)",
          "another audit (process N) had not ended; run this one later, or give it more time"},
      row{stranger, "the lock: process N (flock) holds the lock on /var/log and may be no audit",
          "process N (flock) holds the lock on /var/log and may be no audit; end it"}};
  for (const row& each : rows) {
    const auto began = std::chrono::steady_clock::now();
    const auto result = run_together(
        each.holder + working +
        "--wait --deadline 1; echo status $? $other; kill $other; kill -CONT $other 2>/dev/null; "
        "wait $other 2>/dev/null");
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(45));
    const std::string other = result.out.substr(9, result.out.find('\n') - 9);
    EXPECT_EQ(result.out, "status 4 " + other + "\n") << "no audit has begun";
    const std::string said = "tessel-host: waiting for " + each.wait +
                             "\ntessel-host: no audit was begun within 1 s (--deadline), because " +
                             each.end + "\n";
    EXPECT_EQ(result.err, std::regex_replace(said, std::regex("process N"), "process " + other));
  }
}

TEST_F(one_audit, begins_within_the_deadline_when_the_other_has_ended) {
  const auto result =
      run_together(beside + when_it_waits("{ " + working + "--wait --deadline 60; echo $?; }",
                                          "touch $WORK_UNTIL;"));
  EXPECT_EQ(result.out, "Dumping Data.... Done\n0\n");
}

// It waits for 0.7 s and works for 0.7 s, each of which is within the deadline. (On a machine that
// takes long to begin it, no audit is begun.)
TEST_F(one_audit, counts_its_wait_as_a_part_of_the_deadline) {
  const auto result =
      run_together(stranger + "unset WORK_UNTIL; " +
                   when_it_waits("{ " + working + "--wait --deadline 1; echo status $?; }",
                                 "sleep 0.7; kill $other; wait $other 2>/dev/null;"));
  EXPECT_TRUE(result.out.ends_with("status 4\n")) << result.out;
  EXPECT_TRUE(std::regex_search(
      result.err, std::regex("the audit was ended, because it had not come to its end after 1 s "
                             R"(\(--deadline\): |no audit was begun within 1 s \(--deadline\))")))
      << result.err;
}

TEST_F(one_audit, keeps_the_lock_no_longer_than_its_host_lives) {
  const auto result = run_together(beside + "kill -KILL $other; wait $other 2>/dev/null; " +
                                   "touch $WORK_UNTIL; " + working + "--wait 2>/dev/null; echo $?");
  EXPECT_EQ(result.out, "Dumping Data.... Done\n0\n");
}

TEST_F(one_audit, leaves_the_lock_to_no_tool_that_lives_on) {
  const std::string tool = testing::TempDir() + "/host_tool_" + std::to_string(getpid());
  ::setenv("LEFT_TOOL", tool.c_str(), 1);
  const auto result =
      run_together("touch $WORK_UNTIL; " + host + " --library " + stand_ins + "/libleaving.so; " +
                   "kill -0 $(cat $LEFT_TOOL) && echo lives; " + working + "; echo $?");
  ::unsetenv("LEFT_TOOL");
  pid_t left = 0;
  if (std::ifstream(tool) >> left) ::kill(left, SIGKILL);
  std::filesystem::remove(tool);
  EXPECT_EQ(result.out, "Dumping Data.... Done\nlives\nDumping Data.... Done\n0\n");
  EXPECT_EQ(result.err, "");
}

// The host sends its signals to tools in this way only.
void protect_tools() {
  std::array<sock_filter, 4> rules = {{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_pidfd_send_signal, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  }};
  const sock_fprog program{static_cast<unsigned short>(rules.size()), rules.data()};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
    ::_exit(126);
}

// Runs a shell line where the host's signals do not reach a tool. Returns no standard output.
ended run_with_protected_tools(const std::string& line) {
  std::array<int, 2> ends{};
  EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    protect_tools();
    const ended result = run_shell(line);
    const ssize_t written = ::write(ends[1], result.err.data(), result.err.size());
    ::_exit(written < 0 ? 126 : result.status);
  }
  ::close(ends[1]);
  ended result;
  std::array<char, 4096> block{};
  for (ssize_t count = 0; (count = ::read(ends[0], block.data(), block.size())) > 0;)
    result.err.append(block.data(), static_cast<std::size_t>(count));
  ::close(ends[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

TEST_F(one_audit, names_the_tools_that_it_cannot_end) {
  const std::string tool = testing::TempDir() + "/host_tool_" + std::to_string(getpid());
  ::setenv("LEFT_TOOL", tool.c_str(), 1);
  const auto result =
      run_with_protected_tools(host + " --library " + stand_ins + "/libleaving.so --deadline 5");
  ::unsetenv("LEFT_TOOL");
  pid_t left = 0;
  std::ifstream(tool) >> left;
  std::filesystem::remove(tool);
  ASSERT_GT(left, 0);
  EXPECT_EQ(result.status, status_not_complete);
  const std::string look = "ps -o pid,user,wchan,args -p " + std::to_string(left);
  EXPECT_TRUE(result.err.ends_with(
      "\ntessel-host: these processes of the audit cannot be ended, because they wait for a device "
      "or belong to another user; see " +
      look + "\n"))
      << result.err;
  EXPECT_NE(run_shell(look).out.find("sleep 600"), std::string::npos);
  ::kill(left, SIGKILL);
}

TEST_F(one_audit, runs_beside_another_in_process) {
  const auto result = run_together(beside + "( unset WORK_UNTIL; " + working +
                                   "--in-process ); echo $?" + other_ends);
  EXPECT_EQ(result.out, "Dumping Data.... Done\n0\n");
}

TEST(host, ends_with_64_on_wrong_arguments) {
  for (const char* wrong : {"--verbose", "4096", "--node-id", "--node-id 4294967296",
                            "--node-id=0xg", "--library", "--help=1", "4096 4097", "--"}) {
    const auto result = run_shell(host + " " + wrong);
    EXPECT_EQ(result.status, status_usage) << wrong;
    EXPECT_EQ(result.out, "") << wrong;
    expect_one_line(result.err);
  }
}

TEST(host, shows_help_and_version_on_standard_output) {
  const auto help = run_shell(host + " --help");
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.out, parse({"--help"}).help);
  EXPECT_EQ(run_shell(host + " -h").out, help.out);
  for (const char* text : {"Usage: tessel-host [OPTIONS] [COMMAND ...]\n", "--library FILE",
                           "--node-id N", "--journal FILE", "--progress", "--no-progress",
                           "--command-timeout SECONDS", "--deadline SECONDS", "--support-file FILE",
                           "--in-process", "--help", "--version", "Exit status:\n"}) {
    EXPECT_NE(help.out.find(text), std::string::npos) << text;
  }
  for (const int status : {0, 1, 2, status_not_complete, status_usage, status_library_unavailable,
                           status_file_refused, status_output_failed, status_audit_running})
    EXPECT_NE(help.out.find("\n  " + std::to_string(status) + " "), std::string::npos) << status;
  const auto version = run_shell(host + " --version");
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out, "tessel-host " TESSEL_VERSION "\n");
}

TEST(host, says_that_standard_output_cannot_be_written) {
  for (const std::string stream : {">/dev/full; ", ">&-; "})
    for (const std::string call : {" --help", " doctor"}) {
      const auto result = run_shell("exec " + stream + host + call);
      EXPECT_EQ(result.status, status_output_failed) << call << stream;
      expect_one_line(result.err);
      EXPECT_TRUE(result.err.starts_with("tessel-host: cannot write to standard output: "))
          << result.err;
    }
}

const std::string main_program = TESSEL_MAIN;

TEST(main_program, fails_since_its_argument_is_a_text) {
  const auto result = run_shell(main_program + " 4096");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_TRUE(result.err.starts_with("Traceback")) << result.err;
  EXPECT_NE(result.err.find("an integer is required"), std::string::npos) << result.err;
}

TEST(main_program, fails_without_an_argument) {
  const auto result = run_shell(main_program);
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("list index out of range"), std::string::npos) << result.err;
}

}  // namespace
