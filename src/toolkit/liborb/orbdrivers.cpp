#include "liborb/orbdrivers.h"

#include "liborb/drivers/clip/clipdriver.h"
#include "liborb/drivers/software/softwaredriver.h"

#include <algorithm>
#include <iterator>

namespace {

const OrbVideoDriverEntry videoDrivers[] = {
    // name    driver
    {"ferin", createSoftwareVideoDriver},
};

const OrbMediaDriverEntry mediaDrivers[] = {
    // name        takes                    driver
    {"clip",      clipDriverAccepts,       createClipDriver},
    {"play list", playListDriverAccepts,   createPlayListDriver},
};

OrbDrivers::VideoFactory &videoFactory()
{
    static OrbDrivers::VideoFactory factory;
    return factory;
}

OrbDrivers::MediaFactory &mediaFactory()
{
    static OrbDrivers::MediaFactory factory;
    return factory;
}

} // namespace

std::unique_ptr<OrbVideoDriver> OrbDrivers::createVideo(const QString &name)
{
    if (videoFactory())
        return videoFactory()(name);
    const auto entry = std::ranges::find_if(
        videoDrivers, [&](const OrbVideoDriverEntry &e) { return name == QLatin1String(e.name); });
    return entry == std::end(videoDrivers) ? nullptr : entry->create();
}

std::unique_ptr<OrbMediaDriver> OrbDrivers::createMedia(const QVariant &desc, OrbAccess access,
                                                        const OrbId &type,
                                                        OrbMediaDriverHost *host)
{
    if (mediaFactory())
        return mediaFactory()(desc, access, type, host);
    const auto entry = std::ranges::find_if(mediaDrivers, [&](const OrbMediaDriverEntry &e) {
        return e.accepts(desc, access, type);
    });
    return entry == std::end(mediaDrivers) ? nullptr : entry->create(host);
}

void OrbDrivers::setVideoFactory(const VideoFactory &factory)
{
    videoFactory() = factory;
}

void OrbDrivers::setMediaFactory(const MediaFactory &factory)
{
    mediaFactory() = factory;
}
