// A capture as one compressed file: a tar archive under zstd, so that `tar --zstd -xf` reads it
// too.
//
//     capture/manifest
//     capture/calls
//     capture/local/sw_version_show
//     capture/192.0.0.6/fwd_object_show,-t,lagport,-D
//
// Reading trusts nothing: an archive that is cut off, of another kind or size, that holds links or
// names that would leave the folder, is refused in one line that names file and place.
#pragma once

#include <filesystem>

#include "lab/capture/archive_stream.h"
#include "lab/capture/capture.h"

namespace lab {

// Both are built beside `out` and renamed at the end. They throw `lab_error` if `out` exists,
// cannot be written, what is read is no capture or an archive of it would be beyond the limits;
// nothing half written stays.
void pack_folder(const std::filesystem::path& folder, const std::filesystem::path& out,
                 const archive_limits& limits = {});
void unpack_folder(const std::filesystem::path& file, const std::filesystem::path& out,
                   const archive_limits& limits = {});

// Reads a packed capture into memory. Throws `lab_error`.
capture read_packed(const std::filesystem::path& file);

// The same for a capture of either form.
capture read_capture(const std::filesystem::path& folder_or_file);

}  // namespace lab
