#include "libvanta/file.h"
#include "libvanta/lututils.h"
#include "libvanta/withintime.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <sys/stat.h>

using lumo::utils::LUT_Utils;

class TestLutUtils : public QObject
{
    Q_OBJECT
private slots:
    void tablesAndTheirFaults_data();
    void tablesAndTheirFaults();
    void aPlainTableKeepsItsValues();
    void aCubeHoldsSharesOfTheLargestCode();
    void aCubesRowsAreSpreadOverItsDomain_data();
    void aCubesRowsAreSpreadOverItsDomain();
    void wildDomainsDoNoHarm_data();
    void wildDomainsDoNoHarm();
    void aTableThatDoesNotFitLeavesThePlanes();
    void whatIsNoRegularFileIsRefused();
    void theLargestTexts_data();
    void theLargestTexts();
    void aMissingFileCannotBeOpened();
    void workThatHangsIsLeftBehind();
    void aFileExistsWhenItIsNoFolder();

private:
    struct Result {
        bool ok;
        int read;
        std::string error;
        std::vector<short> planes;
    };
    Result parse(const QByteArray &text, int entries = 4);
    QTemporaryDir _dir;
};

TestLutUtils::Result TestLutUtils::parse(const QByteArray &text, int entries)
{
    const QString path = _dir.filePath(QStringLiteral("table"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return {};
    file.write(text);
    file.close();
    Result r{false, 0, {}, std::vector<short>(static_cast<std::size_t>(entries) * 3, -1)};
    std::string name = path.toStdString();
    short *red = r.planes.data();
    r.ok = LUT_Utils::parse(name, red, red + entries, red + 2 * entries, entries, r.read, r.error);
    return r;
}

void TestLutUtils::tablesAndTheirFaults_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<int>("read");
    QTest::addColumn<QString>("error");
    // clang-format off
    const auto row = [](const char *name, const QByteArray &text, int read, const char *error = "") {
        QTest::newRow(name) << text << (*error == 0) << read << QString::fromLatin1(error);
    };
    // Tables that are read, whether they fit or not.
    row("plain, one column",    "0\n1\n2\n1023\n", 4);
    row("plain, no last end",   "0\n1\n2\n1023", 4);
    row("plain, comments",      "# x\n0 0 0\n\n1 1 1 # y\n", 2);
    row("plain, one row",       "7\n", 1);
    row("plain, 1000 rows",     QByteArray("5\n").repeated(1000), 1000);
    row("plain, most rows",     QByteArray("5\n").repeated(65536), 65536);
    row("more rows than room",  "0\n1\n2\n3\n4\n5\n", 6);
    row("cube of 4",            "LUT_1D_SIZE 4\n0 0 0\n.3 .3 .3\n.6 .6 .6\n1 1 1\n", 4);
    row("cube of 2",            "LUT_1D_SIZE 2\n0 0 0\n1 1 1\n", 2);
    row("cube that is cut",     "LUT_1D_SIZE 4\n0 0 0\n.3 .3 .3\n.6 .6 .6\n", 3);
    row("cube, all its words",  "# by hand\nTITLE \"a # b\"\nLUT_1D_SIZE 4\nDOMAIN_MIN 0 0 0\nDOMAIN_MAX 1 1 1\n0 0 0\n0 0 0\n0 0 0\n1 1 1\n", 4);
    row("cube, size at last",   "0 0 0\n1 1 1\nLUT_1D_SIZE 2\n", 2);
    row("ends of lines",        "1\r\n2\r3\n\r4\r", 4);
    row("mark of UTF-8",        "\xef\xbb\xbf" "1\n2\n", 2);
    row("tabs and blanks",      " 1\t1  1 \n\t2 2 2\n", 2);
    row("signs and exponents",  "LUT_1D_SIZE 2\n+0.5 5e-1 -1E-3\n1. .5 +1e0\n", 2);
    // Files that are no tables.
    row("empty",                "", 0, "no table rows");
    row("comments only",        "# a\n\n# b", 0, "no table rows");
    row("size only",            "LUT_1D_SIZE 4\n", 0, "no table rows");
    row("two columns",          "0 0\n", 0, "line 1: one or three numbers expected");
    row("four columns",         "0 0 0 0\n", 0, "line 1: one or three numbers expected");
    row("columns change",       "0 0 0\n0\n", 0, "line 2: as many numbers as in the rows before expected");
    row("words",                "0\nhello world\n", 0, "line 2: \"hello\" is not understood");
    row("a long word",          "x" + QByteArray(100000, 'y'), 0, "line 1: \"xyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyy...\" is not understood");
    row("a word of bytes",      "x\x1b[2J\xff\n", 0, "line 1: no text");
    row("a word of high bytes", "x\xff\xfe\n", 0, "line 1: \"x\?\?\" is not understood");
    row("value too large",      "0\n1024\n", 0, "row 2: whole numbers 0..1023 expected");
    row("value too small",      "0\n-1\n", 0, "row 2: whole numbers 0..1023 expected");
    row("fraction in a table",  "0.5\n", 0, "row 1: whole numbers 0..1023 expected");
    row("too many rows",        QByteArray("5\n").repeated(65537), 0, "line 65537: more than 65536 rows");
    row("three-dimensional",    "LUT_3D_SIZE 2\n0 0 0\n", 0, "line 1: three-dimensional tables are not supported");
    row("its input range",      "LUT_3D_INPUT_RANGE 0 1\n", 0, "line 1: three-dimensional tables are not supported");
    row("cube says less",       "LUT_1D_SIZE 3\n0 0 0\n0 0 0\n0 0 0\n1 1 1\n", 0, "LUT_1D_SIZE says 3 rows, the file holds 4");
    row("cube without a size",  "TITLE \"x\"\n0 0 0\n1 1 1\n", 0, "LUT_1D_SIZE is missing");
    row("cube, two sizes",      "LUT_1D_SIZE 2\nLUT_1D_SIZE 2\n", 0, "line 2: LUT_1D_SIZE is not one whole number 2..65536");
    row("cube, size of 1",      "LUT_1D_SIZE 1\n", 0, "line 1: LUT_1D_SIZE is not one whole number 2..65536");
    row("cube, size of 2.5",    "LUT_1D_SIZE 2.5\n", 0, "line 1: LUT_1D_SIZE is not one whole number 2..65536");
    row("cube, huge size",      "LUT_1D_SIZE 1e300\n", 0, "line 1: LUT_1D_SIZE is not one whole number 2..65536");
    row("cube, no size number", "LUT_1D_SIZE\n", 0, "line 1: LUT_1D_SIZE is not one whole number 2..65536");
    row("cube, size in words",  "LUT_1D_SIZE many\n", 0, "line 1: LUT_1D_SIZE is not one whole number 2..65536");
    row("cube, empty domain",   "DOMAIN_MAX 0 0 0\nLUT_1D_SIZE 2\n0 0 0\n1 1 1\n", 0, "the domain is empty");
    row("cube, half a domain",  "DOMAIN_MAX 0 0\n", 0, "line 1: DOMAIN_MAX is not three numbers");
    row("cube, no domain",      "DOMAIN_MIN\n", 0, "line 1: DOMAIN_MIN is not three numbers");
    row("cube, half a range",   "LUT_1D_INPUT_RANGE 0\n", 0, "line 1: LUT_1D_INPUT_RANGE is not two numbers");
    row("cube, range in words", "LUT_1D_INPUT_RANGE 0 x\n", 0, "line 1: LUT_1D_INPUT_RANGE is not two numbers");
    row("cube, other words",    "LUT_OUT_VIDEO_RANGE\n", 0, "line 1: \"LUT_OUT_VIDEO_RANGE\" is not understood");
    row("not a number",         "0 nan 0\n", 0, "line 1: one or three numbers expected");
    row("infinity",             "0 inf 0\n", 0, "line 1: one or three numbers expected");
    row("beyond numbers",       "0 1e999 0\n", 0, "line 1: one or three numbers expected");
    row("two signs",            "+-1\n", 0, "line 1: one or three numbers expected");
    row("a long number",        QByteArray(100000, '1'), 0, "line 1: one or three numbers expected");
    row("hexadecimal",          "0x10\n", 0, "line 1: one or three numbers expected");
    row("bytes",                QByteArray("\x01\x02\xff\xfe", 4), 0, "line 1: no text");
    row("zeroes",               QByteArray(100000, '\0'), 0, "line 1: no text");
    row("a zero in a row",      QByteArray("1\n2\0003\n", 6), 0, "line 2: no text");
    row("too large",            QByteArray("# 456789\n").repeated((4 << 20) / 9 + 1), 0, "larger than any table");
    // clang-format on
}

void TestLutUtils::tablesAndTheirFaults()
{
    QFETCH(QByteArray, text);
    const Result r = parse(text);
    QTEST(r.ok, "ok");
    QTEST(r.read, "read");
    QTEST(QString::fromStdString(r.error), "error");
}

void TestLutUtils::aPlainTableKeepsItsValues()
{
    const Result r = parse("0 10 20\n1 11 21\n2 12 22\n3 13 1023\n");
    QCOMPARE(r.planes, std::vector<short>({0, 1, 2, 3, 10, 11, 12, 13, 20, 21, 22, 1023}));
}

void TestLutUtils::aCubeHoldsSharesOfTheLargestCode()
{
    const Result r = parse("TITLE \"x\"\nLUT_1D_SIZE 4\n0 0.25 2\n0.5 1 -1\n1 0.001 0.0005\n0.75 0 0.0004\n");
    QVERIFY(r.ok);
    QCOMPARE(r.planes, std::vector<short>({0, 512, 1023, 767, 256, 1023, 1, 0, 1023, 0, 1, 0}));
}

/// The domain says which inputs the rows are for, not what is in them.
void TestLutUtils::aCubesRowsAreSpreadOverItsDomain_data()
{
    QTest::addColumn<QByteArray>("words");
    QTest::newRow("by colour") << QByteArray("DOMAIN_MIN -1 0 0\nDOMAIN_MAX 2 2 0.5\n");
    QTest::newRow("one range") << QByteArray("LUT_1D_INPUT_RANGE 0 2\n");
    QTest::newRow("one number") << QByteArray("DOMAIN_MIN 0\nDOMAIN_MAX 2\n");
}

void TestLutUtils::aCubesRowsAreSpreadOverItsDomain()
{
    QFETCH(QByteArray, words);
    const Result r = parse("LUT_1D_SIZE 4\n" + words + "0 0 0\n0.31 0.31 0.31\n0.62 0.62 0.62\n0.93 0.93 0.93\n");
    QVERIFY(r.ok);
    QCOMPARE(r.read, 4);
    // Inputs 0, 1/3, 2/3 and 1 stand at these rows.
    const bool byColour = words.contains("-1");
    const std::vector<double> places[3] = {
        byColour ? std::vector<double>{1, 4 / 3.0, 5 / 3.0, 2} : std::vector<double>{0, 0.5, 1, 1.5},
        {0, 0.5, 1, 1.5},
        byColour ? std::vector<double>{0, 2, 3, 3} : std::vector<double>{0, 0.5, 1, 1.5}};
    for (std::size_t colour = 0; colour < 3; ++colour) {
        for (std::size_t i = 0; i < 4; ++i)
            QCOMPARE(int(r.planes[colour * 4 + i]), int(std::lround(places[colour][i] * 0.31 * 1023)));
    }
}

void TestLutUtils::wildDomainsDoNoHarm_data()
{
    QTest::addColumn<QByteArray>("words");
    QTest::newRow("from end to end") << QByteArray("LUT_1D_INPUT_RANGE -1.7e308 1.7e308\n");
    QTest::newRow("hardly any") << QByteArray("LUT_1D_INPUT_RANGE 0 5e-324\n");
    QTest::newRow("far above") << QByteArray("LUT_1D_INPUT_RANGE 1e300 1.7e308\n");
    QTest::newRow("far below") << QByteArray("LUT_1D_INPUT_RANGE -1.7e308 -1e300\n");
}

void TestLutUtils::wildDomainsDoNoHarm()
{
    QFETCH(QByteArray, words);
    const Result r = parse("LUT_1D_SIZE 4\n" + words + "1e308 0 0\n-1e308 0 0\n1e308 0 0\n-1e308 1 1\n");
    QVERIFY(r.ok);
    for (const short value : r.planes)
        QVERIFY(value >= 0 && value <= 1023);
}

void TestLutUtils::aTableThatDoesNotFitLeavesThePlanes()
{
    for (const char *text : {"1\n2\n3\n", "1\n2\n3\n4\n5\n", "nonsense"}) {
        const Result r = parse(text);
        QCOMPARE(r.planes, std::vector<short>(12, -1));
    }
}

void TestLutUtils::whatIsNoRegularFileIsRefused()
{
    const QString pipe = _dir.filePath(QStringLiteral("pipe"));
    QCOMPARE(mkfifo(qPrintable(pipe), 0600), 0); // nobody ever writes to it
    short planes[3] = {};
    for (const std::string &path : {pipe.toStdString(), _dir.path().toStdString(), std::string("/dev/zero")}) {
        std::string name = path;
        int read = 7;
        std::string error;
        QVERIFY(!LUT_Utils::parse(name, planes, planes + 1, planes + 2, 1, read, error));
        QCOMPARE(read, 0);
        QCOMPARE(error, std::string("is no regular file"));
    }
}

/// The largest texts there can be, of each kind, are read without a sign of how long it takes: the time is the
/// benchmark's.
void TestLutUtils::theLargestTexts_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("rows of a .cube")
        << "LUT_1D_SIZE 65536\n" +
               QByteArray("0.12345678901234567 0.12345678901234567 0.1234567890123456\n").repeated(65536);
    QTest::newRow("empty lines") << QByteArray(4 << 20, '\n');
    QTest::newRow("one comment") << QByteArray(4 << 20, '#');
    QTest::newRow("words in one line") << QByteArray("1 ").repeated(2 << 20);
    QTest::newRow("titles") << QByteArray("TITLE\n").repeated((4 << 20) / 6);
}

