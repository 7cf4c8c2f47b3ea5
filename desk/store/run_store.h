// Runs of routers, kept in one SQLite file, to be compared with later ones.
//
// Several programs may read the file at once, and one may write: another that wants to write waits
// for some seconds. A write that is cut off leaves the runs as they were. One thread per object.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "desk/judge/record.h"

struct sqlite3;

namespace desk {

// In one line: the file, the cause, what to do.
class store_error : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

class run_store {
 public:
  enum class access { read, write };

  // To write, a file that is missing is made. Throws `store_error` if the file cannot be opened, is
  // no store, or was written by a later version.
  run_store(const std::string& file, access how);

  // Keeps a run; one that is there already, by router and start, is replaced. Returns false, and
  // keeps nothing, if what is there was read with its snapshot and this was not. Throws
  // `store_error`.
  bool keep(const run_record& run);

  // Drops all but the newest runs of a router. Throws `store_error`.
  void drop_old(const std::string& router, std::size_t newest);

  // The routers that have runs, by name. Throws `store_error`.
  [[nodiscard]] std::vector<std::string> routers() const;

  // The runs of a router, the oldest first. Throws `store_error`.
  [[nodiscard]] std::vector<run_record> runs_of(const std::string& router) const;

 private:
  struct close {
    void operator()(sqlite3* base) const;
  };
  std::string file_;
  std::unique_ptr<sqlite3, close> base_;
};

}  // namespace desk
