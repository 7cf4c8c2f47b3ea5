#include "desk/store/statement.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include "desk/store/run_store.h"

namespace desk {

namespace {

std::string_view advice_for(int result) {
  constexpr int basic = 0xff;  // of the extended codes
  switch (result & basic) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return "another program is writing it; try again when it has ended";
    case SQLITE_NOTADB:
      return "name the file of a store with --store, or one that does not exist yet";
    case SQLITE_CORRUPT:
      return "it is damaged; restore it, or begin another one";
    case SQLITE_FULL:
      return "free some space";
    default:
      return "check the file and its folder";
  }
}

}  // namespace

void check_result(sqlite3* base, const std::string& file, int result) {
  if (result == SQLITE_OK || result == SQLITE_ROW || result == SQLITE_DONE) return;
  const char* cause = base != nullptr ? sqlite3_errmsg(base) : sqlite3_errstr(result);
  throw store_error(
      fmt::format("cannot use the store {}: {}; {}", file, cause, advice_for(result)));
}

void execute(sqlite3* base, const std::string& file, const char* sql) {
  check_result(base, file, sqlite3_exec(base, sql, nullptr, nullptr, nullptr));
}

void statement::finalize::operator()(sqlite3_stmt* of) const {
  sqlite3_finalize(of);
}

statement::statement(sqlite3* base, const std::string& file, std::string_view sql)
    : base_(base), file_(file) {
  sqlite3_stmt* made = nullptr;
  check(sqlite3_prepare_v2(base, sql.data(), static_cast<int>(sql.size()), &made, nullptr));
  of_.reset(made);
}

void statement::check(int result) const {
  check_result(base_, file_, result);
}

statement& statement::operator<<(std::string_view text) {
  // A text of length 0 at no address would be NULL.
  const char* from = text.empty() ? "" : text.data();
  check(
      sqlite3_bind_text64(of_.get(), ++filled_, from, text.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
  return *this;
}

statement& statement::operator<<(std::int64_t number) {
  check(sqlite3_bind_int64(of_.get(), ++filled_, number));
  return *this;
}

bool statement::step() {
  const int result = sqlite3_step(of_.get());
  check(result);
  return result == SQLITE_ROW;
}

void statement::run() {
  while (step()) {
  }
  check(sqlite3_reset(of_.get()));
  filled_ = 0;
}

std::string statement::text(int column) const {
  const auto* from = reinterpret_cast<const char*>(sqlite3_column_text(of_.get(), column));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(of_.get(), column));
  return from == nullptr ? std::string() : std::string(from, size);
}

std::int64_t statement::number(int column) const {
  return sqlite3_column_int64(of_.get(), column);
}

}  // namespace desk
