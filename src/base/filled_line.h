// Command lines, and the names of their captures, with values filled in.
//
// Such a line is the shell's, and ssh reads a first word that begins with "-" as an option. The
// values come out of what the router's tools print: a line that took them as they are would run
// whatever somebody has put there, with all rights. So each kind of value has an alphabet that
// means nothing to the shell, to ssh or to the file system, and any other value is refused.
//
//   execute({"node_id_convert -I {}", {{filling::node_name, nodename}}});
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tessel {

// What a value is; its alphabet stands in filled_line.cpp.
enum class filling {
  address,
  node_name,
  node_in_file_name,
  node_id,
  npu,
  glif,
  chip_command,
  capture
};

struct filled_value {
  filling kind;
  std::string text;
  // Whose it is, for the message that refuses it: a node's name, or empty.
  std::string owner = {};
};

class filled_line {
 public:
  // A line that is written in the source: nothing is filled in.
  filled_line(const char* line) : form_(line) {}
  filled_line(std::string_view line) : form_(line) {}
  filled_line(std::string line) : form_(std::move(line)) {}
  // Each "{}" of `form` takes the next value.
  filled_line(std::string form, std::vector<filled_value> values)
      : form_(std::move(form)), values_(std::move(values)) {}

  // The line. Throws `failure` naming the first value that its alphabet does not admit, and for a
  // NUL byte, where the shell would take the line to end. Any thread.
  std::string text() const;
  // The line for a message, whatever the values are: on one line. Any thread.
  std::string shown() const;

 private:
  std::string filled() const;
  std::string form_;
  std::vector<filled_value> values_;
};

}  // namespace tessel
