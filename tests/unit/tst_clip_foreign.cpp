#include "tst_clip_tools.h"

#include <QTest>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
}

using namespace cliptest;
using clip::ClipInfo;
using clip::ClipReader;
using clip::ClipWriter;
using clip::Codec;
using clip::Scan;

namespace {

/// The packets of a file's video as libavformat reads them.
QList<QByteArray> packetsOf(const QString &path)
{
    QList<QByteArray> packets;
    AVFormatContext *format = nullptr;
    if (avformat_open_input(&format, path.toUtf8().constData(), nullptr, nullptr) < 0) {
        return packets;
    }
    avformat_find_stream_info(format, nullptr);
    const int video = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    AVPacket *packet = av_packet_alloc();
    while (av_read_frame(format, packet) >= 0) {
        if (packet->stream_index == video) {
            packets.append(QByteArray(reinterpret_cast<char *>(packet->data), packet->size));
        }
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    avformat_close_input(&format);
    return packets;
}

/// Coded pictures of a moving ramp.
QList<QByteArray> encode(const char *encoder, AVPixelFormat pixelFormat, int width, int height,
                         int frames, int flags)
{
    QList<QByteArray> pictures;
    const AVCodec *codec = avcodec_find_encoder_by_name(encoder);
    AVCodecContext *context = avcodec_alloc_context3(codec);
    context->width = width;
    context->height = height;
    context->pix_fmt = pixelFormat;
    context->time_base = { 1, 25 };
    context->flags |= flags;
    AVFrame *frame = av_frame_alloc();
    frame->format = pixelFormat;
    frame->width = width;
    frame->height = height;
    AVPacket *packet = av_packet_alloc();
    if (avcodec_open2(context, codec, nullptr) == 0 && av_frame_get_buffer(frame, 0) == 0) {
        for (int i = 0; i < frames; ++i) {
            av_frame_make_writable(frame);
            for (int y = 0; y < height; ++y) {
                for (int plane = 0; plane < 3; ++plane) {
                    auto *line = reinterpret_cast<quint16 *>(frame->data[plane]
                                                             + y * frame->linesize[plane]);
                    for (int x = 0; x < (plane == 0 ? width : width / 2); ++x) {
                        line[x] = quint16(64 + (x * 3 + y + i * 20) % 800);
                    }
                }
            }
            frame->pts = i;
            avcodec_send_frame(context, frame);
            while (avcodec_receive_packet(context, packet) == 0) {
                pictures.append(QByteArray(reinterpret_cast<char *>(packet->data), packet->size));
                av_packet_unref(packet);
            }
        }
    }
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&context);
    return pictures;
}

} // namespace

/// Clips that other programs write are read, and clips written here are decoded elsewhere.
class TestClipForeign : public QObject
{
    Q_OBJECT

private slots:
    void clipsOfOthersReadAsTheyRead_data();
    void clipsOfOthersReadAsTheyRead();
    void monoTracksBecomeTheChannelsOfOneClip();
    void ofSeveralStereoTracksTheFirstIsTaken();
    void fragmentedClipsOfOthersRead_data();
    void fragmentedClipsOfOthersRead();
    void fieldsComeFromTheDescriptionOrThePicture_data();
    void fieldsComeFromTheDescriptionOrThePicture();
    void delayedSoundKeepsItsDelay();
    void otherCodecsAreRefused();
    void encodedPicturesDecodeFromOurClip();

private:
    QString path(const QString &name) const { return _dir.filePath(name); }
    std::string stdPath(const QString &name) const { return path(name).toStdString(); }
    bool make(const QString &name, const QStringList &arguments) const;
    QByteArray soundOf(const QString &name, const QStringList &map) const;
    QByteArray allSound(const ClipReader &reader) const;

    QTemporaryDir _dir;
};

bool TestClipForeign::make(const QString &name, const QStringList &arguments) const
{
    QStringList all { "-v", "error", "-nostats", "-progress", "-", "-y" };
    all += arguments;
    all << path(name);
    return !run("ffmpeg", all).isEmpty();
}

/// The sound of a file in 24 bits as ffmpeg reads it.
QByteArray TestClipForeign::soundOf(const QString &name, const QStringList &map) const
{
    return run("ffmpeg", QStringList { "-v", "error", "-i", path(name) } + map
                             + QStringList { "-c:a", "pcm_s24le", "-f", "s24le", "-" });
}

