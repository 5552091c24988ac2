// The parameter store among real processes and a network that misbehaves.
//
//   store_torture lossy    RVSTORE SETS SEED    writers and subscribers behind a proxy that loses, repeats, reorders
//   store_torture kills    RVSTORE KILLS SEED   kill -9 while values are written: what was confirmed is there
//   store_torture restarts RVSTORE KILLS SEED   kill -9 under clients that write on: all agree in the end
//   store_torture frozen   RVSTORE SETS SEED    a subscriber that stops reading, then reads again
//   store_torture flood    RVSTORE SECONDS SEED garbage as fast as it goes: honest clients are served
//
// Ends with 0 when every promise was kept; prints the seed and the figures.

#include "store_torture.h"

#include "libconfig/packet.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <thread>

#include <csignal>

#include <sys/wait.h>
#include <unistd.h>

using namespace torture;

namespace
{

constexpr int writers = 8;
constexpr int subscribers = 4;
constexpr std::chrono::seconds agreeTime{2};

/// Sends its share of commands, each with a number of its own, and of settings; says what became of them.
int writer(std::uint16_t port, std::uint32_t number, std::uint32_t count, std::uint32_t seed)
{
    const auto store = connectTo(port);
    std::mt19937 random(seed);
    std::uint64_t accepted = 0;
    std::uint64_t refused = 0;
    for (std::uint32_t i = 0; i < count;) {
        if (store->set(eParamGotoClipIndex, (number << 24) + i)) {
            accepted++;
            i++;
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    // Settings one by one, so that none takes the place of another.
    for (std::uint32_t i = 0; i < 20; i++) {
        const bool isText = random() % 2;
        accepted += isText ? store->set(eParamReelName, std::to_string(random() % 1000))
                           : store->set(eParamRecordInterval, std::uint32_t(random() % 3600));
        const auto outcome = store->flush(std::chrono::seconds(60));
        refused += outcome.refused.size() + outcome.moreRefused;
    }
    const auto outcome = store->flush(std::chrono::seconds(60));
    refused += outcome.refused.size() + outcome.moreRefused;
    std::printf("%llu %llu %d\n", static_cast<unsigned long long>(accepted), static_cast<unsigned long long>(refused),
                int(outcome.isComplete));
    return 0;
}

/// Listens, and answers each line on its input with what it holds.
int subscriber(std::uint16_t port)
{
    const auto store = connectTo(port);
    Listener listener;
    store->addListener(&listener);
    std::printf("ready\n");
    std::fflush(stdout);
    for (int c = std::getchar(); c != EOF; c = std::getchar()) {
        if (c == '\n') {
            std::printf("%s\n", (valuesText(*store) + listener.report()).c_str());
            std::fflush(stdout);
        }
    }
    store->removeListener(&listener);
    return 0;
}

/// Whether each subscriber comes to hold what the store holds, in time.
void checkAgreement(std::vector<Child> &children, StoreClient &direct)
{
    const auto end = Clock::now() + agreeTime;
    for (Child &child : children) {
        std::string theirs;
        std::string ours;
        do {
            ours = valuesText(direct);
            theirs = child.ask();
            theirs = theirs.substr(0, theirs.find('|') + 1);
        } while (theirs != ours && Clock::now() < end && sleepMs(20));
        check(theirs == ours, "a subscriber does not agree with the store:\n" + theirs + "\n" + ours);
    }
}

int lossy(const std::string &binary, std::uint32_t sets, std::uint32_t seed)
{
    const TemporaryFolder folder;
    Store store(binary, folder.path() + "/store.db");
    store.start();
    Proxy proxy(store.port(), seed);
    auto direct = connectTo(store.port());
    Listener observer;
    direct->addListener(&observer);

    std::vector<Child> listeners;
    for (int i = 0; i < subscribers; i++) {
        listeners.emplace_back([&] { return subscriber(proxy.port()); });
    }
    std::for_each(listeners.begin(), listeners.end(), [](Child &child) { child.line(); });
    std::vector<Child> children;
    const auto begun = Clock::now();
    for (std::uint32_t i = 0; i < writers; i++) {
        children.emplace_back([&, i] { return writer(proxy.port(), i + 1, sets / writers, seed + i); });
    }
    unsigned long long accepted = 0;
    unsigned long long refused = 0;
    for (Child &child : children) {
        unsigned long long taken = 0;
        unsigned long long lost = 0;
        int isComplete = 0;
        const std::string line = child.line();
        check(std::sscanf(line.c_str(), "%llu %llu %d", &taken, &lost, &isComplete) == 3, "a writer ended: " + line);
        check(isComplete, "a writer waits in vain");
        accepted += taken;
        refused += lost;
        check(child.wait() == 0, "a writer failed");
    }
    const double seconds = secondsSince(begun);
    proxy.beClean();
    checkAgreement(listeners, *direct);
    for (Child &child : listeners) {
        const std::string heard = child.ask();
        check(heard.find("twice 0") != std::string::npos, "a subscriber heard a command twice: " + heard);
        child.close();
        check(child.wait() == 0, "a subscriber failed");
    }
    check(observer.twice() == 0, "a command was carried out twice: " + observer.report());
    direct->removeListener(&observer);
    direct.reset();
    const std::string counters = store.stop();
    const std::uint64_t carriedOut = counterOf(counters, "sets");
    std::printf("lossy, seed %u: %llu sets in %.1f s through 30 %% loss, 30 %% duplicates, reordering; "
                "carried out %llu, lost on the way %llu, repeated requests %llu\n",
                seed, accepted, seconds, static_cast<unsigned long long>(carriedOut), refused,
                static_cast<unsigned long long>(counterOf(counters, "repeated")));
    check(carriedOut <= accepted && carriedOut + refused >= accepted,
          "not every set was carried out once: " + counters);
    check(sets < 1000 || counterOf(counters, "repeated") > 0, "the network was too good to prove anything");
    return 0;
}

/// The text that a number stands for; long, so that a torn one is seen.
std::string wholeText(std::uint32_t number)
{
    std::string text = std::to_string(number) + ":";
    text.append(number % 800, static_cast<char>('a' + number % 26));
    return text;
}

std::uint32_t numberIn(const ParamValue &value)
{
    const auto &text = std::get<std::string>(value);
    const auto number = static_cast<std::uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
    check(number == 0 || text == wholeText(number), "a value is torn: " + text);
    return number;
}

int kills(const std::string &binary, std::uint32_t count, std::uint32_t seed)
{
    const TemporaryFolder folder;
    Store store(binary, folder.path() + "/store.db");
    std::mt19937 random(seed);
    std::uint32_t confirmed = 0;
    std::uint32_t tried = 0;
    std::uint32_t confirmations = 0;
    const auto begun = Clock::now();
    for (std::uint32_t i = 0; i <= count; i++) {
        store.start();
        // A fresh client knows only what the store kept.
        auto client = connectTo(store.port());
        const std::uint32_t kept = i ? numberIn(*client->value(eParamReelName)) : 0;
        check(kept >= confirmed && kept <= tried,
              "kept " + std::to_string(kept) + ", confirmed " + std::to_string(confirmed) + ", tried " +
                  std::to_string(tried));
        if (i == count) {
            break;
        }
        const auto lives = std::chrono::microseconds(random() % 30000);
        std::atomic<bool> ends = false;
        std::thread killer([&] {
            std::this_thread::sleep_for(lives);
            ends = true;
            store.kill();
        });
        while (!ends) {
            client->set(eParamReelName, wholeText(++tried));
            const auto outcome = client->flush(std::chrono::milliseconds(40));
            if (outcome.isComplete && outcome.refused.empty()) {
                confirmed = tried;
                confirmations++;
            }
        }
        killer.join();
    }
    std::printf("kills, seed %u: %u kill -9 in %.1f s, %u confirmed writes, none lost or torn\n", seed, count,
                secondsSince(begun), confirmations);
    check(confirmations > count / 10, "hardly anything was confirmed");
    store.stop();
    return 0;
}

/// Writes one parameter for as long as it lives; says its last value when its input ends.
int persistentWriter(std::uint16_t port, std::uint32_t id, std::uint32_t seed)
{
    const auto store = connectTo(port, std::chrono::seconds(10));
    std::mt19937 random(seed);
    std::atomic<bool> ends = false;
    std::thread waiter([&] {
        while (std::getchar() != EOF) {
        }
        ends = true;
    });
    std::uint32_t value = 0;
    while (!ends) {
        value = 1 + random() % 3;
        store->set(static_cast<eParam_t>(id), value);
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 2000));
    }
    waiter.join();
    const bool isComplete = store->flush(std::chrono::seconds(20)).isComplete;
    std::printf("%u %d\n", value, int(isComplete));
    return 0;
}

int restarts(const std::string &binary, std::uint32_t count, std::uint32_t seed)
{
    const TemporaryFolder folder;
    Store store(binary, folder.path() + "/store.db");
    store.start();
    const std::uint16_t port = store.port();
    // Two that are kept and one that only its writer knows; one begins before there is a store again.
    const std::uint32_t ids[] = {eParamRecordInterval, eParamTransportState, eParamTcgSource};
    store.kill();
    std::vector<Child> children;
    children.emplace_back([&] { return persistentWriter(port, ids[0], seed); });
    store.start();
    children.emplace_back([&] { return persistentWriter(port, ids[1], seed + 1); });
    std::vector<Child> listeners;
    listeners.emplace_back([&] { return subscriber(port); });
    listeners.back().line();
    std::mt19937 random(seed);
    for (std::uint32_t i = 0; i < count; i++) {
        sleepMs(int(random() % 200));
        store.kill();
        sleepMs(int(random() % 100));
        store.start();
    }
    auto direct = connectTo(port);
    for (std::size_t i = 0; i < children.size(); i++) {
        children[i].close();
        unsigned int last = 0;
        int isComplete = 0;
        const std::string line = children[i].line();
        check(std::sscanf(line.c_str(), "%u %d", &last, &isComplete) == 2 && isComplete, "a writer ended: " + line);
        check(children[i].wait() == 0, "a writer failed");
        const auto end = Clock::now() + agreeTime;
        while (*direct->value(static_cast<eParam_t>(ids[i])) != ParamValue(last) && Clock::now() < end) {
            sleepMs(10);
        }
        check(*direct->value(static_cast<eParam_t>(ids[i])) == ParamValue(last), "a last word does not stand");
    }
    checkAgreement(listeners, *direct);
    listeners.back().close();
    listeners.back().wait();
    direct.reset();
    store.stop();
    std::printf("restarts, seed %u: %u kill -9 under writers; all agree\n", seed, count);
    return 0;
}

int frozen(const std::string &binary, std::uint32_t sets, std::uint32_t seed)
{
    const TemporaryFolder folder;
    Store store(binary, folder.path() + "/store.db");
    store.start();
    std::vector<Child> listeners;
    for (int i = 0; i < 2; i++) {
        listeners.emplace_back([&] { return subscriber(store.port()); });
        listeners.back().line();
    }
    Child &stopped = listeners.front();
    auto direct = connectTo(store.port());
    const long before = residentKilobytes(store.pid());
    ::kill(stopped.pid(), SIGSTOP);
    std::mt19937 random(seed);
    const std::string longName(800, 'x');
    for (std::uint32_t i = 0; i < sets; i++) {
        while (!direct->set(eParamGotoClipName, longName + std::to_string(i))) {
            sleepMs(1);
        }
        direct->set(eParamRecordInterval, std::uint32_t(random() % 3600));
    }
    check(direct->flush(std::chrono::seconds(30)).isComplete, "a stopped subscriber keeps a writer waiting");
    const long grown = residentKilobytes(store.pid()) - before;
    check(grown < 16 * 1024, "the store has grown by " + std::to_string(grown) + " kB");
    std::vector<Child> others;
    others.push_back(std::move(listeners.back()));
    listeners.pop_back();
    checkAgreement(others, *direct);
    ::kill(listeners.front().pid(), SIGCONT);
    checkAgreement(listeners, *direct);
    for (auto *group : {&others, &listeners}) {
        group->front().close();
        group->front().wait();
    }
    direct.reset();
    std::printf("frozen, seed %u: %u sets, store grown by %ld kB; %s", seed, sets, grown, store.stop().c_str());
    return 0;
}

/// Garbage of every depth: noise, a sound beginning, a sound frame around noise, requests of nobody.
std::string garbage(std::mt19937 &random)
{
    std::string datagram(random() % 1300, '\0');
    std::generate(datagram.begin(), datagram.end(), [&] { return static_cast<char>(random()); });
    switch (random() % 4) {
    case 0:
        return datagram;
    case 1:
        return datagram.replace(0, std::min<std::size_t>(5, datagram.size()), "RVPS\2");
    case 2: {
        lumo::store::Packet packet;
        packet.set_client(1 + random());
        packet.set_request(random());
        packet.set_subscription(random());
        packet.mutable_set_request()->add_set()->mutable_value()->set_bytes(datagram.substr(0, 900));
        return encodePacket(packet);
    }
    default: {
        lumo::store::Packet packet;
        packet.set_client(1 + random());
        packet.set_request(1);
        packet.mutable_subscribe_request()->set_cookie(random());
        packet.set_padding(std::string(64, 'p'));
        return encodePacket(packet);
    }
    }
}

int flood(const std::string &binary, std::uint32_t seconds, std::uint32_t seed)
{
    const TemporaryFolder folder;
    Store store(binary, folder.path() + "/store.db");
    store.start();
    auto writing = connectTo(store.port());
    auto reading = connectTo(store.port());
    const long before = residentKilobytes(store.pid());
    std::atomic<bool> ends = false;
    std::atomic<unsigned long long> thrown = 0;
    std::thread thrower([&] {
        std::mt19937 random(seed);
        const Socket socket(store.port());
        std::vector<std::string> heap;
        std::generate_n(std::back_inserter(heap), 4000, [&] { return garbage(random); });
        while (!ends) {
            socket.send(heap[thrown++ % heap.size()]);
        }
    });
    const auto begun = Clock::now();
    double worst = 0;
    std::uint32_t served = 0;
    while (secondsSince(begun) < seconds) {
        const auto asked = Clock::now();
        const std::uint32_t value = 1 + ++served % 3000;
        writing->set(eParamRecordInterval, value);
        const auto outcome = writing->flush(std::chrono::seconds(10));
        check(outcome.isComplete && outcome.refused.empty(), "an honest set is not answered in the flood");
        const auto end = Clock::now() + std::chrono::seconds(10);
        while (*reading->value(eParamRecordInterval) != ParamValue(value)) {
            check(Clock::now() < end, "an honest subscriber is not told in the flood");
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        worst = std::max(worst, secondsSince(asked));
    }
    ends = true;
    thrower.join();
    const long grown = residentKilobytes(store.pid()) - before;
    check(grown < 16 * 1024, "the store has grown by " + std::to_string(grown) + " kB");
    check(connectTo(store.port()) != nullptr, "no new client after the flood");
    writing.reset();
    reading.reset();
    std::printf("flood, seed %u: %llu datagrams in %u s; %u honest sets kept and told, the slowest in %.0f ms; "
                "store grown by %ld kB; %s",
                seed, thrown.load(), seconds, served, worst * 1000, grown, store.stop().c_str());
    return 0;
}

constexpr struct {
    const char *name;
    int (*run)(const std::string &binary, std::uint32_t count, std::uint32_t seed);
} scenarios[] = {
    {"lossy", lossy}, {"kills", kills}, {"restarts", restarts}, {"frozen", frozen}, {"flood", flood},
};

} // namespace

int main(int argc, char **argv)
{
    signal(SIGPIPE, SIG_IGN);
    for (const auto &scenario : scenarios) {
        if (argc == 5 && scenario.name == std::string(argv[1])) {
            return scenario.run(argv[2], static_cast<std::uint32_t>(std::strtoul(argv[3], nullptr, 10)),
                                static_cast<std::uint32_t>(std::strtoul(argv[4], nullptr, 10)));
        }
    }
    std::fprintf(stderr, "usage: store_torture lossy|kills|restarts|frozen|flood RVSTORE COUNT SEED\n");
    return 2;
}
