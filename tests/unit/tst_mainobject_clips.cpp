#include "controllerrig.h"

#include <QDir>
#include <QFile>

/// Clips and play lists: the lists, the current clip, and the ways from clip to clip.
class TestMainObjectClips : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup() { _rig.reset(); }
    void aPlayListHasOneEntryAClip();
    void theColumnsOfAListHaveTheirKeys();
    void theNewestClipIsCurrentAtFirst();
    void aClipThatIsCurrentStays();
    void notAvailableMeansNoClip();
    void listsAreLoggedWithTheirSize();
    void anEmptyActivePathEmptiesTheListsSilently();
    void goingToAClipByNameSwitchesAndStandsStill();
    void goingToAClipByNameInPlayReopensTheStream();
    void goingToNoClipLeavesToStandbyOff();
    void goingToAnUnknownNameIsLogged();
    void indicesOutsideTheListAreLogged_data();
    void indicesOutsideTheListAreLogged();
    void oneClipAtATimeGoesThroughAllClipsWhateverIsListed();
    void inTheListModesAnIndexIsCuedInTheJoinedStream_data();
    void inTheListModesAnIndexIsCuedInTheJoinedStream();
    void inTheListModesAnUnknownIndexCuesTheStart();
    void inThePlayListModeNamesAreThoseOfThePlayList();
    void relativeStepsWrapBothWays_data();
    void relativeStepsWrapBothWays();
    void relativeStepsInAnEmptyListAreLogged();
    void relativeStepsFromAnUnknownClipAreLogged();
    void nextAndPreviousAreSteps();
    void aRecordedClipIsAppended();
    void aClipThatCannotBeReadIsNotAdded();
    void aClipUnderAnotherNameThanItsOwnIsNotFound();
    void aNameListedTwiceBeginsAtItsFirstPlace();
    void theFirstFrameOfAClipIsItsPlace();
    void newMediaInPlayKeepThePosition();
    void newMediaOutsidePlayReopenNothing();
    void anotherPlayMediaReopensInPlayOnly();
    void aNewActivePathListsItsClips();
    void thePlayListNoticeListsThePlayListOnly();

private:
    void setCurrent(const char *name) { _rig->store.put(eParamCurrentClip, std::string(name)); }
    void play();

    std::optional<ControllerRig> _rig;
};

void TestMainObjectClips::init()
{
    ControllerRig::Start start;
    start.prepare = [](ControllerRig &rig) {
        rig.setClips({{QStringLiteral("A.mov"), 100},
                      {QStringLiteral("B.mov"), 200},
                      {QStringLiteral("C.mov"), 300}},
                     {{QStringLiteral("C.mov"), 300}, {QStringLiteral("A.mov"), 100}});
    };
    _rig.emplace(start);
    _rig->settle();
    _rig->clear();
}

void TestMainObjectClips::play()
{
    _rig->command(1);
    _rig->settle(500);
    QCOMPARE(_rig->vtr->state().mode(), VtrState::Play);
    _rig->clear();
}

void TestMainObjectClips::aPlayListHasOneEntryAClip()
{
    Clip clip;
    clip.setName("A.mov");
    clip.setFrameCount(7);
    Clip other = clip;
    other.setName("B.mov");
    const OrbPlayList list = createPlayList(QStringLiteral("/m"), {clip, other});
    QCOMPARE(list.size(), 2);
    QCOMPARE(list.at(0).name(), QStringLiteral("A.mov"));
    QCOMPARE(list.at(0).desc(), QVariant(QStringLiteral("/m/A.mov")));
    QCOMPARE(list.at(0).length(), 7);
    QCOMPARE(list.at(1).desc(), QVariant(QStringLiteral("/m/B.mov")));
    QVERIFY(createPlayList(QStringLiteral("/m"), {}).isEmpty());
}

