// SQLite storage of the authority.
#include "ca_db.h"

namespace hylorn_tool {

namespace {

constexpr const char* kSchema = R"sql(
CREATE TABLE authority (
  id INTEGER PRIMARY KEY CHECK (id = 1),
  next_serial INTEGER NOT NULL CHECK (next_serial >= 1),
  crl_number INTEGER NOT NULL CHECK (crl_number >= 1));
CREATE TABLE certificates (
  serial INTEGER PRIMARY KEY,
  subject TEXT NOT NULL,
  not_before TEXT NOT NULL,
  not_after TEXT NOT NULL,
  status TEXT NOT NULL CHECK (status IN ('pending', 'valid', 'revoked', 'void')),
  der BLOB NOT NULL);
CREATE TABLE revocations (
  serial INTEGER PRIMARY KEY REFERENCES certificates (serial),
  revoked_at TEXT NOT NULL,
  reason INTEGER NOT NULL);
)sql";

// A prepared statement that finalises itself.
class Statement {
 public:
  Statement(sqlite3* db, const char* sql) {
    if (sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr) != SQLITE_OK) stmt_ = nullptr;
  }
  ~Statement() { sqlite3_finalize(stmt_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  bool ok() const { return stmt_ != nullptr; }
  Statement& bind(int i, std::int64_t v) { return check(sqlite3_bind_int64(stmt_, i, v)); }
  Statement& bind(int i, const std::string& v) {
    return check(
        sqlite3_bind_text(stmt_, i, v.c_str(), static_cast<int>(v.size()), SQLITE_TRANSIENT));
  }
  Statement& bind(int i, const Bytes& v) {
    return check(
        sqlite3_bind_blob(stmt_, i, v.data(), static_cast<int>(v.size()), SQLITE_TRANSIENT));
  }
  // SQLITE_ROW, SQLITE_DONE or an error code.
  int step() { return bound_ ? sqlite3_step(stmt_) : SQLITE_MISUSE; }
  std::int64_t integer(int col) { return sqlite3_column_int64(stmt_, col); }
  std::string text(int col) {
    const unsigned char* p = sqlite3_column_text(stmt_, col);
    return p ? reinterpret_cast<const char*>(p) : "";
  }
  Bytes blob(int col) {
    const auto* p = static_cast<const unsigned char*>(sqlite3_column_blob(stmt_, col));
    return p ? Bytes(p, p + sqlite3_column_bytes(stmt_, col)) : Bytes();
  }

 private:
  Statement& check(int rc) {
    bound_ = bound_ && rc == SQLITE_OK;
    return *this;
  }
  sqlite3_stmt* stmt_ = nullptr;
  bool bound_ = true;
};

int on_commit(void* point) {
  if (point) crash_point(*static_cast<const char**>(point));
  return 0;  // let the commit go ahead
}

}  // namespace

void CaDb::create(const std::string& path, std::int64_t next_serial) {
  sqlite3* db = nullptr;
  int rc = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  std::string err = db ? sqlite3_errmsg(db) : "out of memory";
  if (rc == SQLITE_OK) {
    std::string sql = std::string("BEGIN;") + kSchema + "INSERT INTO authority VALUES (1, " +
                      std::to_string(next_serial) + ", 1); COMMIT;";
    char* msg = nullptr;
    rc = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &msg);
    if (msg) err = msg;
    sqlite3_free(msg);
  }
  sqlite3_close(db);
  if (rc != SQLITE_OK) fail(path, "cannot create the database (" + err + ")");
}

CaDb::CaDb(const std::string& path) : path_(path) {
  if (sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
    std::string err = db_ ? sqlite3_errmsg(db_) : "out of memory";
    sqlite3_close(db_);
    db_ = nullptr;
    fail(path, "cannot open the database (" + err + ")");
  }
  sqlite3_busy_timeout(db_, 10000);
  sqlite3_commit_hook(db_, on_commit, &commit_point_);
  try {
    exec("PRAGMA foreign_keys = ON; PRAGMA synchronous = FULL;", "setting up the connection");
    Statement check(db_, "SELECT next_serial, crl_number FROM authority WHERE id = 1");
    if (!check.ok() || check.step() != SQLITE_ROW) fail_db("not a hylorn CA database");
  } catch (...) {
    sqlite3_close(db_);
    db_ = nullptr;
    throw;
  }
}

CaDb::~CaDb() {
  if (in_transaction_) sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
  sqlite3_close(db_);
}

void CaDb::fail_db(const std::string& step) {
  fail(path_, step + " (" + sqlite3_errmsg(db_) + ")");
}

