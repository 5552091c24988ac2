#include "services/rvstore/valuefile.h"

#include <QFile>
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
            file.keep(eParamEncodeType, 2u);
            file.keep(eParamCurrentPlayListIndex, 0xffffffffu);
            file.keep(eParamReelName, std::string());
            file.keep(eParamLutFile, bytes);
            file.keep(eParamEncodeType, 3u);
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
            file.keep(eParamEncodeType, 2u);
        }
        QVERIFY(QFile::exists(path + ".damaged"));
        ValueFile file(path.toStdString());
        std::string problem;
        QCOMPARE(file.load(problem).size(), std::size_t(1));
        QVERIFY(problem.empty());
    }

    void fileThatCannotBeOpenedIsNoObstacle()
    {
        QTemporaryDir folder;
        ValueFile file(folder.filePath("missing/v.db").toStdString());
        std::string problem;
        QVERIFY(file.load(problem).empty());
        QVERIFY(!problem.empty());
        file.keep(eParamEncodeType, 2u);
    }
};

QTEST_APPLESS_MAIN(TestStoreValueFile)
#include "tst_store_valuefile.moc"
