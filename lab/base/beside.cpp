#include "lab/base/beside.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "lab/base/error.h"
#include "lab/base/processes.h"

namespace lab {

namespace fs = std::filesystem;

namespace {

// Tools that outlive an audit for a moment may still write there.
void remove_stubbornly(const fs::path& folder) {
  constexpr int attempts = 20;
  constexpr useconds_t interval = 50'000;
  std::error_code failure;
  for (int i = 0; i < attempts; ++i) {
    fs::remove_all(folder, failure);
    if (!failure && !fs::exists(fs::symlink_status(folder, failure))) return;
    usleep(interval);
  }
}

// Not if a finished target is in them.
void remove_empty(const std::vector<fs::path>& above) {
  for (auto folder = above.rbegin(); folder != above.rend(); ++folder) rmdir(folder->c_str());
}

// Waits until the lifeline's other end is closed, as it is when the process ends for any reason; a
// signal handler could not walk through folders. This process ignores the signals that its caller's
// group receives.
void remove_at_end(const fs::path& folder, const std::vector<fs::path>& above, int lifeline) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) std::signal(signal, SIG_IGN);
  await_end(lifeline);
  remove_stubbornly(folder);
  remove_empty(above);
}

// The folder above `out`, and those above that one, as far up as they are missing.
std::vector<fs::path> missing_above(const fs::path& out) {
  std::vector<fs::path> missing;
  for (fs::path folder = fs::absolute(out).lexically_normal().parent_path();
       !fs::exists(fs::symlink_status(folder)); folder = folder.parent_path())
    missing.insert(missing.begin(), folder);
  return missing;
}

}  // namespace

fs::path target_named(const std::string& name) {
  if (name.empty()) throw lab_error("the name of the target is empty");
  std::string text = name;
  while (text.size() > 1 && (text.ends_with('/') || text.ends_with("/."))) text.pop_back();
  return text;
}

void check_target(const fs::path& out) {
  if (fs::exists(fs::symlink_status(out)))
    throw lab_error(fmt::format("{}: exists already", out.string()));
  const std::vector<fs::path> missing = missing_above(out);
  const fs::path folder = fs::absolute(missing.empty() ? out : missing.front()).parent_path();
  if (!fs::is_directory(folder))
    throw lab_error(fmt::format("{}: is not a folder", folder.string()));
  if (access(folder.c_str(), W_OK | X_OK) != 0)
    throw lab_error(
        fmt::format("{}: no file can be made in it: {}", folder.string(), std::strerror(errno)));
}

std::vector<fs::path> make_folders_above(const fs::path& out) {
  const std::vector<fs::path> missing = missing_above(out);
  for (std::size_t made = 0; made < missing.size(); ++made) {
    if (mkdir(missing[made].c_str(), 0777) == 0) continue;
    const int error = errno;
    remove_empty({missing.begin(), missing.begin() + static_cast<std::ptrdiff_t>(made)});
    throw lab_error(
        fmt::format("{}: cannot be made: {}", missing[made].string(), std::strerror(error)));
  }
  return missing;
}

void make_logs_folder(const fs::path& folder) {
  std::error_code failure;
  fs::create_directories(folder, failure);
  if (!failure && access(folder.c_str(), W_OK | X_OK) != 0)
    failure = std::error_code{errno, std::generic_category()};
  if (failure)
    throw lab_error(fmt::format("{}: the folder for the logs cannot be used: {}", folder.string(),
                                failure.message()));
}

bool lies_under(const fs::path& file, const fs::path& folder) {
  const auto whole = [](const fs::path& named) {
    return fs::weakly_canonical(fs::absolute(target_named(named.string())));
  };
  const fs::path inner = whole(file);
  const fs::path outer = whole(folder);
  return std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

folder_beside::folder_beside(const fs::path& out) {
  const fs::path whole = fs::absolute(out);
  const fs::path target = whole.has_filename() ? whole : whole.parent_path();  // "out/"
  made_above_ = make_folders_above(target);
  std::string name = target.parent_path() / fmt::format(".{}.XXXXXX", target.filename().string());
  if (mkdtemp(name.data()) == nullptr) {
    const int error = errno;
    remove_empty(made_above_);
    throw lab_error(
        fmt::format("{}: no folder can be made beside it: {}", out.string(), std::strerror(error)));
  }
  // Canonical, because a recording may cover a path that leads here.
  path_ = fs::canonical(name);
  std::optional<pipe_ends> ends = try_pipe();
  if (!ends) return;  // then only a signal leaves it behind
  remover_ = try_start([&] {
    setpgid(0, 0);
    ends->in.close();
    remove_at_end(path_, made_above_, ends->out.number());
    return EXIT_SUCCESS;
  });
  if (remover_ > 0) setpgid(remover_, remover_);
  lifeline_ = std::move(ends->in);
}

folder_beside::~folder_beside() {
  lifeline_.close();
  if (remover_ > 0) {
    int ignored = 0;
    collect(remover_, ignored);
    return;
  }
  std::error_code ignored;
  fs::remove_all(path_, ignored);
  remove_empty(made_above_);
}

}  // namespace lab
