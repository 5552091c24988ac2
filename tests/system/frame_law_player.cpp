#include "frame_law_player.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTimer>

#include <cstdio>

namespace law {

namespace {

constexpr int pollMs = 5;
constexpr int patienceMs = 15'000;
constexpr std::size_t framesToBeSure = 4;
constexpr std::size_t framesToStart = 6;

} // namespace

Player::Player(const char *input, const char *inputFormat)
{
    qputenv("RVD_INPUT", input);
    qputenv("RVD_INPUT_FORMAT", inputFormat);
    _vtr = std::make_unique<VtrObject>();
    connect(_vtr.get(), &VtrObject::requestPlaybackStreamDesc, this,
            [this](QVariant &desc, int &startFrame) {
                desc = _desc;
                startFrame = _startFrame;
            });
    connect(_vtr.get(), &VtrObject::requestRecordStreamDesc, this,
            [this](QVariant &desc) { desc = _recordPath; });
    connect(_vtr.get(), &VtrObject::streamIsOpen, this, [this] { _isStreamOpen = true; });
    connect(_vtr.get(), &VtrObject::streamIsClosed, this, [this] { _isStreamOpen = false; });
    connect(_vtr.get(), &VtrObject::frameDropped, this, [this] { ++_dropped; });
    connect(_vtr.get(), &VtrObject::shutdownIsComplete, this, [this] { _isShutdown = true; });
    _watch = std::make_unique<Watch>(qEnvironmentVariable("RVD_PROGRAM_BUS").toStdString());
    _vtr->start();
    waitFor([this] { return !_vtr->hasPendingModeChange() && _watch->count() > 0; }, patienceMs);
}

Player::~Player()
{
    waitFor([this] { return !_vtr->hasPendingModeChange(); }, patienceMs);
    _vtr->shutdown();
    waitFor([this] { return _isShutdown; }, patienceMs);
}

bool Player::waitFor(const std::function<bool()> &isSo, int timeoutMs)
{
    QElapsedTimer watch;
    watch.start();
    QTimer poll;
    poll.setTimerType(Qt::PreciseTimer);
    poll.start(pollMs);
    while (!isSo()) {
        if (watch.elapsed() > timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

bool Player::waitForFrames(std::size_t from, std::size_t count)
{
    return waitFor([&] { return _watch->count() >= from + count; }, patienceMs);
}

void Player::runFor(int ms)
{
    waitFor([] { return false; }, ms);
}

QString Player::standbyOff()
{
    _vtr->standbyOff();
    const bool isThere = waitFor(
        [this] {
            return _vtr->state().isInModeStandbyOff() && !_vtr->hasPendingModeChange()
                   && !_isStreamOpen && _watch->count() > 0 && _watch->last().number < 0;
        },
        patienceMs);
    return isThere ? QString() : QStringLiteral("no Standby Off: ") + _vtr->stateToString();
}

QString Player::load(const Material &material)
{
    if (const QString problem = standbyOff(); !problem.isEmpty())
        return problem;
    offer(material);
    _vtr->still();
    const bool isOpen = waitFor([this] { return _isStreamOpen; }, patienceMs);
    return isOpen ? standOn(material, 0)
                  : QStringLiteral("the stream does not open: ") + _vtr->stateToString();
}

QString Player::standOn(const Material &material, int frame)
{
    _vtr->cue(frame);
    const bool isThere = waitFor(
        [&] {
            const std::size_t count = _watch->count();
            if (count < framesToBeSure)
                return false;
            for (const Shown &seen : _watch->since(count - framesToBeSure)) {
                const bool isShown = seen.content == bus::Content::Playback
                                     || seen.content == bus::Content::Held;
                if (!isShown || !material.differs(seen, frame).isEmpty())
                    return false;
            }
            return true;
        },
        patienceMs);
    return isThere ? QString()
                   : QStringLiteral("cue to %1 does not arrive; seen %2; %3")
                         .arg(frame).arg(_watch->last().toString(), _vtr->stateToString());
}

Finding Player::watched(const std::function<Finding()> &run)
{
    constexpr int tries = 3;
    Finding finding;
    for (int i = 0; i < tries; ++i) {
        const std::uint64_t before = _watch->missed();
        finding = run();
        const std::uint64_t missed = _watch->missed() - before;
        if (missed == 0)
            return finding;
        std::printf("# the watch missed %d frames of the bus\n", static_cast<int>(missed));
        finding.problem.prepend(QStringLiteral("THE WATCH MISSED %1 FRAMES OF THE BUS; ").arg(missed));
    }
    return finding;
}

Finding Player::play(const Material &material, const Run &run, int outputs)
{
    Finding finding;
    finding.problem = standOn(material, run.start);
    if (!finding.holds())
        return finding;
    _vtr->setLooping(run.looping);
    const int lateBefore = lateBeats();
    const int droppedBefore = _dropped;
    const std::size_t from = _watch->count();
    _vtr->play(run.speed.value());
    if (!waitForFrames(from, static_cast<std::size_t>(outputs) + framesToStart)) {
        finding.problem = QStringLiteral("the bus stands still");
        return finding;
    }
    const std::vector<Shown> seen = _watch->since(from);
    finding = follow(seen, material, run, lateBeats() - lateBefore);
    // At normal speed a late frame is a dropped one, and the operator is told.
    const auto isTold = [&] { return _dropped - droppedBefore >= finding.late; };
    if (run.speed.isNormal() && !run.looping && finding.holds() && !waitFor(isTold, 200))
        finding.problem = QStringLiteral("%1 late frames and %2 told").arg(finding.late).arg(_dropped - droppedBefore);
    return finding;
}

QString Player::record(const QString &path, int ms)
{
    _recordPath = path;
    _vtr->record();
    if (!waitFor([this] { return _isStreamOpen; }, patienceMs))
        return QStringLiteral("no recording: ") + _vtr->stateToString();
    runFor(ms);
    return standbyOff();
}

int Player::lateBeats() const
{
    static const QRegularExpression number(QStringLiteral("(\\d+) without a frame"));
    return number.match(_vtr->stateToString()).captured(1).toInt();
}

} // namespace law