void TestLutUtils::theLargestTexts()
{
    QFETCH(QByteArray, text);
    QVERIFY(text.size() <= (4 << 20));
    QBENCHMARK {
        parse(text);
    }
}

void TestLutUtils::aMissingFileCannotBeOpened()
{
    std::string name = "/no/such/table";
    short planes[3] = {};
    int read = 7;
    std::string error;
    QVERIFY(!LUT_Utils::parse(name, planes, planes + 1, planes + 2, 1, read, error));
    QCOMPARE(read, 0);
    QCOMPARE(error, std::string("cannot be opened"));
}

void TestLutUtils::workThatHangsIsLeftBehind()
{
    struct Gate {
        std::mutex mutex;
        std::condition_variable changed;
        bool isOpen = false;
        int passed = 0;
    };
    const auto gate = std::make_shared<Gate>();
    const auto hang = [gate] {
        std::unique_lock lock(gate->mutex);
        gate->changed.wait(lock, [&] { return gate->isOpen; });
        ++gate->passed;
        gate->changed.notify_all();
    };
    const auto nothing = [] {};
    const auto patient = std::chrono::minutes(1);
    QVERIFY(lumo::utils::withinTime(patient, nothing));
    for (int i = 0; i < 8; ++i)
        QVERIFY(!lumo::utils::withinTime(std::chrono::milliseconds(0), hang));
    // Not one thread more, however often it is asked for.
    for (int i = 0; i < 100; ++i)
        QVERIFY(!lumo::utils::withinTime(patient, nothing));
    std::unique_lock lock(gate->mutex);
    gate->isOpen = true;
    gate->changed.notify_all();
    gate->changed.wait(lock, [&] { return gate->passed == 8; });
    lock.unlock();
    while (!lumo::utils::withinTime(patient, nothing))
        std::this_thread::yield();
}

void TestLutUtils::aFileExistsWhenItIsNoFolder()
{
    using lumo::utils::file::File;
    const std::string file = _dir.filePath(QStringLiteral("file")).toStdString();
    QVERIFY(!File::file_exists(file));
    QFile made(QString::fromStdString(file));
    QVERIFY(made.open(QIODevice::WriteOnly));
    QVERIFY(File::file_exists(file));
    QVERIFY(!File::file_exists(_dir.path().toStdString()));
    QVERIFY(!File::file_exists(std::string()));
    QVERIFY(!File::file_exists(file + '\0' + "behind"));
    QVERIFY(!File::file_exists(file + "/below"));
    QVERIFY(!File::file_exists(std::string(100000, 'x')));
}

QTEST_APPLESS_MAIN(TestLutUtils)
#include "tst_lututils.moc"
