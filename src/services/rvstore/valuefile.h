#pragma once

#include "libconfig/paramdescriptor.h"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

struct sqlite3;

/// Keeps values in an SQLite file. Writing happens on a thread of its own, in batches that are on the medium or
/// not as a whole, so keep() never waits. A file that cannot be opened or written is tried again every
/// two seconds, and what waits is bounded by the number of parameters.
class ValueFile
{
public:
    using Values = std::vector<std::pair<eParam_t, ParamValue>>;

    /// How far writing has come.
    struct Progress {
        std::uint64_t revision = 0; ///< everything up to here is on the medium
        bool isFailing = false;     ///< the last attempt to write failed
    };

    /// More rows than any catalogue has are a damage.
    static constexpr int maxRows = 10000;

    explicit ValueFile(std::string path);
    /// Writes what waits (one attempt), then closes the file.
    ~ValueFile();
    ValueFile(const ValueFile &) = delete;
    ValueFile &operator=(const ValueFile &) = delete;

    /// Open the file and read it; once, before keep(). A damaged file is put aside under the same
    /// name with ".damaged" behind it and a new one begun. `problem` says what went wrong; empty:
    /// nothing. From then on `progressed` is called on the file's thread when progress() changes.
    Values load(std::string &problem, std::function<void()> progressed = {});
    /// Have a value written soon; revisions ascend. Any thread.
    void keep(eParam_t id, const ParamValue &value, std::uint64_t revision);
    /// Somebody waits for what keep() was given: write it now. Any thread.
    void hurry();
    /// Any thread.
    Progress progress() const;

private:
    using Batch = std::map<eParam_t, ParamValue>;

    bool open();
    void close();
    bool isOurs();
    bool read(Values &values);
    bool write(const Batch &batch);
    void run();
    void finishBatch(bool isWritten, std::uint64_t revision);

    std::string _path;
    sqlite3 *_database = nullptr;
    std::function<void()> _progressed;
    mutable std::mutex _mutex; ///< guards what follows
    std::condition_variable _wake;
    Batch _waiting;
    std::uint64_t _revision = 0; ///< the last one that was given to keep()
    Progress _progress;
    bool _isHurried = false;
    bool _stop = false;
    std::thread _thread;
};
