// Decisions of the media service without a medium: which one is active, which comes next, what is a clip's name.

#include "clipname.h"
#include "mediachoice.h"
#include "mounttable.h"
#include "slotfile.h"

#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

namespace {

MediumFacts slot(const std::string &path, bool isPresent = true, double freePercent = 50)
{
    return {path, true, isPresent, freePercent, false, true};
}

MediumFacts named(const std::string &path, bool isPresent = true, double freePercent = 50)
{
    return {path, false, isPresent, freePercent, false, true};
}

MediumFacts coming(const std::string &path)
{
    return {path, true, false, 0, true, true};
}

MediumFacts readOnly(MediumFacts medium)
{
    medium.isWritable = false;
    return medium;
}

using Media = std::vector<MediumFacts>;

} // namespace

class TestMediaChoice : public QObject
{
    Q_OBJECT
private slots:
    void theNextMediumIsTheNextOneWithRoom();
    void exactlyFifteenPercentIsNoRoom();
    void withoutRoomAnywhereTheNextOnePresentMayStillBeExchanged();
    void theFirstSlotWithAMediumBecomesActive();
    void anActiveSlotWithoutAMediumGivesWay();
    void nothingTakesTheActivePathAwayWhileTheStorageIsInUse();
    void aPathThatAClientChoseStays();
    void aRolloverMediumStaysWhileItHasRoom();
    void aRolloverMediumThatComesDuringARecordingIsTaken();
    void aRolloverMediumThatIsPulledOutIsReplacedOrForgotten();
    void aMediumThatCannotBeWrittenIsNeverNext();
    void aMediumThatCannotBeWrittenBecomesActiveOnlyWithoutAnother();
    void theActiveMediumIsNeverItsOwnNext();
    void nothingIsDecidedAgainstAMediumThatIsJustComing();
    void tenRolloversGoRoundThreeMedia();
    void theMediumJustFilledIsNotTakenForRoomy();
    void namesOfClips_data();
    void namesOfClips();
    void numbersInNamesCount();
    void mountPointsAreUnescaped();
    void aMediumThatFailedIsGivenUpByTheSystem();
    void slotFilesAreReadLineByLine();
    void aMissingSlotFileMeansTwoSlots();
};

void TestMediaChoice::theNextMediumIsTheNextOneWithRoom()
{
    const Media media{slot("/a"), slot("/b", true, 15), slot("/c", false), slot("/d"), slot("/e")};
    QCOMPARE(nextMedium(media, "/a"), std::string("/d"));
    QCOMPARE(nextMedium(media, "/d"), std::string("/e"));
    QCOMPARE(nextMedium(media, "/e"), std::string("/a"));
    QCOMPARE(nextMedium(media, "/unknown"), std::string("/a"));
    QCOMPARE(nextMedium({}, "/a"), std::string());
}

void TestMediaChoice::exactlyFifteenPercentIsNoRoom()
{
    QCOMPARE(nextMedium({slot("/a"), slot("/b", true, 15), slot("/c", true, 16)}, "/a"), std::string("/c"));
}

void TestMediaChoice::withoutRoomAnywhereTheNextOnePresentMayStillBeExchanged()
{
    QCOMPARE(nextMedium({slot("/a"), slot("/b", true, 3)}, "/a"), std::string("/b"));
    QCOMPARE(nextMedium({slot("/a"), slot("/b", false)}, "/a"), std::string());
}

void TestMediaChoice::theFirstSlotWithAMediumBecomesActive()
{
    QVERIFY(choosePaths({slot("/a", false), slot("/b", false)}, {}, false) == MediaPaths());
    QVERIFY(choosePaths({slot("/a", false), slot("/b")}, {}, false) == (MediaPaths{"/b", ""}));
    QVERIFY(choosePaths({slot("/a"), slot("/b")}, {"/b", ""}, false) == (MediaPaths{"/b", "/a"}));
    QVERIFY(choosePaths({named("/x")}, {}, false) == (MediaPaths{"", "/x"}));
}

void TestMediaChoice::anActiveSlotWithoutAMediumGivesWay()
{
    QVERIFY(choosePaths({slot("/a", false), slot("/b")}, {"/a", "/b"}, false) == (MediaPaths{"/b", ""}));
    QVERIFY(choosePaths({slot("/a", false), slot("/b", false)}, {"/a", ""}, false) == MediaPaths());
}

