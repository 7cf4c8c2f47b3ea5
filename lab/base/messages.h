// Messages about files that could not be read or written: one line with the cause and the file's
// name as the user knows it.
#pragma once

#include <exception>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace lab {

// The message of a failure. Rewords errors of the file system and of standard output, whose own
// texts are not meant for users.
std::string message_of(const std::exception& failure);

// A text of any origin with its control characters written as "\x0a".
std::string on_one_line(std::string_view text);

// Something that is made in a temporary folder is reported under its final name: calls `action`,
// and throws its failure as a `lab_error` in which `shown` replaces `building`.
void report_as(const std::filesystem::path& building, const std::string& shown,
               const std::function<void()>& action);
std::string reported_as(std::string message, const std::filesystem::path& building,
                        const std::string& shown);

// Throws `lab_error` if some of the output could not be written.
void flush_output();

}  // namespace lab
