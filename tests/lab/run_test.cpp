// The command line and the namespace, with a shell script as the host.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <utility>
#include <vector>

#include "lab/base/namespaces.h"
#include "support.h"

namespace {

namespace fs = std::filesystem;
using lab_test::outcome;
using lab_test::read_text;
using lab_test::run_shell;
using lab_test::write_text;

outcome lab_program(const std::string& arguments) {
  return run_shell("TESSEL_LAB_ROUTERS=" LAB_ROUTERS " " LAB_PROGRAM " " + arguments);
}

bool has_namespace() {
  const lab_test::scratch_folder scratch;
  return lab_program("run birch-small --host /bin/true --library " LAB_PROGRAM " --logs " +
                     scratch.path().string())
             .status != lab::missing_privileges;
}

TEST(command_line, lists_routers_and_faults) {
  const outcome routers = lab_program("list");
  EXPECT_EQ(routers.status, 0);
  EXPECT_NE(routers.out.find("\nbirch-small "), std::string::npos);
  EXPECT_NE(routers.out.find("\nelm-single "), std::string::npos);
  const outcome faults = lab_program("faults");
  EXPECT_EQ(faults.status, 0);
  EXPECT_NE(faults.out.find("dpa-lag-id"), std::string::npos);
  EXPECT_NE(faults.out.find("Lag ID is not consistent"), std::string::npos);
}

TEST(command_line, ends_with_its_status_if_standard_error_cannot_be_written) {
  const lab_test::scratch_folder scratch;
  const std::string at = "cd " + scratch.path().string() + "; ";
  for (const char* broken : {"2>/dev/full", "2>&-", "2>&- >&- <&-"})
    for (const auto& [line, status] : {std::pair{"run nowhere", 1},
                                       {"--slow", 64},
                                       {"diff a b", 2},
                                       {"unpack nowhere out", 1}}) {
      const outcome ended = run_shell(at + "TESSEL_LAB_ROUTERS=" LAB_ROUTERS " " LAB_PROGRAM " " +
                                      line + " " + broken);
      EXPECT_EQ(ended.status, status) << line << broken;
    }
  // The tools' stand-in, too.
  EXPECT_EQ(run_shell(LAB_TOOL " 2>/dev/full").status, 64);
  EXPECT_EQ(run_shell("TESSEL_LAB_CAPTURE=/nowhere; export TESSEL_LAB_CAPTURE; cd " +
                      scratch.path().string() +
                      "; ln -s " LAB_TOOL " iface_show; ./iface_show -x "
                      "2>/dev/full")
                .status,
            127);
}

// A file that is opened while standard error is closed must not take its place.
TEST(command_line, writes_no_message_into_a_file_of_its_own) {
  const lab_test::scratch_folder scratch;
  const outcome made = run_shell("cd " + scratch.path().string() +
                                 "; TESSEL_LAB_ROUTERS=" LAB_ROUTERS " " LAB_PROGRAM
                                 " render birch-small out >&- 2>&-; grep -rl '^tessel-lab' out");
  EXPECT_EQ(made.out, "");
  EXPECT_TRUE(fs::is_regular_file(scratch.path() / "out/manifest"));
  EXPECT_EQ(run_shell("exec >&-; TESSEL_LAB_ROUTERS=" LAB_ROUTERS " " LAB_PROGRAM " list").err,
            "tessel-lab: standard output: Bad file descriptor\n");
}

// Every command that makes something makes the folders above it, and removes those if it fails.
TEST(command_line, makes_the_folders_above_a_target) {
  const lab_test::scratch_folder scratch;
  const std::string start = "cd " + scratch.path().string() +
                            "; export TESSEL_LAB_ROUTERS=" LAB_ROUTERS "; lab=" LAB_PROGRAM "; ";
  const outcome made = run_shell("set -e; " + start +
                                 "$lab render birch-small a/b/c\n"
                                 "$lab generate d/e\n"
                                 "$lab pack a/b/c f/g/h/packed\n"
                                 "$lab unpack f/g/h/packed i/j\n"
                                 "$lab redact i/j k/l/m/n >/dev/null\n"
                                 "for i in a/b/c d/e i/j k/l/m/n; do ls $i/manifest; done");
  EXPECT_EQ(made.status, 0) << made.err;
  EXPECT_EQ(made.out, "a/b/c/manifest\nd/e/manifest\ni/j/manifest\nk/l/m/n/manifest\n");
  for (const char* failing :
       {"unpack a/b/c/manifest x/y/z", "redact a x/y/z", "pack d x/y/z",
        "redact a/b/c x/y/z >/dev/full", "run a/b/c --record x/y/z --host /bin/true --library x"}) {
    EXPECT_EQ(run_shell(start + "$lab " + failing).status, 1) << failing;
    EXPECT_FALSE(fs::exists(scratch.path() / "x")) << failing;
  }
}

TEST(command_line, finds_the_routers_beside_itself_or_where_it_was_installed) {
  const lab_test::scratch_folder scratch;
  const std::string at = "unset TESSEL_LAB_ROUTERS; cd " + scratch.path().string() + "; ";
  fs::create_directories(scratch.path() / "bin");
  fs::copy_file(LAB_PROGRAM, scratch.path() / "bin/tessel-lab");
  const outcome nowhere = run_shell(at + "bin/tessel-lab list");
  EXPECT_EQ(nowhere.status, 1) << nowhere.out;
  const std::string named =
      lab_test::findall("^tessel-lab: (.*): there is no such directory of routers\n", nowhere.err)
          .at(0)
          .at(0);
  EXPECT_EQ(named.find(scratch.path().string()), 0U) << named;
  EXPECT_EQ(named.find(LAB_ROUTERS), std::string::npos) << named;
  fs::create_directories(named);
  fs::copy_file(LAB_ROUTERS "/elm-single.toml", fs::path{named} / "willow.toml");
  EXPECT_EQ(run_shell(at + "bin/tessel-lab list").out.find("willow "), 0U);
  fs::create_directories(scratch.path() / "bin/routers");
  fs::copy_file(LAB_ROUTERS "/elm-single.toml", scratch.path() / "bin/routers/oak.toml");
  EXPECT_EQ(run_shell(at + "bin/tessel-lab list").out.find("oak "), 0U);
}

TEST(command_line, refuses_a_latency_before_it_makes_anything) {
  const lab_test::scratch_folder scratch;
  // Any file can be the host and the library, as neither is used.
  const outcome refused = run_shell("TMPDIR=" + scratch.path().string() +
                                    " TESSEL_LAB_ROUTERS=" LAB_ROUTERS " " LAB_PROGRAM
                                    " run birch-small --host " LAB_PROGRAM " --library " LAB_PROGRAM
                                    " --latency ssh=5");
  EXPECT_EQ(refused.status, 64);
  EXPECT_EQ(refused.err,
            "tessel-lab: run: latency \"ssh=5\": a time needs its unit, as in 150ms or 0.15s; see "
            "tessel-lab run --help\n");
  EXPECT_TRUE(fs::is_empty(scratch.path()));
}

TEST(command_line, failure_is_one_line) {
  struct row {
    const char* why;
    const char* arguments;
    int status;
    const char* message;
  };
  const row rows[] = {
      {"nothing", "", 64, "tessel-lab: no command; see tessel-lab --help\n"},
      {"unknown command", "audit", 64,
       "tessel-lab: unknown command \"audit\"; see tessel-lab --help\n"},
      {"unknown option", "run birch-small --slow", 64,
       "tessel-lab: run: unknown option --slow; see tessel-lab run --help\n"},
      {"an option of another command", "render birch-small out --logs x", 64,
       "tessel-lab: render: unknown option --logs; see tessel-lab render --help\n"},
      {"an option without its value", "run birch-small --logs", 64,
       "tessel-lab: run: --logs needs a value; see tessel-lab run --help\n"},
      {"no router", "run", 64,
       "tessel-lab: run: ROUTER|CAPTURE|PACKED is missing; see tessel-lab run --help\n"},
      {"no folder", "render birch-small", 64,
       "tessel-lab: render: OUT is missing; see tessel-lab render --help\n"},
      {"a fault in a capture", "run " LAB_ROUTERS " --fault chip-mtu", 64,
       "tessel-lab: run: a fault is planted into a router, not into a capture; see tessel-lab run "
       "--help\n"},
      {"an unknown router", "run willow-huge", 1,
       "tessel-lab: there is no router \"willow-huge\" in " LAB_ROUTERS
       "; `tessel-lab list` shows the names; a file name ends in .toml\n"},
      {"an unknown fault", "run birch-small --fault rust", 1,
       "tessel-lab: there is no fault \"rust\"; `tessel-lab faults` lists them\n"},
      {"no such host", "run birch-small --host /nowhere", 1,
       "tessel-lab: /nowhere: there is no such file; name it with --host\n"},
      {"a folder that is not a capture", "run /usr", 1,
       "tessel-lab: /usr: not a capture: it has no manifest\n"},
  };
  for (const row& r : rows) {
    const outcome refused = lab_program(r.arguments);
    EXPECT_EQ(refused.status, r.status) << r.why;
    EXPECT_EQ(refused.err, r.message) << r.why;
    EXPECT_EQ(refused.out, "") << r.why;
  }
}

TEST(command_line, names_of_folders_may_end_in_a_slash) {
  const lab_test::scratch_folder scratch;
  const outcome made = run_shell("set -e; cd " + scratch.path().string() +
                                 "; export TESSEL_LAB_ROUTERS=" LAB_ROUTERS "; lab=" LAB_PROGRAM
                                 "\n"
                                 "$lab render birch-small rendered/\n"
                                 "$lab generate generated/.\n"
                                 "$lab pack rendered/ packed\n"
                                 "$lab unpack packed unpacked/./\n"
                                 "$lab redact rendered/ redacted/\n"
                                 "$lab redact packed ./again/. >/dev/null\n"
                                 "grep -h ^router */manifest\n"
                                 "ls -A\n");
  EXPECT_EQ(made.status, 0) << made.err;
  EXPECT_EQ(made.out.substr(made.out.find("router =")),
            "router = \"again\"\n"
            "router = \"generated-birch\"\n"
            "router = \"redacted\"\n"
            "router = \"birch-small\"\n"
            "router = \"birch-small\"\n"
            "again\ngenerated\npacked\nredacted\nrendered\nunpacked\n");
}

TEST(command_line, refuses_a_place_before_it_makes_anything) {
  struct row {
    const char* arguments;
    const char* message;  // after the scratch folder's path
  };
  const row rows[] = {
      {"--record there", "/there: exists already"},
      {"--record there/", "/there: exists already"},
      {"--record file/", "/file: exists already"},
      {"--record .", ": exists already"},
      {"--record file/out", "/file: is not a folder"},
      {"--record file/above/out", "/file: is not a folder"},
      {"--record a:b", "a:b: there is a colon in it; record to a place without one"},
      {"--record out --logs out/", "/out: the recording is made there; name another place"},
      {"--record out --logs out/logs", "/out/logs: the recording is made there; name another"},
      {"--record out --keep-calls out", "/out: the recording is made there; name another"},
      {"--keep-calls there", "/there: is a folder; name a file with --keep-calls"},
      {"--keep-calls file/calls", "/file: is not a folder"},
      {"--keep-calls calls --record there", "/there: exists already"},
      {"--keep-calls file --logs file/logs",
       "file/logs: the folder for the logs cannot be used: Not a directory"},
      {"--keep-calls calls --logs file",
       "file: the folder for the logs cannot be used: Not a directory"},
      {"--logs logs --record there", "/there: exists already"},
      {"--logs logs --keep-calls there", "/there: is a folder"},
      {"--logs file", "file: the folder for the logs cannot be used: Not a directory"},
      {"--record ''", "the name of the target is empty"},
  };
  if (!has_namespace()) return lab_test::cannot_run_here("no namespaces");
  for (const row& r : rows) {
    const lab_test::scratch_folder scratch;
    write_text(scratch.path() / "file", "kept");
    fs::create_directory(scratch.path() / "there");
    const outcome refused =
        run_shell("cd " + scratch.path().string() + " && TMPDIR=" + scratch.path().string() +
                  " TESSEL_LAB_ROUTERS=" LAB_ROUTERS " " LAB_PROGRAM
                  " run birch-small --host " LAB_PROGRAM " --library " LAB_PROGRAM " " +
                  r.arguments);
    EXPECT_EQ(refused.status, 1) << r.arguments;
    EXPECT_NE(refused.err.find(r.message), std::string::npos) << r.arguments << refused.err;
    EXPECT_EQ(std::count(refused.err.begin(), refused.err.end(), '\n'), 1) << refused.err;
    EXPECT_EQ(read_text(scratch.path() / "file"), "kept") << r.arguments;
    fs::remove(scratch.path() / "file");
    fs::remove(scratch.path() / "there");
    EXPECT_TRUE(fs::is_empty(scratch.path())) << r.arguments;
  }
}

TEST(command_line, needs_the_tools_program_beside_itself) {
  const lab_test::scratch_folder scratch;
  const fs::path tool = scratch.path() / "tessel-lab-tool";
  fs::copy_file(LAB_PROGRAM, scratch.path() / "tessel-lab");
  const auto expect_refused = [&](const std::string& cause) {
    for (const char* command : {"run birch-small --logs logs", "record cap"}) {
      const outcome refused = run_shell("cd " + scratch.path().string() +
                                        " && TESSEL_LAB_ROUTERS=" LAB_ROUTERS " ./tessel-lab " +
                                        command + " --host /bin/true --library /bin/true");
      EXPECT_EQ(refused.status, 1) << command;
      EXPECT_EQ(refused.err, "tessel-lab: " + tool.string() + ": cannot be executed: " + cause +
                                 "; it stands in for the router's tools; copy it there from the "
                                 "folder that tessel-lab was built or installed in\n")
          << command;
      EXPECT_FALSE(fs::exists(scratch.path() / "logs"));
    }
  };
  expect_refused("No such file or directory");
  fs::copy_file(LAB_TOOL, tool);
  fs::permissions(tool, fs::perms::owner_read);
  expect_refused("Permission denied");
}

// A failure with a file is reported in one line with the cause and the file's name as the user gave
// it; nothing is left behind.
struct reported_failure {
  const char* line;  // "lab" is the program
  int status;
  const char* message;
};

// `within` runs the file with the line.
void expect_reported(const std::string& within, const std::string& preparation,
                     const std::vector<reported_failure>& rows) {
  const lab_test::scratch_folder scratch;
  fs::permissions(scratch.path(), fs::perms::all);
  fs::copy_file(LAB_PROGRAM, scratch.path() / "tessel-lab");
  fs::copy_file(LAB_TOOL, scratch.path() / "tessel-lab-tool");
  fs::copy(LAB_ROUTERS, scratch.path() / "routers");
  const std::string start = "cd " + scratch.path().string() +
                            "; export TESSEL_LAB_ROUTERS=$PWD/routers TMPDIR=$PWD/tmp\n"
                            "alias lab=$PWD/tessel-lab\n";
  const outcome prepared =
      run_shell(start +
                "mkdir -m 777 tmp open; echo text >text\n"
                "printf '#!/bin/sh\\nfor i in 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16; do\\n"
                "iface_show -i \".*\"; iface_show -i \".*\"; done >/dev/null\\n' >host\n"
                "chmod 755 host\n"
                "lab render birch-small cap\nlab pack cap packed\nchmod 644 packed\n" +
                preparation);
  ASSERT_EQ(prepared.status, 0) << prepared.err;
  const auto names = [&] {
    return run_shell("cd " + scratch.path().string() + "; find . | sort").out;
  };
  const std::string before = names();
  for (const reported_failure& row : rows) {
    write_text(scratch.path() / "line", start + row.line + "\n");
    fs::permissions(scratch.path() / "line", fs::perms::others_read, fs::perm_options::add);
    const outcome failed = run_shell("cd " + scratch.path().string() + " && " + within + " line");
    fs::remove(scratch.path() / "line");
    EXPECT_EQ(failed.status, row.status) << row.line;
    EXPECT_EQ(failed.out, "") << row.line;
    EXPECT_EQ(failed.err.find("tessel-lab: "), 0U) << row.line << "\n" << failed.err;
    EXPECT_NE(failed.err.find(row.message), std::string::npos) << row.line << "\n" << failed.err;
    EXPECT_EQ(std::count(failed.err.begin(), failed.err.end(), '\n'), 1) << failed.err;
    EXPECT_EQ(failed.err.find("/."), std::string::npos)
        << "a name of the lab's own: " << failed.err;
    EXPECT_EQ(names(), before) << row.line;
  }
}

TEST(command_line, reports_files_of_the_wrong_kind) {
  expect_reported(
      "sh",
      "mkdir folder.toml; cp -r cap linked; ln -s /etc/passwd linked/local/link\n"
      "cp -r cap piped; mkfifo piped/192.0.0.6/pipe; touch plain\n",
      {
          {"lab expect cap", 1, "there is no router \"cap\" in "},
          {"lab render folder.toml out", 1, "folder.toml: is a folder\n"},
          {"lab render birch-small out --fault node-down=0/0/CPU0", 1,
           "fault node-down needs a run with --real-ssh\n"},
          {"lab run birch-small --host plain --library plain", 1,
           "plain: cannot be executed: Permission denied; name another with --host\n"},
          {"lab pack nope out", 1, "nope: there is no such capture\n"},
          {"lab pack packed out", 1, "packed: not a capture: it is not a folder\n"},
          {"lab pack cap out/", 1, "out/: a packed capture is a file, not a folder\n"},
          {"lab pack cap ''", 1, "the name of the target is empty\n"},
          {"lab unpack packed text/a/b", 1, "/text: is not a folder\n"},
          {"lab redact cap out >/dev/full", 1, "standard output: No space left on device\n"},
          {"lab redact linked out", 1, "linked: local/link: neither a regular file nor a folder\n"},
          {"lab redact piped out", 1,
           "piped: 192.0.0.6/pipe: neither a regular file nor a folder\n"},
          {"lab diff cap piped", 2, "piped: 192.0.0.6/pipe: neither a regular file nor a folder\n"},
          {"lab list >/dev/full", 1, "standard output: No space left on device\n"},
          {"lab faults >/dev/full", 1, "standard output: No space left on device\n"},
          {"lab diff cap cap >/dev/full", 2, "standard output: No space left on device\n"},
      });
}

TEST(command_line, reports_what_is_denied) {
  const std::string nobody = "setpriv --reuid 65534 --regid 65534 --clear-groups";
  if (run_shell(nobody + " unshare --user --map-root-user --mount true").status != 0)
    return lab_test::cannot_run_here("needs root, to become somebody else who has namespaces");
  expect_reported(
      nobody + " sh",
      "mkdir closed hidden; chmod 700 hidden; cp -r cap secret; chmod 0 secret/manifest\n"
      "chmod 755 secret\n",
      {
          {"lab render birch-small hidden/out", 1, "hidden/out: Permission denied\n"},
          {"lab render birch-small closed/out", 1, "closed/out: no folder can be made beside it"},
          {"lab generate closed/above/out", 1,
           "/closed/above: cannot be made: Permission denied\n"},
          {"lab run hidden/cap", 1, "hidden/cap: Permission denied\n"},
          {"lab run hidden/x.toml", 1, "hidden/x.toml: Permission denied\n"},
          {"lab diff cap hidden/cap", 2, "hidden/cap: Permission denied\n"},
          {"lab redact secret open/out", 1, "secret/manifest: cannot be read: Permission denied\n"},
          {"lab run birch-small --logs closed --host host --library text", 1,
           "closed: the folder for the logs cannot be used: Permission denied\n"},
          {"lab run birch-small --keep-calls text --host host --library text", 1,
           "/text: cannot be written: Permission denied\n"},
          {"lab run birch-small --record closed/out --host host --library text", 1,
           "/closed: no file can be made in it: Permission denied\n"},
          {"lab run birch-small --real-ssh --host host --library text", 77,
           "--real-ssh needs root"},
          {"TMPDIR=$PWD/closed lab run birch-small --host host --library text", 1,
           "cannot be made: Permission denied; name a folder with --logs\n"},
      });
}

TEST(command_line, reports_that_there_are_no_namespaces) {
  const std::string without =
      "unshare --user --map-root-user sh -c 'echo 0 >/proc/sys/user/max_mnt_namespaces &&"
      " echo 0 >/proc/sys/user/max_user_namespaces && exec sh \"$1\"' sh";
  if (run_shell(without + " /dev/null").status != 0)
    return lab_test::cannot_run_here("no user namespace");
  constexpr const char* limit =
      "no mount namespace: no more may be made: a limit in /proc/sys/user is reached; raise it, or "
      "end programs that hold namespaces\n";
  expect_reported(without, "",
                  {
                      {"lab run birch-small --host host --library text", 77, limit},
                      {"lab run birch-small --host host --library text --record out", 77, limit},
                      {"lab record out --host host --library text", 77, limit},
                  });
}

// The root of a chroot need not be a mount; only the mount above it can be made private.
TEST(command_line, works_in_a_plain_chroot) {
  const std::string start =
      "unshare --mount --propagation private sh -e -c '"
      "mount -t tmpfs none /mnt; mount --make-shared /mnt; cd /mnt; mkdir root; cd root\n"
      "for i in bin lib lib64 usr sbin etc; do\n"
      "  [ ! -e /$i ] || { mkdir $i; mount --bind /$i $i; }\ndone\n"
      "mkdir -p proc dev tmp opt/nos/bin var/log lab; mount --rbind /proc proc; mount --rbind /dev "
      "dev\n"
      "cp " LAB_PROGRAM " lab/tessel-lab; cp " LAB_TOOL " lab/tessel-lab-tool; cp -r " LAB_ROUTERS
      " lab/routers\n"
      "printf \"#!/bin/sh\\niface_show -i .; echo \\$? \\$(ls /lab)\\n\" >lab/host; chmod 755 "
      "lab/host\n"
      "printf \"#!/bin/sh\\nls -d /lab /mnt/root; pwd\\n\" >opt/nos/bin/iface_show\n"
      "chmod 755 opt/nos/bin/iface_show\n";
  const std::string in_chroot =
      "chroot . /bin/sh -c \"cd /lab; PATH=/opt/nos/bin:\\$PATH; ./tessel-lab ";
  const std::string programs = " --host host --library host --logs /tmp/logs\"\n";
  const std::string end = "grep -c /mnt/root/opt /proc/self/mountinfo || true'";
  if (run_shell(start + "true'").status != 0)
    return lab_test::cannot_run_here("needs root, to enter a chroot");
  const outcome run = run_shell(start + in_chroot + "run birch-small" + programs + end);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "127 host routers tessel-lab tessel-lab-tool\n0\n");
  const outcome recorded = run_shell(start + in_chroot + "record cap" + programs +
                                     "trap \"ls lab/cap/manifest\" 0\n" + end);
  EXPECT_EQ(recorded.status, 0) << recorded.err;
  EXPECT_EQ(recorded.out,
            "/lab\n/lab\n0 host routers tessel-lab tessel-lab-tool\n0\nlab/cap/manifest\n");
}

