#pragma once

#include "libclip/recoveryplan.h"
#include "libvanta/clip.h"

#include <optional>
#include <string>

#include <sys/types.h>

/// Has clip files read by a confined process, rvgrok, which is started when it is needed, ended and replaced when
/// it takes too long or dies, and renewed now and then. One thread.
class ClipInspector
{
public:
    enum class Outcome {
        Read,       ///< a clip
        Bad,        ///< no clip, or reading it took too much time, memory or more
        NotStarted, ///< there is no process to read it: nothing is known of the file
    };

    /// \a program is rvgrok's path; a file gets \a patienceMs.
    explicit ClipInspector(std::string program, int patienceMs = 2000);
    ~ClipInspector();
    ClipInspector(const ClipInspector &) = delete;
    ClipInspector &operator=(const ClipInspector &) = delete;

    /// Fills in all but name and directory from the file open at \a descriptor, which stays the caller's.
    Outcome inspect(int descriptor, Clip &clip);
    /// How the interrupted clip open at \a descriptor, which stays the caller's, is completed; read by a process that
    /// reads nothing else. Nothing when that is not known: no process, or what it takes. A medium may take long.
    std::optional<clip::RecoveryPlan> planRecovery(int descriptor);
    /// The confined process of the moment; -1 without one.
    pid_t process() const { return _process; }

private:
    bool start();
    void end();
    bool receive(Clip &clip) const;

    std::string _program;
    int _patienceMs;
    int _socket = -1;
    pid_t _process = -1;
    int _inspected = 0;
};
