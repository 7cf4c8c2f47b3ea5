#include "desk/show/output.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <optional>
#include <ostream>
#include <streambuf>
#include <string_view>
#include <system_error>
#include <utility>

#include "command_line/one_line.h"

namespace desk {

namespace {

using shower = std::function<void(std::ostream&)>;

constexpr mode_t usual_mode = 0644;
constexpr std::string_view standard_output = "the standard output";

std::string_view advice_for(int error) {
  switch (error) {
    case ENOSPC:
    case EDQUOT:
      return "make room there";
    case EFBIG:
      return "raise the limit of file sizes (ulimit -f)";
    case EACCES:
    case EPERM:
    case EROFS:
      return "use a folder that you may write";
    case ENOENT:
    case ENOTDIR:
      return "make its folder first";
    case EISDIR:
      return "name a file in that folder";
    case ENAMETOOLONG:
      return "use a shorter name";
    case EPIPE:
      return "let its reader read to the end";
    default:
      return "use another file";
  }
}

[[noreturn]] void fail(std::string_view place, int error) {
  throw output_error(fmt::format("cannot write the report to {}: {}; {}",
                                 command_line::one_line(place),
                                 std::generic_category().message(error), advice_for(error)));
}

class descriptor {
 public:
  explicit descriptor(int fd) : fd_(fd) {}
  ~descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  descriptor(const descriptor&) = delete;
  descriptor& operator=(const descriptor&) = delete;
  [[nodiscard]] int get() const { return fd_; }
  // Some file systems report only here that the data did not fit.
  [[nodiscard]] bool close() { return ::close(std::exchange(fd_, -1)) == 0; }

 private:
  int fd_;
};

// Writes to a descriptor and remembers why it could not.
class descriptor_buffer : public std::streambuf {
 public:
  explicit descriptor_buffer(int fd) : fd_(fd) { setp(room_.data(), room_.data() + room_.size()); }
  [[nodiscard]] int error() const { return error_; }

 protected:
  int_type overflow(int_type c) override {
    if (sync() != 0) return traits_type::eof();
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    *pptr() = traits_type::to_char_type(c);
    pbump(1);
    return c;
  }

  int sync() override {
    const char* from = pbase();
    while (error_ == 0 && from < pptr()) {
      const ssize_t written = ::write(fd_, from, static_cast<std::size_t>(pptr() - from));
      if (written >= 0)
        from += written;
      else if (!can_go_on(errno))
        error_ = errno;
    }
    setp(room_.data(), room_.data() + room_.size());
    return error_ == 0 ? 0 : -1;
  }

 private:
  // A standard output that does not block is shared with a program that asked for that.
  [[nodiscard]] bool can_go_on(int error) const {
    if (error == EINTR) return true;
    if (error != EAGAIN) return false;
    pollfd ready = {fd_, POLLOUT, 0};
    return ::poll(&ready, 1, -1) >= 0 || errno == EINTR;
  }

  static constexpr std::size_t room = 65536;
  int fd_;
  int error_ = 0;
  std::array<char, room> room_{};
};

// Returns why not everything was written, or 0.
int show_into(int fd, const shower& show) {
  descriptor_buffer buffer(fd);
  std::ostream out(&buffer);
  show(out);
  out.flush();
  if (buffer.error() != 0) return buffer.error();
  return out ? 0 : EIO;
}

class without_sigpipe {
 public:
  without_sigpipe() {
    struct sigaction ignored = {};
    ignored.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignored, &former_);
  }
  ~without_sigpipe() { sigaction(SIGPIPE, &former_, nullptr); }
  without_sigpipe(const without_sigpipe&) = delete;
  without_sigpipe& operator=(const without_sigpipe&) = delete;

 private:
  struct sigaction former_ = {};
};

void write_directly(int fd, std::string_view place, const shower& show) {
  const without_sigpipe scope;
  if (const int error = show_into(fd, show); error != 0) fail(place, error);
}

// A new file beside the place of the report. Unless it gets that place, it is gone at the end.
class file_aside {
 public:
  // The name does not depend on the report's, which may be as long as a name can be.
  explicit file_aside(const std::filesystem::path& place) : place_(place) {
    int fd = -1;
    for (unsigned count = 0; fd < 0 && (count == 0 || errno == EEXIST); ++count) {
      name_ = place.parent_path() / fmt::format(".tessel-report.{}.{}", ::getpid(), count);
      fd = ::open(name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, usual_mode);
    }
    if (fd < 0) fail(place_.native(), errno);
    file_.emplace(fd);
  }
  ~file_aside() {
    if (!has_place_) ::unlink(name_.c_str());
  }
  file_aside(const file_aside&) = delete;
  file_aside& operator=(const file_aside&) = delete;

  [[nodiscard]] int fd() const { return file_->get(); }

  // Without fsync the place could hold an empty file after a crash of the machine.
  void take_place() {
    if (::fsync(fd()) != 0 || !file_->close() || ::rename(name_.c_str(), place_.c_str()) != 0)
      fail(place_.native(), errno);
    has_place_ = true;
  }

 private:
  std::filesystem::path place_;
  std::filesystem::path name_;
  std::optional<descriptor> file_;
  bool has_place_ = false;
};

// A device or a pipe.
void write_special(const std::string& file, const shower& show) {
  descriptor opened(::open(file.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY));
  if (opened.get() < 0) fail(file, errno);
  write_directly(opened.get(), file, show);
  if (!opened.close()) fail(file, errno);
}

// The file itself behind links, which need not exist yet.
std::filesystem::path followed(const std::string& file) {
  std::error_code error;
  auto place = std::filesystem::canonical(file, error);
  if (!error) return place;
  if (error.value() != ENOENT) fail(file, error.value());
  if (std::filesystem::is_symlink(std::filesystem::symlink_status(file, error)))
    throw output_error(
        fmt::format("cannot write the report to {}: it is a link to a file that does not exist; "
                    "remove the link or make that file",
                    command_line::one_line(file)));
  return file;
}

}  // namespace

void write_output(const std::string& file, const shower& show) {
  if (file.empty() || file == "-") return write_directly(STDOUT_FILENO, standard_output, show);

  struct stat now = {};
  if (::stat(file.c_str(), &now) == 0) {
    if (S_ISDIR(now.st_mode)) fail(file, EISDIR);
    if (!S_ISREG(now.st_mode)) return write_special(file, show);
  }
  file_aside aside(followed(file));
  if (const int error = show_into(aside.fd(), show); error != 0) fail(file, error);
  aside.take_place();
}

}  // namespace desk
