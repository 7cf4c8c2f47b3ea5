#include "lab/capture/archive_stream.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <zstd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "lab/base/descriptors.h"
#include "lab/base/error.h"
#include "packing/tar_head.h"
#include "packing/tar_writer.h"

namespace lab {
namespace {

namespace fs = std::filesystem;
using packing::block_size;
using packing::fields_of;
using packing::in_whole_blocks;
using packing::long_name_record;
using packing::size_of_end;
using packing::sum_of;
using packing::tar_head;

constexpr std::size_t longest_name = 4096;
constexpr int compression_level = 6;

template <std::size_t Size>
std::string text_of(const char (&field)[Size]) {
  return {field, strnlen(field, Size)};
}

template <std::size_t Size>
std::optional<std::uint64_t> octal_of(const char (&field)[Size]) {
  std::string_view text{field, strnlen(field, Size)};
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 8);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return number;
}

// A file whose failures are thrown with its name.
class named_file {
 public:
  named_file(const fs::path& file, int flags)
      : name_(file.string()), file_(open_file(file, flags, 0600)) {
    if (!file_.is_open()) fail(name_);
  }

  std::size_t read_some(char* data, std::size_t size) const {
    const ssize_t got = lab::read_some(file_.number(), data, size);
    if (got < 0) fail(name_);
    return static_cast<std::size_t>(got);
  }
  void write_all(const char* data, std::size_t size) const {
    if (lab::write_all(file_.number(), {data, size}) < size) fail(name_);
  }
  std::uint64_t regular_size() const {
    struct stat status {};
    if (fstat(file_.number(), &status) != 0 || !S_ISREG(status.st_mode))
      throw lab_error(fmt::format("{}: not a regular file", name_));
    return static_cast<std::uint64_t>(status.st_size);
  }
  const std::string& name() const { return name_; }

 private:
  std::string name_;
  descriptor file_;
};

}  // namespace

std::string size_text(std::uint64_t bytes) {
  constexpr std::array<std::pair<unsigned, const char*>, 3> units{
      {{30, "GiB"}, {20, "MiB"}, {10, "KiB"}}};
  for (const auto& [shift, unit] : units)
    if (bytes >> shift << shift == bytes && bytes > 0)
      return fmt::format("{} {}", bytes >> shift, unit);
  return fmt::format("{} bytes", bytes);
}

// Writing ----------------------------------------------------------------------------------------

void archive_space::add(const std::string& name, std::uint64_t size) {
  bytes_ += block_size + in_whole_blocks(size);
  ++heads_;
  if (fields_of(name)) return;
  bytes_ += block_size + in_whole_blocks(long_name_record(name).size());
  ++heads_;
}

std::string archive_space::excess(const archive_limits& limits) const {
  if (bytes_ + size_of_end > limits.archive)
    return fmt::format("larger than {}", size_text(limits.archive));
  if (heads_ > limits.heads) return fmt::format("more than {} entries", limits.heads);
  return {};
}

struct archive_writer::state {
  explicit state(const fs::path& file)
      : out(file, O_WRONLY | O_CREAT | O_EXCL),
        tar([this](std::string_view bytes) { out.write_all(bytes.data(), bytes.size()); },
            compression_level) {}

  named_file out;
  packing::tar_writer tar;
};

archive_writer::archive_writer(const fs::path& file) : state_(std::make_unique<state>(file)) {}

archive_writer::~archive_writer() = default;

