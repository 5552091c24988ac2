#include "tst_clip_tools.h"
#include "tst_streamfiles.h"

#include "liborb/drivers/software/decoder.h"
#include "liborb/orb.h"

#include <QStandardPaths>

#include <cmath>
#include <numbers>
#include <numeric>

namespace {

constexpr int decodePatienceMs = 60'000;

/// What a row expects: frames and channels when it plays, an errno value when it is refused.
struct Played
{
    int frames = 0;
    int channels = 0;
    int error = 0;
};

Played plays(int frames, int channels)
{
    return { frames, channels, 0 };
}

constexpr Played refused { 0, 0, EINVAL };

const QString picture25 = "-f lavfi -i testsrc2=s=256x160:r=25:d=1 ";
const QString prores = "-c:v prores_aw -profile:v 2 ";

QString tone(int channels, int rate)
{
    QStringList waves;
    for (int i = 0; i < channels; ++i) {
        waves += QString("0.5*sin(2*PI*440*t*%1)").arg(i + 1);
    }
    return QString("-f lavfi -i aevalsrc=%1:s=%2:d=1 ").arg(waves.join('|')).arg(rate);
}

double sampleOf(const QByteArray &sound, qsizetype sample, int channels, int channel)
{
    const auto *bytes = reinterpret_cast<const uchar *>(sound.constData()) + (sample * channels + channel) * 3;
    return double(qint32(quint32(bytes[0]) << 8 | quint32(bytes[1]) << 16 | quint32(bytes[2]) << 24) >> 8) / 8388608.0;
}

} // namespace

Q_DECLARE_METATYPE(Played)

/// What other programs make plays through the recorder's own stream driver and decoder, as far as that makes sense, or
/// fails to open.
class TestClipImports : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void clipsOfFfmpegPlayOrAreRefused_data();
    void clipsOfFfmpegPlayOrAreRefused();
    void clipsOfGstreamerPlay_data();
    void clipsOfGstreamerPlay();
    void soundOfAnyFormIsHeardAtItsPitch_data();
    void soundOfAnyFormIsHeardAtItsPitch();
    void aClipCutWithoutCodingShowsWhatItsEditSays();
    void aTurnedClipPlaysUnturned();
    void picturesOfUnequalLengthPlayOnceEach();

private:
    QString path(const QString &name) const { return _dir.filePath(name); }
    bool make(const QString &name, const QString &arguments) const;
    void play(const QString &name, const Played &expected);

    QTemporaryDir _dir { cliptest::scratchTemplate() };
    QByteArray _sound; ///< of the clip played last
    OrbStreamInfo _info;
};

void TestClipImports::initTestCase()
{
    Orb::init(0);
}

bool TestClipImports::make(const QString &name, const QString &arguments) const
{
    QFile::remove(path(name));
    QStringList all { "-v", "error", "-nostats", "-progress", "-", "-y" };
    all += QString(arguments).replace("DIR", _dir.path()).split(' ', Qt::SkipEmptyParts);
    all << path(name);
    return !cliptest::run("ffmpeg", all).isEmpty();
}

/// Opens a clip as playback does, reads every frame of it and decodes some.
void TestClipImports::play(const QString &name, const Played &expected)
{
    OrbStream stream;
    QCOMPARE(files::open(stream, path(name), 1), expected.error);
    _sound.clear();
    _info = stream.info();
    if (expected.error != 0) {
        QVERIFY(stream.isClosed());
        return;
    }
    QCOMPARE(_info.length(), expected.frames);
    QCOMPARE(_info.auds().isEmpty() ? 0 : _info.auds().first().chans(), expected.channels);
    ferin::DecoderPool decoders(1);
    QList<int> numbers(expected.frames + 1);
    std::iota(numbers.begin(), numbers.end(), 0);
    const auto answers = files::readFrames(stream, numbers);
    for (int number = 0; number < expected.frames; ++number) {
        const auto &answer = answers[std::size_t(number)];
        QCOMPARE(answer.error, 0);
        if (number % 12 == 0 || number == expected.frames - 1) {
            const auto job = decoders.decode(answer.frame.vids().first());
            QVERIFY(job->wait(decodePatienceMs));
            QVERIFY(job->picture() != nullptr);
            QCOMPARE(job->picture()->view.width, _info.vids().first().width());
        }
        if (expected.channels > 0) {
            _sound += files::bytesOf(answer.frame.auds().first().buffers().first());
        }
    }
    QCOMPARE(answers.back().error, EINVAL);
    QVERIFY(files::close(stream));
}

