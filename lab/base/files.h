// Whole files, read and written in one step.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace lab {

// The whole file. Throws `lab_error`.
std::string read_whole(const std::filesystem::path& file);
// The same for a file of a capture: refuses anything but a regular file, so links and pipes.
std::string read_own(const std::filesystem::path& file);

// Replaces the file. Throws `lab_error` that names the file and the cause.
void write_whole(const std::filesystem::path& file, std::string_view text);

}  // namespace lab
