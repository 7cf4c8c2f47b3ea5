// A statement of SQLite with its values, for the store only.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace desk {

class statement {
 public:
  // Throws `store_error`, as every function here.
  statement(sqlite3* base, const std::string& file, std::string_view sql);

  // Fills the next `?`.
  statement& operator<<(std::string_view text);
  statement& operator<<(std::int64_t number);

  // Goes to the next row; false if there is none. A statement without rows is run by one step.
  bool step();
  // Runs it to its end; afterwards it may be filled again.
  void run();

  // The values of the row, by column, from 0.
  [[nodiscard]] std::string text(int column) const;
  [[nodiscard]] std::int64_t number(int column) const;

 private:
  struct finalize {
    void operator()(sqlite3_stmt* of) const;
  };
  void check(int result) const;

  sqlite3* base_;
  std::string file_;
  std::unique_ptr<sqlite3_stmt, finalize> of_;
  int filled_ = 0;
};

// Runs SQL without values or rows. Throws `store_error`.
void execute(sqlite3* base, const std::string& file, const char* sql);

// Throws `store_error` for a result that is a failure.
void check_result(sqlite3* base, const std::string& file, int result);

}  // namespace desk
