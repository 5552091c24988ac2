#include "proresdecoding.h"

#include <QtTest>

using namespace prorestest;

// Smaller pictures, from the lowest coefficients alone, are what the full one scaled down looks like.
class ProresDecodeSizes : public QObject
{
    Q_OBJECT

private slots:
    void smallPicturesAreTheLargeOneScaledDown_data();
    void smallPicturesAreTheLargeOneScaledDown();
    void eighthSizeIsTheMeanOfEachBlock();
    void flatBlocksAreTheSameAtEverySize();
    void oddRastersAreRoundedUp();
    void alphaIsThinnedOut();
};

namespace {

DecodedPlanes decoded(const QByteArray &frame, Reduction reduction, Path path = Path::Best)
{
    DecoderSettings settings;
    settings.reduction = reduction;
    settings.path = path;
    Decoder decoder(settings);
    DecodedPlanes planes(infoOf(frame), reduction);
    if (!decode(decoder, frame, planes).isSound())
        qFatal("a sound frame");
    return planes;
}

// The mean of the samples that one of a reduced picture stands for; fields each by themselves.
double mean(const DecodedPlanes &full, const FrameInfo &info, int p, int x, int y, int factor)
{
    double sum = 0;
    for (int i = 0; i < factor * factor; ++i) {
        const int line = info.isInterlaced() ? (y / 2 * factor + i / factor) * 2 + y % 2 : y * factor + i / factor;
        sum += full.at(p, x * factor + i % factor, line);
    }
    return sum / (factor * factor);
}

} // namespace

void ProresDecodeSizes::smallPicturesAreTheLargeOneScaledDown_data()
{
    QTest::addColumn<Format>("format");
    QTest::addColumn<Reduction>("reduction");
    QTest::addColumn<int>("least"); // decibels
    const struct {
        Reduction reduction;
        int least;
    } rows[] = {{Reduction::Half, 48}, {Reduction::Quarter, 45}, {Reduction::Eighth, 65}};
    for (const auto &[reduction, least] : rows) {
        for (const Scan scan : {Scan::Progressive, Scan::TopFirst, Scan::BottomFirst}) {
            for (const Profile profile : {Profile::Hq, Profile::P4444}) {
                QTest::addRow("1/%d, scan %d, profile %d", 1 << static_cast<int>(reduction), static_cast<int>(scan),
                              static_cast<int>(profile))
                    << formatOf(profile, 720, 256, scan) << reduction << least;
            }
        }
    }
}

void ProresDecodeSizes::smallPicturesAreTheLargeOneScaledDown()
{
    QFETCH(const Format, format);
    QFETCH(const Reduction, reduction);
    QFETCH(const int, least);
    const QByteArray frame = encodedAt(format, 2, naturalLike(format, 0, 4));
    const FrameInfo info = infoOf(frame);
    const int factor = 1 << static_cast<int>(reduction);
    const DecodedPlanes full = decoded(frame, Reduction::None);
    for (const Path path : {Path::Portable, Path::Avx2, Path::Avx512}) {
        const DecodedPlanes small = decoded(frame, reduction, path);
        QVERIFY(small.isWithin());
        QCOMPARE(small.picture.width, format.width / factor);
        QCOMPARE(small.picture.height, format.height / factor);
        for (int p = 0; p < 3; ++p) {
            double squares = 0;
            for (int y = 0; y < small.picture.height; ++y) {
                for (int x = 0; x < small.width[p]; ++x)
                    squares += std::pow(small.at(p, x, y) - mean(full, info, p, x, y, factor), 2);
            }
            const double each = squares / (small.width[p] * small.picture.height);
            const double ratio = 10 * std::log10(1023.0 * 1023.0 / each);
            QVERIFY2(ratio > least, qPrintable(QStringLiteral("plane %1: %2 dB").arg(p).arg(ratio)));
        }
    }
}

void ProresDecodeSizes::eighthSizeIsTheMeanOfEachBlock()
{
    const Format format = formatOf(Profile::Hq, 320, 64);
    for (const int index : {1, 4, 9}) {
        const QByteArray frame = encodedAt(format, index, naturalLike(format, index, 20));
        const DecodedPlanes full = decoded(frame, Reduction::None);
        const DecodedPlanes small = decoded(frame, Reduction::Eighth);
        for (int p = 0; p < 3; ++p) {
            for (int y = 0; y < 8; ++y) {
                for (int x = 0; x < small.width[p]; ++x)
                    QVERIFY(std::abs(small.at(p, x, y) - mean(full, infoOf(frame), p, x, y, 8)) < 0.75);
            }
        }
    }
}

void ProresDecodeSizes::flatBlocksAreTheSameAtEverySize()
{
    const Format format = formatOf(Profile::P4444, 320, 64);
    OwnPicture picture(format);
    for (int p = 0; p < 3; ++p) {
        for (int y = 0; y < 64; ++y) {
            for (int x = 0; x < 320; ++x)
                picture.at(p, x, y) = static_cast<std::uint16_t>(64 + (x / 8 * 37 + y / 8 * 101 + p * 11) % 870);
        }
    }
    const QByteArray frame = encodedAt(format, 1, picture);
    for (const Reduction reduction : {Reduction::None, Reduction::Half, Reduction::Quarter, Reduction::Eighth}) {
        const DecodedPlanes planes = decoded(frame, reduction);
        const int factor = 1 << static_cast<int>(reduction);
        for (int p = 0; p < 3; ++p) {
            for (int y = 0; y < 64 / factor; ++y) {
                for (int x = 0; x < 320 / factor; ++x)
                    QCOMPARE(planes.at(p, x, y), picture.at(p, x * factor, y * factor));
            }
        }
    }
}

void ProresDecodeSizes::oddRastersAreRoundedUp()
{
    for (const Scan scan : {Scan::Progressive, Scan::TopFirst, Scan::BottomFirst}) {
        for (const auto &[width, height] : {std::pair {2, 2}, {18, 33}, {114, 50}, {350, 15}, {722, 63}}) {
            const Format format = formatOf(Profile::Standard, width, height, scan);
            const QByteArray frame = encodedAt(format, 3, naturalLike(format));
            for (int shift = 1; shift < 4; ++shift) {
                const DecodedPlanes planes = decoded(frame, static_cast<Reduction>(shift));
                QCOMPARE(planes.picture.width, (width + (1 << shift) - 1) >> shift);
                QVERIFY(planes.isWithin()); // and every sample was written
            }
        }
    }
}

void ProresDecodeSizes::alphaIsThinnedOut()
{
    Format format = formatOf(Profile::P4444, 150, 70);
    format.hasAlpha = true;
    const QByteArray frame = encodedAt(format, 3, naturalLike(format));
    const DecodedPlanes full = decoded(frame, Reduction::None);
    for (int shift = 1; shift < 4; ++shift) {
        const DecodedPlanes small = decoded(frame, static_cast<Reduction>(shift));
        QVERIFY(small.isWithin());
        for (int y = 0; y < small.picture.height; ++y) {
            for (int x = 0; x < small.width[3]; ++x)
                QCOMPARE(small.at(3, x, y), full.at(3, x << shift, y << shift));
        }
    }
}

QTEST_APPLESS_MAIN(ProresDecodeSizes)
#include "tst_prores_decode_sizes.moc"
