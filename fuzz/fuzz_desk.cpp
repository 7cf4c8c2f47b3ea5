// The libFuzzer target for the report: an input is the logs of the one reader that TESSEL_READER
// names.
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "desk_readers.h"

namespace {

const fuzz::desk_reader* chosen_reader = nullptr;
std::string folder;

const fuzz::desk_reader& reader_of_environment() {
  const char* set = std::getenv("TESSEL_READER");
  const std::string_view name = set != nullptr ? set : "";
  const auto all = fuzz::desk_readers();
  const auto found = std::find_if(all.begin(), all.end(),
                                  [name](const auto& reader) { return reader.name == name; });
  if (found != all.end()) return *found;
  std::fprintf(stderr, "fuzz_desk: TESSEL_READER is \"%s\"; set it to one of:\n", set ? set : "");
  for (const auto& reader : all) std::fprintf(stderr, "  %s\n", reader.name.data());
  std::exit(64);
}

// In memory if possible: every input becomes files.
void make_folder() {
  folder = (std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp") +
           std::string("/fuzz_desk.XXXXXX");
  if (::mkdtemp(folder.data()) == nullptr) {
    std::perror("fuzz_desk: cannot make a folder");
    std::exit(1);
  }
  std::atexit([] {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  });
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  chosen_reader = &reader_of_environment();
  make_folder();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::run(*chosen_reader, {reinterpret_cast<const char*>(data), size}, folder);
  return 0;
}
