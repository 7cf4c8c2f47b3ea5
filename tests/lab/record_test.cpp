// Recording on a router made of shell scripts: one script fills the lab's /opt/nos/bin with its own
// tools, and another script, as the host, calls them.
#include "lab/record/record.h"
#include "lab/base/error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "lab/base/namespaces.h"
#include "lab/capture/answer_list.h"
#include "lab/capture/archive.h"
#include "lab/capture/capture.h"
#include "lab/capture/capture_check.h"
#include "support.h"

namespace {

using namespace lab;
namespace fs = std::filesystem;
using lab_test::outcome;
using lab_test::read_text;
using lab_test::run_shell;
using lab_test::write_text;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

TEST(answer_list, comes_back_as_written) {
  const auto list =
      lab::parse_answer_list(lab::answer_list_text({{0, 1, false}, {3, 12, true}}), "f");
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[1].status, 3);
  EXPECT_EQ(list[1].number, 12U);
  EXPECT_TRUE(list[1].complains);
  EXPECT_FALSE(list[0].complains);
}

TEST(answer_list, that_is_damaged_is_refused_with_file_and_line) {
  for (const char* text : {"0\n", "0 1 more\n", "x 1\n", "0 0\n", "256 1\n", "0 -1\n", "\n"}) {
    try {
      lab::parse_answer_list(std::string{"0 1\n"} + text, "f");
      ADD_FAILURE() << text;
    } catch (const lab::lab_error& refused) {
      EXPECT_STREQ(refused.what(), "f:2: not a line \"STATUS NUMBER\"") << text;
    }
  }
  EXPECT_THROW(lab::parse_answer_list("", "f"), lab::lab_error);
}

capture recorded_sample() {
  capture c;
  c.answers[{"local", "cfg_render"}] = "text";
  c.answers[{"local", "lagmgr_health;1"}] = "one";
  c.answers[{"local", "lagmgr_health;2"}] = "two";
  c.answers[{"local", "lagmgr_health;2;complaint"}] = "oh";
  c.answers[{"local", "lagmgr_health;answers"}] = "0 1\n3 2 complains\n";
  c.calls =
      "# begin  duration  status  bytes  answer; times in seconds\n"
      "0.000000 0.000100 0 4 local/cfg_render\n"
      "0.000200 0.000100 0 3 local/lagmgr_health;1\n"
      "- - cut-off 3 local/lagmgr_health;2\n";
  return c;
}

std::string refusal_of(const std::function<void()>& check) {
  try {
    check();
  } catch (const lab_error& refused) {
    return refused.what();
  }
  return {};
}

// Every way to read the capture refuses it with this message after the name of its folder; an empty
// message: none does.
void expect_check_everywhere(const capture& c, const std::string& message) {
  const lab_test::scratch_folder scratch;
  const fs::path folder = scratch.path() / "capture";
  const fs::path packed = scratch.path() / "packed";
  write_folder(c, folder);
  const std::string expected = message.empty() ? "" : folder.string() + message;
  EXPECT_EQ(refusal_of([&] { check_recording(c, folder); }), expected);
  EXPECT_EQ(refusal_of([&] { check_recording_folder(read_manifest(folder), folder, folder); }),
            expected);
  EXPECT_EQ(refusal_of([&] { read_capture(folder); }), expected);
  EXPECT_EQ(refusal_of([&] { pack_folder(folder, packed); }), expected);
  EXPECT_EQ(fs::exists(packed), expected.empty());
}

TEST(recorded_capture, must_hold_every_answer_that_its_calls_name) {
  struct row {
    const char* why;
    std::function<void(capture&)> damage;
    const char* message;
  };
  const auto without = [](const char* file) {
    return [file](capture& c) { c.answers.erase({"local", file}); };
  };
  const row rows[] = {
      {"whole", [](capture&) {}, ""},
      {"no list of calls", [](capture& c) { c.calls.clear(); }, ""},
      {"an answer", without("cfg_render"),
       ": local/cfg_render is missing; line 2 of calls names it"},
      {"the end of an answer",
       [](capture& c) {
         c.answers.at({"local", "cfg_render"}).pop_back();
       },
       ": local/cfg_render has 3 bytes, not the 4 that line 2 of calls gives"},
      {"the end of a cut-off answer",
       [](capture& c) {
         c.answers.at({"local", "lagmgr_health;2"}).clear();
       },
       ": local/lagmgr_health;2 has 0 bytes, not the 3 that line 4 of calls gives"},
      {"a size", [](capture& c) { c.calls += "0.1 0.1 0 many local/cfg_render\n"; },
       ": calls:5: not a tool call"},
      {"a numbered answer", without("lagmgr_health;1"),
       ": local/lagmgr_health;1 is missing; line 3 of calls names it"},
      {"a list", without("lagmgr_health;answers"),
       ": local/lagmgr_health;answers is missing; line 3 of calls names it"},
      {"a complaint", without("lagmgr_health;2;complaint"),
       ": local/lagmgr_health;2;complaint is missing; local/lagmgr_health;answers names it"},
      {"a damaged list",
       [](capture& c) {
         c.answers[{"local", "lagmgr_health;answers"}] = "0 1\nx\n";
       },
       ": local/lagmgr_health;answers:2: not a line \"STATUS NUMBER\""},
      {"damaged calls", [](capture& c) { c.calls += "what\n"; }, ": calls:5: not a tool call"},
      {"calls that are cut off", [](capture& c) { c.calls.pop_back(); },
       ": calls:4: not a tool call"},
  };
  for (const row& r : rows) {
    capture c = recorded_sample();
    r.damage(c);
    SCOPED_TRACE(r.why);
    expect_check_everywhere(c, r.message);
  }
}

