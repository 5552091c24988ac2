#include "proresgolden.h"
#include "prorestools.h"

#include <QtTest>

#include <memory>

using namespace prorestest;

// The vector paths are the portable one, byte for byte.
class ProresPaths : public QObject
{
    Q_OBJECT

private slots:
    void quantisedLevelsAreEqual_data();
    void quantisedLevelsAreEqual();
    void codedLevelsAreEqual_data();
    void codedLevelsAreEqual();
    void wholeFramesAreEqual_data();
    void wholeFramesAreEqual();
    void bytesAreTheSameOnEveryMachine();
    void transformAgreesWithDoublePrecision_data();
    void transformAgreesWithDoublePrecision();
};

namespace {

// Of 32 blocks each: a million blocks, where the sanitizers do not slow them down.
#ifdef __SANITIZE_ADDRESS__
constexpr unsigned rounds = 1500;
#else
constexpr unsigned rounds = 32768;
#endif

void addPaths()
{
    QTest::addColumn<const Kernels *>("path");
    QTest::newRow("portable") << &portableKernels();
    if (avx2Kernels() != nullptr)
        QTest::newRow("AVX2") << avx2Kernels();
    if (avx512Kernels() != nullptr)
        QTest::newRow("AVX-512") << avx512Kernels();
}

// The portable path is compared with itself to see that it is deterministic, which takes a few rounds.
unsigned roundsFor(const Kernels *path)
{
    return path == &portableKernels() ? 100 : rounds;
}

// The levels and the values before them; what lies beyond is free.
bool isSame(const Levels &a, const Levels &b)
{
    const auto used = static_cast<std::size_t>(a.count + Levels::lead);
    return a.blocks == b.blocks && a.count == b.count && std::equal(a.dc, a.dc + a.blocks, b.dc)
        && std::equal(a.position, a.position + used, b.position) && std::equal(a.level, a.level + used, b.level);
}

// Two tiles of samples of one of several kinds, some of them unreasonable.
void fill(std::vector<std::uint16_t> &samples, std::mt19937 &random, unsigned kind)
{
    const unsigned base = random() % 1024;
    const unsigned spread = 1 + random() % 64;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        switch (kind % 8) {
        case 0: samples[i] = static_cast<std::uint16_t>(random() & 1023); break;
        case 1: samples[i] = random() % 2 != 0 ? 1023 : 0; break;
        case 2: samples[i] = static_cast<std::uint16_t>(base + random() % spread); break;
        case 3: samples[i] = static_cast<std::uint16_t>(random()); break;
        case 4: samples[i] = (i / spread) % 2 != 0 ? 1023 : 0; break;
        case 5: samples[i] = static_cast<std::uint16_t>(base); break;
        case 6: samples[i] = i % 331 == base % 331 ? 65535 : 64; break;
        default: samples[i] = static_cast<std::uint16_t>((i * spread + random() % 8) & 1023); break;
        }
    }
}

Quantiser randomQuantiser(std::mt19937 &random)
{
    Quantiser quantiser {};
    const int scale = random() % 4 == 0 ? 1 + static_cast<int>(random() % 512) : 1 + static_cast<int>(random() % 8);
    for (int i = 0; i < 64; ++i) {
        const int step = 2 * (random() % 8 == 0 ? 63 : 2 + static_cast<int>(random() % 8)) * scale;
        quantiser.reciprocal[i] = static_cast<std::uint16_t>((65536 + step / 2) / step);
        quantiser.offset[i] = static_cast<std::uint16_t>(i == 0 ? step / 2 : step * 3 / 8);
    }
    return quantiser;
}

} // namespace

void ProresPaths::quantisedLevelsAreEqual_data()
{
    addPaths();
}

void ProresPaths::quantisedLevelsAreEqual()
{
    QFETCH(const Kernels *, path);
    std::mt19937 random(1);
    std::vector<std::uint16_t> samples(16 * 160);
    const auto own = std::make_unique<SliceScratch>();
    const auto expected = std::make_unique<SliceScratch>();
    for (unsigned round = 0; round < roundsFor(path); ++round) {
        fill(samples, random, round);
        const Tiles tiles {{samples.data(), samples.data() + 64 + random() % 33}, 160};
        const int shift = round % 3 == 0 ? 1 : 3;
        const auto &positions = scanPositions(round % 2 != 0);
        path->transform(tiles, shift, positions, own->coefficients[0]);
        portableKernels().transform(tiles, shift, positions, expected->coefficients[0]);
        const Quantiser quantiser = randomQuantiser(random);
        const Order order = random() % 2 != 0 ? Order::Lines : Order::Columns;
        const int blocks = 4 << random() % 4;
        path->quantise(own->coefficients[0], quantiser, order, blocks, own->levels[0], nullptr, Ahead());
        portableKernels().quantise(expected->coefficients[0], quantiser, order, blocks, expected->levels[0], nullptr,
                                   Ahead());
        QVERIFY(isSame(own->levels[0], expected->levels[0]));
        const int half = 2 << random() % 4;
        path->quantise(own->coefficients[0], quantiser, order, half, own->levels[1], &own->levels[2], Ahead());
        portableKernels().quantise(expected->coefficients[0], quantiser, order, half, expected->levels[1],
                                   &expected->levels[2], Ahead());
        QVERIFY(isSame(own->levels[1], expected->levels[1]));
        QVERIFY(isSame(own->levels[2], expected->levels[2]));
    }
}

