#include "arguments.h"
#include "journal_file.h"
#include "library.h"

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <new>
#include <span>
#include <string>
#include <string_view>

namespace {

using namespace tessel_host;

// Needs no memory, because the lack of it may be the complaint.
int complain(std::string_view message, int status) {
  std::fprintf(stderr, "tessel-host: %.*s\n", static_cast<int>(message.size()), message.data());
  return status;
}

int show(std::string_view text) {
  const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  return written && std::fflush(stdout) == 0
             ? 0
             : complain("cannot write to standard output", status_output_failed);
}

// The library uses the journal by a descriptor of its own.
void start(const entry_points& library, const host_arguments& arguments) {
  if (!arguments.journal) return library.init();
  const int journal = open_journal_file(*arguments.journal);
  offer_journal(journal);
  library.init();
  ::close(journal);
}

// A completed audit ends the process inside tessel_run; only an incomplete one returns.
int audit(const host_arguments& arguments) {
  const auto library = load_entry_points(choose_library(arguments.library));
  start(library, arguments);
  const auto result = library.run(static_cast<std::int32_t>(arguments.node_id));
  library.finalize();
  try {
    const auto returned = describe_returned_run(result);
    return complain(returned.message, returned.status);
  } catch (const std::bad_alloc&) {
    return complain("the audit did not complete, and no memory is left to say more", 2);
  }
}

int act_on(const host_arguments& arguments) {
  switch (arguments.action) {
    case host_action::help:
      return show(arguments.help);
    case host_action::version:
      return show("tessel-host " TESSEL_VERSION "\n");
    case host_action::run:
      break;
  }
  return audit(arguments);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::span<const char* const> all(argv, static_cast<std::size_t>(argc));
    return act_on(parse_arguments(all.empty() ? all : all.subspan(1)));
  } catch (const usage_error& error) {
    return complain(error.what(), status_usage);
  } catch (const library_error& error) {
    return complain(error.what(), status_library_unavailable);
  } catch (const journal_error& error) {
    return complain(error.what(), status_journal_refused);
  } catch (const std::bad_alloc&) {
    return complain("cannot start the audit: out of memory", status_library_unavailable);
  } catch (const std::exception& error) {
    return complain(std::string("cannot start the audit: ") + error.what(),
                    status_library_unavailable);
  }
}