QByteArray TestClipForeign::allSound(const ClipReader &reader) const
{
    QByteArray all;
    for (qint64 i = 0; i < reader.info().frames; ++i) {
        all += readSound(reader, i);
    }
    return all;
}

void TestClipForeign::clipsOfOthersReadAsTheyRead_data()
{
    QTest::addColumn<QString>("video");
    QTest::addColumn<int>("codec");
    QTest::addColumn<QString>("rate");
    QTest::addColumn<QString>("audio");
    QTest::addColumn<int>("channels");
    QTest::addColumn<QString>("timecode");

    const int prores = int(Codec::ProRes422);
    const int dnx = int(Codec::DnxHqx);
    const int v210 = int(Codec::V210);
    const QString hqx = "dnxhd -profile:v dnxhr_hqx -pix_fmt yuv422p10le";
    // clang-format off
    QTest::newRow("422 s16le")   << "prores_aw -profile:v 2" << prores << "25"         << "pcm_s16le" << 2 << "01:00:00:00";
    QTest::newRow("422 s16be")   << "prores_aw -profile:v 2" << prores << "30000/1001" << "pcm_s16be" << 1 << "01:00:00;00";
    QTest::newRow("hq s24le")    << "prores_aw -profile:v 3" << int(Codec::ProRes422Hq)    << "24000/1001" << "pcm_s24le" << 8 << "00:00:00:10";
    QTest::newRow("lt s24be")    << "prores_ks -profile:v 1" << int(Codec::ProRes422Lt)    << "50"         << "pcm_s24be" << 6 << "";
    QTest::newRow("proxy s32le") << "prores_ks -profile:v 0" << int(Codec::ProRes422Proxy) << "60"         << "pcm_s32le" << 2 << "";
    QTest::newRow("4444 s32be")  << "prores_ks -profile:v 4" << int(Codec::ProRes4444)     << "24"         << "pcm_s32be" << 4 << "";
    QTest::newRow("422 silent")  << "prores_aw -profile:v 2" << prores << "60000/1001" << ""          << 0 << "00:10:00;00";
    QTest::newRow("dnx s24le")   << hqx                      << dnx    << "25"         << "pcm_s24le" << 2 << "10:00:00:00";
    QTest::newRow("dnx silent")  << hqx                      << dnx    << "25"         << ""          << 0 << "";
    QTest::newRow("v210 s16le")  << "v210"                   << v210   << "25"         << "pcm_s16le" << 2 << "";
    QTest::newRow("v210 s24le")  << "v210"                   << v210   << "30000/1001" << "pcm_s24le" << 8 << "01:02:03:04";
    // clang-format on
}

void TestClipForeign::clipsOfOthersReadAsTheyRead()
{
    QFETCH(QString, video);
    QFETCH(QString, rate);
    QFETCH(QString, audio);
    QFETCH(int, channels);
    QFETCH(QString, timecode);
    QStringList arguments { "-f", "lavfi", "-i", "testsrc2=s=256x160:d=1.5:r=" + rate };
    if (channels > 0) {
        QStringList waves;
        for (int i = 0; i < channels; ++i) {
            waves += QString("sin(t*%1)").arg(440 * (i + 1));
        }
        arguments << "-f" << "lavfi" << "-i" << "aevalsrc=" + waves.join('|') + ":s=48000:d=1.5";
        arguments << "-c:a" << audio;
    }
    arguments += QString("-c:v " + video).split(' ');
    if (!timecode.isEmpty()) {
        arguments << "-timecode" << timecode << "-metadata:s:v" << "reel_name=TAPE3";
    }
    QVERIFY(make("foreign.mov", arguments));

    ClipReader reader;
    QCOMPARE(reader.open(stdPath("foreign.mov")).code, 0);
    QVERIFY(reader.info().isComplete);
    QTEST(int(reader.info().video.codec), "codec");
    QCOMPARE(reader.info().video.width, 256);
    QCOMPARE(reader.info().video.height, 160);
    const QStringList terms = rate.split('/');
    QCOMPARE(reader.info().video.rateNum, terms[0].toInt());
    QCOMPARE(reader.info().video.rateDen, terms.value(1, "1").toInt());
    QCOMPARE(reader.info().timecode.has_value(), !timecode.isEmpty());
    QCOMPARE(reader.info().reel, std::string(timecode.isEmpty() ? "" : "TAPE3"));
    if (!timecode.isEmpty()) {
        QCOMPARE(reader.info().timecode->dropFrame, timecode.contains(';'));
    }
    const auto packets = packetsOf(path("foreign.mov"));
    QVERIFY(packets.size() > 30);
    QCOMPARE(reader.info().frames, std::int64_t(packets.size()));
    for (qsizetype i = 0; i < packets.size(); ++i) {
        QCOMPARE(readPicture(reader, i), packets[i]);
    }
    QCOMPARE(reader.info().audio.value_or(clip::AudioFormat { }).channels, channels);
    if (channels > 0) {
        const QByteArray expected = soundOf("foreign.mov", { });
        const auto end = clip::samplesBeforeFrame(reader.info().frames, reader.info().video, 48000);
        QVERIFY(!expected.isEmpty());
        QCOMPARE(allSound(reader), expected.left(int(end) * channels * 3));
    }
}

