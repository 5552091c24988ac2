// What clients ask of the service, each with a token of its own by which it knows the answer, and what is told of the
// slots.

#include "mediaservice.h"

#include "liborb/orblog.h"
#include "slotfile.h"
#include "transportuse.h"

#include <QTimer>

#include <algorithm>
#include <memory>
#include <utility>

namespace
{

constexpr const char *logFile = "mediaservice.cpp";
/// A medium that hangs is shown as it was measured last.
constexpr int measurePatienceMs = 300;
constexpr std::size_t longestToken = 64;
constexpr std::size_t mostEjections = 16;

/// The text up to the first blank, and what stands behind it.
std::pair<std::string, std::string> split(const std::string &text)
{
    const std::size_t blank = text.find(' ');
    return {text.substr(0, blank), blank == std::string::npos ? std::string() : text.substr(blank + 1)};
}

} // namespace

void MediaService::request(const std::string &text)
{
    const auto [token, rest] = split(text);
    const auto [word, object] = split(rest);
    if (token.empty() || token.size() > longestToken)
        return;
    if (word == "eject") {
        eject(token, cleanPath(object));
    } else if (word == "measure" && object.empty()) {
        measure(token);
    } else if (word == "suspect") {
        suspect(token, cleanPath(object));
    } else if (word == "playlist") {
        Medium *medium = mediumAt(paths().active);
        if (medium)
            medium->editPlayList(object, [this, token](const std::string &problem) { answer(token, problem); });
        else
            answer(token, "there is no active medium");
    } else {
        answer(token, "not understood");
    }
}

void MediaService::answer(const std::string &token, const std::string &problem)
{
    const std::string text = token + (problem.empty() ? " done" : " failed " + problem);
    if (!_config->setString(eParamMediaAnswer, text))
        orbLogOutput(2, logFile, __LINE__, "A request can't be answered\n");
}

/// Why the medium must stay; nothing when it may go.
std::string MediaService::reasonToKeep(const std::string &path) const
{
    unsigned int isRunning = 0;
    unsigned int state = 0;
    _config->getUInt32(eParamTransportRunning, isRunning);
    _config->getUInt32(eParamTransportState, state);
    const unsigned int use = storageUse();
    // Of a recording that begins the state is told a moment before the use of the storage.
    const bool isUsed = isRunning == 1 && (isInUse(use) || (usesClip(state)));
    const MediaPaths now = paths();
    if (isUsed && path == now.active) {
        if (!usesClip(state))
            return path + " is still in use";
        return path +
            (state == stateRecord ? " is recorded on; stop ends that" : " is played from; standby-off ends that");
    }
    // While the recording goes over, both media are written.
    if (isUsed && path == now.rollover && use == storageHasRolledOver)
        return path + " is recorded on";
    return {};
}

/// The transport has left its clip, or comes to one, and what becomes of the storage is still to be told.
bool MediaService::isBeingReleased() const
{
    unsigned int isRunning = 0;
    unsigned int state = 0;
    _config->getUInt32(eParamTransportRunning, isRunning);
    _config->getUInt32(eParamTransportState, state);
    return isRunning == 1 && isInUse(storageUse()) && !usesClip(state);
}

void MediaService::prepareForRequests()
{
    _releasePatience.setSingleShot(true);
    _releasePatience.setInterval(_setup.releasePatience);
    connect(&_releasePatience, &QTimer::timeout, this, &MediaService::ejectWaiting);
}

/// Whoever has seen that the transport stands still may ask before the daemon has closed the clip and said so.
void MediaService::eject(const std::string &token, const std::string &path)
{
    if (!mediumAt(path) || reasonToKeep(path).empty() || !isBeingReleased() || _ejections.size() >= mostEjections) {
        ejectNow(token, path);
        return;
    }
    _ejections.push_back({token, path});
    if (!_releasePatience.isActive())
        _releasePatience.start();
}

/// Decides on the requests that wait as soon as it is clear what becomes of the storage, and at the latest when
/// patience ends.
void MediaService::ejectWaiting()
{
    if (_releasePatience.isActive() && isBeingReleased())
        return;
    _releasePatience.stop();
    for (const Ejection &ejection : std::exchange(_ejections, {}))
        ejectNow(ejection.token, ejection.path);
}

void MediaService::ejectNow(const std::string &token, const std::string &path)
{
    Medium *medium = mediumAt(path);
    const std::string problem = medium ? reasonToKeep(path) : "there is no such slot";
    if (!problem.empty()) {
        answer(token, problem);
        return;
    }
    medium->eject([this, path] { return reasonToKeep(path); },
                  [this, token](const std::string &failure) {
                      tellState();
                      answer(token, failure);
                  });
}

/// The daemon has seen a recording fail on the medium. The next one goes elsewhere if it can; whoever names the medium
/// later means it.
void MediaService::suspect(const std::string &token, const std::string &path)
{
    const auto found = std::ranges::find(_media, path, [](const auto &medium) { return cleanPath(medium->path()); });
    if (found == _media.end()) {
        answer(token, "there is no such slot");
        return;
    }
    orbLogOutput(2, logFile, __LINE__, "A recording on %s failed, it is left out until it is mounted anew\n",
                 path.c_str());
    Medium &medium = **found;
    medium.suspect();
    if (medium.path() == paths().active && !nextMedium(facts(), medium.path()).empty())
        _wentTo = medium.path();
    choose();
    answer(token, std::string());
}

void MediaService::measure(const std::string &token)
{
    const auto isAnswered = std::make_shared<bool>(false);
    const auto finish = [this, token, isAnswered] {
        if (std::exchange(*isAnswered, true))
            return;
        tellSlots();
        answer(token, std::string());
    };
    const auto waiting = std::make_shared<int>(1);
    const auto measured = [waiting, finish] {
        if (--*waiting == 0)
            finish();
    };
    for (const auto &medium : _media) {
        if (!medium->isPresent())
            continue;
        ++*waiting;
        medium->measure(measured);
    }
    measured();
    QTimer::singleShot(measurePatienceMs, this, finish);
}

void MediaService::tellSlots()
{
    for (int i = 0; i < mediaSlotCount; ++i) {
        const bool isThere = static_cast<std::size_t>(i) < _media.size();
        const std::string now = isThere ? textOf(_media[static_cast<std::size_t>(i)]->slot()) : std::string();
        std::string told;
        if (!_config->getString(mediaSlotParameter(i), told) || told != now)
            _config->setString(mediaSlotParameter(i), now);
    }
}
