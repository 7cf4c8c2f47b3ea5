#include "seeds.h"

#include <fmt/format.h>

#include <fstream>
#include <set>

#include "description.h"
#include "parsers.h"
#include "render.h"

namespace fuzz {

std::vector<std::string> seeds() {
  std::set<std::string> texts;
  for (const std::string& name : lab::router_names()) {
    for (const auto& [place, text] : lab::render(lab::load_router(name)).answers) {
      texts.insert(text);
    }
  }
  return {texts.begin(), texts.end()};
}

void write_seeds(const std::filesystem::path& folder) {
  std::filesystem::create_directories(folder);
  const std::vector<std::string> texts = seeds();
  for (std::size_t parser = 0; parser < parsers().size(); ++parser) {
    for (std::size_t at = 0; at < texts.size(); ++at) {
      std::ofstream file(folder / fmt::format("{:02}-{:04}", parser, at), std::ios::binary);
      file << static_cast<char>(parser) << texts[at];
    }
  }
}

}  // namespace fuzz
