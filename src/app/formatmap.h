#pragma once

#include "liborb/orbid.h"
#include "liborb/orbimagedesc.h"

/// Image descriptions to the numbers of the three format parameters. An unknown format is logged at level 2
/// and gives 1.
int imageDescToInputFormat(const OrbImageDesc &desc);
int imageDescToMediaFormat(const OrbImageDesc &desc);
int imageDescToRecordFormat(const OrbImageDesc &desc);

/// A signal-generator format number to its image description; a default description for an unknown one.
OrbImageDesc sigGenFormatToImgDesc(int value);

/// Parameter values to toolkit identifiers. An unsupported value is logged at level 2 and gives an invalid id.
OrbId encodeTypeToID(int value);
OrbId videoInputToID(int value);
OrbId videoOutputToID(int value);
OrbId audioInputToID(int value);
OrbId syncSourceToID(int value);

/// The decoder's type number of an image data type; 0 for any other.
int imageDataTypeToDecodeType(const OrbId &dataType);
