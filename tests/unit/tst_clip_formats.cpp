#include "tst_clip_tools.h"

#include "app/formatrows.h"
#include "liborb/drivers/clip/clipformat.h"
#include "liborb/orbtimecode.h"

#include <QRegularExpression>
#include <QStandardPaths>

#include <iterator>

using namespace cliptest;
using clip::ClipInfo;
using clip::ClipReader;
using clip::ClipWriter;

namespace {

struct DataType
{
    OrbIdValue id;
    const char *codecName;
    const char *codecTag;
    const char *mediaInfo;
};

// clang-format off
constexpr DataType dataTypes[] = {
    // data type                 ffprobe    tag     mediainfo
    { OrbIdImageProRes422,       "prores",  "apcn", "ProRes" },
    { OrbIdImageProRes422Hq,     "prores",  "apch", "ProRes" },
    { OrbIdImageProRes422Lt,     "prores",  "apcs", "ProRes" },
    { OrbIdImageProRes422Proxy,  "prores",  "apco", "ProRes" },
    { OrbIdImageProRes4444,      "prores",  "ap4h", "ProRes" },
    { OrbIdImageDnxHqx,          "dnxhd",   "AVdh", "VC-3" },
    { OrbIdImageV210,            "v210",    "v210", "YUV" },
};
// clang-format on

struct Rate
{
    int num;
    int den;
    int fps;    ///< of its timecode
};

Rate rateOf(int key)
{
    return key == 23   ? Rate { 24000, 1001, 24 }
        : key == 29    ? Rate { 30000, 1001, 30 }
        : key == 59    ? Rate { 60000, 1001, 60 }
                       : Rate { key, 1, key };
}

/// The track of a kind among those that mediainfo sees.
QJsonObject trackOf(const QJsonArray &tracks, const QString &kind)
{
    for (const auto &track : tracks) {
        if (track.toObject()["@type"] == kind) {
            return track.toObject();
        }
    }
    return { };
}

} // namespace

/// Every raster, scan mode and rate of the recorder, with its data types in turn, as other programs see it.
class TestClipFormats : public QObject
{
    Q_OBJECT

private slots:
    void everyFormatIsWhatItIsToOtherPrograms_data();
    void everyFormatIsWhatItIsToOtherPrograms();
    void everyDataTypeIsWhatItIsInEveryScan_data();
    void everyDataTypeIsWhatItIsInEveryScan();
    void soundFollowsEveryRateForDays();

private:
    void addColumns() const;
    void addRow(const FormatRow &row, const DataType &type, int channels, bool dropFrame) const;
    ClipInfo fetchedInfo() const;
    void checkWithFfprobe(const ClipInfo &info, int frames) const;
    void checkWithMediaInfo(const ClipInfo &info, int frames) const;
    void checkWithReader(const ClipInfo &info, int frames) const;

    QString _path;
    QTemporaryDir _dir { scratchTemplate() };
};

void TestClipFormats::addColumns() const
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<int>("scan");
    QTest::addColumn<int>("rateKey");
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("channels");
    QTest::addColumn<bool>("dropFrame");
}

void TestClipFormats::addRow(const FormatRow &row, const DataType &type, int channels, bool dropFrame) const
{
    QTest::addRow("%dx%d %c%d %s %d channels%s", row.width, row.height, "pis"[row.scanMode], row.rateKey,
                  type.codecTag, channels, dropFrame ? " drop" : "")
        << row.width << row.height << row.scanMode << row.rateKey << int(&type - dataTypes) << channels
        << dropFrame;
}

/// The clip as the recorder begins it: from the stream's description and the first frame's timecode.
ClipInfo TestClipFormats::fetchedInfo() const
{
    QFETCH(int, width);
    QFETCH(int, height);
    QFETCH(int, scan);
    QFETCH(int, rateKey);
    QFETCH(int, type);
    QFETCH(int, channels);
    QFETCH(bool, dropFrame);
    const Rate rate = rateOf(rateKey);
    OrbStreamInfo stream;
    stream.setReelName(QStringLiteral("Rolle ü 7"));
    OrbImageDesc image;
    image.setSize(width, height);
    image.setFrameRate(rate.num, rate.den);
    image.setScanMode(scan);
    image.setDataType(OrbId(dataTypes[type].id));
    stream.vids().append(image);
    OrbAudioDesc sound;
    sound.setDataType(OrbId(OrbIdAudioDataType));
    sound.setChans(channels);
    sound.setSampleRate(48000, 1);
    stream.auds().append(sound);
    auto info = clipformat::clipInfoOf(stream);
    if (!info) {
        return { };
    }
    const int flags = dropFrame ? OrbTimecode::DropFrame : 0;
    info->timecode = clipformat::startTimecodeOf(OrbTimecode(10, 20, 30, 12, rate.fps, flags));
    return *info;
}

