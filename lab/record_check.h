// Whether a recorded capture holds all that its list of calls names. A capture without such a list,
// one that was rendered, has nothing to be checked by.
#pragma once

#include <filesystem>

#include "capture.h"

namespace lab {

// Throw `lab_error`, one line that names the capture, as `where`, and the file that is missing or
// damaged.
void check_recording(const capture& c, const std::filesystem::path& where);
void check_recording_folder(const std::filesystem::path& folder,
                            const std::filesystem::path& where);

}  // namespace lab