void TestMainObjectClips::theColumnsOfAListHaveTheirKeys()
{
    const QStringList keys = {MediaFormat,          MediaHeight,        MediaWidth, MediaFrameRate,
                              MediaVideoEncodeType, MediaAudioChannels, MediaStartingTimecode};
    QCOMPARE(keys, QStringList({"Format", "Height", "Width", "Frame Rate", "Encode Type",
                                "Audio Chan", "Starting TC"}));
}

void TestMainObjectClips::theNewestClipIsCurrentAtFirst()
{
    QCOMPARE(_rig->currentClip(), QStringLiteral("C.mov"));
    QCOMPARE(_rig->video->property(OrbIdPropClipName).toString(), QStringLiteral("C.mov"));
}

void TestMainObjectClips::aClipThatIsCurrentStays()
{
    setCurrent("A.mov");
    _rig->main->setInitialClip();
    QCOMPARE(_rig->currentClip(), QStringLiteral("A.mov"));
}

void TestMainObjectClips::notAvailableMeansNoClip()
{
    setCurrent("N/A");
    QCOMPARE(_rig->main->currentClip(), QString());
    _rig->change(eParamPlayMedia, 2);
    _rig->main->setInitialClip();
    QCOMPARE(_rig->currentClip(), QStringLiteral("A.mov")); // the last of the play list
}

void TestMainObjectClips::listsAreLoggedWithTheirSize()
{
    _rig->main->updateAllClips();
    _rig->main->updatePlayList();
    QCOMPARE(_rig->controllerLines(),
             QStringList({QStringLiteral("3 Updated all clips list.  3 entries"),
                          QStringLiteral("3 Updated play list.  2 entries")}));
}

void TestMainObjectClips::anEmptyActivePathEmptiesTheListsSilently()
{
    _rig->manager->setActivePath(QString());
    _rig->log->clear();
    _rig->main->updateAllClips();
    _rig->main->updatePlayList();
    QVERIFY(_rig->log->records().isEmpty());
    QVERIFY(_rig->main->playListInUse().isEmpty());
    _rig->change(eParamPlayMedia, 2);
    QVERIFY(_rig->main->playListInUse().isEmpty());
}

void TestMainObjectClips::goingToAClipByNameSwitchesAndStandsStill()
{
    _rig->change(eParamGotoClipName, QStringLiteral("B.mov"));
    QVERIFY(_rig->logged(2, QStringLiteral("Go to playlist index 1: B.mov")));
    QCOMPARE(_rig->currentClip(), QStringLiteral("B.mov"));
    QCOMPARE(_rig->store.number(eParamCurrentPlayListIndex), 1u);
    // The clip, then the engine that stands still on it, then its place.
    const QList<quint32> ids = _rig->writtenIds();
    QCOMPARE(ids.first(), quint32(eParamCurrentClip));
    QVERIFY(ids.contains(quint32(eParamTransportState)));
    QCOMPARE(ids.last(), quint32(eParamCurrentPlayListIndex));
    _rig->settle();
    QCOMPARE(_rig->vtr->state().mode(), VtrState::Play);
    QCOMPARE(_rig->vtr->state().speed(), 0.0);
    QVERIFY(_rig->transcript.contains(QStringLiteral("media: open read ") +
                                      _rig->pathOf(QStringLiteral("B.mov"))));
}

void TestMainObjectClips::goingToAClipByNameInPlayReopensTheStream()
{
    play();
    _rig->change(eParamGotoClipName, QStringLiteral("A.mov"));
    QVERIFY(_rig->logged(3, QStringLiteral("STREAM: Reopen Playback Stream"), "vtrobject.cpp"));
    _rig->settle();
    QCOMPARE(_rig->vtr->state().speed(), 1.0);
    QVERIFY(_rig->transcript.contains(QStringLiteral("media: open read ") +
                                      _rig->pathOf(QStringLiteral("A.mov"))));
}

