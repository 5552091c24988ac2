#include "enginerig.h"

#include "aux/singleframe.h"
#include "liborb/orb.h"

#include <QMetaMethod>

/// One frame of a clip, loaded and kept.
class TestSingleFrame : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void signalsAndSlotsStandInOrder();
    void loadsTheFrameAskedFor();
    void aFileThatCannotBeOpenedFailsOnce();
    void aFileNoDriverTakesFailsThroughTheEventLoop();
    void aRefusedLoadGivenUpIsNotReported();
    void emptyPathsFail();
    void anAnswerToNobodyIsKept();
    void anErrorAtTheOpenClosesNothing();
    void aFrameBehindTheEndFailsAndTheStreamIsClosed();
    void clearEmptiesTheFrame();
    void loadEmptiesTheFrameAtOnce();
    void aLoadDuringALoadStartsOver_data();
    void aLoadDuringALoadStartsOver();
    void clearDuringALoadForgetsIt_data();
    void clearDuringALoadForgetsIt();

private:
    struct Stage {
        Transcript transcript;
        ScriptedMedia media = ScriptedMedia(&transcript);
        SingleFrame loader;
        QStringList seen;
    };
    int number() const
    {
        return _stage->loader.frame().meta().valueFor(OrbId(OrbIdFrameNumber)).toInt();
    }

    std::unique_ptr<Stage> _stage;
};

void TestSingleFrame::init()
{
    _stage = std::make_unique<Stage>();
    _stage->media.clips.insert("/a", EngineRig::clip(10, EngineRig::hd25()));
    _stage->media.clips.insert("/b", EngineRig::clip(20, EngineRig::hd25()));
    _stage->media.install();
    QStringList *seen = &_stage->seen;
    SingleFrame *loader = &_stage->loader;
    connect(loader, &SingleFrame::ready, loader, [seen] { *seen << "ready"; });
    connect(loader, &SingleFrame::failed, loader, [seen] { *seen << "failed"; });
}

void TestSingleFrame::cleanup()
{
    ScriptedMedia::uninstall();
    _stage.reset();
}

void TestSingleFrame::signalsAndSlotsStandInOrder()
{
    QStringList found;
    const QMetaObject &meta = SingleFrame::staticMetaObject;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        found << QString::fromLatin1(meta.method(i).methodSignature());
    QCOMPARE(found, (QStringList{"ready()", "failed()", "clear()", "load(int,QString)",
                                 "openIsDone(int,OrbError)",
                                 "readIsDone(int,OrbFrame,OrbError,void*)"}));
}

void TestSingleFrame::loadsTheFrameAskedFor()
{
    _stage->loader.load(7, "/a");
    QVERIFY(_stage->loader.frame().isNull());
    SimDispatcher::runFor(100);
    QCOMPARE(_stage->seen, QStringList{"ready"});
    QCOMPARE(number(), 7);
    QCOMPARE(_stage->transcript.lines(), (QStringList{"media: open read /a", "media: close /a"}));
}

void TestSingleFrame::aFileThatCannotBeOpenedFailsOnce()
{
    _stage->loader.load(0, "/none");
    SimDispatcher::runFor(100);
    QCOMPARE(_stage->seen, QStringList{"failed"});
    QVERIFY(_stage->loader.frame().isNull());
}

void TestSingleFrame::aFileNoDriverTakesFailsThroughTheEventLoop()
{
    _stage->media.opens.push_back({.isRefused = true});
    _stage->loader.load(0, "/a");
    QCOMPARE(_stage->seen, QStringList{});
    SimDispatcher::runFor(100);
    QCOMPARE(_stage->seen, QStringList{"failed"});
}

