#include "lab/capture/capture.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <utility>

#include "lab/base/beside.h"
#include "lab/base/error.h"
#include "lab/base/files.h"
#include "lab/base/messages.h"
#include "lab/base/parse_toml.h"
#include "lab/capture/file_names.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t manifest_format = 2;
constexpr std::int64_t oldest_format = 1;

std::string toml_text(std::string_view text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') result += '\\';
    if (std::iscntrl(static_cast<unsigned char>(c)) != 0)
      result += fmt::format("\\u{:04X}", static_cast<unsigned char>(c));
    else
      result += c;
  }
  return result + '"';
}

std::string toml_list(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + toml_text(word);
  return "[" + text + "]";
}

// The texts of a pedigree, by key.
template <typename Pedigree, typename Take>
void each_text(Pedigree& made, Take take) {
  take("origin", made.origin);
  take("version", made.version);
  take("redacted_by", made.redacted_by);
  take("type", made.type);
  take("host_name", made.host_name);
  take("begin", made.begin);
  take("end", made.end);
}

std::string pedigree_text(const pedigree& made) {
  std::string text;
  each_text(made, [&](const char* key, const std::string& value) {
    if (!value.empty()) text += fmt::format("{} = {}\n", key, toml_text(value));
  });
  if (made.calls > 0) text += fmt::format("calls = {}\n", made.calls);
  return text;
}

std::string manifest_of(const capture& c, const file_sums& sums) {
  std::string text = "# The router whose tools this capture answers for.\n";
  text +=
      fmt::format("format = {}\nrouter = {}\nhost_node_id = {}\nmissing_tools = {}\n",
                  manifest_format, toml_text(c.router), c.host_node_id, toml_list(c.missing_tools));
  pedigree made = c.made;
  // Read from format 1: only a recording has a list of calls.
  if (made.origin.empty()) made.origin = c.calls.empty() ? "rendered" : "recorded";
  text += pedigree_text(made);
  if (!c.blocked_captures.empty())
    text += fmt::format("blocked_captures = {}\n", toml_list(c.blocked_captures));
  if (!c.full_logs.empty()) text += fmt::format("full_logs = {}\n", toml_list(c.full_logs));
  if (c.file_limit > 0) text += fmt::format("file_limit = {}\n", c.file_limit);
  if (c.tmp_kibibytes > 0) text += fmt::format("tmp_kibibytes = {}\n", c.tmp_kibibytes);
  text += "\n[nodes]\n";
  for (const auto& [address, name] : c.nodes)
    text += fmt::format("{} = {}\n", toml_text(address), toml_text(name));
  if (!sums.empty()) text += "\n# Bytes and SHA-256 of every file.\n[files]\n";
  for (const auto& [name, sum] : sums)
    text += fmt::format("{} = \"{} {}\"\n", toml_text(name), sum.bytes, sum.sha256);
  return text;
}

[[noreturn]] void refuse(const std::string& file, const toml::node& at, const std::string& what) {
  throw lab_error(fmt::format("{}:{}: {}", file, at.source().begin.line, what));
}

std::string text_of(const toml::node& node, std::string_view key, const std::string& file) {
  if (!node.is_string()) refuse(file, node, fmt::format("{} is not a text", key));
  return *node.value<std::string>();
}

std::vector<std::string> texts_of(const toml::table& table, std::string_view key,
                                  const std::string& file) {
  std::vector<std::string> texts;
  const toml::node* found = table.get(key);
  if (found == nullptr) return texts;
  if (!found->is_array()) refuse(file, *found, fmt::format("{} is not a list of texts", key));
  for (const toml::node& text : *found->as_array()) texts.push_back(text_of(text, key, file));
  return texts;
}

// 0 if there is none.
std::uint64_t size_of(const toml::table& table, std::string_view key, std::string_view unit,
                      const std::string& file) {
  const auto size = table[key].value_or(std::int64_t{table.contains(key) ? -1 : 0});
  if (size < 0) throw lab_error(fmt::format("{}: {} is not a number of {}", file, key, unit));
  return static_cast<std::uint64_t>(size);
}

// An unknown key, from a later lab or a typing error, would be ignored silently.
void refuse_unknown_keys(const toml::table& table, const std::string& file) {
  constexpr std::array<std::string_view, 18> known{
      "format",    "router",      "host_node_id",  "missing_tools", "blocked_captures",
      "full_logs", "file_limit",  "tmp_kibibytes", "nodes",         "origin",
      "version",   "redacted_by", "type",          "host_name",     "begin",
      "end",       "calls",       "files"};
  for (const auto& [key, value] : table)
    if (std::find(known.begin(), known.end(), key.str()) == known.end())
      refuse(file, value, fmt::format("unknown key \"{}\"", key.str()));
}

