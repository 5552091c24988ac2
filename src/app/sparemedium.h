#pragma once

#include "liborb/orberror.h"

#include <QObject>
#include <QVariant>

class ClipFinder;
class ConfigInterface;
class MainObject;
class MediaManager;
class VtrObject;

/// The controller's side of a recording whose medium fails: names the clip in which it goes on, on the
/// rollover medium; keeps the books as after a rollover when it has; has nothing recorded on the medium that failed
/// any more; and raises the alarms. Whether rollover is
/// enabled does not matter: that is about media that fill up, and frames are lost otherwise. Lives as long as
/// the engine.
class SpareMedium : public QObject
{
    Q_OBJECT
public:
    SpareMedium(MainObject *main, ConfigInterface *config, VtrObject *vtr, MediaManager *media, ClipFinder *clips);

private:
    QVariant spareFor(const QVariant &failed);
    void wentOver(const QVariant &failed, const QVariant &desc);
    void failed(const QVariant &failed, int framesLost);
    void slow(const QVariant &desc, bool isSlow);
    void tellSuspect(const QVariant &failed);
    void opened(int access, const OrbError &error);
    void raise(int id, int level, const QString &text, int line = __builtin_LINE());

    MainObject *_main;
    ConfigInterface *_config;
    VtrObject *_vtr;
    MediaManager *_media;
    ClipFinder *_clips;
    bool _isFailureRaised = false;
};