void TestClipForeign::monoTracksBecomeTheChannelsOfOneClip()
{
    QVERIFY(make("mono.mov", {"-f",   "lavfi",  "-i",   "testsrc2=s=128x96:r=25:d=1",
                              "-f",   "lavfi",  "-i",   "sine=440:r=48000:d=1",
                              "-f",   "lavfi",  "-i",   "sine=880:r=48000:d=1",
                              "-f",   "lavfi",  "-i",   "sine=99:r=48000:d=0.5",
                              "-map", "0",      "-map", "1",
                              "-map", "2",      "-map", "3",
                              "-c:v", "prores", "-c:a", "pcm_s16le"}));
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("mono.mov")).code, 0);
    QCOMPARE(reader.info().audio->channels, 3);
    const QByteArray all = allSound(reader);
    QCOMPARE(all.size(), 48000 * 9);
    for (int track = 0; track < 3; ++track) {
        const QByteArray mono = soundOf("mono.mov", { "-map", QString("0:a:%1").arg(track) });
        QByteArray channel;
        for (int i = 0; i < 48000; ++i) {
            channel += all.mid(i * 9 + track * 3, 3);
        }
        QCOMPARE(channel.left(mono.size()), mono);
        // The short one ends in silence.
        QCOMPARE(channel.mid(mono.size()), QByteArray(channel.size() - mono.size(), 0));
    }
}

void TestClipForeign::ofSeveralStereoTracksTheFirstIsTaken()
{
    QVERIFY(
        make("two.mov", {"-f",   "lavfi",    "-i",   "testsrc2=s=128x96:r=25:d=1",
                         "-f",   "lavfi",    "-i",   "aevalsrc=sin(t*99)|sin(t*999):s=48000:d=1",
                         "-f",   "lavfi",    "-i",   "sine=880:r=48000:d=1",
                         "-map", "0",        "-map", "1",
                         "-map", "2",        "-c:v", "prores",
                         "-c:a", "pcm_s24le"}));
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("two.mov")).code, 0);
    QCOMPARE(reader.info().audio->channels, 2);
    QCOMPARE(allSound(reader), soundOf("two.mov", { "-map", "0:a:0" }));
}

void TestClipForeign::fragmentedClipsOfOthersRead_data()
{
    QTest::addColumn<QString>("flags");
    QTest::newRow("base in every part") << "frag_keyframe+empty_moov";
    QTest::newRow("base is the fragment") << "frag_keyframe+empty_moov+default_base_moof";
    QTest::newRow("no base") << "frag_keyframe+empty_moov+omit_tfhd_offset";
    QTest::newRow("samples in the movie, too") << "frag_keyframe";
}

void TestClipForeign::fragmentedClipsOfOthersRead()
{
    QFETCH(QString, flags);
    QVERIFY(make("parts.mov", {"-f", "lavfi", "-i", "testsrc2=s=128x96:r=25:d=2", "-f", "lavfi",
                               "-i", "aevalsrc=sin(t*99)|sin(t*999):s=48000:d=2", "-c:v", "prores",
                               "-c:a", "pcm_s24le", "-movflags", flags}));
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("parts.mov")).code, 0);
    QVERIFY(!reader.info().isComplete);
    QCOMPARE(reader.info().video.rateNum, 25);
    const auto packets = packetsOf(path("parts.mov"));
    QCOMPARE(reader.info().frames, std::int64_t(packets.size()));
    QCOMPARE(packets.size(), 50);
    for (qsizetype i = 0; i < packets.size(); ++i) {
        QCOMPARE(readPicture(reader, i), packets[i]);
    }
    QCOMPARE(allSound(reader), soundOf("parts.mov", { }));
}

