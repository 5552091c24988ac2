#include "libprores/inverse.h"
#include "libprores/levelreader.h"

#include "proresdecodegolden.h"
#include "proresdecoding.h"

#include <QtTest>

#include <cstdlib>
#include <memory>

using namespace prorestest;

// The vector paths of the decoder are the portable one, sample for sample; and what is read is what was coded.
class ProresDecodePaths : public QObject
{
    Q_OBJECT

private slots:
    void samplesAreEqual_data();
    void samplesAreEqual();
    void samplesThatGoPastTheCachesAreEqual_data() { samplesAreEqual_data(); }
    void samplesThatGoPastTheCachesAreEqual();
    void picturesThatGoPastTheCachesAreEqual();
    void picturesAreTheSameOnEveryMachine();
    void levelsThatAreReadAreThoseCoded();
    void damageIsToldOfItsPlaneAlone();
    void levelsAreReadUpToThePositionWanted();
};

namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr int rounds = 600;
#else
constexpr int rounds = 4000;
#endif

// Levels of one of several kinds, some of which no encoder writes.
void fill(ReadLevels &levels, std::mt19937 &random, int kind)
{
    levels.blocks = 32;
    levels.positions = 1 + static_cast<int>(random() % 64);
    std::ranges::fill(levels.at, std::int16_t {0});
    for (int i = 0; i < levels.positions * 32; ++i) {
        const auto any = static_cast<std::int16_t>(random());
        switch (kind % 6) {
        case 0: levels.at[i] = static_cast<std::int16_t>(any % 8); break;
        case 1: levels.at[i] = static_cast<std::int16_t>(random() % 20 == 0 ? any % 300 : 0); break;
        case 2: levels.at[i] = any; break;
        case 3: levels.at[i] = random() % 2 != 0 ? 32767 : -32768; break;
        case 4: levels.at[i] = i < 32 ? any : std::int16_t {0}; break;
        default: levels.at[i] = static_cast<std::int16_t>(i % 32 == 7 ? any : 0); break;
        }
    }
}

Dequantiser randomDequantiser(std::mt19937 &random, int kind)
{
    Dequantiser dequantiser {};
    for (std::int16_t &scale : dequantiser.scale) {
        const unsigned any = random();
        scale = static_cast<std::int16_t>(kind % 5 == 0 ? any : kind % 5 == 1 ? 32767 : 2 + any % 60);
    }
    return dequantiser;
}

std::vector<int> listed(const Levels &levels)
{
    std::vector<int> all(static_cast<std::size_t>(levels.blocks) * 64);
    std::copy_n(levels.dc, levels.blocks, all.begin());
    for (int i = Levels::lead; i < Levels::lead + levels.count; ++i)
        all[levels.position[i]] = levels.level[i] % 2 != 0 ? -(levels.level[i] / 2) : levels.level[i] / 2;
    return all;
}

// The plane's bytes in memory that ends with them.
std::vector<std::uint8_t> coded(const Levels &levels, unsigned padding)
{
    std::vector<std::uint8_t> room(largestPlaneBytes + codingSlack);
    const std::uint8_t *end = portableKernels().code(levels, room.data());
    std::vector<std::uint8_t> bytes(room.data(), room.data() + (end - room.data()));
    bytes.resize(bytes.size() + padding);
    return bytes;
}

} // namespace

void ProresDecodePaths::samplesAreEqual_data()
{
    QTest::addColumn<const InverseKernels *>("path");
    if (avx2Inverse() == nullptr)
        QSKIP("this processor has no vector path");
    QTest::newRow("AVX2") << avx2Inverse();
    if (avx512Inverse() != nullptr)
        QTest::newRow("AVX-512") << avx512Inverse();
}

