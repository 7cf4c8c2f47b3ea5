// Where a report goes: a file, which appears whole or not at all, or the standard output.
#pragma once

#include <functional>
#include <iosfwd>
#include <stdexcept>
#include <string>

namespace desk {

// In one line: the file, the cause, what to do.
class output_error : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Lets `show` write, and keeps what it wrote.
//
// A file is written beside its place and then renamed into it, so its readers see the old report or
// the new one, and a report that fails leaves the old one and nothing else. It gets mode 0644 less
// the umask. A link is followed; a device or a pipe is written directly. "" and "-" stand for the
// standard output; while it is written, SIGPIPE is ignored.
//
// Throws `output_error` if anything cannot be written, also if the reader of a pipe has gone away.
// What `show` throws goes through. One thread at a time.
void write_output(const std::string& file, const std::function<void(std::ostream&)>& show);

}  // namespace desk
