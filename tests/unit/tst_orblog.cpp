#include "liborb/orbconnect.h"
#include "liborb/orblog.h"

#include <QDateTime>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <thread>
#include <vector>

#include <unistd.h>

static const char logFile[] = "tst_orblog.cpp";

class TestOrbLog : public QObject
{
    Q_OBJECT

private slots:
    void theThresholdStartsAtInformation();
    void theThresholdKeepsWhatIsNotAboveIt();
    void sinksGetTheRecordWithoutItsLineEnd();
    void removedSinksGetNothing();
    void fileRecordsHaveTimeLevelSourceAndText();
    void filesAreAppendedTo();
    void openingAnotherFileLeavesTheFirst();
    void aFileThatCannotBeOpenedLeavesTheFormer();
    void noTextMakesTwoLines();
    void terminalsGetNoCommands();
    void longTextsAreCut();
    void streamsMakeOneRecordWithALineEnd();
    void aStreamEndedByHandLeavesNoEmptyRecord();
    void anEmptyStreamIsAnEmptyRecord();
    void theDefaultLogTakesPrintfRecords();
    void theDefaultLogSetsItsThreshold();
    void overlongPrintfRecordsAreCut();
    void aFailedStatementIsLoggedByItsOwnText();
    void theDisplayIsStandardError();
    void aSignalHandlerMayLogWhileTheLogIsBusy();
    void aSinkThatLogsIsNotHeard();
    void aSinkMayRemoveItself();
    void manyThreadsNeverMixTheirLines();
};

namespace {

struct Collected {
    int level;
    QString file;
    int line;
    QString text;
};

class Collector
{
public:
    explicit Collector(OrbLog *log) : _log(log)
    {
        _number = log->addSink(
            [this](int level, const QString &file, int line, const QString &text) {
                records.append({level, file, line, text});
            });
    }
    ~Collector() { _log->removeSink(_number); }

    QList<Collected> records;

private:
    OrbLog *_log;
    int _number;
};

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("unreadable");
}

} // namespace

void TestOrbLog::theThresholdStartsAtInformation()
{
    OrbLog log;
    QCOMPARE(log.level(), 3);
    Collector seen(&log);
    log.output(3, logFile, 1, "information\n");
    log.output(4, logFile, 1, "detail\n");
    QCOMPARE(seen.records.size(), 1);
    QCOMPARE(seen.records.first().text, QStringLiteral("information"));
}

void TestOrbLog::theThresholdKeepsWhatIsNotAboveIt()
{
    OrbLog log;
    Collector seen(&log);
    log.setLevel(1);
    for (int level = 1; level <= 4; ++level)
        log.output(level, logFile, 1, "x");
    QCOMPARE(seen.records.size(), 1);
    log.setLevel(4);
    for (int level = 1; level <= 4; ++level)
        log.output(level, logFile, 1, "x");
    QCOMPARE(seen.records.size(), 5);
}

void TestOrbLog::sinksGetTheRecordWithoutItsLineEnd()
{
    OrbLog log;
    Collector seen(&log);
    log.output(2, QStringLiteral("main.cpp"), 42, "with\n");
    log.output(1, QStringLiteral("main.cpp"), 43, "without");
    QCOMPARE(seen.records.size(), 2);
    QCOMPARE(seen.records[0].level, 2);
    QCOMPARE(seen.records[0].file, QStringLiteral("main.cpp"));
    QCOMPARE(seen.records[0].line, 42);
    QCOMPARE(seen.records[0].text, QStringLiteral("with"));
    QCOMPARE(seen.records[1].text, QStringLiteral("without"));
}

void TestOrbLog::removedSinksGetNothing()
{
    OrbLog log;
    int first = 0;
    int second = 0;
    const int one = log.addSink([&](int, const QString &, int, const QString &) { ++first; });
    const int two = log.addSink([&](int, const QString &, int, const QString &) { ++second; });
    QVERIFY(one != two);
    QCOMPARE(log.addSink({}), 0);
    log.output(1, logFile, 1, "x");
    log.removeSink(one);
    log.removeSink(9999);
    log.output(1, logFile, 1, "x");
    QCOMPARE(first, 1);
    QCOMPARE(second, 2);
}

void TestOrbLog::fileRecordsHaveTimeLevelSourceAndText()
{
    const QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("log"));
    OrbLog log;
    QVERIFY(log.openFile(path));
    log.output(3, QStringLiteral("vtrobject.cpp"), 120, QStringLiteral("gr\u00fc\u00dfe 100%\n"));
    static const QRegularExpression shape(QStringLiteral(
        "^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}(Z|[+-]\\d\\d:\\d\\d) 3 "
        "vtrobject\\.cpp:120: gr\u00fc\u00dfe 100%\n$"));
    const QString line = QString::fromUtf8(contents(path));
    QVERIFY2(shape.match(line).hasMatch(), qPrintable(line));
}

void TestOrbLog::filesAreAppendedTo()
{
    const QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("log"));
    for (int i = 0; i < 2; ++i) {
        OrbLog log;
        QVERIFY(log.openFile(path));
        log.output(1, logFile, 1, "x\n");
    }
    QCOMPARE(contents(path).count('\n'), 2);
}

