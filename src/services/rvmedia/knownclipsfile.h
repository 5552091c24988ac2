#pragma once

#include "knownclips.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

/// Keeps what is known of clips in a file, so that a medium is listed at once after a restart of the machine, too. A
/// thread of its own begins to write it at most two seconds after a change, and at the end, in one step. Nothing in
/// the file is believed before it has been checked; a file that is damaged or of another version counts as none.
class KnownClipsFile
{
public:
    /// Nothing is kept with an empty \a path.
    KnownClipsFile(KnownClips &known, std::string path);
    /// Writes what is new.
    ~KnownClipsFile();
    KnownClipsFile(const KnownClipsFile &) = delete;
    KnownClipsFile &operator=(const KnownClipsFile &) = delete;

    /// Remembers what the file says; once, before changed(). False when there is a file that cannot be used.
    bool load();
    /// There is something new to write.
    void changed();

    /// Larger files are none of ours.
    static constexpr std::size_t maxBytes = 64 << 20;

private:
    void run();
    void save();

    KnownClips &_known;
    std::string _path;
    std::atomic<std::uint64_t> _saved = 0; ///< revision of what the file says
    bool _isFailing = false;
    std::mutex _mutex; ///< guards what follows
    std::condition_variable _wake;
    std::uint64_t _changes = 0;
    bool _stop = false;
    std::thread _thread;
};

/// The contents of such a file.
std::string knownClipsText(const std::list<KnownClips::OfMedium> &media);
/// Reads what knownClipsText() wrote; false, and \a known untouched, for anything else.
bool readKnownClips(const std::string &text, KnownClips &known);

/// Where the file is when nobody says otherwise: in $STATE_DIRECTORY, in /var/lib/rvmedia for the superuser, else in
/// the user's folder for the state of programs. Empty when there is no such place.
std::string knownClipsPath();
