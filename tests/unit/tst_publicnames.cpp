#include "aux/keyboardtransport.h"
#include "aux/singleframe.h"
#include "aux/timecodetrigger.h"
#include "liborb/orb.h"
#include "liborb/orbalarmcontroller.h"
#include "liborb/orbcrypto.h"
#include "liborb/orbgetopts.h"
#include "liborb/orblockfile.h"
#include "liborb/orblog.h"
#include "liborb/orbplaylist.h"
#include "liborb/orbstream.h"
#include "liborb/orbstreamcache.h"
#include "liborb/orbvbiinfo.h"
#include "liborb/orbvideodevice.h"
#include "main/backtrace.h"
#include "main/process.h"
#include "main/signals.h"
#include "transport/vtrstate.h"

#include <QMetaMethod>
#include <QTest>

#include <concepts>
#include <type_traits>

/// The names that the daemon's parts call each other by, and what they answer. Most of it is said
/// to the compiler.
class TestPublicNames : public QObject
{
    Q_OBJECT

private slots:
    void everySignalOfTheToolkit_data();
    void everySignalOfTheToolkit();
    void slotsNameTheirParameters();
    void valuesStartAsTheyShould();
};

namespace {

template <typename T>
concept Value = std::default_initializable<T> && std::copyable<T>;

template <typename T>
concept Comparable = Value<T> && std::equality_comparable<T>;

/// \a Expression answers exactly \a Answer.
#define ANSWERS(Answer, Expression) static_assert(std::is_same_v<Answer, decltype(Expression)>)
/// The statement compiles.
#define ACCEPTS(Expression) static_assert(requires { Expression; })

template <typename T> T &a();             ///< any object that may be changed
template <typename T> const T &constant(); ///< any other

static_assert(Comparable<OrbId> && Comparable<OrbError> && Comparable<OrbRational>
              && Comparable<OrbVideoRate> && Comparable<OrbImageDesc> && Comparable<OrbAudioDesc>
              && Comparable<OrbImageLut> && Comparable<OrbVideoDeviceSetup>
              && Comparable<OrbVideoState> && Comparable<OrbVideoRefState>
              && Comparable<OrbStreamInfo> && Comparable<OrbTimecode> && Comparable<OrbTimeStamp>
              && Comparable<OrbAlarm> && Comparable<OrbPlayListEntry> && Comparable<OrbPlayList>
              && Comparable<OrbPlayListIndex> && Comparable<OrbMetadata> && Comparable<OrbVbiInfo>);
static_assert(Value<OrbBuffer> && Value<OrbImage> && Value<OrbAudio> && Value<OrbFrame>
              && Value<OrbMetadataHash> && Value<OrbSubtitle> && Value<OrbCryptoKey>
              && Value<OrbCryptoDesc> && Comparable<VtrState>);

// Identifiers and numbers
static_assert(sizeof(OrbIdValue) == 4);
ANSWERS(OrbIdValue, constant<OrbId>().value());
ANSWERS(QString, constant<OrbId>().name());
ANSWERS(size_t, qHash(constant<OrbId>()));
ACCEPTS(OrbId(22));
ANSWERS(qint32, constant<OrbError>().value());
ANSWERS(bool, constant<OrbError>().isError());
ACCEPTS(OrbError(5));
ANSWERS(double, constant<OrbRational>().toDouble());
ANSWERS(qint32, OrbRational::gcf(4, 6));
ANSWERS(qint32, constant<OrbRational>().gcf());
ANSWERS(OrbRational, constant<OrbRational>().reduce());
ANSWERS(qint32, constant<OrbRational>().num());
ANSWERS(qint32, constant<OrbRational>().den());
static_assert(std::derived_from<OrbVideoRate, OrbRational>);
ACCEPTS(OrbVideoRate(OrbVideoRate::StdRate(1)));
ANSWERS(int, constant<OrbVideoRate>().timecodeRate());

// Descriptions
static_assert(OrbImageDesc::ScanMode(1) == OrbImageDesc::Interlaced);
static_assert(sizeof(OrbImageDesc::ScanMode) == 4 && sizeof(OrbVideoDeviceSetup::Mode) == 4
              && sizeof(OrbAlarm::AlarmLevel) == 4 && sizeof(VtrState::Mode) == 4);
ANSWERS(int, constant<OrbImageDesc>().width());
ANSWERS(int, constant<OrbImageDesc>().height());
ANSWERS(bool, constant<OrbImageDesc>().isInterlaced());
ANSWERS(QString, constant<OrbImageDesc>().toString());
ANSWERS(OrbImageDesc::ScanMode, constant<OrbImageDesc>().scanMode());
ANSWERS(OrbVideoRate, constant<OrbImageDesc>().frameRate());
ANSWERS(OrbId, constant<OrbImageDesc>().dataType());
ANSWERS(OrbId, constant<OrbAudioDesc>().dataType());
ANSWERS(OrbRational, constant<OrbAudioDesc>().sampleRate());
ANSWERS(OrbVideoRate, constant<OrbAudioDesc>().frameRate());
ANSWERS(int, constant<OrbAudioDesc>().chans());
ANSWERS(OrbImageDesc, constant<OrbVideoDeviceSetup>().imageDesc());
ANSWERS(int, constant<OrbVideoDeviceSetup>().imageCount());
ANSWERS(OrbId, constant<OrbVideoDeviceSetup>().cameraInput());
ANSWERS(bool, constant<OrbVideoDeviceSetup>().isInCapture());
ANSWERS(OrbId, constant<OrbVideoState>().recInhibit());
ANSWERS(QString, constant<OrbVideoState>().toString());
ANSWERS(bool, constant<OrbVideoRefState>().locked());
ANSWERS(bool, constant<OrbVideoRefState>().present());
ANSWERS(int, constant<OrbStreamInfo>().length());
ANSWERS(QList<OrbImageDesc> &, a<OrbStreamInfo>().vids());
ANSWERS(QList<OrbAudioDesc> &, a<OrbStreamInfo>().auds());

// Media
ACCEPTS(OrbBuffer(quint32(16), quint32(16)));
ACCEPTS(OrbImage(quint64(16)));
ANSWERS(bool, constant<OrbImage>().isValid());
ANSWERS(OrbImageDesc, constant<OrbImage>().desc());
ANSWERS(OrbAudioDesc, constant<OrbAudio>().desc());
ANSWERS(QVariant, constant<OrbMetadataHash>().valueFor(OrbId(1)));
ANSWERS(bool, constant<OrbFrame>().hasValidVideo());
ANSWERS(OrbTimecode, OrbTimecode::fromTimeOfDay(30, true));
ACCEPTS(OrbTimecode(1, 2, 3, 4, 25, 2));
ACCEPTS(OrbTimecode(100000, 25, false));
ANSWERS(bool, constant<OrbTimecode>().flag(1));
ANSWERS(bool, constant<OrbTimecode>().isDropFrame());
ANSWERS(bool, constant<OrbTimecode>().timecodeMatches(constant<OrbTimecode>()));
ANSWERS(OrbTimeStamp, OrbTimeStamp::getCurrent());
ACCEPTS(OrbTimeStamp(1L, 2L));
ACCEPTS(OrbTimeStamp(timeval{1, 2}));
ANSWERS(OrbTimecode, constant<OrbVbiInfo>().tcgTimecode());
ACCEPTS(OrbAlarm(OrbId(1901), 2, QString(), QString(), 1));
ANSWERS(int, constant<OrbPlayList>().firstFrameOfEntry(0));
ANSWERS(int, constant<OrbPlayListIndex>().entryIndex());

// Services
ANSWERS(bool, a<OrbVideoDevice>().open(QString()));
ANSWERS(OrbError, a<OrbVideoDevice>().setup(constant<OrbVideoDeviceSetup>()));
ANSWERS(OrbVideoDeviceSetup, constant<OrbVideoDevice>().currentSetup());
ANSWERS(void, a<OrbVideoDevice>().setProperty(OrbId(22), QVariant(1600)));
ANSWERS(OrbMetadataHash, constant<OrbVideoDevice>().currentFrameMetadata());
ANSWERS(OrbVideoRefState, constant<OrbVideoDevice>().refInputState(-1));
ANSWERS(int, constant<OrbVideoDevice>().framesReadable());
ANSWERS(int, constant<OrbVideoDevice>().framesWritable());
ANSWERS(QString, constant<OrbVideoDevice>().stateAsString());
ACCEPTS(a<OrbVideoDevice>().readFrame(a<OrbFrame>()));
ACCEPTS(a<OrbVideoDevice>().writeFrame(constant<OrbFrame>()));
ANSWERS(bool, a<OrbStream>().open(1));
ANSWERS(bool, constant<OrbStream>().hasDesc(QVariant()));
ANSWERS(OrbStreamInfo, constant<OrbStream>().info());
ANSWERS(int, constant<OrbStream>().pending());
ACCEPTS(a<OrbStream>().read(7, nullptr));
ACCEPTS(a<OrbStream>().setType(OrbId(100)));
ANSWERS(int, constant<OrbStreamCache>().position());
ANSWERS(OrbFrame, a<OrbStreamCache>().read());
ANSWERS(OrbFrame, constant<OrbStreamCache>().peek());
ACCEPTS(a<OrbStreamCache>().pushCachedToPending(3));
ANSWERS(void, orbLogOutput(1, QString(), 2, "%s\n", "text"));
ANSWERS(OrbLog *, OrbLog::defaultLog());
ACCEPTS(OrbLogStream("a.cpp", 1, 2, OrbLog::defaultLog()));
ANSWERS(void, Orb::init(0));
ANSWERS(bool, a<OrbLockFile>().lock());
ANSWERS(QString, constant<OrbLockFile>().filename());
ANSWERS(pid_t, constant<OrbLockFile>().whoHasLock());
ANSWERS(bool, a<OrbGetOpts>().getopt("ab:"));
ANSWERS(QString, constant<OrbGetOpts>().optarg());
ANSWERS(QString, constant<OrbGetOpts>().errorString());

// The shell
ANSWERS(bool, readKernelCmdLine(QString(), static_cast<QString *>(nullptr)));
ANSWERS(void, registerMetaTypes());
ANSWERS(void, setupSignals());
ANSWERS(void, printBackTrace());
ANSWERS(void, handleDaemonizerSignal(1));
ANSWERS(void, localQtMessageHandler(QtDebugMsg, "text"));
static_assert(std::is_same_v<void (*)(int, siginfo_t *, void *), decltype(&signalAction)>);

// The transport state
ACCEPTS(VtrSpeedFlags(0x23U));
ANSWERS(VtrSpeedFlags, VtrSpeedFlags::fromSpeed(1.0));
ANSWERS(QString, VtrState::modeName(VtrState::Play));
ANSWERS(QString, constant<VtrState>().modeName());
ANSWERS(VtrSpeedFlags, constant<VtrState>().speedFlags());
ACCEPTS(a<VtrStateData>().setSpeed(1.0));
ANSWERS(QString, constant<VtrStateData>().toString());
ANSWERS(bool, constant<VtrStateData>() == constant<VtrStateData>());
ANSWERS(OrbFrame, constant<SingleFrame>().frame());
static_assert(std::derived_from<KeyboardTransport, QObject>);

QStringList signalsOf(const QMetaObject &meta)
{
    QStringList found;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        if (meta.method(i).methodType() == QMetaMethod::Signal)
            found << QString::fromLatin1(meta.method(i).methodSignature());
    return found;
}

} // namespace

