#include "mediaservice.h"

#include "liborb/orblog.h"

#include <array>
#include <cstring>
#include <utility>

#include <sys/inotify.h>
#include <unistd.h>

namespace
{

constexpr const char *logFile = "mediaservice.cpp";
constexpr int lookPeriodMs = 2000;
constexpr unsigned int storageIsInUse = 1;
constexpr unsigned int storageHasRolledOver = 3;

} // namespace

MediaService::MediaService(QObject *parent) : QObject(parent), _cache("NewCache")
{
    _worker.moveToThread(&_thread);
    _thread.start();
    connect(&_lookTimer, &QTimer::timeout, this, [this] { run(Task::Look); });
}

MediaService::~MediaService()
{
    _events.reset();
    _thread.quit();
    _thread.wait();
    if (_inotify >= 0)
        ::close(_inotify);
}

bool MediaService::start(const std::string &activePath, const std::string &rolloverPath)
{
    CreateDescriptors();
    ConfigFactoryImpl *factory = ConfigFactoryImpl::GetInstance();
    _config.reset(factory->create(GetConfigURI("udp")));
    _events.reset(factory->create(GetEventsURI("udp")));
    _inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (!_config || !_events || _inotify < 0)
        return false;
    _scanner = std::make_unique<MediumScanner>(_inotify);
    _notifier = std::make_unique<QSocketNotifier>(_inotify, QSocketNotifier::Read);
    connect(_notifier.get(), &QSocketNotifier::activated, this, &MediaService::readNotices);
    _events->registerListener(this);

    if (!activePath.empty())
        _config->setString(eParamActivePath, activePath);
    if (!rolloverPath.empty())
        _config->setString(eParamRolloverPath, rolloverPath);
    std::string path = activePath;
    if (path.empty())
        _config->getString(eParamActivePath, path);
    follow(path);
    _lookTimer.start(lookPeriodMs);
    return true;
}

/// Called on the store library's thread, like the next.
void MediaService::ParamChanged(eParam_t id, std::string value, timeval)
{
    if (id == eParamActivePath)
        QMetaObject::invokeMethod(
            this, [this, value] { follow(value); }, Qt::QueuedConnection);
}

void MediaService::ParamChanged(eParam_t id, unsigned int value, timeval)
{
    if (id == eParamStorageInUse && value == storageHasRolledOver)
        QMetaObject::invokeMethod(this, &MediaService::swapMedia, Qt::QueuedConnection);
}

void MediaService::follow(const std::string &path)
{
    if (path == _path)
        return;
    _path = path;
    orbLogOutput(3, logFile, __LINE__, "Active medium: %s\n", path.c_str());
    scan();
}

/// The recording goes on on the other medium. The one it left is the next to roll over to, once it
/// has been exchanged for an empty one: until then its free space forbids it. The storage is said
/// to be in use again, so that the next rollover is a change, too.
void MediaService::swapMedia()
{
    std::string active;
    std::string rollover;
    _config->getString(eParamActivePath, active);
    _config->getString(eParamRolloverPath, rollover);
    if (!rollover.empty()) {
        _config->setString(eParamRolloverPath, active);
        _config->setString(eParamActivePath, rollover);
    }
    unsigned int use = 0;
    if (_config->getUInt32(eParamStorageInUse, use) && use == storageHasRolledOver)
        _config->setUInt32(eParamStorageInUse, storageIsInUse);
}

void MediaService::readNotices()
{
    alignas(inotify_event) std::array<char, 16384> notices;
    while (::read(_inotify, notices.data(), notices.size()) > 0) {
    }
    scan();
}

/// One listing at a time; notices that come meanwhile make one more.
void MediaService::run(Task task)
{
    if (_scanning) {
        _scanAgain = _scanAgain || task == Task::Scan;
        return;
    }
    _scanning = true;
    QMetaObject::invokeMethod(&_worker, [this, task, path = _path] {
        auto listing =
            task == Task::Scan ? std::optional(_scanner->scan(path)) : _scanner->look(path);
        QMetaObject::invokeMethod(this, [this, listing = std::move(listing)] {
            _scanning = false;
            if (listing)
                take(*listing);
            if (std::exchange(_scanAgain, false))
                scan();
        });
    });
}

void MediaService::take(const MediumScanner::Listing &listing)
{
    if (std::exchange(_watchError, listing.watchError) != listing.watchError && _watchError != 0)
        orbLogOutput(2, logFile, __LINE__, "Can't watch %s: %s\n", _path.c_str(),
                     std::strerror(_watchError));
    if (!_hasClips || listing.clips != _clips)
        publishClips(listing.clips);
    if (!_hasPlayList || listing.playList != _playList)
        publishPlayList(listing.playList);
}

void MediaService::publishClips(const std::list<Clip> &clips)
{
    _clips = clips;
    _hasClips = true;
    if (!_cache.setClips(clips))
        orbLogOutput(1, logFile, __LINE__, "The clip list can't be shared\n");
    _config->setUInt32(eParamMediaUpdated, 1);
    orbLogOutput(3, logFile, __LINE__, "%d clips on %s\n", static_cast<int>(clips.size()),
                 _path.c_str());
}

void MediaService::publishPlayList(const std::list<Clip> &clips)
{
    _playList = clips;
    _hasPlayList = true;
    if (!_cache.setPlaylist(clips))
        orbLogOutput(1, logFile, __LINE__, "The play list can't be shared\n");
    _config->setUInt32(eParamPlayList, 1);
    orbLogOutput(3, logFile, __LINE__, "%d clips in the play list\n",
                 static_cast<int>(clips.size()));
}
