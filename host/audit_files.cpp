#include "audit_files.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace tessel_host {

std::string why_not_ours(const std::string& path) {
  std::error_code error;
  const auto absolute = std::filesystem::absolute(path, error);
  if (error) return error.message();
  const auto place = std::filesystem::weakly_canonical(absolute, error);
  if (error) return error.message();
  const std::string name = place.filename().string();
  if (place.parent_path() == capture_folder && name.starts_with("tessel"))
    return "the audit removes /tmp/tessel*";
  if (place.parent_path() == log_folder && is_name_of_log(name)) return "it is a log of the audit";
  return {};
}

bool is_same_file(const std::string& one, const std::string& other) {
  std::error_code error;
  if (std::filesystem::equivalent(one, other, error)) return true;
  const auto place_of = [](const std::string& path) {
    std::error_code unseen;
    return std::filesystem::weakly_canonical(std::filesystem::absolute(path, unseen), unseen);
  };
  const auto place = place_of(one);
  return !place.empty() && place == place_of(other);
}

std::string cause_of(int error) {
  if (error == ELOOP) return "it is a link";
  if (error == ENXIO) return "it is not a file";
  return std::strerror(error);
}

}  // namespace tessel_host
