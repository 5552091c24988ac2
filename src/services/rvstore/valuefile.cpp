#include "services/rvstore/valuefile.h"

#include <chrono>
#include <cstdio>

#include <sqlite3.h>

namespace
{

// Changes that come within this time share one transaction.
constexpr std::chrono::milliseconds batchDelay{20};
constexpr std::chrono::seconds retryDelay{2};

/// One prepared statement, finalized with its scope.
class Statement
{
public:
    Statement(sqlite3 *database, const char *text)
    {
        sqlite3_prepare_v2(database, text, -1, &_statement, nullptr);
    }
    ~Statement() { sqlite3_finalize(_statement); }
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;

    explicit operator bool() const { return _statement; }
    operator sqlite3_stmt *() { return _statement; }

private:
    sqlite3_stmt *_statement = nullptr;
};

bool execute(sqlite3 *database, const char *text)
{
    return sqlite3_exec(database, text, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool isSound(sqlite3 *database)
{
    Statement check(database, "PRAGMA quick_check(1)");
    return check && sqlite3_step(check) == SQLITE_ROW &&
           std::string("ok") == reinterpret_cast<const char *>(sqlite3_column_text(check, 0));
}

std::string columnBytes(sqlite3_stmt *statement, int column)
{
    const void *bytes = sqlite3_column_blob(statement, column);
    const int size = sqlite3_column_bytes(statement, column);
    return bytes ? std::string(static_cast<const char *>(bytes), static_cast<std::size_t>(size))
                 : std::string();
}

} // namespace

ValueFile::ValueFile(std::string path) : _path(std::move(path)) {}

ValueFile::~ValueFile()
{
    if (_thread.joinable()) {
        {
            const std::lock_guard lock(_mutex);
            _stop = true;
        }
        _wake.notify_all();
        _thread.join();
    }
    close();
}

ValueFile::Values ValueFile::load(std::string &problem)
{
    Values values;
    if (!open() || !isSound(_database) || !read(values)) {
        const int code = sqlite3_errcode(_database);
        const bool isDamaged = _database && code != SQLITE_CANTOPEN && code != SQLITE_READONLY &&
                               code != SQLITE_BUSY && code != SQLITE_PERM;
        problem = "cannot read " + _path;
        close();
        values.clear();
        if (isDamaged && std::rename(_path.c_str(), (_path + ".damaged").c_str()) == 0) {
            std::remove((_path + "-wal").c_str());
            std::remove((_path + "-shm").c_str());
            problem += ", put aside";
            open();
        }
    }
    _thread = std::thread([this] { run(); });
    return values;
}

void ValueFile::keep(eParam_t id, const ParamValue &value)
{
    {
        const std::lock_guard lock(_mutex);
        _waiting[id] = value;
    }
    _wake.notify_all();
}

bool ValueFile::open()
{
    if (sqlite3_open(_path.c_str(), &_database) != SQLITE_OK) {
        close();
        return false;
    }
    sqlite3_busy_timeout(_database, 1000);
    return execute(_database, "PRAGMA journal_mode=WAL") &&
           execute(_database, "PRAGMA synchronous=FULL") &&
           execute(_database, "CREATE TABLE IF NOT EXISTS parameter "
                              "(number INTEGER PRIMARY KEY, value NOT NULL)");
}

void ValueFile::close()
{
    sqlite3_close(_database);
    _database = nullptr;
}

bool ValueFile::read(Values &values)
{
    Statement select(_database, "SELECT number, value FROM parameter");
    if (!select) {
        return false;
    }
    int outcome = sqlite3_step(select);
    for (; outcome == SQLITE_ROW; outcome = sqlite3_step(select)) {
        const auto id = static_cast<eParam_t>(sqlite3_column_int64(select, 0));
        if (sqlite3_column_type(select, 1) == SQLITE_INTEGER) {
            values.emplace_back(id, static_cast<std::uint32_t>(sqlite3_column_int64(select, 1)));
        } else {
            values.emplace_back(id, columnBytes(select, 1));
        }
    }
    return outcome == SQLITE_DONE;
}

bool ValueFile::write(const Batch &batch)
{
    if (!_database && !open()) {
        close();
        return false;
    }
    bool written = execute(_database, "BEGIN IMMEDIATE");
    Statement insert(_database, "INSERT OR REPLACE INTO parameter VALUES (?, ?)");
    for (const auto &[id, value] : batch) {
        if (!written || !insert) {
            break;
        }
        sqlite3_bind_int64(insert, 1, id);
        if (const auto *number = std::get_if<std::uint32_t>(&value)) {
            sqlite3_bind_int64(insert, 2, *number);
        } else {
            const auto &bytes = std::get<std::string>(value);
            sqlite3_bind_blob(insert, 2, bytes.data(), static_cast<int>(bytes.size()),
                              SQLITE_TRANSIENT);
        }
        written = sqlite3_step(insert) == SQLITE_DONE;
        sqlite3_reset(insert);
    }
    if (written && insert && execute(_database, "COMMIT")) {
        return true;
    }
    execute(_database, "ROLLBACK");
    return false;
}

void ValueFile::run()
{
    bool complained = false;
    std::unique_lock lock(_mutex);
    for (;;) {
        _wake.wait(lock, [this] { return _stop || !_waiting.empty(); });
        if (!_stop) {
            _wake.wait_for(lock, batchDelay, [this] { return _stop; });
        }
        if (_waiting.empty()) {
            return;
        }
        Batch batch;
        batch.swap(_waiting);
        const bool isLast = _stop;
        lock.unlock();
        const bool written = write(batch);
        if (!written && !complained) {
            std::fprintf(stderr, "rvstore: cannot write %s, trying on\n", _path.c_str());
        }
        complained = !written;
        lock.lock();
        if (written) {
            continue;
        }
        if (isLast) {
            return;
        }
        // What was set meanwhile is newer.
        _waiting.merge(batch);
        _wake.wait_for(lock, retryDelay, [this] { return _stop; });
    }
}