pedigree pedigree_in(const toml::table& table, const std::string& file) {
  constexpr std::array<std::string_view, 4> origins{"", "recorded", "rendered", "generated"};
  pedigree made;
  made.format = table["format"].value_or(manifest_format);
  made.origin.clear();
  each_text(made, [&](const char* key, std::string& value) {
    if (const toml::node* found = table.get(key)) value = text_of(*found, key, file);
  });
  made.calls = size_of(table, "calls", "calls", file);
  if (std::find(origins.begin(), origins.end(), made.origin) == origins.end())
    refuse(file, *table.get("origin"),
           fmt::format("origin is \"{}\", not recorded, rendered or generated", made.origin));
  if (made.format > oldest_format && made.origin.empty())
    throw lab_error(fmt::format("{}: has format {}, but names no origin", file, made.format));
  return made;
}

// "301 9f86d0...".
file_sum sum_in(std::string_view text) {
  constexpr std::size_t digits = 64;
  const std::size_t blank = std::min(text.find(' '), text.size());
  file_sum sum;
  const auto [end, error] = std::from_chars(text.data(), text.data() + blank, sum.bytes);
  const bool is_size = error == std::errc{} && blank > 0 && end == text.data() + blank;
  sum.sha256 = text.substr(std::min(blank + 1, text.size()));
  const bool is_sum = sum.sha256.size() == digits &&
                      sum.sha256.find_first_not_of("0123456789abcdef") == std::string::npos;
  return is_size && is_sum ? sum : file_sum{};
}

file_sums sums_in(const toml::table& table, const std::string& file) {
  file_sums sums;
  const toml::node* found = table.get("files");
  if (found == nullptr) return sums;
  if (!found->is_table()) refuse(file, *found, "files is not a table");
  for (const auto& [name, value] : *found->as_table()) {
    file_sum sum = sum_in(text_of(value, name.str(), file));
    if (sum.sha256.empty())
      refuse(file, value, fmt::format("{}: not \"BYTES SHA-256\"", name.str()));
    sums.emplace(name.str(), std::move(sum));
  }
  return sums;
}

// A line per answer: "192.0.0.6/fwd_object_show,-t,lagport,-D".
std::string list_of_files(const capture& c) {
  std::string list;
  for (const auto& [key, text] : c.answers)
    if (key.second.find('\n') == std::string::npos)
      list += fmt::format("{}/{}\n", key.first, key.second);
  return list;
}

}  // namespace

std::string lab_version() {
  return TESSEL_LAB_VERSION;
}

void answer(capture& c, std::string_view place, std::string_view command_line, std::string text) {
  c.answers.insert_or_assign({std::string{place}, file_name(command_line)}, std::move(text));
}

const std::string& answer_to(const capture& c, std::string_view place,
                             std::string_view command_line) {
  const std::string file = file_name(command_line);
  auto found = c.answers.find({std::string{place}, file});
  if (found == c.answers.end())
    found = c.answers.find({std::string{place}, shared_file_name(file)});
  if (found == c.answers.end())
    throw lab_error(fmt::format("{}: no answer to \"{}\" at {}", c.router, command_line, place));
  return found->second;
}

std::string& answer_to(capture& c, std::string_view place, std::string_view command_line) {
  return const_cast<std::string&>(answer_to(std::as_const(c), place, command_line));
}

void write_files(const capture& c, const fs::path& folder, with_sums sums) {
  file_sums all;
  std::string made;
  const auto write = [&](const std::string& name, const std::string& text) {
    write_whole(folder / name, text);
    if (sums == with_sums::yes) all.emplace(name, sum_of(text));
  };
  for (const auto& [key, text] : c.answers) {
    const fs::path place = folder / key.first;
    if (key.first != made) fs::create_directories(place);
    made = key.first;
    write(key.first + '/' + key.second, text);
  }
  if (c.calls.empty())
    write("files", list_of_files(c));
  else
    write("calls", c.calls);
  if (!c.journal.empty()) write("journal", c.journal);
  write_whole(folder / "manifest", manifest_of(c, all));
}

void write_manifest(const capture& c, const fs::path& folder) {
  write_whole(folder / "manifest", manifest_of(c, c.sums));
}

void build_beside(const fs::path& out, const std::function<void(const fs::path&)>& build) {
  if (fs::exists(fs::symlink_status(out)))
    throw lab_error(fmt::format("{}: exists already", out.string()));
  const folder_beside made(out);
  const fs::path building = made.path() / "built";
  report_as(building, out.string(), [&] {
    build(building);
    fs::rename(building, out);
  });
}

