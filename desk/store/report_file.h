// Reads back what `tessel-report json` wrote.
#pragma once

#include <string>

#include "desk/judge/judged_run.h"

namespace desk {

// The run as it was judged then: nothing is judged again. What the document does not have is left
// out: the values of the layers (object::cells and all that is made of them) and the journal's
// single commands. Keys that this program does not know are passed over.
//
// Throws `read_error` (desk/read/line_reader.h) if the file is no such document or not a whole one;
// it names the file, the place in it and what was expected there. Holds one element of a list as
// JSON at a time; a file of more than 1 GiB is refused. Any thread.
[[nodiscard]] judged_run read_report(const std::string& path);

}  // namespace desk
