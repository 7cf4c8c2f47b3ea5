// One packed file with what a run has left, for whoever is asked why it went as it did.
//
//     tessel-support/logs/tessel_debug.log      the logs and their backups
//     tessel-support/journal.jsonl              the journal of the run
//     tessel-support/captures/tessel_12.log     the output of commands, if the audit did not
//                                               end by itself, and so has not removed it
//     tessel-support/doctor.txt                 what the doctor says of the machine afterwards
//     tessel-support/about                      program, library, machine, how the run has ended
//     tessel-support/manifest                   SHA-256, size and name of each of them
#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tessel_host {

// One line: the file, what is wrong with it, what to do.
class support_error : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Sees before an audit whether the file can be written, and leaves nothing. Throws `support_error`:
// the folder takes no file, or there is something in the file's place that is not to be replaced: a
// link, anything but a file, another user's, one with a second name, a file of the audit, or one of
// `others`, which this host writes.
void check_support_target(const std::string& path, const std::vector<std::string>& others);

// What the file `about` says, beside what can be seen of the machine.
struct run_facts {
  std::string program;  // name and version
  std::string library;  // the file that was loaded
  std::string command_line;
  std::uint32_t node_id = 0;
  std::time_t began = 0;
  std::string end;  // how the run has ended, in words
};

struct support_contents {
  std::size_t files = 0;
  std::uint64_t bytes = 0;  // of the packed file
};

// Packs the logs, the journal, if `journal` is not empty, the captures, and last what `doctor`
// returns, if there is one. Reads only files, never
// through a link; `about` says what was left out. The packed file is readable for its owner alone
// and replaces what has its name when it is complete. Throws `support_error`, and so if a signal
// that would end the process comes meanwhile, which it then gets; nothing is left behind.
support_contents make_support_file(const std::string& path, const std::string& journal,
                                   const std::vector<std::string>& captures, const run_facts& facts,
                                   const std::function<std::string()>& doctor = {});

}  // namespace tessel_host
