#include "libpicture/framebar.h"
#include "libpicture/patterns.h"
#include "libpicture/picture.h"
#include "libpicture/tone.h"

#include <QTest>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

using namespace picture;

namespace {

struct Picture {
    Picture(int width, int height)
        : samples(bytesFor(width, height) / 2)
        , view(viewOf(samples.data(), width, height))
    {
    }
    std::vector<std::uint16_t> samples;
    View view;
};

std::int32_t sampleAt(const std::vector<std::uint8_t> &pcm, std::size_t index)
{
    const std::uint8_t *b = pcm.data() + index * 3;
    const std::uint32_t bits = static_cast<std::uint32_t>(b[0])
                               | static_cast<std::uint32_t>(b[1]) << 8
                               | static_cast<std::uint32_t>(b[2]) << 16;
    return static_cast<std::int32_t>(bits << 8) / 256;
}

} // namespace

class TestPicture : public QObject
{
    Q_OBJECT

private slots:
    void rasters_data();
    void rasters();
    void everyBitOfTheNumberCounts();
    void aDamagedCellIsNoNumber();
    void aPictureWithoutABarHasNoNumber();
    void aBarWithLessContrastIsStillRead();
    void aHalfSizePictureStillCarriesTheNumber();
    void smallPicturesAreLeftAlone();
    void copyHonoursStrides();
    void copyOutCopiesAllAndNoMoreAtAnyAlignment();
    void barsHaveTheStandardLevels();
    void theRampRunsFrom4To1019();
    void theMovingPatternDiffersFromFrameToFrame();
    void theMovingPatternLeavesAnotherSizeAlone();
    void theNaturalPatternMovesAndStaysInsideItsPicture();
    void theNaturalPatternHasDetailOfEverySize();
    void textIsCutOffAtEveryEdge();
    void textShowsItsGlyphs();
    void theToneJoinsWithoutAClick();
    void theToneHasItsLevel_data();
    void theToneHasItsLevel();
    void samplesOfAnHour_data();
    void samplesOfAnHour();
};

void TestPicture::rasters_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::newRow("narrowest") << 128 << 32;
    QTest::newRow("525") << 720 << 486;
    QTest::newRow("625") << 720 << 576;
    QTest::newRow("720p") << 1280 << 720;
    QTest::newRow("1080") << 1920 << 1080;
    QTest::newRow("2K") << 2048 << 1080;
    QTest::newRow("UHD") << 3840 << 2160;
    QTest::newRow("4K") << 4096 << 2160;
}

void TestPicture::rasters()
{
    QFETCH(int, width);
    QFETCH(int, height);
    Picture picture(width, height);
    const MovingPattern pattern(width, height);
    for (const std::uint32_t number : {0U, 1U, 123456U, 0x7fffffffU, 0xffffffffU}) {
        pattern.draw(picture.view, number);
        QCOMPARE(readFrameNumber(picture.view), number);
    }
    const auto [low, high] = std::ranges::minmax_element(picture.samples);
    QVERIFY(*low >= 4 && *high <= 1019);
}

void TestPicture::everyBitOfTheNumberCounts()
{
    Picture picture(720, 486);
    for (int bit = 0; bit < 32; ++bit) {
        writeFrameNumber(picture.view, 1U << bit);
        QCOMPARE(readFrameNumber(picture.view), 1U << bit);
    }
}

void TestPicture::aDamagedCellIsNoNumber()
{
    // Fifty cells of twenty samples; each one in turn shows the other level.
    Picture picture(1000, 64);
    for (int cell = 0; cell < 50; ++cell) {
        drawBlack(picture.view);
        writeFrameNumber(picture.view, 987654321);
        for (int y = 0; y < frameBarHeight; ++y) {
            for (int x = cell * 20; x < cell * 20 + 20; ++x) {
                std::uint16_t &sample = picture.view.line(0, y)[x];
                sample = sample > 500 ? 64 : 940;
            }
        }
        QVERIFY(!readFrameNumber(picture.view));
    }
}

void TestPicture::aPictureWithoutABarHasNoNumber()
{
    Picture picture(1920, 1080);
    QVERIFY(!readFrameNumber(View {}));
    drawBlack(picture.view);
    QVERIFY(!readFrameNumber(picture.view));
    drawBars(picture.view);
    QVERIFY(!readFrameNumber(picture.view));
    drawRamp(picture.view);
    QVERIFY(!readFrameNumber(picture.view));
    std::ranges::fill(picture.samples, std::uint16_t {940});
    QVERIFY(!readFrameNumber(picture.view));
}

