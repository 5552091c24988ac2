#pragma once

#include <QString>

#include <atomic>

#include <sys/types.h>

/// A process that records one clip as the recorder does, and tells how far it is.
namespace torture {

/// Stands in memory that the processes share.
struct Progress
{
    std::atomic<int> taken{0};     ///< frames the writer has
    std::atomic<int> committed{0}; ///< of these, frames that survive a loss of power
    std::atomic<bool> isClosing{false};
    std::atomic<bool> isClosed{false};
};

/// A Progress that this process and its children share.
Progress *sharedProgress();

/// What a writer does.
struct Orders
{
    int frames = 0;
    int microseconds = 0;   ///< from one frame to the next
    int diesInClose = 0;    ///< microseconds after the close begins; 0 lets it finish
};

/// Starts a process that records to \a path and closes the clip.
pid_t startWriter(const QString &path, Progress *progress, const Orders &orders);

/// What is wrong with the clip \a path of a writer that came as far as \a progress; empty when nothing is. At
/// least \a least frames must be there, each of them right. \a found is how many are.
QString faultOf(const QString &path, const Progress &progress, int least, int &found);

/// Completes the clip, killed on the way up to twice when \a random says so, and compares it with one that was
/// closed after as many frames. Empty when it is the same.
QString faultOfRecovery(const QString &path, int frames, unsigned random);

} // namespace torture
