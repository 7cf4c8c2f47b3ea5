#include "desk/read/line_reader.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace desk {

namespace {

constexpr std::size_t largest_buffer = std::size_t{256} << 10U;
constexpr std::size_t smallest_buffer = std::size_t{4} << 10U;

[[noreturn]] void cannot_read(const std::string& path, std::string_view why) {
  throw read_error(fmt::format("cannot read {}: {}", path, why));
}

int opened(const std::string& path) {
  // A FIFO in the place of a log must not hold the report up.
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) cannot_read(path, std::strerror(errno));
  struct stat status {};
  if (::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) return descriptor;
  ::close(descriptor);
  cannot_read(path, "it is no regular file");
}

// Most logs are small, and a run has many.
std::size_t buffer_for(int descriptor) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return largest_buffer;
  const auto size = static_cast<std::size_t>(std::max<off_t>(status.st_size, 0));
  return std::clamp(size, smallest_buffer, largest_buffer);
}

}  // namespace

byte_source::byte_source(const std::string& path)
    : path_(path), descriptor_(opened(path)), buffer_(buffer_for(descriptor_) + slack) {}

byte_source::~byte_source() {
  ::close(descriptor_);
}

void byte_source::read_behind() {
  ssize_t read = 0;
  do {
    read = ::read(descriptor_, buffer_.data() + to_, buffer_.size() - slack - to_);
  } while (read < 0 && errno == EINTR);
  if (read < 0) cannot_read(path_, std::strerror(errno));
  to_ += static_cast<std::size_t>(read);
}

std::string_view byte_source::at_hand() {
  if (from_ == to_) {
    from_ = to_ = 0;
    read_behind();
  }
  return {buffer_.data() + from_, to_ - from_};
}

std::string_view byte_source::more_at_hand() {
  const std::size_t kept = to_ - from_;
  std::memmove(buffer_.data(), buffer_.data() + from_, kept);
  from_ = 0;
  to_ = kept;
  if (2 * kept > buffer_.size()) buffer_.resize(2 * buffer_.size());
  read_behind();
  return {buffer_.data(), to_};
}

bool file_exists(const std::string& path) {
  return ::access(path.c_str(), F_OK) == 0;
}

bool line_reader::next(std::string& line) {
  line.clear();
  bool is_cut = false;
  std::string_view part = from_.at_hand();
  if (part.empty()) return false;
  ++number_;
  has_end_ = false;
  while (!part.empty() && !has_end_) {
    const std::size_t end = part.find('\n');
    has_end_ = end != std::string_view::npos;
    const std::string_view more = part.substr(0, end);
    const std::size_t room = longest_line - line.size();
    line.append(more.substr(0, room));
    is_cut = is_cut || more.size() > room;
    from_.skip(more.size() + (has_end_ ? 1 : 0));
    if (!has_end_) part = from_.at_hand();
  }
  if (is_cut) ++cut_lines_;
  return true;
}

}  // namespace desk
