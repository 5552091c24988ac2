#pragma once

#include "libclip/clip.h"
#include "liborb/orberror.h"
#include "liborb/orbstreaminfo.h"
#include "liborb/orbtimecode.h"

#include <optional>

/// Clip descriptions in the toolkit's terms and back.
namespace clipformat {

clip::Codec codecOf(const OrbId &dataType);
OrbId dataTypeOf(clip::Codec codec);

OrbImageDesc imageDescOf(const clip::VideoFormat &video);
OrbAudioDesc audioDescOf(const clip::AudioFormat &audio, const clip::VideoFormat &video);

/// What a clip holds; \a path gives the name.
OrbStreamInfo streamInfoOf(const clip::ClipInfo &info, const QString &path);
/// Nothing when no clip can hold what \a info describes: exactly one video format that a clip can
/// have, and 24-bit sound at 48 kHz or none.
std::optional<clip::ClipInfo> clipInfoOf(const OrbStreamInfo &info);

/// The label of frame \a frame of a clip that starts at \a start.
OrbTimecode timecodeOf(const clip::StartTimecode &start, qint64 frame);
/// Nothing when \a timecode is not valid or has no rate.
std::optional<clip::StartTimecode> startTimecodeOf(const OrbTimecode &timecode);

inline OrbError errorOf(const clip::Error &error) { return OrbError(error.code); }

} // namespace clipformat
