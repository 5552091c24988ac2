#include "liborb/orbalarm.h"
#include "liborb/orbcrypto.h"
#include "liborb/orbframe.h"
#include "liborb/orbimagelut.h"
#include "liborb/orbplaylist.h"
#include "liborb/orbstreaminfo.h"
#include "liborb/orbtimecode.h"
#include "liborb/orbvideodevicesetup.h"
#include "liborb/orbvideostate.h"
#include "transport/vtrstate.h"

#include <QTest>

#include <functional>

/// Every setter of every shared value: a copy never sees the change, from either side.
class TestValueCopies : public QObject
{
    Q_OBJECT

private slots:
    void settersDetach_data();
    void settersDetach();
    void buffersDoNotDetach();
};

namespace {

/// What stands against the promise, null when nothing does.
using Check = std::function<const char *()>;

template <typename T, typename Change, typename Same>
Check check(const T &fresh, Change change, Same same)
{
    return [=]() -> const char * {
        T first = fresh;
        T second = first;
        const T third = second;
        change(second);
        if (same(second, fresh))
            return "the setter changes nothing";
        if (!same(first, fresh) || !same(third, fresh))
            return "a copy sees a change";
        T fourth = second;
        change(first);
        if (!same(first, second) || !same(third, fresh))
            return "the original's change goes astray";
        fourth = third;
        if (!same(fourth, fresh) || same(second, fresh))
            return "an assignment does not share";
        return nullptr;
    };
}

template <typename T, typename Change> Check check(const T &fresh, Change change)
{
    return check(fresh, change, [](const T &a, const T &b) { return a == b; });
}

/// Rows for the setters of \a T, named "T::setter".
template <typename T> struct Rows {
    const char *type;
    T fresh = {};

    template <typename Change> const Rows &operator()(const char *setter, Change change) const
    {
        QTest::addRow("%s::%s", type, setter) << check(fresh, change);
        return *this;
    }
};

OrbImageDesc someImage()
{
    OrbImageDesc desc;
    desc.setSize(8, 8);
    return desc;
}

OrbAudioDesc someAudio()
{
    OrbAudioDesc desc;
    desc.setChans(2);
    return desc;
}

const OrbId someId(601);
const OrbVideoRate someRate(25, 1);

bool sameFrame(const OrbFrame &a, const OrbFrame &b)
{
    return a.vids().size() == b.vids().size() && a.auds().size() == b.auds().size()
           && a.meta() == b.meta() && a.subtitle() == b.subtitle();
}

} // namespace

#define ROW(Type, call) (#call, [](Type &v) { v.call; })

static void addDescRows()
{
    Rows<OrbImageDesc>{"OrbImageDesc"}
        ROW(OrbImageDesc, setSize(1920, 1080))
        ROW(OrbImageDesc, setAspectRatio(16, 9))
        ROW(OrbImageDesc, setFrameRate(30000, 1001))
        ROW(OrbImageDesc, setFrameRate(someRate))
        ROW(OrbImageDesc, setScanMode(1))
        ROW(OrbImageDesc, setScanMode(OrbImageDesc::SegmentedFrame))
        ROW(OrbImageDesc, setDataType(OrbId(202)));
    Rows<OrbAudioDesc>{"OrbAudioDesc"}
        ROW(OrbAudioDesc, setDataType(OrbId(408)))
        ROW(OrbAudioDesc, setSampleRate(48000, 1))
        ROW(OrbAudioDesc, setSampleRate(OrbRational(48000, 1)))
        ROW(OrbAudioDesc, setFrameRate(25, 1))
        ROW(OrbAudioDesc, setFrameRate(someRate))
        ROW(OrbAudioDesc, setChans(8));
    Rows<OrbImageLut>{"OrbImageLut", OrbImageLut(OrbId(1100), 4)}
        ROW(OrbImageLut, setFilename("a"))
        ROW(OrbImageLut, lutData()[3] = 7);
    Rows<OrbVideoState>{"OrbVideoState"}
        ROW(OrbVideoState, setValid(true))
        ROW(OrbVideoState, setPresent(true))
        ROW(OrbVideoState, setRecInhibit(OrbId(2000)))
        ROW(OrbVideoState, setInputImageDesc(someImage()))
        ROW(OrbVideoState, setCaptureImageDesc(someImage()));
    Rows<OrbVideoRefState>{"OrbVideoRefState"}
        ROW(OrbVideoRefState, setImageDesc(someImage()))
        ROW(OrbVideoRefState, setSource(OrbId(503)))
        ROW(OrbVideoRefState, setLocked(true))
        ROW(OrbVideoRefState, setPresent(true));
    Rows<OrbStreamInfo>{"OrbStreamInfo"}
        ROW(OrbStreamInfo, setName("a"))
        ROW(OrbStreamInfo, setReelName("a"))
        ROW(OrbStreamInfo, vids().append(someImage()))
        ROW(OrbStreamInfo, auds().append(someAudio()))
        ROW(OrbStreamInfo, setFrameRate(someRate))
        ROW(OrbStreamInfo, setEffectiveFrameRate(someRate))
        ROW(OrbStreamInfo, setOffset(1))
        ROW(OrbStreamInfo, setLength(1))
        ROW(OrbStreamInfo, setGrowing(true));
}

