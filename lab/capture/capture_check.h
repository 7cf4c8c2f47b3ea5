// Whether a capture holds all that it was made with: what a recording's list of calls names, as
// long as it says, or what the list of files of a rendered one names. Whoever edits a rendered one
// may change what its tools say; a tool that no longer answers is taken off the list. A capture
// with neither list has nothing to be checked by.
#pragma once

#include <filesystem>

#include "lab/capture/capture.h"

namespace lab {

// Throw `lab_error`, one line that names the capture, as `where`, and the file that is missing or
// damaged.
void check_recording(const capture& c, const std::filesystem::path& where);
void check_recording_folder(const std::filesystem::path& folder,
                            const std::filesystem::path& where);

// The list of calls with the sizes that the answers have now.
std::string calls_with_sizes(const capture& c);

}  // namespace lab