void TestMainObjectClips::goingToNoClipLeavesToStandbyOff()
{
    play();
    _rig->change(eParamGotoClipName, QStringLiteral("N/A"));
    _rig->settle();
    QCOMPARE(_rig->vtr->state().mode(), VtrState::StandbyOff);
}

void TestMainObjectClips::goingToAnUnknownNameIsLogged()
{
    _rig->change(eParamGotoClipName, QStringLiteral("%1 Z.mov"));
    QCOMPARE(_rig->controllerLines(),
             QStringList{QStringLiteral("1 Can't goto clip: '%1 Z.mov' not found")});
    QCOMPARE(_rig->currentClip(), QStringLiteral("C.mov"));
    QCOMPARE(_rig->vtr->state().mode(), VtrState::StandbyOff);
}

void TestMainObjectClips::indicesOutsideTheListAreLogged_data()
{
    QTest::addColumn<int>("index");
    QTest::newRow("behind") << 3;
    QTest::newRow("before") << -1;
    QTest::newRow("far") << 2000000000;
}

void TestMainObjectClips::indicesOutsideTheListAreLogged()
{
    QFETCH(int, index);
    _rig->change(eParamGotoClipIndex, index);
    QCOMPARE(
        _rig->controllerLines(),
        QStringList{QStringLiteral("1 Go to playlist index %1 failed: Entry invalid").arg(index)});
    QCOMPARE(_rig->currentClip(), QStringLiteral("C.mov"));
    QCOMPARE(_rig->vtr->state().mode(), VtrState::StandbyOff);
}

/// With no list mode set, even names of the play list are looked up among all clips.
void TestMainObjectClips::oneClipAtATimeGoesThroughAllClipsWhateverIsListed()
{
    _rig->change(eParamGotoClipIndex, 0);
    QCOMPARE(_rig->currentClip(), QStringLiteral("A.mov"));
}

void TestMainObjectClips::inTheListModesAnIndexIsCuedInTheJoinedStream_data()
{
    QTest::addColumn<int>("playMedia");
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("frame");
    QTest::newRow("all clips, first") << 1 << 0 << 0;
    QTest::newRow("all clips, last") << 1 << 2 << 300;
    QTest::newRow("play list, last") << 2 << 1 << 300;
}

void TestMainObjectClips::inTheListModesAnIndexIsCuedInTheJoinedStream()
{
    QFETCH(int, playMedia);
    QFETCH(int, index);
    QFETCH(int, frame);
    _rig->change(eParamPlayMedia, playMedia);
    play();
    _rig->change(eParamGotoClipIndex, index);
    _rig->settle(1000);
    QCOMPARE(_rig->vtr->state().speed(), 0.0);
    QCOMPARE(_rig->vtr->currentFrameNumber(), frame);
    QCOMPARE(_rig->currentClip(), QStringLiteral("C.mov")); // the frames shown will tell
}

void TestMainObjectClips::inTheListModesAnUnknownIndexCuesTheStart()
{
    _rig->change(eParamPlayMedia, 1);
    play();
    _rig->change(eParamGotoClipIndex, 9);
    QVERIFY(_rig->logged(1, QStringLiteral("Go to playlist index 9 failed: Entry invalid")));
    _rig->settle(1000);
    QCOMPARE(_rig->vtr->state().speed(), 0.0);
    QCOMPARE(_rig->vtr->currentFrameNumber(), 0);
}

void TestMainObjectClips::inThePlayListModeNamesAreThoseOfThePlayList()
{
    _rig->change(eParamPlayMedia, 2);
    _rig->clear();
    _rig->change(eParamGotoClipName, QStringLiteral("B.mov"));
    QVERIFY(_rig->logged(1, QStringLiteral("Can't goto clip: 'B.mov' not found")));
    QCOMPARE(_rig->main->findCurrentClipIndex(), 0); // C.mov
}