void TestOrbLog::openingAnotherFileLeavesTheFirst()
{
    const QTemporaryDir dir;
    OrbLog log;
    QVERIFY(log.openFile(dir.filePath("a")));
    log.output(1, logFile, 1, "x\n");
    QVERIFY(log.openFile(dir.filePath("b")));
    log.output(1, logFile, 1, "y\n");
    QCOMPARE(contents(dir.filePath("a")).count('\n'), 1);
    QVERIFY(contents(dir.filePath("b")).endsWith(": y\n"));
}

void TestOrbLog::aFileThatCannotBeOpenedLeavesTheFormer()
{
    const QTemporaryDir dir;
    OrbLog log;
    QVERIFY(log.openFile(dir.filePath("a")));
    QVERIFY(!log.openFile(dir.filePath("missing/b")));
    QVERIFY(!log.openFile(dir.path()));
    log.output(1, logFile, 1, "x\n");
    QVERIFY(contents(dir.filePath("a")).endsWith(": x\n"));
    QVERIFY(OrbLog().openFile(QStringLiteral("/dev/null")));
}

void TestOrbLog::noTextMakesTwoLines()
{
    const QTemporaryDir dir;
    OrbLog log;
    QVERIFY(log.openFile(dir.filePath("a")));
    log.output(1, QStringLiteral("bad\nname"), 1, "one\ntwo\r\n\u2028three\n");
    const QByteArray line = contents(dir.filePath("a"));
    QCOMPARE(line.count('\n'), 1);
    QVERIFY2(line.endsWith("bad\\nname:1: one\\ntwo\\x0d\\n\\x2028three\n"), line.constData());
}

void TestOrbLog::terminalsGetNoCommands()
{
    OrbLog log;
    Collector seen(&log);
    log.output(1, logFile, 1, QStringLiteral("\x1b[2J\ttab\x7f\u009b") + QChar(0) + 'e');
    QCOMPARE(seen.records.first().text, QStringLiteral("\\x1b[2J\\ttab\\x7f\\x9b\\x00e"));
}

void TestOrbLog::longTextsAreCut()
{
    OrbLog log;
    Collector seen(&log);
    log.output(1, logFile, 1, QString(4096, 'a') + '\n');
    log.output(1, logFile, 1, QString(100000, 'b'));
    QCOMPARE(seen.records[0].text, QString(4096, 'a'));
    QCOMPARE(seen.records[1].text, QString(4096, 'b') + "...");
}

void TestOrbLog::streamsMakeOneRecordWithALineEnd()
{
    OrbLog log;
    Collector seen(&log);
    {
        OrbLogStream stream("mainobject.cpp", 7, 2, &log);
        stream << QStringLiteral("clip %1 of %2").arg("A001").arg(3) << ' ' << 1.5;
        QVERIFY2(seen.records.isEmpty(), "nothing before it is destroyed");
    }
    QCOMPARE(seen.records.size(), 1);
    QCOMPARE(seen.records[0].level, 2);
    QCOMPARE(seen.records[0].file, QStringLiteral("mainobject.cpp"));
    QCOMPARE(seen.records[0].line, 7);
    QCOMPARE(seen.records[0].text, QStringLiteral("clip A001 of 3 1.5"));
    OrbLogStream("a.cpp", 1, 1, nullptr) << "no log, no record";
}

void TestOrbLog::aStreamEndedByHandLeavesNoEmptyRecord()
{
    OrbLog log;
    Collector seen(&log);
    {
        OrbLogStream stream("a.cpp", 1, 1, &log);
        stream << "one";
        stream.endline();
        stream << "two";
        stream.endline();
    }
    QCOMPARE(seen.records.size(), 2);
    QCOMPARE(seen.records[1].text, QStringLiteral("two"));
    {
        OrbLogStream stream("a.cpp", 1, 1, &log);
        stream.endline();
        stream << "three";
    }
    QCOMPARE(seen.records.size(), 4);
    QCOMPARE(seen.records[3].text, QStringLiteral("three"));
}

void TestOrbLog::anEmptyStreamIsAnEmptyRecord()
{
    OrbLog log;
    Collector seen(&log);
    OrbLogStream("a.cpp", 1, 1, &log);
    QCOMPARE(seen.records.size(), 1);
    QCOMPARE(seen.records[0].text, QString());
}

void TestOrbLog::theDefaultLogTakesPrintfRecords()
{
    Collector seen(OrbLog::defaultLog());
    orbLogOutput(2, QStringLiteral("main.cpp"), 9, "Unsupported video input: %d\n", 3);
    orbLogOutput(4, QStringLiteral("main.cpp"), 9, "%s\n", "detail");
    QCOMPARE(seen.records.size(), 1);
    QCOMPARE(seen.records[0].text, QStringLiteral("Unsupported video input: 3"));
    QCOMPARE(OrbLog::defaultLog(), OrbLog::defaultLog());
}