void TestPublicNames::everySignalOfTheToolkit_data()
{
    QTest::addColumn<QStringList>("found");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("device") << signalsOf(OrbVideoDevice::staticMetaObject)
        << QStringList{"vbi(OrbVbiInfo)", "setupIsDone(OrbError)",
                       "playedKeyFrame(OrbMetadataHash)", "frameDropped()",
                       "readFromHardwareFailed(OrbError)",
                       "writeToHardwareFailed(OrbError,OrbFrame)", "hardwareStarted()",
                       "flushed(OrbMetadataHash)", "inputChanged(int,OrbVideoState)",
                       "firmwareLoading(QString,bool)", "raiseVFRAlarm(bool)",
                       "inputAncDataChanged(OrbMetadataHash)", "alarmTriggered(OrbAlarm)"};
    QTest::newRow("stream") << signalsOf(OrbStream::staticMetaObject)
        << QStringList{"openIsDone(int,OrbError)", "closeIsDone()",
                       "readIsDone(int,OrbFrame,OrbError,void*)", "frameWritten(int,OrbError)",
                       "benchmark(int,OrbTimeStamp)", "aboutToClose()"};
    QTest::newRow("cache") << signalsOf(OrbStreamCache::staticMetaObject)
        << QStringList{"ready()", "error(int,OrbError)"};
    QTest::newRow("alarms") << signalsOf(OrbAlarmController::staticMetaObject)
        << QStringList{"alarmTriggered(OrbAlarm)"};
    QTest::newRow("trigger") << signalsOf(TimecodeTrigger::staticMetaObject)
        << QStringList{"timecodeHasStarted()", "timecodeHasStopped()"};
}

