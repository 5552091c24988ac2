// Listing real folders with the real confined reader: good, torn, hostile and odd files.

#include "tst_clip_tools.h"

#include "cliplister.h"
#include "playlistfile.h"

#include <QTest>

#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const std::string reader = RVGROK;

/// A complete clip of so many frames, as bytes.
QByteArray clipBytes(const QString &folder, int frames)
{
    const QString path = folder + "/made";
    const clip::ClipInfo info = cliptest::sampleInfo();
    clip::ClipWriter writer;
    if (writer.open(path.toStdString(), info) || cliptest::writeFrames(writer, info, frames) ||
        writer.close())
        return {};
    const QByteArray bytes = cliptest::contentOf(path);
    QFile::remove(path);
    return bytes;
}

void setTime(const QString &path, long seconds)
{
    const timeval times[2] = {{seconds, 0}, {seconds, 0}};
    ::utimes(path.toLocal8Bit().constData(), times);
}

QStringList namesOf(const std::list<Clip> &clips)
{
    QStringList names;
    for (const Clip &clip : clips)
        names << QString::fromStdString(clip.getName());
    return names;
}

bool isSocket(const QString &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray name = path.toLocal8Bit();
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::memcpy(address.sun_path, name.constData(), std::min(sizeof address.sun_path - 1, size_t(name.size())));
    const bool isBound = ::bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    ::close(socket);
    return isBound;
}

QByteArray statusOf(pid_t process, const char *key)
{
    for (const QByteArray &line : cliptest::contentOf(QString("/proc/%1/status").arg(process)).split('\n')) {
        if (line.startsWith(key))
            return line.mid(qsizetype(qstrlen(key)) + 1).simplified();
    }
    return {};
}

} // namespace

class TestMediaListing : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void clipsComeInTheOrderOfRecording();
    void whatIsNoRegularFileIsLeftOut();
    void namesThatAreNoTextAreLeftOut();
    void filesThatAreNoClipsAreListedAsBad();
    void thousandsOfTornAndMutatedClipsCostNothingButTheirEntries();
    void tenThousandClipsAreListed();
    void aFileJustMadeIsNotJudgedYet();
    void anInterruptedRecordingIsReadyAndAGrowingOneIsNot();
    void aKnownClipIsNotReadAgain();
    void aFolderThatCannotBeReadIsAnError();
    void aReaderThatTakesTooLongIsEnded();
    void withoutAReaderNothingIsRemembered();
    void theReaderIsConfined();
    void aReaderThatIsKilledIsReplaced();
    void playListsShowWhatIsMissing();
    void playListsAreEdited_data();
    void playListsAreEdited();
    void anEditIsWrittenInOneStep();

private:
    QString at(const QString &name) const { return _dir->filePath(name); }
    std::list<Clip> list();

    std::unique_ptr<QTemporaryDir> _dir;
    std::unique_ptr<KnownClips> _known;
};

void TestMediaListing::init()
{
    _dir = std::make_unique<QTemporaryDir>(cliptest::scratchTemplate());
    _known = std::make_unique<KnownClips>();
}

std::list<Clip> TestMediaListing::list()
{
    ClipLister lister(*_known, reader);
    int error = 0;
    const std::list<Clip> clips = lister.list(_dir->path().toStdString(), error);
    return error == 0 ? clips : std::list<Clip>();
}

