#include "app/mainobject.h"
#include "app/recordingfigures.h"
#include "main/process.h"

int main(int argc, char **argv)
{
    return process::run(argc, argv, [](bool console) {
        std::unique_ptr<QObject> controller = std::make_unique<MainObject>(console, nullptr);
        new RecordingFigures(controller.get());
        return controller;
    });
}
