#include "app/mainobject.h"

#include "app/mainobject_log.h"
#include "config/configinterface.h"
#include "libconfig/paramdescriptor.h"
#include "libmessages/datafile.h"
#include "liborb/orbimagelut.h"
#include "libvanta/file.h"
#include "libvanta/lututils.h"
#include "transport/vtrobject.h"

#include <cstdlib>

// Look-up tables. One file, named by a parameter, becomes the engine's first or second table. A missing file
// disables the table in silence; one that cannot be read raises the alarm; a good one, or none wanted, clears
// it. The two texts of a wrong count differ, deliberately.
//
// The file is small, but lies on a medium that may die: every question to it is put on a thread of its own and
// waited for a quarter of a second at most.

namespace {

constexpr int lutEntries = 1024;

void fillInvertedRamp(OrbImageLut &lut)
{
    const int entries = lut.entries();
    short *data = lut.lutData();
    for (int plane = 0; plane < 3; ++plane) {
        for (int i = 0; i < entries; ++i)
            data[plane * entries + i] = static_cast<short>(entries - i - 1);
    }
}

} // namespace

QString getLUTPath(QByteArray data)
{
    if (data.isEmpty())
        return QString();
    lumo::config::DataFile file;
    if (!file.ParseFromString(data.toStdString()) ||
        !lumo::utils::file::File::file_exists(file.path()))
        return QString();
    return QString::fromStdString(file.path());
}

void MainObject::loadLuts()
{
    if (!_vtr)
        return;
    quint32 mode = _config->getUInt32(eParamLutMode);
    const QString path = getLUTPath(_config->getData(eParamLutFile));
    OrbImageLut lut(OrbId(OrbIdLutRgb16), lutEntries);
    if (mode == 0) {
        reportAlarm(OrbIdAlarmLut, OrbAlarm::Clear, QString());
    } else if (!lumo::utils::file::File::file_exists(path.toStdString())) {
        mode = 0;
    } else if (!readLut(path, lut)) {
        mode = 0;
    }
    logText(3, QStringLiteral("LUT Enabled %1, LUT path '%2'").arg(mode).arg(path));
    if (mode == 0)
        _vtr->setLuts(OrbImageLut(), OrbImageLut());
    else if (mode == 1)
        _vtr->setLuts(lut, OrbImageLut());
    else if (mode == 2)
        _vtr->setLuts(OrbImageLut(), lut);
}

/// Fills \a lut from the file and reports the outcome; false when the table cannot be used.
bool MainObject::readLut(const QString &path, OrbImageLut &lut)
{
    lut.setFilename(path);
    if (std::getenv("RVD_FORCE_LUT_INVERT")) {
        fillInvertedRamp(lut);
        return true;
    }
    logText(3, QStringLiteral("Parsing %1 ").arg(path));
    std::string fileName = path.toStdString();
    std::string error;
    const int entries = lut.entries();
    int entriesRead = 0;
    short *red = lut.lutData();
    if (!lumo::utils::LUT_Utils::parse(fileName, red, red + entries, red + 2 * entries, entries,
                                       entriesRead, error)) {
        logText(1, QStringLiteral("Parse of LUT '%1' failed: %2")
                       .arg(path, QString::fromStdString(error)));
        reportAlarm(OrbIdAlarmLut, OrbAlarm::Error, QStringLiteral("LUT parse error"));
        return false;
    }
    if (entriesRead != entries) {
        logText(1, QStringLiteral("Parse of LUT '%1' returned unexpected number of entries.  "
                                  "Expected %2, Got %3")
                       .arg(path, QString::number(entries), QString::number(entriesRead)));
        reportAlarm(OrbIdAlarmLut, OrbAlarm::Error,
                    QStringLiteral("Parse of LUT returned unexpected number of entries. Expected ") +
                        QString::number(entries) + QStringLiteral(", found ") +
                        QString::number(entriesRead));
        return false;
    }
    reportAlarm(OrbIdAlarmLut, OrbAlarm::Clear, QString());
    return true;
}

void MainObject::firmwareLoading(const QString &id, bool done)
{
    logText(3, QStringLiteral("%1 '%2' firmware load")
                   .arg(done ? QStringLiteral("Finished") : QStringLiteral("Started"), id));
    _config->set(eParamFirmwareLoadState, done ? 2 : 1);
}