void TestMainObjectClips::relativeStepsWrapBothWays_data()
{
    QTest::addColumn<QString>("from");
    QTest::addColumn<int>("delta");
    QTest::addColumn<QString>("to");
    const auto row = [](const char *from, int delta, const char *to) {
        QTest::addRow("%s%+d", from, delta)
            << QString::fromLatin1(from) << delta << QString::fromLatin1(to);
    };
    row("A.mov", 1, "B.mov");
    row("C.mov", 1, "A.mov");
    row("A.mov", -1, "C.mov");
    row("B.mov", 7, "C.mov");
    row("B.mov", -7, "A.mov");
    row("B.mov", 0, "B.mov");
    row("B.mov", 2147483647, "C.mov");
    row("B.mov", -2147483647 - 1, "C.mov");
}

void TestMainObjectClips::relativeStepsWrapBothWays()
{
    QFETCH(QString, from);
    QFETCH(int, delta);
    setCurrent(from.toLatin1().constData());
    _rig->main->gotoClipByRelativeIndex(delta);
    QTEST(_rig->currentClip(), "to");
}

void TestMainObjectClips::relativeStepsInAnEmptyListAreLogged()
{
    _rig->setClips({});
    _rig->main->updateAllClips();
    _rig->clear();
    _rig->command(9);
    QCOMPARE(_rig->controllerLines(),
             QStringList{QStringLiteral("1 Go to relative clip index 1: List is empty")});
}

void TestMainObjectClips::relativeStepsFromAnUnknownClipAreLogged()
{
    setCurrent("Z.mov");
    _rig->clear();
    _rig->command(10);
    QCOMPARE(_rig->controllerLines(),
             QStringList{QStringLiteral(
                 "1 Go to relative clip index -1: Failed to find current clip index")});
}

void TestMainObjectClips::nextAndPreviousAreSteps()
{
    _rig->command(9);
    QCOMPARE(_rig->currentClip(), QStringLiteral("A.mov"));
    _rig->settle();
    _rig->command(10);
    QCOMPARE(_rig->currentClip(), QStringLiteral("C.mov"));
}

void TestMainObjectClips::aRecordedClipIsAppended()
{
    QVERIFY(_rig->writeClip(QStringLiteral("D.mov"), 10));
    _rig->clear();
    QCOMPARE(_rig->main->addLastRecordedClip(QStringLiteral("D.mov")), 600);
    QCOMPARE(_rig->controllerLines(),
             QStringList({QStringLiteral("3 New clip D.mov fnum 600, playlistIndex 3"),
                          QStringLiteral("3 added last recorded clip to playlist. 4 entries, "
                                         "returning fnum 600")}));
    QCOMPARE(_rig->store.number(eParamCurrentPlayListIndex), 3u);
    QCOMPARE(_rig->main->playListInUse().last().desc().toString(),
             _rig->pathOf(QStringLiteral("D.mov")));
    QCOMPARE(_rig->main->playListInUse().last().length(), 10);
}

