// Help texts, in lines of 80 columns.
#pragma once

#include <cstddef>
#include <string>

namespace command_line {

// Wraps a text into lines and indents those after the first. Keeps the text's line breaks.
std::string wrapped(const std::string& text, std::size_t margin);

// The name of an option, operand or command, and beside it its description.
std::string entry(const std::string& name, const std::string& text);

std::string with_single_blank_lines(std::string text);

}  // namespace command_line
