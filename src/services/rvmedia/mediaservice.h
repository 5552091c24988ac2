#pragma once

#include "libconfig/config.h"
#include "libvanta/mediacache.h"
#include "mediumscanner.h"

#include <QObject>
#include <QSocketNotifier>
#include <QThread>
#include <QTimer>

#include <memory>
#include <string>

/// Keeps the shared clip list and play list equal to what lies on the active medium: is told by the
/// system when files come, go or are completed, and looks by itself every two seconds for what the
/// system cannot tell (a medium that comes or goes). Lists on a worker thread, writes the shared
/// caches and says so in the store. When a recording has rolled over, the two media change places.
class MediaService : public QObject, private ConfigEventListener
{
    Q_OBJECT
public:
    explicit MediaService(QObject *parent = nullptr);
    ~MediaService() override;

    /// Connects to the store and follows its active path. With paths that are not empty the store
    /// is told them first. False when the store's addresses cannot be used at all.
    bool start(const std::string &activePath, const std::string &rolloverPath);

private:
    using ConfigEventListener::ParamChanged;
    void ParamChanged(eParam_t id, std::string value, timeval when) override;
    void ParamChanged(eParam_t id, unsigned int value, timeval when) override;

    enum class Task { Look, Scan };

    void follow(const std::string &path);
    void swapMedia();
    void readNotices();
    void scan() { run(Task::Scan); }
    void run(Task task);
    void take(const MediumScanner::Listing &listing);
    void publishClips(const std::list<Clip> &clips);
    void publishPlayList(const std::list<Clip> &clips);

    lumo::media::MediaCache _cache;
    std::unique_ptr<Config> _config;
    std::unique_ptr<Config> _events;
    std::unique_ptr<QSocketNotifier> _notifier;
    std::unique_ptr<MediumScanner> _scanner; ///< used by the worker thread alone
    QThread _thread;
    QObject _worker;
    QTimer _lookTimer;
    std::string _path;
    std::list<Clip> _clips;
    std::list<Clip> _playList;
    int _inotify = -1;
    int _watchError = 0;
    bool _scanning = false;
    bool _scanAgain = false;
    bool _hasClips = false;
    bool _hasPlayList = false;
};
