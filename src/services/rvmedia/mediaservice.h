#pragma once

#include "cliplister.h"
#include "libconfig/config.h"
#include "libvanta/mediacache.h"

#include <QObject>
#include <QSocketNotifier>
#include <QThread>

#include <memory>
#include <string>

/// Keeps the shared clip list equal to what lies on the active medium: is told by the system when files come,
/// go or are completed, lists them on a worker thread, writes the shared cache and says so in the store.
class MediaService : public QObject, private ConfigEventListener
{
    Q_OBJECT
public:
    explicit MediaService(QObject *parent = nullptr);
    ~MediaService() override;

    /// Connects to the store and follows its active path. With paths that are not empty the store is told
    /// them first. False when the store's addresses cannot be used at all.
    bool start(const std::string &activePath, const std::string &rolloverPath);

private:
    using ConfigEventListener::ParamChanged;
    void ParamChanged(eParam_t id, std::string value, timeval when) override;

    void follow(const std::string &path);
    void readNotices();
    void scan();
    void publish(const std::list<Clip> &clips);

    lumo::media::MediaCache _cache;
    std::unique_ptr<Config> _config;
    std::unique_ptr<Config> _events;
    std::unique_ptr<QSocketNotifier> _notifier;
    QThread _thread;
    QObject _worker;
    ClipLister _lister; ///< used by the worker thread alone
    std::string _path;
    std::list<Clip> _published;
    int _inotify = -1;
    int _watch = -1;
    bool _scanning = false;
    bool _scanAgain = false;
    bool _hasPublished = false;
};
