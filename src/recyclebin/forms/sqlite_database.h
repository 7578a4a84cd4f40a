#pragma once

#include "base/hv_types.h"

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <variant>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

/// A database that is made in memory, through SQLite's library.
namespace hv {

using sql_blob = std::vector<u8>;
/// NULL, INTEGER, TEXT in UTF-8, or BLOB.
using sql_value = std::variant<std::monostate, i64, std::string, sql_blob>;

/// A value and the column that it is for.
struct sql_cell {
    std::string column;
    sql_value value;
};
using sql_row = std::vector<sql_cell>;

/// A new database. What SQLite refuses shows as std::bad_alloc: with statements and
/// keys that are right, only memory can be missing.
class sqlite_database {
public:
    sqlite_database();
    ~sqlite_database();
    sqlite_database(const sqlite_database &) = delete;
    sqlite_database &operator=(const sqlite_database &) = delete;

    /// Runs statements that have no result.
    void run(const char *statements);
    /// Writes the database as the bytes of its file, which holds up to 2 GiB.
    void write(std::ostream &out) const;

private:
    friend class sqlite_table;
    sqlite3 *m_handle = nullptr;
};

/// Adds rows to one table.
class sqlite_table {
public:
    sqlite_table(sqlite_database &database, std::string name);
    ~sqlite_table();
    sqlite_table(const sqlite_table &) = delete;
    sqlite_table &operator=(const sqlite_table &) = delete;

    /// Each row has the columns of the first one, in the same order.
    void add(const sql_row &row);

private:
    void prepare(const sql_row &row);

    sqlite_database &m_database;
    std::string m_name;
    sqlite3_stmt *m_insert = nullptr;
};

} // namespace hv
