#pragma once

#include "frame_law_watch.h"

#include "transport/vtrobject.h"

#include <QObject>

#include <functional>
#include <memory>

namespace law {

/// The shipped engine on its real device in this process, in real time, with somebody who watches
/// its program bus.
class Player : public QObject
{
public:
    /// \a input and \a inputFormat are the device's input ("pattern", "1280x720p50").
    Player(const char *input, const char *inputFormat);
    ~Player() override; ///< shuts the engine down

    VtrObject &vtr() { return *_vtr; }
    Watch &watch() { return *_watch; }

    /// Runs the event loop until \a isSo; false when that takes longer.
    bool waitFor(const std::function<bool()> &isSo, int timeoutMs);
    /// Until the bus has shown \a count frames since it had shown \a from.
    bool waitForFrames(std::size_t from, std::size_t count);
    void runFor(int ms);

    /// Into Play at still on \a material's first frame, from Standby Off.
    QString load(const Material &material);
    /// The material for the next open of the stream.
    void offer(const Material &material, int startFrame = 0)
    {
        _desc = material.desc();
        _startFrame = startFrame;
    }
    /// Stands on \a frame, which is on the bus some frames long.
    QString standOn(const Material &material, int frame);
    /// Runs \a run, again when the watch missed frames of the bus meanwhile: such a run proves
    /// nothing. The third one that it missed is a problem.
    Finding watched(const std::function<Finding()> &run);
    /// From still on the start of \a run through \a outputs of its frames and a few more, compared.
    Finding play(const Material &material, const Run &run, int outputs);
    QString standbyOff();
    /// Records into \a path for \a ms; answers when the clip is closed.
    QString record(const QString &path, int ms);

    /// Beats of the device so far that should have shown a frame and had none in time.
    int lateBeats() const;
    int droppedFrames() const { return _dropped; }

private:
    std::unique_ptr<VtrObject> _vtr;
    std::unique_ptr<Watch> _watch;
    QVariant _desc;
    int _startFrame = 0;
    QString _recordPath;
    int _dropped = 0;
    bool _isStreamOpen = false;
    bool _isShutdown = false;
};

} // namespace law