void TestMediaChoice::nothingTakesTheActivePathAwayWhileTheStorageIsInUse()
{
    QVERIFY(choosePaths({slot("/a", false), slot("/b")}, {"/a", ""}, true) == (MediaPaths{"/a", "/b"}));
}

void TestMediaChoice::aPathThatAClientChoseStays()
{
    QVERIFY(choosePaths({slot("/a"), named("/x", false)}, {"/x", ""}, false) == (MediaPaths{"/x", "/a"}));
    QVERIFY(choosePaths({slot("/a"), named("/x", false)}, {"/a", "/x"}, false) == (MediaPaths{"/a", "/x"}));
    QVERIFY(choosePaths({}, {"/x", "/y"}, false).active == "/x");
}

void TestMediaChoice::aRolloverMediumStaysWhileItHasRoom()
{
    const Media media{slot("/a"), slot("/b"), slot("/c")};
    QVERIFY(choosePaths(media, {"/a", "/c"}, false) == (MediaPaths{"/a", "/c"}));
    const Media full{slot("/a"), slot("/b"), slot("/c", true, 12)};
    QVERIFY(choosePaths(full, {"/a", "/c"}, true) == (MediaPaths{"/a", "/b"}));
    const Media bothFull{slot("/a"), slot("/b", true, 1), slot("/c", true, 12)};
    QVERIFY(choosePaths(bothFull, {"/a", "/c"}, true) == (MediaPaths{"/a", "/c"}));
}

void TestMediaChoice::aRolloverMediumThatComesDuringARecordingIsTaken()
{
    QVERIFY(choosePaths({slot("/a"), slot("/b")}, {"/a", ""}, true) == (MediaPaths{"/a", "/b"}));
}

void TestMediaChoice::aRolloverMediumThatIsPulledOutIsReplacedOrForgotten()
{
    QVERIFY(choosePaths({slot("/a"), slot("/b", false), slot("/c")}, {"/a", "/b"}, true) ==
            (MediaPaths{"/a", "/c"}));
    QVERIFY(choosePaths({slot("/a"), slot("/b", false)}, {"/a", "/b"}, true) == (MediaPaths{"/a", ""}));
}

void TestMediaChoice::aMediumThatCannotBeWrittenIsNeverNext()
{
    const MediumFacts a = slot("/a"), b = readOnly(slot("/b")), x = readOnly(named("/x"));
    QCOMPARE(nextMedium({a, b, slot("/c")}, "/a"), std::string("/c"));
    QCOMPARE(nextMedium({a, b}, "/a"), std::string());
    QCOMPARE(nextMedium({a, b, slot("/c", true, 3)}, "/a"), std::string("/c"));
    for (const bool isInUse : {false, true}) {
        QVERIFY(choosePaths({a, b}, {"/a", ""}, isInUse) == (MediaPaths{"/a", ""}));
        QVERIFY(choosePaths({a, b}, {"/a", "/b"}, isInUse) == (MediaPaths{"/a", ""}));
        QVERIFY(choosePaths({a, b, slot("/c", true, 3)}, {"/a", "/b"}, isInUse) == (MediaPaths{"/a", "/c"}));
        // Not even when a client has named it.
        QVERIFY(choosePaths({a, x}, {"/a", "/x"}, isInUse) == (MediaPaths{"/a", ""}));
    }
    QVERIFY(afterRollover({a, b, slot("/c")}, {"/a", "/c"}) == (MediaPaths{"/c", "/a"}));
}

void TestMediaChoice::aMediumThatCannotBeWrittenBecomesActiveOnlyWithoutAnother()
{
    const MediumFacts a = readOnly(slot("/a"));
    QVERIFY(choosePaths({a, slot("/b")}, {}, false) == (MediaPaths{"/b", ""}));
    QVERIFY(choosePaths({a, slot("/b", false)}, {}, false) == (MediaPaths{"/a", ""}));
    // Once it is there it stays: it may be there to be played.
    QVERIFY(choosePaths({a, slot("/b")}, {"/a", ""}, false) == (MediaPaths{"/a", "/b"}));
}