void ProresDecodePaths::samplesAreEqual()
{
    QFETCH(const InverseKernels *, path);
    constexpr int stride = 140;
    std::mt19937 random(1);
    const auto levels = std::make_unique<ReadLevels>();
    std::vector<std::uint16_t> own(16 * stride);
    std::vector<std::uint16_t> expected(own.size());
    for (int round = 0; round < rounds; ++round) {
        fill(*levels, random, round);
        const Dequantiser dequantiser = randomDequantiser(random, round);
        const auto &positions = scanPositions(random() % 2 != 0);
        const Order order = random() % 2 != 0 ? Order::Lines : Order::Columns;
        const int second = static_cast<int>(random() % 17);
        const LevelTiles from {{levels->at, levels->at + second}, 32, levels->positions};
        for (const auto size : {&InverseKernels::full, &InverseKernels::half, &InverseKernels::quarter,
                                &InverseKernels::eighth}) {
            const int width = size == &InverseKernels::full ? 64 : 32;
            std::ranges::fill(own, std::uint16_t {7});
            std::ranges::fill(expected, std::uint16_t {7});
            (path->*size)(from, dequantiser, positions, order, {{own.data() + 3, own.data() + 3 + width}, stride});
            (portableInverse().*size)(from, dequantiser, positions, order,
                                      {{expected.data() + 3, expected.data() + 3 + width}, stride});
            QVERIFY(own == expected);
        }
    }
}

void ProresDecodePaths::samplesThatGoPastTheCachesAreEqual()
{
    QFETCH(const InverseKernels *, path);
    constexpr int stride = 160;
    std::mt19937 random(4);
    const auto levels = std::make_unique<ReadLevels>();
    alignas(streamedBytes) std::uint16_t own[16 * stride] = {};
    std::uint16_t expected[16 * stride] = {};
    for (int round = 0; round < rounds / 10; ++round) {
        fill(*levels, random, round);
        const Dequantiser dequantiser = randomDequantiser(random, round);
        const LevelTiles from {{levels->at, levels->at + tileBlocks}, 32, levels->positions};
        path->full(from, dequantiser, scanPositions(false), Order::Lines, {{own, own + 64}, stride, true});
        path->publish();
        portableInverse().full(from, dequantiser, scanPositions(false), Order::Lines,
                               {{expected, expected + 64}, stride});
        QVERIFY(std::ranges::equal(own, expected));
    }
}

// Lines that begin at borders of memory's own, and lines that do not; slices that are whole, and others.
void ProresDecodePaths::picturesThatGoPastTheCachesAreEqual()
{
    constexpr std::ptrdiff_t stride = 1088;
    constexpr std::size_t planeSamples = stride * 520;
    for (const Scan scan : {Scan::Progressive, Scan::TopFirst}) {
        for (const Profile profile : {Profile::Proxy, Profile::P4444}) {
            const Format format = formatOf(profile, 1052, 515, scan);
            const QByteArray frame = encodedAt(format, 3, naturalLike(format));
            const FrameInfo info = infoOf(frame);
            DecodedPlanes elsewhere(info);
            Decoder plain({Reduction::None, Concealment::Grey, Path::Portable});
            QVERIFY(decode(plain, frame, elsewhere).isSound());
            for (const Path path : {Path::Avx2, Path::Avx512}) {
                const std::unique_ptr<std::uint16_t, decltype(&std::free)> memory(
                    static_cast<std::uint16_t *>(std::aligned_alloc(streamedBytes, planeSamples * 3 * 2)), &std::free);
                std::fill_n(memory.get(), planeSamples * 3, untouched);
                DecodedPicture picture = elsewhere.picture;
                for (int p = 0; p < 3; ++p) {
                    picture.plane[p] = memory.get() + static_cast<std::size_t>(p) * planeSamples;
                    picture.stride[p] = stride;
                }
                ThreadPool pool(2);
                Decoder decoder({Reduction::None, Concealment::Grey, path}, &pool);
                QVERIFY(decoder.decode(reinterpret_cast<const std::uint8_t *>(frame.constData()),
                                       static_cast<std::size_t>(frame.size()), picture).isSound());
                for (int p = 0; p < 3; ++p) {
                    for (int y = 0; y < info.height; ++y) {
                        const std::uint16_t *line = picture.plane[p] + y * stride;
                        QVERIFY(std::equal(line, line + elsewhere.width[p],
                                           elsewhere.picture.plane[p] + y * elsewhere.picture.stride[p]));
                        QVERIFY(std::all_of(line + elsewhere.width[p], line + stride,
                                            [](std::uint16_t sample) { return sample == untouched; }));
                    }
                }
            }
        }
    }
}