void TestPicture::aBarWithLessContrastIsStillRead()
{
    // What an output look-up table may do.
    Picture picture(1280, 720);
    writeFrameNumber(picture.view, 4242);
    for (std::uint16_t &sample : picture.samples)
        sample = static_cast<std::uint16_t>(300 + sample / 4);
    QCOMPARE(readFrameNumber(picture.view), 4242U);
}

void TestPicture::aHalfSizePictureStillCarriesTheNumber()
{
    for (const auto &[width, height] : {std::pair {720, 486}, {1920, 1080}, {4096, 2160}}) {
        Picture full(width, height);
        Picture half(width / 2, height / 2);
        MovingPattern(width, height).draw(full.view, 31415926);
        for (int y = 0; y < half.view.height; ++y) {
            for (int x = 0; x < half.view.width; ++x) {
                const std::uint16_t *a = full.view.line(0, 2 * y) + 2 * x;
                const std::uint16_t *b = full.view.line(0, 2 * y + 1) + 2 * x;
                const int sum = a[0] + a[1] + b[0] + b[1];
                half.view.line(0, y)[x] = static_cast<std::uint16_t>(sum / 4);
            }
        }
        QCOMPARE(readFrameNumber(half.view), 31415926U);
    }
}

void TestPicture::smallPicturesAreLeftAlone()
{
    for (const auto &[width, height] : {std::pair {126, 64}, {128, 30}, {2, 1}}) {
        Picture picture(width, height);
        writeFrameNumber(picture.view, 5);
        QVERIFY(std::ranges::all_of(picture.samples, [](int s) { return s == 0; }));
        QVERIFY(!readFrameNumber(picture.view));
    }
}

void TestPicture::copyHonoursStrides()
{
    Picture wide(64, 8);
    for (std::size_t i = 0; i < wide.samples.size(); ++i)
        wide.samples[i] = static_cast<std::uint16_t>(i & 1023);
    View part = wide.view;
    part.width = 32;
    part.height = 4;
    Picture out(32, 4);
    copy(part, out.view);
    for (int p = 0; p < 3; ++p) {
        for (int y = 0; y < 4; ++y)
            QVERIFY(std::equal(out.view.line(p, y), out.view.line(p, y) + (p == 0 ? 32 : 16),
                               wide.view.line(p, y)));
    }
}

void TestPicture::copyOutCopiesAllAndNoMoreAtAnyAlignment()
{
    for (int width = 2; width <= 300; width += 14) {
        constexpr int height = 5;
        Picture from(width, height);
        for (std::size_t i = 0; i < from.samples.size(); ++i)
            from.samples[i] = static_cast<std::uint16_t>(i * 7 % 1024);
        for (int shift = 0; shift < 40; shift += 3) {
            const int stride = width + 11;
            std::vector<std::uint16_t> memory(static_cast<std::size_t>(3 * stride * height + shift), 0xabcd);
            View to {width, height, {}, {stride, stride, stride}};
            for (int p = 0; p < 3; ++p)
                to.plane[p] = memory.data() + shift + p * stride * height;
            copyOut(from.view, to);
            for (int p = 0; p < 3; ++p) {
                const int samples = p == 0 ? width : width / 2;
                for (int y = 0; y < height; ++y) {
                    QVERIFY(std::equal(to.line(p, y), to.line(p, y) + samples, from.view.line(p, y)));
                    QVERIFY(std::all_of(to.line(p, y) + samples, to.line(p, y) + stride,
                                        [](std::uint16_t sample) { return sample == 0xabcd; }));
                }
            }
        }
    }
}

void TestPicture::barsHaveTheStandardLevels()
{
    struct Row {
        int height;
        int y[8];
    };
    // clang-format off
    static constexpr Row rows[] = {
        // lines, luma of white, yellow, cyan, green, magenta, red, blue, black
        {  576, {940, 646, 525, 450, 335, 260, 139, 64}},
        { 1080, {940, 674, 581, 534, 251, 204, 111, 64}},
    };
    // clang-format on
    for (const Row &row : rows) {
        Picture picture(1920, row.height);
        drawBars(picture.view);
        for (int i = 0; i < 8; ++i) {
            for (const int y : {0, row.height - 1}) {
                const int luma = picture.view.line(0, y)[i * 240 + 120];
                QVERIFY2(std::abs(luma - row.y[i]) <= 1, qPrintable(QString::number(luma)));
            }
        }
        QCOMPARE(picture.view.line(1, 5)[60], std::uint16_t {512});
    }
}

