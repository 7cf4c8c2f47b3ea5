// The name of an answer's file is the command line: the tool without its folder, then the
// arguments, commas between them, '+' for a blank within an argument, %XX for whatever a file name
// or a shell would stumble over.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace lab {

// "/opt/nos/bin/node_id_convert", {"-I", "0/0/CPU0"} -> "node_id_convert,-I,0%2F0%2FCPU0".
std::string file_name(std::string_view tool, const std::vector<std::string>& arguments);
// The same for a command line as it stands in a document: words and double-quoted words.
std::string file_name(std::string_view command_line);

// The file whose answer stands for all chips, for a chip command whose own file is not there:
// "asic_shell_show,-c,diag+lag,-u,3,-n,7" -> "asic_shell_show,-c,diag+lag". Empty for all others.
std::string shared_file_name(std::string_view file);

}  // namespace lab
