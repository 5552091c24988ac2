#include "story.h"

#include "enginerig.h"
#include "invariants.h"
#include "operator.h"
#include "stressrig.h"

#include "liborb/orbvideodevice.h"

#include <functional>
#include <numeric>

namespace {

constexpr int actsBetweenRests = 50;

bool comesTrue(const std::function<bool()> &is, const std::function<void()> &ask = [] {})
{
    for (int i = 0; i < 10 && !is(); ++i) {
        ask();
        StressRig::run(500);
    }
    return is();
}

/// Faults end, and what was asked for must come about.
void rest(StressRig &rig, Invariants &rules)
{
    rig.endFaults();
    const VtrObject &v = *rig.vtr;
    comesTrue([&] { return !v.hasPendingModeChange() && v.canProcess(); });
    StressRig::run(600); // a tick
    comesTrue([&] { return !v.hasPendingModeChange() && v.canProcess(); });
    rules.lookAtRest();
}

/// One mode after the other, each within seconds.
void reachEveryMode(StressRig &rig, Invariants &rules)
{
    VtrObject &v = *rig.vtr;
    const auto reach = [&](VtrState::Mode mode, const std::function<void()> &ask) {
        if (!comesTrue([&] { return rules.published().mode() == mode && v.canProcess(); }, ask))
            rules.breaks(QStringLiteral("%1 is not reached any more: %2, %3")
                             .arg(VtrState::modeName(mode), v.state().modeName(),
                                  v.stateToString()));
        StressRig::run(600);
        rules.look();
    };
    const auto standbyOff = [&] { v.standbyOff(); };
    rig.endSettings();
    reach(VtrState::StandbyOff, standbyOff);
    rig.changeInput(OrbVideoState());
    rig.changeInput(EngineRig::inputState(EngineRig::hd25()));
    StressRig::run(1500);
    if (rig.device->isOpen()) {
        const quint64 written = rules.framesWritten();
        reach(VtrState::Record, [&] { v.record(); });
        StressRig::run(2000);
        if (rules.framesWritten() < written + 25)
            rules.breaks(QStringLiteral("Record records nothing"));
        reach(VtrState::StandbyOff, standbyOff);
    }
    const quint64 shown = rules.framesShown();
    reach(VtrState::Play, [&] { v.play(); });
    StressRig::run(2000);
    if (rig.device->isOpen() && rules.framesShown() < shown + 25)
        rules.breaks(QStringLiteral("Play shows nothing"));
    reach(VtrState::Standby, [&] { v.stop(); });
    reach(VtrState::StandbyOff, standbyOff);
    reach(VtrState::Shutdown, [&] { v.shutdown(); });
    if (!v.isShutdownComplete())
        rules.breaks(QStringLiteral("the shutdown is never complete"));
    rules.lookAtRest();
}

} // namespace

StoryOutcome tellStory(quint32 seed, const std::vector<int> &acts)
{
    StressRig rig(seed % 16 != 15);
    Invariants rules(rig);
    rig.vtr->start();
    StressRig::run(50);
    rig.changeInput(EngineRig::inputState(EngineRig::hd25()));
    StressRig::run(700);
    Operator hand(rig, rules, seed);
    StoryOutcome outcome;
    const bool isTold = qEnvironmentVariableIsSet("RV_STRESS_TRACE");
    for (const int act : acts) {
        if (act > 0 && act % actsBetweenRests == 0)
            rest(rig, rules);
        hand.act(act);
        outcome.act = act;
        if (isTold)
            qInfo("%8.3f act %d %s", double(StressRig::nowMs()) / 1e3, act,
                  qPrintable(hand.lastAct()));
        if (!rules.broken().isEmpty())
            break;
    }
    if (rules.broken().isEmpty()) {
        outcome.act = acts.empty() ? 0 : acts.back() + 1;
        rest(rig, rules);
        reachEveryMode(rig, rules);
        outcome.kind = QStringLiteral("the end");
    } else {
        outcome.kind = hand.lastAct();
    }
    outcome.broken = rules.broken();
    outcome.written = rules.framesWritten();
    outcome.shown = rules.framesShown();
    outcome.last = rig.vtr->stateToString() + rules.published().toString();
    return outcome;
}

std::vector<int> firstActs(int count)
{
    std::vector<int> acts(size_t(std::max(count, 0)));
    std::iota(acts.begin(), acts.end(), 0);
    return acts;
}
