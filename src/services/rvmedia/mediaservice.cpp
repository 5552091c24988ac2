#include "mediaservice.h"

#include "liborb/orblog.h"
#include "slotfile.h"
#include "transportuse.h"

#include <algorithm>
#include <utility>

namespace
{

constexpr const char *logFile = "mediaservice.cpp";
constexpr std::size_t mostMedia = 32;

/// Values of eParamMediaState.
constexpr unsigned int noMedium = 0;
constexpr unsigned int mediumLoads = 1;
constexpr unsigned int mediumIsReady = 2;
constexpr unsigned int mediumFailed = 3;

std::list<Clip> readyOf(std::list<Clip> clips)
{
    clips.remove_if([](const Clip &clip) { return !clip.isComplete(); });
    return clips;
}

int countOf(const std::list<Clip> &clips, ClipState state)
{
    return static_cast<int>(std::ranges::count(clips, state, &Clip::state));
}

} // namespace

MediaService::MediaService(Setup setup, QObject *parent)
    : QObject(parent), _setup(std::move(setup)), _knownFile(_known, _setup.knownClips), _cache(_setup.cachePrefix)
{
    // What the service before has read need not be read again.
    (void)_knownFile.load();
    connect(&_mounts, &MountTable::changed, this, &MediaService::mountsChanged);
    prepareForRecordings();
    prepareForRequests();
}

MediaService::~MediaService()
{
    _events.reset();
    _media.clear();
}

bool MediaService::start()
{
    CreateDescriptors();
    ConfigFactoryImpl *factory = ConfigFactoryImpl::GetInstance();
    _config.reset(factory->create(GetConfigURI("udp")));
    _events.reset(factory->create(GetEventsURI("udp")));
    if (!_config || !_events)
        return false;
    if (!_mounts.watch())
        orbLogOutput(1, logFile, __LINE__, "The mount table can't be watched\n");
    for (const std::string &path : _setup.mediaSlots)
        addMedium(path, true);
    if (!_setup.activePath.empty())
        _config->setString(eParamActivePath, _setup.activePath);
    if (!_setup.rolloverPath.empty())
        _config->setString(eParamRolloverPath, _setup.rolloverPath);
    _events->registerListener(this);
    tellMounts();
    pathsChanged();
    storageUseChanged(storageUse());
    if (std::ranges::none_of(_media, [](const auto &medium) { return medium->isBeingListed(); })) {
        shareClips();
        sharePlayLists();
    }
    return true;
}

/// Called on the store library's thread, like the next.
void MediaService::ParamChanged(eParam_t id, std::string value, timeval)
{
    if (id == eParamPlayListEdit)
        QMetaObject::invokeMethod(this, [this, value] { editPlayList(value); }, Qt::QueuedConnection);
    if (id == eParamMediaRequest)
        QMetaObject::invokeMethod(this, [this, value] { request(value); }, Qt::QueuedConnection);
    if (id == eParamActivePath)
        QMetaObject::invokeMethod(this, [this, value] { _wentTo = value == _wentTo ? value : std::string(); },
                                  Qt::QueuedConnection);
    if (id == eParamActivePath || id == eParamRolloverPath)
        QMetaObject::invokeMethod(this, &MediaService::pathsChanged, Qt::QueuedConnection);
}

void MediaService::ParamChanged(eParam_t id, unsigned int value, timeval)
{
    if (id == eParamStorageInUse)
        QMetaObject::invokeMethod(this, [this, value] { storageUseChanged(value); }, Qt::QueuedConnection);
    if (id == eParamTransportState || id == eParamTransportRunning)
        QMetaObject::invokeMethod(this, &MediaService::ejectWaiting, Qt::QueuedConnection);
}

MediaPaths MediaService::paths() const
{
    MediaPaths now;
    _config->getString(eParamActivePath, now.active);
    _config->getString(eParamRolloverPath, now.rollover);
    return now;
}

unsigned int MediaService::storageUse() const
{
    unsigned int use = 0;
    _config->getUInt32(eParamStorageInUse, use);
    return use;
}

std::vector<MediumFacts> MediaService::facts() const
{
    std::vector<MediumFacts> all;
    for (const auto &medium : _media)
        // One that is given up must not stay the active one, even if a client named it.
        all.push_back({medium->path(), medium->isSlot() || medium->isEjected(), medium->isPresent(),
                       medium->listing().freePercent, medium->isComing(),
                       medium->isWritable()});
    return all;
}

Medium *MediaService::mediumAt(const std::string &path)
{
    const auto found = std::ranges::find(_media, path, [](const auto &medium) { return medium->path(); });
    return found == _media.end() ? nullptr : found->get();
}

