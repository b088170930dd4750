// The authority's state in SQLite: issued certificates, revocations, the next serial and
// the next CRL number. Every operation of `hylorn ca` runs as one transaction.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common.h"

namespace hylorn_tool {

// A certificate's life: "pending" while it is recorded but its file is not yet written,
// "valid" once handed out, "revoked", or "void" when a pending one was never handed out.
struct CertRow {
  std::int64_t serial = 0;
  std::string subject, not_before, not_after, status;
  Bytes der;
  std::string revoked_at;
  int reason = -1;
};

class CaDb {
 public:
  // Makes a new database file with the schema and the counters.
  static void create(const std::string& path, std::int64_t next_serial);
  // Opens an existing database; fails naming the file when it is not one of ours.
  explicit CaDb(const std::string& path);
  ~CaDb();
  CaDb(const CaDb&) = delete;
  CaDb& operator=(const CaDb&) = delete;

  // BEGIN IMMEDIATE: takes the write lock at once, so two processes never interleave.
  void begin();
  // COMMIT; HYLORN_TEST_CRASH_AT=point ends the process inside SQLite's commit.
  void commit(const char* point);
  void rollback();

  std::int64_t take_serial();
  std::int64_t take_crl_number();
  void add_cert(const CertRow& row);
  void set_status(std::int64_t serial, const std::string& status);
  void add_revocation(std::int64_t serial, const std::string& date, int reason);
  std::optional<CertRow> find(std::int64_t serial);
  std::vector<CertRow> rows(const char* where = "1");
  std::int64_t next_serial();

  const std::string& path() const { return path_; }

 private:
  void exec(const char* sql, const std::string& step);
  [[noreturn]] void fail_db(const std::string& step);
  sqlite3* db_ = nullptr;
  std::string path_;
  const char* commit_point_ = nullptr;
  bool in_transaction_ = false;
};

}  // namespace hylorn_tool