// Every reader refuses a recording that is not as it was made.
TEST(recorded_capture, that_lost_or_changed_a_file_is_refused_by_every_reader) {
  struct row {
    const char* damage;  // in the capture's folder
    const char* message;
  };
  const row rows[] = {
      {"rm calls", "calls is missing; a recording has this list"},
      {"rm calls local/cfg_render", "calls is missing; a recording has this list"},
      {"rm journal", "journal is missing; the manifest names it"},
      {"rm local/cfg_render", "local/cfg_render is missing; line 2 of calls names it"},
      {"rm 'local/lagmgr_health;2;complaint'", "local/lagmgr_health;2;complaint is missing; "},
      {"printf yes? >local/cfg_render",
       "local/cfg_render is not as it was recorded: another SHA-256"},
      {"printf yes >'local/lagmgr_health;2;complaint'",
       "local/lagmgr_health;2;complaint is not as it was recorded: 3 bytes, not 2"},
      {"sed -i s/0.000100/0.000200/ calls", "calls is not as it was recorded: another SHA-256"},
      {"touch local/iface_show", "local/iface_show does not belong to the recording; "},
      {"mkdir more; touch more/cfg_render", "more/cfg_render does not belong to the recording; "},
  };
  for (const row& r : rows) {
    const lab_test::scratch_folder scratch;
    const fs::path folder = scratch.path() / "cap";
    capture c = recorded_sample();
    c.answers.at({"local", "cfg_render"}) = "conf";
    c.journal = "{}\n";
    c.made.origin = "recorded";
    write_folder(c, folder);
    write_text(folder / "notes", "a file that nobody reads");
    EXPECT_NO_THROW(read_capture(folder));
    const std::string in_folder = "cd " + scratch.path().string() + "; ";
    // The same in a packed one that another program made.
    ASSERT_EQ(
        run_shell(in_folder + "cd cap; " + r.damage + "; cd ..; tar --zstd -cf packed cap").status,
        0);
    for (const char* command : {"run cap", "run packed", "pack cap out", "unpack packed out",
                                "redact cap out", "redact packed out", "diff cap cap"}) {
      const outcome refused = run_shell(in_folder + LAB_PROGRAM " " + command);
      EXPECT_NE(refused.status, 0) << command << r.damage;
      EXPECT_EQ(refused.out, "") << command << r.damage;
      EXPECT_THAT(refused.err, testing::MatchesRegex("tessel-lab: (cap|packed): .*\n"));
      EXPECT_THAT(refused.err, HasSubstr(r.message)) << command << r.damage;
      EXPECT_FALSE(fs::exists(scratch.path() / "out"));
    }
    const outcome told = run_shell(in_folder + LAB_PROGRAM " info cap");
    EXPECT_EQ(told.status, 1);
    EXPECT_THAT(told.out, HasSubstr(r.message)) << told.err;
  }
}

TEST(recorded_capture, has_the_sizes_of_its_replaced_answers) {
  capture c = recorded_sample();
  c.answers[{"local", "cfg_render"}] = "much longer";
  c.answers[{"local", "lagmgr_health;2"}].clear();
  EXPECT_THROW(check_recording(c, "c"), lab_error);
  c.calls = calls_with_sizes(c);
  EXPECT_EQ(c.calls,
            "# begin  duration  status  bytes  answer; times in seconds\n"
            "0.000000 0.000100 0 11 local/cfg_render\n"
            "0.000200 0.000100 0 3 local/lagmgr_health;1\n"
            "- - cut-off 0 local/lagmgr_health;2\n");
  EXPECT_NO_THROW(check_recording(c, "c"));
}

class recording_test : public testing::Test {
 protected:
  void SetUp() override {
    write_text(scratch_.path() / "library", "no library");
    const outcome probe = in_lab("exit 0", "");
    if (probe.status != lab::missing_privileges) return;
    if (std::getenv("CI") != nullptr) FAIL() << probe.err;
    GTEST_SKIP() << probe.err;
  }

