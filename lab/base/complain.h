// The way of a message to standard error. Nobody can be told that standard error itself fails: then
// the message is lost, and the exit status alone says how the program ended.
#pragma once

#include <string_view>

namespace lab {

// Writes the line and a line end in one piece, so that lines of several processes do not mix. Never
// fails.
void complain(std::string_view line);

// Opens whatever of standard input, output and error is closed, so that no file that the program
// opens later takes its place and gets its messages. Reading and writing fail there as before. Call
// it before anything is opened.
void hold_standard_streams();

}  // namespace lab
