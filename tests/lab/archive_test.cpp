#include "lab/capture/archive.h"
#include "lab/base/error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <new>

#include "lab/capture/archive_stream.h"
#include "support.h"

namespace {

using namespace lab;
namespace fs = std::filesystem;
using lab_test::read_text;
using lab_test::run_shell;
using lab_test::scratch_folder;
using lab_test::write_text;
using testing::HasSubstr;

capture sample() {
  capture c;
  c.router = "sample";
  c.nodes = {{"192.0.0.6", "0/0/CPU0"}};
  answer(c, "local", "cfg_render -c", std::string("a\0b\xff\n", 5));
  answer(c, "local", "lagmgr_health", std::string(700000, 'x') + "end");
  answer(c, "192.0.0.6", "fwd_object_show -t lagport -D", "");
  // Longer than the name field of an archive's entry, and than both of its name fields.
  answer(c, "local", "asic_shell_show -c " + std::string(120, 'd'), "long");
  answer(c, "local", "asic_shell_show -c " + std::string(190, 'e'), "longer");
  return c;
}

std::string refusal_of(const std::function<void()>& action) {
  try {
    action();
  } catch (const lab_error& refused) {
    return refused.what();
  }
  return "nothing was refused";
}

class archive_test : public testing::Test {
 protected:
  void SetUp() override {
    write_folder(sample(), in("capture"));
    pack_folder(in("capture"), in("packed"));
  }
  fs::path in(const char* name) const { return scratch_.path() / name; }

