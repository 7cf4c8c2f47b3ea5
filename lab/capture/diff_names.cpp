#include "lab/capture/diff_names.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace lab {
namespace {

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}
bool is_word_part(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

std::size_t end_of(std::string_view text, std::size_t from, std::string_view allowed) {
  while (from < text.size() &&
         (is_digit(text[from]) || allowed.find(text[from]) != std::string_view::npos))
    ++from;
  return from;
}

// The number after "Bundle-Ether" or "BE": "1" or "1.100".
std::string bundle_in(std::string_view line) {
  for (const std::string_view prefix : {std::string_view{"Bundle-Ether"}, std::string_view{"BE"}}) {
    for (std::size_t at = line.find(prefix); at != std::string_view::npos;
         at = line.find(prefix, at + 1)) {
      const std::size_t begin = at + prefix.size();
      if ((at > 0 && is_word_part(line[at - 1])) || begin >= line.size() || !is_digit(line[begin]))
        continue;
      std::size_t end = end_of(line, begin, ".");
      while (line[end - 1] == '.') --end;
      if (end == line.size() || !is_word_part(line[end]))
        return "BE" + std::string{line.substr(begin, end - begin)};
    }
  }
  return {};
}

std::string handle_in(std::string_view line, const handle_names& names) {
  for (std::size_t at = line.find("0x"); at != std::string_view::npos;
       at = line.find("0x", at + 1)) {
    std::size_t end = at + 2;
    while (end < line.size() && std::isxdigit(static_cast<unsigned char>(line[end])) != 0) ++end;
    const auto found = names.find(std::string{line.substr(at, end - at)});
    if (found != names.end()) return found->second;
  }
  return {};
}

// "HundredGigE0/0/0/1": letters, then numbers with slashes between them.
std::string port_in(std::string_view line) {
  for (std::size_t at = line.find('/'); at != std::string_view::npos; at = line.find('/', at + 1)) {
    std::size_t begin = at;
    while (begin > 0 && is_digit(line[begin - 1])) --begin;
    std::size_t name = begin;
    while (name > 0 && std::isalpha(static_cast<unsigned char>(line[name - 1])) != 0) --name;
    const std::size_t end = end_of(line, at, "/.");
    const auto slashes = std::count(line.begin() + static_cast<std::ptrdiff_t>(begin),
                                    line.begin() + static_cast<std::ptrdiff_t>(end), '/');
    if (name < begin && slashes >= 3 && is_digit(line[end - 1]))
      return std::string{line.substr(name, end - name)};
    at = std::max(at, end - 1);
  }
  return {};
}

struct line_names {
  std::string bundle;
  std::string other;
};

line_names names_in(std::string_view line, const handle_names& names) {
  line_names found{bundle_in(line), {}};
  if (!found.bundle.empty()) return found;
  const std::string by_handle = handle_in(line, names);
  if (by_handle.starts_with("BE"))
    found.bundle = by_handle;
  else
    found.other = by_handle.empty() ? port_in(line) : by_handle;
  return found;
}

void name_block(std::vector<owned_line>& lines, std::size_t begin, const line_names& block) {
  for (std::size_t i = begin; i < lines.size(); ++i)
    if (!lines[i].owner.starts_with("BE"))
      lines[i].owner = !block.bundle.empty()     ? block.bundle
                       : !lines[i].owner.empty() ? lines[i].owner
                                                 : block.other;
}

}  // namespace

void add_handle_names(const capture& c, handle_names& names) {
  for (const auto& [key, text] : c.answers) {
    if (!key.second.starts_with("ifmgr_show")) continue;
    std::string_view rest = text;
    while (!rest.empty()) {
      const std::size_t end = rest.find('\n');
      const std::string_view line = rest.substr(0, end);
      const std::size_t blank = line.find(' ');
      if (line.starts_with("0x") && blank != std::string_view::npos) {
        const std::size_t begin = line.find_first_not_of(' ', blank);
        if (begin != std::string_view::npos)
          names.try_emplace(std::string{line.substr(0, blank)},
                            line.substr(begin, line.find(' ', begin) - begin));
      }
      rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    }
  }
}

std::vector<owned_line> lines_with_owners(std::string_view text, const handle_names& names) {
  std::vector<owned_line> lines;
  std::size_t block_begin = 0;
  line_names block;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.empty() || line == "!") {
      name_block(lines, block_begin, block);
      block_begin = lines.size();
      block = {};
      continue;
    }
    line_names found = names_in(line, names);
    if (block.bundle.empty()) block.bundle = found.bundle;
    if (block.other.empty()) block.other = found.other;
    lines.push_back({line, !found.bundle.empty() ? found.bundle : found.other});
  }
  name_block(lines, block_begin, block);
  return lines;
}

}  // namespace lab