void TestClipForeign::fieldsComeFromTheDescriptionOrThePicture_data()
{
    QTest::addColumn<bool>("isTop");
    QTest::addColumn<bool>("isStated");
    QTest::newRow("top, stated") << true << true;
    QTest::newRow("bottom, stated") << false << true;
    QTest::newRow("top, in the picture") << true << false;
    QTest::newRow("bottom, in the picture") << false << false;
}

void TestClipForeign::fieldsComeFromTheDescriptionOrThePicture()
{
    QFETCH(bool, isTop);
    QFETCH(bool, isStated);
    QVERIFY(make("fields.mov", {"-f", "lavfi", "-i", "testsrc2=s=720x576:r=25:d=0.2", "-vf",
                                isTop ? "setfield=tff" : "setfield=bff", "-flags", "+ildct", "-c:v",
                                "prores_ks"}));
    if (!isStated) {
        QByteArray bytes = contentOf(path("fields.mov"));
        QVERIFY(bytes.contains("fiel"));
        QVERIFY(setContent(path("fields.mov"), bytes.replace("fiel", "free")));
    }
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("fields.mov")).code, 0);
    QCOMPARE(int(reader.info().video.scan), int(Scan::Interlaced));
    QCOMPARE(reader.info().video.topFieldFirst, isTop);
}

void TestClipForeign::delayedSoundKeepsItsDelay()
{
    QVERIFY(make("late.mov",
                 {"-f", "lavfi", "-i", "testsrc2=s=128x96:r=25:d=1", "-itsoffset", "0.2", "-f",
                  "lavfi", "-i", "sine=440:r=48000:d=0.6", "-c:v", "prores", "-c:a", "pcm_s24le"}));
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("late.mov")).code, 0);
    const QByteArray all = allSound(reader);
    QCOMPARE(all.left(9600 * 3), QByteArray(9600 * 3, 0));
    QCOMPARE(all.mid(9600 * 3), soundOf("late.mov", { }).right(28800 * 3));
    QCOMPARE(all.size(), (9600 + 28800) * 3);
}

void TestClipForeign::otherCodecsAreRefused()
{
    QVERIFY(
        make("other.mov", {"-f", "lavfi", "-i", "testsrc2=s=128x96:r=25:d=0.2", "-c:v", "mpeg4"}));
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("other.mov")).code, EINVAL);
    QVERIFY(make("sound.mov", { "-f", "lavfi", "-i", "sine=440:d=0.2" }));
    QCOMPARE(reader.open(stdPath("sound.mov")).code, EINVAL);
}

void TestClipForeign::encodedPicturesDecodeFromOurClip()
{
    ClipInfo info = sampleInfo();
    info.video.width = 640;
    info.video.height = 360;
    const auto pictures = encode("prores_aw", AV_PIX_FMT_YUV422P10LE, 640, 360, 40, 0);
    QCOMPARE(pictures.size(), 40);
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("real.mov"), info).code, 0);
    for (int i = 0; i < 40; ++i) {
        QCOMPARE(writer.write(bytesOf(pictures[i]), bytesOf(sound(i, info))).code, 0);
    }
    const auto decode = [&] {
        return run("ffmpeg", {"-v", "error", "-xerror", "-i", path("real.mov"), "-map", "0:v", "-f",
                              "framemd5", "-"})
            .count("\n0, ");
    };
    QCOMPARE(packetsOf(path("real.mov")), pictures.mid(0, 36));
    QCOMPARE(decode(), 36);
    QCOMPARE(writer.close().code, 0);
    QCOMPARE(packetsOf(path("real.mov")), pictures);
    QCOMPARE(decode(), 40);
    QByteArray all;
    for (int i = 0; i < 40; ++i) {
        all += sound(i, info);
    }
    QCOMPARE(soundOf("real.mov", { }), all);
}

QTEST_GUILESS_MAIN(TestClipForeign)
#include "tst_clip_foreign.moc"