void TestPublicNames::everySignalOfTheToolkit()
{
    QFETCH(QStringList, found);
    QFETCH(QStringList, expected);
    // The services may say more than the daemon listens to.
    found.removeIf([&expected](const QString &signal) { return !expected.contains(signal); });
    QCOMPARE(found, expected);
}

void TestPublicNames::slotsNameTheirParameters()
{
    const auto names = [](const QMetaObject &meta, const char *signature) {
        return meta.method(meta.indexOfMethod(signature)).parameterNames().join(' ');
    };
    const QMetaObject &loader = SingleFrame::staticMetaObject;
    QCOMPARE(names(loader, "load(int,QString)"), QByteArray("fnum file"));
    QCOMPARE(names(loader, "openIsDone(int,OrbError)"), QByteArray("mode err"));
    QCOMPARE(names(loader, "readIsDone(int,OrbFrame,OrbError,void*)"),
             QByteArray("fnum frame err pdata"));
    const QMetaObject &console = KeyboardTransport::staticMetaObject;
    QCOMPARE(names(console, "play(double)"), QByteArray("speed"));
    QCOMPARE(names(console, "setVtrState(VtrState)"), QByteArray("state"));
    QCOMPARE(names(console, "setStatus(QString)"), QByteArray("val"));
    QCOMPARE(names(console, "setCurrentTimecode(OrbTimecode)"), QByteArray());
    QCOMPARE(names(console, "step(int)"), QByteArray());
    const QMetaObject &trigger = TimecodeTrigger::staticMetaObject;
    QCOMPARE(names(trigger, "setDelay(int)"), QByteArray("frames"));
    QCOMPARE(names(trigger, "setTimecode(OrbTimecode)"), QByteArray());
}