void TestClipImports::clipsOfFfmpegPlayOrAreRefused_data()
{
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<Played>("expected");
    const QString hd = "-f lavfi -i testsrc2=s=1920x1080:r=25:d=0.2 ";
    const QString stereo = tone(2, 48000) + "-c:a pcm_s24le ";
    const QString hq = "-c:v dnxhd -pix_fmt yuv422p -profile:v ";
    // clang-format off
    const auto row = [](const char *name, const QString &arguments, const Played &expected, const char *suffix = "mov") {
        QTest::newRow(name) << arguments << suffix << expected;
    };
    row("timecode and sound",        picture25 + stereo + prores + "-timecode 10:00:00:00",          plays(25, 2));
    row("neither of them",           picture25 + prores,                                             plays(25, 0));
    row("4444 with alpha",           picture25 + "-c:v prores_ks -profile:v 4 -pix_fmt yuva444p10le", plays(25, 0));
    row("DNxHD, eight bits",         hd + "-c:v dnxhd -b:v 120M -pix_fmt yuv422p",                   plays(5, 0));
    row("DNxHD, interlaced",         hd + "-vf setfield=tff -flags +ildct -c:v dnxhd -b:v 120M -pix_fmt yuv422p", plays(5, 0));
    row("DNxHR LB",                  picture25 + hq + "dnxhr_lb",                                    plays(25, 0));
    row("DNxHR SQ",                  picture25 + hq + "dnxhr_sq",                                    plays(25, 0));
    row("DNxHR HQ",                  picture25 + stereo + hq + "dnxhr_hq",                           plays(25, 2));
    row("DNxHR 444",                 picture25 + "-c:v dnxhd -profile:v dnxhr_444 -pix_fmt yuv444p10le", plays(25, 0));
    row("index in front",            picture25 + stereo + prores + "-movflags faststart",            plays(25, 2));
    row("in fragments",              picture25 + stereo + prores + "-movflags empty_moov+frag_keyframe", plays(25, 2));
    row("its index in fragments",    picture25 + stereo + prores + "-movflags empty_moov+frag_keyframe+separate_moof", plays(25, 2));
    row("another brand",             picture25 + stereo + prores + "-brand mp42",                    plays(25, 2));
    row("by another name",           picture25 + stereo + hq + "dnxhr_hq -f mov",                    plays(25, 2), "mp4");
    row("sixteen channels",          picture25 + tone(16, 48000) + prores + "-c:a pcm_s24le",        plays(25, 16));
    row("sound in AAC is not heard", picture25 + tone(2, 48000) + prores + "-c:a aac",               plays(25, 0));
    row("sound longer than picture", "-f lavfi -i testsrc2=s=256x160:r=25:d=0.4 " + stereo + prores, plays(10, 2));
    row("picture delayed, held",     "-itsoffset 0.2 " + picture25 + stereo + prores,                plays(30, 2));
    row("H.264",                     picture25 + stereo + "-c:v libx264 -bf 2",                      refused);
    row("H.264 in an .mp4",          picture25 + "-c:v libx264 -bf 2",                               refused, "mp4");
    row("HEVC",                      picture25 + "-c:v libx265 -x265-params log-level=error",        refused);
    row("MPEG-2",                    picture25 + "-c:v mpeg2video",                                  refused);
    row("JPEG",                      picture25 + "-c:v mjpeg -pix_fmt yuvj422p",                     refused);
    row("sound alone",               tone(2, 48000) + "-c:a pcm_s24le",                              refused);
    row("Matroska by another name",  picture25 + prores + "-f matroska",                             refused);
    row("MXF by another name",       picture25 + "-c:v mpeg2video -f mxf",                           refused);
    // clang-format on
}

