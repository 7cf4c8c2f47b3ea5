// Reads a file line by line in bounded memory, whatever the file is.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace desk {

// Names the file and the cause: "cannot read /var/log/x: Permission denied".
class read_error : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A file that is read once, from its beginning. Not for two threads.
class byte_source {
 public:
  // Throws `read_error` if the file cannot be opened or is no regular file.
  explicit byte_source(const std::string& path);
  ~byte_source();
  byte_source(const byte_source&) = delete;
  byte_source& operator=(const byte_source&) = delete;

  // The bytes that are at hand, at least one unless the file has ended. Throws `read_error`.
  [[nodiscard]] std::string_view at_hand();
  // The same bytes and at least one behind them; nothing behind them if the file has ended. What
  // was a view of them before is none any more. Throws `read_error`.
  [[nodiscard]] std::string_view more_at_hand();
  // Leaves out the first of them.
  void skip(std::size_t bytes) { from_ += bytes; }

  // So many bytes behind those at hand can be read as well; what they are is nobody's business.
  static constexpr std::size_t slack = 32;

 private:
  void read_behind();

  std::string path_;
  int descriptor_;
  std::vector<char> buffer_;
  std::size_t from_ = 0;
  std::size_t to_ = 0;
};

[[nodiscard]] bool file_exists(const std::string& path);

// A line longer than this is cut; no message of the audit comes near.
inline constexpr std::size_t longest_line = std::size_t{1} << 20U;

class line_reader {
 public:
  explicit line_reader(byte_source& from) : from_(from) {}

  // The next line without its end. False at the end of the file. Throws `read_error`.
  bool next(std::string& line);
  [[nodiscard]] std::size_t number() const { return number_; }        // of that line, from 1
  [[nodiscard]] bool has_end() const { return has_end_; }             // it ended with a line feed
  [[nodiscard]] std::size_t cut_lines() const { return cut_lines_; }  // so far

 private:
  byte_source& from_;
  std::size_t number_ = 0;
  std::size_t cut_lines_ = 0;
  bool has_end_ = true;
};

}  // namespace desk
