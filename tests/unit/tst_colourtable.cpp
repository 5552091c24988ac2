#include "colourreference.h"
#include "libpicture/colourtable.h"
#include "libpicture/patterns.h"

#include <QTest>

#include <cstdlib>
#include <random>

using colourreference::Pair;
using picture::ColourMatrix;
using picture::ColourTable;
using picture::View;

Q_DECLARE_METATYPE(picture::ColourMatrix)

namespace {

/// A picture in memory of its own, with lines longer than the picture.
struct Canvas {
    Canvas(int width, int height, int padding = 0)
    {
        view.width = width;
        view.height = height;
        for (int p = 0; p < 3; ++p) {
            view.stride[p] = (p == 0 ? width : width / 2) + padding;
            memory[p].assign(std::size_t(view.stride[p]) * std::size_t(height), 512);
            view.plane[p] = memory[p].data();
        }
    }
    void setPair(int x, int y, const Pair &pair) const
    {
        view.line(0, y)[2 * x] = std::uint16_t(pair.left);
        view.line(0, y)[2 * x + 1] = std::uint16_t(pair.right);
        view.line(1, y)[x] = std::uint16_t(pair.cb);
        view.line(2, y)[x] = std::uint16_t(pair.cr);
    }
    Pair pair(int x, int y) const
    {
        return {view.line(0, y)[2 * x], view.line(0, y)[2 * x + 1], view.line(1, y)[x],
                view.line(2, y)[x]};
    }
    std::vector<std::uint16_t> memory[3];
    View view;
};

std::shared_ptr<const ColourTable> tableOf(const std::vector<std::int16_t> &planes,
                                           ColourMatrix matrix = ColourMatrix::Bt709)
{
    return ColourTable::make(planes.data(), int(planes.size() / 3), matrix);
}

/// Pairs whose colours lie within the codes, and some that do not.
Canvas noise(int width, int height, int padding = 0)
{
    Canvas canvas(width, height, padding);
    std::mt19937 random(7);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width / 2; ++x)
            canvas.setPair(x, y, {int(random() % 1024), int(random() % 1024),
                                  int(300 + random() % 424), int(300 + random() % 424)});
    }
    return canvas;
}

} // namespace

class TestColourTable : public QObject
{
    Q_OBJECT
private slots:
    void whatChangesNothingIsNoTable();
    void greyGoesThroughTheCurveExactly_data();
    void greyGoesThroughTheCurveExactly();
    void coloursGoThroughTheirCurves_data();
    void coloursGoThroughTheirCurves();
    void aTableOfAnotherLengthIsSpreadOverTheCodes_data();
    void aTableOfAnotherLengthIsSpreadOverTheCodes();
    void valuesBeyondTheCodesAreHeldAtTheirEnds();
    void coloursBeyondTheCodesStayWithinThem();
    void aPictureMayBeItsOwnResult();
    void onlyTheLinesAskedForAreWritten();
    void samplesBeyondTenBitsDoNoHarm();
    void picturesOfDifferentSizesAreLeftAlone();
    void theMatrixFollowsTheRaster();
    void aFullHdPicture();
};

void TestColourTable::whatChangesNothingIsNoTable()
{
    std::vector<std::int16_t> same(3 * 1024);
    for (std::size_t i = 0; i < same.size(); ++i)
        same[i] = std::int16_t(i % 1024);
    QVERIFY(!tableOf(same));
    const std::vector<std::int16_t> line{0, 1023, 0, 1023, 0, 1023};
    QVERIFY(!tableOf(line));
    same[2048 + 17] = 18;
    QVERIFY(tableOf(same));
    QVERIFY(!ColourTable::make(nullptr, 1024, ColourMatrix::Bt709));
    QVERIFY(!ColourTable::make(same.data(), 1, ColourMatrix::Bt709));
    QVERIFY(!ColourTable::make(same.data(), 0, ColourMatrix::Bt709));
}

void TestColourTable::greyGoesThroughTheCurveExactly_data()
{
    QTest::addColumn<ColourMatrix>("matrix");
    QTest::addColumn<int>("curve");
    for (int curve = 0; curve < 3; ++curve) {
        QTest::addRow("601, curve %d", curve) << ColourMatrix::Bt601 << curve;
        QTest::addRow("709, curve %d", curve) << ColourMatrix::Bt709 << curve;
    }
}

