#pragma once

#include "alarms/alarmhandler.h"
#include "app/mainobject.h"
#include "libclip/clipwriter.h"
#include "libconfig/memoryconfig.h"
#include "liborb/drivers/scripted/scriptedmedia.h"
#include "liborb/drivers/scripted/scriptedvideo.h"
#include "liborb/orb.h"
#include "libvanta/mediacache.h"
#include "libvanta/sharedlist.h"
#include "logcollector.h"
#include "media/mediamanager.h"
#include "scriptedfilesystems.h"
#include "transport/vtrobject.h"
#include "simdispatcher.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <vector>

/// The shipped controller with its engine on scripted drivers, a parameter store in memory, media
/// in a temporary folder, and a clock of its own. One at a time.
class ControllerRig
{
public:
    /// What the process is started with.
    struct Start {
        QStringList arguments{QStringLiteral("rvd")};
        bool console = false;
        std::function<void(ControllerRig &)> prepare; ///< before the controller is there
    };

    ControllerRig() : ControllerRig(Start()) {}
    explicit ControllerRig(const Start &start)
    {
        for (const QString &argument : start.arguments)
            _arguments.push_back(argument.toLocal8Bit());
        for (QByteArray &argument : _arguments)
            _argv.push_back(argument.data());
        _argc = int(_argv.size());
        _argv.push_back(nullptr);
        QCoreApplication::setEventDispatcher(new SimDispatcher); // the application's from now on
        app.emplace(_argc, _argv.data());
        Orb::init(0);
        log.emplace();
        store.install();
        removeLists();
        video.emplace(&transcript);
        media.emplace(&transcript);
        media->quietPrefix = QStringLiteral("/usr/local");
        video->install();
        media->install();
        disks.mount(path(), 500);
        store.put(eParamActivePath, path().toStdString());
        if (start.prepare)
            start.prepare(*this);
        main = std::make_unique<MainObject>(start.console);
        vtr = main->findChild<VtrObject *>();
        manager = main->findChild<MediaManager *>();
    }
    ~ControllerRig()
    {
        if (main)
            main->shutdown();
        main.reset();
        ScriptedVideo::uninstall();
        ScriptedMedia::uninstall();
        removeLists();
    }
    ControllerRig(const ControllerRig &) = delete;
    ControllerRig &operator=(const ControllerRig &) = delete;

    QString path() const { return dir.path(); } ///< of the active medium
    QString pathOf(const QString &clip) const { return path() + QLatin1Char('/') + clip; }

    /// Lets the engine get to where it goes.
    void settle(int ms = 2000) { SimDispatcher::runFor(ms); }
    /// A parameter arrives, whatever its value.
    void change(quint32 id, const QVariant &value)
    {
        main->configParamChanged(id, value, OrbTimeStamp());
    }
    void command(int number) { change(eParamTransportCommand, number); }

    /// Clips lie on the medium, and are listed; those of \a playList as the play list.
    void setClips(const QList<QPair<QString, int>> &all,
                  const QList<QPair<QString, int>> &playList = {})
    {
        lumo::media::MediaCache cache("NewCache");
        cache.setClips(listOf(all));
        cache.setPlaylist(listOf(playList));
    }

    /// Puts a signal on the input and waits until it can be recorded.
    void connectInput()
    {
        video->changeInput(0, inputState());
        settle();
    }
    static OrbImageDesc imageDesc(int width = 1920, int height = 1080, int fps = 25)
    {
        OrbImageDesc desc;
        desc.setSize(width, height);
        desc.setAspectRatio(16, 9);
        desc.setFrameRate(fps, 1);
        desc.setScanMode(OrbImageDesc::Progressive);
        desc.setDataType(OrbId(OrbIdImageProRes422));
        return desc;
    }
    static OrbVideoState inputState() { return inputState(imageDesc()); }
    static OrbVideoState inputState(const OrbImageDesc &desc)
    {
        OrbVideoState state;
        state.setValid(true);
        state.setPresent(true);
        state.setInputImageDesc(desc);
        state.setCaptureImageDesc(desc);
        return state;
    }

    /// A real clip file.
    bool writeClip(const QString &name, int frames) const
    {
        clip::ClipInfo info;
        info.video.codec = clip::Codec::ProRes422;
        info.video.width = 1920;
        info.video.height = 1080;
        info.video.rateNum = 25;
        info.video.rateDen = 1;
        clip::ClipWriter writer;
        bool isGood = !writer.open(pathOf(name).toStdString(), info);
        const std::vector<std::byte> picture(500);
        for (int i = 0; i < frames; ++i)
            isGood = !writer.write(picture, {}) && isGood;
        return !writer.close() && isGood;
    }

    /// What the controller logged since the last clear(), as "level text", but for the parameters
    /// it was told of: the store tells it of its own ones, too.
    QStringList controllerLines() const
    {
        QStringList lines;
        for (const LogCollector::Record &record : log->records()) {
            if (record.file == QLatin1String("mainobject.cpp") &&
                !record.text.startsWith(QLatin1String("Param Changed: ")))
                lines << QStringLiteral("%1 %2").arg(record.level).arg(record.text);
        }
        return lines;
    }
    bool logged(int level, const QString &text, const char *file = "mainobject.cpp") const
    {
        return log->contains(level, QLatin1String(file), text);
    }
    /// The numbers written to a parameter since the last clear(), in order.
    QList<quint32> written(quint32 id) const
    {
        QList<quint32> numbers;
        for (const MemoryStore::Set &set : store.sets()) {
            if (set.id == eParam_t(id) && std::holds_alternative<std::uint32_t>(set.value))
                numbers << std::get<std::uint32_t>(set.value);
        }
        return numbers;
    }
    /// Which parameters were written since the last clear(), in order.
    QList<quint32> writtenIds() const
    {
        QList<quint32> ids;
        for (const MemoryStore::Set &set : store.sets())
            ids << quint32(set.id);
        return ids;
    }
    QString currentClip() const { return QString::fromStdString(store.text(eParamCurrentClip)); }
    void clear()
    {
        log->clear();
        store.clearSets();
        transcript.clear();
    }

    std::optional<QCoreApplication> app;
    std::optional<LogCollector> log;
    MemoryStore store;
    ScriptedFileSystems disks;
    Transcript transcript;
    std::optional<ScriptedVideo> video;
    std::optional<ScriptedMedia> media;
    QTemporaryDir dir;
    std::unique_ptr<MainObject> main;
    VtrObject *vtr = nullptr;
    MediaManager *manager = nullptr;

private:
    std::list<Clip> listOf(const QList<QPair<QString, int>> &names)
    {
        std::list<Clip> clips;
        QStringList paths;
        int total = 0;
        for (const auto &[name, frames] : names) {
            Clip clip;
            clip.setName(name.toStdString());
            clip.setPath(path().toStdString());
            clip.setFrameCount(frames);
            clips.push_back(clip);
            paths << pathOf(name);
            total += frames;
            media->clips[pathOf(name)] = {frames, imageDesc(), {}, false};
        }
        // The list joined into one stream is a clip of the script of its own.
        media->clips[paths.join(QLatin1Char('+'))] = {total, imageDesc(), {}, false};
        return clips;
    }
    static void removeLists()
    {
        lumo::media::SharedList::remove("NewCacheSharedClipCache");
        lumo::media::SharedList::remove("NewCacheSharedPlaylistCache");
    }

    std::vector<QByteArray> _arguments;
    std::vector<char *> _argv;
    int _argc = 0;
};