void TestMediaListing::clipsComeInTheOrderOfRecording()
{
    const QByteArray bytes = clipBytes(_dir->path(), 3);
    const std::pair<const char *, long> files[] = {
        {"z first.mov", 1000}, {"a.b.c.mov", 3000}, {"A_10.mov", 2000}, {"A_2.mov", 2000},
        {"\xc3\x84 \xe6\x98\xa0.MOV", 4000},
    };
    for (const auto &[name, seconds] : files) {
        QVERIFY(cliptest::setContent(at(name), bytes));
        setTime(at(name), seconds);
    }
    const std::list<Clip> clips = list();
    QCOMPARE(namesOf(clips), QStringList({"z first.mov", "A_2.mov", "A_10.mov", "a.b.c.mov",
                                          QString::fromUtf8("\xc3\x84 \xe6\x98\xa0.MOV")}));
    const Clip &clip = clips.front();
    QCOMPARE(clip.getFrameCount(), 3);
    QCOMPARE(clip.path(), _dir->path().toStdString());
    QCOMPARE(clip.fileSize(), std::int64_t(bytes.size()));
    QCOMPARE(clip.modified(), std::int64_t(1000));
    QCOMPARE(clip.format(), std::string("1920x1080p25 ProRes 422"));
    QCOMPARE(clip.timecode(), std::string("01:00:00:00"));
    QVERIFY(clip.isComplete());
}

void TestMediaListing::whatIsNoRegularFileIsLeftOut()
{
    const QByteArray bytes = clipBytes(_dir->path(), 2);
    QVERIFY(cliptest::setContent(at("good.mov"), bytes));
    QVERIFY(QDir(_dir->path()).mkdir("folder.mov"));
    QCOMPARE(::mkfifo(at("pipe.mov").toLocal8Bit().constData(), 0666), 0);
    QCOMPARE(::symlink("good.mov", at("link.mov").toLocal8Bit().constData()), 0);
    QCOMPARE(::symlink("/dev/zero", at("zeros.mov").toLocal8Bit().constData()), 0);
    QCOMPARE(::symlink("nowhere", at("dangling.mov").toLocal8Bit().constData()), 0);
    QCOMPARE(::symlink("loop.mov", at("loop.mov").toLocal8Bit().constData()), 0);
    QTemporaryDir outside(cliptest::scratchTemplate());
    QVERIFY(cliptest::setContent(outside.filePath("outside.mov"), bytes));
    QCOMPARE(::symlink(outside.filePath("outside.mov").toLocal8Bit().constData(),
                       at("outside.mov").toLocal8Bit().constData()), 0);
    QVERIFY(isSocket(at("socket.mov")));
    // Without the right to make them there are none.
    (void)::mknod(at("disk.mov").toLocal8Bit().constData(), S_IFBLK | 0666, makedev(7, 250));
    (void)::mknod(at("zero.mov").toLocal8Bit().constData(), S_IFCHR | 0666, makedev(1, 5));
    QVERIFY(cliptest::setContent(at(".hidden.mov"), bytes));
    QVERIFY(cliptest::setContent(at("a\nb.mov"), bytes));
    QVERIFY(cliptest::setContent(at("notes.txt"), bytes));
    QCOMPARE(namesOf(list()), QStringList("good.mov"));
}

