#pragma once

#include "knownclips.h"
#include "knownclipsfile.h"
#include "libconfig/config.h"
#include "libvanta/mediacache.h"
#include "medium.h"
#include "mediachoice.h"
#include "mounttable.h"

#include <QObject>
#include <QTimer>

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// Keeps the shared clip list and play list equal to what lies on the media, and the store's paths to media
/// that are there. Is told by the system of mounts and of files that come, go or are completed, and asks for
/// nothing by itself. Each medium is listed by a thread of its own; the lists are written before the store says
/// so.
class MediaService : public QObject, private ConfigEventListener
{
    Q_OBJECT
public:
    struct Setup {
        std::vector<std::string> mediaSlots; ///< mount points, in the order in which they are used
        std::string activePath;              ///< what the store is told first; empty for nothing
        std::string rolloverPath;
        std::string inspector; ///< path of rvgrok
        std::string knownClips; ///< the file that keeps what has been read of clips; empty for none
        std::string cachePrefix = "NewCache";
        /// How long a request to eject waits for the release of the storage to be told.
        std::chrono::milliseconds releasePatience{2000};
    };

    explicit MediaService(Setup setup, QObject *parent = nullptr);
    ~MediaService() override;

    /// Connects to the store and follows its paths. False when the store's addresses cannot be used at all.
    bool start();

private:
    using ConfigEventListener::ParamChanged;
    void ParamChanged(eParam_t id, std::string value, timeval when) override;
    void ParamChanged(eParam_t id, unsigned int value, timeval when) override;

    /// A request to eject that waits.
    struct Ejection {
        std::string token;
        std::string path;
    };

    /// What the store was told of a medium.
    struct Told {
        std::list<Clip> clips;
        std::list<Clip> playList;
        bool isTold = false;
    };

    Medium *mediumAt(const std::string &path);
    Medium *addMedium(const std::string &path, bool isSlot);
    void tellMounts();
    void mountsChanged();
    void listed(Medium *medium);
    void say(const Medium &medium);
    void shareClips();
    void sharePlayLists();
    MediaPaths paths() const;
    unsigned int storageUse() const;
    std::vector<MediumFacts> facts() const;
    void pathsChanged();
    void prepareForRecordings();
    void storageUseChanged(unsigned int use);
    void checkUse();
    void followRollover();
    std::vector<MediumFacts> factsForRecording() const;
    void lookAround();
    void editPlayList(const std::string &edit);
    void request(const std::string &text);
    void answer(const std::string &token, const std::string &problem);
    void prepareForRequests();
    void eject(const std::string &token, const std::string &path);
    void ejectNow(const std::string &token, const std::string &path);
    void ejectWaiting();
    bool isBeingReleased() const;
    std::string reasonToKeep(const std::string &path) const;
    void suspect(const std::string &token, const std::string &path);
    void measure(const std::string &token);
    void tellSlots();
    void setPaths(const MediaPaths &paths);
    void choose();
    void tellState();

    Setup _setup;
    KnownClips _known;
    KnownClipsFile _knownFile;
    lumo::media::MediaCache _cache;
    std::unique_ptr<Config> _config;
    std::unique_ptr<Config> _events;
    MountTable _mounts;
    QTimer _checkUse;   ///< runs after a rollover
    QTimer _lookAround; ///< runs while the storage is in use
    QTimer _releasePatience; ///< runs while requests to eject wait
    std::vector<Ejection> _ejections; ///< until the release of the storage is told
    std::vector<std::unique_ptr<Medium>> _media; ///< the slots, then paths that clients named
    /// The medium that the last rollover went to, or that the last recording failed on, until another one is active.
    std::string _wentTo;
    std::map<const Medium *, Told> _told;
};