void TestMediaChoice::theActiveMediumIsNeverItsOwnNext()
{
    QVERIFY(choosePaths({slot("/a")}, {"/a", "/a"}, false) == (MediaPaths{"/a", ""}));
    QVERIFY(choosePaths({slot("/a"), slot("/b")}, {"/a", "/a"}, false) == (MediaPaths{"/a", "/b"}));
}

void TestMediaChoice::nothingIsDecidedAgainstAMediumThatIsJustComing()
{
    const Media media{coming("/a"), slot("/b")};
    QVERIFY(choosePaths(media, {"", ""}, false) == (MediaPaths{"", ""}));
    QVERIFY(choosePaths(media, {"/a", "/b"}, false) == (MediaPaths{"/a", "/b"}));
    QVERIFY(choosePaths(media, {"/b", "/a"}, false) == (MediaPaths{"/b", "/a"}));
    QVERIFY(choosePaths({slot("/a"), coming("/b")}, {"", ""}, false) == (MediaPaths{"/a", ""}));
    // The order of the slots counts, not the order in which they are listed; a recording does not wait.
    const Media second{slot("/a"), coming("/b"), slot("/c")};
    QVERIFY(choosePaths(second, {"/a", ""}, false) == (MediaPaths{"/a", ""}));
    QVERIFY(choosePaths(second, {"/a", ""}, true) == (MediaPaths{"/a", "/c"}));
    QVERIFY(choosePaths(second, {"/c", ""}, false) == (MediaPaths{"/c", "/a"}));
    QVERIFY(choosePaths({slot("/a"), slot("/b"), slot("/c")}, {"/a", ""}, false) == (MediaPaths{"/a", "/b"}));
}

void TestMediaChoice::tenRolloversGoRoundThreeMedia()
{
    const Media media{slot("/a"), slot("/b"), slot("/c")};
    MediaPaths now = choosePaths(media, {}, false);
    std::string story = now.active;
    for (int i = 0; i < 10; ++i) {
        now = choosePaths(media, afterRollover(media, now), true);
        QVERIFY(!now.rollover.empty());
        QVERIFY(now.rollover != now.active);
        story += now.active;
    }
    QCOMPARE(story, std::string("/a/b/c/a/b/c/a/b/c/a/b"));
}

void TestMediaChoice::theMediumJustFilledIsNotTakenForRoomy()
{
    const Media media{slot("/a"), slot("/b"), slot("/c")};
    QVERIFY(afterRollover(media, {"/a", "/c"}) == (MediaPaths{"/c", "/b"}));
    QVERIFY(afterRollover({slot("/a"), slot("/b")}, {"/a", "/b"}) == (MediaPaths{"/b", "/a"}));
    QVERIFY(afterRollover(media, {"/a", ""}) == (MediaPaths{"/a", ""}));
}

void TestMediaChoice::namesOfClips_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<bool>("isClip");
    // clang-format off
    QTest::newRow("plain")           << QByteArray("R001C0042.mov")       << true;
    QTest::newRow("blanks")          << QByteArray(" a  clip .mov")       << true;
    QTest::newRow("dots")            << QByteArray("a.b..mov.mov")        << true;
    QTest::newRow("capitals")        << QByteArray("CLIP.MOV")            << true;
    QTest::newRow("letters")         << QByteArray("Stra\xc3\x9f" "e \xe6\x98\xa0 \xf0\x9f\x8e\xac.mov") << true;
    QTest::newRow("marks")           << QByteArray("#a'b\"c;$(d)\\.mov")  << true;
    QTest::newRow("longest")         << QByteArray(251, 'a').append(".mov") << true;
    QTest::newRow("too long")        << QByteArray(252, 'a').append(".mov") << false;
    QTest::newRow("extension alone") << QByteArray(".mov")                << false;
    QTest::newRow("hidden")          << QByteArray(".hidden.mov")         << false;
    QTest::newRow("another file")    << QByteArray("notes.txt")           << false;
    QTest::newRow("half written")    << QByteArray("clip.mov.part")       << false;
    QTest::newRow("line end")        << QByteArray("a\nb.mov")            << false;
    QTest::newRow("escape")          << QByteArray("a\x1b[2Jb.mov")       << false;
    QTest::newRow("delete")          << QByteArray("a\x7f.mov")           << false;
    QTest::newRow("next line")       << QByteArray("a\xc2\x85.mov")       << false;
    QTest::newRow("line separator")  << QByteArray("a\xe2\x80\xa8.mov")   << false;
    QTest::newRow("no UTF-8")        << QByteArray("a\xff.mov")           << false;
    QTest::newRow("overlong UTF-8")  << QByteArray("a\xc0\xaf.mov")       << false;
    QTest::newRow("folder")          << QByteArray("a/b.mov")             << false;
    // clang-format on
}

