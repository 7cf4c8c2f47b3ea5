// What a user is told of files that could not be read or written: one line that names the file as
// the user knows it, and the cause.
#pragma once

#include <exception>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace lab {

// Also of an error of the file system or of the output, whose own text is not for users.
std::string message_of(const std::exception& failure);

// What is made in a folder that nobody knows is told of as what it will be: calls `action`, and
// throws what goes wrong as a `lab_error` in which `shown` stands in the place of `building`.
void tell_as(const std::filesystem::path& building, const std::string& shown,
             const std::function<void()>& action);
std::string told_as(std::string message, const std::filesystem::path& building,
                    const std::string& shown);

// Throws `lab_error` if not all that was printed could be written.
void flush_output();

}  // namespace lab