static void addSetupRows()
{
    using S = OrbVideoDeviceSetup;
    Rows<S>{"OrbVideoDeviceSetup"}
        ROW(S, setImageDesc(someImage()))
        ROW(S, setAudioDesc(someAudio()))
        ROW(S, setInputLut(OrbImageLut(OrbId(1100), 4)))
        ROW(S, setOutputLut(OrbImageLut(OrbId(1100), 4)))
        ROW(S, setInputRefSource(someId))
        ROW(S, setVideoOutputType(someId))
        ROW(S, setVideoInputSource(someId))
        ROW(S, setAudioInputSource(someId))
        ROW(S, setAudioInputLevel(someId))
        ROW(S, setVideoSignalGenMode(someId))
        ROW(S, setVideoSignalGenColorSpace(someId))
        ROW(S, setAudioSignalGenMode(someId))
        ROW(S, setCameraInput(someId))
        ROW(S, setVideoInConvert(someId))
        ROW(S, setVideoOutConvert(someId))
        ROW(S, setSuperOut(someId))
        ROW(S, setVideoOutRoute(someId))
        ROW(S, setTimecodeInputSource(someId))
        ROW(S, setForcePSFOutput(true))
        ROW(S, setForcePSFEncode(true))
        ROW(S, setForceVFRRecord(true))
        ROW(S, setMode(S::Capture))
        ROW(S, setMode(1))
        ROW(S, setImageCount(1))
        ROW(S, setMaxBuffers(41))
        ROW(S, setBlackingEnabled(true));
}

static void addSmallRows()
{
    Rows<OrbTimecode>{"OrbTimecode"}
        ROW(OrbTimecode, setHour(1))
        ROW(OrbTimecode, setMin(1))
        ROW(OrbTimecode, setSec(1))
        ROW(OrbTimecode, setFrame(1))
        ROW(OrbTimecode, setFPS(25))
        ROW(OrbTimecode, setValid(true))
        ROW(OrbTimecode, setDropFrame(true))
        ROW(OrbTimecode, setFlag(4, true));
    Rows<OrbAlarm>{"OrbAlarm"} ROW(OrbAlarm, setLevel(OrbAlarm::Error));
    Rows<OrbCryptoKey>{"OrbCryptoKey"}
        ROW(OrbCryptoKey, set(reinterpret_cast<const unsigned char *>("abcd"), 4));
    Rows<OrbMetadataHash>{"OrbMetadataHash"}
        ROW(OrbMetadataHash, insert(OrbMetadata(OrbId(1), 7)))
        ROW(OrbMetadataHash, insert(OrbId(25), true));
    Rows<OrbPlayListEntry>{"OrbPlayListEntry"}
        ROW(OrbPlayListEntry, setName("a"))
        ROW(OrbPlayListEntry, setDesc(QVariant("/a")))
        ROW(OrbPlayListEntry, setLength(1));
    Rows<OrbPlayList>{"OrbPlayList", {OrbPlayListEntry(), OrbPlayListEntry()}}
        ROW(OrbPlayList, append(OrbPlayListEntry()))
        ROW(OrbPlayList, operator[](1).setLength(1));
}

