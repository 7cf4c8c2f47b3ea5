// What every layer holds of a bundle, on the page.
#pragma once

#include <iosfwd>

#include "desk/show/dossier_table.h"

namespace desk {

// A table for the bundle, one for its members and one for its sub-bundles, and what their headings
// are short for; nothing if there is nothing to show. A failure to write is left to the stream's
// state. Any thread.
void show_layers(const dossier_table& of, std::ostream& out);

}  // namespace desk
