// Keeps the output of a real router private: it includes the configuration with its secrets.
#pragma once

#include <sys/stat.h>

namespace lab {

// While it lives, only the user can read the files and folders that this process makes.
class private_files {
 public:
  private_files() : before_(umask(S_IRWXG | S_IRWXO)) {}
  ~private_files() { umask(before_); }
  private_files(const private_files&) = delete;
  private_files& operator=(const private_files&) = delete;

 private:
  mode_t before_;
};

}  // namespace lab
