// make-fuzz-seeds FOLDER: writes the seed corpus for fuzz_parsers.
#include <cstdio>
#include <exception>

#include "seeds.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: make-fuzz-seeds FOLDER\n", stderr);
    return 64;
  }
  try {
    fuzz::write_seeds(argv[1]);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "make-fuzz-seeds: %s\n", error.what());
    return 1;
  }
}
