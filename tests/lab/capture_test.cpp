#include "lab/capture/capture.h"
#include "lab/base/error.h"
#include "lab/base/files.h"
#include "lab/base/processes.h"
#include "lab/capture/file_names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>

#include "support.h"

namespace {

using namespace lab;
using lab_test::scratch_folder;

TEST(file_name, holds_tool_and_arguments) {
  struct row {
    const char* why;
    const char* command;
    const char* name;
  };
  const row rows[] = {
      {"no argument", "lagmgr_health", "lagmgr_health"},
      {"the folder of the tool is left out", "/opt/nos/bin/plat_nodes_show -v",
       "plat_nodes_show,-v"},
      {"a file name cannot contain a slash", "node_id_convert -I 0/0/CPU0",
       "node_id_convert,-I,0%2F0%2FCPU0"},
      {"a quoted argument holds blanks", "asic_shell_show -c \"show unit\" -u all -n A",
       "asic_shell_show,-c,show+unit,-u,all,-n,A"},
      {"the last blank of an argument counts", "asic_shell_show -c \"dump T \" -u 0",
       "asic_shell_show,-c,dump+T+,-u,0"},
      {"an equals sign is plain", "asic_shell_show -c \"diag pp lif id=0x4001 gl=1 type=in\"",
       "asic_shell_show,-c,diag+pp+lif+id=0x4001+gl=1+type=in"},
      {"a star is not", "iface_show -i .*", "iface_show,-i,.%2A"},
      {"blanks between words do not count", "  cfg_render   -c ", "cfg_render,-c"},
  };
  for (const row& r : rows) EXPECT_EQ(file_name(r.command), r.name) << r.why;
}

TEST(file_name, differs_where_a_shell_sees_a_difference) {
  EXPECT_NE(file_name("t", {"a b"}), file_name("t", {"a", "b"}));
  EXPECT_NE(file_name("t", {"a+b"}), file_name("t", {"a b"}));
  EXPECT_NE(file_name("t", {"a,b"}), file_name("t", {"a", "b"}));
  EXPECT_NE(file_name("t", {""}), file_name("t", {}));
  EXPECT_NE(file_name("t", {"%2F"}), file_name("t", {"/"}));
}

capture sample() {
  capture c;
  c.router = "odd \"name\"";
  c.host_node_id = 4352;
  c.nodes = {{"192.0.0.4", "0/RP0/CPU0"}, {"192.0.0.6", "0/0/CPU0"}};
  c.missing_tools = {"lagmgr_health"};
  answer(c, "local", "cfg_render -c", std::string("a\0b\xff\n", 5));
  answer(c, "192.0.0.6", "fwd_object_show -t lagport -D", "");
  return c;
}

TEST(capture_folder, comes_back_as_written) {
  const scratch_folder scratch;
  const capture before = sample();
  write_folder(before, scratch.path() / "out");
  ASSERT_TRUE(is_capture_folder(scratch.path() / "out"));
  const capture after = read_folder(scratch.path() / "out");
  EXPECT_EQ(after.router, before.router);
  EXPECT_EQ(after.host_node_id, before.host_node_id);
  EXPECT_EQ(after.nodes, before.nodes);
  EXPECT_EQ(after.missing_tools, before.missing_tools);
  EXPECT_EQ(after.answers, before.answers);
}

TEST(capture_folder, keeps_the_restrictions_of_the_machine) {
  const scratch_folder scratch;
  capture before = sample();
  before.blocked_captures = {"0", "BM_PI"};
  before.full_logs = {"stale_entries"};
  before.file_limit = 50000;
  before.tmp_kibibytes = 40;
  write_folder(before, scratch.path() / "out");
  const capture after = read_manifest(scratch.path() / "out");
  EXPECT_EQ(after.blocked_captures, before.blocked_captures);
  EXPECT_EQ(after.full_logs, before.full_logs);
  EXPECT_EQ(after.file_limit, before.file_limit);
  EXPECT_EQ(after.tmp_kibibytes, before.tmp_kibibytes);
}

TEST(manifest, cannot_name_a_file_elsewhere) {
  const scratch_folder scratch;
  lab_test::write_text(scratch.path() / "manifest",
                       "format = 1\nhost_node_id = 1\nfull_logs = [\"/../../etc/passwd\"]\n");
  EXPECT_THROW(read_manifest(scratch.path()), lab_error);
  lab_test::write_text(scratch.path() / "manifest",
                       "format = 1\nhost_node_id = 1\nblocked_captures = [\"\"]\n");
  EXPECT_THROW(read_manifest(scratch.path()), lab_error);
  lab_test::write_text(scratch.path() / "manifest",
                       "format = 1\nhost_node_id = 1\nfile_limit = -1\n");
  EXPECT_THROW(read_manifest(scratch.path()), lab_error);
}

TEST(capture_folder, every_router_comes_back_as_written) {
  for (const char* name : {"birch-small", "elm-single", "aspen-standby"}) {
    const scratch_folder scratch;
    const capture before = lab_test::rendered_router(name).c;
    write_folder(before, scratch.path() / "out");
    EXPECT_EQ(read_folder(scratch.path() / "out").answers, before.answers) << name;
  }
}

TEST(capture_folder, with_an_odd_name_comes_back_as_written) {
  const scratch_folder scratch;
  capture c = sample();
  c.router = "a\nb\t\x01\x7f\"\\";
  c.nodes = {{"192.0.0.6\r", "0/0\x1b/CPU0"}};
  write_folder(c, scratch.path() / "out");
  EXPECT_EQ(read_folder(scratch.path() / "out").router, c.router);
  EXPECT_EQ(read_folder(scratch.path() / "out").nodes, c.nodes);
}

TEST(capture_folder, does_not_overwrite_another) {
  const scratch_folder scratch;
  write_folder(sample(), scratch.path() / "out");
  EXPECT_THROW(write_folder(sample(), scratch.path() / "out"), lab_error);
}

TEST(capture_folder, leaves_nothing_half_written) {
  const scratch_folder scratch;
  capture c = sample();
  c.answers[{"local", std::string(300, 'x')}] = "no file system takes this name";
  EXPECT_THROW(write_folder(c, scratch.path() / "out"), lab_error);
  EXPECT_TRUE(std::filesystem::is_empty(scratch.path()));
}

TEST(capture_folder, removes_nothing_that_it_did_not_make) {
  const scratch_folder scratch;
  for (const char* name : {"out.tmp", ".out.tmp", "out.recording"})
    lab_test::write_text(scratch.path() / name, "somebody's");
  write_folder(sample(), scratch.path() / "out/");
  EXPECT_EQ(read_folder(scratch.path() / "out").answers, sample().answers);
  for (const char* name : {"out.tmp", ".out.tmp", "out.recording"})
    EXPECT_EQ(lab_test::read_text(scratch.path() / name), "somebody's") << name;
}

// Ends this process by the signal while it writes the capture.
TEST(capture_folder, leaves_nothing_if_a_signal_ends_the_writer) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGKILL}) {
    const scratch_folder scratch;
    const pid_t maker = start([&] {
      build_beside(scratch.path() / "out", [&](const std::filesystem::path& building) {
        std::filesystem::create_directory(building);
        lab_test::write_text(building / "file", "half");
        kill(getpid(), signal);
      });
      return EXIT_SUCCESS;
    });
    int status = 0;
    ASSERT_EQ(collect(maker, status), maker);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << signal;
    for (int i = 0; i < 6000 && !std::filesystem::is_empty(scratch.path()); ++i) usleep(10'000);
    EXPECT_TRUE(std::filesystem::is_empty(scratch.path())) << signal;
  }
}

