#include "app/mainobject.h"

#include "app/mainobject_log.h"
#include "config/configinterface.h"
#include "config/configupdater.h"
#include "libconfig/paramdescriptor.h"
#include "libvanta/clipfinder.h"
#include "libvanta/mediacache.h"
#include "media/mediamanager.h"
#include "transport/vtrobject.h"

#include <algorithm>
#include <iterator>

// Clips and play lists. Two lists are kept, all clips of the active medium and the user's play list, each with
// the play list that joins its clips into one stream. The current clip lives in the parameter store.

namespace {

constexpr const char *noClip = "N/A";
/// What playback plays: one clip, all clips, or the play list.
enum PlayMedia { PlayCurrentClip = 0, PlayAllClips = 1, PlayPlayList = 2 };

QString nameOf(const Clip &clip)
{
    return QString::fromStdString(clip.getName());
}

} // namespace

OrbPlayList createPlayList(const QString &path, const std::list<Clip> &clips)
{
    OrbPlayList list;
    for (const Clip &clip : clips) {
        OrbPlayListEntry entry;
        entry.setName(nameOf(clip));
        entry.setDesc(QVariant(QStringLiteral("%1/%2").arg(path, nameOf(clip))));
        entry.setLength(clip.getFrameCount());
        list.append(entry);
    }
    return list;
}

void MainObject::reloadClips()
{
    updateAllClips();
    updatePlayList();
    setInitialClip();
}

void MainObject::updateAllClips()
{
    const QString path = _mediaManager->activePath();
    if (path.isEmpty()) {
        _allClips.clear();
        _allClipsPlayList.clear();
        return;
    }
    _allClips = _clipFinder->findClips(true, false, true);
    _allClipsPlayList = createPlayList(path, _allClips);
    orbLogOutput(3, logFile, __LINE__, "Updated all clips list.  %d entries\n",
                 static_cast<int>(_allClipsPlayList.size()));
}

void MainObject::updatePlayList()
{
    const QString path = _mediaManager->activePath();
    if (path.isEmpty()) {
        _playListClips.clear();
        _playList.clear();
        return;
    }
    _playListClips = _clipFinder->findClips(true, true, true);
    _playList = createPlayList(path, _playListClips);
    orbLogOutput(3, logFile, __LINE__, "Updated play list.  %d entries\n",
                 static_cast<int>(_playList.size()));
}

QString MainObject::currentClip()
{
    const QString name = _config->getString(eParamCurrentClip);
    return name == QLatin1String(noClip) ? QString() : name;
}

void MainObject::setCurrentClip(const QString &name)
{
    _configUpdater->setCurrentClip(name);
    _vtr->setCurrentClipName(name);
}

void MainObject::setInitialClip()
{
    const OrbPlayList list = playListInUse();
    if (currentClip().isEmpty() && !list.isEmpty())
        setCurrentClip(list.last().name());
}

OrbPlayList MainObject::playListInUse() const
{
    return _playMedia == PlayPlayList ? _playList : _allClipsPlayList;
}

int MainObject::findCurrentClipIndex()
{
    const OrbPlayList list = playListInUse();
    const auto entry = std::ranges::find(list, currentClip(), &OrbPlayListEntry::name);
    return entry == list.end() ? -1 : static_cast<int>(entry - list.begin());
}

void MainObject::gotoClipByName(const QString &name)
{
    if (name == QLatin1String(noClip)) {
        _vtr->standbyOff();
        return;
    }
    const OrbPlayList list = playListInUse();
    const auto entry = std::ranges::find(list, name, &OrbPlayListEntry::name);
    if (entry == list.end()) {
        logText(1, QStringLiteral("Can't goto clip: '%1' not found").arg(name));
        return;
    }
    gotoClipByIndex(static_cast<int>(entry - list.begin()));
}

void MainObject::gotoClipByRelativeIndex(int delta)
{
    const int size = static_cast<int>(playListInUse().size());
    if (size == 0) {
        orbLogOutput(1, logFile, __LINE__, "Go to relative clip index %d: List is empty\n", delta);
        return;
    }
    const int current = findCurrentClipIndex();
    if (current == -1) {
        orbLogOutput(1, logFile, __LINE__,
                     "Go to relative clip index %d: Failed to find current clip index\n", delta);
        return;
    }
    const qint64 index = (qint64(current) + delta) % size;
    gotoClipByIndex(static_cast<int>(index < 0 ? index + size : index));
}

void MainObject::gotoClipByIndex(int index)
{
    if (_playMedia != PlayCurrentClip) {
        int first = playListInUse().firstFrameOfEntry(index);
        if (first == -1) {
            orbLogOutput(1, logFile, __LINE__, "Go to playlist index %d failed: Entry invalid\n",
                         index);
            first = 0;
        }
        _vtr->cue(first);
        return;
    }
    // One clip at a time goes through all clips, deliberately.
    const OrbPlayListEntry entry = _allClipsPlayList.value(index);
    if (!entry.isValid()) {
        orbLogOutput(1, logFile, __LINE__, "Go to playlist index %d failed: Entry invalid\n", index);
        return;
    }
    logText(2, QStringLiteral("Go to playlist index %1: %2").arg(index).arg(entry.name()));
    setCurrentClip(entry.name());
    if (_vtr->state().isInModePlay())
        _vtr->reopenPlaybackStream();
    else
        _vtr->still();
    _configUpdater->setCurrentPlayListIndex(index);
}

int MainObject::findClipFirstFrame(const std::list<Clip> &list, const QString &name) const
{
    const auto clip = std::ranges::find(list, name, nameOf);
    return clip == list.end() ? -1 : static_cast<int>(std::distance(list.begin(), clip));
}

int MainObject::addClip(std::list<Clip> &list, OrbPlayList &playList, const QString &name)
{
    const QString path = QStringLiteral("%1/%2").arg(_mediaManager->activePath(), name);
    Clip clip;
    if (!lumo::media::MediaCache::GrokClip(clip, path.toStdString(), false)) {
        logText(2, QStringLiteral("Unable to grok clip %1\n").arg(name));
        return 0;
    }
    list.push_back(clip);
    playList = createPlayList(_mediaManager->activePath(), list);
    const int index = findClipFirstFrame(list, name);
    if (index == -1) {
        logText(2, QStringLiteral("Unable to find clip %1 in playlist\n").arg(name));
        return 0;
    }
    const int first = playList.firstFrameOfEntry(index);
    if (first != -1) {
        _configUpdater->setCurrentPlayListIndex(index);
        logText(3, QStringLiteral("New clip %1 fnum %2, playlistIndex %3\n")
                       .arg(name, QString::number(first), QString::number(index)));
    }
    return first;
}

int MainObject::addLastRecordedClip(const QString &name)
{
    const int fnum = addClip(_allClips, _allClipsPlayList, name);
    orbLogOutput(3, logFile, __LINE__,
                 "added last recorded clip to playlist. %d entries, returning fnum %d\n",
                 static_cast<int>(_allClipsPlayList.size()), fnum);
    return fnum;
}
