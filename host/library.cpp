#include "library.h"

#include <dlfcn.h>

#include <filesystem>
#include <system_error>

namespace tessel_host {

namespace {

namespace fs = std::filesystem;

constexpr const char* library_name = "libtessel.so";
// The same library, by the number of the interface that this program was built for. An installation
// has the name without it only for those who link to it.
constexpr const char* numbered_name = "libtessel.so." TESSEL_INTERFACE;

std::string remedy(const std::string& library) {
  std::error_code ignored;
  const bool is_name = library.find('/') == std::string::npos;
  if (is_name && fs::exists(library, ignored)) {
    return "for the file in this folder write --library ./" + library;
  }
  if (is_name) return "name its path with --library FILE or set LD_LIBRARY_PATH";
  return "check the path, and that the file is the library built for this machine";
}

std::string linker_complaint() {
  const char* text = dlerror();
  return text != nullptr ? text : "no reason given";
}

template <typename Function>
Function resolve(void* handle, const std::string& library, const char* name) {
  dlerror();
  void* symbol = dlsym(handle, name);
  if (symbol == nullptr) {
    throw library_error("library '" + library + "' has no entry point '" + name +
                        "'; it is not a Tessel Checker library; name another with --library FILE");
  }
  return reinterpret_cast<Function>(symbol);
}

// The library stays loaded if it is found; load_entry_points gets the same one.
std::string name_for_linker() {
  return dlopen(numbered_name, RTLD_NOW | RTLD_LOCAL) != nullptr ? numbered_name : library_name;
}

}  // namespace

std::string choose_library(const std::optional<std::string>& asked_for) {
  if (asked_for) return *asked_for;
  std::error_code error;
  const auto executable = fs::read_symlink("/proc/self/exe", error);
  if (error) return name_for_linker();
  const auto folder = executable.parent_path();
  for (const auto& place : {folder, folder / TESSEL_BIN_TO_LIB}) {
    for (const char* name : {numbered_name, library_name}) {
      if (fs::exists(place / name, error)) return (place / name).lexically_normal().string();
    }
  }
  return name_for_linker();
}

entry_points load_entry_points(const std::string& library) {
  void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    throw library_error("cannot load library '" + library + "': " + linker_complaint() + "; " +
                        remedy(library));
  }
  return {resolve<decltype(&tessel_init)>(handle, library, "tessel_init"),
          resolve<decltype(&tessel_run)>(handle, library, "tessel_run"),
          resolve<decltype(&tessel_finalize)>(handle, library, "tessel_finalize")};
}

}  // namespace tessel_host
