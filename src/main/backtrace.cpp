#include "main/backtrace.h"

#include "main/output.h"

#include <cstdio>
#include <cstdlib>

#include <cxxabi.h>
#include <execinfo.h>
#include <unistd.h>

namespace {

constexpr int mostFrames = 25;

} // namespace

void prepareBackTrace()
{
    void *frames[1];
    ::backtrace(frames, 1);
}

void formatBackTraceLine(char *line, std::size_t size, int number, char *symbol)
{
    char *name = nullptr;
    char *offset = nullptr;
    char *end = nullptr;
    for (char *p = symbol; *p != '\0' && end == nullptr; ++p) {
        if (*p == '(')
            name = p;
        else if (*p == '+')
            offset = p;
        else if (*p == ')')
            end = p;
    }
    if (name == nullptr || offset == nullptr || end == nullptr || name > offset) {
        std::snprintf(line, size, "%2d: %s\n", number, symbol);
        return;
    }
    *name++ = '\0';
    *offset++ = '\0';
    *end++ = '\0';
    int status = 0;
    char *demangled = abi::__cxa_demangle(name, nullptr, nullptr, &status);
    std::snprintf(line, size, "%2d: %s: %s+%s%s\n", number, symbol,
                  status == 0 && demangled != nullptr ? demangled : name, offset, end);
    std::free(demangled);
}

void printBackTrace()
{
    output::print("BACKTRACE\n");
    void *frames[mostFrames];
    const int count = ::backtrace(frames, mostFrames);
    char **symbols = ::backtrace_symbols(frames, count);
    if (symbols == nullptr)
        return;
    for (int i = 1; i < count; ++i) { // frame 0 is this function
        char line[2048];
        formatBackTraceLine(line, sizeof line, i, symbols[i]);
        output::print(line);
    }
    std::free(symbols);
}

void printPlainBackTrace()
{
    output::print("BACKTRACE\n");
    void *frames[mostFrames];
    ::backtrace_symbols_fd(frames, ::backtrace(frames, mostFrames), STDOUT_FILENO);
}
