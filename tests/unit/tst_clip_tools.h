#pragma once

#include "libclip/clipreader.h"
#include "libclip/clipwriter.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <span>
#include <vector>

/// What the tests of clips share: made-up frames, and the look of a clip from outside.
namespace cliptest {

inline std::span<const std::byte> bytesOf(const QByteArray &array)
{
    return std::as_bytes(std::span(array.constData(), std::size_t(array.size())));
}

inline QByteArray noise(int size, quint32 seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    quint32 state = seed * 2654435761u + 1;
    for (char &byte : bytes) {
        state = state * 1664525u + 1013904223u;
        byte = char(state >> 24);
    }
    return bytes;
}

/// How large the pictures are: 1, or largePictures for some of a megabyte and more.
inline int pictureScale = 1;
constexpr int largePictures = 2099;

/// Picture of frame \a frame: noise whose size differs from frame to frame.
inline QByteArray picture(int frame)
{
    return noise((500 + frame * 37 % 300) * pictureScale, quint32(frame + 1));
}

/// The whole sound of a frame in its exact cadence.
inline QByteArray sound(int frame, const clip::ClipInfo &info)
{
    if (!info.audio) {
        return { };
    }
    const auto before = clip::samplesBeforeFrame(frame, info.video, 48000);
    const auto after = clip::samplesBeforeFrame(frame + 1, info.video, 48000);
    return noise(int(after - before) * info.audio->channels * 3, quint32(frame + 100'000));
}

inline clip::ClipInfo sampleInfo(int rateNum = 25, int rateDen = 1, int channels = 2)
{
    clip::ClipInfo info;
    info.video.codec = clip::Codec::ProRes422;
    info.video.width = 1920;
    info.video.height = 1080;
    info.video.rateNum = rateNum;
    info.video.rateDen = rateDen;
    if (channels > 0) {
        info.audio = clip::AudioFormat { channels, 48000 };
    }
    info.timecode = clip::StartTimecode { 90'000, (rateNum + rateDen - 1) / rateDen, false };
    info.reel = "REEL7";
    return info;
}

/// Writes \a frames frames; stops at the first error.
inline clip::Error writeFrames(clip::ClipWriter &writer, const clip::ClipInfo &info, int frames,
                               int first = 0)
{
    for (int i = first; i < first + frames; ++i) {
        if (const auto error = writer.write(bytesOf(picture(i)), bytesOf(sound(i, info)))) {
            return error;
        }
    }
    return { };
}

constexpr int fragmentFrames = 12; ///< half a second of sampleInfo()

/// How many of the first \a frames frames of sampleInfo() are in fragments that are full.
constexpr int framesInFragments(int frames)
{
    return frames < 1 ? 0 : frames < 5 ? 1 : frames < fragmentFrames ? 5 : frames / fragmentFrames * fragmentFrames;
}

inline QByteArray readPicture(const clip::ClipReader &reader, qint64 frame)
{
    QByteArray bytes(qsizetype(reader.pictureSize(frame)), 0);
    const auto out = std::as_writable_bytes(std::span(bytes.data(), std::size_t(bytes.size())));
    return reader.readPicture(frame, out) ? QByteArray("failed") : bytes;
}

inline QByteArray readSound(const clip::ClipReader &reader, qint64 frame)
{
    std::vector<std::byte> bytes;
    if (reader.readSound(frame, bytes)) {
        return "failed";
    }
    return QByteArray(reinterpret_cast<const char *>(bytes.data()), qsizetype(bytes.size()));
}

/// The number of the first frame that does not read back as it was written; -1 when all do.
inline qint64 firstWrongFrame(const clip::ClipReader &reader)
{
    for (qint64 i = 0; i < reader.info().frames; ++i) {
        if (readPicture(reader, i) != picture(int(i))
            || readSound(reader, i) != sound(int(i), reader.info())) {
            return i;
        }
    }
    return -1;
}

/// Where test files go: in memory when there is such a place, for tests that write thousands of
/// them.
inline QString scratchTemplate()
{
    const QString memory = "/dev/shm";
    return (QFileInfo(memory).isWritable() ? memory : QDir::tempPath()) + "/tst_clip-XXXXXX";
}

inline QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline bool setContent(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate)
        && file.write(content) == content.size();
}

/// Runs a program; its output, or nothing when it fails.
inline QByteArray run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    // What a tested library is built with is no affair of the programs that look at its files.
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.remove("LD_PRELOAD");
    process.setProcessEnvironment(environment);
    process.start(program, arguments, QIODevice::ReadOnly);
    if (!process.waitForFinished(-1) || process.exitStatus() != QProcess::NormalExit
        || process.exitCode() != 0) {
        qWarning("%s: %s", qPrintable(program), process.readAllStandardError().constData());
        return { };
    }
    return process.readAllStandardOutput();
}

/// What ffprobe says about the streams of a clip, packets counted; empty when it refuses the file.
inline QJsonArray probe(const QString &path)
{
    const QByteArray text =
        run("ffprobe", {"-v", "error", "-count_packets", "-show_streams", "-of", "json", path});
    return QJsonDocument::fromJson(text).object()["streams"].toArray();
}

inline QJsonObject stream(const QJsonArray &streams, const QString &type)
{
    for (const auto &value : streams) {
        if (value.toObject()["codec_type"] == type) {
            return value.toObject();
        }
    }
    return { };
}

/// A number that ffprobe writes as a text.
inline int number(const QJsonObject &stream, const char *key)
{
    return stream[QLatin1String(key)].toVariant().toInt();
}

inline QString tag(const QJsonObject &stream, const char *key)
{
    return stream["tags"].toObject()[QLatin1String(key)].toString();
}

} // namespace cliptest
