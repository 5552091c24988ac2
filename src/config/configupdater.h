#pragma once

#include "liborb/orbtimecode.h"
#include "liborb/orbtimestamp.h"

#include <QObject>
#include <QString>
#include <QVariant>

#include <memory>

class ConfigInterface;
class ShmString;

/// Publishes the daemon's status: clip, play-list index and storage use as parameters, the two timecodes as
/// shared-memory strings. Keeps what it published last and writes only changes.
class ConfigUpdater : public QObject
{
    Q_OBJECT
public:
    explicit ConfigUpdater(ConfigInterface *config, QObject *parent = nullptr);
    ~ConfigUpdater() override;

public slots:
    /// Publishes 1 for in use and 2 for released, deliberately not 1 and 0.
    void setStorageInUse(bool val);
    void setCurrentClip(const QString &);
    void setCurrentPlayListIndex(int);
    void setCurrentTimecode(const OrbTimecode &);
    void setInputTimecode(const OrbTimecode &);
    /// Mirrors what the store says, whoever wrote it, so that it is not written back.
    void configParamChanged(quint32 id, const QVariant &value, const OrbTimeStamp &ts);

private:
    ConfigInterface *_config;
    std::unique_ptr<ShmString> _shmStringCurrentTimecode;
    std::unique_ptr<ShmString> _shmStringInputTimecode;
    QString _currentClip;
    bool _storageInUse = false;
    int _currentPlayListIndex = -1;
    OrbTimecode _currentTimecode;
    OrbTimecode _inputTimecode;
};