void TestMediaListing::namesThatAreNoTextAreLeftOut()
{
    const QByteArray bytes = clipBytes(_dir->path(), 2);
    const QByteArray folder = _dir->path().toLocal8Bit() + '/';
    QVERIFY(!bytes.isEmpty());
    // clang-format off
    const QByteArray taken[] = {
        "a b  c.mov", " begins with a blank.mov", "a..b...mov", "a.mov.mov", "\xe6\x98\xa0\xe5\x83\x8f.MOV", "%s%n.mov",
        "-rf.mov", "$(x) `y`;'\"\\.mov", "\xf0\x9f\x8e\xa5.mov", QByteArray(251, 'n') + ".mov",
    };
    const QByteArray left[] = {
        ".mov", "..mov", ".hidden.mov", "a\nb.mov", "a\rb.mov", "a\tb.mov", "a\x1b[31mb.mov", "a\x7f" "b.mov", "\xff\xfe.mov",
        "\xc0\xae.mov", "\xed\xa0\x80.mov", "cut \xe6\x98.mov", "a\xc2\x9b" "b.mov", "a\xe2\x80\xa8" "b.mov", "a.mov ", "a.mov\n", "mov",
    };
    // clang-format on
    const auto make = [&](const QByteArray &name) {
        const int file = ::open((folder + name).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        const bool isMade = file >= 0 && ::write(file, bytes.constData(), size_t(bytes.size())) == bytes.size();
        ::close(file);
        return isMade;
    };
    for (const QByteArray &name : left)
        QVERIFY2(make(name), name.toPercentEncoding().constData());
    QVERIFY(list().empty());
    for (const QByteArray &name : taken)
        QVERIFY2(make(name), name.constData());
    const std::list<Clip> clips = list();
    QCOMPARE(clips.size(), std::size(taken));
    for (const Clip &clip : clips) {
        QVERIFY(std::ranges::find(taken, QByteArray::fromStdString(clip.getName())) != std::end(taken));
        QVERIFY2(clip.isComplete(), clip.getName().c_str());
    }
}

void TestMediaListing::filesThatAreNoClipsAreListedAsBad()
{
    const QByteArray bytes = clipBytes(_dir->path(), 2);
    QVERIFY(cliptest::setContent(at("empty.mov"), ""));
    QVERIFY(cliptest::setContent(at("text.mov"), "no clip\n"));
    QVERIFY(cliptest::setContent(at("zeros.mov"), QByteArray(100000, 0)));
    QVERIFY(cliptest::setContent(at("head.mov"), bytes.left(30)));
    // A terabyte of nothing behind a head that promises as much.
    QVERIFY(cliptest::setContent(at("sparse.mov"), QByteArray("\0\0\0\1moov\0\0\0\xff\0\0\0\0", 16)));
    QCOMPARE(::truncate(at("sparse.mov").toLocal8Bit().constData(), off_t(1) << 40), 0);
    for (const char *name : {"empty.mov", "text.mov", "zeros.mov", "head.mov", "sparse.mov"})
        setTime(at(name), 1000);
    const std::list<Clip> clips = list();
    QCOMPARE(clips.size(), std::size_t(5));
    for (const Clip &clip : clips) {
        QVERIFY2(clip.state() == ClipState::Bad, clip.getName().c_str());
        QCOMPARE(clip.getFrameCount(), 0);
    }
}

void TestMediaListing::thousandsOfTornAndMutatedClipsCostNothingButTheirEntries()
{
    const QByteArray bytes = clipBytes(_dir->path(), 4);
    QVERIFY(!bytes.isEmpty());
    const int count = qEnvironmentVariableIntValue("RV_HOSTILE_CLIPS") > 0
        ? qEnvironmentVariableIntValue("RV_HOSTILE_CLIPS")
        : 2000;
    quint32 state = 1;
    const auto random = [&](int below) {
        state = state * 1664525u + 1013904223u;
        return int(quint64(state) * quint64(below) >> 32);
    };
    const int index = int(bytes.lastIndexOf("moov"));
    for (int i = 0; i < count; ++i) {
        QByteArray hostile = bytes;
        if (i % 4 == 0) {
            hostile.truncate(random(int(bytes.size())));
        } else {
            for (int spoilt = 0; spoilt <= i % 3 * 4; ++spoilt)
                hostile[index + random(int(bytes.size()) - index)] = char(random(256));
        }
        QVERIFY(cliptest::setContent(at(QString("%1.mov").arg(i)), hostile));
        setTime(at(QString("%1.mov").arg(i)), 1000);
    }
    QVERIFY(cliptest::setContent(at("good.mov"), bytes));
    const std::list<Clip> clips = list();
    QCOMPARE(clips.size(), std::size_t(std::min(count + 1, int(ClipLister::maxClips))));
    int bad = 0;
    for (const Clip &clip : clips) {
        QVERIFY(clip.state() == ClipState::Bad || clip.state() == ClipState::Ready);
        QVERIFY(clip.getFrameCount() >= 0);
        bad += clip.state() == ClipState::Bad;
        if (clip.getName() == "good.mov")
            QVERIFY(clip.isComplete());
    }
    QVERIFY(bad > count / 10);
}

/// All of them new, then all known.
void TestMediaListing::tenThousandClipsAreListed()
{
    constexpr int count = 10000;
    QVERIFY(cliptest::setContent(at("0.mov"), clipBytes(_dir->path(), 2)));
    setTime(at("0.mov"), 1000);
    for (int i = 1; i < count; ++i) {
        const QByteArray name = at(QString("%1.mov").arg(i)).toLocal8Bit();
        QCOMPARE(::link(at("0.mov").toLocal8Bit().constData(), name.constData()), 0);
    }
    const std::list<Clip> clips = list();
    QCOMPARE(clips.size(), std::size_t(count));
    int at = 0;
    for (const Clip &clip : clips) {
        QCOMPARE(clip.getName(), std::to_string(at++) + ".mov");
        QVERIFY(clip.isComplete());
    }
    ClipLister blind(*_known, "/nonexistent");
    int error = 0;
    QVERIFY(blind.list(_dir->path().toStdString(), error) == clips);
}

void TestMediaListing::aFileJustMadeIsNotJudgedYet()
{
    const QString path = at("place.mov");
    QVERIFY(cliptest::setContent(path, QByteArray(16384, 0)));
    const timespec future[2] = {{time(nullptr) + 5, 0}, {time(nullptr) + 5, 0}};
    QVERIFY(list().empty());
    QCOMPARE(::utimensat(AT_FDCWD, path.toLocal8Bit().constData(), future, 0), 0);
    QCOMPARE(list().size(), std::size_t(1)); // a wrong clock does not hide it for ever
    setTime(path, 1000);
    QVERIFY(list().front().state() == ClipState::Bad);
}

void TestMediaListing::anInterruptedRecordingIsReadyAndAGrowingOneIsNot()
{
    const clip::ClipInfo info = cliptest::sampleInfo();
    const QString path = at("growing.mov");
    {
        clip::ClipWriter writer;
        QVERIFY(!writer.open(path.toStdString(), info));
        std::list<Clip> clips = list();
        QCOMPARE(clips.size(), std::size_t(1));
        QVERIFY(clips.front().state() == ClipState::Recording);
        QVERIFY(!cliptest::writeFrames(writer, info, 10) && !writer.flush());
        const QByteArray torn = cliptest::contentOf(path);
        QVERIFY(cliptest::setContent(at("torn.mov"), torn));
        setTime(at("torn.mov"), 1000);
        clips = list();
        QCOMPARE(namesOf(clips), QStringList({"torn.mov", "growing.mov"}));
        QVERIFY(clips.front().state() == ClipState::Ready);
        QCOMPARE(clips.front().getFrameCount(), 10);
        QVERIFY(clips.back().state() == ClipState::Recording);
        QVERIFY(!writer.close());
    }
    const std::list<Clip> clips = list();
    QVERIFY(clips.back().state() == ClipState::Ready);
    QCOMPARE(clips.back().getFrameCount(), 10);
}

void TestMediaListing::aKnownClipIsNotReadAgain()
{
    QVERIFY(cliptest::setContent(at("a.mov"), clipBytes(_dir->path(), 2)));
    setTime(at("a.mov"), 1000);
    QVERIFY(list().front().isComplete());
    // Nobody can read it now; what is known holds as long as name, size and time do.
    ClipLister blind(*_known, "/nonexistent");
    int error = 0;
    std::list<Clip> clips = blind.list(_dir->path().toStdString(), error);
    QVERIFY(clips.size() == 1 && clips.front().isComplete());
    QVERIFY(QFile::rename(at("a.mov"), at("b.mov")));
    clips = blind.list(_dir->path().toStdString(), error);
    QVERIFY(clips.front().state() == ClipState::Bad);
    QVERIFY(QFile::rename(at("b.mov"), at("a.mov")));
    setTime(at("a.mov"), 1001);
    clips = blind.list(_dir->path().toStdString(), error);
    QVERIFY(clips.front().state() == ClipState::Bad);
}

void TestMediaListing::aFolderThatCannotBeReadIsAnError()
{
    ClipLister lister(*_known, reader);
    int error = 0;
    QVERIFY(lister.list("/nonexistent/folder", error).empty());
    QCOMPARE(error, ENOENT);
}

void TestMediaListing::aReaderThatTakesTooLongIsEnded()
{
    QVERIFY(cliptest::setContent(at("reader"), "#!/bin/sh\nexec sleep 1000\n"));
    QCOMPARE(::chmod(at("reader").toLocal8Bit().constData(), 0755), 0);
    ClipInspector inspector(at("reader").toStdString(), 20);
    const int file = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    Clip clip;
    QVERIFY(inspector.inspect(file, clip) == ClipInspector::Outcome::Bad);
    QCOMPARE(inspector.process(), -1);
    ::close(file);
}

void TestMediaListing::withoutAReaderNothingIsRemembered()
{
    QVERIFY(cliptest::setContent(at("a.mov"), clipBytes(_dir->path(), 2)));
    setTime(at("a.mov"), 1000);
    ClipLister blind(*_known, "/nonexistent");
    int error = 0;
    QVERIFY(blind.list(_dir->path().toStdString(), error).front().state() == ClipState::Bad);
    QVERIFY(list().front().state() == ClipState::Ready);
}

void TestMediaListing::theReaderIsConfined()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    QSKIP("a reader with a sanitizer in it is not confined");
#endif
    QVERIFY(cliptest::setContent(at("a.mov"), clipBytes(_dir->path(), 2)));
    ClipInspector inspector(reader);
    const int file = ::open(at("a.mov").toLocal8Bit().constData(), O_RDONLY | O_CLOEXEC);
    Clip clip;
    QVERIFY(inspector.inspect(file, clip) == ClipInspector::Outcome::Read);
    ::close(file);
    QCOMPARE(statusOf(inspector.process(), "NoNewPrivs:"), QByteArray("1"));
    QCOMPARE(statusOf(inspector.process(), "Seccomp:"), QByteArray("2"));
    if (::geteuid() == 0)
        QCOMPARE(statusOf(inspector.process(), "Uid:"), QByteArray("65534 65534 65534 65534"));
    const QByteArray limits = cliptest::contentOf(QString("/proc/%1/limits").arg(inspector.process())).simplified();
    QVERIFY(limits.contains("Max address space 536870912 536870912"));
    QVERIFY(limits.contains("Max cpu time 30 30"));
    QVERIFY(limits.contains("Max file size 0 0"));
}