static void addFrameRows()
{
    const auto row = [](const char *name, auto change) {
        QTest::addRow("OrbFrame::%s", name) << check(OrbFrame(), change, sameFrame);
    };
    row("vids", [](OrbFrame &f) { f.vids().append(OrbImage()); });
    row("auds", [](OrbFrame &f) { f.auds().append(OrbAudio()); });
    row("meta", [](OrbFrame &f) { f.meta().insert(OrbId(1), 1); });
    row("setSubtitle", [](OrbFrame &f) { f.setSubtitle({.data = "a"}); });
    row("setKeyFrameFlag", [](OrbFrame &f) { f.setKeyFrameFlag(false); });
    const auto sameImage = [](const OrbImage &a, const OrbImage &b) {
        return a.desc() == b.desc() && a.planes() == b.planes();
    };
    QTest::newRow("OrbImage::setDesc")
        << check(OrbImage(), [](OrbImage &i) { i.setDesc(someImage()); }, sameImage);
    const OrbBuffer buffer(16, 0);
    QTest::newRow("OrbImage::planes")
        << check(OrbImage(), [buffer](OrbImage &i) { i.planes().append(buffer); }, sameImage);
    const auto sameAudio = [](const OrbAudio &a, const OrbAudio &b) {
        return a.desc() == b.desc() && a.buffers() == b.buffers();
    };
    QTest::newRow("OrbAudio::setDesc")
        << check(OrbAudio(), [](OrbAudio &a) { a.setDesc(someAudio()); }, sameAudio);
    QTest::newRow("OrbAudio::buffers")
        << check(OrbAudio(), [buffer](OrbAudio &a) { a.buffers().append(buffer); }, sameAudio);
}

static void addStateRows()
{
    using S = VtrState;
    Rows<S>{"VtrState"}
        ROW(S, setMode(S::Play))
        ROW(S, setSpeed(0.5))
        ROW(S, setLooping(true))
        ROW(S, setIntervalRecordEnable(true))
        ROW(S, setRecordInterval(2))
        ROW(S, setRecordIntervalTime(1))
        ROW(S, setAudioChans(8))
        ROW(S, setEncodeFormat(someId))
        ROW(S, setVideoOutputType(someId))
        ROW(S, setVideoInputSource(someId))
        ROW(S, setAudioInputSource(someId))
        ROW(S, setAudioInputLevel(someId))
        ROW(S, setSyncSource(someId))
        ROW(S, setCameraInput(someId))
        ROW(S, setVideoSignalGenMode(someId))
        ROW(S, setAudioSignalGenMode(someId))
        ROW(S, setVideoInConvert(someId))
        ROW(S, setVideoOutConvert(someId))
        ROW(S, setSuperOut(someId))
        ROW(S, setVideoOutputRoute(someId))
        ROW(S, setVideoSignalGenFormat(someImage()))
        ROW(S, setInputLut(OrbImageLut(OrbId(1100), 4)))
        ROW(S, setOutputLut(OrbImageLut(OrbId(1100), 4)))
        ROW(S, setForcePSFOutput(true))
        ROW(S, setForcePSFEncode(true))
        ROW(S, setVFREnabled(true))
        ROW(S, setStopOnFrameDrop(true));
    // Not compared, so told apart by its getter
    QTest::newRow("VtrState::setStopOnLossOfVideo") << check(
        S(), [](S &s) { s.setStopOnLossOfVideo(false); },
        [](const S &a, const S &b) { return a.stopOnLossOfVideo() == b.stopOnLossOfVideo(); });
}

void TestValueCopies::settersDetach_data()
{
    QTest::addColumn<Check>("check");
    addDescRows();
    addSetupRows();
    addSmallRows();
    addFrameRows();
    addStateRows();
}

void TestValueCopies::settersDetach()
{
    QFETCH(Check, check);
    const char *problem = check();
    QVERIFY2(problem == nullptr, problem);
}

void TestValueCopies::buffersDoNotDetach()
{
    OrbBuffer first(16, 16);
    QVERIFY(first.isValid());
    OrbBuffer second = first;
    second.data()[3] = 42;
    QCOMPARE(first.data()[3], uchar(42));
    QVERIFY(first == second);
    OrbFrame frame;
    frame.vids().append(OrbImage(someImage(), first));
    OrbFrame copy = frame;
    copy.setKeyFrameFlag(true); // detaches the frame, not its buffers
    copy.vids().first().planes().first().data()[3] = 43;
    QCOMPARE(first.data()[3], uchar(43));
}

QTEST_APPLESS_MAIN(TestValueCopies)
#include "tst_valuecopies.moc"
