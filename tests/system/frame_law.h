#pragma once

#include "libbus/bus.h"

#include <QString>
#include <QVariant>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

/// What the program bus must show, said independently of the engine, and the comparison with what
/// it does show.
namespace law {

/// A speed in hundredths, so that the law is computed in whole numbers.
struct Speed {
    int hundredths = 0;
    double value() const { return hundredths / 100.0; }
    bool isNormal() const { return hundredths == 100; }
};

/// The frame on output \a k output frames after the start on frame \a start.
///
/// Output 0 is the first frame shown after the device was flushed for the new speed: the one that
/// was on output when it was flushed, shown once more. From there the position is the exact
/// start + k * speed, and the frame shown is the one it lies in, rounded down in both directions.
/// So forward at half speed each frame stands for two outputs; in reverse the start frame stands for
/// one, and each one before it for two.
///
/// Not looping, the frame at the end it runs towards stays. Looping forward, the clip is a ring: the
/// position goes on counting over the end. Looping in reverse, the first frame is always shown,
/// even when the steps would miss it, for exactly one output frame at any speed; the output after
/// it shows the last frame, and the count begins anew there.
int frameAt(int start, std::int64_t k, int length, Speed speed, bool looping);

/// Outputs until frame \a frameAt(k) is another one than the start; at least 1. Nothing when it
/// never is.
std::optional<std::int64_t> outputsOnStart(int start, int length, Speed speed, bool looping);

/// A label as it stands on the bus.
struct Label {
    int hour = 0, min = 0, sec = 0, frame = 0, fps = 0;
    bool isDrop = false;
    bool operator==(const Label &) const = default;
    QString toString() const;
};

/// The label of frame \a count since midnight. Drop frame leaves out the first two labels (four at
/// 60) of every minute but each tenth.
Label labelOf(std::int64_t count, int fps, bool isDrop);

/// One frame of the program bus.
struct Shown {
    std::uint64_t sequence = 0;
    bus::Content content = bus::Content::None;
    std::int64_t number = -1;
    std::optional<std::uint32_t> picture; ///< read from the picture's bar
    Label label;
    bool hasLabel = false;
    int samples = 0;
    std::optional<int> sound; ///< the value that every sample has; nothing when they differ
    std::string clip;
    QString toString() const;
};

/// A clip whose frame n shows picture firstPicture + n.
struct TestClip {
    QString name;
    QString path;
    int length = 0;
    std::uint32_t firstPicture = 0;
    bool soundIsPicture = true; ///< every sample has the picture's number; else it is just not silent
    int fps = 0;
    bool isDrop = false;
    std::int64_t startLabel = 0; ///< frames since midnight
    std::uint32_t pictureOf(int frame) const
    {
        return firstPicture + static_cast<std::uint32_t>(frame);
    }
};

/// One clip, or several joined.
class Material
{
public:
    Material() = default;
    Material(QString name, const std::vector<TestClip> &clips) : _name(name), _clips(clips) {}

    QString name() const { return _name; }
    int length() const;
    bool hasFormats() const { return _clips.front().fps != _clips.back().fps; }
    bool isJoined() const { return _clips.size() > 1; }
    int firstFrameOf(int clip) const;
    const std::vector<TestClip> &clips() const { return _clips; }
    /// What the engine is told to play.
    QVariant desc() const;
    /// Why \a seen is not frame \a number; empty when it is. Looks at number, picture, label and
    /// clip name.
    QString differs(const Shown &seen, int number) const;
    /// The value of its samples; nothing when any sound will do.
    std::optional<int> soundOf(int number) const;

private:
    const TestClip &clipOf(int number, int &inClip) const;

    QString _name;
    std::vector<TestClip> _clips;
};

/// A run at one speed.
struct Run {
    int start = 0;
    Speed speed;
    bool looping = false;
};

/// How a comparison ended.
struct Finding {
    QString problem; ///< empty when the law holds
    int frames = 0;  ///< compared
    int late = 0;    ///< beats that repeated the frame before although the law moves on
    int startHeld = 0;
    std::int64_t outputs = 0; ///< of the law that were reached
    bool holds() const { return problem.isEmpty(); }
};

/// What the start frame is on the bus when a comparison begins.
enum class Start {
    Held, ///< it was there before
    New   ///< it comes for the first time
};

/// Compares \a seen, which begins with the frame after the command, with \a run. The start frame may
/// stand before output 0 for at most \a patience frames (the command is on its way, the queue fills);
/// a repeated frame counts as late, and is wrong when there are more than \a lateAllowed, or more
/// late frames than others.
Finding follow(std::span<const Shown> seen, const Material &material, const Run &run, int lateAllowed,
               int patience = 12, Start start = Start::Held);

/// Compares a run at \a before whose speed is changed: the command for \a after comes before
/// seen[commandAt]. Up to two frames more may still be of the old speed.
Finding followChange(std::span<const Shown> seen, std::size_t commandAt, const Material &material,
                     const Run &before, Speed after, int lateAllowed);

/// Compares what follows a cue or a step from a run at \a before (or from still) to frame \a target: frames
/// of the run, the last of them for as long as it takes, then the target and nothing else.
Finding followCue(std::span<const Shown> seen, const Material &material, const Run &before, int target,
                  int lateAllowed);

} // namespace law
