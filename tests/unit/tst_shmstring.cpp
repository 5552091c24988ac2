#include "libvanta/shmstring.h"

#include <QFile>
#include <QTest>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

/// A text in shared memory, as the writer, the library's readers and plain readers see it.
class TestShmString : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void theObjectIsTheTextAndZeros_data();
    void theObjectIsTheTextAndZeros();
    void aReaderSeesEveryText_data();
    void aReaderSeesEveryText();
    void aTextIsCutToFit();
    void sizesAreRoundedUpToWholeLines();
    void impossibleSizesAreRefused();
    void aNameThatCannotBeMadeIsRefused();
    void aSecondCreateIsRefused();
    void withoutAnObjectThereIsNothing();
    void anObjectOfAnotherKindIsNotOpened();
    void readersDoNotWrite();
    void anyoneMayReadWhateverTheMask();
    void aTextSurvivesTheWriterAndIsTakenOver();
    void whatStoodBehindATextIsCleared();
    void aWriterThatDiedWhileItWroteHoldsNobodyUp();
    void noReaderEverSeesAPartOfAText_data();
    void noReaderEverSeesAPartOfAText();
    void aPlainReaderSeesNoPartOfATimecode();

private:
    QByteArray _name;
};

namespace
{

QByteArray objectOf(const QByteArray &name)
{
    QFile file(QStringLiteral("/dev/shm") + QString::fromLatin1(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Runs \a reader in a process of its own; its answer is the process's.
pid_t inAnotherProcess(const std::function<int()> &reader)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(reader());
    return child;
}

int answerOf(pid_t child)
{
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// The text of a step, none like the one before in any place; \a length places.
std::string textOf(int step, int length)
{
    return std::string(static_cast<std::size_t>(length), static_cast<char>('A' + step % 26));
}

bool isWhole(const std::string &text)
{
    return !text.empty() && text.find_first_not_of(text.front()) == std::string::npos;
}

/// What a reader that runs beside the writer answers.
constexpr int isGood = 0;
constexpr int sawAPart = 1;
constexpr int sawNothing = 2;

/// Writes as fast as it can until every reader has seen many texts, each whole.
class Race
{
public:
    explicit Race(ShmString &writer) : _writer(writer)
    {
        if (pipe2(_seen, O_NONBLOCK) != 0)
            qFatal("no pipe");
    }
    ~Race()
    {
        ::close(_seen[0]);
        ::close(_seen[1]);
    }
    void addReader(const std::function<std::string()> &read)
    {
        _readers << inAnotherProcess([this, read] { return readUntilTheEnd(read); });
    }
    /// The worst of the answers, with texts of \a shortest to \a longest places.
    int run(int shortest, int longest)
    {
        qsizetype done = 0;
        for (int step = 0; step < 50000 || done < _readers.size(); ++step) {
            _writer.set(textOf(step, shortest + step % (longest - shortest + 1)).c_str());
            char byte;
            if (step % 256 == 0 && ::read(_seen[0], &byte, 1) == 1)
                ++done;
        }
        _writer.set("end");
        int worst = isGood;
        for (const pid_t child : std::as_const(_readers))
            worst = std::max(worst, answerOf(child));
        return worst;
    }

private:
    int readUntilTheEnd(const std::function<std::string()> &read) const
    {
        constexpr int enough = 50;
        int changes = 0;
        int answer = isGood;
        std::string before;
        for (;;) {
            const std::string text = read();
            if (text == "end")
                return answer;
            if (!text.empty() && !isWhole(text))
                answer = sawAPart;
            if (text != before && ++changes == enough && ::write(_seen[1], "", 1) != 1)
                return sawNothing;
            before = text;
        }
    }

    ShmString &_writer;
    int _seen[2];
    QList<pid_t> _readers;
};

} // namespace

void TestShmString::init()
{
    _name = "/rvd_test_" + QByteArray::number(getpid());
    shm_unlink(_name.constData());
}

void TestShmString::cleanup()
{
    shm_unlink(_name.constData());
}

void TestShmString::theObjectIsTheTextAndZeros_data()
{
    QTest::addColumn<bool>("storesLines");
    QTest::newRow("in lines") << ShmString::machineStoresLines();
    QTest::newRow("in words") << false;
}

void TestShmString::theObjectIsTheTextAndZeros()
{
    QFETCH(bool, storesLines);
    ShmString text(_name.constData(), storesLines);
    QVERIFY(text.create(64));
    QCOMPARE(objectOf(_name), QByteArray(64, '\0'));
    const QList<QByteArray> texts = {"10:00:00:05",       "01:02:03;04",       "",
                                     QByteArray(15, 'a'), QByteArray(16, 'b'), "--:--:--:--",
                                     QByteArray(62, 'c'), QByteArray(63, 'd'), QByteArray(40, 'e'),
                                     QByteArray(63, 'f'), QByteArray("short"), QByteArray(1, 'g')};
    for (const QByteArray &t : texts) {
        text.set(t.constData());
        QCOMPARE(objectOf(_name), t + QByteArray(64 - t.size(), '\0'));
        QCOMPARE(QByteArray::fromStdString(text.read()), t);
    }
}

void TestShmString::aReaderSeesEveryText_data()
{
    theObjectIsTheTextAndZeros_data();
}

void TestShmString::aReaderSeesEveryText()
{
    QFETCH(bool, storesLines);
    ShmString writer(_name.constData(), storesLines);
    QVERIFY(writer.create(64));
    ShmString reader(_name.constData(), storesLines);
    QVERIFY(reader.open());
    for (int length = 0; length < 64; ++length) {
        writer.set(textOf(length, length).c_str());
        QCOMPARE(reader.read(), textOf(length, length));
    }
}

void TestShmString::aTextIsCutToFit()
{
    ShmString text(_name.constData());
    QVERIFY(text.create(64));
    text.set(std::string(200, 'x').c_str());
    QCOMPARE(text.read(), std::string(63, 'x'));
}

void TestShmString::sizesAreRoundedUpToWholeLines()
{
    for (const int size : {1, 15, 16}) {
        ShmString text(_name.constData());
        QVERIFY(text.create(size));
        QCOMPARE(objectOf(_name).size(), 16);
    }
    ShmString text(_name.constData());
    QVERIFY(text.create(17));
    QCOMPARE(objectOf(_name).size(), 32);
}

void TestShmString::impossibleSizesAreRefused()
{
    for (const int size : {0, -1, -64, 4097, 2147483647})
        QVERIFY(!ShmString(_name.constData()).create(size));
    QVERIFY(!ShmString(_name.constData()).open());
}

void TestShmString::aNameThatCannotBeMadeIsRefused()
{
    QVERIFY(!ShmString("/").create(64));
    QVERIFY(!ShmString("/a/b").create(64));
    QVERIFY(!ShmString("").create(64));
    // A folder stands where the object should.
    const QByteArray folder = "/dev/shm" + _name;
    QCOMPARE(mkdir(folder.constData(), 0700), 0);
    ShmString text(_name.constData());
    QVERIFY(!text.create(64));
    QVERIFY(!text.open());
    text.set("nothing happens");
    QCOMPARE(text.read(), std::string());
    QCOMPARE(rmdir(folder.constData()), 0);
}

void TestShmString::aSecondCreateIsRefused()
{
    ShmString text(_name.constData());
    QVERIFY(text.create(64));
    QVERIFY(!text.create(64));
    QVERIFY(!text.open());
    text.set("still there");
    QCOMPARE(text.read(), std::string("still there"));
}

void TestShmString::withoutAnObjectThereIsNothing()
{
    ShmString text(_name.constData());
    QVERIFY(!text.open());
    text.set("nowhere");
    QCOMPARE(text.read(), std::string());
}

void TestShmString::anObjectOfAnotherKindIsNotOpened()
{
    const int fd = shm_open(_name.constData(), O_RDWR | O_CREAT, 0600);
    QVERIFY(fd >= 0);
    for (const off_t size : {0, 20, 8192}) {
        QCOMPARE(ftruncate(fd, size), 0);
        QVERIFY(!ShmString(_name.constData()).open());
    }
    ::close(fd);
}

void TestShmString::readersDoNotWrite()
{
    ShmString writer(_name.constData());
    QVERIFY(writer.create(64));
    writer.set("the writer's");
    ShmString reader(_name.constData());
    QVERIFY(reader.open());
    reader.set("the reader's");
    QCOMPARE(reader.read(), std::string("the writer's"));
    QVERIFY(!reader.create(64));
}

void TestShmString::anyoneMayReadWhateverTheMask()
{
    const mode_t before = umask(077);
    ShmString text(_name.constData());
    const bool isMade = text.create(64);
    umask(before);
    QVERIFY(isMade);
    struct stat st = {};
    QCOMPARE(::stat(("/dev/shm" + _name).constData(), &st), 0);
    QCOMPARE(int(st.st_mode & 0777), 0644);
}

void TestShmString::aTextSurvivesTheWriterAndIsTakenOver()
{
    {
        ShmString first(_name.constData());
        QVERIFY(first.create(64));
        first.set("12:34:56:07");
    }
    ShmString reader(_name.constData());
    QVERIFY(reader.open());
    QCOMPARE(reader.read(), std::string("12:34:56:07"));
    ShmString second(_name.constData());
    QVERIFY(second.create(64));
    QCOMPARE(second.read(), std::string("12:34:56:07"));
    second.set("12:34:56:08");
    QCOMPARE(reader.read(), std::string("12:34:56:08"));
}

void TestShmString::whatStoodBehindATextIsCleared()
{
    const int fd = shm_open(_name.constData(), O_RDWR | O_CREAT, 0600);
    QVERIFY(fd >= 0);
    QByteArray foreign("text\0", 5);
    foreign.resize(200, '\xff');
    QCOMPARE(::write(fd, foreign.constData(), 200), 200);
    ::close(fd);
    ShmString text(_name.constData());
    QVERIFY(text.create(64));
    QCOMPARE(objectOf(_name), QByteArray("text") + QByteArray(60, '\0'));
}

void TestShmString::aWriterThatDiedWhileItWroteHoldsNobodyUp()
{
    ShmString writer(_name.constData());
    QVERIFY(writer.create(64));
    const std::string text(20, 'x');
    writer.set(text.c_str());
    const int fd = shm_open(_name.constData(), O_RDWR, 0600);
    QVERIFY(fd >= 0);
    QCOMPARE(pwrite(fd, "\1", 1, 63), 1);
    ::close(fd);
    ShmString reader(_name.constData());
    QVERIFY(reader.open());
    QCOMPARE(reader.read(), text);
    // The next daemon puts it right.
    ShmString next(_name.constData());
    QVERIFY(next.create(64));
    QCOMPARE(objectOf(_name).at(63), '\0');
}

/// One process writes as fast as it can, two others read as fast as they can.
void TestShmString::noReaderEverSeesAPartOfAText_data()
{
    QTest::addColumn<bool>("storesLines");
    QTest::addColumn<int>("shortest");
    QTest::addColumn<int>("longest");
    QTest::newRow("timecodes in lines") << ShmString::machineStoresLines() << 11 << 11;
    QTest::newRow("timecodes in words") << false << 11 << 11;
    QTest::newRow("long texts") << ShmString::machineStoresLines() << 16 << 62;
    QTest::newRow("long texts in words") << false << 16 << 62;
    QTest::newRow("short and long ones") << ShmString::machineStoresLines() << 1 << 62;
}

void TestShmString::noReaderEverSeesAPartOfAText()
{
    QFETCH(bool, storesLines);
    QFETCH(int, shortest);
    QFETCH(int, longest);
    ShmString writer(_name.constData(), storesLines);
    QVERIFY(writer.create(64));
    ShmString text(_name.constData(), storesLines);
    QVERIFY(text.open());
    Race race(writer);
    race.addReader([&] { return text.read(); });
    race.addReader([&] { return text.read(); });
    QCOMPARE(race.run(shortest, longest), isGood);
}

/// A process that knows nothing but the name: it maps the object, copies it and takes the text up
/// to the zero.
void TestShmString::aPlainReaderSeesNoPartOfATimecode()
{
    if (!ShmString::machineStoresLines())
        QSKIP("this machine stores a line in parts");
    ShmString writer(_name.constData());
    QVERIFY(writer.create(64));
    const int fd = shm_open(_name.constData(), O_RDONLY, 0);
    QVERIFY(fd >= 0);
    const void *memory = mmap(nullptr, 64, PROT_READ, MAP_SHARED, fd, 0);
    QVERIFY(memory != MAP_FAILED);
    ::close(fd);
    Race race(writer);
    race.addReader([memory] {
        char bytes[64];
        std::memcpy(bytes, memory, sizeof bytes);
        asm volatile("" : : "r"(bytes) : "memory");
        return std::string(bytes, strnlen(bytes, sizeof bytes));
    });
    QCOMPARE(race.run(11, 11), isGood);
}

QTEST_APPLESS_MAIN(TestShmString)
#include "tst_shmstring.moc"
