#include "services/rvctl/mediareport.h"

#include "libvanta/mediacache.h"
#include "libvanta/mediaslot.h"
#include "services/rvctl/datarate.h"
#include "services/rvctl/mediarequest.h"
#include "services/rvctl/names.h"
#include "services/rvctl/plaintext.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <list>
#include <optional>
#include <vector>

namespace
{

/// The media service itself waits 0.3 s for media that hang.
constexpr std::chrono::milliseconds measurePatience(1000);
constexpr double reserve = 0.1;

std::vector<MediaSlot> slotsOf(Session &session)
{
    std::vector<MediaSlot> all;
    for (int i = 0; i < mediaSlotCount; i++) {
        const auto slot = mediaSlotOf(session.text(mediaSlotParameter(i)));
        if (!slot) {
            break;
        }
        all.push_back(*slot);
    }
    return all;
}

/// What the newest clip of the active medium was recorded in; empty without one.
std::string rasterOfLastClip(Session &session)
{
    const std::string active = session.text(eParamActivePath);
    std::list<Clip> clips;
    (void)lumo::media::MediaCache("NewCache").clips(clips);
    clips.remove_if([&](const Clip &clip) { return clip.path() != active || !clip.isComplete(); });
    return clips.empty() ? "" : clips.back().format().substr(0, clips.back().format().find(' '));
}

/// A format that has no name is most likely that of the last clip.
DataRate currentRate(Session &session)
{
    const int channels = session.number(eParamAudioChannels) == 1 ? 8 : 2;
    const auto rateOf = [&](const std::string &raster) {
        return dataRateOf(raster, session.number(eParamEncodeType), session.shown(eParamEncodeType), channels);
    };
    const DataRate rate = rateOf(session.shown(eParamMediaFormat));
    return rate.bytesPerSecond > 0 ? rate : rateOf(rasterOfLastClip(session));
}

double percentOf(const MediaSlot &slot)
{
    return slot.totalBytes > 0 ? std::round(double(slot.freeBytes) / double(slot.totalBytes) * 100) : 0;
}

/// One slot with what is made of it.
struct Row {
    MediaSlot slot;
    std::string role; ///< "active", "next" or empty
    std::optional<double> seconds;
};

Row rowOf(Session &session, const MediaSlot &slot, const DataRate &rate)
{
    Row row{slot, "", std::nullopt};
    if (slot.path == session.text(eParamActivePath)) {
        row.role = "active";
    } else if (slot.path == session.text(eParamRolloverPath)) {
        row.role = "next";
    }
    if (slot.state == SlotState::Ready && rate.bytesPerSecond > 0) {
        const double seconds = recordingSeconds(slot.freeBytes, slot.totalBytes, rate.bytesPerSecond);
        row.seconds = slot.isReadOnly ? 0 : seconds;
    }
    return row;
}

std::string jsonOf(const Row &row, std::size_t number, const DataRate &rate)
{
    const MediaSlot &slot = row.slot;
    std::string text = "{\"slot\": " + std::to_string(number) + ", \"path\": " + jsonString(slot.path) +
                       ", \"state\": \"" + nameOf(slot.state) + "\", \"role\": \"" + row.role + "\"";
    if (slot.state == SlotState::Ready) {
        char numbers[160];
        std::snprintf(numbers, sizeof numbers,
                      ", \"readOnly\": %s, \"freePercent\": %.0f, \"freeBytes\": %llu, \"totalBytes\": %llu",
                      slot.isReadOnly ? "true" : "false", percentOf(slot),
                      static_cast<unsigned long long>(slot.freeBytes),
                      static_cast<unsigned long long>(slot.totalBytes));
        text += numbers;
    }
    if (row.seconds) {
        text += ", \"secondsLeft\": " + std::to_string(static_cast<long long>(*row.seconds)) +
                ", \"format\": " + jsonString(rate.format);
    }
    return text + "}";
}

void addRow(TextTable &table, const Row &row, std::size_t number, const DataRate &rate)
{
    const MediaSlot &slot = row.slot;
    std::string space;
    std::string percent;
    std::string left;
    if (slot.state == SlotState::Ready) {
        char text[64];
        std::snprintf(text, sizeof text, "%.1f of %.1f GB", double(slot.freeBytes) / 1e9,
                      double(slot.totalBytes) / 1e9);
        space = text;
        percent = std::to_string(static_cast<int>(percentOf(slot))) + " %";
        left = slot.isReadOnly ? "read-only" : row.seconds ? durationText(*row.seconds) + " at " + rate.format : "-";
    }
    const std::string role = row.role.empty() ? "-" : row.role;
    table.add({std::to_string(number), slot.path, nameOf(slot.state), role, space, percent, left});
}

bool isNamed(const MediaSlot &slot, std::size_t number, const std::string &name)
{
    return slot.path == name || std::to_string(number) == name ||
           slot.path.substr(slot.path.rfind('/') + 1) == name;
}

} // namespace

std::string durationText(double seconds)
{
    const auto minutes = static_cast<long long>(seconds / 60);
    if (minutes >= 60) {
        return std::to_string(minutes / 60) + " h " + std::to_string(minutes % 60) + " min";
    }
    return minutes > 0 ? std::to_string(minutes) + " min" : std::to_string(static_cast<long long>(seconds)) + " s";
}

double recordingSeconds(std::uint64_t freeBytes, std::uint64_t totalBytes, double bytesPerSecond)
{
    return std::max(double(freeBytes) - double(totalBytes) * reserve, 0.0) / bytesPerSecond;
}

int reportMedia(Session &session)
{
    // Without an answer what was told last is shown; nothing here touches a medium.
    const auto measured = mediaAnswer(session, "measure", measurePatience);
    const std::vector<MediaSlot> media = slotsOf(session);
    if (!measured && media.empty()) {
        return session.fail(NotRunning, "the media service has told of no slots");
    }
    const DataRate rate = currentRate(session);
    TextTable table{TextTable::Align::Right, TextTable::Align::Left,  TextTable::Align::Left, TextTable::Align::Left,
                    TextTable::Align::Right, TextTable::Align::Right, TextTable::Align::Left};
    table.add({"#", "Slot", "State", "Use", "Free", "", "Time left"});
    std::string rows;
    for (std::size_t i = 0; i < media.size(); i++) {
        const Row row = rowOf(session, media[i], rate);
        rows += (rows.empty() ? "" : ", ") + jsonOf(row, i + 1, rate);
        addRow(table, row, i + 1, rate);
    }
    if (!session.options().json) {
        std::fputs(table.text().c_str(), stdout);
        if (!measured) {
            std::fputs("rvctl: the media service does not answer; this is what it told last\n", stderr);
        }
    }
    const std::string current = measured ? "true" : "false";
    return session.succeed(", \"current\": " + current + ", \"media\": [" + rows + "]");
}

int ejectMedium(Session &session, std::span<const std::string> words)
{
    const std::string name = words.empty() ? session.text(eParamActivePath) : words[0];
    if (name.empty()) {
        return session.fail(Failed,
                            words.empty() ? "there is no active medium; name a slot" : "an empty word is no slot");
    }
    std::string path = name;
    const std::vector<MediaSlot> media = slotsOf(session);
    std::size_t named = 0;
    for (std::size_t i = 0; i < media.size(); i++) {
        if (isNamed(media[i], i + 1, name)) {
            path = media[i].path;
            named++;
        }
    }
    if (named > 1) {
        return session.fail(Failed, "\"" + name + "\" may be several slots; name its mount point");
    }
    return askMedia(session, "eject " + path);
}
