// How a clip is completed whose writer died: what stands behind its last safe frame is cut off, and
// the clip closed as its writer would have: the movie, a wait until it is durable, the placeholder.
// Each step leaves one view of the file whole and can be repeated.

#include "libclip/cliprecovery.h"

#include "libclip/boxcursor.h"
#include "libclip/movhead.h"
#include "libclip/rawfile.h"

#include <algorithm>
#include <cerrno>

namespace clip {

namespace {

using Outcome = Recovery::Outcome;

/// Whoever made the plan read a file that may be hostile: what the plan says must fit the file.
bool isSound(const RecoveryPlan &plan, std::uint64_t fileSize)
{
    BoxCursor movie(plan.movie);
    return plan.frames > 0 && plan.end >= placeholderOffset + placeholderSize && plan.end <= fileSize
        && plan.movie.size() <= maxMovieBytes && movie.u32() == plan.movie.size()
        && movie.u32() == fourcc("moov");
}

Error complete(RawFile &file, std::uint64_t fileSize, const RecoveryPlan &plan)
{
    // After a crash of the writer alone its last commits may not be durable yet, nor what it cut.
    if (plan.end != fileSize) {
        if (const Error error = file.truncate(plan.end)) {
            return error;
        }
    }
    Error error = file.reserve(plan.end, plan.movie.size());
    if (!error) {
        error = file.writeAt(plan.end, plan.movie);
    }
    if (error) {
        (void)file.truncate(plan.end);
        return error;
    }
    if (const Error syncError = file.sync()) {
        return syncError;
    }
    BoxWriter header;
    header.u32(1).code("mdat").u64(plan.end - placeholderOffset);
    if (const Error headerError = file.writeAt(placeholderOffset, header.bytes())) {
        return headerError;
    }
    // What the writer had reserved behind the end is given back, also at an unchanged length.
    (void)file.truncate(plan.end + plan.movie.size());
    return file.sync();
}

Recovery failure(const Error &error)
{
    switch (error.code) {
    case EROFS:
    case EACCES:
    case EPERM:
        return { Outcome::ReadOnly, error, 0 };
    case EWOULDBLOCK:
        return { Outcome::Busy, error, 0 };
    default:
        return { Outcome::Failed, error, 0 };
    }
}

Recovery removed(const RawFile &file, const std::string &path)
{
    // The name may be that of another clip by now: a writer that takes the place of its own reserved
    // name holds the lock until the clip is there.
    if (!file.isAt(path)) {
        return { };
    }
    removeFile(path);
    return { Outcome::Removed, syncDirectoryOf(path), 0 };
}

/// The file is ours to change.
Recovery treat(RawFile &file, const std::string &path, const RecoveryPlanner &planner)
{
    std::uint64_t fileSize = 0;
    if (const Error error = file.size(fileSize)) {
        return failure(error);
    }
    switch (lookAt(file, fileSize)) {
    case ClipLook::Foreign:
        return { };
    case ClipLook::Complete:
        return { Outcome::Complete, { }, 0 };
    case ClipLook::Reserved:
        return removed(file, path);
    case ClipLook::Unfinished:
        break;
    }
    const auto plan = planner(file);
    if (!plan) {
        return failure(systemError(ECANCELED, "read"));
    }
    if (plan->kind != RecoveryPlan::Kind::Completed) {
        return plan->kind == RecoveryPlan::Kind::Empty ? removed(file, path) : Recovery { };
    }
    if (!isSound(*plan, fileSize)) {
        return failure(systemError(EBADMSG, "read"));
    }
    // Clips are listed in the order of their recording, which is that of their last change.
    if (const Error error = file.keepingTime([&] { return complete(file, fileSize, *plan); })) {
        return failure(error);
    }
    return { Outcome::Recovered, { }, plan->frames };
}

} // namespace

std::string reservedContent(std::size_t bytes)
{
    BoxWriter writer;
    writer.box("free", [&] {
        writer.text(reservedMark);
        writer.zeros(bytes > writer.size() ? bytes - writer.size() : 0);
    });
    return { reinterpret_cast<const char *>(writer.bytes().data()), writer.size() };
}

Recovery recover(const std::string &path, const RecoveryPlanner &planner)
{
    // Most clips are complete: they are not locked, and not opened for writing.
    std::uint64_t fileSize = 0;
    {
        RawFile file;
        if (const Error error = file.openToRead(path)) {
            return failure(error);
        }
        if (const Error error = file.size(fileSize)) {
            return failure(error);
        }
        switch (lookAt(file, fileSize)) {
        case ClipLook::Foreign:
            return { };
        case ClipLook::Complete:
            return { Outcome::Complete, { }, 0 };
        case ClipLook::Unfinished:
        case ClipLook::Reserved:
            break;
        }
    }
    RawFile file;
    if (const Error error = file.openToChange(path)) {
        return failure(error);
    }
    return treat(file, path, planner);
}

Recovery recover(const std::string &path)
{
    return recover(path, [](const RawFile &file) { return std::optional(planRecovery(file)); });
}

} // namespace clip
