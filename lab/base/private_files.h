// What a real router printed is nobody else's business: it holds its configuration, with whatever
// secrets stand in it.
#pragma once

#include <sys/stat.h>

namespace lab {

// As long as it lives, the files and folders that this process makes are its user's alone.
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
