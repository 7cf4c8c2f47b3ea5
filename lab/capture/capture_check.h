// Checks that a capture is complete: a recording must hold every answer that its list of calls
// names, in the size that it gives; a rendered capture must hold every file of its list of files.
// You may edit the answers of a rendered capture; if you remove an answer, take it off the list. A
// capture with neither list is not checked.
#pragma once

#include <filesystem>

#include "lab/capture/capture.h"

namespace lab {

// Throw `lab_error`, one line that names the capture (as `where`) and the missing or damaged file.
void check_recording(const capture& c, const std::filesystem::path& where);
void check_recording_folder(const std::filesystem::path& folder,
                            const std::filesystem::path& where);

// The list of calls with the present sizes of the answers.
std::string calls_with_sizes(const capture& c);

}  // namespace lab
