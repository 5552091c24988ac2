#include "main/output.h"

#include <cerrno>
#include <cstring>

#include <unistd.h>

void output::print(const char *text)
{
    std::size_t left = std::strlen(text);
    while (left > 0) {
        const ssize_t count = ::write(STDOUT_FILENO, text, left);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return;
        text += count;
        left -= static_cast<std::size_t>(count);
    }
}
