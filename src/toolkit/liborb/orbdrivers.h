#pragma once

#include "liborb/ifaces/mediadriver.h"
#include "liborb/ifaces/videodriver.h"

#include <functional>
#include <memory>

/// One video driver by the name a device is opened with.
struct OrbVideoDriverEntry {
    const char *name;
    std::unique_ptr<OrbVideoDriver> (*create)();
};

/// One media driver: takes the descriptors and access that accepts() says it can.
struct OrbMediaDriverEntry {
    const char *name;
    bool (*accepts)(const QVariant &desc, OrbAccess access, const OrbId &type);
    std::unique_ptr<OrbMediaDriver> (*create)(OrbMediaDriverHost *host);
};

/// The drivers at hand. They stand in two plain arrays in orbdrivers.cpp, first match wins.
class OrbDrivers
{
public:
    using VideoFactory = std::function<std::unique_ptr<OrbVideoDriver>(const QString &name)>;
    using MediaFactory = std::function<std::unique_ptr<OrbMediaDriver>(
        const QVariant &desc, OrbAccess access, const OrbId &type, OrbMediaDriverHost *host)>;

    /// Null when no driver has the name.
    static std::unique_ptr<OrbVideoDriver> createVideo(const QString &name);
    /// Null when no driver takes the descriptor.
    static std::unique_ptr<OrbMediaDriver> createMedia(const QVariant &desc, OrbAccess access,
                                                       const OrbId &type, OrbMediaDriverHost *host);

    /// Puts other factories in the place of the arrays, for engines on scripted drivers; an empty function
    /// restores the array.
    static void setVideoFactory(const VideoFactory &factory);
    static void setMediaFactory(const MediaFactory &factory);
};
