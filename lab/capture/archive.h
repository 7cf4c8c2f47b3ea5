// A capture as one compressed file: a tar archive compressed with zstd, which `tar --zstd -xf`
// reads too.
//
//     capture/manifest
//     capture/calls
//     capture/local/sw_version_show
//     capture/192.0.0.6/fwd_object_show,-t,lagport,-D
//
// Reading trusts nothing: an invalid, truncated or oversized archive, or one with links or names
// that escape the folder, is rejected with one line that names the file and the place.
#pragma once

#include <filesystem>

#include "lab/capture/archive_stream.h"
#include "lab/capture/capture.h"

namespace lab {

// Both build their result beside `out` and rename it at the end. They throw `lab_error` if `out`
// exists or cannot be written, if the input is not a capture, or if its archive would exceed the
// limits; nothing is left behind then.
void pack_folder(const std::filesystem::path& folder, const std::filesystem::path& out,
                 const archive_limits& limits = {});
void unpack_folder(const std::filesystem::path& file, const std::filesystem::path& out,
                   const archive_limits& limits = {});

// Reads a packed capture into memory. Throws `lab_error`.
capture read_packed(const std::filesystem::path& file);

// The same for a capture of either form.
capture read_capture(const std::filesystem::path& folder_or_file);
// The same without a check whether it is complete.
capture read_unchecked(const std::filesystem::path& folder_or_file);

}  // namespace lab
