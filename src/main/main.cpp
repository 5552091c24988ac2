#include "app/mainobject.h"
#include "main/process.h"

int main(int argc, char **argv)
{
    return process::run(argc, argv, [](bool console) {
        return std::unique_ptr<QObject>(std::make_unique<MainObject>(console, nullptr));
    });
}