// The host has `--report`, which works from any folder that has both programs.
TEST(command_line, shows_the_host_the_report_program_beside_it) {
  const lab_test::scratch_folder scratch;
  const std::string folder = scratch.path().string();
  const std::string host = folder + "/host";
  lab_test::write_text(host, "#!/bin/sh\nls /opt/nos/libexec\n");
  ASSERT_EQ(run_shell("chmod 755 " + host).status, 0);
  const std::string run = LAB_PROGRAM " run birch-small --host " + host + " --library " + host +
                          " --logs " + folder + "/logs";
  EXPECT_EQ(run_shell(run).out, "tessel-host\ntessel-lab\ntessel-lab-tool\n");
  lab_test::write_text(folder + "/tessel-report", "");
  EXPECT_EQ(run_shell(run).out, "tessel-host\ntessel-lab\ntessel-lab-tool\ntessel-report\n");
}

TEST(command_line, reports_a_full_disk) {
  if (run_shell("unshare --mount mount -t tmpfs none /mnt").status != 0)
    return lab_test::cannot_run_here("no mount namespace");
  const std::string full =
      "unshare --mount sh -c 'mount -t tmpfs -o size=200k none open && sh \"$1\"; status=$?;"
      " ls -A open; exit $status' sh";
  const std::string filled = "head -c 300000 /dev/zero >open/fill 2>/dev/null; ";
  const std::string pack = filled + "lab pack cap open/out; status=$?; rm open/fill; exit $status";
  const std::string record = "lab run cap --logs tmp --host host --library text --record open/out";
  const std::string record_filled = filled + record + "; status=$?; rm open/fill; exit $status";
  expect_reported(
      full, "",
      {
          {"lab render birch-small open/out", 1, "cannot be written: No space left"},
          {"lab generate --bundles 60 open/out/", 1, "cannot be written: No space left"},
          {"lab unpack packed open/out", 1, ": open/out/"},
          {"lab redact packed open/out", 1, ": open/out/"},
          {pack.c_str(), 1, ": open/out: No space left on device\n"},
          {record.c_str(), 1,
           "/open/out/local/iface_show,-i,.%2A: could not be kept: No space left"},
          {record_filled.c_str(), 1, "/open/out"},
      });
}

