// What the host writes to standard error. Nobody who leaves it unread delays the host for long: a
// pipe or a socket is never waited for longer than one second, for all messages together. A
// terminal and a file take what they get as long as it takes. No function raises SIGPIPE, needs
// memory or throws. Only one thread at a time.
#pragma once

#include <string_view>

namespace tessel_host {

// Writes "tessel-host: ", the message and a line end. What the reader does not take is lost.
void write_message(std::string_view message);

// Writes the text as it is, with the same patience.
void write_text(std::string_view text);

// Writes a text of at most PIPE_BUF bytes if there is room for it now.
void write_at_once(std::string_view text);

}  // namespace tessel_host
