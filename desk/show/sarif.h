// The view for tools that collect the results of checkers: SARIF 2.1.0.
#pragma once

#include <iosfwd>

namespace desk {

struct judged_run;

// Writes one run of the tool "tessel-report". Its results, a line each:
//
//     kind "fail"   a finding. Level "error" for an inconsistency and a programming error, "note"
//                   for a failure and a note, otherwise "warning"; the log and its line; the object
//                   and its place as logical locations; `fingerprint` as a partial fingerprint
//     kind "open"   an answer that was not read wholly (rule "not-read") and a bundle that was not
//                   judged (rule "not-judged"): neither passed nor failed
//
// Each code that occurs is a rule, with what docs/FINDINGS.md says about it. A failure to write is
// left to the stream's state. Any thread.
void show_sarif(const judged_run& of, std::ostream& out);

}  // namespace desk
