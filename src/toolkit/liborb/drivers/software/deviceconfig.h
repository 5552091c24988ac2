#pragma once

#include "liborb/drivers/software/proresby.h"
#include "liborb/orbid.h"
#include "liborb/orbimagedesc.h"

#include <QHash>
#include <QString>

#include <optional>

namespace ferin {

/// What the reference input says about itself: asked of the kernel clock, or fixed.
enum class RefAnswer { Auto, Yes, No };

/// How the software device is wired up: its configuration file with the environment on top.
struct DeviceConfig {
    QHash<int, QString> inputs;      ///< connector number to source, as createInput() takes it
    OrbImageDesc patternFormat;      ///< of a connector whose source is a generator
    QString programBus = QStringLiteral("/rvd_program");
    RefAnswer refPresent = RefAnswer::Auto;
    RefAnswer refLocked = RefAnswer::Auto;
    int coderWorkers = 0;            ///< 0: one a core
    ProResBy proRes = ProResBy::Own;
    ProResBy proResDecoder = ProResBy::Own;
    int rawMegabytes = 560;          ///< raw pictures that may be in use at once: 16 of 2160p

    /// The source behind \a connector; "none" for one that nothing is said about.
    QString source(const OrbId &connector) const;

    /// The file named by RVD_DEVICE_CONFIG, else /etc/rvd/ferin.ini; what it does not say is as
    /// below, and so is everything when there is no such file. RVD_INPUT (the source of connector
    /// 601, when the file gives none), RVD_INPUT_FORMAT and RVD_PROGRAM_BUS come from the
    /// environment.
    static DeviceConfig load();
    /// The same from the file \a path, for tests.
    static DeviceConfig fromFile(const QString &path);
};

/// Reads "1920x1080p25", "1280x720p50", "1920x1080i25" (25 frames interlaced),
/// "1920x1080p30000/1001"; "psf" for segmented frames. Nothing when it is none of these or no
/// picture has such a raster.
std::optional<OrbImageDesc> parseFormat(const QString &text);

/// The generator that a source stands for: "pattern", "bars", "black"; invalid for any other
/// source.
OrbId generatorOf(const QString &source);

} // namespace ferin
