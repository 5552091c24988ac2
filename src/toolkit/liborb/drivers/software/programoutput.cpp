#include "liborb/drivers/software/programoutput.h"

#include "liborb/drivers/software/soundfifo.h"
#include "liborb/orblog.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace ferin {

namespace {

constexpr const char *logFile = "programoutput.cpp";
constexpr std::int64_t retryNs = 2'000'000'000;

bool fits(const RawPictureRef &picture, const bus::Format &format)
{
    return picture && picture->view.isValid() && picture->view.width == format.width
           && picture->view.height == format.height;
}

} // namespace

QList<QByteArray> superLines(const OrbId &superOut, const OrbTimecode &timecode,
                             const QString &clip, const QString &mode, const QString &reel)
{
    QList<QByteArray> lines;
    const bool isAll = superOut == OrbIdSuperAll;
    const bool hasClip = isAll || superOut == OrbIdSuperTimecodeClip;
    if (!hasClip && superOut != OrbIdSuperTimecode)
        return lines;
    const QString head = timecode.toString();
    lines << (isAll ? head + QLatin1Char(' ') + mode : head).toUtf8();
    if (hasClip && !clip.isEmpty())
        lines << clip.toUtf8();
    if (isAll && !reel.isEmpty())
        lines << reel.toUtf8();
    return lines;
}

ProgramOutput::ProgramOutput(const QString &busName) : _name(busName) {}

void ProgramOutput::setFormat(const bus::Format &format)
{
    _format = format;
    if (!fits(_held, format))
        _held.reset();
}

bool ProgramOutput::isUsable(std::int64_t nowNs)
{
    if (_writer.isOpen())
        return true;
    if (_triedNs != 0 && nowNs - _triedNs < retryNs)
        return false;
    _triedNs = nowNs;
    if (_writer.open(_name.toStdString())) {
        orbLogOutput(3, logFile, __LINE__, "Program bus is %s\n", qPrintable(_name));
        _told = false;
        return true;
    }
    if (!_told)
        orbLogOutput(1, logFile, __LINE__, "Program bus %s cannot be opened: %s\n",
                     qPrintable(_name), std::strerror(errno));
    _told = true;
    return false;
}

/// The picture, through the tables that it has yet to go through. A slot may be its own source.
void ProgramOutput::put(const picture::View &from, const ColourTableRef &inputColour,
                        const picture::View &slot) const
{
    if (!inputColour && !_colour) {
        if (from.plane[0] != slot.plane[0])
            picture::copyOut(from, slot);
        return;
    }
    const ColourTableRef &first = inputColour ? inputColour : _colour;
    first->apply(from, slot);
    if (inputColour && _colour)
        _colour->apply(slot, slot);
}

bus::Content ProgramOutput::drawPicture(const picture::View &slot, const OutputFrame &frame)
{
    if (fits(frame.picture, _format)) {
        put(frame.picture->view, frame.inputColour, slot);
        _held = frame.picture;
        _heldColour = frame.inputColour;
        return frame.content;
    }
    if (frame.drawn != nullptr) {
        frame.drawn->draw(slot);
        put(slot, frame.inputColour, slot);
        return frame.content;
    }
    if (frame.content == bus::Content::Held && fits(_held, _format)) {
        put(_held->view, _heldColour, slot);
        return frame.content;
    }
    picture::drawBlack(slot);
    return frame.content == bus::Content::None ? frame.content : bus::Content::Black;
}

void ProgramOutput::drawSuper(const picture::View &slot, const QList<QByteArray> &lines) const
{
    const int scale = std::max(1, slot.height / 180);
    int y = slot.height * 3 / 4 - scale * 12 * static_cast<int>(lines.size() - 1);
    for (const QByteArray &line : lines) {
        picture::drawText(slot, slot.width / 3, y, scale, line.constData());
        y += scale * 12;
    }
}

int ProgramOutput::copySound(const OutputFrame &frame)
{
    std::uint8_t *slot = _writer.audioSlot();
    if (slot == nullptr || _format.audioChannels <= 0 || frame.soundChannels <= 0)
        return 0;
    const QByteArray sound = mapChannels(frame.sound, frame.soundChannels, _format.audioChannels);
    const qsizetype each = qsizetype {_format.audioChannels} * sampleBytes;
    const qsizetype samples = std::min<qsizetype>(sound.size() / each, bus::maxSamples);
    std::memcpy(slot, sound.constData(), static_cast<std::size_t>(samples * each));
    return static_cast<int>(samples);
}

void ProgramOutput::show(const OutputFrame &frame)
{
    if (!_format.isValid() || !isUsable(frame.dueNs))
        return;
    const picture::View slot = _writer.beginFrame(_format);
    if (!slot.isValid())
        return;

    bus::FrameInfo info;
    info.content = drawPicture(slot, frame);
    if (!frame.super.isEmpty())
        drawSuper(slot, frame.super);
    info.samples = copySound(frame);
    info.timeNs = frame.dueNs;
    info.frameNumber = frame.frameNumber;
    info.tcHour = static_cast<std::int8_t>(frame.timecode.hour());
    info.tcMin = static_cast<std::int8_t>(frame.timecode.min());
    info.tcSec = static_cast<std::int8_t>(frame.timecode.sec());
    info.tcFrame = static_cast<std::int8_t>(frame.timecode.frame());
    info.tcFps = static_cast<std::int16_t>(frame.timecode.fps());
    info.tcFlags = frame.timecode.flags();
    info.clip = frame.clip.toUtf8().left(63).toStdString();
    _writer.publish(info);
}

} // namespace ferin
