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
#include <iterator>
#include <string>

#include <arpa/inet.h>

namespace
{

StoreServer *runningServer = nullptr;

void stopServer(int)
{
    runningServer->stop();
}

void printUsage(FILE *to)
{
    std::fputs("usage: rvstore [--db FILE] [--no-db] [--port PORT] [--listen ADDRESS]\n"
               "\n"
               "Holds every parameter of the recorder and publishes their changes.\n"
               "  --db FILE         keep values here; default $STATE_DIRECTORY/rvstore.db,\n"
               "                    or ./rvstore.db without that variable\n"
               "  --no-db           keep nothing\n"
               "  --port PORT       UDP port; default $RVD_STORE_PORT or 7461, 0 any\n"
               "  --listen ADDRESS  a loopback address, default 127.0.0.1; any other is refused\n",
               to);
}

struct Options {
    std::string database;
    std::uint16_t port = storePort();
    std::uint32_t host = loopbackHost;
};

/// A loopback address; packets carry no signature, so whoever can send one is obeyed.
bool parseHost(const char *text, std::uint32_t &host)
{
    in_addr address{};
    if (inet_pton(AF_INET, text, &address) != 1) {
        std::fprintf(stderr, "rvstore: %s is no IPv4 address\n", text);
        return false;
    }
    host = ntohl(address.s_addr);
    if (host >> 24 == loopbackHost >> 24) {
        return true;
    }
    std::fprintf(stderr,
                 "rvstore: refuses to listen on %s: packets are not signed, so anybody there could work the recorder.\n"
                 "Reach it through a tunnel that ends on this machine, such as ssh or WireGuard.\n",
                 text);
    return false;
}

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
        } else if (option == "--listen" && i + 1 < argc) {
            if (!parseHost(argv[++i], options.host)) {
                return false;
            }
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

/// What a run was like, for whoever looks for the reason of something.
void printCounters(const StoreServer &server)
{
    const StoreCore::Counters &counters = server.core().counters();
    const struct {
        const char *name;
        std::uint64_t count;
    } rows[] = {
        {"received", counters.received},     {"malformed", counters.malformed}, {"missed", server.missed()},
        {"sets", counters.sets},             {"refused", counters.refused},     {"repeated", counters.duplicates},
        {"no subscription", counters.homeless}, {"withheld", counters.withheld},   {"busy", counters.busy},
        {"overflows", counters.overflows},   {"expired", counters.expired},
    };
    std::fprintf(stderr, "rvstore: ends;");
    for (const auto &row : rows) {
        std::fprintf(stderr, " %s %llu%s", row.name, static_cast<unsigned long long>(row.count),
                     &row == std::end(rows) - 1 ? "\n" : ",");
    }
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
    const bool isOpen = server.open(options.port, problem, options.host);
    if (!problem.empty()) {
        std::fprintf(stderr, "rvstore: %s\n", problem.c_str());
    }
    if (!isOpen) {
        return 1;
    }
    handleSignals(server);
    in_addr host{htonl(options.host)};
    char address[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &host, address, sizeof address);
    std::fprintf(stderr, "rvstore: ready on %s:%u, %zu parameters, %s\n", address, unsigned(server.port()),
                 allDescriptors().size(), file ? options.database.c_str() : "nothing kept");
    server.run();
    printCounters(server);
    return 0;
}
