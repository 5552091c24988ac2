#include "liborb/drivers/software/decoder.h"
#include "liborb/drivers/software/encoder.h"
#include "libpicture/patterns.h"

#include <QTest>

#include <cstring>
#include <random>

extern "C" {
#include <libavutil/log.h>
}

// What is shown of recorded ProRes is the same whichever decoder the device uses.

using namespace ferin;

namespace {

constexpr int patienceMs = 60'000;

OrbImageDesc descOf(int width, int height, OrbImageDesc::ScanMode scan, OrbIdValue type)
{
    OrbImageDesc desc;
    desc.setSize(width, height);
    desc.setAspectRatio(width, height);
    desc.setFrameRate(25, 1);
    desc.setScanMode(scan);
    desc.setDataType(type);
    return desc;
}

/// The moving card under grain, coded.
QByteArray codedPicture(const OrbImageDesc &desc, std::uint32_t number)
{
    RawPicturePool pool(desc.width(), desc.height(), 1);
    const RawPictureRef raw = pool.take();
    picture::MovingPattern(desc.width(), desc.height()).draw(raw->view, number);
    std::minstd_rand random(number + 1);
    for (int p = 0; p < 3; ++p) {
        for (int y = 0; y < desc.height(); ++y) {
            for (int x = 0; x < (p == 0 ? desc.width() : desc.width() / 2); ++x)
                raw->view.line(p, y)[x] = static_cast<std::uint16_t>(raw->view.line(p, y)[x] + random() % 12);
        }
    }
    EncoderPool coders(1);
    const OrbBuffer coded = coders.promise(raw, desc);
    coded.request();
    if (!coded.wait())
        return {};
    return QByteArray(reinterpret_cast<const char *>(coded.data()), static_cast<qsizetype>(coded.size()));
}

OrbBuffer bufferOf(const QByteArray &bytes)
{
    OrbBuffer buffer(static_cast<quint32>(bytes.size()), 0);
    std::memcpy(buffer.data(), bytes.constData(), static_cast<std::size_t>(bytes.size()));
    return buffer;
}

RawPictureRef shown(DecoderPool &decoders, const OrbImageDesc &desc, const QByteArray &bytes)
{
    const auto job = decoders.decode(OrbImage(desc, bufferOf(bytes)));
    return job->wait(patienceMs) ? job->picture() : nullptr;
}

bool isSame(const picture::View &a, const picture::View &b)
{
    for (int p = 0; p < 3; ++p) {
        for (int y = 0; y < a.height; ++y) {
            const int width = p == 0 ? a.width : a.width / 2;
            if (!std::equal(a.line(p, y), a.line(p, y) + width, b.line(p, y)))
                return false;
        }
    }
    return a.width == b.width && a.height == b.height;
}

} // namespace

class ProresPlayback : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { av_log_set_level(AV_LOG_QUIET); }
    void bothDecodersShowTheSame_data();
    void bothDecodersShowTheSame();
    void bothScaleAPictureOfAnotherRasterAlike();
    void damagedPicturesAreShownByNeither();
};

void ProresPlayback::bothDecodersShowTheSame_data()
{
    QTest::addColumn<OrbImageDesc>("desc");
    for (const OrbIdValue type : {OrbIdImageProRes422, OrbIdImageProRes422Hq, OrbIdImageProRes422Lt,
                                  OrbIdImageProRes422Proxy, OrbIdImageProRes4444}) {
        for (const auto &desc : {descOf(480, 270, OrbImageDesc::Interlaced, type),
                                 descOf(640, 360, OrbImageDesc::Progressive, type),
                                 descOf(720, 486, OrbImageDesc::Interlaced, type),
                                 descOf(498, 268, OrbImageDesc::Progressive, type)})
            QTest::newRow(qPrintable(desc.toString())) << desc;
    }
}

void ProresPlayback::bothDecodersShowTheSame()
{
    QFETCH(const OrbImageDesc, desc);
    DecoderPool own(1, ProResBy::Own);
    DecoderPool theirs(1, ProResBy::Ffmpeg);
    for (std::uint32_t number = 1; number < 3; ++number) {
        const QByteArray bytes = codedPicture(desc, number);
        const RawPictureRef here = shown(own, desc, bytes);
        const RawPictureRef there = shown(theirs, desc, bytes);
        QVERIFY(here && there);
        QVERIFY(isSame(here->view, there->view));
    }
}

void ProresPlayback::bothScaleAPictureOfAnotherRasterAlike()
{
    const OrbImageDesc desc = descOf(480, 270, OrbImageDesc::Progressive, OrbIdImageProRes422);
    const QByteArray bytes = codedPicture(descOf(960, 540, OrbImageDesc::Progressive, OrbIdImageProRes422), 5);
    DecoderPool own(1, ProResBy::Own);
    DecoderPool theirs(1, ProResBy::Ffmpeg);
    const RawPictureRef here = shown(own, desc, bytes);
    const RawPictureRef there = shown(theirs, desc, bytes);
    QVERIFY(here && there);
    QVERIFY(isSame(here->view, there->view));
}

void ProresPlayback::damagedPicturesAreShownByNeither()
{
    for (const OrbIdValue type : {OrbIdImageProRes422Hq, OrbIdImageProRes4444}) {
        const OrbImageDesc desc = descOf(640, 360, OrbImageDesc::Progressive, type);
        const QByteArray good = codedPicture(desc, 7);
        QByteArray noise = good;
        for (qsizetype i = 2000; i < noise.size(); ++i)
            noise[i] = static_cast<char>(i * i >> 5);
        for (const ProResBy by : {ProResBy::Own, ProResBy::Ffmpeg}) {
            DecoderPool decoders(1, by);
            QVERIFY(!shown(decoders, desc, noise));
            QVERIFY(!shown(decoders, desc, good.left(good.size() - 100)));
            QVERIFY(!shown(decoders, desc, good.left(30)));
            QVERIFY(shown(decoders, desc, good));
        }
    }
}

QTEST_APPLESS_MAIN(ProresPlayback)
#include "tst_prores_playback.moc"