TEST(capture_folder, makes_the_folders_above_it) {
  const scratch_folder scratch;
  write_folder(sample(), scratch.path() / "above" / "out");
  EXPECT_TRUE(is_capture_folder(scratch.path() / "above" / "out"));
  lab_test::write_text(scratch.path() / "file", "");
  EXPECT_THROW(write_folder(sample(), scratch.path() / "file" / "out"), lab_error);
}

TEST(manifest, of_another_format_is_refused_with_both) {
  const scratch_folder scratch;
  const auto refusal = [&](const std::string& text) {
    lab_test::write_text(scratch.path() / "manifest", text);
    try {
      read_manifest(scratch.path());
    } catch (const lab_error& failure) {
      return std::string{failure.what()}.substr(scratch.path().string().size());
    }
    return std::string{"accepted"};
  };
  EXPECT_EQ(
      refusal("format = 99\nhost_node_id = 1\n"),
      "/manifest: has format 99; this tessel-lab (" + lab_version() + ") reads the formats 1 to 2");
  EXPECT_EQ(refusal("format = 0\nhost_node_id = 1\n").find("/manifest: has format 0; "), 0U);
  EXPECT_EQ(refusal("host_node_id = 1\n"), "/manifest: names no format");
  EXPECT_EQ(refusal("format = 1\n"), "/manifest: host_node_id is not a number of 32 bits");
  EXPECT_EQ(refusal("format = 1\nhost_node_id = 1\n"), "accepted");
  EXPECT_EQ(refusal("format = 2\nhost_node_id = 1\n"),
            "/manifest: has format 2, but names no origin");
  EXPECT_EQ(refusal("format = 2\nhost_node_id = 1\norigin = \"found\"\n"),
            "/manifest:3: origin is \"found\", not recorded, rendered or generated");
  EXPECT_EQ(refusal("format = 2\nhost_node_id = 1\norigin = \"recorded\"\n[files]\ncalls = \"4 "
                    "beef\"\n"),
            "/manifest:5: calls: not \"BYTES SHA-256\"");
  EXPECT_EQ(refusal("format = [\n").find("/manifest:1: "), 0U);
  EXPECT_THROW(read_manifest(scratch.path() / "nowhere"), lab_error);
}