void archive_writer::add(const std::string& name, const fs::path& source) try {
  // Opening a pipe would wait for its other end.
  const named_file in(source, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
  const std::uint64_t size = in.regular_size();
  state_->tar.begin_entry(name, size);
  std::vector<char> buffer(std::size_t{1} << 17);
  for (std::uint64_t left = size; left > 0;) {
    const std::size_t got = in.read_some(
        buffer.data(), static_cast<std::size_t>(std::min<std::uint64_t>(left, buffer.size())));
    if (got == 0) throw lab_error(fmt::format("{}: became shorter while it was read", in.name()));
    state_->tar.put({buffer.data(), got});
    left -= got;
  }
  state_->tar.end_entry();
} catch (const packing::packing_error& error) {
  throw lab_error(fmt::format("{}: {}", state_->out.name(), error.what()));
}

void archive_writer::finish() try {
  state_->tar.finish();
} catch (const packing::packing_error& error) {
  throw lab_error(fmt::format("{}: {}", state_->out.name(), error.what()));
}

// Reading ----------------------------------------------------------------------------------------

namespace {

class unpacked_bytes {
 public:
  unpacked_bytes(const fs::path& file, std::uint64_t most)
      : in_(file, O_RDONLY), context_(ZSTD_createDCtx(), &ZSTD_freeDCtx), most_(most) {}

  // Fills the memory as far as there are bytes. Returns their number.
  std::size_t fill(char* data, std::size_t size) {
    ZSTD_outBuffer out{data, size, 0};
    while (out.pos < out.size) {
      if (waiting_.pos == waiting_.size && !refill()) break;
      const std::size_t hint = ZSTD_decompressStream(context_.get(), &out, &waiting_);
      if (ZSTD_isError(hint) != 0)
        throw lab_error(fmt::format("{}: not a packed capture, or damaged: {}", in_.name(),
                                    ZSTD_getErrorName(hint)));
      frame_is_open_ = hint != 0;
    }
    total_ += out.pos;
    if (total_ > most_)
      throw lab_error(fmt::format("{}: unpacks to more than {}", in_.name(), size_text(most_)));
    return out.pos;
  }
  const std::string& file() const { return in_.name(); }
  std::uint64_t position() const { return total_; }

 private:
  bool refill() {
    waiting_ = {buffer_.data(), in_.read_some(buffer_.data(), buffer_.size()), 0};
    if (waiting_.size == 0 && frame_is_open_)
      throw lab_error(fmt::format("{}: cut off; the packed data has no end", in_.name()));
    return waiting_.size > 0;
  }

  named_file in_;
  std::unique_ptr<ZSTD_DCtx, decltype(&ZSTD_freeDCtx)> context_;
  std::vector<char> buffer_ = std::vector<char>(ZSTD_DStreamInSize());
  ZSTD_inBuffer waiting_{buffer_.data(), 0, 0};
  bool frame_is_open_ = true;  // an empty file counts as cut off
  std::uint64_t most_;
  std::uint64_t total_ = 0;
};

class archive_reader {
 public:
  archive_reader(const fs::path& file, const archive_limits& limits)
      : bytes_(file, limits.archive), limits_(limits) {}

  // Returns false at the end of the archive.
  bool next(archive_entry& entry) {
    std::string long_name;
    for (;;) {
      tar_head head{};
      if (!read_head(head)) return false;
      const std::string name = long_name.empty() ? name_of(head) : long_name;
      const std::uint64_t size = size_of(head, name);
      if (head.kind == 'x' || head.kind == 'L') {
        if (size > longest_name) refuse(name, "the name of the next entry is too long");
        const std::string record = read_text(name, size);
        long_name = head.kind == 'x' ? path_of(record) : record.substr(0, record.find('\0'));
      } else if (head.kind == '5' && size == 0) {
        long_name.clear();
      } else if (head.kind == '0' || head.kind == '\0') {
        entry = {name, read_text(name, size)};
        return true;
      } else {
        refuse(name, "neither a regular file nor a folder");
      }
    }
  }

 private:
  [[noreturn]] void refuse(const std::string& name, std::string_view why) const {
    throw lab_error(fmt::format("{}: entry \"{}\": {}", bytes_.file(), printable(name), why));
  }

  static std::string printable(const std::string& name) {
    std::string shown;
    for (const char c : name.substr(0, 200))
      shown += c >= ' ' && c <= '~' ? std::string{c}
                                    : fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    return shown;
  }

  bool read_head(tar_head& head) {
    const std::uint64_t position = bytes_.position();
    std::array<char, block_size> block{};
    const std::size_t got = bytes_.fill(block.data(), block.size());
    if (got < block.size())
      throw lab_error(
          fmt::format("{}: cut off at byte {} of the archive", bytes_.file(), position + got));
    if (std::all_of(block.begin(), block.end(), [](char c) { return c == '\0'; })) {
      expect_padding();
      return false;
    }
    std::memcpy(&head, block.data(), block.size());
    const auto sum = octal_of(head.sum);
    if (!sum || *sum != sum_of(head) || std::memcmp(head.magic, "ustar", 5) != 0)
      throw lab_error(
          fmt::format("{}: not a packed capture: no entry begins at byte {} of the archive",
                      bytes_.file(), position));
    if (++heads_ > limits_.heads)
      throw lab_error(fmt::format("{}: more than {} entries", bytes_.file(), limits_.heads));
    return true;
  }

  // Archivers fill the last of their larger blocks with zeros.
  void expect_padding() {
    std::array<char, block_size> block{};
    while (const std::size_t got = bytes_.fill(block.data(), block.size()))
      if (!std::all_of(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(got),
                       [](char c) { return c == '\0'; }))
        throw lab_error(fmt::format("{}: there is data after the archive's end at byte {}",
                                    bytes_.file(), bytes_.position() - got));
  }

  static std::string name_of(const tar_head& head) {
    const std::string prefix = text_of(head.prefix);
    // Older GNU archives store something else there.
    const bool has_prefix = !prefix.empty() && head.magic[5] == '\0';
    return has_prefix ? prefix + '/' + text_of(head.name) : text_of(head.name);
  }

  std::uint64_t size_of(const tar_head& head, const std::string& name) const {
    const auto size = octal_of(head.size);
    if (!size) refuse(name, "its size is not a number");
    if (*size > limits_.file) refuse(name, "larger than " + size_text(limits_.file));
    return *size;
  }

  // Memory grows with the bytes that are really there, not with the size that the header claims.
  std::string read_text(const std::string& name, std::uint64_t size) {
    constexpr std::size_t step = std::size_t{1} << 20;
    std::string text;
    while (text.size() < size) {
      const std::size_t before = text.size();
      const std::size_t wanted =
          static_cast<std::size_t>(std::min<std::uint64_t>(size - before, std::max(step, before)));
      text.resize(before + wanted);
      if (bytes_.fill(text.data() + before, wanted) < wanted) refuse(name, "cut off");
    }
    std::array<char, block_size> padding{};
    const std::size_t rest = (block_size - size % block_size) % block_size;
    if (bytes_.fill(padding.data(), rest) < rest) refuse(name, "cut off");
    return text;
  }

  static std::string path_of(const std::string& record) {
    const std::size_t start = record.find(" path=");
    if (start == std::string::npos) return {};
    const std::size_t end = record.find('\n', start);
    return record.substr(start + 6, end == std::string::npos ? end : end - start - 6);
  }

  unpacked_bytes bytes_;
  archive_limits limits_;
  std::uint64_t heads_ = 0;
};

}  // namespace

void read_archive(const fs::path& file, const std::function<void(archive_entry)>& take,
                  const archive_limits& limits) try {
  archive_reader reader(file, limits);
  archive_entry entry;
  while (reader.next(entry)) take(std::move(entry));
} catch (const std::bad_alloc&) {
  throw lab_error(fmt::format("{}: needs more memory than there is", file.string()));
}

}  // namespace lab
