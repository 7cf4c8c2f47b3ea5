// The file name of an answer is the command line: the tool without its folder, then the arguments,
// separated by commas. '+' stands for a blank within an argument, %XX for a character that is
// special in a file name or a shell.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace lab {

// "/opt/nos/bin/node_id_convert", {"-I", "0/0/CPU0"} -> "node_id_convert,-I,0%2F0%2FCPU0".
std::string file_name(std::string_view tool, const std::vector<std::string>& arguments);
// The same for a command line as one text; double quotes keep a word together.
std::string file_name(std::string_view command_line);

// The file that answers for all chips if a chip command has no file of its own:
// "asic_shell_show,-c,diag+lag,-u,3,-n,7" -> "asic_shell_show,-c,diag+lag". Empty for other
// commands.
std::string shared_file_name(std::string_view file);

}  // namespace lab
