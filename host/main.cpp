#include "arguments.h"
#include "audit.h"
#include "journal_file.h"
#include "library.h"
#include "watched_audit.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <new>
#include <span>
#include <string>
#include <string_view>

#include "command_line/one_line.h"

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

// Names what an audit that did not come to its end has left.
void name_what_is_left(const watched_end& end) {
  if (end.left_processes > 0)
    complain(std::to_string(end.left_processes) + " tools of the audit cannot be ended", 0);
  if (end.left_captures.empty()) return;
  std::string files;
  for (const std::string& file : end.left_captures) files += " " + command_line::one_line(file);
  complain("the output of its commands stays:" + files, 0);
}

int report(std::int32_t result) {
  try {
    const auto returned = describe_returned_run(result);
    return complain(returned.message, returned.status);
  } catch (const std::bad_alloc&) {
    return complain("the audit did not complete, and no memory is left to say more", 2);
  }
}

// A completed audit ends its process inside tessel_run; only an incomplete one returns.
int audit(const host_arguments& arguments) {
  audit_plan plan;
  plan.library = load_entry_points(choose_library(arguments.library));
  plan.node_id = arguments.node_id;
  if (arguments.journal) {
    plan.journal = open_journal_file(*arguments.journal);
    offer_journal(plan.journal);
  }
  if (arguments.in_process) return report(run_audit(plan));
  const watched_end end = run_watched(plan);
  if (end.returned) report(*end.returned);
  name_what_is_left(end);
  end_alike(end);
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
