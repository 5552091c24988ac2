#pragma once

#include "media/freespace.h"

#include <QHash>
#include <QString>

#include <memory>
#include <mutex>

/// File systems that are as full as a test says, in the place of the system's for as long as this
/// lives. Paths that nobody has told of lie on the root, half full.
class ScriptedFileSystems
{
public:
    ScriptedFileSystems() : _script(std::make_shared<Script>())
    {
        setFileSystemQuestion(
            [script = _script](const char *path, FileSystemUse &use) {
                return script->answer(path, use);
            },
            std::chrono::minutes(1));
    }
    ~ScriptedFileSystems() { setFileSystemQuestion({}); }
    ScriptedFileSystems(const ScriptedFileSystems &) = delete;
    ScriptedFileSystems &operator=(const ScriptedFileSystems &) = delete;

    /// A medium is mounted at \a path with \a permille of its blocks free.
    void mount(const QString &path, quint64 permille)
    {
        const std::lock_guard lock(_script->mutex);
        Medium &medium = _script->media[path];
        medium.permille = permille;
        medium.fails = false;
        if (medium.id == 0)
            medium.id = ++_mounted;
    }
    void fail(const QString &path)
    {
        const std::lock_guard lock(_script->mutex);
        _script->media[path].fails = true;
    }
    void unmount(const QString &path)
    {
        const std::lock_guard lock(_script->mutex);
        _script->media.remove(path);
    }

private:
    struct Medium {
        quint64 permille = 500;
        bool fails = false;
        unsigned char id = 0; ///< 0: the root's
    };
    struct Script {
        std::mutex mutex;
        QHash<QString, Medium> media;

        bool answer(const char *path, FileSystemUse &use)
        {
            const std::lock_guard lock(mutex);
            const Medium medium = media.value(QString::fromLocal8Bit(path));
            use.totalBlocks = 1000;
            use.freeBlocks = medium.permille;
            use.id = {medium.id};
            return !medium.fails;
        }
    };

    std::shared_ptr<Script> _script; ///< shared with the workers
    unsigned char _mounted = 0;
};
