// The two exceptions of the program.
//
// Every handler catches a `failure`, as `const std::exception&`, and logs and counts it. An
// `exit_request` ends the run. It is not a `std::exception`, so no handler catches it.
#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "base/here.h"

namespace tessel {

class failure : public std::exception {
 public:
  // `text` names the key or the value that caused the failure. It is kept on one line.
  explicit failure(const std::string& text, here where = here::current());

  const char* what() const noexcept override { return text_.c_str(); }
  here where() const noexcept { return where_; }

 private:
  std::string text_;
  here where_;
};

// `text` for a message, with line ends and other control characters as escapes.
std::string on_one_line(std::string_view text);

// Carries no status: the process that it ends exits with 0.
struct exit_request {};

// The traceback of `error` as seen by a handler at `handler`: a head line, one line per place
// (outermost first), and a last line with kind and text. Every line has its line end. Throws
// nothing: where memory lacks for that, the text is only "out of memory" and a line end.
std::string traceback_of(const std::exception& error, here handler = here::current());

// The same for the failure that is being handled now; empty outside of a handler.
std::string traceback_of_current(here handler);

}  // namespace tessel
