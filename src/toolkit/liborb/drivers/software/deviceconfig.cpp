#include "liborb/drivers/software/deviceconfig.h"

#include "liborb/orblog.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QSettings>

#include <algorithm>

namespace ferin {

namespace {

constexpr const char *logFile = "deviceconfig.cpp";
constexpr const char *defaultFile = "/etc/rvd/ferin.ini";
constexpr const char *defaultFormat = "1920x1080p25";
constexpr int rateLimit = 1'000'000;

QString environment(const char *name)
{
    return qEnvironmentVariable(name).trimmed();
}

RefAnswer refAnswer(const QSettings &file, const QString &key)
{
    const QString text = file.value(key).toString().trimmed().toLower();
    if (text == QLatin1String("true") || text == QLatin1String("yes") || text == QLatin1String("1"))
        return RefAnswer::Yes;
    if (text == QLatin1String("false") || text == QLatin1String("no") || text == QLatin1String("0"))
        return RefAnswer::No;
    return RefAnswer::Auto;
}

ProResBy proResBy(const QSettings &file, const QString &key, const char *what)
{
    const QString text = file.value(key, QStringLiteral("own")).toString().trimmed().toLower();
    if (text == QLatin1String("ffmpeg"))
        return ProResBy::Ffmpeg;
    if (text != QLatin1String("own"))
        orbLogOutput(2, logFile, __LINE__, "ProRes %s \"%s\" is not known\n", what, qPrintable(text));
    return ProResBy::Own;
}

int boundedNumber(const QSettings &file, const QString &key, int least, int most, int otherwise)
{
    bool isNumber = false;
    const int number = file.value(key).toInt(&isNumber);
    return isNumber ? std::clamp(number, least, most) : otherwise;
}

/// A source may hold commas, which the INI reader takes for a list.
QString sourceText(const QVariant &value)
{
    return value.toStringList().join(QLatin1Char(',')).trimmed();
}

OrbImageDesc usableFormat(const QString &text)
{
    const std::optional<OrbImageDesc> format = parseFormat(text);
    if (format)
        return *format;
    orbLogOutput(2, logFile, __LINE__, "Input format \"%s\" is not understood\n", qPrintable(text));
    return *parseFormat(QLatin1String(defaultFormat));
}

} // namespace

QString DeviceConfig::source(const OrbId &connector) const
{
    return inputs.value(connector.value(), QStringLiteral("none"));
}

DeviceConfig DeviceConfig::load()
{
    const QString named = environment("RVD_DEVICE_CONFIG");
    return fromFile(named.isEmpty() ? QLatin1String(defaultFile) : named);
}

DeviceConfig DeviceConfig::fromFile(const QString &path)
{
    DeviceConfig config;
    QSettings file(path, QSettings::IniFormat);
    if (!QFileInfo::exists(path))
        orbLogOutput(3, logFile, __LINE__, "No device configuration at %s\n", qPrintable(path));

    file.beginGroup(QStringLiteral("inputs"));
    const QStringList keys = file.childKeys();
    for (const QString &key : keys) {
        bool isNumber = false;
        const int connector = key.toInt(&isNumber);
        if (isNumber)
            config.inputs.insert(connector, sourceText(file.value(key)));
    }
    QString format = file.value(QStringLiteral("format"), QLatin1String(defaultFormat)).toString();
    file.endGroup();

    const QString input = environment("RVD_INPUT");
    if (!input.isEmpty() && !config.inputs.contains(OrbIdVideoPort601))
        config.inputs.insert(OrbIdVideoPort601, input);
    const QString formatWanted = environment("RVD_INPUT_FORMAT");
    config.patternFormat = usableFormat(formatWanted.isEmpty() ? format : formatWanted);

    const QVariant bus = file.value(QStringLiteral("output/bus"), config.programBus);
    const QString busWanted = environment("RVD_PROGRAM_BUS");
    config.programBus = busWanted.isEmpty() ? bus.toString().trimmed() : busWanted;

    config.refPresent = refAnswer(file, QStringLiteral("reference/present"));
    config.refLocked = refAnswer(file, QStringLiteral("reference/locked"));
    config.coderWorkers = boundedNumber(file, QStringLiteral("coder/workers"), 0, 64, 0);
    config.proRes = proResBy(file, QStringLiteral("coder/prores"), "encoder");
    config.proResDecoder = proResBy(file, QStringLiteral("decoder/prores"), "decoder");
    config.rawMegabytes = boundedNumber(file, QStringLiteral("memory/rawMegabytes"), 16, 65536,
                                        config.rawMegabytes);
    return config;
}

std::optional<OrbImageDesc> parseFormat(const QString &text)
{
    static const QRegularExpression shape(
        QStringLiteral("^(\\d{2,4})x(\\d{2,4})(p|i|psf)(\\d{1,7})(?:/(\\d{1,7}))?$"),
        QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch match = shape.match(text.trimmed());
    if (!match.hasMatch())
        return std::nullopt;

    const int width = match.captured(1).toInt();
    const int height = match.captured(2).toInt();
    const int num = match.captured(4).toInt();
    const int den = match.captured(5).isEmpty() ? 1 : match.captured(5).toInt();
    const bool hasRaster = width >= 16 && width <= 4096 && width % 2 == 0 && height >= 16
                           && height <= 2160;
    const bool hasRate = num > 0 && den > 0 && num <= rateLimit && den <= rateLimit
                         && num <= den * 240LL && num >= den;
    if (!hasRaster || !hasRate)
        return std::nullopt;

    const QString scan = match.captured(3).toLower();
    OrbImageDesc format;
    format.setSize(width, height);
    format.setAspectRatio(width, height);
    format.setFrameRate(num, den);
    format.setScanMode(scan == QLatin1String("i")     ? OrbImageDesc::Interlaced
                       : scan == QLatin1String("psf") ? OrbImageDesc::SegmentedFrame
                                                      : OrbImageDesc::Progressive);
    return format;
}

OrbId generatorOf(const QString &source)
{
    struct Row {
        const char *source;
        OrbIdValue mode;
    };
    static constexpr Row rows[] = {
        // source    generator mode
        {"pattern", OrbIdVideoGenMoving},
        {"bars",    OrbIdVideoGenBars},
        {"black",   OrbIdVideoGenBlack},
    };
    for (const Row &row : rows) {
        if (source == QLatin1String(row.source))
            return row.mode;
    }
    return OrbId();
}

} // namespace ferin