void TestColourTable::greyGoesThroughTheCurveExactly()
{
    QFETCH(ColourMatrix, matrix);
    QFETCH(int, curve);
    const auto value = [curve](int code) {
        const int steep = std::min(1023, code * 4);
        return curve == 0 ? 1023 - code : curve == 1 ? steep : int(std::lround(std::sqrt(code * 1023.0)));
    };
    std::vector<std::int16_t> planes(3 * 1024);
    for (std::size_t i = 0; i < planes.size(); ++i)
        planes[i] = std::int16_t(value(int(i % 1024)));
    Canvas canvas(1024, 1);
    for (int x = 0; x < 1024; ++x)
        canvas.view.line(0, 0)[x] = std::uint16_t(x);
    tableOf(planes, matrix)->apply(canvas.view, canvas.view);
    for (int x = 0; x < 1024; ++x) {
        QCOMPARE(int(canvas.view.line(0, 0)[x]), value(x));
        QCOMPARE(int(canvas.view.line(1, 0)[x / 2]), 512);
        QCOMPARE(int(canvas.view.line(2, 0)[x / 2]), 512);
    }
}

void TestColourTable::coloursGoThroughTheirCurves_data()
{
    QTest::addColumn<ColourMatrix>("matrix");
    QTest::addColumn<bool>("isInverted");
    QTest::newRow("601, inverted") << ColourMatrix::Bt601 << true;
    QTest::newRow("709, inverted") << ColourMatrix::Bt709 << true;
    QTest::newRow("601, graded") << ColourMatrix::Bt601 << false;
    QTest::newRow("709, graded") << ColourMatrix::Bt709 << false;
}

void TestColourTable::coloursGoThroughTheirCurves()
{
    QFETCH(ColourMatrix, matrix);
    QFETCH(bool, isInverted);
    const auto planes = isInverted ? colourreference::inverted() : colourreference::graded();
    const Canvas from = noise(600, 40, 8);
    const Canvas to(600, 40, 2);
    tableOf(planes, matrix)->apply(from.view, to.view);
    for (int y = 0; y < 40; ++y) {
        for (int x = 0; x < 300; ++x) {
            const Pair want = colourreference::through(from.pair(x, y), planes, matrix);
            const Pair got = to.pair(x, y);
            const int worst = std::max({std::abs(want.left - got.left), std::abs(want.right - got.right),
                                        std::abs(want.cb - got.cb), std::abs(want.cr - got.cr)});
            QVERIFY2(worst <= 1, qPrintable(QStringLiteral("%1 off at %2,%3").arg(worst).arg(x).arg(y)));
        }
    }
}

void TestColourTable::aTableOfAnotherLengthIsSpreadOverTheCodes_data()
{
    QTest::addColumn<int>("entries");
    for (const int entries : {2, 3, 32, 1024, 4096, 65536})
        QTest::addRow("%d", entries) << entries;
}

void TestColourTable::aTableOfAnotherLengthIsSpreadOverTheCodes()
{
    QFETCH(int, entries);
    std::vector<std::int16_t> planes(std::size_t(entries) * 3);
    for (std::size_t i = 0; i < planes.size(); ++i)
        planes[i] = std::int16_t(1023 - std::lround(double(i % std::size_t(entries)) * 1023 / (entries - 1)));
    Canvas canvas(1024, 1);
    for (int x = 0; x < 1024; ++x)
        canvas.view.line(0, 0)[x] = std::uint16_t(x);
    tableOf(planes)->apply(canvas.view, canvas.view);
    for (int x = 0; x < 1024; ++x)
        QVERIFY(std::abs(int(canvas.view.line(0, 0)[x]) - (1023 - x)) <= 1);
}

void TestColourTable::valuesBeyondTheCodesAreHeldAtTheirEnds()
{
    const std::vector<std::int16_t> planes{-32768, 32767, -32768, 32767, -32768, 32767};
    Canvas canvas(4, 1);
    for (int x = 0; x < 4; ++x)
        canvas.view.line(0, 0)[x] = std::uint16_t(x * 341);
    tableOf(planes)->apply(canvas.view, canvas.view);
    QCOMPARE(int(canvas.view.line(0, 0)[0]), 0);
    QCOMPARE(int(canvas.view.line(0, 0)[1]), 0);
    QCOMPARE(int(canvas.view.line(0, 0)[2]), 1023);
    QCOMPARE(int(canvas.view.line(0, 0)[3]), 1023);
}