  fs::path script(const char* name, const std::string& text) const {
    const fs::path file = scratch_.path() / name;
    write_text(file, "#!/bin/sh\n" + text + "\n");
    fs::permissions(file, fs::perms::owner_all);
    return file;
  }
  outcome run_lab(const std::string& arguments) const {
    return run_shell("TESSEL_LAB_ROUTERS=" LAB_ROUTERS " timeout 60 " LAB_PROGRAM " run " +
                     arguments);
  }
  // Runs `text` as the host, with the scratch folder as /var/log.
  outcome in_lab(const std::string& text, const std::string& more) const {
    return run_lab("birch-small --logs " + scratch_.path().string() + " --library " +
                   (scratch_.path() / "library").string() + " --host " +
                   script("outer", text).string() + " " + more);
  }
  // Records `calls` on a router whose tools are `tools`, lines that write files into /opt/nos/bin.
  outcome record(const std::string& tools, const std::string& calls, const char* out = "cap") {
    script("inner", calls);
    return in_lab(tool_maker + tools + "\nexec /opt/nos/libexec/tessel-lab record /var/log/" + out +
                      " --host /var/log/inner --library /var/log/library -- $ARGS",
                  "");
  }
  // Records `host`, which writes /var/log/ready; from that moment on runs `then` beside it. $! is
  // the recording.
  outcome record_and(const std::string& host, const std::string& then) const {
    script("inner", host);
    return in_lab(
        "/opt/nos/libexec/tessel-lab record /var/log/cap --host /var/log/inner"
        " --library /var/log/library & n=0\n"
        "until [ -s /var/log/ready ] || [ $n -gt 3000 ]; do sleep 0.02; n=$((n+1)); done\n" +
            then,
        "");
  }
  outcome replay(const std::string& calls, const char* out = "cap") const {
    return run_lab((scratch_.path() / out).string() + " --logs " +
                   (scratch_.path() / "logs").string() + " --library " +
                   (scratch_.path() / "library").string() + " --host " +
                   script("inner", calls).string());
  }
  std::string kept(const std::string& file) const {
    return read_text(scratch_.path() / "cap" / file);
  }
  // Files that a recording made beside its target and did not remove.
  std::string left_beside() const {
    return run_shell("find " + scratch_.path().string() + " -name '.*' ! -path " +
                     scratch_.path().string())
        .out;
  }
  void expect_no_capture() const {
    EXPECT_FALSE(fs::exists(scratch_.path() / "cap"));
    EXPECT_EQ(left_beside(), "");
  }
  void expect_interrupted(const outcome& recorded) const {
    EXPECT_THAT(recorded.err, HasSubstr("tessel-lab: interrupted; /var/log/cap was not made\n"));
    expect_no_capture();
  }
  bool is_kept(const std::string& file) const { return fs::exists(scratch_.path() / "cap" / file); }

  // tool NAME 'SCRIPT' makes a tool of the router.
  static constexpr const char* tool_maker =
      "cd /opt/nos/bin && rm -f *\n"
      "tool() { printf '#!/bin/sh\\n%s\\n' \"$2\" >/opt/nos/bin/$1; chmod 755 /opt/nos/bin/$1; }\n";
  lab_test::scratch_folder scratch_;
};

TEST_F(recording_test, changes_nothing_of_a_call) {
  const std::string tools =
      "tool iface_show 'for word; do printf \"<%s>\" \"$word\"; done; echo \"$0\"; exit 7'\n"
      "tool lagmgr_health 'echo complaint >&2; cat; pwd; exit 0'\n"
      "tool cfg_render 'kill -9 $$'\n"
      "tool sw_version_show 'echo \"${TESSEL_LAB_RECORD-none} $PATH\"'\n";
  const std::string calls =
      "cd /usr\n"
      "iface_show -i '.*' \"a  b\" '' 'it'\\''s' '$x'; echo \"status $?\"\n"
      "/opt/nos/bin/iface_show; echo \"status $?\"\n"
      "echo input | lagmgr_health 2>/tmp/complaint; cat /tmp/complaint\n"
      "cfg_render; echo \"status $?\"\n"
      "sw_version_show\n"
      "command -v plat_nodes_show || echo none\n";
  const outcome recorded = record(tools, calls);
  script("inner", calls);
  const outcome plain = in_lab(tool_maker + tools + "exec /var/log/inner", "");
  EXPECT_EQ(plain.out.find("<-i><.*><a  b><><it's><$x>"), 0U) << plain.out;
  EXPECT_THAT(plain.out, HasSubstr("complaint\n"));
  EXPECT_THAT(plain.out, HasSubstr("status 137\n"));
  EXPECT_EQ(recorded.out, plain.out) << recorded.err;
  EXPECT_EQ(recorded.status, plain.status);
}

TEST_F(recording_test, gives_a_tool_back_the_signal_of_the_terminal) {
  const outcome recorded = record(
      "tool iface_show 'while read -r what mask; do [ $what != SigIgn: ] || echo $mask; done "
      "</proc/self/status'\n",
      "iface_show");
  ASSERT_EQ(recorded.status, 0) << recorded.err;
  EXPECT_EQ(std::stoull(recorded.out, nullptr, 16) & (1ULL << (SIGTTOU - 1)), 0U) << recorded.out;
}

TEST_F(recording_test, keeps_status_and_error_output_for_the_replay) {
  const std::string calls =
      "iface_show; echo \"status $?\"\n"
      "lagmgr_health 2>&1 >/dev/null; lagmgr_health 2>/dev/null; echo \"status $?\"\n"
      "cfg_render; echo \"status $?\"\n";
  const outcome recorded = record(
      "tool iface_show 'echo some; exit 7'\ntool lagmgr_health 'echo out; echo err >&2'\n"
      "tool cfg_render 'kill -15 $$'\n",
      calls);
  EXPECT_EQ(recorded.out, "some\nstatus 7\nerr\nout\nstatus 0\nstatus 143\n") << recorded.err;
  EXPECT_EQ(replay(calls).out, recorded.out);
  EXPECT_EQ(kept("local/iface_show;answers"), "7 1\n");
  EXPECT_EQ(kept("local/lagmgr_health;1;complaint"), "err\n");
  EXPECT_EQ(kept("local/cfg_render;answers"), "143 1\n");
}

