#include "support.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <gtest/gtest.h>
#include <pcre2.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>

#include "lab/describe/description.h"
#include "lab/faults/render_faulty.h"
#include "lab/render/render.h"

namespace lab_test {
namespace fs = std::filesystem;

std::vector<groups> findall(const std::string& pattern, const std::string& text) {
  int error = 0;
  PCRE2_SIZE where = 0;
  const std::unique_ptr<pcre2_code, decltype(&pcre2_code_free)> code(
      pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(), 0, &error, &where,
                    nullptr),
      &pcre2_code_free);
  if (!code) throw std::runtime_error("pattern: " + pattern);
  const std::unique_ptr<pcre2_match_data, decltype(&pcre2_match_data_free)> data(
      pcre2_match_data_create_from_pattern(code.get(), nullptr), &pcre2_match_data_free);
  std::vector<groups> found;
  PCRE2_SIZE from = 0;
  while (from <= text.size()) {
    const int count = pcre2_match(code.get(), reinterpret_cast<PCRE2_SPTR>(text.data()),
                                  text.size(), from, 0, data.get(), nullptr);
    if (count < 1) break;
    const PCRE2_SIZE* at = pcre2_get_ovector_pointer(data.get());
    groups match;
    for (int i = count == 1 ? 0 : 1; i < count; ++i)
      match.push_back(at[2 * i] == PCRE2_UNSET ? std::string{}
                                               : text.substr(at[2 * i], at[2 * i + 1] - at[2 * i]));
    found.push_back(match);
    from = at[1] > at[0] ? at[1] : at[1] + 1;
  }
  return found;
}

scratch_folder::scratch_folder() {
  std::string name = (fs::temp_directory_path() / "lab-test.XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error(name);
  path_ = name;
}

scratch_folder::~scratch_folder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

void write_text(const fs::path& file, const std::string& text) {
  std::ofstream(file, std::ios::binary) << text;
}

std::string read_text(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void cannot_run_here(const std::string& why) {
  if (std::getenv("CI") != nullptr) FAIL() << why;
  GTEST_SKIP() << why;
}

outcome run_shell(const std::string& line) {
  const scratch_folder scratch;
  const std::string out = (scratch.path() / "out").string();
  const std::string err = (scratch.path() / "err").string();
  write_text(scratch.path() / "line", line + "\n");
  const int status =
      std::system(("sh " + (scratch.path() / "line").string() + " >" + out + " 2>" + err).c_str());
  return {WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status), read_text(out),
          read_text(err)};
}

std::string filtered(const std::string& text, const std::string& pipeline) {
  const scratch_folder scratch;
  const fs::path file = scratch.path() / "text";
  write_text(file, text);
  return run_shell("cat " + file.string() + " | " + pipeline).out;
}

const std::string& rendered::local(const std::string& command) const {
  return lab::answer_to(c, lab::local_place, command);
}

const std::string& rendered::on(const std::string& node_name, const std::string& command) const {
  return lab::answer_to(c, lab::find_node(r, node_name)->address, command);
}

const std::string& rendered::chip(const std::string& command, unsigned npu,
                                  const lab::node& n) const {
  return local(lab::chip_command(command, npu, n));
}

const rendered& rendered_router(const std::string& name) {
  static std::map<std::string, rendered> all;
  const auto known = all.find(name);
  if (known != all.end()) return known->second;
  const lab::router r = lab::load_router(std::string{LAB_ROUTERS} + "/" + name + ".toml");
  return all.emplace(name, rendered{r, lab::render(r)}).first->second;
}

rendered rendered_text(const std::string& description) {
  const lab::router r = lab::parse_router(description, "test.toml");
  return {r, lab::render(r)};
}

}  // namespace lab_test
