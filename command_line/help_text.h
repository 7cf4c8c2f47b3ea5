// Help texts, in lines of 80 columns.
#pragma once

#include <cstddef>
#include <string>

namespace command_line {

// The text in lines, those after the first behind a margin. Line breaks in it stay.
std::string wrapped(const std::string& text, std::size_t margin);

// What an option, an operand or a command is called, and beside it what it does.
std::string entry(const std::string& name, const std::string& text);

std::string with_single_blank_lines(std::string text);

}  // namespace command_line