TEST_F(recording_test, keeps_different_answers_in_order) {
  const std::string tool =
      "tool iface_show 'n=$(cat /tmp/n 2>/dev/null); n=$((n+1)); echo $n >/tmp/n;"
      " [ $n -eq 2 ] && n=1; echo answer $n; exit $((n / 4))'\n";
  const std::string calls =
      "for i in 1 2 3 4; do iface_show \"-i\" .; echo $?; done; lagmgr_health; lagmgr_health";
  const outcome recorded = record(tool + "tool lagmgr_health 'echo same'\n", calls);
  EXPECT_EQ(recorded.out, "answer 1\n0\nanswer 1\n0\nanswer 3\n0\nanswer 4\n1\nsame\nsame\n");
  EXPECT_EQ(replay(calls).out, recorded.out);
  EXPECT_EQ(replay(calls + "\niface_show -i .; iface_show -i .").out,
            recorded.out + "answer 4\nanswer 4\n")
      << "the last answer serves all further calls";
  EXPECT_EQ(kept("local/iface_show,-i,.;answers"), "0 1\n0 1\n0 3\n1 4\n");
  EXPECT_FALSE(is_kept("local/iface_show,-i,.;2"));
  EXPECT_EQ(kept("local/lagmgr_health"), "same\n");
}

TEST_F(recording_test, of_a_replay_is_the_same_capture) {
  const std::string tool =
      "tool iface_show 'n=$(cat /tmp/n 2>/dev/null); n=$((n+1)); echo $n >/tmp/n; echo $n;"
      " echo $n >&2; exit $n'\n";
  const std::string calls = "iface_show; iface_show; iface_show; lagmgr_health";
  record(tool + "tool lagmgr_health 'echo same'\n", calls);
  const outcome again = run_lab(
      (scratch_.path() / "cap").string() + " --logs " + (scratch_.path() / "logs").string() +
      " --library " + (scratch_.path() / "library").string() + " --host " +
      script("inner", calls).string() + " --record " + (scratch_.path() / "again").string());
  EXPECT_EQ(again.out, "1\n2\n3\nsame\n") << again.err;
  const std::string folder = scratch_.path().string();
  EXPECT_EQ(run_shell("diff -r -x calls -x manifest " + folder + "/cap " + folder + "/again").out,
            "");
}