void TestMediaListing::aReaderThatIsKilledIsReplaced()
{
    QVERIFY(cliptest::setContent(at("a.mov"), clipBytes(_dir->path(), 2)));
    const int file = ::open(at("a.mov").toLocal8Bit().constData(), O_RDONLY | O_CLOEXEC);
    ClipInspector inspector(reader);
    Clip clip;
    QVERIFY(inspector.inspect(file, clip) == ClipInspector::Outcome::Read);
    const pid_t first = inspector.process();
    QCOMPARE(::kill(first, SIGKILL), 0);
    siginfo_t gone;
    QCOMPARE(::waitid(P_PID, id_t(first), &gone, WEXITED | WNOWAIT), 0);
    QVERIFY(inspector.inspect(file, clip) == ClipInspector::Outcome::Read);
    QVERIFY(inspector.process() != first);
    ::close(file);
}

void TestMediaListing::playListsShowWhatIsMissing()
{
    const QByteArray bytes = clipBytes(_dir->path(), 2);
    QVERIFY(cliptest::setContent(at("a.mov"), bytes));
    QVERIFY(cliptest::setContent(at("#b.mov"), bytes));
    QVERIFY(cliptest::setContent(at("playlist.m3u"), "\xef\xbb\xbf#EXTM3U\r\n a.mov \r\n\r\ngone.mov\n./#b.mov\n"
                                                     "../a.mov\n/etc/passwd\na\x01.mov\na.mov"));
    const std::list<Clip> play = readPlayList(_dir->path().toStdString(), list());
    QCOMPARE(namesOf(play), QStringList({"a.mov", "gone.mov", "#b.mov", "a.mov"}));
    QVERIFY(std::next(play.begin())->state() == ClipState::Missing);
    QVERIFY(play.front().isComplete() && play.back().isComplete());
    QVERIFY(readPlayList(at("nowhere").toStdString(), {}).empty());
}