void TestPublicNames::valuesStartAsTheyShould()
{
    QVERIFY(!OrbId().isValid() && !OrbError().isError() && !OrbRational().isValid());
    QVERIFY(!OrbImageDesc().isValid() && OrbImageDesc().size().width() < 0);
    QCOMPARE(int(OrbImageDesc().scanMode()), 0);
    QCOMPARE(OrbAudioDesc().chans(), 0);
    QVERIFY(!OrbBuffer().isValid() && !OrbImage().isValid() && !OrbFrame().hasValidVideo());
    QVERIFY(!OrbTimecode().isValid() && OrbTimecode().fps() == 0 && OrbTimecode().flags() == 0);
    QVERIFY(!OrbVideoState().isValid() && !OrbVideoState().isPresent());
    QVERIFY(!OrbVideoRefState().locked() && !OrbVideoRefState().present());
    QCOMPARE(OrbPlayListEntry().length(), 0);
    QCOMPARE(OrbPlayListIndex().entryIndex(), -1);
    QCOMPARE(OrbPlayListIndex().frame(), -1);
    QCOMPARE(OrbVideoDeviceSetup().maxBuffers(), 40);
    QCOMPARE(int(OrbVideoDeviceSetup().mode()), 0);
    QCOMPARE(OrbVideoDevice().refInputState(-1), OrbVideoRefState());
    QCOMPARE(OrbVideoDevice().refInputState(99), OrbVideoRefState());
}

QTEST_GUILESS_MAIN(TestPublicNames)
#include "tst_publicnames.moc"