void TestClipFormats::checkWithFfprobe(const ClipInfo &info, int frames) const
{
    QFETCH(int, type);
    QFETCH(int, channels);
    QFETCH(bool, dropFrame);
    const auto streams = probe(_path);
    const auto video = stream(streams, "video");
    const bool is525 = info.video.height == 486;
    const bool is625 = info.video.height == 576;
    QCOMPARE(video["codec_name"].toString(), dataTypes[type].codecName);
    QCOMPARE(video["codec_tag_string"].toString(), dataTypes[type].codecTag);
    QCOMPARE(number(video, "width"), info.video.width);
    QCOMPARE(number(video, "height"), info.video.height);
    const QString rate = QString("%1/%2").arg(info.video.rateNum).arg(info.video.rateDen);
    QCOMPARE(video["avg_frame_rate"].toString(), rate);
    QCOMPARE(video["r_frame_rate"].toString(), rate);
    QCOMPARE(number(video, "nb_frames"), frames);
    QCOMPARE(number(video, "nb_read_packets"), frames);
    const bool isInterlaced = info.video.scan == clip::Scan::Interlaced;
    // Stored line by line: the first letter is the line on top, the second the field that comes first.
    QCOMPARE(video["field_order"].toString(), !isInterlaced ? "progressive" : is525 ? "bt" : "tb");
    QCOMPARE(video["sample_aspect_ratio"].toString(), is525 ? "10:11" : is625 ? "12:11" : "1:1");
    QCOMPARE(video["color_primaries"].toString(), is525 ? "smpte170m" : is625 ? "bt470bg" : "bt709");
    QCOMPARE(video["color_transfer"].toString(), "bt709");
    QCOMPARE(video["color_space"].toString(), is525 || is625 ? "smpte170m" : "bt709");
    const QString timecode = dropFrame ? "10:20:30;12" : "10:20:30:12";
    QCOMPARE(tag(video, "timecode"), timecode);
    const auto data = stream(streams, "data");
    QCOMPARE(data["codec_tag_string"].toString(), "tmcd");
    QCOMPARE(tag(data, "timecode"), timecode);
    QCOMPARE(tag(data, "reel_name"), "Rolle ü 7");
    const auto sound = stream(streams, "audio");
    QCOMPARE(sound["codec_name"].toString(), "pcm_s24le");
    QCOMPARE(number(sound, "channels"), channels);
    QCOMPARE(number(sound, "sample_rate"), 48000);
    QCOMPARE(number(sound, "duration_ts"), int(clip::samplesBeforeFrame(frames, info.video, 48000)));
}

void TestClipFormats::checkWithMediaInfo(const ClipInfo &info, int frames) const
{
    if (QStandardPaths::findExecutable("mediainfo").isEmpty()) {
        return;
    }
    QFETCH(int, type);
    QFETCH(int, channels);
    const QByteArray text = run("mediainfo", { "--Output=JSON", _path });
    const auto tracks = QJsonDocument::fromJson(text).object()["media"].toObject()["track"].toArray();
    const auto video = trackOf(tracks, "Video");
    const auto look = [&](const char *key) { return video[QLatin1String(key)].toString(); };
    QCOMPARE(look("Format"), dataTypes[type].mediaInfo);
    QCOMPARE(look("Width").toInt(), info.video.width);
    QCOMPARE(look("Height").toInt(), info.video.height);
    QCOMPARE(look("FrameCount").toInt(), frames);
    const bool isInterlaced = info.video.scan == clip::Scan::Interlaced;
    QCOMPARE(look("ScanType"), isInterlaced ? "Interlaced" : "Progressive");
    if (isInterlaced) {
        QCOMPARE(look("ScanOrder"), info.video.height == 486 ? "BFF" : "TFF");
    }
    if (info.video.rateDen != 1) {
        QCOMPARE(look("FrameRate_Num").toInt(), info.video.rateNum);
        QCOMPARE(look("FrameRate_Den").toInt(), info.video.rateDen);
    } else {
        QCOMPARE(look("FrameRate").toDouble(), double(info.video.rateNum));
    }
    const bool isStandard = info.video.height <= 576;
    QVERIFY(qAbs(look("PixelAspectRatio").toDouble()
                 - (info.video.height == 486 ? 10.0 / 11 : info.video.height == 576 ? 12.0 / 11 : 1)) < 0.002);
    QCOMPARE(look("matrix_coefficients"), isStandard ? "BT.601" : "BT.709");
    QVERIFY(look("colour_primaries").startsWith(isStandard ? "BT.601" : "BT.709"));
    const auto sound = trackOf(tracks, "Audio");
    QCOMPARE(sound["Channels"].toString().toInt(), channels);
    QCOMPARE(sound["BitDepth"].toString(), "24");
    // It counts in whole milliseconds.
    const auto samples = clip::samplesBeforeFrame(frames, info.video, 48000);
    QVERIFY(qAbs(sound["SamplingCount"].toString().toInt() - samples) <= 24);
    const auto other = trackOf(tracks, "Other");
    QFETCH(bool, dropFrame);
    QCOMPARE(other["TimeCode_FirstFrame"].toString(), dropFrame ? "10:20:30;12" : "10:20:30:12");
}

