#pragma once

#include "media/mediamanager.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>

/// What a file-system query answers, as the levels need it.
struct FileSystemUse {
    std::uint64_t totalBlocks = 0;
    std::uint64_t freeBlocks = 0; ///< the superuser's reserve included
    std::array<unsigned char, 8> id{};
};

/// Fills everything but the path: the share of free blocks rounded half away from zero, and the three
/// less-or-equal levels on the rounded value. No blocks at all put the medium at no level.
void applyUse(const FileSystemUse &root, const FileSystemUse &medium, MediaManager::PathInfo &info);

/// Asks the file system of \a path on a worker thread and waits for it, a tenth of a second at most. False when the
/// path is empty, the query fails, or there is no answer in time; a worker that hangs in a dying medium is
/// left behind, and while it hangs further queries of the same path fail at once.
bool queryFileSystem(const QString &path, FileSystemUse &use);

/// How the worker of a path asks; false when the query fails. May take for ever.
using FileSystemQuestion = std::function<bool(const char *path, FileSystemUse &use)>;
/// Once a hang, because further queries fail at once: enough for a healthy medium on a machine that is overloaded.
inline constexpr std::chrono::milliseconds fileSystemPatience{100};

/// Puts another question and another patience in the place of the system's, for media that behave as a test
/// says. An empty question restores the system's. Event-loop thread.
void setFileSystemQuestion(const FileSystemQuestion &question,
                           std::chrono::milliseconds patience = fileSystemPatience);