// A script runs as the host; the library is any file.
class namespace_test : public testing::Test {
 protected:
  void SetUp() override {
    write_text(scratch_.path() / "library", "no library");
    const outcome probe = host("exit 0", "birch-small");
    if (probe.status != lab::missing_privileges) return;
    EXPECT_NE(probe.err, "") << "the missing privilege is named";
    if (std::getenv("CI") != nullptr) FAIL() << probe.err;
    GTEST_SKIP() << probe.err;
  }

  outcome host(const std::string& script, const std::string& arguments) {
    const fs::path file = scratch_.path() / "host.sh";
    write_text(file, "#!/bin/sh\n" + script + "\n");
    fs::permissions(file, fs::perms::owner_all);
    return lab_program("run --host " + file.string() + " --library " +
                       (scratch_.path() / "library").string() + " --logs " + logs().string() + " " +
                       arguments);
  }
  fs::path logs() const { return scratch_.path() / "logs"; }

  lab_test::scratch_folder scratch_;
};

TEST_F(namespace_test, passes_the_hosts_status_on) {
  EXPECT_EQ(host("exit 0", "birch-small").status, 0);
  EXPECT_EQ(host("exit 3", "birch-small").status, 3);
  EXPECT_EQ(host("kill -9 $$", "birch-small").status, 137);
}