void TestMediaListing::playListsAreEdited_data()
{
    QTest::addColumn<QByteArray>("edit");
    QTest::addColumn<QByteArray>("after");
    const QByteArray before = "#EXTM3U\na.mov\n# a word\nb.mov\nc.mov\n";
    // clang-format off
    QTest::newRow("append")          << QByteArray("append d e.mov")     << before + "d e.mov\n";
    QTest::newRow("append a mark")   << QByteArray("append #d.mov")      << before + "./#d.mov\n";
    QTest::newRow("insert first")    << QByteArray("insert 0 d.mov")     << QByteArray("#EXTM3U\nd.mov\na.mov\n# a word\nb.mov\nc.mov\n");
    QTest::newRow("insert last")     << QByteArray("insert 3 d.mov")     << before + "d.mov\n";
    QTest::newRow("insert beyond")   << QByteArray("insert 4 d.mov")     << QByteArray();
    QTest::newRow("move up")         << QByteArray("move 2 0")           << QByteArray("#EXTM3U\nc.mov\na.mov\n# a word\nb.mov\n");
    QTest::newRow("move down")       << QByteArray("move 0 2")           << QByteArray("#EXTM3U\n# a word\nb.mov\nc.mov\na.mov\n");
    QTest::newRow("move nowhere")    << QByteArray("move 1 1")           << before;
    QTest::newRow("move beyond")     << QByteArray("move 0 3")           << QByteArray();
    QTest::newRow("remove")          << QByteArray("remove 1")           << QByteArray("#EXTM3U\na.mov\n# a word\nc.mov\n");
    QTest::newRow("remove beyond")   << QByteArray("remove 3")           << QByteArray();
    QTest::newRow("remove negative") << QByteArray("remove -1")          << QByteArray();
    QTest::newRow("clear")           << QByteArray("clear")              << QByteArray("#EXTM3U\n# a word\n");
    QTest::newRow("clear what")      << QByteArray("clear all")          << QByteArray();
    QTest::newRow("a path")          << QByteArray("append ../x.mov")    << QByteArray();
    QTest::newRow("a line more")     << QByteArray("append x\ny.mov")    << QByteArray();
    QTest::newRow("no clip")         << QByteArray("append notes.txt")   << QByteArray();
    QTest::newRow("nothing")         << QByteArray("")                   << QByteArray();
    QTest::newRow("another word")    << QByteArray("delete 1")           << QByteArray();
    // clang-format on
}

