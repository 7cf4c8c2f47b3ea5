// Reads reports in JSON and writes each again: fails for one that is not the same to the byte.
#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "desk/show/json.h"
#include "desk/store/report_file.h"

int main(int count, char** words) try {
  for (int i = 1; i < count; ++i) {
    std::ifstream file(words[i], std::ios::binary);
    const std::string was{std::istreambuf_iterator<char>(file), {}};
    std::ostringstream is;
    desk::show_json(desk::read_report(words[i]), is);
    if (is.str() == was) continue;
    std::fprintf(stderr, "%s is not read back as it was written\n", words[i]);
    return 1;
  }
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