void TestClipFormats::checkWithReader(const ClipInfo &info, int frames) const
{
    ClipReader reader;
    QCOMPARE(reader.open(_path.toStdString()).code, 0);
    const ClipInfo &found = reader.info();
    QCOMPARE(found.frames, std::int64_t(frames));
    QCOMPARE(int(found.video.scan), int(info.video.scan));
    if (info.video.scan == clip::Scan::Interlaced) {
        QCOMPARE(found.video.topFieldFirst, info.video.topFieldFirst);
    }
    QCOMPARE(int(found.video.codec), int(info.video.codec));
    QCOMPARE(found.timecode->frameCount, info.timecode->frameCount);
    QCOMPARE(found.timecode->dropFrame, info.timecode->dropFrame);
    QCOMPARE(found.reel, info.reel);
    QCOMPARE(firstWrongFrame(reader), -1);
}

void TestClipFormats::everyFormatIsWhatItIsToOtherPrograms_data()
{
    addColumns();
    int number = 0;
    for (const FormatRow &row : formatRows) {
        const bool isDropRate = row.rateKey == 29 || row.rateKey == 59;
        const auto &type = dataTypes[std::size_t(number) % std::size(dataTypes)];
        addRow(row, type, number % 2 == 0 ? 2 : 8, isDropRate && number % 3 != 0);
        ++number;
    }
}

void TestClipFormats::everyFormatIsWhatItIsToOtherPrograms()
{
    const ClipInfo info = fetchedInfo();
    _path = _dir.filePath("format.mov");
    QFile::remove(_path);
    constexpr int frames = 33;
    ClipWriter writer;
    QCOMPARE(writer.open(_path.toStdString(), info).text, std::string());
    QCOMPARE(writeFrames(writer, info, frames).code, 0);
    QCOMPARE(writer.close().code, 0);
    checkWithFfprobe(info, frames);
    if (!QTest::currentTestFailed()) {
        checkWithMediaInfo(info, frames);
    }
    if (!QTest::currentTestFailed()) {
        checkWithReader(info, frames);
    }
}

void TestClipFormats::everyDataTypeIsWhatItIsInEveryScan_data()
{
    addColumns();
    for (const DataType &type : dataTypes) {
        addRow({ 720, 486, 1, 29, 0, 0, 0 }, type, 2, true);
        addRow({ 1920, 1080, 1, 25, 0, 0, 0 }, type, 8, false);
        addRow({ 1920, 1080, 2, 23, 0, 0, 0 }, type, 2, false);
        addRow({ 3840, 2160, 0, 59, 0, 0, 0 }, type, 8, true);
    }
}

void TestClipFormats::everyDataTypeIsWhatItIsInEveryScan()
{
    everyFormatIsWhatItIsToOtherPrograms();
}

/// The samples of n frames are the whole ones of n frames' time: exact at the start, around every hour, and after days.
void TestClipFormats::soundFollowsEveryRateForDays()
{
    constexpr std::int64_t sampleRate = 48000;
    for (const FormatRow &row : formatRows) {
        const Rate rate = rateOf(row.rateKey);
        clip::VideoFormat video;
        video.rateNum = rate.num;
        video.rateDen = rate.den;
        const std::int64_t whole = sampleRate * rate.den / rate.num;
        for (const int hour : { 0, 1, 10, 24, 100 }) {
            const std::int64_t first = std::int64_t(hour) * 3600 * rate.fps;
            for (std::int64_t frame = first; frame < first + 2000; ++frame) {
                const std::int64_t samples = clip::samplesBeforeFrame(frame, video, sampleRate);
                const std::int64_t exact = frame * sampleRate * rate.den; // in parts of a sample, rate.num each
                QVERIFY(samples * rate.num <= exact && exact < (samples + 1) * rate.num);
                const std::int64_t ofFrame = clip::samplesBeforeFrame(frame + 1, video, sampleRate) - samples;
                QVERIFY(ofFrame == whole || (ofFrame == whole + 1 && rate.den != 1));
            }
        }
    }
}

QTEST_GUILESS_MAIN(TestClipFormats)
#include "tst_clip_formats.moc"