TEST_F(namespace_test, gives_the_host_its_library_and_node_id) {
  const outcome result = host("echo \"$@\"; cat $2", "birch-small");
  EXPECT_EQ(result.out, "--library /opt/nos/lib/libtessel.so --node-id 4096\nno library");
  EXPECT_EQ(host("echo \"$@\"", "birch-small -- --node-id 7 more").out,
            "--library /opt/nos/lib/libtessel.so --node-id 7 more\n");
  EXPECT_EQ(host("echo \"$@\"", "birch-small -- --library=x").out, "--node-id 4096 --library=x\n");
  EXPECT_EQ(
      host("printf '<%s>' \"$@\"", "birch-small -- --node-id 7 --library= --help -- -x ''").out,
      "<--node-id><7><--library=><--help><--><-x><>");
}

TEST_F(namespace_test, tools_answer_there) {
  const outcome result = host(
      "/opt/nos/bin/sw_version_show | grep -c processor\n"
      "node_id_convert -I 0/1/CPU0\n"
      "ssh  -q -o 'StrictHostKeyChecking=no' 192.0.0.7 /opt/nos/bin/fwd_object_show -t lagport -D"
      " | grep -c element\n"
      "command -v ssh",
      "birch-small");
  EXPECT_EQ(result.out, "1\n0x1000001\n13\n/opt/nos/bin/ssh\n");
}

