// The file for the journal of a run, which the host offers to the library.
#pragma once

#include "journal_tail.h"

#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace tessel_host {

// One line: the file, what is wrong with it, what to do.
class journal_error : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Creates the file, or empties the one that is there, and makes it readable for its owner alone: it
// will hold addresses. Returns its descriptor, which is none of the standard streams. Never follows
// a link, never waits, and never touches what is no file. Throws `journal_error`.
[[nodiscard]] int open_journal_file(const std::string& path);

// A file in memory for a journal that only the host reads; /dev/null if there can be none.
[[nodiscard]] int open_journal_in_memory();

// What the environment that the host was started with asks the library for.
struct inherited_wish {
  int descriptor = -1;  // of the journal; -1 if it wants none
  std::optional<std::chrono::seconds> command_timeout;
};
// Nothing where the library would see nothing.
[[nodiscard]] inherited_wish inherited_journal();

// Reads what the library will write to the descriptor. Null if that leads to no file. Unless
// `is_kept`, a file in memory gives back what has been read.
[[nodiscard]] std::unique_ptr<journal_tail> follow_journal(int descriptor, bool is_kept);

// Names the descriptor to the library, which takes the name away again in tessel_init, and the time
// limit of each command, if there is one. Throws `std::bad_alloc`.
void offer_journal(int descriptor, std::optional<std::chrono::seconds> command_timeout);

}  // namespace tessel_host
