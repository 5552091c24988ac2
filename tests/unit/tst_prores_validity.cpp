#include "prorestools.h"

#include <QtTest>

using namespace prorestest;

// Every frame is decoded by FFmpeg, without a word, into what the levels say.
class ProresValidity : public QObject
{
    Q_OBJECT

private slots:
    void everyFormatDecodesToTheEncodersOwnReconstruction_data();
    void everyFormatDecodesToTheEncodersOwnReconstruction();
    void headerSaysWhatTheFormatIs();
    void alphaComesBackAsItWas_data();
    void alphaComesBackAsItWas();
    void everyIndexAndEveryExtremeDecodes_data();
    void everyIndexAndEveryExtremeDecodes();
    void planesOfUnlikeStridesGiveTheSameFrame();
    void samplesAboveTheDepthCountAsTheLargest();
    void halfChromaIsCodedAsItsMeansWouldBe_data();
    void halfChromaIsCodedAsItsMeansWouldBe();
    void whatCannotBeCodedIsRefused();
};

namespace {

struct Row {
    Profile profile;
    const char *name;
};
constexpr Row profiles[] = {{Profile::Proxy, "Proxy"}, {Profile::Lt, "LT"}, {Profile::Standard, "422"},
                            {Profile::Hq, "HQ"}, {Profile::P4444, "4444"}};

Format withDepth(Format format, int depth)
{
    format.bitDepth = depth;
    return format;
}

} // namespace

void ProresValidity::everyFormatDecodesToTheEncodersOwnReconstruction_data()
{
    QTest::addColumn<Format>("format");
    struct Size {
        int width;
        int height;
    };
    for (const Row &row : profiles) {
        for (const Size size : {Size {128, 64}, {720, 48}, {240, 20}, {2, 2}, {18, 33}, {114, 50}, {350, 15}}) {
            for (const Scan scan : {Scan::Progressive, Scan::TopFirst, Scan::BottomFirst}) {
                for (const int depth : {10, 12}) {
                    QTest::addRow("%s %dx%d scan %d, %d bit", row.name, size.width, size.height,
                                  static_cast<int>(scan), depth)
                        << withDepth(formatOf(row.profile, size.width, size.height, scan), depth);
                }
            }
        }
    }
    QTest::addRow("4444 of odd width") << formatOf(Profile::P4444, 37, 21);
}

void ProresValidity::everyFormatDecodesToTheEncodersOwnReconstruction()
{
    QFETCH(const Format, format);
    const OwnPicture picture = naturalLike(format);
    Judge judge(format);
    for (const int index : {1, 6}) {
        Settings settings;
        settings.index = index;
        Encoder encoder(format, settings);
        const QByteArray coded = encode(encoder, picture);
        QVERIFY(!coded.isEmpty());
        const AVFrame *decoded = judge.decode(coded);
        QVERIFY(decoded != nullptr);
        QCOMPARE(decoded->width, format.width);
        QCOMPARE(decoded->height, format.height);
        QCOMPARE(decoded->format, static_cast<int>(format.is444() ? AV_PIX_FMT_YUV444P12 : AV_PIX_FMT_YUV422P10));
        QCOMPARE(decoded->interlaced_frame != 0, format.isInterlaced());
        QCOMPARE(decoded->top_field_first != 0, format.scan == Scan::TopFirst);
        const Reconstruction own(format, picture, index, portableKernels());
        QVERIFY(own.farthest(*decoded) <= 1);
    }
    QCOMPARE(Judge::said(), QString());
}

void ProresValidity::headerSaysWhatTheFormatIs()
{
    Format format = formatOf(Profile::Hq, 720, 486, Scan::BottomFirst);
    format.rateNumerator = 30000;
    format.rateDenominator = 1001;
    format.aspect = 2;
    format.primaries = 6;
    format.transfer = 1;
    format.matrix = 6;
    Encoder encoder(format);
    const QByteArray frame = encode(encoder, naturalLike(format));
    const auto size = static_cast<quint32>(frame.size());
    QByteArray expected;
    for (int shift = 24; shift >= 0; shift -= 8)
        expected.append(static_cast<char>(size >> shift));
    expected += QByteArray::fromHex("69637066" "0094" "0000" "72766431" "02d0" "01e6" "88" "24" "06" "01" "06" "00" "00"
                                    "03");
    QCOMPARE(frame.left(28).toHex(), expected.toHex());
}

