// The shared object and its entry points, which are looked up by name.
#pragma once

#include "arguments.h"

#include <tessel/tessel.h>

#include <optional>
#include <stdexcept>
#include <string>

namespace tessel_host {

// One line: the library, what is wrong with it, what to do.
class library_error : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct entry_points {
  decltype(&tessel_init) init = nullptr;
  decltype(&tessel_run) run = nullptr;
  decltype(&tessel_finalize) finalize = nullptr;
};

// The library to load: the requested one, else the one beside the executable, else the installed
// one, else a plain name for the dynamic linker to look up. In each place libtessel.so.0, else
// libtessel.so.
[[nodiscard]] std::string choose_library(const std::optional<std::string>& asked_for);

// Loads the library until the process ends (an audit's workers may outlive the audit) and resolves
// the entry points. Throws `library_error` if it cannot.
[[nodiscard]] entry_points load_entry_points(const std::string& library);

}  // namespace tessel_host