TEST_F(namespace_test, leaves_the_logs_behind_and_nothing_else) {
  std::string mark = "/tmp/lab-test-mark.XXXXXX";  // the machine's own
  close(mkstemp(mark.data()));
  write_text(mark, "kept");
  const outcome result = host(
      "echo finding >/var/log/tessel_exception.log\n"
      "echo capture >/tmp/tessel_0.log\n"
      "rm -f /tmp/*; rm -f /opt/nos/bin/ssh\n"
      "ls /tmp | wc -l",
      "birch-small");
  EXPECT_EQ(result.out, "0\n");
  EXPECT_EQ(read_text(logs() / "tessel_exception.log"), "finding\n");
  EXPECT_EQ(read_text(mark), "kept");
  fs::remove(mark);
  EXPECT_FALSE(fs::exists("/tmp/tessel_0.log"));
  EXPECT_FALSE(fs::exists("/var/log/tessel_exception.log"));
  EXPECT_FALSE(fs::exists("/opt/nos"));
}

TEST_F(namespace_test, keeps_the_calls_among_the_logs) {
  host("lagmgr_health >/dev/null", "birch-small --keep-calls " + (logs() / "calls").string());
  EXPECT_EQ(read_text(logs() / "calls"), "lagmgr_health\n");
  fs::remove_all(logs());
  host("lagmgr_health >/dev/null", "birch-small --keep-calls " + (logs() / "calls").string());
  EXPECT_EQ(read_text(logs() / "calls"), "lagmgr_health\n") << "in a folder that is made";
}

TEST_F(namespace_test, keeps_the_calls) {
  const fs::path calls = scratch_.path() / "calls";
  host("plat_nodes_show -v >/dev/null; lagmgr_health >/dev/null",
       "birch-small --keep-calls " + calls.string());
  EXPECT_EQ(read_text(calls), "plat_nodes_show -v\nlagmgr_health\n");
}

// Takes the value of the last option --journal, as the host does.
constexpr const char* journaling =
    "while [ $# -gt 0 ]; do case $1 in --journal) file=$2;; --journal=*) file=${1#*=};; esac\n"
    "shift; done; echo line >>$file; echo $file";

