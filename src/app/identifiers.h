#pragma once

#include "liborb/orbid.h"

/// The toolkit identifiers that parameter values map to, named for their numbers.

// Encode formats and image data types
inline constexpr OrbId idEncode202{OrbIdValue(202)};
inline constexpr OrbId idEncode203{OrbIdValue(203)};
inline constexpr OrbId idEncode204{OrbIdValue(204)};
inline constexpr OrbId idEncode205{OrbIdValue(205)};
inline constexpr OrbId idEncode206{OrbIdValue(206)};
inline constexpr OrbId idEncode230{OrbIdValue(230)};
inline constexpr OrbId idImageData231{OrbIdValue(231)};
inline constexpr OrbId idImageData250{OrbIdValue(250)};

// Video connectors
inline constexpr OrbId idVideoPort601{OrbIdValue(601)};
inline constexpr OrbId idVideoPort602{OrbIdValue(602)};
inline constexpr OrbId idVideoPort603{OrbIdValue(603)};
inline constexpr OrbId idVideoPort604{OrbIdValue(604)};
inline constexpr OrbId idVideoPort631{OrbIdValue(631)};
inline constexpr OrbId idVideoPort632{OrbIdValue(632)};
inline constexpr OrbId idVideoPort633{OrbIdValue(633)};
inline constexpr OrbId idVideoPort661{OrbIdValue(661)};
inline constexpr OrbId idVideoPort662{OrbIdValue(662)};
inline constexpr OrbId idVideoPort663{OrbIdValue(663)};

// Audio inputs
inline constexpr OrbId idAudioInput52{OrbIdValue(52)};
inline constexpr OrbId idAudioInput690{OrbIdValue(690)};

// Sync sources
inline constexpr OrbId idSyncSource501{OrbIdValue(501)};
inline constexpr OrbId idSyncSource502{OrbIdValue(502)};
inline constexpr OrbId idSyncSource503{OrbIdValue(503)};