void ProresValidity::alphaComesBackAsItWas_data()
{
    QTest::addColumn<Format>("format");
    for (const int depth : {10, 12}) {
        for (const Scan scan : {Scan::Progressive, Scan::TopFirst, Scan::BottomFirst}) {
            Format format = withDepth(formatOf(Profile::P4444, 150, 70, scan), depth);
            format.hasAlpha = true;
            QTest::addRow("%d bit, scan %d", depth, static_cast<int>(scan)) << format;
        }
    }
}

void ProresValidity::alphaComesBackAsItWas()
{
    QFETCH(const Format, format);
    const OwnPicture picture = naturalLike(format);
    Encoder encoder(format);
    Judge judge(format);
    const AVFrame *decoded = judge.decode(encode(encoder, picture));
    QVERIFY(decoded != nullptr);
    QCOMPARE(decoded->format, static_cast<int>(AV_PIX_FMT_YUVA444P12));
    for (int y = 0; y < format.height; ++y) {
        for (int x = 0; x < format.width; ++x) {
            const int given = picture.at(3, x, y);
            const int expected = format.bitDepth == 12 ? given : given << 2 | given >> 8;
            QCOMPARE(decodedAt(*decoded, 3, x, y), expected);
        }
    }
    QCOMPARE(Judge::said(), QString());
}

void ProresValidity::everyIndexAndEveryExtremeDecodes_data()
{
    QTest::addColumn<Format>("format");
    QTest::newRow("Proxy") << formatOf(Profile::Proxy, 144, 32);
    QTest::newRow("HQ") << formatOf(Profile::Hq, 144, 32);
    QTest::newRow("4444, 12 bit") << withDepth(formatOf(Profile::P4444, 144, 32, Scan::TopFirst), 12);
}

void ProresValidity::everyIndexAndEveryExtremeDecodes()
{
    QFETCH(const Format, format);
    Judge judge(format);
    const auto largest = static_cast<std::uint16_t>((1 << format.bitDepth) - 1);
    OwnPicture bilevel(format);
    std::mt19937 random(3);
    for (auto &plane : bilevel.samples)
        std::ranges::generate(plane, [&] { return random() % 2 != 0 ? largest : std::uint16_t {0}; });
    OwnPicture flat(format);
    OwnPicture white(format);
    for (auto &plane : white.samples)
        std::ranges::fill(plane, largest);
    const OwnPicture noisy = noise(format, 4);
    const std::initializer_list<const OwnPicture *> pictures = {&bilevel, &flat, &white, &noisy};
    for (int index = 1; index <= 224; index += index < 8 ? 1 : 27) {
        Settings settings;
        settings.index = index;
        Encoder encoder(format, settings);
        for (const OwnPicture *picture : pictures) {
            const AVFrame *decoded = judge.decode(encode(encoder, *picture));
            QVERIFY(decoded != nullptr);
            const int farthest = Reconstruction(format, *picture, index, bestKernels()).farthest(*decoded);
            QVERIFY(farthest <= 1);
        }
    }
    QCOMPARE(Judge::said(), QString());
}

void ProresValidity::planesOfUnlikeStridesGiveTheSameFrame()
{
    const Format format = formatOf(Profile::Hq, 256, 32);
    const OwnPicture picture = naturalLike(format);
    Encoder encoder(format);
    Encoder other(format);
    Picture view = picture.view();
    std::vector<std::uint16_t> wide(200 * 32);
    for (int y = 0; y < 32; ++y) {
        for (int x = 0; x < 128; ++x)
            wide[static_cast<std::size_t>(y * 200 + x)] = picture.at(2, x, y);
    }
    view.plane[2] = wide.data();
    view.stride[2] = 200;
    QByteArray coded(static_cast<qsizetype>(other.room()), '\0');
    coded.resize(static_cast<qsizetype>(
        other.encode(view, reinterpret_cast<std::uint8_t *>(coded.data()), other.room()).bytes));
    QCOMPARE(coded, encode(encoder, picture));
}