void TestMainObjectClips::aClipThatCannotBeReadIsNotAdded()
{
    QFile file(_rig->pathOf(QStringLiteral("D %2.mov")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("no clip at all");
    file.close();
    QCOMPARE(_rig->main->addLastRecordedClip(QStringLiteral("D %2.mov")), 0);
    QCOMPARE(_rig->controllerLines(),
             QStringList({QStringLiteral("2 Unable to grok clip D %2.mov"),
                          QStringLiteral("3 added last recorded clip to playlist. 3 entries, "
                                         "returning fnum 0")}));
    QCOMPARE(_rig->main->playListInUse().size(), 3);
    QVERIFY(_rig->store.sets().empty());
}

void TestMainObjectClips::aClipUnderAnotherNameThanItsOwnIsNotFound()
{
    const QString name = QStringLiteral("folder/C.mov");
    QVERIFY(QDir(_rig->path()).mkdir(QStringLiteral("folder")));
    QVERIFY(_rig->writeClip(name, 5));
    _rig->clear();
    QCOMPARE(_rig->main->addLastRecordedClip(name), 0);
    QCOMPARE(_rig->controllerLines().first(),
             QStringLiteral("2 Unable to find clip folder/C.mov in playlist"));
}

void TestMainObjectClips::aNameListedTwiceBeginsAtItsFirstPlace()
{
    QVERIFY(_rig->writeClip(QStringLiteral("A.mov"), 10));
    QCOMPARE(_rig->main->addLastRecordedClip(QStringLiteral("A.mov")), 0);
    QVERIFY(_rig->logged(3, QStringLiteral("New clip A.mov fnum 0, playlistIndex 0")));
}

void TestMainObjectClips::theFirstFrameOfAClipIsItsPlace()
{
    Clip a;
    a.setName("A.mov");
    Clip b;
    b.setName("B.mov");
    QCOMPARE(_rig->main->findClipFirstFrame({a, b, b}, QStringLiteral("B.mov")), 1);
    QCOMPARE(_rig->main->findClipFirstFrame({a, b}, QStringLiteral("Z.mov")), -1);
}

void TestMainObjectClips::newMediaInPlayKeepThePosition()
{
    play();
    _rig->settle(1000);
    const int frame = _rig->vtr->currentFrameNumber();
    QVERIFY(frame > 0);
    _rig->change(eParamMediaUpdated, 1);
    QCOMPARE(_rig->controllerLines(),
             QStringList({QStringLiteral("3 Media has been updated..."),
                          QStringLiteral("3 Updated all clips list.  3 entries"),
                          QStringLiteral("3 Updated play list.  2 entries")}));
    QVERIFY(_rig->logged(3, QStringLiteral("STREAM: Reopen Playback Stream"), "vtrobject.cpp"));
    _rig->settle();
    QCOMPARE(_rig->vtr->state().speed(), 0.0);
    QCOMPARE(_rig->vtr->currentFrameNumber(), frame);
}

void TestMainObjectClips::newMediaOutsidePlayReopenNothing()
{
    _rig->change(eParamMediaUpdated, 1);
    QVERIFY(!_rig->log->lines().join(' ').contains(QStringLiteral("reopen"), Qt::CaseInsensitive));
    QCOMPARE(_rig->vtr->state().mode(), VtrState::StandbyOff);
}

void TestMainObjectClips::anotherPlayMediaReopensInPlayOnly()
{
    _rig->change(eParamPlayMedia, 1);
    QCOMPARE(_rig->controllerLines(), QStringList{QStringLiteral("3 Play Media: 1")});
    QVERIFY(!_rig->log->lines().join(' ').contains(QStringLiteral("reopen"), Qt::CaseInsensitive));
    play();
    _rig->change(eParamPlayMedia, 2);
    QVERIFY(_rig->logged(3, QStringLiteral("STREAM: Reopen Playback Stream"), "vtrobject.cpp"));
}

void TestMainObjectClips::aNewActivePathListsItsClips()
{
    _rig->store.put(eParamActivePath, std::string("/no/such/medium"));
    QCOMPARE(_rig->manager->activePath(), QStringLiteral("/no/such/medium"));
    QVERIFY(_rig->logged(3, QStringLiteral("Updated all clips list.  0 entries")));
    QVERIFY(_rig->logged(3, QStringLiteral("Updated play list.  0 entries")));
    _rig->clear();
    _rig->store.put(eParamActivePath, std::string());
    QCOMPARE(_rig->manager->activePath(), QString());
    QVERIFY(!_rig->log->lines().join(' ').contains(QStringLiteral("Updated")));
}

void TestMainObjectClips::thePlayListNoticeListsThePlayListOnly()
{
    _rig->change(eParamPlayList, 1);
    QCOMPARE(_rig->controllerLines(),
             QStringList{QStringLiteral("3 Updated play list.  2 entries")});
}

QTEST_APPLESS_MAIN(TestMainObjectClips)
#include "tst_mainobject_clips.moc"