void TestPicture::theRampRunsFrom4To1019()
{
    Picture picture(1920, 16);
    drawRamp(picture.view);
    for (const int y : {0, 15}) {
        const std::uint16_t *line = picture.view.line(0, y);
        QCOMPARE(line[0], std::uint16_t {4});
        QCOMPARE(line[1919], std::uint16_t {1019});
        QVERIFY(std::is_sorted(line, line + 1920));
        QCOMPARE(picture.view.line(2, y)[959], std::uint16_t {512});
    }
}

void TestPicture::theMovingPatternDiffersFromFrameToFrame()
{
    Picture first(720, 576);
    Picture second(720, 576);
    const MovingPattern pattern(720, 576);
    pattern.draw(first.view, 100);
    pattern.draw(second.view, 101);
    // Below the bar and above the figures: the stripe has moved.
    QVERIFY(!std::equal(first.view.line(0, 200), first.view.line(0, 201),
                        second.view.line(0, 200)));
    pattern.draw(second.view, 100);
    QVERIFY(first.samples == second.samples);
}

void TestPicture::theMovingPatternLeavesAnotherSizeAlone()
{
    Picture picture(1280, 720);
    MovingPattern(720, 576).draw(picture.view, 1);
    QVERIFY(std::ranges::all_of(picture.samples, [](int s) { return s == 0; }));
}

void TestPicture::theNaturalPatternMovesAndStaysInsideItsPicture()
{
    NaturalPattern pattern(360, 288);
    Picture picture(360, 288);
    std::vector<std::uint16_t> before;
    for (std::uint32_t number : {0u, 1u, 21u, 22u, 31u, 32u, 64u, 65u, 0x7fffffffu, 0xffffffffu}) {
        pattern.draw(picture.view, number);
        QCOMPARE(readFrameNumber(picture.view), std::optional<std::uint32_t>(number));
        QVERIFY(std::ranges::all_of(picture.view.line(0, 200), picture.view.line(0, 201),
                                    [](int s) { return s >= 64 && s <= 940; }));
        QVERIFY(picture.samples != before);
        before = picture.samples;
        Picture fresh(360, 288);
        pattern.draw(fresh.view, number);
        QVERIFY(fresh.samples == picture.samples);
    }
    Picture another(720, 576);
    pattern.draw(another.view, 1);
    QVERIFY(std::ranges::all_of(another.samples, [](int s) { return s == 0; }));
}

void TestPicture::theNaturalPatternHasDetailOfEverySize()
{
    Picture picture(360, 288);
    drawNatural(picture.view, 0);
    // The further apart two samples are, the more they differ; but neighbours differ, too.
    double before = 0;
    for (int apart : {1, 4, 16, 64}) {
        double sum = 0;
        for (int y = 0; y < 288; ++y) {
            for (int x = 0; x + apart < 360; ++x)
                sum += std::abs(picture.view.line(0, y)[x] - picture.view.line(0, y)[x + apart]);
        }
        const double difference = sum / (288.0 * (360 - apart));
        QVERIFY2(difference > before + 2, qPrintable(QString::number(difference)));
        before = difference;
    }
}

void TestPicture::textIsCutOffAtEveryEdge()
{
    // A guard line and guard columns around a smaller view must stay as they are.
    Picture guard(96, 48);
    View inner = guard.view;
    inner.width = 64;
    inner.height = 32;
    inner.plane[0] += 16 + 8 * inner.stride[0];
    inner.plane[1] += 8 + 8 * inner.stride[1];
    inner.plane[2] += 8 + 8 * inner.stride[2];
    for (const int x : {-1000000, -17, -3, 0, 50, 63, 64, 2000000000}) {
        for (const int y : {-1000000, -9, 0, 25, 31, 32, 2000000000}) {
            for (const int scale : {-1, 0, 1, 3, 100, 1000000000})
                drawText(inner, x, y, scale, "Ag:;._-/ \x01\xff 0123");
        }
    }
    for (int y = 0; y < 48; ++y) {
        for (int x = 0; x < 96; ++x) {
            if (x < 16 || x >= 80 || y < 8 || y >= 40)
                QCOMPARE(guard.view.line(0, y)[x], std::uint16_t {0});
        }
    }
    drawText(inner, 0, 0, 2, nullptr);
    drawText(View {}, 0, 0, 2, "a");
}