void ProresValidity::samplesAboveTheDepthCountAsTheLargest()
{
    const Format format = formatOf(Profile::Standard, 160, 32);
    OwnPicture over = noise(format, 9);
    OwnPicture clamped = over;
    for (int p = 0; p < 3; ++p) {
        for (std::size_t i = 0; i < over.samples[p].size(); i += 3) {
            over.samples[p][i] = static_cast<std::uint16_t>(1024 + i * 77 % 64000);
            clamped.samples[p][i] = 1023;
        }
    }
    Encoder encoder(format);
    Encoder other(format);
    QCOMPARE(encode(encoder, over), encode(other, clamped));
}

void ProresValidity::halfChromaIsCodedAsItsMeansWouldBe_data()
{
    QTest::addColumn<Format>("format");
    QTest::newRow("whole slices") << formatOf(Profile::P4444, 256, 32);
    QTest::newRow("an odd raster") << formatOf(Profile::P4444, 150, 50);
    QTest::newRow("fields") << formatOf(Profile::P4444, 270, 70, Scan::BottomFirst);
    QTest::newRow("twelve bits") << withDepth(formatOf(Profile::P4444, 32, 16), 12);
}

void ProresValidity::halfChromaIsCodedAsItsMeansWouldBe()
{
    QFETCH(const Format, format);
    Format half = format;
    half.isChromaHalf = true;
    const OwnPicture whole = naturalLike(format);
    Format narrow = format;
    narrow.profile = Profile::Hq; // for its planes only
    OwnPicture given(narrow);
    OwnPicture meant(format);
    given.samples[0] = meant.samples[0] = whole.samples[0];
    const int last = format.width - 2;
    for (int p = 1; p < 3; ++p) {
        for (int y = 0; y < format.height; ++y) {
            for (int x = 0; x <= last; x += 2) {
                const int here = whole.at(p, x, y);
                const int next = x < last ? whole.at(p, x + 2, y) : here;
                given.at(p, x / 2, y) = meant.at(p, x, y) = static_cast<std::uint16_t>(here);
                meant.at(p, x + 1, y) = static_cast<std::uint16_t>((here + next + 1) / 2);
            }
        }
    }
    Encoder encoder(format);
    Encoder other(half);
    QCOMPARE(encode(other, given), encode(encoder, meant));
}

void ProresValidity::whatCannotBeCodedIsRefused()
{
    QVERIFY(isValid(formatOf(Profile::Hq, 2, 1)));
    QVERIFY(!isValid(formatOf(Profile::Hq, 0, 16)));
    QVERIFY(!isValid(formatOf(Profile::Hq, 16, 0)));
    QVERIFY(!isValid(formatOf(Profile::Hq, 17, 16)));
    QVERIFY(isValid(formatOf(Profile::P4444, 17, 16)));
    QVERIFY(!isValid(formatOf(Profile::Hq, 65536, 16)));
    QVERIFY(!isValid(formatOf(Profile::Hq, 16, 65536)));
    QVERIFY(!isValid(formatOf(Profile::Hq, 16, 1, Scan::TopFirst)));
    QVERIFY(!isValid(withDepth(formatOf(Profile::Hq, 16, 16), 8)));
    Format format = formatOf(Profile::Hq, 64, 64);
    format.hasAlpha = true;
    QVERIFY(!isValid(format));
    format.hasAlpha = false;
    format.isChromaHalf = true;
    QVERIFY(!isValid(format)); // it is so in 4:2:2 anyway
    format.isChromaHalf = false;
    Encoder encoder(format);
    const OwnPicture picture = naturalLike(format);
    std::uint8_t small[100];
    QCOMPARE(encoder.encode(picture.view(), small, sizeof small).bytes, std::size_t {0});
    QCOMPARE(encoder.encode(Picture {}, small, sizeof small).bytes, std::size_t {0});
}

QTEST_APPLESS_MAIN(ProresValidity)
#include "tst_prores_validity.moc"