// As the first versions wrote them: without sums, but with a list.
TEST(capture_folder, of_the_first_format_is_read_if_it_has_a_list) {
  const scratch_folder scratch;
  const std::filesystem::path k = scratch.path() / "k";
  std::filesystem::create_directories(k / "local");
  lab_test::write_text(k / "manifest", "format = 1\nrouter = \"k\"\nhost_node_id = 4096\n");
  lab_test::write_text(k / "local" / "iface_show", "four");
  const auto run = [&](const std::string& command) {
    return lab_test::run_shell("cd " + scratch.path().string() + "; " LAB_PROGRAM " " + command);
  };
  EXPECT_EQ(run("diff k k").err,
            "tessel-lab: k: neither calls nor files lists what it must hold\n");
  lab_test::write_text(k / "calls", "0.1 0.1 0 4 local/iface_show\n");
  EXPECT_EQ(run("diff k k").status, 0);
  EXPECT_EQ(
      run("info k").out,
      "router      k\norigin      not known\nformat      1\nnode id     4096\nfiles       2, 33 "
      "bytes\nstate       complete; a capture without sums does not know whether it changed\n");
  lab_test::write_text(k / "local" / "iface_show", "three");
  EXPECT_EQ(run("diff k k").status, 2);
  // What is made of it has this format.
  lab_test::write_text(k / "local" / "iface_show", "four");
  EXPECT_EQ(run("redact k r").status, 0);
  EXPECT_EQ(read_manifest(scratch.path() / "r").made.format, 2);
}