Medium *MediaService::addMedium(const std::string &path, bool isSlot)
{
    auto &medium =
        _media.emplace_back(std::make_unique<Medium>(path, isSlot, _known, _setup.inspector));
    Medium *added = medium.get();
    connect(added, &Medium::listed, this, [this, added] { listed(added); });
    connect(added, &Medium::slow, this, &MediaService::choose);
    connect(added, &Medium::loading, this, [this, added] {
        orbLogOutput(3, logFile, __LINE__, "A medium is in %s\n", added->path().c_str());
        _config->setUInt32(eParamMediaLoading, 1);
        tellState();
    });
    return added;
}

void MediaService::tellMounts()
{
    const std::set<std::string> points = _mounts.mountPoints();
    for (const auto &medium : _media)
        medium->mountsChanged(points.contains(cleanPath(medium->path())));
}

void MediaService::mountsChanged()
{
    tellMounts();
    choose();
}

/// Paths that clients name become media of their own.
void MediaService::pathsChanged()
{
    const MediaPaths now = paths();
    for (const std::string &path : {now.active, now.rollover}) {
        const std::string point = cleanPath(path);
        if (point.empty() || mediumAt(path) || _media.size() >= mostMedia)
            continue;
        addMedium(path, false)->mountsChanged(_mounts.mountPoints().contains(point));
    }
    choose();
    tellState();
}

void MediaService::editPlayList(const std::string &edit)
{
    if (Medium *medium = mediumAt(paths().active))
        medium->editPlayList(edit);
}

void MediaService::setPaths(const MediaPaths &wanted)
{
    const MediaPaths now = paths();
    // The rollover path goes first: what was the next medium is often the active one now.
    if (wanted.rollover != now.rollover)
        _config->setString(eParamRolloverPath, wanted.rollover);
    if (wanted.active != now.active) {
        orbLogOutput(3, logFile, __LINE__, "Active medium: %s\n", wanted.active.c_str());
        _config->setString(eParamActivePath, wanted.active);
    }
}

void MediaService::choose()
{
    setPaths(choosePaths(factsForRecording(), paths(), isInUse(storageUse())));
}

void MediaService::tellState()
{
    const MediaPaths now = paths();
    const Medium *medium = now.active.empty() ? nullptr : mediumAt(now.active);
    unsigned int state = noMedium;
    if (medium && !medium->isListed() && medium->isBeingListed())
        state = mediumLoads;
    else if (medium && medium->isListed())
        state = medium->listing().error == 0 ? mediumIsReady : mediumFailed;
    unsigned int told = 0;
    if (!_config->getUInt32(eParamMediaState, told) || told != state)
        _config->setUInt32(eParamMediaState, state);
    tellSlots();
}

void MediaService::listed(Medium *medium)
{
    _knownFile.changed();
    const MediumScanner::Listing &listing = medium->listing();
    Told &told = _told[medium];
    const bool isFirst = !std::exchange(told.isTold, true);
    const bool isActive = medium->path() == paths().active;
    const bool hasOtherClips = isFirst || told.clips != listing.clips;
    const bool hasOtherPlayList = isFirst || told.playList != listing.playList;
    // A recording that grows and files that are no clips change nothing for who plays.
    const bool mustSay = isFirst || readyOf(told.clips) != readyOf(listing.clips);
    told.clips = listing.clips;
    told.playList = listing.playList;
    if (hasOtherClips)
        shareClips();
    if (hasOtherPlayList)
        sharePlayLists();
    if (hasOtherClips)
        say(*medium);
    if (mustSay && isActive)
        _config->setUInt32(eParamMediaUpdated, 1);
    if (hasOtherPlayList) {
        orbLogOutput(3, logFile, __LINE__, "%d clips in the play list of %s\n",
                     countOf(listing.playList, ClipState::Ready), medium->path().c_str());
        if (isActive)
            _config->setUInt32(eParamPlayList, 1);
    }
    choose();
    tellState();
}

void MediaService::say(const Medium &medium)
{
    const std::list<Clip> &clips = medium.listing().clips;
    orbLogOutput(3, logFile, __LINE__, "%d clips on %s, %d bad, %d being written\n",
                 countOf(clips, ClipState::Ready), medium.path().c_str(),
                 countOf(clips, ClipState::Bad), countOf(clips, ClipState::Recording));
}

void MediaService::shareClips()
{
    std::list<Clip> all;
    for (const auto &medium : _media)
        all.insert(all.end(), medium->listing().clips.begin(), medium->listing().clips.end());
    if (!_cache.setClips(all))
        orbLogOutput(1, logFile, __LINE__, "The clip list can't be shared\n");
}

void MediaService::sharePlayLists()
{
    std::list<Clip> all;
    for (const auto &medium : _media)
        all.insert(all.end(), medium->listing().playList.begin(), medium->listing().playList.end());
    if (!_cache.setPlaylist(all))
        orbLogOutput(1, logFile, __LINE__, "The play list can't be shared\n");
}
