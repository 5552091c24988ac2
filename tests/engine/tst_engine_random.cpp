// Stories of random commands, settings, inputs and faults against the shipped engine in virtual
// time, and the rules of Invariants that must hold all through them. After each story the faults
// end, and every mode must be reached again.
//
// The environment chooses:
//   RV_STRESS_SEEDS   how many stories are told (400, with sanitizers 100), of RV_STRESS_ACTS acts (250) each
//   RV_STRESS_SEED    only this one
//   RV_STRESS_ONLY    and of it only these acts, such as 3,17,41-44
//   RV_STRESS_TRACE   set: acts and log records are printed
// A story that breaks a rule is shortened to the acts that matter and ends with the line that tells
// it again.

#include "enginerig.h"
#include "story.h"
#include "stressrig.h"

#include "liborb/orb.h"

#include <algorithm>
#include <ctime>
#include <vector>

class TestEngineRandom : public QObject
{
    Q_OBJECT

private slots:
    void everyRuleHoldsInAnyOrderOfCommandsAndFaults();
    void theSameSeedTellsTheSameStory();
};

namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr int usualSeeds = 100; ///< each takes eight times as long there
#else
constexpr int usualSeeds = 400;
#endif
constexpr int usualActs = 250;
constexpr int shorteningRuns = 600;

int numberFrom(const char *variable, int usual)
{
    bool isNumber = false;
    const int number = qEnvironmentVariableIntValue(variable, &isNumber);
    return isNumber && number > 0 ? number : usual;
}

QString withoutNumbers(QString text)
{
    return text.removeIf([](QChar c) { return c.isDigit(); });
}

/// The acts without which that rule is not broken, as far as so many runs find them: ever smaller pieces
/// are left out.
std::vector<int> shortened(quint32 seed, std::vector<int> acts, const QString &broken)
{
    const QString rule = withoutNumbers(broken);
    int runs = 0;
    for (size_t piece = std::max<size_t>(acts.size() / 2, 1); runs < shorteningRuns;) {
        bool isShorter = false;
        for (size_t from = 0; from < acts.size() && runs < shorteningRuns; ++runs) {
            std::vector<int> without = acts;
            without.erase(without.begin() + qsizetype(from),
                          without.begin() + qsizetype(std::min(from + piece, acts.size())));
            if (withoutNumbers(tellStory(seed, without).broken) != rule) {
                from += piece;
            } else {
                acts = without;
                isShorter = true;
            }
        }
        if (piece == 1 && !isShorter)
            break;
        piece = std::max<size_t>(piece / 2, 1);
    }
    return acts;
}

/// "3,17,41-44"
std::vector<int> actsFrom(const QString &list)
{
    std::vector<int> acts;
    for (const QString &part : list.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const int first = part.section(QLatin1Char('-'), 0, 0).toInt();
        const int last = part.section(QLatin1Char('-'), -1).toInt();
        for (int act = first; act <= last; ++act)
            acts.push_back(act);
    }
    return acts;
}

QString listOf(const std::vector<int> &acts)
{
    QStringList list;
    for (const int act : acts)
        list << QString::number(act);
    return list.isEmpty() ? QStringLiteral("none") : list.join(QLatin1Char(','));
}

/// What is printed of a story that broke a rule.
QString report(quint32 seed, const std::vector<int> &acts, const StoryOutcome &outcome)
{
    std::vector<int> until = acts;
    std::erase_if(until, [&](int act) { return act > outcome.act; });
    const std::vector<int> few = shortened(seed, until, outcome.broken);
    const StoryOutcome again = tellStory(seed, few);
    const QString text = QStringLiteral("\n  seed %1, act %2 (%3): %4"
                                        "\n  of those acts %5 matter, and then act %6 (%7): %8"
                                        "\n  again: RV_STRESS_SEED=%1 RV_STRESS_ONLY=%9 ");
    return text.arg(seed)
               .arg(outcome.act)
               .arg(outcome.kind, outcome.broken)
               .arg(few.size())
               .arg(again.act)
               .arg(again.kind, again.broken, listOf(few))
        + QCoreApplication::applicationFilePath();
}

} // namespace

void TestEngineRandom::everyRuleHoldsInAnyOrderOfCommandsAndFaults()
{
    const bool isOne = qEnvironmentVariableIsSet("RV_STRESS_SEED");
    const auto first = quint32(numberFrom("RV_STRESS_SEED", 1));
    const int seeds = isOne ? 1 : numberFrom("RV_STRESS_SEEDS", usualSeeds);
    std::vector<int> acts = firstActs(numberFrom("RV_STRESS_ACTS", usualActs));
    if (qEnvironmentVariableIsSet("RV_STRESS_ONLY"))
        acts = actsFrom(qEnvironmentVariable("RV_STRESS_ONLY"));
    const std::clock_t clockBegan = std::clock();
    const qint64 began = StressRig::nowMs();
    quint64 written = 0;
    quint64 shown = 0;
    quint64 told = 0;
    QStringList failures;
    for (quint32 seed = first; seed < first + quint32(seeds) && failures.size() < 3; ++seed) {
        const StoryOutcome outcome = tellStory(seed, acts);
        told += acts.size();
        written += outcome.written;
        shown += outcome.shown;
        if (!outcome.broken.isEmpty())
            failures << report(seed, acts, outcome);
    }
    const double seconds = double(std::clock() - clockBegan) / CLOCKS_PER_SEC;
    const double simulated = double(StressRig::nowMs() - began) / 1e3;
    qInfo("%d seeds from %u, %llu acts: %.0f s simulated in %.2f s of a core, %.0f times as fast; "
          "%llu frames recorded, %llu shown",
          seeds, first, static_cast<unsigned long long>(told), simulated, seconds, simulated / seconds,
          static_cast<unsigned long long>(written), static_cast<unsigned long long>(shown));
    QVERIFY2(failures.isEmpty(), qPrintable(failures.join(QString())));
}

void TestEngineRandom::theSameSeedTellsTheSameStory()
{
    const auto story = [](quint32 seed) {
        const StoryOutcome outcome = tellStory(seed, firstActs(usualActs));
        return QStringLiteral("%1 %2 %3 %4").arg(outcome.broken).arg(outcome.written).arg(
            outcome.shown).arg(outcome.last);
    };
    const QString once = story(7);
    QCOMPARE(story(7), once);
    QVERIFY(story(8) != once);
}

SIM_TEST_MAIN(TestEngineRandom)
#include "tst_engine_random.moc"
