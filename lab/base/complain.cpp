#include "lab/base/complain.h"

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "lab/base/descriptors.h"

namespace lab {

void complain(std::string_view line) {
  std::string text{line};
  text += '\n';
  write_all(STDERR_FILENO, text);
}

void hold_standard_streams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) >= 0) continue;
    // The lowest free number is this one. Programs that are started inherit it.
    const int access = stream == STDIN_FILENO ? O_WRONLY : O_RDONLY;
    if (open("/dev/null", access) != stream) return;
  }
}

}  // namespace lab
