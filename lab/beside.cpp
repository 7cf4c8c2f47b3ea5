#include "beside.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>

#include "router.h"

namespace lab {

namespace fs = std::filesystem;

folder_beside::folder_beside(const fs::path& out) {
  const fs::path whole = fs::absolute(out);
  const fs::path target = whole.has_filename() ? whole : whole.parent_path();  // "out/"
  std::string name = target.parent_path() / fmt::format(".{}.XXXXXX", target.filename().string());
  if (mkdtemp(name.data()) == nullptr)
    throw lab_error(fmt::format("{}: cannot be made beside its place: {}", out.string(),
                                std::strerror(errno)));
  // What a recording covers must not be reachable under the same name.
  path_ = fs::canonical(name);
}

folder_beside::~folder_beside() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

}  // namespace lab