void TestOrbLog::theDefaultLogSetsItsThreshold()
{
    Collector seen(OrbLog::defaultLog());
    orbLogSetLevel(4);
    orbLogOutput(4, logFile, 1, "%s\n", "detail");
    orbLogSetLevel(3);
    orbLogOutput(4, logFile, 1, "%s\n", "detail");
    QCOMPARE(seen.records.size(), 1);
}

void TestOrbLog::overlongPrintfRecordsAreCut()
{
    Collector seen(OrbLog::defaultLog());
    const QByteArray endless(200000, 'z');
    orbLogOutput(1, logFile, 1, "%s\n", endless.constData());
    QCOMPARE(seen.records[0].text, QString(4096, 'z') + "...");
}

void TestOrbLog::aFailedStatementIsLoggedByItsOwnText()
{
    Collector seen(OrbLog::defaultLog());
    const bool works = true;
    ORB_TESTED(works);
    ORB_TESTED(connect(nullptr, SIGNAL(timeout()), nullptr, SLOT(logStats())));
    QVERIFY(!seen.records.isEmpty());
    const Collected &record = seen.records.last();
    QCOMPARE(record.level, 2);
    QCOMPARE(record.text, QStringLiteral("FAILED: connect(nullptr, SIGNAL(timeout()), nullptr, "
                                         "SLOT(logStats()))"));
}

void TestOrbLog::theDisplayIsStandardError()
{
    const QTemporaryDir dir;
    const QByteArray path = QFile::encodeName(dir.filePath("err"));
    FILE *file = std::fopen(path.constData(), "w");
    QVERIFY(file != nullptr);
    const int saved = ::dup(STDERR_FILENO);
    ::dup2(::fileno(file), STDERR_FILENO);
    {
        OrbLog log;
        log.output(1, logFile, 1, "before\n");
        log.openDisplay();
        log.output(1, logFile, 2, "after\n");
    }
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);
    std::fclose(file);
    const QByteArray shown = contents(dir.filePath("err"));
    QVERIFY2(shown.endsWith("tst_orblog.cpp:2: after\n"), shown.constData());
    QCOMPARE(shown.count('\n'), 1);
}

void TestOrbLog::aSignalHandlerMayLogWhileTheLogIsBusy()
{
    const QTemporaryDir dir;
    OrbLog log;
    QVERIFY(log.openFile(dir.filePath("a")));
    // As if the signal came to another thread's record, which holds the log.
    log.addSink([&](int, const QString &, int, const QString &) {
        std::thread([&log] { log.outputFromSignal(1, "main.cpp", 5, "Aborting.\x1b\n"); }).join();
    });
    log.outputFromSignal(4, "main.cpp", 5, "above the threshold\n");
    log.output(1, logFile, 1, "busy\n");
    static const QRegularExpression shape(QStringLiteral(
        "^[^\n]*: busy\n\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z 1 "
        "main\\.cpp:5: Aborting\\.\\?\n$"));
    const QString lines = QString::fromUtf8(contents(dir.filePath("a")));
    QVERIFY2(shape.match(lines).hasMatch(), qPrintable(lines));
    const QByteArray endless(100000, 'z');
    log.outputFromSignal(1, "main.cpp", 6, endless.constData());
    QVERIFY(contents(dir.filePath("a")).endsWith("zzz\n"));
    const QDateTime written = QDateTime::fromString(
        QString::fromUtf8(contents(dir.filePath("a")).split('\n').at(1).left(24)), Qt::ISODateWithMs);
    QVERIFY(qAbs(written.secsTo(QDateTime::currentDateTimeUtc())) < 3600);
}

void TestOrbLog::aSinkThatLogsIsNotHeard()
{
    OrbLog log;
    int count = 0;
    log.addSink([&](int, const QString &, int, const QString &) {
        ++count;
        log.output(1, logFile, 1, "again\n");
    });
    log.output(1, logFile, 1, "once\n");
    log.output(1, logFile, 1, "twice\n");
    QCOMPARE(count, 2);
}

void TestOrbLog::aSinkMayRemoveItself()
{
    OrbLog log;
    int count = 0;
    int number = 0;
    number = log.addSink([&](int, const QString &, int, const QString &) {
        ++count;
        log.removeSink(number);
    });
    log.output(1, logFile, 1, "once\n");
    log.output(1, logFile, 1, "twice\n");
    QCOMPARE(count, 1);
}

void TestOrbLog::manyThreadsNeverMixTheirLines()
{
    const QTemporaryDir dir;
    OrbLog log;
    QVERIFY(log.openFile(dir.filePath("a")));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&log, t] {
            for (int i = 0; i < 250; ++i)
                log.output(1, logFile, i, QString(50 + t, QLatin1Char(static_cast<char>('a' + t))));
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    const QList<QByteArray> lines = contents(dir.filePath("a")).split('\n');
    QCOMPARE(lines.size(), 1001);
    for (int i = 0; i < 1000; ++i) {
        const QByteArray text = lines[i].mid(lines[i].lastIndexOf(' ') + 1);
        QCOMPARE(text, QByteArray(50 + text.at(0) - 'a', text.at(0)));
    }
}

QTEST_APPLESS_MAIN(TestOrbLog)
#include "tst_orblog.moc"