void TestColourTable::coloursBeyondTheCodesStayWithinThem()
{
    const int ends[] = {0, 1, 511, 512, 1022, 1023};
    for (const ColourMatrix matrix : {ColourMatrix::Bt601, ColourMatrix::Bt709}) {
        for (const auto &planes : {colourreference::inverted(), colourreference::graded()}) {
            const auto table = tableOf(planes, matrix);
            for (int i = 0; i < 6 * 6 * 6 * 6; ++i) {
                const Pair pair{ends[i % 6], ends[i / 6 % 6], ends[i / 36 % 6], ends[i / 216]};
                const Canvas canvas(2, 1);
                canvas.setPair(0, 0, pair);
                table->apply(canvas.view, canvas.view);
                const Pair want = colourreference::through(pair, planes, matrix);
                const Pair got = canvas.pair(0, 0);
                QVERIFY(std::abs(want.left - got.left) <= 1 && std::abs(want.right - got.right) <= 1);
                QVERIFY(std::abs(want.cb - got.cb) <= 1 && std::abs(want.cr - got.cr) <= 1);
                QVERIFY(std::max({got.left, got.right, got.cb, got.cr}) <= 1023);
            }
        }
    }
}

void TestColourTable::aPictureMayBeItsOwnResult()
{
    // Neither a whole number of blocks nor less than one.
    const Canvas from = noise(514, 3);
    const Canvas to(514, 3);
    const auto table = tableOf(colourreference::graded());
    table->apply(from.view, to.view);
    table->apply(from.view, from.view);
    for (int p = 0; p < 3; ++p)
        QCOMPARE(from.memory[p], to.memory[p]);
}

void TestColourTable::onlyTheLinesAskedForAreWritten()
{
    const Canvas from = noise(30, 6, 4);
    const Canvas whole(30, 6, 4);
    const Canvas part(30, 6, 4);
    const auto table = tableOf(colourreference::inverted());
    table->apply(from.view, whole.view);
    table->apply(from.view, part.view, 2, 4);
    for (int p = 0; p < 3; ++p) {
        for (int y = 0; y < 6; ++y) {
            for (int x = 0; x < part.view.stride[p]; ++x) {
                const bool isWritten = y >= 2 && y < 4 && x < (p == 0 ? 30 : 15);
                QCOMPARE(part.view.line(p, y)[x], isWritten ? whole.view.line(p, y)[x] : std::uint16_t(512));
            }
        }
    }
    table->apply(from.view, part.view, -3, 99);
    for (int p = 0; p < 3; ++p)
        QCOMPARE(part.memory[p], whole.memory[p]);
}

void TestColourTable::samplesBeyondTenBitsDoNoHarm()
{
    Canvas canvas(64, 2);
    for (int p = 0; p < 3; ++p)
        std::fill(canvas.memory[p].begin(), canvas.memory[p].end(), std::uint16_t(0xffff));
    tableOf(colourreference::graded())->apply(canvas.view, canvas.view);
    for (int p = 0; p < 3; ++p)
        QVERIFY(std::ranges::all_of(canvas.memory[p], [](std::uint16_t v) { return v <= 1023; }));
}

void TestColourTable::picturesOfDifferentSizesAreLeftAlone()
{
    const Canvas from = noise(32, 4);
    const Canvas to(30, 4);
    const auto table = tableOf(colourreference::inverted());
    table->apply(from.view, to.view);
    table->apply(from.view, View());
    table->apply(View(), to.view);
    QVERIFY(std::ranges::all_of(to.memory[0], [](std::uint16_t v) { return v == 512; }));
}

void TestColourTable::theMatrixFollowsTheRaster()
{
    QCOMPARE(picture::matrixOf(480), ColourMatrix::Bt601);
    QCOMPARE(picture::matrixOf(576), ColourMatrix::Bt601);
    QCOMPARE(picture::matrixOf(720), ColourMatrix::Bt709);
    QCOMPARE(picture::matrixOf(1080), ColourMatrix::Bt709);
}

void TestColourTable::aFullHdPicture()
{
    const Canvas from = noise(1920, 1080);
    const Canvas to(1920, 1080);
    const auto table = tableOf(colourreference::graded());
    QBENCHMARK {
        table->apply(from.view, to.view);
    }
}

QTEST_APPLESS_MAIN(TestColourTable)
#include "tst_colourtable.moc"
