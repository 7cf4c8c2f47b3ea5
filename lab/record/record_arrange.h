// Turns the files that the stand-ins left in a recording's work folder into a capture.
#pragma once

#include <cstddef>
#include <filesystem>

namespace lab {

struct recorded_calls {
  std::size_t all = 0;
  std::size_t cut_off = 0;  // began but did not end
};

// Gives every answer its name in `folder`/capture and writes the list of calls there. Throws
// `lab_error` if an output could not be kept.
recorded_calls arrange_recording(const std::filesystem::path& folder);

}  // namespace lab
