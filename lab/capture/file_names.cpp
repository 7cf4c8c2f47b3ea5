#include "lab/capture/file_names.h"

#include <fmt/format.h>

#include <cctype>
#include <cstdint>
#include <utility>

#include "lab/base/words.h"

namespace lab {
namespace {

std::string escaped(std::string_view text) {
  constexpr std::string_view plain = "._=:-";
  std::string result;
  for (const char c : text) {
    if (std::isalnum(static_cast<unsigned char>(c)) != 0 || plain.find(c) != std::string_view::npos)
      result += c;
    else if (c == ' ')
      result += '+';
    else
      result += fmt::format("%{:02X}", static_cast<unsigned char>(c));
  }
  return result;
}

// A file name has 255 bytes at most, and a recording adds a suffix; a hash (FNV-1a) replaces the
// rest of a longer name.
std::string shortened(std::string name) {
  constexpr std::size_t longest = 220;
  constexpr std::size_t kept = 200;
  if (name.size() <= longest) return name;
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char c : name) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  return fmt::format("{}~{:016x}", name.substr(0, kept), hash);
}

}  // namespace

std::string file_name(std::string_view tool, const std::vector<std::string>& arguments) {
  const std::size_t slash = tool.rfind('/');
  std::string name = escaped(slash == std::string_view::npos ? tool : tool.substr(slash + 1));
  for (const std::string& argument : arguments) {
    name += ',';
    name += escaped(argument);
  }
  return shortened(std::move(name));
}

std::string shared_file_name(std::string_view file) {
  const std::size_t unit = file.rfind(",-u,");
  if (!file.starts_with("asic_shell_show,-c,") || unit == std::string_view::npos) return {};
  return std::string{file.substr(0, unit)};
}

std::string file_name(std::string_view command_line) {
  std::vector<std::string> words = words_of(command_line);
  if (words.empty()) return {};
  const std::string tool = words.front();
  words.erase(words.begin());
  return file_name(tool, words);
}

}  // namespace lab