void TestClipImports::clipsOfFfmpegPlayOrAreRefused()
{
    QFETCH(QString, arguments);
    QFETCH(QString, suffix);
    QFETCH(Played, expected);
    const QString name = "import." + suffix;
    if (!make(name, arguments)) {
        QSKIP("this FFmpeg cannot write it");
    }
    play(name, expected);
}

void TestClipImports::clipsOfGstreamerPlay_data()
{
    QTest::addColumn<QString>("video");
    QTest::addColumn<QString>("muxer");
    const QString coder = "video/x-raw,format=I422_10LE ! avenc_prores_ks";
    QTest::newRow("ProRes") << coder << "qtmux";
    QTest::newRow("index in front") << coder << "qtmux faststart=true";
    QTest::newRow("in fragments") << coder << "qtmux fragment-duration=200";
    QTest::newRow("room for the index in front")
        << coder << "qtmux reserved-max-duration=10000000000 reserved-moov-update-period=100000000";
    QTest::newRow("v210") << "video/x-raw,format=v210" << "qtmux";
}

void TestClipImports::clipsOfGstreamerPlay()
{
    QFETCH(QString, video);
    QFETCH(QString, muxer);
    if (QStandardPaths::findExecutable("gst-launch-1.0").isEmpty()) {
        QSKIP("GStreamer is not installed");
    }
    const QString pipeline =
        "-q videotestsrc num-buffers=25 ! video/x-raw,width=256,height=160,framerate=25/1 ! videoconvert ! " + video
        + " ! queue ! mux. audiotestsrc num-buffers=50 samplesperbuffer=960 ! audio/x-raw,format=S16LE,rate=48000,"
          "channels=2 ! queue ! mux. " + muxer + " name=mux ! filesink location=" + path("gst.mov");
    QFile::remove(path("gst.mov"));
    cliptest::run("gst-launch-1.0", pipeline.split(' ', Qt::SkipEmptyParts));
    QVERIFY(QFile::exists(path("gst.mov")));
    play("gst.mov", plays(25, 2));
    // Its tone is at 440 Hz and 0.8 of full scale.
    double peak = 0.0;
    for (qsizetype i = 0; i < _sound.size() / 6; ++i) {
        peak = std::max(peak, std::abs(sampleOf(_sound, i, 2, 0)));
    }
    QVERIFY(peak > 0.79 && peak < 0.81);
}

void TestClipImports::soundOfAnyFormIsHeardAtItsPitch_data()
{
    QTest::addColumn<int>("rate");
    QTest::addColumn<QString>("codec");
    QTest::addColumn<QString>("flags");
    for (const int rate : { 48000, 44100, 96000, 32000, 88200, 192000, 22050 }) {
        QTest::addRow("%d Hz", rate) << rate << "pcm_s24le" << "";
    }
    for (const char *codec : { "pcm_s16le", "pcm_s16be", "pcm_s32le", "pcm_s32be", "pcm_f32le", "pcm_f32be",
                               "pcm_f64le", "pcm_f64be" }) {
        QTest::addRow("%s", codec) << 48000 << codec << "";
    }
    QTest::newRow("fractions at 96 kHz") << 96000 << "pcm_f32le" << "";
    QTest::newRow("44.1 kHz in fragments") << 44100 << "pcm_s16le" << "-movflags empty_moov+frag_keyframe";
}

