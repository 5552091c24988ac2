#pragma once

#include "libconfig/paramdescriptor.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

struct sqlite3;

/// Keeps values in an SQLite file. Writing happens on a thread of its own, in batches, so keep()
/// never waits for the medium. A file that cannot be opened or written is tried again every two
/// seconds, and what waits is bounded by the number of parameters.
class ValueFile
{
public:
    using Values = std::vector<std::pair<eParam_t, ParamValue>>;

    explicit ValueFile(std::string path);
    /// Writes what waits (one attempt), then closes the file.
    ~ValueFile();
    ValueFile(const ValueFile &) = delete;
    ValueFile &operator=(const ValueFile &) = delete;

    /// Open the file and read it; once, before keep(). A damaged file is put aside under the same
    /// name with ".damaged" behind it and a new one begun. `problem` says what went wrong; empty:
    /// nothing.
    Values load(std::string &problem);
    /// Have a value written soon. Any thread.
    void keep(eParam_t id, const ParamValue &value);

private:
    using Batch = std::map<eParam_t, ParamValue>;

    bool open();
    void close();
    bool read(Values &values);
    bool write(const Batch &batch);
    void run();

    std::string _path;
    sqlite3 *_database = nullptr;
    std::mutex _mutex;
    std::condition_variable _wake;
    Batch _waiting;
    bool _stop = false;
    std::thread _thread;
};
