#include "liborb/orbplaylist.h"

#include <QTest>

#include <limits>

class TestOrbPlayList : public QObject
{
    Q_OBJECT

private slots:
    void anEntryNeedsNameDescriptorAndLength();
    void entriesBeginWhereThoseBeforeEnd();
    void everyFrameLiesInItsEntry();
    void invalidEntriesTakeNoFrames();
    void theEmptyListHasNothing();
    void endlessListsDoNotOverflow();
    void theDefaultIndexIsInvalid();
    void anIndexNeedsBothNumbersAndAValidEntry();
    void listsTravelInVariants();
};

static OrbPlayListEntry entry(const QString &name, int length)
{
    OrbPlayListEntry e;
    e.setName(name);
    e.setDesc(QStringLiteral("/media/") + name);
    e.setLength(length);
    return e;
}

void TestOrbPlayList::anEntryNeedsNameDescriptorAndLength()
{
    QVERIFY(!OrbPlayListEntry().isValid());
    QCOMPARE(OrbPlayListEntry().length(), 0);
    QVERIFY(entry(QStringLiteral("a"), 1).isValid());
    QVERIFY(!entry(QString(), 1).isValid());
    QVERIFY(!entry(QStringLiteral("a"), 0).isValid());
    QVERIFY(!entry(QStringLiteral("a"), -1).isValid());
    OrbPlayListEntry e = entry(QStringLiteral("a"), 1);
    e.setDesc(QVariant());
    QVERIFY(!e.isValid());
}

void TestOrbPlayList::entriesBeginWhereThoseBeforeEnd()
{
    const OrbPlayList list{entry("a", 10), entry("b", 5), entry("c", 1)};
    QCOMPARE(list.firstFrameOfEntry(0), 0);
    QCOMPARE(list.firstFrameOfEntry(1), 10);
    QCOMPARE(list.firstFrameOfEntry(2), 15);
    QCOMPARE(list.firstFrameOfEntry(3), -1);
    QCOMPARE(list.firstFrameOfEntry(-1), -1);
    QCOMPARE(list.frameCount(), 16);
}

void TestOrbPlayList::everyFrameLiesInItsEntry()
{
    const OrbPlayList list{entry("a", 10), entry("b", 5), entry("c", 1)};
    QCOMPARE(list.entryOfFrame(-1), -1);
    QCOMPARE(list.entryOfFrame(0), 0);
    QCOMPARE(list.entryOfFrame(9), 0);
    QCOMPARE(list.entryOfFrame(10), 1);
    QCOMPARE(list.entryOfFrame(14), 1);
    QCOMPARE(list.entryOfFrame(15), 2);
    QCOMPARE(list.entryOfFrame(16), -1);
}

void TestOrbPlayList::invalidEntriesTakeNoFrames()
{
    const OrbPlayList list{entry("a", 10), entry("", 5), entry("c", -3), entry("d", 2)};
    QCOMPARE(list.firstFrameOfEntry(1), -1);
    QCOMPARE(list.firstFrameOfEntry(2), -1);
    QCOMPARE(list.firstFrameOfEntry(3), 10);
    QCOMPARE(list.entryOfFrame(10), 3);
    QCOMPARE(list.frameCount(), 12);
}

void TestOrbPlayList::theEmptyListHasNothing()
{
    QCOMPARE(OrbPlayList().firstFrameOfEntry(0), -1);
    QCOMPARE(OrbPlayList().frameCount(), 0);
    QCOMPARE(OrbPlayList().entryOfFrame(0), -1);
}

void TestOrbPlayList::endlessListsDoNotOverflow()
{
    constexpr int most = std::numeric_limits<int>::max();
    const OrbPlayList list{entry("a", most), entry("b", most), entry("c", most)};
    QCOMPARE(list.frameCount(), most);
    QCOMPARE(list.firstFrameOfEntry(2), most);
    QCOMPARE(list.entryOfFrame(most), 1);
}

void TestOrbPlayList::theDefaultIndexIsInvalid()
{
    const OrbPlayListIndex index;
    QVERIFY(!index.isValid());
    QCOMPARE(index.entryIndex(), -1);
    QCOMPARE(index.frame(), -1);
}

void TestOrbPlayList::anIndexNeedsBothNumbersAndAValidEntry()
{
    const OrbPlayList list{entry("a", 10), entry("b", 0)};
    const OrbPlayListIndex index(list, 0, 4);
    QVERIFY(index.isValid());
    QCOMPARE(index.entry().name(), QStringLiteral("a"));
    QCOMPARE(index.playList().size(), 2);
    QVERIFY(!OrbPlayListIndex(list, -1, 0).isValid());
    QVERIFY(!OrbPlayListIndex(list, 0, -1).isValid());
    QVERIFY(!OrbPlayListIndex(list, 1, 0).isValid());
    QVERIFY(!OrbPlayListIndex(list, 2, 0).isValid());
    QVERIFY(!OrbPlayListIndex(OrbPlayList(), 0, 0).isValid());
    QCOMPARE(index, OrbPlayListIndex(list, 0, 4));
}

void TestOrbPlayList::listsTravelInVariants()
{
    const OrbPlayList list{entry("a", 10)};
    const QVariant desc = QVariant::fromValue(list);
    QVERIFY(desc.canConvert<OrbPlayList>());
    QCOMPARE(desc.value<OrbPlayList>().first().name(), QStringLiteral("a"));
    QVERIFY(desc == QVariant::fromValue(OrbPlayList{entry("a", 10)}));
    QVERIFY(!QVariant(QStringLiteral("/media/a")).canConvert<OrbPlayList>());
}

QTEST_APPLESS_MAIN(TestOrbPlayList)
#include "tst_orbplaylist.moc"
