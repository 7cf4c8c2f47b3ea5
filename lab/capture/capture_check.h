// Checks that a capture is complete. A recording must hold the files that its manifest names, as
// they were, and no others, and every answer that its list of calls names. A rendered capture must
// hold every file of its list of files. You may edit the answers of a rendered capture; if you
// remove an answer, take it off the list. A recording of format 1 has no sums: its list of calls
// gives the sizes.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "lab/capture/capture.h"

namespace lab {

// Throw `lab_error`, one line that names the capture (as `where`) and the missing or damaged file.
void check_recording(const capture& c, const std::filesystem::path& where);
// `head` is what the folder's manifest says.
void check_recording_folder(const capture& head, const std::filesystem::path& folder,
                            const std::filesystem::path& where);

// The files of a capture that are no longer as they were when it was made, new ones included.
std::vector<std::string> changed_files(const capture& c);

// The list of calls with the present sizes of the answers.
std::string calls_with_sizes(const capture& c);

}  // namespace lab
