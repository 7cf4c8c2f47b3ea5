#include "desk/store/run_store.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <utility>

#include "desk/store/statement.h"

namespace desk {

namespace {

constexpr std::int64_t application = 0x7465736c;  // "tesl", in the head of the file
constexpr std::int64_t version = 1;
constexpr int patience_ms = 10'000;

constexpr const char* schema = R"(
CREATE TABLE run (
  id INTEGER PRIMARY KEY, router TEXT NOT NULL, started TEXT NOT NULL, origin TEXT NOT NULL,
  ended TEXT NOT NULL, open INTEGER NOT NULL, torn INTEGER NOT NULL,
  bundles INTEGER NOT NULL, differing INTEGER NOT NULL, UNIQUE (router, started));
CREATE TABLE finding (
  run INTEGER NOT NULL REFERENCES run ON DELETE CASCADE, position INTEGER NOT NULL,
  fingerprint TEXT NOT NULL, code TEXT NOT NULL, bundle TEXT NOT NULL, node TEXT NOT NULL,
  npu TEXT NOT NULL, layer TEXT NOT NULL, log TEXT NOT NULL, title TEXT NOT NULL,
  cause TEXT NOT NULL, "values" TEXT NOT NULL, messages INTEGER NOT NULL, doubt INTEGER NOT NULL,
  PRIMARY KEY (run, position)) WITHOUT ROWID;
CREATE TABLE bundle (
  run INTEGER NOT NULL REFERENCES run ON DELETE CASCADE, name TEXT NOT NULL, open INTEGER NOT NULL,
  PRIMARY KEY (run, name)) WITHOUT ROWID;
CREATE TABLE hole (
  run INTEGER NOT NULL REFERENCES run ON DELETE CASCADE, layer TEXT NOT NULL,
  node TEXT NOT NULL, npu TEXT NOT NULL);
CREATE INDEX hole_of_run ON hole (run);
CREATE TABLE lost_log (
  run INTEGER NOT NULL REFERENCES run ON DELETE CASCADE, name TEXT NOT NULL,
  PRIMARY KEY (run, name)) WITHOUT ROWID;
)";

struct place_of_store {
  sqlite3* base;
  const std::string& file;
  [[nodiscard]] statement prepare(std::string_view sql) const { return {base, file, sql}; }
  void run(const char* sql) const { execute(base, file, sql); }
  [[nodiscard]] std::int64_t number(std::string_view sql) const {
    statement one = prepare(sql);
    return one.step() ? one.number(0) : 0;
  }
};

// What is written until `commit` is there as a whole or not at all.
class transaction {
 public:
  explicit transaction(const place_of_store& at, const char* begin = "BEGIN IMMEDIATE") : at_(at) {
    at_.run(begin);
  }
  ~transaction() {
    if (is_open_) sqlite3_exec(at_.base, "ROLLBACK", nullptr, nullptr, nullptr);
  }
  transaction(const transaction&) = delete;
  transaction& operator=(const transaction&) = delete;
  void commit() {
    at_.run("COMMIT");
    is_open_ = false;
  }

