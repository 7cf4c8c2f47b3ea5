// The view for programs: everything of a judged run except each layer's raw values.
#pragma once

#include <iosfwd>

namespace desk {

struct judged_run;

// Writes one JSON document as desk/show/report.schema.json describes it. Its keys keep their order,
// and each bundle, cause, finding and answer is one line. `"format"` is 1; it grows when a program
// that reads this one could be misled. Null means that there is none or that it is not known.
//
// A failure to write is left to the stream's state. Any thread.
void show_json(const judged_run& of, std::ostream& out);

}  // namespace desk
