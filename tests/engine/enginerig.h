#pragma once

#include "liborb/drivers/scripted/scriptedmedia.h"
#include "liborb/drivers/scripted/scriptedvideo.h"
#include "simdispatcher.h"
#include "transport/vtrobject.h"

#include <QCoreApplication>
#include <QTest>

#include <memory>
#include <optional>

/// The shipped engine on a scripted device and a scripted medium, under virtual time, with its
/// controller played by the test: what to play and to record stands in members. Everything that
/// happens is noted in one transcript: "log <level> <text>", "signal <name> …", "device: …",
/// "media: …".
class EngineRig
{
public:
    /// \a opens: the device can be opened.
    explicit EngineRig(bool opens = true);
    ~EngineRig();

    Transcript transcript;
    ScriptedVideo video;
    ScriptedMedia media;
    std::unique_ptr<VtrObject> vtr;

    // The controller's answers
    QVariant playbackDesc;
    int startFrame = 0;
    QVariant recordDesc;
    OrbId inhibitReason;
    QList<OrbAlarm> alarms;
    QList<OrbAlarm> referenceAlarms; ///< two a second, so kept out of alarms and transcript

    static constexpr char clipPath[] = "/media/a.mov";
    static constexpr char otherClipPath[] = "/media/b.mov";
    static constexpr char recordPath[] = "/media/rec.mov";

    void run(int ms) { SimDispatcher::runFor(ms); }
    /// Enters Standby Off with a good input and settles; the transcript starts empty.
    void startUp();
    void startPlay(double speed = 1.0); ///< and settles; the transcript starts empty
    void startRecord();                 ///< likewise
    void changeInput(bool isValid);
    bool invoke(const char *slot) const { return QMetaObject::invokeMethod(vtr.get(), slot); }

    VtrState::Mode mode() const { return vtr->state().mode(); }
    QStringList logs() const;        ///< "<level> <text>"
    QStringList signalsSeen() const; ///< without "signal "
    bool hasLog(int level, const QString &text) const;
    int countLog(int level, const QString &text) const;
    QStringList alarmTexts() const { return textsOf(alarms); }
    /// "<id> <level> <text>" each.
    static QStringList textsOf(const QList<OrbAlarm> &alarms);

    static OrbImageDesc imageDesc(int width, int height, int num, int den, bool isInterlaced = false,
                                  OrbIdValue type = OrbIdImageProRes422);
    static OrbImageDesc hd25() { return imageDesc(1920, 1080, 25, 1); }
    static OrbVideoState inputState(const OrbImageDesc &desc);
    static ScriptedClip clip(int length, const OrbImageDesc &desc);

private:
    void follow();

    int _sink;
};

/// A test program in virtual time.
#define SIM_TEST_MAIN(TestClass)                                                                   \
    int main(int argc, char *argv[])                                                               \
    {                                                                                              \
        QCoreApplication::setEventDispatcher(new SimDispatcher);                                   \
        QCoreApplication app(argc, argv);                                                          \
        Orb::init(0);                                                                              \
        qRegisterMetaType<VtrState>("VtrState");                                                   \
        TestClass test;                                                                            \
        return QTest::qExec(&test, argc, argv);                                                    \
    }