  // A packed folder "x" with a valid manifest, after a command line has changed it.
  void pack_by_hand(const std::string& line) {
    const auto made =
        run_shell("set -e; cd " + scratch_.path().string() +
                  "; mkdir -p x/local; cp capture/manifest x/; echo 1 >x/local/a\n" + line);
    ASSERT_EQ(made.status, 0) << made.err;
  }
  std::string unpack_refusal(const char* name) {
    const std::string refusal = refusal_of([&] { unpack_folder(in(name), in("out")); });
    EXPECT_FALSE(fs::exists(in("out")));
    for (const auto& entry : fs::directory_iterator(scratch_.path()))
      EXPECT_NE(entry.path().filename().string().front(), '.') << "something half written stayed";
    EXPECT_EQ(refusal_of([&] { read_packed(in(name)); }), refusal);
    EXPECT_EQ(refusal.find('\n'), std::string::npos) << refusal;
    return refusal;
  }
  // The size of the archive before compression.
  std::uint64_t unpacked_size() const {
    return std::stoull(run_shell("zstd -dc <" + in("packed").string() + " | wc -c").out);
  }
  scratch_folder scratch_;
};

TEST_F(archive_test, comes_back_as_packed) {
  unpack_folder(in("packed"), in("out"));
  EXPECT_EQ(run_shell("diff -r " + in("capture").string() + " " + in("out").string()).out, "");
  EXPECT_EQ(read_packed(in("packed")).answers, sample().answers);
  EXPECT_EQ(read_packed(in("packed")).nodes, sample().nodes);
  EXPECT_LT(fs::file_size(in("packed")), 5000U);
}

TEST_F(archive_test, brings_the_journal_of_a_recording) {
  capture c = sample();
  c.calls = "0.0 0.1 0 0 192.0.0.6/fwd_object_show,-t,lagport,-D\n";
  c.journal = "{\"n\":1}\n";
  write_folder(c, in("recorded"));
  pack_folder(in("recorded"), in("recorded.packed"));
  unpack_folder(in("recorded.packed"), in("out"));
  EXPECT_EQ(read_text(in("out") / "journal"), c.journal);
  EXPECT_EQ(read_capture(in("recorded.packed")).journal, c.journal);
  EXPECT_EQ(read_capture(in("recorded")).journal, c.journal);
  EXPECT_EQ(read_capture(in("capture")).journal, "");
  EXPECT_FALSE(fs::exists(in("capture") / "journal")) << "without one, no file";
}

TEST_F(archive_test, is_private_to_the_user_in_either_form) {
  unpack_folder(in("packed"), in("out"));
  EXPECT_EQ(run_shell("cd " + scratch_.path().string() + " && find out packed -perm /077 -ls").out,
            "");
}

TEST_F(archive_test, of_one_capture_is_the_same_file_at_any_time) {
  unpack_folder(in("packed"), in("out"));
  pack_folder(in("out"), in("again"));
  EXPECT_EQ(read_text(in("packed")), read_text(in("again")));
}

TEST_F(archive_test, is_read_by_tar_and_made_by_tar) {
  if (run_shell("tar --version && zstd --version").status != 0) GTEST_SKIP() << "no tar or no zstd";
  const std::string folder = scratch_.path().string();
  EXPECT_EQ(run_shell("cd " + folder +
                      " && mkdir t && tar --zstd -xf packed -C t && diff -r t/capture capture")
                .out,
            "");
  for (const char* format : {"gnu", "ustar", "posix"}) {
    const std::string name = std::string{"of-"} + format;
    // Without access times the POSIX format has records only for long names.
    const auto made = run_shell("cd " + folder + " && tar --format=" + format +
                                " --pax-option=delete=atime,delete=ctime,delete=mtime --zstd -cf " +
                                name + " capture");
    if (made.status != 0) continue;  // the oldest format cannot hold the longest name
    unpack_folder(in(name.c_str()), in((name + ".out").c_str()));
    EXPECT_EQ(run_shell("cd " + folder + " && diff -r capture " + name + ".out").out, "") << name;
  }
}

TEST_F(archive_test, never_overwrites_anything) {
  EXPECT_EQ(refusal_of([&] { pack_folder(in("capture"), in("packed")); }),
            in("packed").string() + ": exists already");
  fs::create_directory(in("there"));
  EXPECT_EQ(refusal_of([&] { unpack_folder(in("packed"), in("there")); }),
            in("there").string() + ": exists already");
}

TEST_F(archive_test, is_made_only_of_a_capture) {
  fs::create_directory(in("empty"));
  EXPECT_EQ(refusal_of([&] { pack_folder(in("empty"), in("out")); }),
            in("empty").string() + ": not a capture: it has no manifest");
  fs::create_symlink("/etc/hostname", in("capture") / "local" / "link");
  EXPECT_EQ(refusal_of([&] { pack_folder(in("capture"), in("out")); }),
            in("capture").string() + ": local/link: neither a regular file nor a folder");
  EXPECT_FALSE(fs::exists(in("out")));
}

TEST_F(archive_test, is_not_made_of_entries_that_unpacking_refuses) {
  const std::string folder = in("capture").string();
  write_text(in("capture") / "local" / ".hidden", "");
  EXPECT_EQ(refusal_of([&] { pack_folder(in("capture"), in("out")); }),
            folder + ": entry \"capture/local/.hidden\": not a place within a capture");
  fs::remove(in("capture") / "local" / ".hidden");
  fs::create_directory(in("capture") / "local" / "deeper");
  write_text(in("capture") / "local" / "deeper" / "file", "");
  EXPECT_EQ(refusal_of([&] { pack_folder(in("capture"), in("out")); }),
            folder + ": local/deeper: a folder where an answer belongs");
  EXPECT_FALSE(fs::exists(in("out")));
}

TEST_F(archive_test, cut_off_anywhere_is_refused) {
  const std::string whole = read_text(in("packed"));
  for (std::size_t size = 0; size < whole.size(); size += size < 40 ? 1 : 23) {
    write_text(in("cut"), whole.substr(0, size));
    EXPECT_THAT(unpack_refusal("cut"), HasSubstr(in("cut").string() + ": cut off")) << size;
  }
}

TEST_F(archive_test, damaged_anywhere_is_refused) {
  const std::string whole = read_text(in("packed"));
  for (std::size_t at = 0; at < whole.size(); at += 17) {
    std::string damaged = whole;
    damaged[at] = static_cast<char>(damaged[at] ^ 0x10);
    write_text(in("damaged"), damaged);
    EXPECT_THAT(unpack_refusal("damaged"), HasSubstr(in("damaged").string() + ": ")) << at;
  }
}

TEST_F(archive_test, of_another_kind_is_refused) {
  write_text(in("text"), "no archive at all");
  EXPECT_THAT(unpack_refusal("text"), HasSubstr("text: not a packed capture, or damaged"));
  pack_by_hand("head -c 2000 /dev/zero | tr '\\0' x >y; zstd -q y -o foreign");
  EXPECT_THAT(unpack_refusal("foreign"), HasSubstr("no entry begins at byte 0 of the archive"));
  pack_by_hand("rm x/manifest; tar --zstd -cf headless x");
  EXPECT_THAT(unpack_refusal("headless"), HasSubstr("it has no manifest"));
  pack_by_hand("echo 'format = [' >x/manifest; tar --zstd -cf damaged-manifest x");
  EXPECT_THAT(unpack_refusal("damaged-manifest"),
              HasSubstr(in("damaged-manifest").string() + ": manifest:1: "));
  EXPECT_THAT(refusal_of([&] { read_packed(in("nowhere")); }), HasSubstr("No such file"));
}

TEST_F(archive_test, that_escapes_the_folder_is_refused) {
  const char* const transforms[] = {
      "s,x/local/a,x/../../a,",  "s,x/local/a,/etc/a,",      "s,x/local/a,x/local/../a,",
      "s,x/local/a,x/local/..,", "s,x/local/a,x/local/b/a,", "s,x/local/a,y/local/a,",
      "s,x/local/a,x//a,",       "s,x/local/a,a,",           "s,x/local/a,x/local/.hidden,",
      "s,x/local/a,x/manifest,"};
  int number = 0;
  for (const char* transform : transforms) {
    const std::string name = "leaves" + std::to_string(number++);
    pack_by_hand("tar -P --transform '" + std::string{transform} + "' --zstd -cf " + name +
                 " x/manifest x/local/a");
    EXPECT_THAT(unpack_refusal(name.c_str()), HasSubstr(in(name.c_str()).string() + ": entry \""))
        << transform;
  }
}

TEST_F(archive_test, with_a_file_and_a_folder_of_the_same_name_is_refused) {
  pack_by_hand(
      "echo 2 >x/b; tar --transform 's,x/b,x/local,' --zstd -cf before x/manifest x/b x/local/a\n"
      "tar --transform 's,x/b,x/local,' --zstd -cf behind x/manifest x/local/a x/b");
  EXPECT_EQ(
      unpack_refusal("before"),
      in("before").string() + ": entry \"x/local/a\": a file and a folder have the same name");
  EXPECT_EQ(unpack_refusal("behind"),
            in("behind").string() + ": entry \"x/local\": a file and a folder have the same name");
}

TEST_F(archive_test, of_a_recording_that_lacks_an_answer_is_refused) {
  pack_by_hand("echo '0.0 0.1 0 4 local/b' >x/calls; tar --zstd -cf lacking x");
  EXPECT_EQ(unpack_refusal("lacking"),
            in("lacking").string() + ": local/b is missing; line 1 of calls names it");
}

TEST_F(archive_test, with_links_or_devices_is_refused) {
  pack_by_hand("ln -s /etc/passwd x/local/link; tar --zstd -cf symbolic x");
  EXPECT_THAT(unpack_refusal("symbolic"),
              HasSubstr("entry \"x/local/link\": neither a regular file nor a folder"));
  pack_by_hand("rm x/local/link; ln x/local/a x/local/hard; tar --zstd -cf hard x");
  EXPECT_THAT(unpack_refusal("hard"), HasSubstr("neither a regular file nor a folder"));
  pack_by_hand("rm x/local/hard; mkfifo x/local/pipe; tar --zstd -cf pipe x");
  EXPECT_THAT(unpack_refusal("pipe"), HasSubstr("entry \"x/local/pipe\""));
}

TEST_F(archive_test, that_exceeds_memory_is_refused_by_name) {
  EXPECT_EQ(refusal_of([&] {
              read_archive(in("packed"), [](const archive_entry&) { throw std::bad_alloc{}; });
            }),
            in("packed").string() + ": needs more memory than there is");
}

TEST_F(archive_test, of_absurd_size_is_refused) {
  // The size field of the second entry claims more bytes than there are, with a correct checksum.
  pack_by_hand(
      "tar -cf y x/manifest x/local/a\n"
      "perl -0777 -e '$_ = <STDIN>; my $at = index $_, \"x/local/a\";"
      " my $head = substr $_, $at, 512; substr($head, 124, 12) = sprintf \"%011o\\0\", $ARGV[0];"
      " substr($head, 148, 8) = q( ) x 8; substr($head, 148, 7) ="
      " sprintf \"%06o\\0\", unpack \"%32C*\", $head; substr($_, $at, 512) = $head; print' "
      "400000000 <y >z; zstd -q z -o claims\n"
      "perl -0777 -e '$_ = <STDIN>; my $at = index $_, \"x/local/a\";"
      " my $head = substr $_, $at, 512; substr($head, 124, 12) = sprintf \"%011o\\0\", $ARGV[0];"
      " substr($head, 148, 8) = q( ) x 8; substr($head, 148, 7) ="
      " sprintf \"%06o\\0\", unpack \"%32C*\", $head; substr($_, $at, 512) = $head; print' "
      "8000000000 <y >z; zstd -qf z -o huge");
  EXPECT_THAT(unpack_refusal("claims"), HasSubstr("entry \"x/local/a\": cut off"));
  EXPECT_THAT(unpack_refusal("huge"), HasSubstr("entry \"x/local/a\": larger than 512 MiB"));
}

// For limits around each of a capture's sizes: unpacking accepts whatever packing makes.
TEST_F(archive_test, has_the_same_limits_in_packing_and_unpacking) {
  const auto agree = [&](const archive_limits& limits) {
    const std::string refusal =
        refusal_of([&] { pack_folder(in("capture"), in("small"), limits); });
    const bool packs = refusal == "nothing was refused";
    EXPECT_EQ(fs::exists(in("small")), packs);
    fs::remove(in("small"));
    EXPECT_EQ(refusal_of([&] { unpack_folder(in("packed"), in("out"), limits); }) ==
                  "nothing was refused",
              packs)
        << limits.file << " " << limits.archive << " " << limits.heads << " " << refusal;
    fs::remove_all(in("out"));
    return packs;
  };
  archive_limits limits;
  limits.file = 700003;
  EXPECT_TRUE(agree(limits));
  limits.file = 700002;
  EXPECT_FALSE(agree(limits));
  limits = {};
  // Seven files including their list; two have names that need an entry of their own.
  int taken = 0;
  for (limits.heads = 0; limits.heads < 12; ++limits.heads) taken += agree(limits) ? 1 : 0;
  EXPECT_EQ(taken, 12 - 9);
  limits = {};
  const std::uint64_t size = unpacked_size();
  ASSERT_GT(size, 2060U) << "zstd printed nothing";
  for (limits.archive = size - 1030; limits.archive < size + 1030; limits.archive += 103)
    EXPECT_EQ(agree(limits), limits.archive >= size) << limits.archive;
}

TEST_F(archive_test, that_would_be_too_large_is_not_made) {
  const std::string large = (in("capture") / "local" / "large").string();
  write_text(large, "");
  fs::resize_file(large, (std::uint64_t{512} << 20) + 1);
  EXPECT_EQ(refusal_of([&] { pack_folder(in("capture"), in("out")); }),
            large + ": larger than 512 MiB; a packed capture holds no more; keep it as a folder");
  for (const char* one : {"a", "b", "c", "d"}) {
    write_text(in("capture") / "local" / one, "");
    fs::resize_file(in("capture") / "local" / one, std::uint64_t{512} << 20);
  }
  fs::remove(large);
  EXPECT_EQ(refusal_of([&] { pack_folder(in("capture"), in("out")); }),
            in("capture").string() +
                ": larger than 2 GiB in all; a packed capture holds no more; keep it as a folder");
  EXPECT_FALSE(fs::exists(in("out")));
}

TEST_F(archive_test, of_a_pipe_is_refused_at_once) {
  ASSERT_EQ(run_shell("mkfifo " + (in("capture") / "local" / "pipe").string()).status, 0);
  EXPECT_EQ(refusal_of([&] { pack_folder(in("capture"), in("out")); }),
            in("capture").string() + ": local/pipe: neither a regular file nor a folder");
}

}  // namespace