void TestClipImports::soundOfAnyFormIsHeardAtItsPitch()
{
    QFETCH(int, rate);
    QFETCH(QString, codec);
    QFETCH(QString, flags);
    QVERIFY(make("sound.mov", picture25 + tone(2, rate) + prores + "-c:a " + codec + " " + flags));
    play("sound.mov", plays(25, 2));
    if (QTest::currentTestFailed()) {
        return;
    }
    QCOMPARE(_sound.size(), 48000 * 6);
    // Where sound of another rate begins and ends so suddenly, it rings for a moment.
    const int edge = rate == 48000 ? 0 : 200;
    double worst = 0.0;
    for (int i = edge; i < 48000 - edge; ++i) {
        for (int channel = 0; channel < 2; ++channel) {
            const double expected = 0.5 * std::sin(2 * std::numbers::pi * 440 * (channel + 1) * i / 48000.0);
            worst = std::max(worst, std::abs(sampleOf(_sound, i, 2, channel) - expected));
        }
    }
    const double step = codec.contains("16") ? 1.0 / 32768 : 1.0 / 8388608;
    QVERIFY2(worst < 2 * step + (rate == 48000 ? 0.0 : 1e-5), qPrintable(QString::number(worst)));
}

void TestClipImports::aClipCutWithoutCodingShowsWhatItsEditSays()
{
    QVERIFY(make("long.mov", "-f lavfi -i testsrc2=s=256x160:r=25:d=2 " + tone(2, 48000) + prores + "-c:a pcm_s24le"));
    QVERIFY(make("cut.mov", "-ss 0.4 -i DIR/long.mov -t 0.8 -c copy"));
    const auto cut = cliptest::stream(cliptest::probe(path("cut.mov")), "video");
    const int packets = cliptest::number(cut, "nb_read_packets");
    play("cut.mov", plays(packets, 2));
    // An editor that trims leaves the pictures and shortens the edit: here to ten frames, from the fifth on.
    QByteArray bytes = cliptest::contentOf(path("long.mov"));
    const qsizetype edit = bytes.indexOf("elst");
    QVERIFY(edit > 0 && bytes.mid(edit + 4, 8) == QByteArray("\0\0\0\0\0\0\0\1", 8));
    // 400 ms, from unit 2048 of 12800 a second on.
    bytes.replace(edit + 12, 8, QByteArray("\0\0\1\220", 4) + QByteArray("\0\0\x08\0", 4));
    QVERIFY(cliptest::setContent(path("trimmed.mov"), bytes));
    const auto video = cliptest::stream(cliptest::probe(path("trimmed.mov")), "video");
    QCOMPARE(video["time_base"].toString(), "1/12800");
    play("trimmed.mov", plays(10, 2));
    OrbStream whole, trimmed;
    QCOMPARE(files::open(whole, path("long.mov"), 1), 0);
    QCOMPARE(files::open(trimmed, path("trimmed.mov"), 1), 0);
    for (const int number : { 0, 9 }) {
        QCOMPARE(files::bytesOf(files::readFrames(trimmed, { number })[0].frame.vids().first().buffer()),
                 files::bytesOf(files::readFrames(whole, { number + 4 })[0].frame.vids().first().buffer()));
    }
}

/// A recorder's output has one way up; how a picture is turned for show is left to editors.
void TestClipImports::aTurnedClipPlaysUnturned()
{
    QVERIFY(make("upright.mov", picture25 + prores));
    QVERIFY(make("turned.mov", "-i DIR/upright.mov -c copy -metadata:s:v rotate=90"));
    play("turned.mov", plays(25, 0));
    QCOMPARE(_info.vids().first().width(), 256);
}

/// The output has one rate: that of most pictures.
void TestClipImports::picturesOfUnequalLengthPlayOnceEach()
{
    QVERIFY(make("uneven.mov", picture25 + "-vf select=not(eq(mod(n\\,5)\\,3)) -fps_mode vfr " + prores));
    play("uneven.mov", plays(20, 0));
    QCOMPARE(_info.vids().first().frameRate().toDouble(), 25.0);
}

QTEST_GUILESS_MAIN(TestClipImports)
#include "tst_clip_imports.moc"
