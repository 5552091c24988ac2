#pragma once

#include "liborb/orbstream.h"
#include "liborb/orbtimecode.h"

#include <QSignalSpy>
#include <QTest>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

/// What a file stream needs to be tried: formats, frames whose bytes tell their number, waiting.
namespace files {

inline constexpr int patienceMs = 30'000;

inline OrbStreamInfo streamInfo(bool hasSound = true)
{
    OrbStreamInfo info;
    info.setReelName(QStringLiteral("A001"));
    OrbImageDesc image;
    image.setSize(1920, 1080);
    image.setAspectRatio(1920, 1080);
    image.setFrameRate(30000, 1001);
    image.setScanMode(OrbImageDesc::Interlaced);
    image.setDataType(OrbId(OrbIdImageProRes422Hq));
    info.vids().append(image);
    if (hasSound) {
        OrbAudioDesc sound;
        sound.setDataType(OrbId(OrbIdAudioDataType));
        sound.setChans(2);
        sound.setSampleRate(48000, 1);
        sound.setFrameRate(30000, 1001);
        info.auds().append(sound);
    }
    return info;
}

/// Coded pictures differ in length as real ones do.
inline QByteArray pictureBytes(int number, int seed = 0)
{
    QByteArray bytes(900 + number * 37 % 500, char(number * 7 + seed));
    bytes.prepend(QByteArray::number(number * 1000 + seed));
    return bytes;
}

inline qint64 samplesBefore(qint64 frame)
{
    return frame * 48000 * 1001 / 30000;
}

inline QByteArray soundBytes(int number)
{
    return QByteArray((samplesBefore(number + 1) - samplesBefore(number)) * 6, char(number + 1));
}

inline OrbBuffer bufferOf(const QByteArray &bytes)
{
    OrbBuffer buffer(quint32(bytes.size()), 0);
    std::memcpy(buffer.data(), bytes.constData(), size_t(bytes.size()));
    return buffer;
}

inline QByteArray bytesOf(const OrbBuffer &buffer)
{
    return QByteArray(reinterpret_cast<const char *>(buffer.data()), qsizetype(buffer.size()));
}

inline OrbFrame frame(const OrbStreamInfo &info, int number, const OrbBuffer &picture)
{
    OrbFrame frame;
    frame.vids().append(OrbImage(info.vids().first(), picture));
    if (!info.auds().isEmpty())
        frame.auds().append(OrbAudio(info.auds().first(), bufferOf(soundBytes(number))));
    const OrbTimecode start(10, 0, 0, 0, 30, OrbTimecode::DropFrame);
    frame.meta().insert(OrbId(OrbIdTimecode), QVariant::fromValue(start.advanced(number)));
    return frame;
}

inline OrbFrame frame(const OrbStreamInfo &info, int number, int seed = 0)
{
    return frame(info, number, bufferOf(pictureBytes(number, seed)));
}

/// Promises kept on another thread, four at a time in reverse order, so never in the order of the
/// frames.
class Coder
{
public:
    Coder() : _thread([this] { run(); }) {}
    ~Coder()
    {
        {
            const std::lock_guard lock(_mutex);
            _isStopping = true;
            _wake.notify_one();
        }
        _thread.join();
    }

    OrbBuffer promise(const QByteArray &bytes, bool isKept = true)
    {
        return OrbBuffer(std::make_shared<Work>(this, bytes, isKept));
    }

private:
    struct Task
    {
        OrbBuffer buffer;
        QByteArray bytes;
        bool isKept;
    };
    class Work : public OrbBufferPromise
    {
    public:
        Work(Coder *coder, const QByteArray &bytes, bool isKept)
            : _coder(coder), _bytes(bytes), _isKept(isKept)
        {
        }
        void start(const OrbBuffer &buffer) override
        {
            const std::lock_guard lock(_coder->_mutex);
            _coder->_tasks.push_back({buffer, _bytes, _isKept});
            _coder->_wake.notify_one();
        }

    private:
        Coder *_coder;
        QByteArray _bytes;
        bool _isKept;
    };

    void run()
    {
        std::unique_lock lock(_mutex);
        while (true) {
            _wake.wait_for(lock, std::chrono::milliseconds(5),
                           [this] { return _tasks.size() >= 4 || _isStopping; });
            std::deque<Task> tasks = std::move(_tasks);
            _tasks.clear();
            if (tasks.empty() && _isStopping)
                return;
            lock.unlock();
            while (!tasks.empty()) {
                keep(tasks.back());
                tasks.pop_back();
            }
            lock.lock();
        }
    }
    static void keep(const Task &task)
    {
        if (!task.isKept) {
            task.buffer.fail();
            return;
        }
        auto bytes = std::make_shared<QByteArray>(task.bytes);
        task.buffer.fulfil(reinterpret_cast<uchar *>(bytes->data()), quint32(bytes->size()),
                           [bytes] { });
    }

    std::mutex _mutex;
    std::condition_variable _wake;
    std::deque<Task> _tasks;
    bool _isStopping = false;
    std::thread _thread;
};

/// Opens; the answer is the error of the open, -1 when it could not be started.
inline int open(OrbStream &stream, const QVariant &desc, int access)
{
    stream.setDesc(desc);
    QSignalSpy opened(&stream, &OrbStream::openIsDone);
    if (!stream.open(access))
        return -1;
    if (opened.isEmpty() && !opened.wait(patienceMs))
        return -2;
    return opened[0][1].value<OrbError>().value();
}

inline bool close(OrbStream &stream)
{
    QSignalSpy closed(&stream, &OrbStream::closeIsDone);
    stream.close();
    return !closed.isEmpty() || closed.wait(patienceMs);
}

/// A clip of \a frames frames at \a path; false when anything fails.
inline bool writeClip(const QString &path, int frames, int seed = 0, bool hasSound = true)
{
    OrbStream stream;
    const OrbStreamInfo info = streamInfo(hasSound);
    stream.setInfo(info);
    stream.setType(OrbId(OrbIdStreamTypeRecord));
    if (open(stream, path, 2) != 0)
        return false;
    bool isGood = true;
    QObject::connect(&stream, &OrbStream::frameWritten,
                     [&](int, const OrbError &error) { isGood = isGood && !error.isError(); });
    for (int number = 0; number < frames; ++number)
        stream.write(frame(info, number, seed));
    return close(stream) && isGood;
}

struct Answer
{
    OrbFrame frame;
    int error = 0;
};

/// Reads frames by number; the answers are in the order of the requests.
inline std::vector<Answer> readFrames(OrbStream &stream, const QList<int> &numbers)
{
    std::vector<Answer> answers;
    const auto link = QObject::connect(
        &stream, &OrbStream::readIsDone, &stream,
        [&](int, const OrbFrame &frame, const OrbError &error, void *context) {
            if (context == &answers)
                answers.push_back({frame, error.value()});
        });
    for (const int number : numbers)
        stream.read(number, &answers);
    const bool isDone = QTest::qWaitFor(
        [&] { return answers.size() == size_t(numbers.size()); }, patienceMs);
    QObject::disconnect(link);
    return isDone ? answers : std::vector<Answer>(size_t(numbers.size()), Answer{{}, -1});
}

} // namespace files