void TestMediaListing::playListsAreEdited()
{
    QFETCH(QByteArray, edit);
    QFETCH(QByteArray, after);
    const std::string before = "#EXTM3U\na.mov\n# a word\nb.mov\nc.mov\n";
    std::string text = before;
    std::string problem;
    QCOMPARE(editPlayList(text, edit.toStdString(), problem), !after.isEmpty());
    QCOMPARE(problem.empty(), !after.isEmpty());
    QCOMPARE(text, after.isEmpty() ? before : after.toStdString());
}

void TestMediaListing::anEditIsWrittenInOneStep()
{
    const std::string path = _dir->path().toStdString();
    std::string problem;
    QVERIFY(editPlayListFile(path, "append a.mov", problem));
    QVERIFY(editPlayListFile(path, "insert 0 b.mov", problem));
    QCOMPARE(cliptest::contentOf(at("playlist.m3u")), QByteArray("#EXTM3U\nb.mov\na.mov\n"));
    QVERIFY(!editPlayListFile(path, "remove 2", problem));
    QVERIFY(!editPlayListFile("/proc", "append a.mov", problem));
    QCOMPARE(QDir(_dir->path()).entryList(QDir::Files | QDir::Hidden), QStringList("playlist.m3u"));
}

QTEST_APPLESS_MAIN(TestMediaListing)
#include "tst_media_listing.moc"
