// Command lines, and the names of their captures, with values filled in.
//
// The shell reads such a line, and ssh reads a first word that begins with "-" as an option. The
// values come from the output of the router's tools. If a line took them unchecked, it would run
// whatever somebody has put there, with all rights. So each kind of value has an alphabet that has
// no meaning to the shell, to ssh or to the file system. Any other value is rejected.
//
//   execute({"node_id_convert -I {}", {{filling::node_name, nodename}}});
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tessel {

// The kind of a value; filled_line.cpp has the alphabet of each kind.
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
  // The owner that the message about a rejected value names: a node's name, or empty.
  std::string owner = {};
};

class filled_line {
 public:
  // A string literal, with nothing to fill in.
  template <std::size_t size>
  filled_line(const char (&literal)[size]) : form_(literal, size - 1) {}
  // A string literal of which each "{}" takes the next value.
  template <std::size_t size>
  filled_line(const char (&literal)[size], std::vector<filled_value> values)
      : form_(literal, size - 1), values_(std::move(values)) {}
  // The same for a text that is built at run time. Nothing checks this text, so it may consist only
  // of literals and of what text() has returned. The caller has to write the name of this class:
  // a text that happens to be there is not accepted.
  explicit filled_line(std::string_view form, std::vector<filled_value> values = {})
      : form_(form), values_(std::move(values)) {}
  // A buffer is not a literal.
  template <std::size_t size>
  filled_line(char (&buffer)[size], std::vector<filled_value> values = {}) = delete;

  // The line. Throws `failure` with the first value that its alphabet does not allow, and for a NUL
  // byte, at which the shell would end the line. Any thread.
  std::string text() const;
  // The line for a message, whatever the values are, without line ends. Any thread.
  std::string shown() const;
  const std::vector<filled_value>& values() const { return values_; }

 private:
  std::string filled() const;
  std::string form_;
  std::vector<filled_value> values_;
};

}  // namespace tessel