void TestMediaChoice::namesOfClips()
{
    QFETCH(QByteArray, name);
    QFETCH(bool, isClip);
    QCOMPARE(isClipName(name.toStdString()), isClip);
}

void TestMediaChoice::numbersInNamesCount()
{
    std::vector<std::string> names{"A_10.mov", "A.mov", "A_2.mov", "A_02.mov", "B1.mov",
                                   "A_1000000000000000000000.mov"};
    std::ranges::sort(names, comesBefore);
    const std::vector<std::string> wanted{"A.mov", "A_02.mov", "A_2.mov", "A_10.mov",
                                          "A_1000000000000000000000.mov", "B1.mov"};
    QVERIFY(names == wanted);
    for (const std::string &a : names) {
        for (const std::string &b : names)
            QCOMPARE(comesBefore(a, b) || comesBefore(b, a), a != b);
    }
}

void TestMediaChoice::mountPointsAreUnescaped()
{
    const std::string table = "22 1 0:20 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
                              "36 22 8:1 / /media/card\\040one\\134x rw - exfat /dev/sdb1 rw\n"
                              "torn line\n"
                              "37 22 8:2 / /media/a\\04 rw - ext4 none rw\n";
    const std::set<std::string> wanted{"/", "/media/card one\\x", "/media/a\\04"};
    QVERIFY(mountPointsIn(table) == wanted);
}

void TestMediaChoice::aMediumThatFailedIsGivenUpByTheSystem()
{
    const std::string table = "22 1 0:20 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
                              "36 22 8:1 / /media/a\\040b rw,relatime - ext4 /dev/sdb1 rw,emergency_ro\n"
                              "37 22 8:2 / /media/c rw - ext4 /dev/sdc1 rw,shutdown,stripe=4\n"
                              "38 22 8:3 / /media/d rw - ext4 /dev/sdd1 rw,emergency_ro\n"
                              "torn /media/e\n"
                              "39 38 8:4 / /media/d rw - xfs /dev/shutdown rw\n";
    QVERIFY(isGivenUpIn(table, "/media/a b"));
    QVERIFY(isGivenUpIn(table, "/media/c"));
    for (const char *sound : {"/", "/media/d", "/media/e", "/media/f", ""})
        QVERIFY2(!isGivenUpIn(table, sound), sound);
}

void TestMediaChoice::slotFilesAreReadLineByLine()
{
    std::string problem;
    const std::vector<std::string> wanted{"/media/a b", "/media/c"};
    QVERIFY(slotsIn("# slots\r\n\r\n  /media/a b/ \r\n/media//c\n/media/c\n", problem) == wanted);
    QCOMPARE(problem, std::string());
    QVERIFY(slotsIn("/media/a b\nmedia/x\n/media/c\n/", problem) == wanted);
    QCOMPARE(problem, std::string("line 2: not the path of a mount point"));
    std::string many;
    for (int i = 0; i < 20; ++i)
        many += "/media/" + std::to_string(i) + "\n";
    problem.clear();
    QCOMPARE(slotsIn(many, problem).size(), std::size_t(16));
    QCOMPARE(problem, std::string("line 17: too many slots"));
}

void TestMediaChoice::aMissingSlotFileMeansTwoSlots()
{
    const QTemporaryDir dir;
    const std::string name = dir.filePath(QStringLiteral("slots")).toStdString();
    std::string problem;
    QCOMPARE(readSlotFile(name, problem).size(), std::size_t(2));
    QCOMPARE(problem, std::string());
    QFile file(QString::fromStdString(name));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("/media/x\n");
    file.close();
    QVERIFY(readSlotFile(name, problem) == std::vector<std::string>{"/media/x"});
}

QTEST_APPLESS_MAIN(TestMediaChoice)
#include "tst_media_choice.moc"
