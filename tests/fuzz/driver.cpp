// Runs a fuzz target on its corpus and on mutations of it:
//
//   fuzz_NAME [--seconds N] [--seed N] [--largest BYTES] [--save FOLDER] FILE|FOLDER...
//
// Without --seconds only the given inputs run, so that an input saved from a failure can be tried again. What
// fails is saved as FOLDER/fuzz_NAME-SEED.input; the seed is printed at the start.

#include "driver.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include <csignal>

#include <fcntl.h>
#include <unistd.h>

extern "C" __attribute__((weak)) void __sanitizer_set_death_callback(void (*callback)());

namespace
{

using Input = std::vector<std::uint8_t>;

// What the handler of a failure needs; it may not ask for memory.
const Input *underTest = nullptr;
char savePath[4096] = "";
volatile std::sig_atomic_t isSaved = 0;

constexpr unsigned int secondsForOne = 20;

struct Options {
    double seconds = 0;
    std::uint64_t seed = 1;
    std::size_t largest = 1 << 16;
    std::string folder = ".";
    std::vector<std::string> paths;
};

void saveInput()
{
    if (isSaved || !underTest) {
        return;
    }
    isSaved = 1;
    const int fd = open(savePath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const ssize_t written = fd < 0 ? -1 : write(fd, underTest->data(), underTest->size());
    const char *text = written < 0 ? "fuzz: the input cannot be saved\n" : "fuzz: FAILED; the input is saved as ";
    [[maybe_unused]] ssize_t said = write(STDERR_FILENO, text, std::strlen(text));
    if (written >= 0) {
        said = write(STDERR_FILENO, savePath, std::strlen(savePath));
        said = write(STDERR_FILENO, "\n", 1);
    }
}

void failedBySignal(int number)
{
    saveInput();
    signal(number, SIG_DFL);
    raise(number);
}

void catchFailures()
{
    for (const int number : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGALRM}) {
        signal(number, failedBySignal);
    }
    if (__sanitizer_set_death_callback) {
        __sanitizer_set_death_callback(saveInput);
    }
}

bool parse(int argc, char **argv, Options &options)
{
    for (int i = 1; i < argc; i++) {
        const std::string word = argv[i];
        if (!word.starts_with("--")) {
            options.paths.push_back(word);
            continue;
        }
        if (i + 1 >= argc) {
            return false;
        }
        const char *value = argv[++i];
        if (word == "--seconds") {
            options.seconds = std::strtod(value, nullptr);
        } else if (word == "--seed") {
            options.seed = std::strtoull(value, nullptr, 10);
        } else if (word == "--largest") {
            options.largest = std::strtoull(value, nullptr, 10);
        } else if (word == "--save") {
            options.folder = value;
        } else {
            return false;
        }
    }
    return !options.paths.empty();
}

std::vector<Input> readCorpus(const Options &options)
{
    std::vector<std::filesystem::path> files;
    for (const std::string &path : options.paths) {
        if (!std::filesystem::is_directory(path)) {
            files.emplace_back(path);
            continue;
        }
        for (const auto &entry : std::filesystem::directory_iterator(path)) {
            files.push_back(entry.path());
        }
    }
    // The order of a folder is not the same everywhere; a seed must be.
    std::sort(files.begin(), files.end());
    std::vector<Input> corpus;
    for (const auto &path : files) {
        std::ifstream file(path, std::ios::binary);
        corpus.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    return corpus;
}

class Mutator
{
public:
    Mutator(const std::vector<Input> &corpus, std::uint64_t seed, std::size_t largest)
        : _corpus(corpus), _random(seed), _largest(largest)
    {
    }

    Input next()
    {
        Input input = _corpus[below(_corpus.size())];
        // Mostly one change, sometimes a heap of them.
        const std::size_t changes = std::size_t(1) << below(6);
        for (std::size_t i = 0; i < changes; i++) {
            change(input);
        }
        input.resize(std::min(input.size(), _largest));
        return input;
    }

private:
    std::size_t below(std::size_t bound) { return bound ? _random() % bound : 0; }

    void change(Input &input)
    {
        static constexpr std::array<std::uint8_t, 10> edges{0, 1, 7, 8, 16, 63, 127, 128, 254, 255};
        const std::size_t at = below(input.size());
        const std::size_t length = 1 + below(std::min<std::size_t>(input.size() - at, 1 + below(64)));
        const auto begin = input.begin() + static_cast<std::ptrdiff_t>(at);
        const auto end = begin + static_cast<std::ptrdiff_t>(std::min(length, input.size() - at));
        switch (below(input.empty() ? 1 : 8)) {
        case 0: {
            const Input &other = _corpus[below(_corpus.size())];
            const auto from = other.begin() + static_cast<std::ptrdiff_t>(below(other.size()));
            input.insert(begin, from, std::min(from + static_cast<std::ptrdiff_t>(below(200)) + 1, other.end()));
            return;
        }
        case 1:
            input[at] ^= static_cast<std::uint8_t>(1u << below(8));
            return;
        case 2:
            input[at] = static_cast<std::uint8_t>(_random());
            return;
        case 3:
            input[at] = edges[below(edges.size())];
            return;
        case 4:
            input.erase(begin, end);
            return;
        case 5: {
            const Input copy(begin, end);
            input.insert(begin, copy.begin(), copy.end());
            return;
        }
        case 6:
            std::fill(begin, end, edges[below(edges.size())]);
            return;
        default:
            input[at] = static_cast<std::uint8_t>(input[at] + below(9) - 4);
            return;
        }
    }

    const std::vector<Input> &_corpus;
    std::mt19937_64 _random;
    std::size_t _largest;
};

void run(const Input &input)
{
    underTest = &input;
    alarm(secondsForOne);
    LLVMFuzzerTestOneInput(input.data(), input.size());
    alarm(0);
    underTest = nullptr;
}

} // namespace

void fuzzCheck(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

int main(int argc, char **argv)
{
    Options options;
    if (!parse(argc, argv, options)) {
        std::fprintf(stderr, "usage: %s [--seconds N] [--seed N] [--largest BYTES] [--save FOLDER] FILE|FOLDER...\n",
                     argv[0]);
        return 2;
    }
    const std::string name = std::filesystem::path(argv[0]).filename().string();
    const std::vector<Input> corpus = readCorpus(options);
    if (corpus.empty()) {
        std::fprintf(stderr, "%s: no inputs\n", name.c_str());
        return 2;
    }
    std::snprintf(savePath, sizeof savePath, "%s/%s-%llu.input", options.folder.c_str(), name.c_str(),
                  static_cast<unsigned long long>(options.seed));
    std::printf("%s: seed %llu, %zu inputs\n", name.c_str(), static_cast<unsigned long long>(options.seed),
                corpus.size());
    std::fflush(stdout);
    catchFailures();
    std::for_each(corpus.begin(), corpus.end(), run);
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(options.seconds);
    Mutator mutator(corpus, options.seed, options.largest);
    std::uint64_t count = 0;
    for (; std::chrono::steady_clock::now() < end; count++) {
        const Input input = mutator.next();
        run(input);
    }
    std::printf("%s: %llu mutations, nothing failed\n", name.c_str(), static_cast<unsigned long long>(count));
    return 0;
}
