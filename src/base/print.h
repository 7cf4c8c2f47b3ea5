// The only writers of standard output, and the one of standard error.
//
// A title leaves its line open. The next thing printed is preceded by one blank:
//   print_title("Dumping Data");   // "Dumping Data............................"
//   print("Done");                 // " Done\n"
//
// Each call writes at once, after what the host has printed, so that the operator sees which phase
// is running. A reader that is slow is waited for. All functions may be called from any thread, and
// throw `failure` if standard output cannot be written: a closed pipe is such a failure, not the
// end of the process.
#pragma once

#include <cstddef>
#include <string_view>

namespace tessel {

// The width to which a title is padded.
inline constexpr std::size_t DOTS = 40;

// Prints `text` and a line end.
void print(std::string_view text);

// Prints `title`, padded on the right with "." to DOTS characters, without a line end.
void print_title(std::string_view title);

// Ends the line that a title left open, if there is one.
void end_open_line();

// Writes `text` to standard error as it is, a traceback for example. Throws nothing: what cannot be
// written is lost, and so is what the reader of a pipe or a socket does not take within 100 ms. Any
// thread.
void print_error(std::string_view text);

}  // namespace tessel