void write_folder(const capture& c, const fs::path& out,
                  const std::function<void(const fs::path&)>& last) {
  build_beside(out, [&](const fs::path& building) {
    fs::create_directories(building);
    write_files(c, building);
    if (last) last(building);
  });
}

bool is_capture_folder(const fs::path& folder) {
  return fs::is_regular_file(folder / "manifest");
}

capture parse_manifest(std::string_view text, const std::string& file) {
  const toml::table table = parse_toml(text, file);
  const auto format = table["format"].value<std::int64_t>();
  if (!format) throw lab_error(fmt::format("{}: names no format", file));
  if (*format < oldest_format || *format > manifest_format)
    throw lab_error(
        fmt::format("{}: has format {}; this tessel-lab ({}) reads the formats {} to {}", file,
                    *format, TESSEL_LAB_VERSION, oldest_format, manifest_format));
  refuse_unknown_keys(table, file);
  capture c;
  if (const toml::node* router = table.get("router")) c.router = text_of(*router, "router", file);
  const auto id = table["host_node_id"].value<std::int64_t>();
  if (!id || *id < 0 || *id > 0xffffffff)
    throw lab_error(fmt::format("{}: host_node_id is not a number of 32 bits", file));
  c.host_node_id = static_cast<std::uint32_t>(*id);
  c.missing_tools = texts_of(table, "missing_tools", file);
  c.blocked_captures = texts_of(table, "blocked_captures", file);
  c.full_logs = texts_of(table, "full_logs", file);
  c.file_limit = size_of(table, "file_limit", "bytes", file);
  c.tmp_kibibytes = size_of(table, "tmp_kibibytes", "kibibytes", file);
  c.made = pedigree_in(table, file);
  c.sums = sums_in(table, file);
  // The names become paths.
  for (const auto* names : {&c.blocked_captures, &c.full_logs})
    for (const std::string& name : *names)
      if (name.empty() || name.find('/') != std::string::npos)
        throw lab_error(fmt::format("{}: \"{}\" is not a file name", file, name));
  if (const toml::node* nodes = table.get("nodes")) {
    if (!nodes->is_table()) refuse(file, *nodes, "nodes is not a table");
    for (const auto& [address, name] : *nodes->as_table())
      c.nodes.emplace_back(address.str(), text_of(name, address.str(), file));
  }
  return c;
}

namespace {

[[noreturn]] void refuse_entry(const fs::path& folder, const fs::path& entry, const char* why) {
  throw lab_error(
      fmt::format("{}: {}: {}", folder.string(), entry.lexically_relative(folder).string(), why));
}

void check_tree(const fs::path& folder) try {
  for (const auto& place : fs::directory_iterator(folder)) {
    const fs::file_type type = place.symlink_status().type();
    if (type == fs::file_type::regular) continue;
    if (type != fs::file_type::directory)
      refuse_entry(folder, place.path(), "neither a regular file nor a folder");
    for (const auto& file : fs::directory_iterator(place.path())) {
      const fs::file_type inner = file.symlink_status().type();
      if (inner == fs::file_type::directory)
        refuse_entry(folder, file.path(), "a folder where an answer belongs");
      if (inner != fs::file_type::regular)
        refuse_entry(folder, file.path(), "neither a regular file nor a folder");
    }
  }
} catch (const fs::filesystem_error& failure) {
  throw lab_error(fmt::format("{}: {}", failure.path1().string(), failure.code().message()));
}

}  // namespace

capture read_manifest(const fs::path& folder) {
  const fs::path file = folder / "manifest";
  if (!fs::exists(folder))
    throw lab_error(fmt::format("{}: there is no such capture", folder.string()));
  if (!fs::is_directory(folder))
    throw lab_error(fmt::format("{}: not a capture: it is not a folder", folder.string()));
  if (!fs::exists(file))
    throw lab_error(fmt::format("{}: not a capture: it has no manifest", folder.string()));
  check_tree(folder);
  return parse_manifest(read_own(file), file.string());
}

capture read_folder(const fs::path& folder) {
  capture c = read_manifest(folder);
  if (fs::exists(folder / "calls")) c.calls = read_own(folder / "calls");
  if (fs::exists(folder / "files")) c.files = read_own(folder / "files");
  if (fs::exists(folder / "journal")) c.journal = read_own(folder / "journal");
  for (const auto& place : fs::directory_iterator(folder)) {
    if (!place.is_directory()) continue;
    for (const auto& file : fs::directory_iterator(place.path()))
      c.answers.emplace(
          std::pair{place.path().filename().string(), file.path().filename().string()},
          read_own(file.path()));
  }
  return c;
}

}  // namespace lab