void ProresDecodePaths::picturesAreTheSameOnEveryMachine()
{
    std::size_t i = 0;
    for (const GoldenRow &row : goldenRows) {
        for (const Path path : {Path::Portable, Path::Avx2, Path::Avx512})
            QCOMPARE(decodedHash(goldenFormat(row), path), decodedHashes[i]);
        ++i;
    }
}

void ProresDecodePaths::levelsThatAreReadAreThoseCoded()
{
    std::mt19937 random(2);
    const auto coding = std::make_unique<Levels>();
    const auto to = std::make_unique<ReadLevels[]>(mostPlanesAtOnce);
    for (int round = 0; round < rounds / 4; ++round) {
        std::vector<std::uint8_t> bytes[mostPlanesAtOnce];
        std::vector<int> expected[mostPlanesAtOnce];
        PlaneToRead planes[mostPlanesAtOnce];
        const int count = 1 + static_cast<int>(random() % mostPlanesAtOnce);
        for (int i = 0; i < count; ++i) {
            const int blocks = i > 0 && random() % 2 != 0 ? planes[i - 1].blocks : 2 << random() % 5;
            fill(*coding, random, blocks, 700);
            expected[i] = listed(*coding);
            bytes[i] = coded(*coding, random() % 4); // up to three bytes of padding
            planes[i] = {{bytes[i].data(), bytes[i].size()}, blocks, &to[i]};
        }
        QCOMPARE(readLevels(planes, count, 64), 0u);
        for (int i = 0; i < count; ++i) {
            QVERIFY(std::equal(expected[i].begin(), expected[i].end(), to[i].at));
            QVERIFY(std::all_of(to[i].at + to[i].positions * to[i].blocks, to[i].at + 64 * to[i].blocks,
                                [](std::int16_t level) { return level == 0; }));
            to[i].clear();
            QVERIFY(std::ranges::all_of(to[i].at, [](std::int16_t level) { return level == 0; }));
        }
    }
}

// Behind the levels of one plane stand four bytes of padding, or a code whose end is missing.
void ProresDecodePaths::damageIsToldOfItsPlaneAlone()
{
    std::mt19937 random(5);
    const auto coding = std::make_unique<Levels>();
    const auto to = std::make_unique<ReadLevels[]>(mostPlanesAtOnce);
    for (int round = 0; round < rounds / 4; ++round) {
        std::vector<std::uint8_t> bytes[mostPlanesAtOnce];
        PlaneToRead planes[mostPlanesAtOnce];
        const int count = 1 + static_cast<int>(random() % mostPlanesAtOnce);
        const int broken = static_cast<int>(random() % static_cast<unsigned>(count));
        for (int i = 0; i < count; ++i) {
            const int blocks = 2 << random() % 5;
            fill(*coding, random, blocks, 700);
            const bool isCut = round % 2 != 0;
            bytes[i] = coded(*coding, i == broken && !isCut ? 4 : 0);
            if (i == broken && isCut)
                bytes[i].insert(bytes[i].end(), {0, 1});
            planes[i] = {{bytes[i].data(), bytes[i].size()}, blocks, &to[i]};
        }
        QCOMPARE(readLevels(planes, count, 64), 1u << broken);
        for (int i = 0; i < count; ++i) {
            to[i].clear();
            QVERIFY(std::ranges::all_of(to[i].at, [](std::int16_t level) { return level == 0; }));
        }
    }
}

void ProresDecodePaths::levelsAreReadUpToThePositionWanted()
{
    std::mt19937 random(3);
    const auto coding = std::make_unique<Levels>();
    const auto levels = std::make_unique<ReadLevels>();
    for (int round = 0; round < rounds / 4; ++round) {
        const int blocks = 4 << random() % 4;
        fill(*coding, random, blocks, 700);
        const std::vector<int> expected = listed(*coding);
        const std::vector<std::uint8_t> bytes = coded(*coding, 0);
        const PlaneToRead plane {{bytes.data(), bytes.size()}, blocks, levels.get()};
        for (const int positions : {1, 4, 16}) {
            QCOMPARE(readLevels(&plane, 1, positions), 0u);
            QVERIFY(std::equal(expected.begin(), expected.begin() + positions * blocks, levels->at));
            levels->clear();
        }
    }
}

QTEST_APPLESS_MAIN(ProresDecodePaths)
#include "tst_prores_decode_paths.moc"
