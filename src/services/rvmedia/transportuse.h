#pragma once

// What the daemon publishes of its use of the storage, in the numbers of the store.

/// Values of eParamStorageInUse.
inline constexpr unsigned int storageIsInUse = 1;
inline constexpr unsigned int storageIsReleased = 2;
inline constexpr unsigned int storageHasRolledOver = 3;

/// Values of eParamTransportState: from Record to Still a clip is used.
inline constexpr unsigned int stateStandbyOff = 1;
inline constexpr unsigned int stateRecord = 2;
inline constexpr unsigned int stateStill = 15;

constexpr bool isInUse(unsigned int storageUse)
{
    return storageUse == storageIsInUse || storageUse == storageHasRolledOver;
}

constexpr bool usesClip(unsigned int transportState)
{
    return transportState >= stateRecord && transportState <= stateStill;
}
