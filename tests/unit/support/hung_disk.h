// A disk that takes no more, as a network file system whose server is gone: a write to one file
// waits.
//
//   hung_disk disk(LOG_FILE_INCONSISTENT);
//   ...                          // somebody writes
//   disk.wait_for_a_writer();
#pragma once

#include <string>
#include <string_view>

namespace tessel {

// From then on writes of the audit to the file wait, until the object goes. One at a time, and not
// made while somebody writes to the file.
class hung_disk {
 public:
  explicit hung_disk(std::string_view file);
  ~hung_disk();
  hung_disk(const hung_disk&) = delete;
  hung_disk& operator=(const hung_disk&) = delete;

  // Returns when a thread hangs.
  void wait_for_a_writer();
};

}  // namespace tessel
