#include "liborb/orb.h"
#include "liborb/orbalarm.h"
#include "liborb/orberror.h"
#include "liborb/orbframe.h"
#include "liborb/orbplaylist.h"
#include "liborb/orbstreaminfo.h"
#include "liborb/orbtimestamp.h"
#include "liborb/orbvbiinfo.h"
#include "liborb/orbvideodevicesetup.h"
#include "liborb/orbvideostate.h"

#include <QCoreApplication>
#include <QTest>
#include <QThread>

/// Sends every type that the toolkit's services signal.
class Sender : public QObject
{
    Q_OBJECT
signals:
    void vbi(const OrbVbiInfo &info);
    void setupIsDone(const OrbError &error);
    void writeFailed(const OrbError &error, const OrbFrame &frame);
    void flushed(const OrbMetadataHash &meta);
    void inputChanged(int input, const OrbVideoState &state);
    void alarmTriggered(const OrbAlarm &alarm);
    void readIsDone(int frame, const OrbFrame &data, const OrbError &error, void *context);
    void benchmark(int frame, const OrbTimeStamp &time);
};

/// Notes what arrives and on which thread.
class Receiver : public QObject
{
    Q_OBJECT
public slots:
    void vbi(const OrbVbiInfo &info) { note(info.tcgTimecode().toString()); }
    void setupIsDone(const OrbError &error) { note(QString::number(error.value())); }
    void writeFailed(const OrbError &error, const OrbFrame &frame)
    {
        note(QString::number(error.value()) + '/' + QString::number(frame.meta().size()));
    }
    void flushed(const OrbMetadataHash &meta) { note(meta.valueFor(OrbIdFrameNumber).toString()); }
    void inputChanged(int input, const OrbVideoState &state)
    {
        note(QString::number(input) + state.toString());
    }
    void alarmTriggered(const OrbAlarm &alarm) { note(alarm.text()); }
    void readIsDone(int frame, const OrbFrame &data, const OrbError &, void *context)
    {
        note(QString::number(frame) + (data.isNull() ? 'n' : 'd') + (context == this ? 't' : 'f'));
    }
    void benchmark(int frame, const OrbTimeStamp &time)
    {
        note(QString::number(frame + time.toDouble()));
    }

public:
    QStringList notes;

private:
    void note(const QString &text)
    {
        notes.append(QThread::currentThread() == thread() ? text : QStringLiteral("wrong thread"));
    }
};

class TestOrbMetatypes : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { Orb::init(0); }
    void everyTypeIsKnownByName_data();
    void everyTypeIsKnownByName();
    void initialisingAgainDoesNothing();
    void valuesTravelInQueuedSignals();
};

void TestOrbMetatypes::everyTypeIsKnownByName_data()
{
    QTest::addColumn<QByteArray>("name");
    for (const char *name :
         {"OrbId", "OrbError", "OrbRational", "OrbVideoRate", "OrbImageDesc", "OrbAudioDesc",
          "OrbImageLut", "OrbVideoDeviceSetup", "OrbVideoState", "OrbVideoRefState",
          "OrbStreamInfo", "OrbFrame", "OrbMetadata", "OrbMetadataHash", "OrbTimecode",
          "OrbTimeStamp", "OrbVbiInfo", "OrbAlarm", "OrbPlayListEntry", "OrbPlayList",
          "OrbPlayListIndex"})
        QTest::newRow(name) << QByteArray(name);
}

void TestOrbMetatypes::everyTypeIsKnownByName()
{
    QFETCH(QByteArray, name);
    const QMetaType type = QMetaType::fromName(name);
    QVERIFY(type.isValid());
    QCOMPARE(QByteArray(type.name()), name);
    void *made = type.create();
    QVERIFY(made != nullptr);
    void *copied = type.create(made);
    type.destroy(copied);
    type.destroy(made);
}

void TestOrbMetatypes::initialisingAgainDoesNothing()
{
    const int before = QMetaType::fromName("OrbFrame").id();
    Orb::init(0);
    QCOMPARE(QMetaType::fromName("OrbFrame").id(), before);
}

void TestOrbMetatypes::valuesTravelInQueuedSignals()
{
    // Connected by the text of their signatures, the way that needs the registered names.
    QThread other;
    Receiver receiver;
    Sender *sender = new Sender;
    sender->moveToThread(&other);
    for (const char *signature :
         {"vbi(OrbVbiInfo)", "setupIsDone(OrbError)", "writeFailed(OrbError,OrbFrame)",
          "flushed(OrbMetadataHash)", "inputChanged(int,OrbVideoState)", "alarmTriggered(OrbAlarm)",
          "readIsDone(int,OrbFrame,OrbError,void*)", "benchmark(int,OrbTimeStamp)"}) {
        const QByteArray signal = QByteArray("2") + signature;
        const QByteArray slot = QByteArray("1") + signature;
        QVERIFY2(connect(sender, signal.constData(), &receiver, slot.constData()), signature);
    }
    other.start();
    QMetaObject::invokeMethod(
        sender,
        [sender, &receiver] {
            OrbFrame frame;
            frame.setKeyFrameFlag(true);
            OrbMetadataHash meta;
            meta.insert(OrbIdFrameNumber, 77);
            emit sender->vbi(OrbVbiInfo(OrbTimecode(1, 2, 3, 4, 25, 0), OrbTimecode()));
            emit sender->setupIsDone(OrbError(16));
            emit sender->writeFailed(OrbError(5), frame);
            emit sender->flushed(meta);
            emit sender->inputChanged(2, OrbVideoState());
            emit sender->alarmTriggered(OrbAlarm(OrbId(1), 1, "hot", "f", 1));
            emit sender->readIsDone(3, OrbFrame(), OrbError(), &receiver);
            emit sender->benchmark(1, OrbTimeStamp(2, 500000));
        },
        Qt::BlockingQueuedConnection);
    QVERIFY2(receiver.notes.isEmpty(), "queued, not called across threads");
    QCoreApplication::processEvents();
    QCOMPARE(receiver.notes, QStringList({"01:02:03:04", "16", "5/1", "77", "2invalid", "hot",
                                          "3nt", "3.5"}));
    other.quit();
    other.wait();
    delete sender;
}

QTEST_GUILESS_MAIN(TestOrbMetatypes)
#include "tst_orbmetatypes.moc"
