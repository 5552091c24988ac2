#include "config/configupdater.h"

#include "config/configinterface.h"
#include "libconfig/paramdescriptor.h"
#include "liborb/orbconnect.h"
#include "liborb/orblog.h"
#include "libvanta/shmstring.h"

#include <iterator>

namespace {

constexpr const char *logFile = "configupdater.cpp";
constexpr quint32 storageIsInUse = 1;
constexpr quint32 storageIsReleased = 2;

void write(ShmString *string, const OrbTimecode &tc)
{
    string->set(tc.toString().toLocal8Bit().constData());
}

} // namespace

ConfigUpdater::ConfigUpdater(ConfigInterface *config, QObject *parent)
    : QObject(parent), _config(config),
      _shmStringCurrentTimecode(std::make_unique<ShmString>("/rvd_currentTimecode")),
      _shmStringInputTimecode(std::make_unique<ShmString>("/rvd_inputTimecode"))
{
    ORB_TESTED(_shmStringCurrentTimecode->create(64));
    ORB_TESTED(_shmStringInputTimecode->create(64));
    ORB_TESTED(connect(_config,
                       SIGNAL(paramChanged(quint32, const QVariant &, const OrbTimeStamp &)), this,
                       SLOT(configParamChanged(quint32, const QVariant &, const OrbTimeStamp &))));

    static constexpr quint32 mirrored[] = {eParamCurrentClip, eParamCurrentPlayListIndex,
                                           eParamRecordFormat};
    _config->loadParams(mirrored, static_cast<int>(std::size(mirrored)));
    write(_shmStringCurrentTimecode.get(), OrbTimecode());
    write(_shmStringInputTimecode.get(), OrbTimecode());
}

ConfigUpdater::~ConfigUpdater() = default;

void ConfigUpdater::configParamChanged(quint32 id, const QVariant &value, const OrbTimeStamp &)
{
    if (id == eParamCurrentClip)
        _currentClip = value.toString();
    else if (id == eParamCurrentPlayListIndex)
        _currentPlayListIndex = value.toInt();
}

void ConfigUpdater::setCurrentClip(const QString &name)
{
    if (name == _currentClip)
        return;
    _currentClip = name;
    _config->setString(eParamCurrentClip, name);
}

void ConfigUpdater::setCurrentPlayListIndex(int index)
{
    if (index == _currentPlayListIndex)
        return;
    _currentPlayListIndex = index;
    _config->setUInt32(eParamCurrentPlayListIndex, static_cast<quint32>(index));
}

void ConfigUpdater::setStorageInUse(bool val)
{
    if (val == _storageInUse)
        return;
    _storageInUse = val;
    if (val) {
        _config->setUInt32(eParamStorageInUse, storageIsInUse);
        orbLogOutput(3, logFile, __LINE__, "*** Storage media is now in use\n");
    } else {
        _config->setUInt32(eParamStorageInUse, storageIsReleased);
        orbLogOutput(3, logFile, __LINE__, "*** Storage media has been released\n");
    }
}

void ConfigUpdater::setCurrentTimecode(const OrbTimecode &tc)
{
    if (tc == _currentTimecode)
        return;
    write(_shmStringCurrentTimecode.get(), tc);
    _currentTimecode = tc;
}

void ConfigUpdater::setInputTimecode(const OrbTimecode &tc)
{
    if (tc == _inputTimecode)
        return;
    write(_shmStringInputTimecode.get(), tc);
    _inputTimecode = tc;
}
