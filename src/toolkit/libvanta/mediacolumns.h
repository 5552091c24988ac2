#pragma once

/// The keys of the columns in which lists of clips show a clip's facts.
inline constexpr const char *MediaFormat = "Format";
inline constexpr const char *MediaHeight = "Height";
inline constexpr const char *MediaWidth = "Width";
inline constexpr const char *MediaFrameRate = "Frame Rate";
inline constexpr const char *MediaVideoEncodeType = "Encode Type";
inline constexpr const char *MediaAudioChannels = "Audio Chan";
inline constexpr const char *MediaStartingTimecode = "Starting TC";
