// The view for systems that collect test results: JUnit's XML.
#pragma once

#include <iosfwd>

namespace desk {

struct judged_run;

// Writes one test suite, the router, whose test cases are
//
//     tessel.bundle   each bundle: failed if it differs, with the titles of its causes and the
//                     texts of their findings; skipped with the reasons if it was not judged
//     tessel.router   "result table": failed if the audit did not come to it. Failed as well: each
//                     cause that no failed bundle has, and all findings without a cause in one
//
// Notes that are normal are no test case. A failure to write is left to the stream's state. Any
// thread.
void show_junit(const judged_run& of, std::ostream& out);

}  // namespace desk
