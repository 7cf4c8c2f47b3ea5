#include "lab/tool/serve.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include "lab/capture/capture.h"
#include "lab/capture/file_names.h"
#include "support.h"

namespace {

namespace fs = std::filesystem;
using lab_test::outcome;
using lab_test::read_text;

TEST(resolve, finds_place_and_file) {
  using lab::resolve;
  EXPECT_EQ(resolve({"/opt/nos/bin/sw_version_show"}).place, "local");
  EXPECT_EQ(resolve({"/opt/nos/bin/sw_version_show"}).file, "sw_version_show");
  const lab::call remote = resolve({"ssh", "-q", "-o", "StrictHostKeyChecking=no", "192.0.0.6",
                                    "/opt/nos/bin/fwd_object_show", "-t", "lagport", "-D"});
  EXPECT_EQ(remote.place, "192.0.0.6");
  EXPECT_EQ(remote.file, "fwd_object_show,-t,lagport,-D");
  EXPECT_EQ(resolve({"ssh", "192.0.0.6", "fwd_object_show -t lagport -D"}).file, remote.file);
}

TEST(resolve, refuses_unknown_forms_of_ssh) {
  using lab::resolve;
  EXPECT_NE(resolve({"ssh"}).problem, "");
  EXPECT_NE(resolve({"ssh", "-o"}).problem, "");
  EXPECT_NE(resolve({"ssh", "-p", "22", "192.0.0.6", "x"}).problem, "");
  EXPECT_NE(resolve({"ssh", "192.0.0.6"}).problem, "");
  EXPECT_NE(resolve({"ssh", "../local", "x"}).problem, "");
  EXPECT_NE(resolve({"ssh", "..", "x"}).problem, "");
}

TEST(resolve, knows_a_login_that_only_tests_for_programs) {
  const auto tested = [](const std::string& line) {
    return lab::resolve({"ssh", "-o", "BatchMode=yes", "192.0.0.6", line}).tested;
  };
  using files = std::vector<std::string>;
  EXPECT_EQ(tested("true"), files{});
  EXPECT_EQ(tested("for f in /a /b; do test -x $f || echo $f; done"), (files{"/a", "/b"}));
  EXPECT_EQ(tested("for f in /a; do test -x $f || echo $f; done"), files{"/a"});
  for (const char* other :
       {"true; test -x /a", "test -x /a", "truely", "for f in /a; do test -f $f || echo $f; done",
        "for f in /a; do test -x $f || echo $f; done; rm /a",
        "for f in $(rm /a); do test -x $f || echo $f; done",
        "for f in ; do test -x $f || echo $f; done x", "for f in /a; do echo $f; done"})
    EXPECT_EQ(tested(other), std::nullopt) << other;
}

TEST(tool_program, refuses_to_be_called_directly) {
  const outcome called = lab_test::run_shell(LAB_TOOL " list");
  EXPECT_EQ(called.status, 64);
  EXPECT_EQ(called.out, "");
  EXPECT_EQ(called.err,
            "tessel-lab-tool: do not call it directly; tessel-lab starts it under the names of a "
            "router's tools\n");
}

// The program under the names of the tools, with a capture of its own.
class tools_test : public testing::Test {
 protected:
  void SetUp() override {
    lab::capture c = lab_test::rendered_router("birch-small").c;
    big_ = std::string(3000000, 'x') + "\n" + std::string("\0\xff", 2);
    lab::answer(c, "local", "lagmgr_health", big_);
    lab::write_folder(c, scratch_.path() / "capture");
    fs::create_directory(scratch_.path() / "bin");
    for (const char* tool : {"asic_shell_show", "ssh", "lagmgr_health", "iface_show"})
      fs::create_symlink(LAB_TOOL, scratch_.path() / "bin" / tool);
    expected_ = c;
  }
  outcome shell(const std::string& line) const {
    const std::string capture = (scratch_.path() / "capture").string();
    return lab_test::run_shell("export PATH=" + bin_ + ":$PATH TESSEL_LAB_CAPTURE=" + capture +
                               "\n" + line);
  }
  lab_test::scratch_folder scratch_;
  const std::string bin_ = (scratch_.path() / "bin").string();
  lab::capture expected_;
  std::string big_;
};

TEST_F(tools_test, answer_in_full) {
  const outcome unit = shell(bin_ + "/asic_shell_show -c \"show unit\" -u all -n A");
  EXPECT_EQ(unit.status, 0);
  EXPECT_EQ(unit.out,
            lab::answer_to(expected_, "local", "asic_shell_show -c \"show unit\" -u all -n A"));
  EXPECT_EQ(unit.err, "");
}

TEST_F(tools_test, answer_for_all_chips_unless_one_has_its_own) {
  const fs::path local = scratch_.path() / "capture" / "local";
  lab_test::write_text(local / lab::file_name("asic_shell_show -c \"diag odd\""), "all\n");
  lab_test::write_text(local / lab::file_name("asic_shell_show -c \"diag odd\" -u 1 -n 7"),
                       "own\n");
  EXPECT_EQ(shell(bin_ + "/asic_shell_show -c \"diag odd\" -u 0 -n 7").out, "all\n");
  EXPECT_EQ(shell(bin_ + "/asic_shell_show -c \"diag odd\" -u 1 -n 7").out, "own\n");
  EXPECT_EQ(shell(bin_ + "/asic_shell_show -c \"diag even\" -u 1 -n 7").status, 127);
}

TEST_F(tools_test, answer_late_if_asked) {
  const auto seconds = [&](const char* latencies, const char* line) {
    const auto begin = std::chrono::steady_clock::now();
    const outcome result = shell(std::string{"export TESSEL_LAB_LATENCY="} + latencies + "\n" +
                                 line + " >/dev/null\n");
    EXPECT_EQ(result.status, 0) << result.err;
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  };
  const char* remote = "ssh 192.0.0.4 /opt/nos/bin/fwd_object_show -t lagport -D";
  EXPECT_GE(seconds("lagmgr_health=0.3s", "lagmgr_health"), 0.3);
  EXPECT_GE(seconds("ssh=150ms,fwd_object_show=150ms", remote), 0.3);
  EXPECT_LT(seconds("lagmgr_health=600s,chip=600s", remote), 60);
  EXPECT_EQ(shell("export TESSEL_LAB_LATENCY=soon\nlagmgr_health").err,
            "lagmgr_health: latency \"soon\": not CLASS=TIME such as ssh=150ms\n");
}

TEST_F(tools_test, answer_megabytes_and_bytes_through_file_and_pipe) {
  EXPECT_EQ(shell("lagmgr_health").out, big_);
  EXPECT_EQ(shell("lagmgr_health | cat").out, big_);
  const fs::path appended = scratch_.path() / "appended";
  shell("lagmgr_health >>" + appended.string());
  EXPECT_EQ(read_text(appended), big_);
}

TEST_F(tools_test, answer_for_the_node_behind_the_address) {
  const std::string line =
      "ssh  -q -o 'StrictHostKeyChecking=no' {} "
      "/opt/nos/bin/fwd_object_show -t l2port -D | cat";
  for (const auto& [address, name] : expected_.nodes) {
    std::string asked = line;
    asked.replace(asked.find("{}"), 2, address);
    EXPECT_EQ(shell(asked).out, lab::answer_to(expected_, address, "fwd_object_show -t l2port -D"))
        << name;
  }
}

TEST_F(tools_test, refuse_an_unknown_command_line) {
  const outcome refused = shell(bin_ + "/asic_shell_show -c \"rm all\" -u 0 -n 0");
  EXPECT_EQ(refused.status, 127);
  EXPECT_EQ(refused.out, "");
  EXPECT_NE(refused.err.find("asic_shell_show \"-c\""), 0U);
  EXPECT_NE(refused.err.find("asic_shell_show -c \"rm all\" -u 0 -n 0: not known"),
            std::string::npos)
      << refused.err;
  const outcome remote = shell("ssh 192.0.0.4 /opt/nos/bin/unheard_of");
  EXPECT_EQ(remote.status, 127);
  EXPECT_EQ(shell("ssh 192.0.0.99 /opt/nos/bin/board_api_probe").status, 255);
}

TEST_F(tools_test, answer_a_login_that_tests_for_them) {
  const auto login = [&](const std::string& address, const std::string& tool) {
    return shell("ssh -o BatchMode=yes -o LogLevel=ERROR " + address + " 'for f in " + bin_ +
                 "/ssh " + bin_ + "/" + tool + "; do test -x $f || echo $f; done'");
  };
  const outcome known = login("192.0.0.6", "iface_show");
  EXPECT_EQ(known.status, 0);
  EXPECT_EQ(known.out + known.err, "");
  EXPECT_EQ(shell("ssh 192.0.0.6 true").status, 0);
  const outcome missing = login("192.0.0.6", "fwd_object_show");
  EXPECT_EQ(missing.status, 0);
  EXPECT_EQ(missing.out, bin_ + "/fwd_object_show\n");
  const outcome down = login("192.0.0.99", "iface_show");
  EXPECT_EQ(down.status, 255);
  EXPECT_EQ(down.err, "ssh: connect to host 192.0.0.99 port 22: No route to host\n");

  const fs::path node = scratch_.path() / "capture" / "192.0.0.6";
  fs::remove_all(node);
  fs::create_directory(node);
  lab_test::write_text(node / "fwd_object_show;1", "");
  lab_test::write_text(node / "fwd_object_show;answers", "255 1\n");
  EXPECT_EQ(login("192.0.0.6", "iface_show").status, 255) << "it could not be reached";
  lab_test::write_text(node / "fwd_object_show;answers", "255 1\n0 1\n");
  EXPECT_EQ(login("192.0.0.6", "iface_show").status, 0) << "later it could";
  lab_test::write_text(node / "true;1", "");
  lab_test::write_text(node / "true;answers", "1 1\n");
  EXPECT_EQ(shell("ssh 192.0.0.6 true").status, 1) << "as it was recorded";
}

TEST_F(tools_test, are_not_found_where_no_router_has_them) {
  const char* asked = " -c \"show unit\" -u all -n A";
  EXPECT_EQ(shell(bin_ + "/asic_shell_show" + asked).status, 0);
  const outcome by_name = shell(std::string{"asic_shell_show"} + asked);
  EXPECT_EQ(by_name.status, 127);
  EXPECT_EQ(by_name.out, "");
  EXPECT_EQ(by_name.err, "asic_shell_show: not found, neither by that name nor at that place\n");
  EXPECT_EQ(shell("lagmgr_health").status, 0);
  EXPECT_EQ(shell(bin_ + "/lagmgr_health").status, 127);
  const std::string node = "ssh 192.0.0.4 ";
  EXPECT_EQ(shell(node + "/opt/nos/bin/fwd_object_show -t lagport -D").status, 0);
  EXPECT_EQ(shell(node + "fwd_object_show -t lagport -D").status, 127);
}

TEST_F(tools_test, list_their_calls) {
  const fs::path calls = scratch_.path() / "calls";
  shell("export TESSEL_LAB_CALLS=" + calls.string() +
        "\niface_show \"-i\" \".*\"\nssh -q 192.0.0.4 /opt/nos/bin/board_api_probe\nlagmgr_health "
        "--unknown");
  EXPECT_EQ(read_text(calls),
            "iface_show -i \".*\"\nssh -q 192.0.0.4 /opt/nos/bin/board_api_probe\n"
            "lagmgr_health --unknown\n");
}

TEST_F(tools_test, list_calls_that_run_side_by_side_whole) {
  const fs::path calls = scratch_.path() / "calls";
  shell("export TESSEL_LAB_CALLS=" + calls.string() +
        "\nfor i in 1 2 3 4 5 6 7 8 9 10; do iface_show -i .\\* >/dev/null & done; wait");
  const std::string one = "iface_show -i \".*\"\n";
  std::string ten;
  for (int i = 0; i < 10; ++i) ten += one;
  EXPECT_EQ(read_text(calls), ten);
}

}  // namespace
