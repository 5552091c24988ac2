#include "services/rvstore/valuefile.h"

#include <QFile>
#include <QProcess>
#include <QSemaphore>
#include <QTemporaryDir>
#include <QTest>

class TestStoreValueFile : public QObject
{
    Q_OBJECT

private slots:
    void valuesComeBack()
    {
        QTemporaryDir folder;
        const std::string path = folder.filePath("v.db").toStdString();
        const std::string bytes("a\0b", 3);
        {
            ValueFile file(path);
            std::string problem;
            QVERIFY(file.load(problem).empty());
            QVERIFY(problem.empty());
            file.keep(eParamEncodeType, 2u, 1);
            file.keep(eParamCurrentPlayListIndex, 0xffffffffu, 2);
            file.keep(eParamReelName, std::string(), 3);
            file.keep(eParamLutFile, bytes, 4);
            file.keep(eParamEncodeType, 3u, 5);
        }
        ValueFile file(path);
        std::string problem;
        const ValueFile::Values expected{{eParamLutFile, bytes},
                                         {eParamEncodeType, 3u},
                                         {eParamReelName, std::string()},
                                         {eParamCurrentPlayListIndex, 0xffffffffu}};
        QCOMPARE(file.load(problem), expected);
    }

    void damagedFileIsPutAside()
    {
        QTemporaryDir folder;
        const QString path = folder.filePath("v.db");
        QFile damaged(path);
        QVERIFY(damaged.open(QIODevice::WriteOnly));
        damaged.write(QByteArray(5000, 'x'));
        damaged.close();
        {
            ValueFile file(path.toStdString());
            std::string problem;
            QVERIFY(file.load(problem).empty());
            QVERIFY(!problem.empty());
            file.keep(eParamEncodeType, 2u, 6);
        }
        QVERIFY(QFile::exists(path + ".damaged"));
        ValueFile file(path.toStdString());
        std::string problem;
        QCOMPARE(file.load(problem).size(), std::size_t(1));
        QVERIFY(problem.empty());
    }

    void progressTellsWhatIsOnTheMedium()
    {
        QTemporaryDir folder;
        const std::string path = folder.filePath("v.db").toStdString();
        QSemaphore told;
        ValueFile file(path);
        std::string problem;
        file.load(problem, [&told] { told.release(); });
        file.keep(eParamEncodeType, 2u, 7);
        file.hurry();
        QVERIFY(told.tryAcquire(1, 10000));
        QCOMPARE(file.progress().revision, std::uint64_t(7));
        QVERIFY(!file.progress().isFailing);
        // Another process reads it while this one still has it open.
        ValueFile other(path);
        QCOMPARE(other.load(problem), (ValueFile::Values{{eParamEncodeType, 2u}}));
    }

    void mediumThatCannotBeWrittenIsTold()
    {
        QSemaphore told;
        ValueFile file("/proc/missing/v.db");
        std::string problem;
        file.load(problem, [&told] { told.release(); });
        file.keep(eParamEncodeType, 2u, 7);
        file.hurry();
        QVERIFY(told.tryAcquire(1, 10000));
        QVERIFY(file.progress().isFailing);
        QCOMPARE(file.progress().revision, std::uint64_t(0));
    }

    void foreignContentsAreNotCarriedOutNorCutToSize_data()
    {
        QTest::addColumn<QString>("statements");
        QTest::addColumn<bool>("isPutAside");
        const QString table = "CREATE TABLE parameter (number INTEGER PRIMARY KEY, value NOT NULL);";
        QTest::newRow("number too large") << table + "INSERT INTO parameter VALUES (4294967301, 1)" << false;
        QTest::newRow("value too large") << table + "INSERT INTO parameter VALUES (234946570, 4294967296)" << false;
        QTest::newRow("value negative") << table + "INSERT INTO parameter VALUES (234946570, -1)" << false;
        QTest::newRow("a view") << "CREATE VIEW parameter AS SELECT 234946570 AS number, 1 AS value" << true;
        QTest::newRow("a later layout") << table + "PRAGMA user_version=2" << true;
        QTest::newRow("far too many rows")
            << table + "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i < 20000) "
                       "INSERT INTO parameter SELECT i, i FROM n"
            << true;
    }

    void foreignContentsAreNotCarriedOutNorCutToSize()
    {
        QFETCH(QString, statements);
        QFETCH(bool, isPutAside);
        QTemporaryDir folder;
        const QString path = folder.filePath("v.db");
        QProcess sqlite;
        sqlite.start("sqlite3", {path, statements});
        QVERIFY(sqlite.waitForFinished());
        QVERIFY(QFile::exists(path));
        ValueFile file(path.toStdString());
        std::string problem;
        QCOMPARE(file.load(problem), ValueFile::Values());
        QCOMPARE(!problem.empty(), isPutAside);
        QCOMPARE(QFile::exists(path + ".damaged"), isPutAside);
    }

    void fileThatCannotBeOpenedIsNoObstacle()
    {
        QTemporaryDir folder;
        ValueFile file(folder.filePath("missing/v.db").toStdString());
        std::string problem;
        QVERIFY(file.load(problem).empty());
        QVERIFY(!problem.empty());
        file.keep(eParamEncodeType, 2u, 7);
    }
};

QTEST_GUILESS_MAIN(TestStoreValueFile)
#include "tst_store_valuefile.moc"