void CaDb::exec(const char* sql, const std::string& step) {
  char* msg = nullptr;
  int rc = sqlite3_exec(db_, sql, nullptr, nullptr, &msg);
  std::string err = msg ? msg : "";
  sqlite3_free(msg);
  if (rc != SQLITE_OK) fail(path_, step + " (" + err + ")");
}

void CaDb::begin() {
  exec("BEGIN IMMEDIATE", "cannot start a transaction");
  in_transaction_ = true;
}

void CaDb::commit(const char* point) {
  commit_point_ = point;
  exec("COMMIT", "cannot commit");
  commit_point_ = nullptr;
  in_transaction_ = false;
}

void CaDb::rollback() {
  if (in_transaction_) sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
  in_transaction_ = false;
}

namespace {

std::int64_t take_counter(sqlite3* db, const char* column, CaDb& owner) {
  std::string select = std::string("SELECT ") + column + " FROM authority WHERE id = 1";
  Statement get(db, select.c_str());
  if (!get.ok() || get.step() != SQLITE_ROW)
    fail(owner.path(), std::string("cannot read ") + column);
  std::int64_t value = get.integer(0);
  std::string update = std::string("UPDATE authority SET ") + column + " = " + column + " + 1";
  Statement put(db, update.c_str());
  if (!put.ok() || put.step() != SQLITE_DONE)
    fail(owner.path(), std::string("cannot advance ") + column);
  return value;
}

}  // namespace

std::int64_t CaDb::take_serial() {
  return take_counter(db_, "next_serial", *this);
}
std::int64_t CaDb::take_crl_number() {
  return take_counter(db_, "crl_number", *this);
}

std::int64_t CaDb::next_serial() {
  Statement get(db_, "SELECT next_serial FROM authority WHERE id = 1");
  if (!get.ok() || get.step() != SQLITE_ROW) fail_db("cannot read next_serial");
  return get.integer(0);
}

void CaDb::add_cert(const CertRow& row) {
  Statement put(db_,
                "INSERT INTO certificates (serial, subject, not_before, not_after, status, der) "
                "VALUES (?, ?, ?, ?, ?, ?)");
  if (!put.ok()) fail_db("cannot record the certificate");
  put.bind(1, row.serial).bind(2, row.subject).bind(3, row.not_before).bind(4, row.not_after);
  put.bind(5, row.status).bind(6, row.der);
  if (put.step() != SQLITE_DONE) fail_db("cannot record certificate " + std::to_string(row.serial));
}

void CaDb::set_status(std::int64_t serial, const std::string& status) {
  Statement put(db_, "UPDATE certificates SET status = ? WHERE serial = ?");
  if (!put.ok()) fail_db("cannot update a status");
  put.bind(1, status).bind(2, serial);
  if (put.step() != SQLITE_DONE || sqlite3_changes(db_) != 1)
    fail_db("cannot mark certificate " + std::to_string(serial) + " " + status);
}

void CaDb::add_revocation(std::int64_t serial, const std::string& date, int reason) {
  Statement put(db_, "INSERT INTO revocations (serial, revoked_at, reason) VALUES (?, ?, ?)");
  if (!put.ok()) fail_db("cannot record the revocation");
  put.bind(1, serial).bind(2, date).bind(3, static_cast<std::int64_t>(reason));
  if (put.step() != SQLITE_DONE)
    fail_db("cannot record the revocation of " + std::to_string(serial));
}

std::vector<CertRow> CaDb::rows(const char* where) {
  std::string sql =
      "SELECT c.serial, c.subject, c.not_before, c.not_after, c.status, c.der, "
      "coalesce(r.revoked_at, ''), coalesce(r.reason, -1) "
      "FROM certificates c LEFT JOIN revocations r ON r.serial = c.serial WHERE ";
  sql += where;
  sql += " ORDER BY c.serial";
  Statement get(db_, sql.c_str());
  if (!get.ok()) fail_db("cannot read the certificates");
  std::vector<CertRow> out;
  int rc;
  while ((rc = get.step()) == SQLITE_ROW) {
    CertRow row;
    row.serial = get.integer(0);
    row.subject = get.text(1);
    row.not_before = get.text(2);
    row.not_after = get.text(3);
    row.status = get.text(4);
    row.der = get.blob(5);
    row.revoked_at = get.text(6);
    row.reason = static_cast<int>(get.integer(7));
    out.push_back(std::move(row));
  }
  if (rc != SQLITE_DONE) fail_db("cannot read the certificates");
  return out;
}

std::optional<CertRow> CaDb::find(std::int64_t serial) {
  std::string where = "c.serial = " + std::to_string(serial);
  auto found = rows(where.c_str());
  if (found.empty()) return std::nullopt;
  return found.front();
}

}  // namespace hylorn_tool
