#include "recyclebin/forms/sqlite_database.h"

#include <new>
#include <sqlite3.h>

namespace hv {

namespace {

void require(int result, int expected = SQLITE_OK)
{
    if (result != expected) throw std::bad_alloc();
}

// The values outlive the statement's step, so that SQLite needs no copies.
struct binder {
    sqlite3_stmt *statement;
    int at;

    void operator()(std::monostate /*none*/) const
    {
        require(sqlite3_bind_null(statement, at));
    }
    void operator()(i64 number) const
    {
        require(sqlite3_bind_int64(statement, at, number));
    }
    void operator()(const std::string &text) const
    {
        require(sqlite3_bind_text64(statement, at, text.data(), text.size(),
                                    SQLITE_STATIC, SQLITE_UTF8));
    }
    void operator()(const sql_blob &bytes) const
    {
        // A null pointer would mean NULL instead of no bytes.
        const void *data = bytes.empty() ? "" : static_cast<const void *>(bytes.data());
        require(sqlite3_bind_blob64(statement, at, data, bytes.size(), SQLITE_STATIC));
    }
};

} // namespace

sqlite_database::sqlite_database()
{
    // Nor is anything of it kept in files while it is sorted.
    if (sqlite3_open(":memory:", &m_handle) == SQLITE_OK &&
        sqlite3_exec(m_handle, "PRAGMA temp_store = MEMORY", nullptr, nullptr,
                     nullptr) == SQLITE_OK)
        return;
    sqlite3_close(m_handle);
    throw std::bad_alloc();
}

sqlite_database::~sqlite_database()
{
    sqlite3_close(m_handle);
}

void sqlite_database::run(const char *statements)
{
    require(sqlite3_exec(m_handle, statements, nullptr, nullptr, nullptr));
}

void sqlite_database::write(std::ostream &out) const
{
    sqlite3_int64 size = 0;
    const std::unique_ptr<unsigned char, void (*)(void *)> bytes(
        sqlite3_serialize(m_handle, "main", &size, 0), sqlite3_free);
    if (!bytes) throw std::bad_alloc();
    out.write(static_cast<const char *>(static_cast<const void *>(bytes.get())),
              static_cast<std::streamsize>(size));
}

sqlite_table::sqlite_table(sqlite_database &database, std::string name)
    : m_database(database),
      m_name(std::move(name))
{
}

sqlite_table::~sqlite_table()
{
    sqlite3_finalize(m_insert);
}

void sqlite_table::prepare(const sql_row &row)
{
    std::string columns, places;
    for (const sql_cell &cell : row) {
        columns.append(columns.empty() ? "" : ", ").append(cell.column);
        places += places.empty() ? "?" : ", ?";
    }
    const std::string insert =
        "INSERT INTO " + m_name + " (" + columns + ") VALUES (" + places + ")";
    require(sqlite3_prepare_v2(m_database.m_handle, insert.c_str(), -1, &m_insert,
                               nullptr));
}

void sqlite_table::add(const sql_row &row)
{
    if (m_insert == nullptr) prepare(row);
    int at = 0;
    for (const sql_cell &cell : row) std::visit(binder{m_insert, ++at}, cell.value);
    require(sqlite3_step(m_insert), SQLITE_DONE);
    require(sqlite3_reset(m_insert));
}

} // namespace hv
