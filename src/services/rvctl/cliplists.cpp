#include "services/rvctl/cliplists.h"

#include "libvanta/mediacache.h"
#include "services/rvctl/mediarequest.h"
#include "services/rvctl/names.h"
#include "services/rvctl/plaintext.h"

#include <cstdio>

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

std::string whenOf(const Clip &clip)
{
    if (clip.state() == ClipState::Missing) {
        return "-";
    }
    const time_t modified = clip.modified();
    tm local{};
    localtime_r(&modified, &local);
    char when[32] = "";
    std::strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S", &local);
    return when;
}

std::string sizeOf(const Clip &clip)
{
    char size[32];
    std::snprintf(size, sizeof size, "%.1f MB", double(clip.fileSize()) / 1e6);
    return clip.state() == ClipState::Missing ? "-" : size;
}

/// What a clip's fact is when it is not known.
std::string known(const std::string &fact)
{
    return fact.empty() ? "-" : fact;
}

constexpr TextTable::Align left = TextTable::Align::Left;
constexpr TextTable::Align right = TextTable::Align::Right;

void printTable(const std::list<Clip> &clips)
{
    TextTable table{right, left, right, left, left, right, left, left};
    table.add({"#", "Name", "Frames", "Timecode", "Format", "Size", "When", ""});
    std::size_t index = 0;
    for (const Clip &clip : clips) {
        const bool isRead = clip.isComplete() || clip.getFrameCount() > 0;
        table.add({std::to_string(index++), clip.getName(), isRead ? std::to_string(clip.getFrameCount()) : "-",
                   known(clip.timecode()), known(clip.format()), sizeOf(clip), whenOf(clip),
                   clip.isComplete() ? "" : stateName(clip)});
    }
    std::fputs(table.text().c_str(), stdout);
}

int show(Session &session, std::list<Clip> clips, const char *member, bool allMedia)
{
    const std::string active = session.text(eParamActivePath);
    if (!allMedia) {
        clips.remove_if([&](const Clip &clip) { return clip.path() != active; });
    }
    if (!session.options().json) {
        printTable(clips);
        return Done;
    }
    std::string rows;
    std::size_t index = 0;
    for (const Clip &clip : clips) {
        rows += (rows.empty() ? "" : ", ") + jsonOf(clip, index++);
    }
    return session.succeed(", \"" + std::string(member) + "\": [" + rows + "]");
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
    std::string edit = "playlist";
    for (const std::string &word : words) {
        edit += " " + word;
    }
    return askMedia(session, edit);
}
