#include "desk/show/output.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>

namespace desk {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

class output : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = fs::temp_directory_path() / "desk-output-XXXXXX";
    ASSERT_NE(::mkdtemp(name.data()), nullptr);
    folder_ = name;
  }
  void TearDown() override { fs::remove_all(folder_); }

  [[nodiscard]] std::string path(const std::string& name) const { return folder_ / name; }
  [[nodiscard]] std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(folder_))
      found.push_back(entry.path().filename());
    std::sort(found.begin(), found.end());
    return found;
  }

 private:
  fs::path folder_;
};

void put(const std::string& file, const std::string& text) {
  std::ofstream(file) << text;
}

std::string content(const std::string& file) {
  std::ifstream in(file);
  return {std::istreambuf_iterator<char>(in), {}};
}

std::string error_of(const std::string& file, const std::string& text = "new\n") {
  try {
    write_output(file, [&](std::ostream& out) { out << text; });
  } catch (const output_error& error) {
    return error.what();
  }
  return "";
}

mode_t mode_of(const std::string& file) {
  struct stat now = {};
  EXPECT_EQ(::stat(file.c_str(), &now), 0);
  return now.st_mode & 07777U;
}

// Runs a check in a process of its own, whose limits and descriptors are its own, too.
int in_child(const std::function<bool()>& passes) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(passes() ? 0 : 1);
  int status = -1;
  ::waitpid(child, &status, 0);
  return status;
}

TEST_F(output, replaces_a_file_and_leaves_nothing_else) {
  put(path("report"), "old\n");
  EXPECT_EQ(error_of(path("report")), "");
  EXPECT_EQ(content(path("report")), "new\n");
  EXPECT_THAT(names(), ElementsAre("report"));
}

TEST_F(output, writes_a_new_file_in_the_working_folder) {
  const auto former = fs::current_path();
  fs::current_path(path(""));
  EXPECT_EQ(error_of("report"), "");
  fs::current_path(former);
  EXPECT_EQ(content(path("report")), "new\n");
}

TEST_F(output, writes_more_than_its_buffer_holds) {
  const std::string text(1'000'003, 'x');
  EXPECT_EQ(error_of(path("report"), text), "");
  EXPECT_EQ(content(path("report")), text);
}

TEST_F(output, obeys_the_umask) {
  const mode_t former = ::umask(027);
  EXPECT_EQ(error_of(path("tight")), "");
  ::umask(0);
  EXPECT_EQ(error_of(path("wide")), "");
  ::umask(former);
  EXPECT_EQ(mode_of(path("tight")), 0640);
  EXPECT_EQ(mode_of(path("wide")), 0644);
}

TEST_F(output, shows_the_old_report_until_the_new_one_is_whole) {
  put(path("report"), "old\n");
  write_output(path("report"), [&](std::ostream& out) {
    out << "new\n" << std::flush;
    EXPECT_EQ(content(path("report")), "old\n");
    EXPECT_EQ(names().size(), 2U);
  });
  EXPECT_EQ(content(path("report")), "new\n");
}

TEST_F(output, follows_a_link_and_keeps_it) {
  fs::create_directory(path("elsewhere"));
  put(path("elsewhere/report"), "old\n");
  fs::create_symlink("elsewhere/report", path("link"));
  EXPECT_EQ(error_of(path("link")), "");
  EXPECT_TRUE(fs::is_symlink(path("link")));
  EXPECT_EQ(content(path("elsewhere/report")), "new\n");
  EXPECT_THAT(names(), ElementsAre("elsewhere", "link"));
}

TEST_F(output, refuses_a_link_to_nothing) {
  fs::create_symlink("nowhere", path("link"));
  EXPECT_EQ(error_of(path("link")),
            "cannot write the report to " + path("link") +
                ": it is a link to a file that does not exist; remove the link or make that file");
  EXPECT_THAT(names(), ElementsAre("link"));
}

TEST_F(output, takes_a_name_as_long_as_names_can_be) {
  const std::string name(255, 'x');
  EXPECT_EQ(error_of(path(name)), "");
  EXPECT_THAT(names(), ElementsAre(name));
  EXPECT_THAT(error_of(path(name + "x")), HasSubstr("File name too long; use a shorter name"));
}