 private:
  place_of_store at_;
  bool is_open_ = true;
};

bool is_empty(const place_of_store& at) {
  return at.number("SELECT count(*) FROM sqlite_master") == 0;
}

// The numbers in its head say what a file is, before anything else of it is believed.
void check_kind(const place_of_store& at) {
  const std::int64_t kind = at.number("PRAGMA application_id");
  const std::int64_t found = at.number("PRAGMA user_version");
  if (kind != application)
    throw store_error(
        fmt::format("{} is a database, but no store of tessel-report; name another "
                    "file with --store",
                    at.file));
  if (found != version)
    throw store_error(
        fmt::format("the store {} has version {}, this program reads {}; use the "
                    "tessel-report that wrote it, or begin another one",
                    at.file, found, version));
}

void make_tables(const place_of_store& at) {
  transaction all(at);
  // Another program may have made them in the meantime.
  if (is_empty(at)) {
    at.run(schema);
    at.run(fmt::format("PRAGMA application_id = {}", application).c_str());
    at.run(fmt::format("PRAGMA user_version = {}", version).c_str());
  }
  all.commit();
}

// The words that stand in the file, so that it can be read by a person, and by later versions.
constexpr std::pair<run_end, std::string_view> words_for_ends[] = {{run_end::complete, "complete"},
                                                                   {run_end::stopped, "stopped"},
                                                                   {run_end::cut_off, "cut off"},
                                                                   {run_end::unknown, "unknown"}};

std::string_view word_for_end(run_end of) {
  for (const auto& [end, word] : words_for_ends)
    if (end == of) return word;
  return "unknown";
}

// Another program may have changed it.
store_error no_word(const place_of_store& at, const std::string& word, std::string_view column) {
  return store_error(
      fmt::format("the store {} is damaged: \"{}\" is no {}; restore it, or begin "
                  "another one",
                  at.file, word, column));
}

run_end end_in(const place_of_store& at, const std::string& word) {
  for (const auto& [end, known] : words_for_ends)
    if (known == word) return end;
  throw no_word(at, word, "end of a run");
}

layer layer_in(const place_of_store& at, const std::string& word) {
  for (const layer one : all_layers)
    if (word_for(one) == word) return one;
  if (word == word_for(layer::none)) return layer::none;
  throw no_word(at, word, "layer");
}

void keep_findings(const place_of_store& at, std::int64_t id, const run_record& run) {
  statement into = at.prepare("INSERT INTO finding VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?,?)");
  std::int64_t position = 0;
  for (const known_finding& one : run.findings) {
    into << id << position++ << one.fingerprint << one.code << one.bundle << one.node << one.npu
         << word_for(one.of) << one.log << one.title << one.cause << one.values
         << static_cast<std::int64_t>(one.count) << std::int64_t{one.is_doubt};
    into.run();
  }
}

void keep_rest(const place_of_store& at, std::int64_t id, const run_record& run) {
  statement bundle = at.prepare("INSERT INTO bundle VALUES (?,?,?)");
  for (const std::string& name : run.known_bundles) {
    bundle << id << name << std::int64_t{run.open_bundles.contains(name)};
    bundle.run();
  }
  statement hole = at.prepare("INSERT INTO hole VALUES (?,?,?,?)");
  for (const run_record::hole& one : run.holes) {
    hole << id << word_for(one.of) << one.node << one.npu;
    hole.run();
  }
  statement log = at.prepare("INSERT INTO lost_log VALUES (?,?)");
  for (const std::string& name : run.lost_logs) {
    log << id << name;
    log.run();
  }
}

void read_findings_of(const place_of_store& at, std::int64_t id, run_record& into) {
  statement from = at.prepare(
      "SELECT fingerprint, code, bundle, node, npu, layer, log, title, cause, \"values\", "
      "messages, "
      "doubt FROM finding WHERE run = ? ORDER BY position");
  from << id;
  while (from.step()) {
    known_finding& one = into.findings.emplace_back();
    int column = 0;
    for (std::string* each : {&one.fingerprint, &one.code, &one.bundle, &one.node, &one.npu})
      *each = from.text(column++);
    one.of = layer_in(at, from.text(column++));
    for (std::string* each : {&one.log, &one.title, &one.cause, &one.values})
      *each = from.text(column++);
    one.count = static_cast<std::size_t>(from.number(column++));
    one.is_doubt = from.number(column) != 0;
  }
}

void read_rest_of(const place_of_store& at, std::int64_t id, run_record& into) {
  statement bundle = at.prepare("SELECT name, open FROM bundle WHERE run = ?");
  bundle << id;
  while (bundle.step()) {
    into.known_bundles.insert(bundle.text(0));
    if (bundle.number(1) != 0) into.open_bundles.insert(bundle.text(0));
  }
  statement hole = at.prepare("SELECT layer, node, npu FROM hole WHERE run = ?");
  hole << id;
  while (hole.step())
    into.holes.push_back({layer_in(at, hole.text(0)), hole.text(1), hole.text(2)});
  statement log = at.prepare("SELECT name FROM lost_log WHERE run = ?");
  log << id;
  while (log.step()) into.lost_logs.insert(log.text(0));
}

// Whether the same run is there, and how it ended is known.
bool has_better(const place_of_store& at, const run_record& run) {
  statement known = at.prepare("SELECT 1 FROM run WHERE router = ? AND started = ? AND ended != ?");
  known << run.router << run.started << word_for_end(run_end::unknown);
  return known.step();
}

}  // namespace

