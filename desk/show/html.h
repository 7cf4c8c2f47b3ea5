// The view for a browser: one page that needs nothing else.
#pragma once

#include <iosfwd>

namespace desk {

struct judged_run;

// Writes the page: the verdict, the causes, a matrix of bundles and nodes, a dossier of each bundle
// that does not simply agree, findings without a cause, coverage. It refers to nothing outside, and
// its policy lets a browser load nothing. It works without scripts; with its own script it can be
// searched. A failure to write is left to the stream's state. Any thread.
void show_html(const judged_run& of, std::ostream& out);

}  // namespace desk
