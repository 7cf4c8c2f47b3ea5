// Every subcommand's help, and its messages for a wrong command line.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "support.h"

namespace {

namespace fs = std::filesystem;
using lab_test::findall;
using lab_test::outcome;
using lab_test::run_shell;

constexpr std::size_t help_width = 80;

outcome lab_program(const std::string& arguments) {
  return run_shell("TESSEL_LAB_ROUTERS=" LAB_ROUTERS " " LAB_PROGRAM " " + arguments);
}

struct command_row {
  std::string name;
  std::vector<std::string> operands;
  std::vector<std::string> values;  // options that take a value, with their labels
  std::vector<std::string> flags;
  bool takes_rest = false;
};

const std::vector<command_row>& commands() {
  static const std::vector<command_row> rows = {
      {"list", {}, {}, {}},
      {"faults", {}, {}, {"--kinds"}},
      {"expect", {"ROUTER"}, {"--fault FAULT"}, {"--places"}},
      {"render", {"ROUTER", "OUT"}, {"--fault FAULT"}, {}},
      {"generate",
       {"OUT"},
       {"--type TYPE", "--family FAMILY", "--seed N", "--cards N", "--npus N", "--bundles N",
        "--members N", "--l2-subs N", "--l3-subs N"},
       {"--hqos"}},
      {"run",
       {"ROUTER|CAPTURE|PACKED"},
       {"--fault FAULT", "--latency CLASS=TIME,...", "--logs DIR", "--keep-calls FILE",
        "--record OUT", "--host FILE", "--library FILE"},
       {"--real-ssh"},
       true},
      {"record", {"OUT"}, {"--logs DIR", "--host FILE", "--library FILE"}, {}, true},
      {"pack", {"CAPTURE", "PACKED"}, {}, {}},
      {"unpack", {"PACKED", "OUT"}, {}, {}},
      {"redact",
       {"CAPTURE", "OUT"},
       {"--names KIND,...", "--mapping FILE", "--host FILE", "--library FILE"},
       {"--verify"}},
      {"info", {"CAPTURE"}, {}, {}},
      {"diff", {"A", "B"}, {}, {"--values", "--all"}},
  };
  return rows;
}

std::string option_name(const std::string& value) {
  return value.substr(0, value.find(' '));
}

// As many operands as the command takes.
std::string operands_for(const command_row& command) {
  std::string words;
  for (const std::string& operand : command.operands) words += " '" + operand + "'";
  return words;
}

void expect_refusal(const std::string& arguments, const std::string& message) {
  const outcome refused = lab_program(arguments);
  EXPECT_EQ(refused.status, 64) << arguments;
  EXPECT_EQ(refused.err, "tessel-lab: " + message + "\n") << arguments;
  EXPECT_EQ(refused.out, "") << arguments;
}

std::string hint_of(const command_row& command) {
  return "; see tessel-lab " + command.name + " --help";
}

void expect_readable(const outcome& help, const std::string& what) {
  EXPECT_EQ(help.status, 0) << what;
  EXPECT_EQ(help.err, "") << what;
  for (const auto& line : findall("[^\n]+", help.out))
    EXPECT_LE(line.front().size(), help_width) << what << ": " << line.front();
  EXPECT_EQ(help.out.find("\n\n\n"), std::string::npos) << what;
  EXPECT_EQ(help.out.find(" \n"), std::string::npos) << what;
}

TEST(help, of_the_program_names_every_command) {
  const outcome help = lab_program("--help");
  expect_readable(help, "--help");
  EXPECT_EQ(help.out.find("tessel-lab simulates a router"), 0U);
  std::vector<std::string> named;
  for (const auto& name : findall("\n  ([a-z]+) ", help.out)) named.push_back(name.front());
  std::vector<std::string> known;
  for (const command_row& command : commands()) known.push_back(command.name);
  EXPECT_EQ(named, known);
  EXPECT_EQ(lab_program("-h").out, help.out);
}

TEST(help, of_each_command_names_its_operands_and_options_and_no_others) {
  for (const command_row& command : commands()) {
    const outcome help = lab_program(command.name + " --help");
    expect_readable(help, command.name);
    std::string usage = "Usage: tessel-lab " + command.name + " [OPTIONS]";
    for (const std::string& operand : command.operands) usage += " " + operand;
    if (command.takes_rest) usage += " [-- HOST_ARGUMENT...]";
    EXPECT_NE(help.out.find("\n" + usage + "\n"), std::string::npos) << help.out;
    for (const std::string& operand : command.operands)
      EXPECT_NE(help.out.find("\n  " + operand + " "), std::string::npos) << help.out;

    std::vector<std::string> wanted{"--help"};
    wanted.insert(wanted.end(), command.values.begin(), command.values.end());
    wanted.insert(wanted.end(), command.flags.begin(), command.flags.end());
    std::vector<std::string> named;
    for (const auto& option : findall("\n  (?:-h, )?(--[a-z0-9-]+(?: [A-Z][^ \n]*)?)", help.out))
      named.push_back(option.front());
    std::sort(wanted.begin(), wanted.end());
    std::sort(named.begin(), named.end());
    EXPECT_EQ(named, wanted) << command.name;
  }
}

TEST(help, is_shown_beside_any_other_words) {
  const std::string help = lab_program("run --help").out;
  for (const char* line :
       {"run -h", "--help run", "run birch-small --help", "run --help birch-small",
        "run --help --slow", "run a b c --help", "run --help -- --slow"}) {
    const outcome shown = lab_program(line);
    EXPECT_EQ(shown.status, 0) << line << shown.err;
    EXPECT_EQ(shown.out, help) << line;
  }
  EXPECT_EQ(lab_program("--version").out.find("tessel-lab "), 0U);
}

TEST(help, says_that_it_cannot_be_written) {
  const outcome failed = run_shell("exec >/dev/full; " LAB_PROGRAM " --help");
  EXPECT_EQ(failed.status, 1);
  EXPECT_EQ(failed.err, "tessel-lab: standard output: No space left on device\n");
}

TEST(wrong_command_line, names_an_unknown_option_of_each_command) {
  for (const command_row& command : commands()) {
    const std::string start = command.name + operands_for(command);
    for (const char* option :
         {"--slow", "--slow=fast", "-x", "-5", "-", "---", "--!", "--config"}) {
      const std::string word = option;
      const std::string message =
          command.name + ": unknown option " + word.substr(0, word.find('=')) + hint_of(command);
      expect_refusal(start + " '" + word + "'", message);
    }
    if (!command.takes_rest)
      expect_refusal(start + " --", command.name + ": unknown option --" + hint_of(command));
  }
}

TEST(wrong_command_line, names_the_option_that_lacks_its_value) {
  for (const command_row& command : commands())
    for (const std::string& value : command.values) {
      const std::string option = option_name(value);
      const std::string start = command.name + operands_for(command) + " " + option;
      const std::string message = command.name + ": " + option + " needs a value";
      expect_refusal(start, message + hint_of(command));
      expect_refusal(start + " --help", message + " before --help" + hint_of(command));
      if (command.takes_rest) expect_refusal(start + " -- more", message + hint_of(command));
      // No abbreviations: a name without its last letter is another word.
      const std::string shorter = option.substr(0, option.size() - 1);
      expect_refusal(command.name + operands_for(command) + " " + shorter + "=1",
                     command.name + ": unknown option " + shorter + hint_of(command));
    }
}

TEST(wrong_command_line, refuses_a_value_for_a_flag) {
  for (const command_row& command : commands()) {
    std::vector<std::string> flags = command.flags;
    flags.emplace_back("--help");
    for (const std::string& flag : flags)
      for (const char* value : {"", "1", "true", "no"})
        expect_refusal(command.name + operands_for(command) + " " + flag + "=" + value,
                       command.name + ": " + flag + " takes no value" + hint_of(command));
  }
  expect_refusal("--version=1", "--version takes no value; see tessel-lab --help");
}

TEST(wrong_command_line, names_a_missing_or_extra_operand) {
  for (const command_row& command : commands()) {
    std::string given = command.name;
    for (const std::string& operand : command.operands) {
      expect_refusal(given, command.name + ": " + operand + " is missing" + hint_of(command));
      given += " x";
    }
    expect_refusal(given + " more and",
                   command.name + ": unexpected argument \"more\"" + hint_of(command));
  }
}

TEST(wrong_command_line, refuses_a_bad_number) {
  for (const command_row& command : commands())
    for (const std::string& value : command.values)
      if (value.ends_with(" N"))
        for (const char* number : {"x", "-1", "1x", "1.0", "4294967296"})
          expect_refusal(
              command.name + operands_for(command) + " " + option_name(value) + " " + number,
              command.name + ": " + option_name(value) + " \"" + number +
                  "\": not a number from 0 to 4294967295" + hint_of(command));
}

TEST(wrong_command_line, names_an_unknown_command) {
  const std::string hint = "; see tessel-lab --help";
  expect_refusal("", "no command" + hint);
  expect_refusal("audit", "unknown command \"audit\"" + hint);
  expect_refusal("audit run birch-small", "unknown command \"audit\"" + hint);
  expect_refusal("''", "unknown command \"\"" + hint);
  expect_refusal("lis", "unknown command \"lis\"" + hint);
  expect_refusal("--slow", "unknown option --slow" + hint);
  expect_refusal("--slow list", "unknown option --slow" + hint);
  expect_refusal("-- list", "unknown option --" + hint);
  expect_refusal("'a\nb\033[1m'", "unknown command \"a\\x0ab\\x1b[1m\"" + hint);
}

TEST(command_line_forms, options_may_come_anywhere_and_take_a_value_in_either_form) {
  const std::string wanted =
      lab_program("expect birch-small --fault dpa-mac --fault sem-missing").out;
  EXPECT_EQ(std::count(wanted.begin(), wanted.end(), '\n'), 2);
  for (const char* line : {"expect --fault dpa-mac birch-small --fault sem-missing",
                           "expect --fault=dpa-mac --fault=sem-missing birch-small",
                           "expect --fault dpa-mac --fault=sem-missing birch-small"})
    EXPECT_EQ(lab_program(line).out, wanted) << line;
  // Words that CLI11 reads as a list or as nothing are names like any other.
  for (const char* name : {"{}", "[dpa-mac,dpa-mac]", "%%", ""}) {
    const outcome refused = lab_program("expect birch-small --fault '" + std::string{name} + "'");
    EXPECT_EQ(refused.status, 1) << name;
    EXPECT_EQ(refused.err.find("tessel-lab: there is no fault \"" + std::string{name}), 0U)
        << refused.err;
  }
}

TEST(command_line_forms, an_operand_may_be_named_like_a_command) {
  const lab_test::scratch_folder scratch;
  const outcome made = run_shell("set -e; cd " + scratch.path().string() +
                                 "; export TESSEL_LAB_ROUTERS=" LAB_ROUTERS "; lab=" LAB_PROGRAM
                                 "\n$lab render birch-small run\n$lab pack run pack\n"
                                 "$lab diff run pack\n");
  EXPECT_EQ(made.status, 0) << made.err;
  EXPECT_TRUE(fs::is_directory(scratch.path() / "run"));
  EXPECT_TRUE(fs::is_regular_file(scratch.path() / "pack"));
}

}  // namespace