TEST_F(output, names_the_file_the_cause_and_what_to_do) {
  EXPECT_EQ(error_of(path("none/report")),
            "cannot write the report to " + path("none/report") +
                ": No such file or directory; make its folder first");
  put(path("file"), "old\n");
  EXPECT_THAT(error_of(path("file/report")), HasSubstr("Not a directory; make its folder first"));
  fs::create_directory(path("folder"));
  EXPECT_THAT(error_of(path("folder")), HasSubstr("Is a directory; name a file in that folder"));
  EXPECT_THAT(error_of(path("two\nlines/report")), HasSubstr("two\\x0alines/report: No such"));
  EXPECT_THAT(names(), ElementsAre("file", "folder"));
}

TEST_F(output, writes_a_device_without_replacing_it) {
  EXPECT_EQ(error_of("/dev/null"), "");
  EXPECT_TRUE(fs::is_character_file("/dev/null"));
  EXPECT_EQ(error_of("/dev/full"),
            "cannot write the report to /dev/full: No space left on device; "
            "make room there");
}

TEST_F(output, writes_a_pipe_in_the_file_system) {
  ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
  const int reader = ::open(path("pipe").c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(reader, 0);
  EXPECT_EQ(error_of(path("pipe")), "");
  std::string read(10, ' ');
  EXPECT_EQ(::read(reader, read.data(), read.size()), 4);
  ::close(reader);
  EXPECT_TRUE(fs::is_fifo(path("pipe")));
}

// The limit of the size stands for a disk that fills up in the middle.
TEST_F(output, leaves_the_old_report_if_there_is_no_room) {
  put(path("report"), "old\n");
  const int status = in_child([&] {
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {100'000, 100'000};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    return error_of(path("report"), std::string(200'000, 'x')) ==
           "cannot write the report to " + path("report") +
               ": File too large; raise the limit of file sizes (ulimit -f)";
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(content(path("report")), "old\n");
  EXPECT_THAT(names(), ElementsAre("report"));
}

TEST_F(output, leaves_the_old_report_if_the_view_fails) {
  put(path("report"), "old\n");
  const auto fails = [](std::ostream& out) {
    out << "half";
    throw std::runtime_error("no view");
  };
  EXPECT_THROW(write_output(path("report"), fails), std::runtime_error);
  EXPECT_EQ(content(path("report")), "old\n");
  EXPECT_THAT(names(), ElementsAre("report"));
}

TEST_F(output, leaves_nothing_aside_if_its_place_is_taken_meanwhile) {
  const auto place = path("report");
  EXPECT_THROW(write_output(place, [&](std::ostream&) { fs::create_directories(place + "/x"); }),
               output_error);
  EXPECT_THAT(names(), ElementsAre("report"));
}

TEST_F(output, a_report_aside_of_a_killed_process_is_no_hindrance) {
  for (int i = 0; i < 3; ++i)
    put(path(".tessel-report." + std::to_string(::getpid()) + "." + std::to_string(i)), "");
  EXPECT_EQ(error_of(path("report")), "");
  EXPECT_EQ(names().size(), 4U);
}

TEST_F(output, goes_to_the_standard_output) {
  for (const char* name : {"", "-"}) {
    EXPECT_EQ(in_child([&] {
                ::dup2(::open(path("report").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
                return error_of(name).empty();
              }),
              0);
    EXPECT_EQ(content(path("report")), "new\n");
  }
}

TEST_F(output, reports_a_reader_that_has_gone_away) {
  EXPECT_EQ(in_child([] {
              std::array<int, 2> ends{};
              if (::pipe(ends.data()) != 0) return false;
              ::close(ends[0]);
              ::dup2(ends[1], 1);
              return error_of("-", std::string(100'000, 'x')) ==
                     "cannot write the report to the standard output: Broken pipe; let its reader "
                     "read to the end";
            }),
            0)
      << "SIGPIPE must not end the process either";
}

TEST_F(output, reports_a_standard_output_that_is_closed) {
  EXPECT_EQ(in_child([] {
              ::close(1);
              return error_of("-") ==
                     "cannot write the report to the standard output: Bad file descriptor; use "
                     "another file";
            }),
            0);
}

TEST_F(output, waits_for_a_standard_output_that_does_not_block) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    ::close(ends[0]);
    ::fcntl(ends[1], F_SETFL, O_NONBLOCK);
    ::dup2(ends[1], 1);
    ::_exit(error_of("-", std::string(1'000'000, 'x')).empty() ? 0 : 1);
  }
  ::close(ends[1]);
  ::usleep(50'000);  // until the pipe is full
  std::size_t size = 0;
  std::array<char, 65536> room{};
  for (ssize_t got = 0; (got = ::read(ends[0], room.data(), room.size())) > 0;)
    size += static_cast<std::size_t>(got);
  ::close(ends[0]);
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(size, 1'000'000U);
}

}  // namespace
}  // namespace desk
