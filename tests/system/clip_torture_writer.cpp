#include "clip_torture.h"

#include "libclip/cliprecovery.h"
#include "liborb/drivers/clip/clipsink.h"
#include "liborb/orbtimecode.h"
#include "tst_clip_tools.h"

#include <csignal>
#include <new>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace torture {

namespace {

OrbStreamInfo streamInfo()
{
    OrbStreamInfo info;
    info.setReelName(QStringLiteral("REEL7"));
    OrbImageDesc image;
    image.setSize(1920, 1080);
    image.setFrameRate(25, 1);
    image.setScanMode(OrbImageDesc::Progressive);
    image.setDataType(OrbId(OrbIdImageProRes422));
    info.vids().append(image);
    OrbAudioDesc sound;
    sound.setDataType(OrbId(OrbIdAudioDataType));
    sound.setChans(2);
    sound.setSampleRate(48000, 1);
    sound.setFrameRate(25, 1);
    info.auds().append(sound);
    return info;
}

OrbBuffer bufferOf(const QByteArray &bytes)
{
    OrbBuffer buffer(quint32(bytes.size()), 0);
    std::memcpy(buffer.data(), bytes.constData(), size_t(bytes.size()));
    return buffer;
}

OrbFrame frameOf(const OrbStreamInfo &info, int number)
{
    OrbFrame frame;
    frame.vids().append(OrbImage(info.vids().first(), bufferOf(cliptest::picture(number))));
    const QByteArray sound = cliptest::sound(number, cliptest::sampleInfo());
    frame.auds().append(OrbAudio(info.auds().first(), bufferOf(sound)));
    frame.meta().insert(OrbId(OrbIdTimecode), QVariant::fromValue(OrbTimecode(90'000 + number, 25, false)));
    return frame;
}

[[noreturn]] void record(const QString &path, Progress *progress, const Orders &orders)
{
    const OrbStreamInfo info = streamInfo();
    ClipSink sink;
    if (sink.open(path, info).isError())
        _exit(3);
    for (int i = 0; i < orders.frames; ++i) {
        if (sink.write(frameOf(info, i)).isError())
            _exit(4);
        progress->taken = i + 1;
        progress->committed = int(sink.framesCommitted());
        usleep(useconds_t(orders.microseconds));
        progress->committed = int(sink.framesCommitted());
    }
    progress->isClosing = true;
    if (orders.diesInClose > 0)
        ualarm(useconds_t(orders.diesInClose), 0); // an alarm ends a process as abruptly as a kill
    if (sink.close().isError())
        _exit(5);
    progress->committed = orders.frames;
    progress->isClosed = true;
    _exit(0);
}

} // namespace

Progress *sharedProgress()
{
    void *place = mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return place == MAP_FAILED ? nullptr : new (place) Progress;
}

pid_t startWriter(const QString &path, Progress *progress, const Orders &orders)
{
    new (progress) Progress;
    const pid_t child = fork();
    if (child == 0)
        record(path, progress, orders);
    return child;
}

QString faultOf(const QString &path, const Progress &progress, int least, int &found)
{
    found = 0;
    clip::ClipReader reader;
    if (const auto error = reader.open(path.toStdString())) {
        return least <= 0 ? QString() : QStringLiteral("does not open: %1").arg(error.text.c_str());
    }
    found = int(reader.info().frames);
    if (found < least)
        return QStringLiteral("%1 frames of %2").arg(found).arg(progress.taken.load());
    if (progress.isClosed && !reader.info().isComplete)
        return QStringLiteral("was closed and is not complete");
    if (const qint64 wrong = cliptest::firstWrongFrame(reader); wrong >= 0)
        return QStringLiteral("frame %1 is wrong").arg(wrong);
    const auto video = cliptest::stream(cliptest::probe(path), QStringLiteral("video"));
    const int probed = cliptest::number(video, "nb_read_packets");
    if (probed != found)
        return QStringLiteral("ffprobe finds %1 frames of %2").arg(probed).arg(found);
    return {};
}

QString faultOfRecovery(const QString &path, int frames, unsigned random)
{
    for (unsigned round = 0; round < random % 3; ++round) {
        const pid_t child = fork();
        if (child == 0) {
            (void)clip::recover(path.toStdString());
            _exit(0);
        }
        usleep(random / 3 % 400);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    const clip::Recovery recovery = clip::recover(path.toStdString());
    if (frames == 0) {
        // A name alone, from between two calls of the system, is nobody's clip.
        const bool isGone = !QFile::exists(path) || QFileInfo(path).size() == 0;
        return isGone ? QString() : QStringLiteral("is left without a frame");
    }
    if (recovery.outcome != clip::Recovery::Outcome::Recovered
        && recovery.outcome != clip::Recovery::Outcome::Complete)
        return QStringLiteral("recovery: outcome %1 %2").arg(int(recovery.outcome)).arg(recovery.error.text.c_str());
    const QString reference = path + QStringLiteral(".reference");
    QFile::remove(reference);
    clip::ClipWriter writer;
    const clip::ClipInfo info = cliptest::sampleInfo();
    if (writer.open(reference.toStdString(), info) || cliptest::writeFrames(writer, info, frames)
        || writer.close())
        return QStringLiteral("no reference");
    const bool isSame = cliptest::contentOf(path) == cliptest::contentOf(reference);
    QFile::remove(reference);
    return isSame ? QString() : QStringLiteral("is not the clip its writer would have closed");
}

} // namespace torture
