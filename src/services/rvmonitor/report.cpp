#include "services/rvmonitor/report.h"

#include "libpicture/framebar.h"
#include "services/rvmonitor/measure.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QString>

#include <cmath>
#include <cstdio>

namespace monitor {

namespace {

double milliseconds(std::int64_t fromNs, std::int64_t toNs)
{
    return static_cast<double>(toNs - fromNs) / 1e6;
}

} // namespace

const char *contentName(bus::Content content)
{
    switch (content) {
    case bus::Content::None:
        return "none";
    case bus::Content::Live:
        return "live";
    case bus::Content::Playback:
        return "playback";
    case bus::Content::Held:
        return "held";
    case bus::Content::Black:
        return "black";
    }
    return "none";
}

std::string timecodeText(const bus::FrameInfo &info)
{
    if ((info.tcFlags & 1) == 0)
        return {};
    char text[32];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d%c%02d", info.tcHour, info.tcMin, info.tcSec,
                  (info.tcFlags & 2) != 0 ? ';' : ':', info.tcFrame);
    return text;
}

std::string shortLine(bus::Frame &frame)
{
    const auto number = picture::readFrameNumber(frame.view());
    return number ? std::to_string(*number) : "-";
}

std::string longLine(bus::Frame &frame, std::int64_t firstNs)
{
    const bus::FrameInfo &info = frame.info;
    const std::string timecode = timecodeText(info);
    char time[32];
    std::snprintf(time, sizeof time, "%.3f", milliseconds(firstNs, info.timeNs));
    return shortLine(frame) + " " + std::to_string(info.sequence) + " " + contentName(info.content)
           + " " + (info.frameNumber < 0 ? "-" : std::to_string(info.frameNumber)) + " "
           + (timecode.empty() ? "-" : timecode) + " " + time;
}

std::string jsonLine(bus::Frame &frame, std::int64_t firstNs, std::int64_t seenNs)
{
    const bus::FrameInfo &info = frame.info;
    const auto number = picture::readFrameNumber(frame.view());
    const std::string timecode = timecodeText(info);
    const double peak = peakDbfs(frame);
    const auto textOrNull = [](const std::string &text) {
        return text.empty() ? QJsonValue() : QJsonValue(QString::fromStdString(text));
    };
    const QJsonObject object = {
        {"number", number ? QJsonValue(static_cast<qint64>(*number)) : QJsonValue()},
        {"sequence", static_cast<qint64>(info.sequence)},
        {"content", QLatin1String(contentName(info.content))},
        {"frame", info.frameNumber < 0 ? QJsonValue() : QJsonValue(qint64 {info.frameNumber})},
        {"clip", textOrNull(info.clip)},
        {"timecode", textOrNull(timecode)},
        {"timeMs", milliseconds(firstNs, info.timeNs)},
        {"seenMs", milliseconds(firstNs, seenNs)},
        {"recordFlag", info.recordFlag},
        {"width", frame.format.width},
        {"height", frame.format.height},
        {"rateNum", frame.format.rateNum},
        {"rateDen", frame.format.rateDen},
        {"scan", frame.format.scanMode},
        {"channels", frame.format.audioChannels},
        {"samples", info.samples},
        {"peakDbfs", std::isfinite(peak) ? QJsonValue(peak) : QJsonValue()},
    };
    return QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString();
}

} // namespace monitor