TEST_F(namespace_test, the_hosts_journal_is_the_callers_file) {
  const std::string folder = scratch_.path().string();
  const std::string run = "cd " + folder +
                          "; TESSEL_LAB_ROUTERS=" LAB_ROUTERS " timeout 60 " LAB_PROGRAM
                          " run birch-small --host ./host.sh --library"
                          " library --logs logs -- ";
  host(journaling, "birch-small");
  const outcome relative = run_shell(run + "--journal relative");
  EXPECT_EQ(relative.out, "/opt/nos/journal\n") << relative.err;
  EXPECT_EQ(read_text(scratch_.path() / "relative"), "line\n");
  EXPECT_EQ(fs::status(scratch_.path() / "relative").permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
  run_shell(run + "--journal=" + folder + "/first --journal=" + folder + "/last");
  EXPECT_EQ(read_text(scratch_.path() / "last"), "line\n");
  run_shell(run + "--journal logs/journal");
  EXPECT_EQ(read_text(logs() / "journal"), "line\n");
  // The machine's own /var/log is not touched.
  const fs::path machines = fs::path{"/var/log"} / scratch_.path().filename();
  const outcome made = run_shell(run + "--journal " + machines.string() + "/journal");
  EXPECT_EQ(made.status, 0) << made.err;
  EXPECT_EQ(read_text(logs() / machines.filename() / "journal"), "line\n");
  EXPECT_FALSE(fs::exists(machines));
}

TEST_F(namespace_test, a_journal_that_cannot_become_a_file_is_refused_before_the_audit) {
  const fs::path link = scratch_.path() / "link";
  fs::create_symlink("nowhere", link);
  const outcome refused = host("echo ran", "birch-small -- --journal " + link.string());
  EXPECT_EQ(refused.out, "");
  EXPECT_EQ(refused.err,
            "tessel-lab: " + link.string() + ": is not a file; name another with --journal\n");
  const std::string lost = (scratch_.path() / "library" / "such").string();
  EXPECT_EQ(host("echo ran", "birch-small -- --journal " + lost).err,
            "tessel-lab: " + lost + ": cannot be written: Not a directory\n");
}

// Writes to the file that the last argument names, as the host does when an audit has ended.
constexpr const char* writing = "for word; do :; done; file=${word#--json=}; echo line >\"$file\"";

TEST_F(namespace_test, the_hosts_files_are_the_callers) {
  const std::string folder = scratch_.path().string();
  fs::create_directories(scratch_.path() / "work" / "inner");
  host(writing, "birch-small -- --json " + folder + "/first");
  const std::string run =
      "cd " + folder +
      "/work; TESSEL_LAB_ROUTERS=" LAB_ROUTERS " timeout 60 " LAB_PROGRAM
      " run birch-small --host ../host.sh --library ../library --logs ../logs -- ";
  for (const std::string named :
       {"--json relative", "--json inner/file", "--json=../above", "--support-file support",
        "--json new/inner/file", "--support-file ../other/new/support"}) {
    const fs::path file = scratch_.path() / "work" / named.substr(named.find_first_of(" =") + 1);
    const outcome made = run_shell(run + named);
    EXPECT_EQ(made.status, 0) << made.err;
    EXPECT_EQ(read_text(file), "line\n") << named;
  }
  // The lab covers /tmp, but not this folder of it.
  lab_test::scratch_folder of_tmp;
  const std::string below = "/tmp/" + of_tmp.path().filename().string();
  fs::create_directories(below);
  for (const std::string named : {"--json ", "--json=", "--support-file "}) {
    const outcome made = host(writing, "birch-small -- " + named + below + "/file");
    EXPECT_EQ(made.status, 0) << made.err;
    EXPECT_EQ(read_text(below + "/file"), "line\n") << named;
    fs::remove(below + "/file");
  }
  EXPECT_EQ(host(writing, "birch-small -- --json " + below + "/new/inner/file").status, 0);
  EXPECT_EQ(read_text(below + "/new/inner/file"), "line\n");
  fs::remove_all(below);
  // A pipe of the caller's.
  const outcome piped =
      run_shell("{ " + run + "--json /dev/fd/8 8>&1 >/dev/null | cat; } 2>/dev/null");
  EXPECT_EQ(piped.out, "line\n");
  EXPECT_EQ(host(writing, "birch-small -- --json /dev/null").status, 0);
  // The host refuses it.
  EXPECT_EQ(host("printf '<%s>' \"$@\"", "birch-small -- --node-id 7 --library= --json ''").out,
            "<--node-id><7><--library=><--json><>");
  // The folder of the logs may have to be made first.
  fs::remove_all(logs());
  const outcome made = host(writing, "birch-small -- --json " + (logs() / "file").string());
  EXPECT_EQ(made.status, 0) << made.err;
  EXPECT_EQ(read_text(logs() / "file"), "line\n");
}

TEST_F(namespace_test, a_file_that_would_vanish_with_the_run_is_refused_before_the_audit) {
  fs::remove_all(logs());
  for (const std::string named :
       {"/tmp/file", "/tmp/tessel-mine/file", "/opt/file", "/opt/nos/file"})
    for (const std::string option : {"--json ", "--json=", "--support-file "}) {
      const outcome refused = host("echo ran", "birch-small -- " + option + named);
      EXPECT_EQ(refused.status, 1);
      EXPECT_EQ(refused.out, "");
      EXPECT_EQ(refused.err, "tessel-lab: " + named + ": would vanish with the run, which has " +
                                 (named.starts_with("/tmp") ? "a /tmp" : "an /opt") +
                                 " of its own; give it a relative name, or one in another "
                                 "folder\n");
      EXPECT_FALSE(fs::exists(logs()));
    }
}

// Who writes there would do it together with the audit.
TEST_F(namespace_test, a_log_of_the_audit_is_refused_before_the_audit) {
  fs::remove_all(logs());
  const std::string log = "/tessel_debug.log";
  for (const std::string option : {"--json ", "--support-file=", "--journal "})
    for (const std::string& name : {log, log + ".1"}) {
      const std::string file = logs().string() + name;
      const outcome refused =
          host("echo ran", std::string("birch-small -- ").append(option).append(file));
      EXPECT_EQ(refused.status, 1);
      EXPECT_EQ(refused.out, "");
      EXPECT_EQ(refused.err,
                "tessel-lab: " + file + ": is a log of the audit; name another file\n");
      EXPECT_FALSE(fs::exists(logs()));
    }
  EXPECT_EQ(host("echo ran", "birch-small -- --journal /var/log/tessel_debug.log").status, 1);
  for (const char* const other : {"/tessel_journal.jsonl", "/tessel_mine.log"})
    EXPECT_EQ(host("echo ran", "birch-small -- --journal " + logs().string().append(other)).status,
              0)
        << other;
  EXPECT_EQ(host("echo ran", "birch-small -- --json " + logs().string() + log + ".old").status, 1);
}

// There are folders and files among the devices.
TEST_F(namespace_test, a_file_among_the_devices_is_like_any_other) {
  const fs::path folder = fs::path{"/dev/shm"} / scratch_.path().filename();
  std::error_code failure;
  if (!fs::create_directories(folder / "logs", failure))
    GTEST_SKIP() << folder << ": " << failure.message();
  const std::string log = (folder / "logs/tessel_debug.log").string();
  write_text(log, "log\n");
  for (const std::string option : {"--json ", "--support-file="}) {
    const outcome refused =
        host(writing, "birch-small --logs " + (folder / "logs").string() + " -- " + option + log);
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err, "tessel-lab: " + log + ": is a log of the audit; name another file\n");
  }
  EXPECT_EQ(read_text(log), "log\n");
  const fs::path file = folder / "new/inner/file";
  const outcome made = host(writing, "birch-small -- --json " + file.string());
  EXPECT_EQ(made.status, 0) << made.err;
  EXPECT_EQ(read_text(file), "line\n");
  fs::remove_all(folder);
}

TEST_F(namespace_test,
       a_relative_name_that_leads_out_of_the_callers_folder_is_like_an_absolute_one) {
  const lab_test::scratch_folder of_tmp;
  const fs::path below = "/tmp/" + of_tmp.path().filename().string();
  fs::create_directories(below);
  const fs::path before = fs::current_path();
  const auto refused_from = [&](const fs::path& folder, const std::string& named) {
    fs::current_path(folder);
    const outcome refused = host("echo ran", "birch-small -- --json " + named);
    fs::current_path(before);
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err.find("tessel-lab: " + named + ": would vanish with the run"), 0U)
        << refused.err;
  };
  refused_from(below, "../file");
  refused_from("/", "tmp/file");
  refused_from("/", "opt/file");
  fs::remove(below);
}

TEST_F(namespace_test, the_host_refuses_a_file_without_a_name) {
  for (const std::string option : {"--json ''", "--json=", "--support-file ''"}) {
    const outcome made = host("echo ran", "birch-small -- " + option);
    EXPECT_EQ(made.status, 0) << made.err;
    EXPECT_EQ(made.out, "ran\n");
  }
}