TEST(capture_folder, knows_what_was_edited) {
  const scratch_folder scratch;
  const auto run = [&](const std::string& command) {
    return lab_test::run_shell("cd " + scratch.path().string() +
                               "; export TESSEL_LAB_ROUTERS=" LAB_ROUTERS "; " LAB_PROGRAM " " +
                               command);
  };
  ASSERT_EQ(run("render birch-small k; " LAB_PROGRAM " generate g").status, 0);
  const auto made = run("info k");
  EXPECT_EQ(made.status, 0) << made.err;
  EXPECT_THAT(made.out,
              testing::HasSubstr("type        birch\norigin      rendered by tessel-lab " +
                                 lab_version() + "\nformat      2\n"));
  EXPECT_THAT(made.out, testing::EndsWith("state       complete, as it was made\n"));
  EXPECT_THAT(run("info g").out, testing::HasSubstr("origin      generated by tessel-lab "));
  lab_test::write_text(scratch.path() / "k/local/lagmgr_health", "edited\n");
  EXPECT_EQ(run("diff k k").status, 0) << "you may edit a rendered capture";
  EXPECT_THAT(
      run("info k").out,
      testing::EndsWith("state       complete; 1 of its files changed since it was made, the "
                        "first is local/lagmgr_health\n"));
  std::filesystem::remove(scratch.path() / "k/files");
  EXPECT_EQ(run("diff k k").err, "tessel-lab: k: files is missing; the manifest names it\n");
}