void TestPicture::textShowsItsGlyphs()
{
    Picture one(64, 32);
    Picture other(64, 32);
    const std::string all = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz:;.-_/";
    std::vector<std::vector<std::uint16_t>> seen;
    for (const char c : all) {
        const char text[] = {c, '\0'};
        drawText(one.view, 4, 4, 2, text);
        QCOMPARE(std::ranges::count(seen, one.samples), 0);
        seen.push_back(one.samples);
    }
    drawText(other.view, 4, 4, 2, " ");
    QVERIFY(std::ranges::none_of(other.samples, [](int s) { return s == 940; }));
}

void TestPicture::theToneJoinsWithoutAClick()
{
    std::vector<std::uint8_t> whole(9600 * 2 * 3);
    writeTone(whole.data(), -4800, 9600, 2, -20.0);
    std::vector<std::uint8_t> joined(whole.size());
    std::size_t done = 0;
    for (const int block : {1, 1601, 1602, 47, 48, 4000, 2301}) {
        const std::int64_t position = -4800 + static_cast<std::int64_t>(done);
        writeTone(joined.data() + done * 6, position, block, 2, -20.0);
        done += static_cast<std::size_t>(block);
    }
    QCOMPARE(done, std::size_t {9600});
    QVERIFY(whole == joined);
}

void TestPicture::theToneHasItsLevel_data()
{
    QTest::addColumn<double>("level");
    QTest::addColumn<int>("peak");
    QTest::newRow("line-up") << -20.0 << 838861;
    QTest::newRow("full scale") << 0.0 << 8388607;
    QTest::newRow("above full scale is full scale") << 6.0 << 8388607;
    QTest::newRow("silence") << -200.0 << 0;
}

void TestPicture::theToneHasItsLevel()
{
    QFETCH(double, level);
    QFETCH(int, peak);
    std::vector<std::uint8_t> pcm(480 * 8 * 3);
    writeTone(pcm.data(), 0, 480, 8, level);
    int highest = 0;
    int lowest = 0;
    int rises = 0;
    for (std::size_t i = 0; i < 480; ++i) {
        const int value = sampleAt(pcm, i * 8);
        highest = std::max(highest, value);
        lowest = std::min(lowest, value);
        rises += i > 0 && sampleAt(pcm, (i - 1) * 8) <= 0 && value > 0 ? 1 : 0;
        for (std::size_t c = 1; c < 8; ++c)
            QCOMPARE(sampleAt(pcm, i * 8 + c), value);
    }
    QCOMPARE(highest, peak);
    QCOMPARE(lowest, -peak);
    QCOMPARE(rises, peak == 0 ? 0 : 10); // ten periods of 1 kHz
}

void TestPicture::samplesOfAnHour_data()
{
    QTest::addColumn<int>("num");
    QTest::addColumn<int>("den");
    QTest::addColumn<int>("frames");
    QTest::addColumn<qlonglong>("samples");
    QTest::newRow("25") << 25 << 1 << 90000 << 172800000LL;
    QTest::newRow("29.97") << 30000 << 1001 << 108000 << 172972800LL;
    QTest::newRow("23.98") << 24000 << 1001 << 86400 << 172972800LL;
    QTest::newRow("59.94") << 60000 << 1001 << 216000 << 172972800LL;
    QTest::newRow("60") << 60 << 1 << 216000 << 172800000LL;
}

void TestPicture::samplesOfAnHour()
{
    QFETCH(int, num);
    QFETCH(int, den);
    QFETCH(int, frames);
    QFETCH(qlonglong, samples);
    std::int64_t total = 0;
    const int mean = 48000 * den / num;
    for (int i = 0; i < frames; ++i) {
        const int count = samplesOfFrame(i, num, den);
        QVERIFY(count == mean || count == mean + 1);
        total += count;
        if (i % 5 == 4 && num == 30000)
            QCOMPARE(total, (i + 1) / 5 * std::int64_t {8008});
    }
    QCOMPARE(total, samples);
    QCOMPARE(samplesBeforeFrame(frames, num, den), samples);
    QCOMPARE(samplesBeforeFrame(-frames, num, den), -samples);
    QCOMPARE(samplesOfFrame(0, 0, 1), 0);
}

QTEST_APPLESS_MAIN(TestPicture)
#include "tst_picture.moc"
