#include "services/rvctl/cliplists.h"

#include "libvanta/mediacache.h"
#include "libvanta/withintime.h"
#include "services/rvctl/names.h"

#include <cmath>
#include <cstdio>
#include <memory>

#include <sys/vfs.h>
#include <time.h>

namespace
{

constexpr const char *stateNames[] = {"ready", "recording", "bad", "missing"};

const char *stateName(const Clip &clip)
{
    return stateNames[static_cast<std::size_t>(clip.state())];
}

std::string jsonOf(const Clip &clip, std::size_t index)
{
    return "{\"index\": " + std::to_string(index) + ", \"name\": " + jsonString(clip.getName()) +
           ", \"path\": " + jsonString(clip.path()) + ", \"frames\": " + std::to_string(clip.getFrameCount()) +
           ", \"timecode\": " + jsonString(clip.timecode()) + ", \"format\": " + jsonString(clip.format()) +
           ", \"bytes\": " + std::to_string(clip.fileSize()) +
           ", \"modified\": " + std::to_string(clip.modified()) + ", \"state\": \"" + stateName(clip) + "\"}";
}

void printLine(const Clip &clip, std::size_t index)
{
    const time_t modified = clip.modified();
    tm local{};
    localtime_r(&modified, &local);
    char when[32] = "-";
    if (clip.state() != ClipState::Missing) {
        std::strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S", &local);
    }
    std::printf("%4zu  %-24s %8d  %-11s  %10.1f MB  %-19s  %s%s\n", index, clip.getName().c_str(),
                clip.getFrameCount(), clip.timecode().empty() ? "-" : clip.timecode().c_str(),
                double(clip.fileSize()) / 1e6, when, clip.format().c_str(),
                clip.isComplete() ? "" : (std::string(" (") + stateName(clip) + ")").c_str());
}

int show(Session &session, std::list<Clip> clips, const char *member, bool allMedia)
{
    const std::string active = session.text(eParamActivePath);
    if (!allMedia) {
        clips.remove_if([&](const Clip &clip) { return clip.path() != active; });
    }
    std::string rows;
    std::size_t index = 0;
    for (const Clip &clip : clips) {
        if (session.options().json) {
            rows += (rows.empty() ? "" : ", ") + jsonOf(clip, index);
        } else {
            printLine(clip, index);
        }
        ++index;
    }
    return session.succeed(", \"" + std::string(member) + "\": [" + rows + "]");
}

struct Space {
    bool isKnown = false;
    double freePercent = 0;
    double freeBytes = 0;
};

Space spaceOf(const std::string &path)
{
    const auto space = std::make_shared<Space>();
    const auto measure = [space, path] {
        struct statfs found = {};
        if (::statfs(path.c_str(), &found) == 0 && found.f_blocks > 0) {
            *space = Space{true, std::round(double(found.f_bfree) / double(found.f_blocks) * 100),
                           double(found.f_bfree) * double(found.f_bsize)};
        }
    };
    const bool isAnswered = lumo::utils::withinTime(lumo::utils::filePatience, measure);
    return isAnswered ? *space : Space();
}

} // namespace

int reportClips(Session &session, bool allMedia)
{
    std::list<Clip> clips;
    if (!lumo::media::MediaCache("NewCache").clips(clips)) {
        return session.fail(NotRunning, "the media service has told of no clips");
    }
    return show(session, clips, "clips", allMedia);
}

int reportPlayList(Session &session)
{
    std::list<Clip> clips;
    if (!lumo::media::MediaCache("NewCache").playlist(clips)) {
        return session.fail(NotRunning, "the media service has told of no play list");
    }
    return show(session, clips, "playList", false);
}

int editPlayList(Session &session, std::span<const std::string> words)
{
    std::string edit;
    for (const std::string &word : words) {
        edit += (edit.empty() ? "" : " ") + word;
    }
    const int code = session.send(eParamPlayListEdit, edit);
    return code == Done ? session.succeed() : code;
}

int reportMedia(Session &session)
{
    std::string rows;
    for (const eParam_t id : {eParamActivePath, eParamRolloverPath}) {
        const std::string path = session.text(id);
        const std::string role = id == eParamActivePath ? "active" : "next";
        const Space space = path.empty() ? Space() : spaceOf(path);
        char free[64] = "not there";
        if (space.isKnown) {
            std::snprintf(free, sizeof free, "%.0f %% free, %.1f GB", space.freePercent, space.freeBytes / 1e9);
        }
        if (!session.options().json) {
            std::printf("%-8s%s%s%s\n", role.c_str(), path.empty() ? "-" : path.c_str(), path.empty() ? "" : "  ",
                        path.empty() ? "" : free);
            continue;
        }
        rows += (rows.empty() ? "" : ", ");
        rows += "{\"role\": \"" + role + "\", \"path\": " + jsonString(path);
        if (space.isKnown) {
            char numbers[96];
            std::snprintf(numbers, sizeof numbers, ", \"freePercent\": %.0f, \"freeBytes\": %.0f", space.freePercent,
                          space.freeBytes);
            rows += numbers;
        }
        rows += "}";
    }
    return session.succeed(", \"media\": [" + rows + "]");
}