void TestSingleFrame::aRefusedLoadGivenUpIsNotReported()
{
    _stage->media.opens.push_back({.isRefused = true});
    _stage->loader.load(0, "/a");
    _stage->loader.load(7, "/a");
    SimDispatcher::runFor(100);
    QCOMPARE(_stage->seen, QStringList{"ready"});
    _stage->media.opens.push_back({.isRefused = true});
    _stage->loader.load(0, "/a");
    _stage->loader.clear();
    SimDispatcher::runFor(100);
    QCOMPARE(_stage->seen, QStringList{"ready"});
}

void TestSingleFrame::emptyPathsFail()
{
    ScriptedMedia::uninstall(); // the drivers that ship
    _stage->loader.load(0, QString());
    QVERIFY(SimDispatcher::runUntil([&] { return !_stage->seen.isEmpty(); }, 1000));
    QCOMPARE(_stage->seen, QStringList{"failed"});
    QVERIFY(_stage->loader.frame().isNull());
}

void TestSingleFrame::anAnswerToNobodyIsKept()
{
    OrbFrame frame;
    frame.meta().insert(OrbIdFrameNumber, 3);
    _stage->loader.readIsDone(3, frame, OrbError(), nullptr);
    QCOMPARE(_stage->seen, QStringList{"ready"});
    QCOMPARE(number(), 3);
}

void TestSingleFrame::anErrorAtTheOpenClosesNothing()
{
    _stage->loader.openIsDone(1, OrbError(5));
    QCOMPARE(_stage->seen, QStringList{"failed"});
    QCOMPARE(_stage->transcript.lines(), QStringList{});
}

void TestSingleFrame::aFrameBehindTheEndFailsAndTheStreamIsClosed()
{
    _stage->loader.load(10, "/a");
    SimDispatcher::runFor(100);
    QCOMPARE(_stage->seen, QStringList{"failed"});
    QCOMPARE(_stage->transcript.count("media: close /a"), 1);
    _stage->loader.load(9, "/a");
    SimDispatcher::runFor(100);
    QCOMPARE(_stage->seen, (QStringList{"failed", "ready"}));
}

void TestSingleFrame::clearEmptiesTheFrame()
{
    _stage->loader.load(7, "/a");
    SimDispatcher::runFor(100);
    _stage->loader.clear();
    QVERIFY(_stage->loader.frame().isNull());
}

void TestSingleFrame::loadEmptiesTheFrameAtOnce()
{
    _stage->loader.load(7, "/a");
    SimDispatcher::runFor(100);
    _stage->loader.load(0, "/none");
    QVERIFY(_stage->loader.frame().isNull());
}

void TestSingleFrame::aLoadDuringALoadStartsOver_data()
{
    QTest::addColumn<int>("afterMs");
    for (int ms = 0; ms < 20; ++ms)
        QTest::addRow("after %d ms", ms) << ms;
}

void TestSingleFrame::aLoadDuringALoadStartsOver()
{
    QFETCH(int, afterMs);
    _stage->media.readMs = 6;
    _stage->loader.load(7, "/a");
    SimDispatcher::runFor(afterMs);
    const bool wasReady = !_stage->seen.isEmpty();
    _stage->loader.load(15, "/b");
    QVERIFY(_stage->loader.frame().isNull());
    SimDispatcher::runFor(100);
    QCOMPARE(_stage->seen, wasReady ? (QStringList{"ready", "ready"}) : QStringList{"ready"});
    QCOMPARE(number(), 15);
}

void TestSingleFrame::clearDuringALoadForgetsIt_data()
{
    aLoadDuringALoadStartsOver_data();
}

void TestSingleFrame::clearDuringALoadForgetsIt()
{
    QFETCH(int, afterMs);
    _stage->media.readMs = 6;
    _stage->loader.load(7, "/a");
    SimDispatcher::runFor(afterMs);
    const QStringList before = _stage->seen;
    _stage->loader.clear();
    SimDispatcher::runFor(100);
    QCOMPARE(_stage->seen, before);
    QVERIFY(_stage->loader.frame().isNull());
}

SIM_TEST_MAIN(TestSingleFrame)
#include "tst_singleframe.moc"