void ProresPaths::codedLevelsAreEqual_data()
{
    addPaths();
}

void ProresPaths::codedLevelsAreEqual()
{
    QFETCH(const Kernels *, path);
    std::mt19937 random(2);
    const auto levels = std::make_unique<Levels>();
    std::vector<std::uint8_t> own(largestPlaneBytes + codingSlack);
    std::vector<std::uint8_t> expected(own.size());
    for (unsigned round = 0; round < roundsFor(path); ++round) {
        fill(*levels, random, 2 << random() % 5, 300);
        const auto bytes = path->code(*levels, own.data()) - own.data();
        QCOMPARE(bytes, portableKernels().code(*levels, expected.data()) - expected.data());
        QVERIFY(std::equal(own.begin(), own.begin() + bytes, expected.begin()));
    }
}

void ProresPaths::wholeFramesAreEqual_data()
{
    QTest::addColumn<Profile>("profile");
    QTest::addColumn<int>("threads");
    for (const Profile profile : {Profile::Proxy, Profile::Lt, Profile::Standard, Profile::Hq, Profile::P4444}) {
        for (const int threads : {1, 3})
            QTest::addRow("profile %d, %d threads", static_cast<int>(profile), threads) << profile << threads;
    }
}

void ProresPaths::wholeFramesAreEqual()
{
    QFETCH(const Profile, profile);
    QFETCH(const int, threads);
    Format format;
    format.profile = profile;
    format.width = 434;
    format.height = 150;
    format.bitDepth = profile == Profile::P4444 ? 12 : 10;
    format.scan = profile == Profile::Lt ? Scan::TopFirst : Scan::Progressive;
    ThreadPool pool(threads);
    Settings settings;
    settings.path = Path::Portable;
    Encoder portable(format, settings);
    settings.path = Path::Avx2;
    Encoder avx2(format, settings, &pool);
    settings.path = Path::Avx512;
    Encoder avx512(format, settings, &pool);
    for (int i = 0; i < 12; ++i) {
        const OwnPicture picture = i == 7 ? noise(format, 5) : naturalLike(format, i, i < 5 ? 30 : 2);
        const QByteArray expected = encode(portable, picture);
        QVERIFY(!expected.isEmpty());
        QVERIFY(encode(avx2, picture) == expected);
        QVERIFY(encode(avx512, picture) == expected);
    }
}

void ProresPaths::bytesAreTheSameOnEveryMachine()
{
    for (const GoldenRow &row : goldenRows) {
        for (const Path path : {Path::Portable, Path::Avx2, Path::Avx512})
            QCOMPARE(goldenHash(goldenFormat(row), path), row.hash);
    }
}

void ProresPaths::transformAgreesWithDoublePrecision_data()
{
    addPaths();
}

// Through the levels at the finest step, which is one of a 10-bit orthonormal transform's: 8 units.
void ProresPaths::transformAgreesWithDoublePrecision()
{
    QFETCH(const Kernels *, path);
    std::mt19937 random(7);
    Quantiser quantiser {};
    std::ranges::fill(quantiser.reciprocal, std::uint16_t {16384}); // a step of 4
    std::ranges::fill(quantiser.offset, std::uint16_t {2});
    std::vector<std::uint16_t> samples(16 * 128);
    const auto scratch = std::make_unique<SliceScratch>();
    for (unsigned round = 0; round < 60; ++round) {
        fill(samples, random, round % 8 == 3 || round % 8 == 6 ? 0 : round);
        path->transform({{samples.data(), samples.data() + 64}, 128}, 3, scanPositions(false),
                        scratch->coefficients[0]);
        Levels &levels = scratch->levels[0];
        path->quantise(scratch->coefficients[0], quantiser, Order::Lines, 32, levels, nullptr, Ahead());
        std::vector<int> found(64 * 32);
        for (std::size_t b = 0; b < 32; ++b)
            found[b] = levels.dc[b];
        for (int i = Levels::lead; i < Levels::lead + levels.count; ++i)
            found[levels.position[i]] = levels.level[i] % 2 != 0 ? -(levels.level[i] / 2) : levels.level[i] / 2;
        for (std::size_t b = 0; b < 32; b += 5) {
            const std::size_t corner = b / 2 % 2 * 8 * 128 + (b / 4 * 2 + b % 2) * 8;
            for (std::size_t k = 0; k < 64; ++k) {
                const std::size_t raster = scanOrder(false)[k];
                double sum = 0;
                for (std::size_t i = 0; i < 64; ++i) {
                    const double angleX = (2.0 * static_cast<double>(i % 8) + 1) * static_cast<double>(raster % 8);
                    const double angleY = (2.0 * static_cast<double>(i / 8) + 1) * static_cast<double>(raster / 8);
                    sum += (samples[corner + i / 8 * 128 + i % 8] - 512.0) * std::cos(angleX * std::numbers::pi / 16)
                        * std::cos(angleY * std::numbers::pi / 16);
                }
                sum *= (raster % 8 == 0 ? std::sqrt(0.125) : 0.5) * (raster / 8 == 0 ? std::sqrt(0.125) : 0.5);
                // Half a step of 4 for the quantiser, and what the two passes round.
                QVERIFY(std::abs(found[k * 32 + b] * 4 - sum * 8) <= 2 + 3);
            }
        }
    }
}

QTEST_APPLESS_MAIN(ProresPaths)
#include "tst_prores_paths.moc"
