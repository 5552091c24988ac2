#include "mediaservice.h"

#include "liborb/orblog.h"

#include <array>
#include <cerrno>
#include <cstring>

#include <sys/inotify.h>
#include <unistd.h>

namespace {

constexpr const char *logFile = "mediaservice.cpp";
constexpr std::uint32_t watched =
    IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_DELETE_SELF | IN_UNMOUNT;

} // namespace

MediaService::MediaService(QObject *parent) : QObject(parent), _cache("NewCache")
{
    _worker.moveToThread(&_thread);
    _thread.start();
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
    return true;
}

/// Called on the store library's thread.
void MediaService::ParamChanged(eParam_t id, std::string value, timeval)
{
    if (id == eParamActivePath)
        QMetaObject::invokeMethod(this, [this, value] { follow(value); }, Qt::QueuedConnection);
}

void MediaService::follow(const std::string &path)
{
    if (path == _path)
        return;
    if (_watch >= 0)
        inotify_rm_watch(_inotify, _watch);
    _path = path;
    _watch = path.empty() ? -1 : inotify_add_watch(_inotify, path.c_str(), watched);
    if (!path.empty() && _watch < 0)
        orbLogOutput(2, logFile, __LINE__, "Can't watch %s: %s\n", path.c_str(),
                     std::strerror(errno));
    else
        orbLogOutput(3, logFile, __LINE__, "Watching %s\n", path.c_str());
    scan();
}

void MediaService::readNotices()
{
    alignas(inotify_event) std::array<char, 16384> notices;
    while (::read(_inotify, notices.data(), notices.size()) > 0) {
    }
    scan();
}

/// One listing at a time; notices that come meanwhile make one more.
void MediaService::scan()
{
    if (_scanning) {
        _scanAgain = true;
        return;
    }
    _scanning = true;
    QMetaObject::invokeMethod(&_worker, [this, path = _path] {
        auto clips = path.empty() ? std::list<Clip>() : _lister.list(path);
        QMetaObject::invokeMethod(this, [this, clips = std::move(clips)] { publish(clips); });
    });
}

void MediaService::publish(const std::list<Clip> &clips)
{
    _scanning = false;
    if (!_hasPublished || clips != _published) {
        _published = clips;
        _hasPublished = true;
        if (!_cache.setClips(clips))
            orbLogOutput(1, logFile, __LINE__, "The clip list can't be shared\n");
        _config->setUInt32(eParamMediaUpdated, 1);
        orbLogOutput(3, logFile, __LINE__, "%d clips on %s\n", static_cast<int>(clips.size()),
                     _path.c_str());
    }
    if (_scanAgain) {
        _scanAgain = false;
        scan();
    }
}
