#include "services/rvcam/camera.h"
#include "services/rvcam/frameclock.h"
#include "services/rvcam/mediasource.h"
#include "services/rvcam/patternsource.h"
#include "services/rvcam/pipe.h"
#include "services/rvcam/settings.h"

#include <QCoreApplication>

#include <cstdio>
#include <memory>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("rvcam"));

    cam::Settings settings;
    QString error;
    if (!cam::parse(QCoreApplication::arguments(), settings, error)) {
        std::fprintf(stderr, "rvcam: %s\n", qPrintable(error));
        return 2;
    }
    cam::installSignals();

    std::unique_ptr<cam::Source> source;
    if (settings.from.empty()) {
        source = std::make_unique<cam::PatternSource>(settings);
    } else {
        cam::MediaSource::takeFormat(settings);
        source = std::make_unique<cam::MediaSource>(settings);
    }
    return settings.pipe ? cam::runPipe(settings, *source) : cam::runCamera(settings, *source);
}
