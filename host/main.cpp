#include "after_audit.h"
#include "arguments.h"
#include "audit.h"
#include "audit_files.h"
#include "audit_lock.h"
#include "doctor.h"
#include "doctor_beside.h"
#include "early_stop.h"
#include "journal_file.h"
#include "journal_relay.h"
#include "leftovers.h"
#include "library.h"
#include "progress_display.h"
#include "standard_error.h"
#include "support_file.h"
#include "watched_audit.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "command_line/one_line.h"

namespace {

using namespace tessel_host;

// Needs no memory, because the lack of it may be the complaint.
int complain(std::string_view message, int status) {
  write_message(message);
  return status;
}

int complain_of_output(const std::string& cause) {
  return complain("cannot write to standard output: " + cause + "; send it where there is room",
                  status_output_failed);
}

int show(std::string_view text) {
  const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (written && std::fflush(stdout) == 0) return 0;
  return complain_of_output(cause_of(errno));
}

// Names what an audit that did not come to its end has left.
void name_captures(const std::vector<std::string>& left) {
  if (left.empty()) return;
  std::string files;
  for (const std::string& file : left) files += " " + command_line::one_line(file);
  complain("the output of its commands stays:" + files, 0);
}

void name_what_is_left(const watched_end& end) {
  std::string tools;
  for (const process& tool : end.left_processes) tools += " " + std::to_string(tool.id);
  if (!tools.empty())
    complain(
        "these processes of the audit cannot be ended, because they wait for a device or belong to "
        "another user; see ps -o pid,user,wchan,args -p" +
            tools,
        0);
  name_captures(end.left_captures);
}

int report(std::int32_t result, std::time_t began) {
  try {
    const auto returned = describe_returned_run(result, cause_of_early_stop(began));
    return complain(returned.message, returned.status);
  } catch (const std::bad_alloc&) {
    return complain("the audit did not complete, and no memory is left to say more",
                    status_of_returned_run(result));
  }
}

// The way to show progress. Says why there is none where somebody has asked for it.
progress_way progress_of(const host_arguments& arguments, bool has_journal) {
  const progress_way way = choose_progress(arguments.progress);
  if (arguments.progress != true) return way;
  if (way == progress_way::none) {
    complain(
        "no progress is shown, because the audit prints to the same terminal; send its "
        "output to a file",
        0);
  } else if (!has_journal) {
    complain("no progress is shown, because there is no memory for a journal of the audit", 0);
  }
  return way;
}

// True if the journal is needed when the audit has ended.
bool keeps_journal(const host_arguments& arguments) {
  return arguments.report.any() || arguments.support_file;
}

// True if the host itself needs the journal.
bool reads_journal(const host_arguments& arguments) {
  return arguments.command_timeout || arguments.deadline || keeps_journal(arguments) ||
         choose_progress(arguments.progress) != progress_way::none;
}

struct prepared_journal {
  std::unique_ptr<journal_tail> tail;    // what the host reads of it
  std::unique_ptr<journal_relay> relay;  // who gets its lines from the host
  std::string name;                      // of the whole of it; empty if it is not kept
};

// The name of a file in memory, as long as this process lives. The descriptor stays open.
std::string name_of(int descriptor) {
  const int kept = ::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  return kept < 0 ? "" : "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(kept);
}

// The journal for whoever has started the host. Into a file the library writes by itself, so that a
// slow disk does not keep the host from watching; the host reads it there. For any other reader it
// writes into memory, and the host hands on what the reader takes.
prepared_journal share_journal(const host_arguments& arguments, int inherited, audit_plan& plan) {
  prepared_journal made;
  const bool is_kept = keeps_journal(arguments);
  made.tail = follow_journal(inherited, true);  // nothing of it is given back: it is theirs
  const int memory = !made.tail || is_kept ? open_journal_in_memory() : -1;
  if (is_kept) made.name = name_of(memory);
  if (made.tail) {
    if (is_kept) made.relay = relay_to(memory);
    ::close(memory);
    return made;
  }
  made.tail = follow_journal(memory, is_kept);
  if (made.tail) {
    made.relay = relay_to(inherited);
    plan.journal = memory;
  }
  return made;
}

// Offers the library a journal, if the arguments want one.
prepared_journal prepare_journal(const host_arguments& arguments, audit_plan& plan) {
  const inherited_wish inherited = inherited_journal();
  const bool is_needed = reads_journal(arguments);
  prepared_journal made;
  if (arguments.journal) {
    plan.journal = open_journal_file(*arguments.journal);
    made.name = *arguments.journal;
  } else if (is_needed && inherited.descriptor >= 0) {
    made = share_journal(arguments, inherited.descriptor, plan);
  } else if (is_needed) {
    plan.journal = open_journal_in_memory();
    if (keeps_journal(arguments)) made.name = name_of(plan.journal);
  }
  const int used = plan.journal >= 0 ? plan.journal : inherited.descriptor;
  if (used < 0) return made;
  if (is_needed && !made.tail) made.tail = follow_journal(used, keeps_journal(arguments));
  auto timeout = arguments.command_timeout;
  if (!timeout && !arguments.journal) timeout = inherited.command_timeout;
  if (plan.journal >= 0 || arguments.command_timeout) offer_journal(used, timeout);
  return made;
}

std::string describe_deadline(const host_arguments& arguments, const progress_display& display) {
  return "the audit was ended, because it had not come to its end after " +
         std::to_string(arguments.deadline->count()) + " s (--deadline): " + display.summary();
}

void complain_of_report(const std::string& line) {
  complain(line, 0);
}

// Nobody is to take an earlier report for that of this audit.
void complain_of_no_report(const report_wishes& wishes, const std::string& cause) {
  std::string line = "no report was made, because " + cause;
  std::error_code error;
  if (wishes.json && std::filesystem::is_regular_file(*wishes.json, error))
    line += "; '" + command_line::one_line(*wishes.json) + "' is of an earlier one";
  complain(line, 0);
}

// Behind an audit that has ended by itself. Ends the process if a check decides how.
void report_and_check(const host_arguments& arguments, const watched_end& end,
                      const debug_log_state& before, const std::string& program,
                      const std::string& journal, std::size_t timed_out) {
  const report_wishes& wishes = arguments.report;
  if (!wishes.any()) return;
  const bool has_ended =
      !end.is_overdue && WIFEXITED(end.wait_status) && WEXITSTATUS(end.wait_status) == 0;
  int status = status_not_complete;
  const debug_log_state now;
  if (end.stopped_by != 0 || !has_ended) {
    if (wishes.json) complain_of_no_report(wishes, "the audit did not complete");
  } else if (!before.was_written_until(now)) {
    complain_of_no_report(wishes, std::string("the audit has not written ") + debug_log +
                                      (now.is_file() ? ", which is of an earlier one" : "") +
                                      "; what it printed says why");
  } else {
    status = report_audit(program, wishes, journal, timed_out, complain_of_report);
  }
  if (end.stopped_by != 0) return;
  if (arguments.report.checks) ::_exit(status);
}

// The file that a function was loaded from.
std::string file_of(const void* function) {
  Dl_info found{};
  return ::dladdr(function, &found) != 0 && found.dli_fname != nullptr ? found.dli_fname
                                                                       : "not known";
}

// How the audit has ended, in words.
std::string describe_end(const host_arguments& arguments, const watched_end& end,
                         const progress_display& display) {
  if (end.is_overdue) return describe_deadline(arguments, display);
  if (WIFSIGNALED(end.wait_status))
    return "signal " + std::to_string(WTERMSIG(end.wait_status)) + " ended the audit";
  std::string status = "status " + std::to_string(WEXITSTATUS(end.wait_status));
  if (!end.returned) return status;
  return status + "; " +
         describe_returned_run(*end.returned, cause_of_early_stop(end.began)).message;
}

// Who stops a host wants it to end at once.
void pack_for_support(const host_arguments& arguments, const watched_end& end,
                      const progress_display& display, const audit_plan& plan,
                      const std::string& journal) {
  if (!arguments.support_file) return;
  const std::string file = command_line::one_line(*arguments.support_file);
  if (end.stopped_by != 0) {
    complain("the support file '" + file +
                 "' was not made, because a signal has stopped the audit; let it end, or limit its "
                 "time with --deadline SECONDS",
             0);
    return;
  }
  run_facts facts{"tessel-host " TESSEL_VERSION,
                  file_of(reinterpret_cast<const void*>(plan.library.init)),
                  arguments.command_line,
                  plan.node_id,
                  end.began,
                  describe_end(arguments, end, display)};
  try {
    doctor_beside doctor;
    const auto made = make_support_file(*arguments.support_file, journal, end.left_captures, facts,
                                        [&doctor] { return doctor.lines(); });
    complain("'" + file + "' is for support: " + std::to_string(made.files) + " files in " +
                 std::to_string((made.bytes + 1023) / 1024) +
                 " KiB. It holds the configuration and the addresses of this router; give it only "
                 "to whom you trust with them. What may be given away is a recording: tessel-lab "
                 "record, then tessel-lab redact",
             0);
  } catch (const support_error& error) {
    complain(error.what(), 0);
  }
}

// What the deadline has left only for the support file.
void remove_what_was_kept(const host_arguments& arguments, watched_end& end) {
  if (arguments.support_file && end.is_overdue)
    end.left_captures = remove_captures_since(end.began);
}

// Before an audit, so that a wrong path does not cost one.
void check_files(const host_arguments& arguments) {
  if (arguments.report.json) check_report_target(*arguments.report.json, arguments.journal);
  if (!arguments.support_file) return;
  std::vector<std::string> others;
  for (const auto& other : {arguments.journal, arguments.report.json})
    if (other) others.push_back(*other);
  check_support_target(*arguments.support_file, others);
}

int run_and_watch(const host_arguments& arguments, audit_plan& plan) {
  using clock = std::chrono::steady_clock;
  std::optional<lock_deadline> deadline;  // waiting for another audit counts
  if (arguments.deadline) deadline = {clock::now() + *arguments.deadline, *arguments.deadline};
  const std::string program = arguments.report.any() ? find_report_program() : std::string();
  check_files(arguments);
  // Before a file is emptied that another audit may be writing.
  take_audit_lock(arguments.wait, deadline);
  const debug_log_state log_before;
  auto journal = prepare_journal(arguments, plan);
  const progress_way way = progress_of(arguments, journal.tail != nullptr);
  progress_display display(way, std::move(journal.tail), std::move(journal.relay), clock::now());
  watch_limits limits{std::nullopt, arguments.support_file.has_value()};
  if (deadline) limits.deadline = deadline->end;
  watched_end end = run_watched(plan, display, limits);
  if (end.returned) report(*end.returned, end.began);
  if (end.is_overdue) complain(describe_deadline(arguments, display), 0);
  pack_for_support(arguments, end, display, plan, journal.name);
  remove_what_was_kept(arguments, end);
  name_what_is_left(end);
  report_and_check(arguments, end, log_before, program, journal.name, display.timed_out());
  end_alike(end);
}

// A completed audit ends its process inside tessel_run; only an incomplete one returns.
int audit(const host_arguments& arguments) {
  audit_plan plan;
  plan.library = load_entry_points(choose_library(arguments.library));
  plan.node_id = arguments.node_id;
  if (!arguments.in_process) return run_and_watch(arguments, plan);
  if (arguments.journal) {
    plan.journal = open_journal_file(*arguments.journal);
    offer_journal(plan.journal, std::nullopt);
  }
  const std::time_t began = std::time(nullptr);
  const int status = report(run_audit(plan), began);
  name_captures(captures_since(began));
  return status;
}

int act_on(const host_arguments& arguments) {
  switch (arguments.action) {
    case host_action::help:
      return show(arguments.help);
    case host_action::version:
      return show("tessel-host " TESSEL_VERSION "\n");
    case host_action::doctor:
      return examine_machine();
    case host_action::run:
      break;
  }
  return audit(arguments);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::span<const char* const> all(argv, static_cast<std::size_t>(argc));
    host_arguments arguments = parse_arguments(all.empty() ? all : all.subspan(1));
    for (const char* const word : all)
      arguments.command_line += (arguments.command_line.empty() ? "" : " ") + std::string(word);
    return act_on(arguments);
  } catch (const usage_error& error) {
    return complain(error.what(), status_usage);
  } catch (const library_error& error) {
    return complain(error.what(), status_library_unavailable);
  } catch (const journal_error& error) {
    return complain(error.what(), status_file_refused);
  } catch (const support_error& error) {
    return complain(error.what(), status_file_refused);
  } catch (const doctor_unheard& error) {
    return complain_of_output(error.what());
  } catch (const report_file_error& error) {
    return complain(error.what(), status_file_refused);
  } catch (const report_error& error) {
    return complain(error.what(), status_library_unavailable);
  } catch (const audit_running& error) {
    return complain(error.what(), status_audit_running);
  } catch (const audit_waited_too_long& error) {
    return complain(error.what(), status_not_complete);
  } catch (const std::bad_alloc&) {
    return complain("cannot start the audit: out of memory", status_library_unavailable);
  } catch (const std::exception& error) {
    return complain(std::string("cannot start the audit: ") + error.what(),
                    status_library_unavailable);
  }
}