// The host's finding is what the script prints about the capture.
TEST_F(namespace_test, redact_verifies_that_the_findings_stay) {
  const std::string folder = scratch_.path().string();
  ASSERT_EQ(lab_program("render birch-small " + folder + "/cap").status, 0);
  const auto verified = [&](const std::string& finding) {
    const fs::path file = scratch_.path() / "host.sh";
    write_text(file,
               "#!/bin/sh\necho '2026-01-01 00:00:00,00'$(($$ % 10))': Inconsistency '$$': '$(" +
                   finding + ") >>/var/log/tessel_inconsistencies.log\necho Done\n");
    fs::permissions(file, fs::perms::owner_all);
    return lab_program("redact --verify --host " + file.string() + " --library " + folder +
                       "/library --mapping " + folder + "/private/names " + folder + "/cap " +
                       folder + "/harmless");
  };
  const std::string configuration = "cfg_render -c -l 1 -t 1 -o 1 | ";
  const outcome changed = verified(configuration + "grep -c lab.example");
  EXPECT_EQ(changed.status, 1);
  EXPECT_EQ(changed.err, "tessel-lab: " + folder +
                             "/harmless: not made, it gives other findings: "
                             "tessel_inconsistencies.log lacks \"Inconsistency #: 1\"\n");
  EXPECT_FALSE(fs::exists(scratch_.path() / "harmless"));
  EXPECT_FALSE(fs::exists(scratch_.path() / "private"));
  EXPECT_EQ(verified("exit 3").status, 0) << "both runs may fail, if they do so alike";
  fs::remove_all(scratch_.path() / "harmless");
  fs::remove_all(scratch_.path() / "private");

  // A finding may quote what is replaced.
  const outcome same =
      verified(configuration + "grep -e hostname -e 'ipv4 address' | tr '\\n' ' '");
  EXPECT_EQ(same.status, 0) << same.err;
  EXPECT_NE(same.out.find("\nVerified: both audits log the same 1 lines.\n"), std::string::npos);
  EXPECT_EQ(fs::status(scratch_.path() / "private/names").permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_NE(read_text(scratch_.path() / "private/names").find("name\tbirch-small\tname-2\n"),
            std::string::npos);
  // A file that would be given away with one of the captures, or packed with it.
  const std::string redact = "redact " + folder + "/cap " + folder + "/other --mapping " + folder;
  for (const auto& [file, what] :
       {std::pair{"/other/names", "is to be given away"}, std::pair{"/cap/names", "is redacted"}}) {
    const outcome refused = lab_program(std::string(redact).append(file));
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err, "tessel-lab: " + folder + file + ": lies in the capture that " + what +
                               "; name another place with --mapping\n");
    EXPECT_FALSE(fs::exists(scratch_.path() / "other"));
  }
}

// The script says what the host logs; it can tell the two captures, and how many audits there were.
TEST_F(namespace_test, redact_leaves_out_what_changes_between_audits_of_the_same_capture) {
  const std::string folder = scratch_.path().string();
  ASSERT_EQ(lab_program("render birch-small " + folder + "/cap").status, 0);
  const fs::path file = scratch_.path() / "host.sh";
  const auto verified = [&](const std::string& script) {
    fs::remove_all(scratch_.path() / "harmless");
    fs::remove(scratch_.path() / "audits");
    write_text(file,
               "#!/bin/sh\necho >>audits; n=$(wc -l <audits)\n"
               "is_original=$(cfg_render -c -l 1 -t 1 -o 1 | grep -c lab.example)\n"
               "exec >>/var/log/tessel_exception.log\n" +
                   script);
    fs::permissions(file, fs::perms::owner_all);
    // Each audit has a /tmp of its own, but its working folder stays.
    const fs::path before = fs::current_path();
    fs::current_path(folder);
    outcome result = lab_program("redact --verify --host " + file.string() + " --library " +
                                 folder + "/library " + folder + "/cap " + folder + "/harmless");
    fs::current_path(before);
    return result;
  };
  const std::string moved = "Two audits of the same capture already differ in ";
  const outcome in_part = verified("echo steady; echo audit $n; exit $((n % 3))");
  EXPECT_EQ(in_part.status, 2) << in_part.err;
  EXPECT_NE(in_part.out.find("\nVerified in part: all audits log the same 1 lines. " + moved +
                             "the audit's exit status, 4 lines of tessel_exception.log.\n"),
            std::string::npos)
      << in_part.out;
  EXPECT_TRUE(fs::exists(scratch_.path() / "harmless"));
  EXPECT_EQ(read_text(scratch_.path() / "audits"), "\n\n\n\n");

  // What redaction changed is told from what moves, however long it moves.
  const outcome changed = verified("echo audit $n; [ $is_original = 0 ] || echo lost");
  EXPECT_EQ(changed.status, 1);
  EXPECT_EQ(changed.err, "tessel-lab: " + folder +
                             "/harmless: not made, it gives other findings: "
                             "tessel_exception.log lacks \"lost\"\n");
  EXPECT_FALSE(fs::exists(scratch_.path() / "harmless"));
  EXPECT_EQ(read_text(scratch_.path() / "audits").size(), 16U);
  // One line that comes by even chances must not pass for a difference.
  EXPECT_EQ(verified("echo steady; exit $is_original").status, 1);
  EXPECT_EQ(read_text(scratch_.path() / "audits").size(), 16U);
  // A finding that comes by chance in one of the captures first.
  const outcome late = verified("[ $n = 2 ] || echo late");
  EXPECT_EQ(late.status, 2) << late.err;
  EXPECT_NE(late.out.find(moved + "1 line of tessel_exception.log.\n"), std::string::npos);
}

// The audit keeps one backup of each log, so that of many findings the oldest are lost.
TEST_F(namespace_test, redact_compares_what_rotation_has_left_of_a_log) {
  const std::string folder = scratch_.path().string();
  ASSERT_EQ(lab_program("render birch-small " + folder + "/cap").status, 0);
  const auto verified = [&](const std::string& script) {
    fs::remove_all(scratch_.path() / "harmless");
    const fs::path file = scratch_.path() / "host.sh";
    write_text(file,
               "#!/bin/sh\n"
               "is_original=$(cfg_render -c -l 1 -t 1 -o 1 | grep -c lab.example)\n"
               "cd /var/log\nlog() { seq -f \"$1 %.0f\" $2 $3; }\n" +
                   script);
    fs::permissions(file, fs::perms::owner_all);
    return lab_program("redact --verify --host " + file.string() + " --library " + folder +
                       "/library " + folder + "/cap " + folder + "/harmless");
  };
  const std::string name = "tessel_exception.log";
  const std::string rotated = " The oldest lines of " + name + " were rotated away.\n";

  const outcome same = verified("log a 1 6 >" + name + ".1; log a 7 10 >" + name);
  EXPECT_EQ(same.status, 2) << same.err;
  EXPECT_NE(same.out.find("\nVerified in part: all audits log the same 10 lines." + rotated),
            std::string::npos)
      << same.out;

  // The log itself is gone.
  const outcome only_backup = verified("log a 1 10 >" + name + ".1");
  EXPECT_EQ(only_backup.status, 2) << only_backup.err;
  EXPECT_NE(only_backup.out.find("the same 10 lines." + rotated), std::string::npos)
      << only_backup.out;
  const outcome other_backup = verified("log a 1 6 >" + name + ".1; log b$is_original 1 6 >>" +
                                        name + ".1; log a 1 2 >tessel_stale_entries.log");
  EXPECT_EQ(other_backup.status, 1);
  EXPECT_NE(other_backup.err.find(name + " lacks \"b1 1\""), std::string::npos) << other_backup.err;

  // Other words in the newer half.
  const outcome other = verified("log a 1 6 >" + name + ".1; log pear$is_original 1 6 >" + name);
  EXPECT_EQ(other.status, 1);
  EXPECT_NE(other.err.find(name + " lacks \"pear1 1\""), std::string::npos) << other.err;
  EXPECT_FALSE(fs::exists(scratch_.path() / "harmless"));

  // One of the two has lost more of its oldest lines.
  const outcome shorter =
      verified("log a $((1 + 2 * is_original)) 6 >" + name + ".1; log a 7 10 >" + name);
  EXPECT_EQ(shorter.status, 2) << shorter.err;
  EXPECT_NE(shorter.out.find("the same 8 lines." + rotated), std::string::npos) << shorter.out;

  // Only one of them was rotated, and nothing is lost.
  const outcome in_one = verified("[ $is_original = 1 ] || { log a 1 6 >" + name +
                                  ".1; log a 7 10 >" + name + "; exit; }; log a 1 10 >" + name);
  EXPECT_EQ(in_one.status, 0) << in_one.err;
  EXPECT_NE(in_one.out.find("\nVerified: both audits log the same 10 lines.\n"), std::string::npos)
      << in_one.out;

  // The console's counts cover what is lost.
  const outcome counted = verified("log a 1 6 >" + name + ".1; log a 7 10 >" + name +
                                   "; echo \"Exceptions : $is_original\"");
  EXPECT_EQ(counted.status, 1);
  EXPECT_NE(counted.err.find("console lacks \"Exceptions : 1\""), std::string::npos) << counted.err;
}

