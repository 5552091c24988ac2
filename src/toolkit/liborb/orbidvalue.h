#pragma once

/// The identifier numbers of the toolkit: metadata keys, device properties, source, format and mode
/// selectors, stream types, alarms and record-inhibit reasons. The numbers are fixed for ever; any other
/// number is a legal value that has no name. OrbId::name() gives each its name without "OrbId".
enum OrbIdValue : int {
    OrbIdNone = 0,

    // Frame metadata
    OrbIdFrameNumber = 1,    ///< int: frame number in the stream
    OrbIdStartOfStream = 9,  ///< bool: first frame of the stream
    OrbIdEndOfStream = 10,   ///< bool: last frame of the stream
    OrbIdTimecode = 12,      ///< OrbTimecode of the frame
    OrbIdTrickPlay = 14,     ///< bool: played at another than normal forward speed; mutes sound
    OrbIdPlayListIndex = 18, ///< OrbPlayListIndex of the frame

    // Device properties
    OrbIdPropClipName = 19,       ///< QString
    OrbIdPropPlayMode = 22,       ///< int: one of OrbIdPlayMode…
    OrbIdPropReelName = 23,       ///< QString
    OrbIdPropTimecodePreset = 24, ///< OrbTimecode: label of the next frame captured
    OrbIdKeyFrame = 25,           ///< frame metadata, bool: report when it has been shown
    OrbIdPropSpeed = 26,          ///< double: output speed, forward speeds are the device's business

    // Output routes and the embedded audio input
    OrbIdOutputRouteNormal = 51,
    OrbIdAudioInputEmbedded = 52,
    OrbIdOutputRouteLoop = 53,

    OrbIdStreamTypeRecord = 100, ///< stream type: QuickTime clip file

    // Image data types
    OrbIdDefaultImageDataType = 202, ///< ProRes 422
    OrbIdImageProRes422 = 202,
    OrbIdImageProRes422Hq = 203,
    OrbIdImageProRes422Lt = 204,
    OrbIdImageProRes422Proxy = 205,
    OrbIdImageProRes4444 = 206,
    OrbIdImageDnxHqx = 230,
    OrbIdShutdownImageDataType = 231, ///< uncompressed 10-bit 4:2:2, v210
    OrbIdImageV210 = 231,
    OrbIdImageRgb444 = 250,

    OrbIdAudioDataType = 408, ///< PCM 24 bit, interleaved, little-endian

    // Reference sources
    OrbIdSyncSystemClock = 501,
    OrbIdSyncInput = 502,
    OrbIdSyncExternal = 503,

    // Video connectors, in three groups
    OrbIdVideoPort601 = 601,
    OrbIdVideoPort602 = 602,
    OrbIdVideoPort603 = 603,
    OrbIdVideoPort604 = 604,
    OrbIdVideoPort631 = 631,
    OrbIdVideoPort632 = 632,
    OrbIdVideoPort633 = 633,
    OrbIdVideoPort661 = 661,
    OrbIdVideoPort662 = 662,
    OrbIdVideoPort663 = 663,

    OrbIdAudioInputAnalogue = 690,
    OrbIdSourceInternal = 695, ///< a generator replaces the real input

    OrbIdCameraRecordFlag = 705,      ///< metadata, bool: the camera on the input is recording
    OrbIdEffectiveFrameRate = 710,    ///< metadata, int: OrbVideoRate::StdRate of a variable-rate source

    OrbIdShutdownSignalGenMode = 800, ///< black
    OrbIdVideoGenBlack = 800,
    OrbIdVideoGenBars = 801,
    OrbIdVideoGenMoving = 802,
    OrbIdAudioGenSilence = 900,
    OrbIdAudioGenTone = 901,

    OrbIdCameraInput1 = 1000,
    OrbIdCameraInput2 = 1001,
    OrbIdCameraInput3 = 1002,
    OrbIdCameraInput4 = 1003,
    OrbIdCameraInput5 = 1004,
    OrbIdCameraInput6 = 1005,
    OrbIdCameraInput7 = 1006,
    OrbIdCameraInput8 = 1007,
    OrbIdCameraInput9 = 1008,

    OrbIdLutRgb16 = 1100, ///< look-up table of three planes of 16-bit values

    OrbIdConvertNone = 1200,
    OrbIdConvertInput = 1201,
    OrbIdConvertOutput = 1202,

    OrbIdSuperTimecode = 1300,
    OrbIdSuperTimecodeClip = 1301,
    OrbIdSuperAll = 1302,

    OrbIdAudioLevel0 = 1400,
    OrbIdAudioLevel1 = 1401,
    OrbIdAudioLevel2 = 1402,
    OrbIdAudioLevel3 = 1403,

    OrbIdTimecodePreset = 1500,
    OrbIdTimecodeTimeOfDay = 1501,
    OrbIdTimecodeLtc = 1510,
    OrbIdTimecodeVitc = 1520,

    // Play modes, the values of OrbIdPropPlayMode
    OrbIdPlayModePlay = 1600,
    OrbIdPlayModeEE = 1601,
    OrbIdPlayModeFastForward = 1604,
    OrbIdPlayModeFastReverse = 1605,
    OrbIdPlayModeRecord = 1606,
    OrbIdPlayModeStill = 1607,

    // Alarms
    OrbIdAlarmMediaFailed = 1901,
    OrbIdAlarmClipExists = 1902,
    OrbIdAlarmMediaFull = 1903,
    OrbIdAlarmDroppedFrame = 1904,
    OrbIdAlarmLossOfVideoImage = 1905,
    OrbIdAlarmMediaSlow = 1906,
    OrbIdAlarmLossOfVideo = 1907,
    OrbIdAlarmTemperature = 1908,
    OrbIdAlarmFan = 1909,
    OrbIdAlarmRefMissing = 1910,
    OrbIdAlarmAudioChannels = 1911,
    OrbIdAlarmPower = 1912,
    OrbIdAlarmRefUnlocked = 1913,
    OrbIdAlarmVariableFrameRate = 1914,
    OrbIdAlarmFirmware = 1915,
    OrbIdAlarmCamera = 1916,
    OrbIdAlarmTimecode = 1917,
    OrbIdAlarmClock = 1918,
    OrbIdAlarmBattery = 1919,
    OrbIdAlarmLut = 1920,

    // Record-inhibit reasons
    OrbIdInhibitNoInput = 2000,
    OrbIdInhibitMediaFull = 2003,
    OrbIdInhibitNoMedia = 2004
};