TEST(file_sum, is_the_SHA_256_of_a_file) {
  EXPECT_EQ(sum_of("").sha256, "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  const scratch_folder scratch;
  const std::string large(1'000'000, 'a');
  lab_test::write_text(scratch.path() / "a", large);
  EXPECT_EQ(sum_of(large), sum_of_file(scratch.path() / "a"));
  EXPECT_EQ(sum_of(large).bytes, 1'000'000U);
  EXPECT_EQ(sum_of(large).sha256 + "  " + (scratch.path() / "a").string() + "\n",
            lab_test::run_shell("sha256sum " + (scratch.path() / "a").string()).out);
}

// A capture may come from anybody. No reader of it may read another file of this machine or wait
// for ever.
TEST(capture_folder, with_anything_but_files_is_refused_by_every_reader) {
  namespace fs = std::filesystem;
  struct row {
    const char* why;
    std::function<void(const fs::path&)> spoil;
    const char* message;
  };
  const row rows[] = {
      {"a link in the place of an answer",
       [](const fs::path& k) { fs::create_symlink("/etc/passwd", k / "local" / "lagmgr_health"); },
       "local/lagmgr_health: neither a regular file nor a folder"},
      {"a link that leads nowhere",
       [](const fs::path& k) { fs::create_symlink("nowhere", k / "notes"); },
       "notes: neither a regular file nor a folder"},
      {"a link in the place of a folder",
       [](const fs::path& k) { fs::create_symlink("/etc", k / "etc"); },
       "etc: neither a regular file nor a folder"},
      {"a link in the place of the manifest",
       [](const fs::path& k) {
         fs::rename(k / "manifest", k / "other");
         fs::create_symlink("other", k / "manifest");
       },
       "manifest: neither a regular file nor a folder"},
      {"a pipe that nobody writes to",
       [](const fs::path& k) { ASSERT_EQ(mkfifo((k / "local" / "pipe").c_str(), 0600), 0); },
       "local/pipe: neither a regular file nor a folder"},
      {"a pipe beside the manifest",
       [](const fs::path& k) { ASSERT_EQ(mkfifo((k / "calls").c_str(), 0600), 0); },
       "calls: neither a regular file nor a folder"},
      {"a folder in the place of an answer",
       [](const fs::path& k) { fs::create_directory(k / "local" / "iface_show"); },
       "local/iface_show: a folder where an answer belongs"},
  };
  for (const row& r : rows) {
    const scratch_folder scratch;
    const fs::path k = scratch.path() / "k";
    write_folder(sample(), k);
    r.spoil(k);
    const std::string out = (scratch.path() / "out").string();
    for (const std::string& command :
         {"run " + k.string(), "pack " + k.string() + " " + out, "redact " + k.string() + " " + out,
          "diff " + k.string() + " " + k.string()}) {
      const auto result = lab_test::run_shell("timeout 60 " LAB_PROGRAM " " + command);
      EXPECT_NE(result.status, 0) << r.why;
      EXPECT_EQ(result.err, "tessel-lab: " + k.string() + ": " + r.message + "\n") << r.why;
      EXPECT_FALSE(fs::exists(out)) << r.why;
    }
  }
}

// A file that is missing in a rendered capture would become a finding of the audit with a hidden
// cause.
TEST(capture_folder, that_lacks_a_file_is_refused_by_every_reader) {
  namespace fs = std::filesystem;
  struct row {
    const char* why;
    const char* lost;
    const char* message;
  };
  const row rows[] = {
      {"a file", "local/cfg_render,-c", "local/cfg_render,-c is missing; line 2 of files"},
      {"a node", "192.0.0.6",
       "192.0.0.6/fwd_object_show,-t,lagport,-D is missing; line 1 of files"},
  };
  for (const row& r : rows) {
    const scratch_folder scratch;
    const fs::path k = scratch.path() / "k";
    write_folder(sample(), k);
    fs::remove_all(k / r.lost);
    const std::string out = (scratch.path() / "out").string();
    for (const std::string& command :
         {"run " + k.string(), "pack " + k.string() + " " + out, "redact " + k.string() + " " + out,
          "diff " + k.string() + " " + k.string()}) {
      const auto result = lab_test::run_shell(LAB_PROGRAM " " + command);
      EXPECT_NE(result.status, 0) << r.why;
      EXPECT_EQ(result.err, "tessel-lab: " + k.string() + ": " + r.message +
                                " names it; remove the line if that is intended\n");
    }
  }
}

TEST(capture_folder, may_be_reached_by_a_link) {
  const scratch_folder scratch;
  write_folder(sample(), scratch.path() / "out");
  std::filesystem::create_symlink("out", scratch.path() / "link");
  EXPECT_EQ(read_folder(scratch.path() / "link").answers, sample().answers);
}

TEST(capture_file, is_neither_a_link_nor_a_pipe) {
  const scratch_folder scratch;
  lab_test::write_text(scratch.path() / "file", "text");
  EXPECT_EQ(read_own(scratch.path() / "file"), "text");
  std::filesystem::create_symlink("file", scratch.path() / "link");
  EXPECT_THROW(read_own(scratch.path() / "link"), lab_error);
  ASSERT_EQ(mkfifo((scratch.path() / "pipe").c_str(), 0600), 0);
  EXPECT_THROW(read_own(scratch.path() / "pipe"), lab_error);
  EXPECT_THROW(read_own(scratch.path()), lab_error);
  EXPECT_THROW(read_own(scratch.path() / "nowhere"), lab_error);
}

TEST(manifest, is_refused_with_the_line_that_is_wrong) {
  struct row {
    const char* line;
    const char* message;
  };
  const row rows[] = {
      {"colour = 1\n", "m:3: unknown key \"colour\""},
      {"missing_tools = \"ssh\"\n", "m:3: missing_tools is not a list of texts"},
      {"missing_tools = [1]\n", "m:3: missing_tools is not a text"},
      {"router = 1\n", "m:3: router is not a text"},
      {"nodes = 1\n", "m:3: nodes is not a table"},
      {"[nodes]\n\"192.0.0.4\" = 1\n", "m:4: 192.0.0.4 is not a text"},
      {"file_limit = \"1\"\n", "m: file_limit is not a number of bytes"},
      {"tmp_kibibytes = -1\n", "m: tmp_kibibytes is not a number of kibibytes"},
      {"[[[\n", "m:3: not TOML: the text in brackets is not a name"},
  };
  for (const row& r : rows) {
    std::string message;
    try {
      parse_manifest(std::string{"format = 1\nhost_node_id = 1\n"} + r.line, "m");
    } catch (const lab_error& failure) {
      message = failure.what();
    }
    EXPECT_EQ(message, r.message);
  }
}

TEST(answer, that_is_missing_is_an_error) {
  capture c = sample();
  EXPECT_NO_THROW(answer_to(c, "local", "cfg_render -c"));
  EXPECT_THROW(answer_to(c, "192.0.0.6", "cfg_render -c"), lab_error);
}

}  // namespace
