#pragma once

/// Standard output for signal handlers.
namespace output {

/// Writes \a text at once and unbuffered: what a process prints before it aborts must not stay
/// behind.
void print(const char *text);

} // namespace output
