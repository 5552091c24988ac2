#pragma once

#include "liborb/drivers/software/ffmpeghandles.h"
#include "liborb/drivers/software/frameassembler.h"
#include "liborb/orbtimecode.h"
#include "liborb/orbvideorate.h"

#include <QString>

#include <functional>
#include <vector>

namespace ferin {

/// Opens a media file or URL and decodes it packet by packet: pictures as they are, sound as interleaved
/// 24-bit PCM at 48 kHz. One thread; whatever waits inside asks \a interrupted all the while.
class MediaReader
{
public:
    struct Handlers {
        std::function<bool()> interrupted; ///< true ends any wait at once
        std::function<void(const AVFrame &frame, SampleTime at)> picture;
        std::function<void(const std::uint8_t *pcm, int samples, SampleTime at)> sound;
    };
    enum class Step { Read, End, Failed };

    explicit MediaReader(const Handlers &handlers);
    ~MediaReader();

    /// Waits until the source delivers. False with \a problem filled in; true does not mean that there is
    /// a picture: ask hasPicture().
    bool open(const QString &url, bool isFile, QString &problem);
    void close();

    bool hasPicture() const { return _video.context != nullptr; }
    QString codecName() const;
    /// It can be played again from the start, at whatever speed it is read.
    bool isOnDemand() const { return _onDemand; }
    /// A standard rate, or invalid.
    OrbVideoRate rate() const { return _rate; }
    /// How exact the pictures' time stamps are.
    std::int64_t tickNs() const;
    bool isInterlacedByHeader() const;
    int channels() const { return _channels; }
    /// The label of the first frame, from the file's own metadata; not valid when it has none.
    OrbTimecode startTimecode() const;

    /// Reads one packet and decodes it.
    Step step();
    /// How long the last step() waited for the source.
    std::int64_t waitedNs() const { return _waitedNs; }
    /// Delivers what the decoders still hold, at the end of the source.
    void drain();
    bool rewind();

private:
    struct Stream {
        int index = -1;
        CodecContextPtr context;
        AVRational timeBase = {1, 1};
        std::int64_t lastDts = AV_NOPTS_VALUE;
    };
    static int onInterrupt(void *opaque);
    Stream openStream(AVMediaType type, int related);
    void findRate();
    void decode(Stream &stream, const AVPacket *packet);
    void receive(Stream &stream);
    void noteJump(Stream &stream, const AVPacket &packet);
    void deliverSound(const AVFrame &frame);
    bool prepareResampler(const AVFrame &frame);

    Handlers _handlers;
    FormatContextPtr _format;
    Stream _video;
    Stream _audio;
    PacketPtr _packet;
    FramePtr _frame;
    ResamplerPtr _resampler;
    int _inRate = 0;       // what the resampler was made for
    int _inFormat = -1;
    int _inChannels = 0;
    int _outChannels = 0;  // as the resampler delivers them; at most 8 go on
    int _channels = 0;
    std::vector<std::int32_t> _samples;
    std::vector<std::uint8_t> _pcm;
    OrbVideoRate _rate;
    bool _onDemand = false;
    std::int64_t _waitedNs = 0;
};

/// The SMPTE timecode that came with a picture; not valid when none did. \a rate is the pictures'.
OrbTimecode timecodeOf(const AVFrame &frame, const OrbVideoRate &rate);

} // namespace ferin