void run_store::close::operator()(sqlite3* base) const {
  sqlite3_close_v2(base);
}

run_store::run_store(const std::string& file, access how) : file_(file) {
  sqlite3* made = nullptr;
  const int flags =
      how == access::read ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  const int result = sqlite3_open_v2(file.c_str(), &made, flags, nullptr);
  base_.reset(made);
  check_result(made, file, result);
  sqlite3_extended_result_codes(made, 1);
  sqlite3_busy_timeout(made, patience_ms);
  const place_of_store at{base_.get(), file_};
  if (how == access::write && is_empty(at)) make_tables(at);
  check_kind(at);
  at.run("PRAGMA foreign_keys = ON");
  at.run("PRAGMA trusted_schema = OFF");
}

bool run_store::keep(const run_record& run) {
  const place_of_store at{base_.get(), file_};
  transaction all(at);
  if (run.end == run_end::unknown && has_better(at, run)) return false;
  statement old = at.prepare("DELETE FROM run WHERE router = ? AND started = ?");
  old << run.router << run.started;
  old.run();
  statement into = at.prepare(
      "INSERT INTO run (router, started, origin, ended, open, torn, bundles, differing) "
      "VALUES (?,?,?,?,?,?,?,?)");
  into << run.router << run.started << run.origin << word_for_end(run.end)
       << std::int64_t{run.is_open} << std::int64_t{run.is_torn}
       << static_cast<std::int64_t>(run.bundles) << static_cast<std::int64_t>(run.differing);
  into.run();
  const std::int64_t id = sqlite3_last_insert_rowid(base_.get());
  keep_findings(at, id, run);
  keep_rest(at, id, run);
  all.commit();
  return true;
}

void run_store::drop_old(const std::string& router, std::size_t newest) {
  const place_of_store at{base_.get(), file_};
  transaction all(at);
  statement old = at.prepare(
      "DELETE FROM run WHERE router = ?1 AND id NOT IN (SELECT id FROM run WHERE router = ?1 "
      "ORDER BY started DESC, id DESC LIMIT ?2)");
  old << router << static_cast<std::int64_t>(newest);
  old.run();
  all.commit();
}

std::vector<std::string> run_store::routers() const {
  const place_of_store at{base_.get(), file_};
  std::vector<std::string> names;
  statement from = at.prepare("SELECT DISTINCT router FROM run ORDER BY router");
  while (from.step()) names.push_back(from.text(0));
  return names;
}

std::vector<run_record> run_store::runs_of(const std::string& router) const {
  const place_of_store at{base_.get(), file_};
  std::vector<run_record> runs;
  transaction one_state(at, "BEGIN");
  statement from = at.prepare(
      "SELECT id, started, origin, ended, open, torn, bundles, differing FROM run "
      "WHERE router = ? ORDER BY started, id");
  from << router;
  while (from.step()) {
    run_record& one = runs.emplace_back();
    one.router = router;
    one.started = from.text(1);
    one.origin = from.text(2);
    one.end = end_in(at, from.text(3));
    one.is_open = from.number(4) != 0;
    one.is_torn = from.number(5) != 0;
    one.bundles = static_cast<std::size_t>(from.number(6));
    one.differing = static_cast<std::size_t>(from.number(7));
    read_findings_of(at, from.number(0), one);
    read_rest_of(at, from.number(0), one);
  }
  return runs;
}

}  // namespace desk
