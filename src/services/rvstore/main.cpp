// rvstore: the parameter store. See --help.

#include "libconfig/storeuri.h"
#include "services/rvstore/storeserver.h"
#include "services/rvstore/valuefile.h"

#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace
{

StoreServer *runningServer = nullptr;

void stopServer(int)
{
    runningServer->stop();
}

void printUsage(FILE *to)
{
    std::fprintf(to,
                 "usage: rvstore [--db FILE] [--no-db] [--port PORT]\n"
                 "\n"
                 "Holds every parameter of the recorder and publishes their changes.\n"
                 "  --db FILE    keep values here; default $STATE_DIRECTORY/rvstore.db,\n"
                 "               or ./rvstore.db without that variable\n"
                 "  --no-db      keep nothing\n"
                 "  --port PORT  UDP port of 127.0.0.1; default $RVD_STORE_PORT or 7461, 0 any\n");
}

struct Options {
    std::string database;
    std::uint16_t port = storePort();
};

bool parseOptions(int argc, char **argv, Options &options)
{
    const char *directory = std::getenv("STATE_DIRECTORY");
    options.database = std::string(directory ? directory : ".") + "/rvstore.db";
    for (int i = 1; i < argc; i++) {
        const std::string option = argv[i];
        if (option == "--no-db") {
            options.database.clear();
        } else if (option == "--db" && i + 1 < argc) {
            options.database = argv[++i];
        } else if (option == "--port" && i + 1 < argc) {
            const char *end = argv[i + 1] + std::strlen(argv[i + 1]);
            const auto parsed = std::from_chars(argv[i + 1], end, options.port);
            if (parsed.ec != std::errc() || parsed.ptr != end) {
                return false;
            }
            i++;
        } else {
            return false;
        }
    }
    return true;
}

void handleSignals(StoreServer &server)
{
    runningServer = &server;
    struct sigaction action {
    };
    action.sa_handler = stopServer;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 2 && std::string(argv[1]) == "--help") {
        printUsage(stdout);
        return 0;
    }
    Options options;
    if (!parseOptions(argc, argv, options)) {
        printUsage(stderr);
        return 2;
    }
    std::unique_ptr<ValueFile> file;
    if (!options.database.empty()) {
        file = std::make_unique<ValueFile>(options.database);
    }
    StoreServer server(file.get());
    std::string problem;
    const bool isOpen = server.open(options.port, problem);
    if (!problem.empty()) {
        std::fprintf(stderr, "rvstore: %s\n", problem.c_str());
    }
    if (!isOpen) {
        return 1;
    }
    handleSignals(server);
    std::fprintf(stderr, "rvstore: ready on 127.0.0.1:%u, %zu parameters, %s\n",
                 unsigned(server.port()), allDescriptors().size(),
                 file ? options.database.c_str() : "nothing kept");
    server.run();
    return 0;
}
