// The matrix of bundles and nodes on the page, and the dossiers to which it leads.
#pragma once

#include <cstddef>
#include <iosfwd>

#include "desk/judge/judged_run.h"

namespace desk {

// A bundle on which something differs or was found has a cell for each node; another one is a plain
// row. A failure to write is left to the stream's state. Any thread, as for the next.
void show_matrix(const judged_run& of, std::ostream& out);

// The dossiers of all bundles, of which a browser shows the one that its address names ("#b3").
void show_dossiers(const judged_run& of, std::ostream& out);

// How sure a cause is, why, and what to do next.
void show_reasons(const cause& why, std::ostream& out);

// A finding with its code, its place in the logs and its text.
void show_finding(const finding& of, std::ostream& out);

}  // namespace desk