TEST_F(recording_test, keeps_the_journal_that_the_host_writes) {
  record("tool iface_show 'echo x'", "iface_show; printf '{\"n\":1}\\n' >&$TESSEL_JOURNAL");
  EXPECT_EQ(kept("journal"), "{\"n\":1}\n");
  EXPECT_EQ(fs::status(scratch_.path() / "cap" / "journal").permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(replay("iface_show; echo \"${TESSEL_JOURNAL-none}\"").out, "x\nnone\n");
}

TEST_F(recording_test, of_a_host_without_a_journal_has_none) {
  record("tool iface_show 'echo x'", "iface_show");
  EXPECT_TRUE(is_kept("calls"));
  EXPECT_FALSE(is_kept("journal"));
}

TEST_F(recording_test, streams_large_outputs) {
  // Four times the size of a pipe; the reader gets the first byte while the tool still writes.
  const std::string tools =
      "tool iface_show 'echo first; i=0; while [ ! -e /tmp/seen ] && [ $i -lt 3000 ]; do "
      "i=$((i+1)); sleep 0.02; done; ls /tmp; head -c 4000000 /dev/zero'\n";
  const outcome recorded = record(
      tools, "iface_show | { read line; touch /tmp/seen; echo got $line; tr '\\0' x | wc -c; }");
  EXPECT_EQ(recorded.out, "got first\n4000005\n");
  EXPECT_EQ(kept("local/iface_show").size(), 4000011U);
}

TEST_F(recording_test, keeps_side_by_side_calls_apart) {
  const std::string calls =
      "for i in 1 2 3 4 5 6 7 8; do { iface_show $i | cat >/tmp/$i; } & done; wait; cat /tmp/[1-8]";
  const outcome recorded =
      record("tool iface_show 'echo begin $1; sleep 0.1; echo end $1'\n", calls);
  EXPECT_EQ(replay(calls).out, recorded.out);
  for (const char* i : {"1", "8"})
    EXPECT_EQ(kept(std::string{"local/iface_show,"} + i),
              std::string{"begin "} + i + "\nend " + i + "\n");
}

TEST_F(recording_test, a_reader_that_goes_away_ends_the_tool) {
  const outcome recorded = record(
      "tool iface_show 'while echo line; do :; done 2>/dev/null; echo ended >/var/log/ended'\n",
      "iface_show | head -n 1; echo over");
  EXPECT_EQ(recorded.out, "line\nover\n");
}

TEST_F(recording_test, notes_the_calls_in_order) {
  record("tool iface_show 'sleep 0.2; echo 12345'\ntool lagmgr_health 'exit 3'\n",
         "iface_show -i x; lagmgr_health; ssh -q 192.0.0.4 'iface_show -i y'");
  const std::string calls = kept("calls");
  EXPECT_THAT(calls, MatchesRegex("# begin  duration  status  bytes  answer; times in seconds\n"
                                  "0.000000 [0-9]+.[0-9]+ 0 6 local/iface_show,-i,x\n"
                                  "[0-9]+.[0-9]+ [0-9]+.[0-9]+ 3 0 local/lagmgr_health;1\n"
                                  "[0-9]+.[0-9]+ [0-9]+.[0-9]+ [0-9]+ 0 "
                                  "192.0.0.4/iface_show,-i,y;1\n"));
  std::istringstream lines(calls);
  std::vector<double> begun;
  std::vector<double> took;
  std::string line;
  std::getline(lines, line);  // the titles of the columns
  while (std::getline(lines, line)) {
    std::istringstream columns(line);
    columns >> begun.emplace_back() >> took.emplace_back();
  }
  ASSERT_EQ(begun.size(), 3U);
  EXPECT_GE(took[0], 0.2) << "the tool sleeps so long";
  EXPECT_GE(begun[1], begun[0] + took[0]) << "each call begins after the one before it";
  EXPECT_GE(begun[2], begun[1] + took[1]);
}

TEST_F(recording_test, keeps_the_beginning_of_a_call_that_the_end_cut_off) {
  const outcome recorded = record("tool iface_show 'echo begun; sleep 600'\n",
                                  "iface_show >/tmp/out & n=0\n"
                                  "until [ -s /tmp/out ] || [ $n -gt 3000 ]; do sleep 0.02;"
                                  " n=$((n+1)); done; echo over");
  EXPECT_EQ(recorded.out, "over\n");
  EXPECT_THAT(recorded.err, HasSubstr("1 of 1 calls had not ended when the audit did"));
  EXPECT_EQ(kept("local/iface_show"), "begun\n");
  EXPECT_THAT(kept("calls"), HasSubstr("\n- - cut-off 6 local/iface_show\n"));
}

TEST_F(recording_test, lists_the_nodes_and_the_host) {
  const outcome recorded = in_lab(
      "/opt/nos/libexec/tessel-lab record /var/log/cap --host /var/log/inner"
      " --library /var/log/library -- --node-id 0x1100",
      "");
  EXPECT_NE(recorded.status, 0) << "there is no inner script";
  script("inner", "echo \"$@\"; /opt/nos/bin/plat_nodes_show -v >/dev/null");
  const outcome result = in_lab(
      "rm /opt/nos/bin/lagmgr_agent_show\n"
      "/opt/nos/libexec/tessel-lab record /var/log/cap --host /var/log/inner"
      " --library /var/log/library -- --node-id 0x1100",
      "");
  EXPECT_THAT(result.out, MatchesRegex("--library .*/library/libtessel.so --node-id 0x1100\n"));
  const lab::capture head = lab::read_manifest(scratch_.path() / "cap");
  EXPECT_EQ(head.host_node_id, 4352U);
  EXPECT_EQ(head.router, "cap");
  EXPECT_EQ(head.missing_tools, std::vector<std::string>{"lagmgr_agent_show"});
  ASSERT_EQ(head.nodes.size(), 4U);
  EXPECT_EQ(head.nodes.front(), (std::pair<std::string, std::string>{"192.0.0.4", "0/RP0/CPU0"}));
}

TEST_F(recording_test, knows_where_it_comes_from) {
  record(
      "tool sw_version_show 'echo \"Tarmac TR-BIRCH (x86_64) processor with memory\"'\n"
      "tool iface_show 'echo x'\n",
      "sw_version_show; iface_show; iface_show");
  const capture c = read_capture(scratch_.path() / "cap");
  EXPECT_EQ(c.made.format, 2);
  EXPECT_EQ(c.made.origin, "recorded");
  EXPECT_EQ(c.made.version, lab_version());
  EXPECT_EQ(c.made.redacted_by, "");
  EXPECT_EQ(c.made.type, "birch");
  EXPECT_EQ(c.made.host_name + "\n", run_shell("uname -n").out);
  EXPECT_EQ(c.made.calls, 3U);
  const std::string time = "20[0-9][0-9]-[0-9][0-9]-[0-9][0-9]T[0-9][0-9]:[0-9][0-9]:[0-9][0-9]Z";
  EXPECT_THAT(c.made.begin, MatchesRegex(time));
  EXPECT_THAT(c.made.end, MatchesRegex(time));
  EXPECT_LE(c.made.begin, c.made.end);
  EXPECT_EQ(c.sums.at("local/iface_show"), sum_of("x\n"));
  EXPECT_EQ(c.sums.size(), 3U) << "two answers and the list of calls";

  const std::string in_folder = "cd " + scratch_.path().string() + "; " LAB_PROGRAM " ";
  ASSERT_EQ(run_shell(in_folder + "pack cap packed").status, 0);
  ASSERT_EQ(run_shell(in_folder + "redact packed harmless").status, 0);
  const capture harmless = read_capture(scratch_.path() / "harmless");
  EXPECT_EQ(harmless.made.origin, "recorded");
  EXPECT_EQ(harmless.made.redacted_by, lab_version());
  EXPECT_THAT(harmless.made.host_name, MatchesRegex("name-[0-9]+"));
  EXPECT_EQ(harmless.made.begin, c.made.begin);
}

TEST_F(recording_test, lists_the_nodes_of_the_last_of_several_answers) {
  // The first call fails with error output.
  record(
      "tool plat_nodes_show '[ -e /tmp/asked ] || { touch /tmp/asked; echo busy >&2; exit 1; };"
      " echo 0/3/CPU0 LC ACTIVE FINAL x x 192.0.0.9'\n",
      "plat_nodes_show -v; plat_nodes_show -v");
  EXPECT_EQ(kept("local/plat_nodes_show,-v;answers"), "1 1 complains\n0 2\n");
  const lab::capture head = lab::read_manifest(scratch_.path() / "cap");
  ASSERT_EQ(head.nodes.size(), 1U);
  EXPECT_EQ(head.nodes.front(), (std::pair<std::string, std::string>{"192.0.0.9", "0/3/CPU0"}));
}

TEST_F(recording_test, lists_the_nodes_of_the_last_answer_that_names_any) {
  for (const char* last : {"exit 1", "exit 0", "echo busy >&2; exit 1", "echo Node Type State"}) {
    fs::remove_all(scratch_.path() / "cap");
    record("tool plat_nodes_show '[ ! -e /tmp/asked ] || { " + std::string{last} +
               "; exit 0; }; touch /tmp/asked; echo 0/3/CPU0 LC ACTIVE FINAL x x 192.0.0.9'\n",
           "plat_nodes_show -v; plat_nodes_show -v");
    const lab::capture head = lab::read_manifest(scratch_.path() / "cap");
    ASSERT_EQ(head.nodes.size(), 1U) << last;
    EXPECT_EQ(head.nodes.front().first, "192.0.0.9") << last;
  }
}

TEST_F(recording_test, is_named_like_its_folder_without_a_slash) {
  for (const char* out : {"cap/", "cap/.", "./cap//"}) {
    const outcome recorded = record("tool iface_show 'echo x'\n", "iface_show", out);
    EXPECT_EQ(recorded.err, "");
    EXPECT_EQ(lab::read_manifest(scratch_.path() / "cap").router, "cap") << out;
    fs::remove_all(scratch_.path() / "cap");
    const std::string place = scratch_.path() / out;
    const outcome in_run = in_lab("iface_show -i .; exit 4", "--record " + place);
    EXPECT_EQ(in_run.status, 4) << in_run.err;
    EXPECT_EQ(lab::read_manifest(scratch_.path() / "cap").router, "cap") << out;
    fs::remove_all(scratch_.path() / "cap");
    EXPECT_EQ(left_beside(), "");
  }
}

TEST_F(recording_test, in_a_run_has_the_name_that_the_user_gave) {
  const std::string place = (scratch_.path() / "cap").string();
  EXPECT_EQ(in_lab("exit 5", "--record " + place + "/").err,
            "tessel-lab: no tool was called; " + place + " was not made\n");
}

TEST_F(recording_test, is_refused_before_the_logs_folder_is_made) {
  const std::string line =
      "/opt/nos/libexec/tessel-lab record --host /var/log/outer --library /var/log/library --logs "
      "/tmp/logs ";
  for (const char* out :
       {"/var/log", "/tmp/a:b", "/tmp/tessel-cap", "/tmp/logs", "/opt/nos/bin/cap"}) {
    const outcome refused = in_lab(line + out + "; echo $?; ls -A /tmp", "");
    EXPECT_EQ(refused.out, "1\n") << out << refused.err;
    EXPECT_EQ(std::count(refused.err.begin(), refused.err.end(), '\n'), 1) << refused.err;
  }
}

TEST_F(recording_test, passes_the_hosts_status_on_and_leaves_nothing_else_behind) {
  EXPECT_EQ(record("tool iface_show 'echo x'\n", "iface_show; exit 3").status, 3);
  EXPECT_TRUE(is_kept("manifest"));
  EXPECT_EQ(left_beside(), "");
  const outcome again = record("tool iface_show 'echo x'\n", "iface_show");
  EXPECT_EQ(again.status, 1);
  EXPECT_EQ(again.err, "tessel-lab: /var/log/cap: exists already\n");
}

TEST_F(recording_test, has_the_hosts_report_program_beside_it) {
  script("tessel-report", "echo reported");
  const outcome made =
      record("tool iface_show 'echo x'\n", "iface_show; \"$(dirname \"$0\")/tessel-report\"");
  EXPECT_EQ(made.status, 0) << made.err;
  EXPECT_EQ(made.out, "x\nreported\n");
  EXPECT_EQ(left_beside(), "");
}

TEST_F(recording_test, is_private_to_the_user) {
  record("tool iface_show 'echo x; echo y >&2'\n",
         "umask 000; iface_show; ssh 192.0.0.4 'iface_show'");
  ASSERT_TRUE(is_kept("local/iface_show;1;complaint"));
  ASSERT_TRUE(is_kept("192.0.0.4"));
  const std::string find = "cd " + scratch_.path().string() + " && find cap ";
  EXPECT_EQ(run_shell(find + "-perm /077").out, "");
  EXPECT_NE(run_shell(find + "-type f").out, "");
}

TEST_F(recording_test, without_a_call_makes_no_capture) {
  const outcome recorded = record("", "exit 5");
  EXPECT_EQ(recorded.status, 5);
  EXPECT_EQ(recorded.err, "tessel-lab: no tool was called; /var/log/cap was not made\n");
  expect_no_capture();
}

TEST_F(recording_test, without_a_call_does_not_succeed_although_the_host_does) {
  const outcome recorded = record("", "exit 0");
  EXPECT_EQ(recorded.status, 1);
  EXPECT_EQ(recorded.err, "tessel-lab: no tool was called; /var/log/cap was not made\n");
  expect_no_capture();
}

TEST_F(recording_test, makes_the_folders_above_it) {
  EXPECT_EQ(record("tool iface_show 'echo x'\n", "iface_show", "above/it/cap").status, 0);
  EXPECT_EQ(lab::read_manifest(scratch_.path() / "above/it/cap").router, "cap");
  record("", "exit 0", "there/too/cap");
  EXPECT_FALSE(fs::exists(scratch_.path() / "there"));
}

TEST_F(recording_test, of_a_terminal_that_is_gone_ends_as_an_interrupted_one) {
  script("inner", "iface_show; echo ready >/var/log/ready; sleep 600");
  const outcome recorded = in_lab(
      "/opt/nos/libexec/tessel-lab record /var/log/cap --host /var/log/inner"
      " --library /var/log/library 2>/dev/full & n=0\n"
      "until [ -s /var/log/ready ] || [ $n -gt 3000 ]; do sleep 0.02; n=$((n+1)); done\n"
      "kill -HUP $!; wait $!; echo status $?",
      "");
  EXPECT_THAT(recorded.out, HasSubstr("status 129\n"));
  expect_no_capture();
}

TEST_F(recording_test, that_is_interrupted_makes_no_capture) {
  const outcome recorded = record_and("iface_show; echo ready >/var/log/ready; sleep 600",
                                      "kill -TERM $!; wait $!; echo status $?");
  EXPECT_THAT(recorded.out, HasSubstr("status 143\n"));
  expect_interrupted(recorded);
}

TEST_F(recording_test, of_a_host_that_ignores_signals_makes_no_capture) {
  const outcome recorded = record_and(
      "trap '' TERM; iface_show >/dev/null; echo ready >/var/log/ready\n"
      "while :; do sleep 1; done",
      "kill -TERM $!; wait $!; echo status $?");
  EXPECT_EQ(recorded.out, "status 137\n");
  expect_interrupted(recorded);
}

// A script's "command &" starts the recording with SIGINT ignored, and so its host too.
TEST_F(recording_test, that_is_interrupted_does_not_succeed_if_the_host_does) {
  const outcome recorded = record_and(
      "iface_show >/dev/null; echo ready >/var/log/ready; n=0\n"
      "until [ -e /var/log/signalled ] || [ $n -gt 3000 ]; do sleep 0.02; n=$((n+1)); done; exit 0",
      "kill -INT $!; sleep 0.2; echo x >/var/log/signalled; wait $!; echo status $?");
  EXPECT_EQ(recorded.out, "status 130\n");
  expect_interrupted(recorded);
}

TEST_F(recording_test, leaves_nothing_if_it_is_killed) {
  const outcome recorded =
      record_and("iface_show >/dev/null; echo ready >/var/log/ready; exec sleep 600",
                 "ls -d /var/log/.cap.*\n"
                 "kill -KILL $!; wait $! 2>/dev/null; n=0\n"
                 "while ls -d /var/log/.cap.* >/dev/null 2>&1 && [ $n -le 3000 ]; do sleep 0.02;"
                 " n=$((n+1)); done");
  EXPECT_THAT(recorded.out, HasSubstr("/var/log/.cap."));
  expect_no_capture();
}

TEST_F(recording_test, is_refused_where_the_audit_clears_or_the_recording_covers) {
  const outcome cleared = in_lab(
      "/opt/nos/libexec/tessel-lab record /tmp/tessel-cap --host "
      "/var/log/outer --library /var/log/library",
      "");
  EXPECT_EQ(cleared.err,
            "tessel-lab: /tmp/tessel-cap: an audit clears /tmp/tessel*; give the recording "
            "another name\n");
  const outcome within_a_run = in_lab(
      "/opt/nos/libexec/tessel-lab run /opt/nos/capture --record /tmp/tessel-cap --host "
      "/var/log/outer --library /var/log/library --logs /var/log/logs",
      "");
  EXPECT_EQ(within_a_run.err, cleared.err);
  const outcome covered = in_lab(
      "/opt/nos/libexec/tessel-lab record /opt/nos/bin/cap --host "
      "/var/log/outer --library /var/log/library",
      "");
  EXPECT_THAT(covered.err, HasSubstr("covers this folder"));
  const outcome relative = in_lab(
      "cd /tmp; /opt/nos/libexec/tessel-lab record tessel-cap --host "
      "/var/log/outer --library /var/log/library",
      "");
  EXPECT_EQ(relative.err, cleared.err);
}

TEST_F(recording_test, is_refused_where_the_search_path_cannot_name_it) {
  const outcome refused = record("tool iface_show 'echo x'\n", "iface_show", "cap-12:30");
  EXPECT_EQ(refused.err,
            "tessel-lab: /var/log/cap-12:30: there is a colon in it; record to a place without "
            "one\n");
  EXPECT_EQ(refused.status, 1);
  const outcome below = in_lab(
      "mkdir /tmp/12:30; cd /tmp/12:30; /opt/nos/libexec/tessel-lab record cap --host "
      "/var/log/outer --library /var/log/library",
      "");
  EXPECT_THAT(below.err, HasSubstr("/tmp/12:30/cap: there is a colon in it"));
}

TEST_F(recording_test, leaves_the_logs_in_place_unless_an_option_moves_them) {
  script("inner", "iface_show >/dev/null; echo finding >/var/log/mark");
  const std::string line =
      "/opt/nos/libexec/tessel-lab record /tmp/cap --host /var/log/inner --library "
      "/var/log/library";
  in_lab(line + "; cp -r /tmp/cap /var/log/", "");
  EXPECT_EQ(read_text(scratch_.path() / "mark"), "finding\n");
  fs::remove(scratch_.path() / "mark");
  const outcome elsewhere = in_lab(line + " --logs /tmp/logs; cat /tmp/logs/mark", "");
  EXPECT_EQ(elsewhere.out, "finding\n") << elsewhere.err;
  EXPECT_FALSE(fs::exists(scratch_.path() / "mark"));
}

TEST_F(recording_test, without_a_pipe_harms_no_call) {
  // One descriptor, 3, is enough for the output's file or for the tool, not for a pipe.
  const outcome recorded = record(
      "cp /bin/cat iface_show\n",
      "env --default-signal=TTOU grep SigIgn /proc/self/status\n"
      "(exec 3>&-; ulimit -n 4; exec iface_show /proc/self/status) | grep -e SigIgn -e Name\n"
      "ls /var/log/.cap.*/capture/local");
  const std::string ignored = recorded.out.substr(0, recorded.out.find('\n') + 1);
  EXPECT_THAT(ignored, MatchesRegex("SigIgn:\t[0-9a-f]+\n"));
  EXPECT_EQ(recorded.out, ignored + "Name:\tiface_show\n" + ignored) << recorded.err;
  EXPECT_THAT(recorded.err, HasSubstr("could not be kept: Too many open files\n"));
  EXPECT_EQ(recorded.status, 1);
  EXPECT_FALSE(fs::exists(scratch_.path() / "cap"));
}

TEST_F(recording_test, tools_find_their_companions_and_each_other) {
  const outcome recorded = record(
      "tool iface_show '. \"$(dirname \"$0\")/../share/words\"; echo $word; lagmgr_health;"
      " /opt/nos/bin/lagmgr_health'\n"
      "mkdir ../share; echo word=companion >../share/words; tool lagmgr_health 'echo inner'\n"
      "echo data >/opt/nos/bin/table\n",
      "iface_show; cat /opt/nos/bin/table");
  EXPECT_EQ(recorded.out, "companion\ninner\ninner\ndata\n") << recorded.err;
  EXPECT_FALSE(is_kept("local/lagmgr_health")) << "the audit did not call it";
}

// Without root a process cannot go back to the earlier mounts.
TEST_F(recording_test, works_without_root) {
  if (geteuid() != 0) GTEST_SKIP() << "as all the others do";
  const std::string folder = scratch_.path().string();
  fs::permissions(scratch_.path(), fs::perms::all);
  fs::copy_file(LAB_PROGRAM, scratch_.path() / "tessel-lab");
  fs::copy_file(LAB_TOOL, scratch_.path() / "tessel-lab-tool");
  fs::permissions(scratch_.path() / "library", fs::perms::all);
  const fs::path inner = script("inner",
                                "/opt/nos/bin/sw_version_show; iface_show -i '.*';"
                                " ssh 192.0.0.4 /opt/nos/bin/fwd_object_show -t lagport -D");
  fs::permissions(inner, fs::perms::all);
  // The source tree may lie where other users cannot read.
  fs::create_directory(scratch_.path() / "routers");
  fs::copy_file(LAB_ROUTERS "/birch-small.toml", scratch_.path() / "routers/birch-small.toml");
  const auto as_nobody = [&](const std::string& more) {
    return run_shell("TESSEL_LAB_ROUTERS=" + folder +
                     "/routers timeout 60 setpriv --reuid 65534 --regid 65534 --clear-groups " +
                     folder + "/tessel-lab run --logs " + folder + "/logs --library " + folder +
                     "/library --host " + inner.string() + " " + more);
  };
  fs::create_directory(scratch_.path() / "logs");
  fs::permissions(scratch_.path() / "logs", fs::perms::all);
  const outcome plain = as_nobody("birch-small");
  if (plain.status == lab::missing_privileges || plain.status == 126 || plain.status == 127)
    GTEST_SKIP() << plain.err;
  const outcome recorded = as_nobody("birch-small --record " + folder + "/cap");
  EXPECT_EQ(recorded.status, 0) << recorded.err;
  EXPECT_EQ(recorded.out, plain.out);
  EXPECT_THAT(recorded.out, HasSubstr("lagport element 0"));
  EXPECT_EQ(as_nobody(folder + "/cap").out, plain.out);
}

}  // namespace
