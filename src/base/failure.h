// The two ways out of a function.
//
// A `failure` is what every handler of the program catches, as `const std::exception&`, logs and
// counts. An `exit_request` ends the run; it is no std::exception, so no handler catches it.
#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "base/here.h"

namespace tessel {

class failure : public std::exception {
 public:
  // `text` names the key or the value that was stumbled on. It is kept to one line.
  explicit failure(const std::string& text, here where = here::current());

  const char* what() const noexcept override { return text_.c_str(); }
  here where() const noexcept { return where_; }

 private:
  std::string text_;
  here where_;
};

// `text` as it may stand in a message: line ends and other control characters as escapes.
std::string on_one_line(std::string_view text);

// Carries no status: the process that it ends exits with 0.
struct exit_request {};

// The traceback of `error` as a handler at `handler` meets it: a head line, one line per place
// (outermost first), a last line with kind and text; every line with its line end.
std::string traceback_of(const std::exception& error, here handler = here::current());

// The same for the failure that is being handled right now; empty outside of a handler.
std::string traceback_of_current(here handler);

}  // namespace tessel
