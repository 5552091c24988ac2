#pragma once

#include "liborb/drivers/software/colouring.h"
#include "liborb/drivers/software/rawpicture.h"
#include "liborb/drivers/software/signalgenerator.h"
#include "liborb/orbid.h"
#include "liborb/orbtimecode.h"
#include "libbus/bus.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstdint>

namespace ferin {

/// What the machine's output shows for one frame.
struct OutputFrame {
    bus::Content content = bus::Content::Black;
    RawPictureRef picture;                    ///< null: as content says; held is the one shown last
    const SignalGenerator *drawn = nullptr;   ///< draws the picture when there is none
    ColourTableRef inputColour;               ///< that the picture has yet to go through
    QByteArray sound;                         ///< interleaved, in soundChannels
    int soundChannels = 0;
    std::int64_t frameNumber = -1;
    OrbTimecode timecode;
    QString clip;
    QList<QByteArray> super;                  ///< lines of text in the picture
    std::int64_t dueNs = 0;
};

/// The text lines that \a superOut puts into the picture: 1300 timecode, 1301 timecode and clip,
/// 1302 these with mode and reel; none for any other.
QList<QByteArray> superLines(const OrbId &superOut, const OrbTimecode &timecode,
                             const QString &clip, const QString &mode, const QString &reel);

/// The machine's output: the program bus. Used on one thread.
class ProgramOutput
{
public:
    explicit ProgramOutput(const QString &busName);
    /// The format of the following frames.
    void setFormat(const bus::Format &format);
    /// The look-up table of the following frames; null for none. Black that stands for a missing picture and
    /// text do not go through it.
    void setColour(const ColourTableRef &table) { _colour = table; }
    void show(const OutputFrame &frame);

private:
    bool isUsable(std::int64_t nowNs);
    /// Draws the picture; answers what it turned out to be.
    bus::Content drawPicture(const picture::View &slot, const OutputFrame &frame);
    void put(const picture::View &from, const ColourTableRef &inputColour,
             const picture::View &slot) const;
    void drawSuper(const picture::View &slot, const QList<QByteArray> &lines) const;
    int copySound(const OutputFrame &frame);

    QString _name;
    bus::Writer _writer;
    bus::Format _format;
    RawPictureRef _held;
    ColourTableRef _heldColour; ///< that the held picture has yet to go through
    ColourTableRef _colour;
    std::int64_t _triedNs = 0;
    bool _told = false;
};

} // namespace ferin