TEST_F(namespace_test, redact_does_not_verify_an_audit_that_cannot_run) {
  const std::string folder = scratch_.path().string();
  ASSERT_EQ(lab_program("render birch-small " + folder + "/cap").status, 0);
  const auto verified_with = [&](const std::string& programs) {
    return lab_program("redact --verify " + programs + " " + folder + "/cap " + folder +
                       "/harmless");
  };
  EXPECT_EQ(verified_with("--host /bin/true --library /nowhere").status, 1);
  const outcome nothing = verified_with("--host /bin/false --library " + folder + "/library");
  EXPECT_EQ(nothing.status, 1);
  EXPECT_EQ(nothing.err, "tessel-lab: " + folder +
                             "/harmless: not made, for the audits of both captures log nothing\n");
  EXPECT_FALSE(fs::exists(scratch_.path() / "harmless"));
}

TEST_F(namespace_test, runs_a_capture_folder) {
  const fs::path folder = scratch_.path() / "capture";
  ASSERT_EQ(lab_program("render aspen-standby " + folder.string()).status, 0);
  EXPECT_EQ(host("/opt/nos/bin/sw_version_show", folder.string()).out,
            read_text(folder / "local" / "sw_version_show"));
}

TEST_F(namespace_test, a_missing_tool_cannot_be_called) {
  const outcome result =
      host("command -v lagmgr_agent_show || echo none", "birch-small --fault tool-missing");
  EXPECT_EQ(result.out, "none\n");
  const fs::path folder = scratch_.path() / "capture";
  ASSERT_EQ(lab_program("render birch-small " + folder.string() + " --fault tool-missing").status,
            0);
  EXPECT_EQ(host("command -v lagmgr_agent_show || echo none", folder.string()).out, "none\n");
}

TEST_F(namespace_test, capture_file_log_and_size_are_denied) {
  const outcome result = host(
      "test -d /tmp/tessel_BM_PI.log && echo folder\n"
      "echo x 2>/dev/null >/var/log/tessel_debug.log || echo no room\n"
      "head -c 9000 /dev/zero >/tmp/large; stat -c %s /tmp/large",
      "birch-small --fault capture-blocked=BM_PI --fault log-full=debug --fault file-limit=7000");
  EXPECT_EQ(result.out, "folder\nno room\n7000\n");
  EXPECT_EQ(read_text(logs() / "tessel_debug.log"), "");
}

TEST_F(namespace_test, tmp_has_the_room_that_a_fault_leaves) {
  const outcome result = host(
      "head -c 90000 /dev/zero >/tmp/large 2>/dev/null; stat -c %s /tmp/large; stat -c %a /tmp",
      "birch-small --fault tmp-full=40");
  EXPECT_EQ(result.out, "40960\n1777\n");
}

TEST_F(namespace_test, signal_ends_the_host_and_its_tools) {
  const fs::path script = scratch_.path() / "host.sh";
  write_text(script,
             "#!/bin/sh\necho $$ >/var/log/host\nsleep 600 & echo $! >/var/log/tool\nwait\n");
  fs::permissions(script, fs::perms::owner_all);
  const std::string log = logs().string();
  const outcome ended = run_shell(
      "export TESSEL_LAB_ROUTERS=" LAB_ROUTERS "\n" LAB_PROGRAM " run birch-small --host " +
      script.string() + " --library " + (scratch_.path() / "library").string() + " --logs " + log +
      " &\nlab=$!\n"
      "n=0; until [ -s " +
      log +
      "/tool ] || [ $n -gt 3000 ]; do sleep 0.02; n=$((n+1)); done\n"
      "kill -TERM $lab; wait $lab; echo status $?\n"
      "for f in host tool; do\n"
      "  n=0; while kill -0 $(cat " +
      log +
      "/$f) 2>/dev/null && [ $n -lt 3000 ]; do\n"
      "    sleep 0.02; n=$((n+1)); done\n"
      "  kill -0 $(cat " +
      log +
      "/$f) 2>/dev/null && echo $f still runs\n"
      "done; true");
  EXPECT_EQ(ended.out, "status 143\n");
}

TEST_F(namespace_test, logs_go_to_a_new_folder_unless_one_is_named) {
  const fs::path script = scratch_.path() / "host.sh";
  write_text(script, "#!/bin/sh\necho x >/var/log/mark\n");
  fs::permissions(script, fs::perms::owner_all);
  const outcome result =
      run_shell("TMPDIR=" + scratch_.path().string() +
                " TESSEL_LAB_ROUTERS=" LAB_ROUTERS " " LAB_PROGRAM " run birch-small --host " +
                script.string() + " --library " + (scratch_.path() / "library").string());
  EXPECT_EQ(result.status, 0);
  const std::string head = "tessel-lab: the logs are in ";
  ASSERT_EQ(result.err.find(head), 0U) << result.err;
  const fs::path folder = result.err.substr(head.size(), result.err.size() - head.size() - 1);
  EXPECT_EQ(read_text(folder / "mark"), "x\n");
}

}  // namespace
