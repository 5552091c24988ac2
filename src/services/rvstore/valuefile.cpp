#include "services/rvstore/valuefile.h"

#include <chrono>
#include <cstdio>

#include <sqlite3.h>

namespace
{

// Changes that come within this time share one transaction.
constexpr std::chrono::milliseconds batchDelay{20};
constexpr std::chrono::seconds retryDelay{2};
// The layout of the file; a file with another one is put aside.
constexpr int fileVersion = 1;
// No value is longer than this; a damaged length is found out before memory is asked for.
constexpr int maxBlobBytes = 1 << 20;

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

int integerOf(sqlite3 *database, const char *text)
{
    Statement statement(database, text);
    return statement && sqlite3_step(statement) == SQLITE_ROW ? sqlite3_column_int(statement, 0) : -1;
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

ValueFile::Values ValueFile::load(std::string &problem, std::function<void()> progressed)
{
    Values values;
    _progressed = std::move(progressed);
    if (!open() || !isSound(_database) || !isOurs() || !read(values)) {
        const int code = _database ? sqlite3_errcode(_database) : SQLITE_CANTOPEN;
        const bool isDamaged = code != SQLITE_CANTOPEN && code != SQLITE_READONLY && code != SQLITE_BUSY &&
                               code != SQLITE_PERM && code != SQLITE_IOERR && code != SQLITE_NOMEM;
        problem = "cannot read " + _path;
        if (_database && code != SQLITE_OK && code != SQLITE_DONE && code != SQLITE_ROW) {
            problem += std::string(" (") + sqlite3_errstr(code) + ")";
        }
        close();
        values.clear();
        if (isDamaged && std::rename(_path.c_str(), (_path + ".damaged").c_str()) == 0) {
            std::remove((_path + "-wal").c_str());
            std::remove((_path + "-shm").c_str());
            problem += ", put aside as " + _path + ".damaged; every setting is at its default";
            if (!open()) {
                close();
            }
        } else {
            problem += "; settings are at their defaults until it can be written";
        }
    }
    _thread = std::thread([this] { run(); });
    return values;
}

void ValueFile::keep(eParam_t id, const ParamValue &value, std::uint64_t revision)
{
    {
        const std::lock_guard lock(_mutex);
        _waiting[id] = value;
        _revision = revision;
    }
    _wake.notify_all();
}

void ValueFile::hurry()
{
    {
        const std::lock_guard lock(_mutex);
        _isHurried = true;
    }
    _wake.notify_all();
}

ValueFile::Progress ValueFile::progress() const
{
    const std::lock_guard lock(_mutex);
    return _progress;
}

bool ValueFile::open()
{
    if (sqlite3_open(_path.c_str(), &_database) != SQLITE_OK) {
        close();
        return false;
    }
    // The file may be damaged in any way, or somebody else's: nothing in it is carried out.
    sqlite3_db_config(_database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(_database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(_database, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_db_config(_database, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    sqlite3_limit(_database, SQLITE_LIMIT_LENGTH, maxBlobBytes);
    sqlite3_busy_timeout(_database, 1000);
    return execute(_database, "PRAGMA cell_size_check=ON") && execute(_database, "PRAGMA journal_mode=WAL") &&
           execute(_database, "PRAGMA synchronous=FULL") &&
           execute(_database, "CREATE TABLE IF NOT EXISTS parameter "
                              "(number INTEGER PRIMARY KEY, value NOT NULL)");
}

void ValueFile::close()
{
    sqlite3_close(_database);
    _database = nullptr;
}

/// Whether the file has the layout that is written here; one without a version gets ours.
bool ValueFile::isOurs()
{
    const int version = integerOf(_database, "PRAGMA user_version");
    return version == fileVersion ||
           (version == 0 && execute(_database, ("PRAGMA user_version=" + std::to_string(fileVersion)).c_str()));
}

bool ValueFile::read(Values &values)
{
    Statement select(_database, "SELECT number, value FROM parameter ORDER BY number");
    if (!select) {
        return false;
    }
    int outcome = sqlite3_step(select);
    for (int rows = 0; outcome == SQLITE_ROW && rows < maxRows; rows++) {
        const std::int64_t id = sqlite3_column_int64(select, 0);
        const std::int64_t number = sqlite3_column_int64(select, 1);
        const bool isNumber = sqlite3_column_type(select, 1) == SQLITE_INTEGER;
        // A number that no parameter can have is left for the caller to miss, not cut to another one.
        if (id > 0 && id <= 0xffffffff && !(isNumber && (number < 0 || number > 0xffffffff))) {
            values.emplace_back(static_cast<eParam_t>(id), isNumber
                                                               ? ParamValue(static_cast<std::uint32_t>(number))
                                                               : ParamValue(columnBytes(select, 1)));
        }
        outcome = sqlite3_step(select);
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
        _wake.wait_for(lock, batchDelay, [this] { return _stop || _isHurried; });
        if (_waiting.empty()) {
            return;
        }
        Batch batch;
        batch.swap(_waiting);
        const std::uint64_t revision = _revision;
        const bool isLast = _stop;
        _isHurried = false;
        lock.unlock();
        const bool written = write(batch);
        if (written == complained) {
            std::fprintf(stderr, "rvstore: %s %s%s\n", written ? "writes" : "cannot write", _path.c_str(),
                         written ? " again" : ", trying on");
        }
        complained = !written;
        finishBatch(written, revision);
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

void ValueFile::finishBatch(bool isWritten, std::uint64_t revision)
{
    {
        const std::lock_guard lock(_mutex);
        _progress.isFailing = !isWritten;
        if (isWritten) {
            _progress.revision = revision;
        }
    }
    if (_progressed) {
        _progressed();
    }
}
