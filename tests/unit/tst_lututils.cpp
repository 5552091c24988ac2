#include "libvanta/lututils.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <vector>

using lumo::utils::LUT_Utils;

class TestLutUtils : public QObject
{
    Q_OBJECT
private slots:
    void tablesAndTheirFaults_data();
    void tablesAndTheirFaults();
    void aPlainTableKeepsItsValues();
    void aCubeIsScaledOverItsDomain();
    void aMissingFileCannotBeOpened();

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
    QTest::newRow("plain, one column")   << QByteArray("0\n1\n2\n1023\n")                 << true  << 4 << QString();
    QTest::newRow("plain, comments")     << QByteArray("# x\n0 0 0\n\n1 1 1 # y\n")        << true  << 2 << QString();
    QTest::newRow("more rows than room") << QByteArray("0\n1\n2\n3\n4\n5\n")               << true  << 6 << QString();
    QTest::newRow("empty")               << QByteArray("")                                << false << 0 << QStringLiteral("no table rows");
    QTest::newRow("two columns")         << QByteArray("0 0\n")                           << false << 0 << QStringLiteral("line 1: one or three numbers expected");
    QTest::newRow("words")               << QByteArray("0\nhello world\n")                << false << 0 << QStringLiteral("line 2: \"hello\" is not understood");
    QTest::newRow("value too large")     << QByteArray("0\n1024\n")                       << false << 0 << QStringLiteral("row 2 holds a value outside 0..1023");
    QTest::newRow("fraction in a table") << QByteArray("0.5\n")                           << false << 0 << QStringLiteral("row 1 holds a value outside 0..1023");
    QTest::newRow("three-dimensional")   << QByteArray("LUT_3D_SIZE 2\n0 0 0\n")          << false << 0 << QStringLiteral("line 1: three-dimensional tables are not supported");
    QTest::newRow("cube, wrong count")   << QByteArray("LUT_1D_SIZE 3\n0 0 0\n1 1 1\n")   << false << 0 << QStringLiteral("LUT_1D_SIZE says 3 rows, the file holds 2");
    QTest::newRow("cube, empty domain")  << QByteArray("DOMAIN_MAX 0 0 0\nLUT_1D_SIZE 2\n0 0 0\n1 1 1\n") << false << 0 << QStringLiteral("the domain is empty");
    QTest::newRow("not a number")        << QByteArray("0 nan 0\n")                       << false << 0 << QStringLiteral("line 1: one or three numbers expected");
    QTest::newRow("bytes")               << QByteArray("\x01\x02\xff\xfe", 4)             << false << 0 << QStringLiteral("line 1: one or three numbers expected");
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

void TestLutUtils::aCubeIsScaledOverItsDomain()
{
    const Result r = parse("TITLE \"x\"\nLUT_1D_SIZE 4\nDOMAIN_MIN 0 0 0\nDOMAIN_MAX 1 2 1\n"
                           "0 0 0\n0.5 1 0.25\n1 2 1.5\n1 1 -1\n");
    QVERIFY(r.ok);
    QCOMPARE(r.planes, std::vector<short>({0, 512, 1023, 1023, 0, 512, 1023, 512, 0, 256, 1023, 0}));
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

QTEST_APPLESS_MAIN(TestLutUtils)
#include "tst_lututils.moc"
