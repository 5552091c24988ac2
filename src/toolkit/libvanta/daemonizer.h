#pragma once

#include <string>

/// Detaches the process from its terminal and keeps the signals that end it.
class Daemonizer
{
public:
    /// Goes on in a new process of its own session, in "/", with umask 022; the starting process
    /// waits a few seconds for the outcome and ends: with status 0 once the new one stands, else
    /// with status 1 and a line on standard error. So the call returns in the detached process
    /// only.
    ///
    /// \a name stands in messages and in the system's log. SIGTERM, SIGINT and SIGHUP call \a
    /// signalCallback from signal context; null leaves them alone. What \a statusCallback answers
    /// is printed by the starting process before it ends; null prints nothing. With \a
    /// closeTerminal standard input, output and error go to /dev/null at the end.
    ///
    /// Call it before there are threads.
    static void daemonize(std::string name, void (*signalCallback)(int),
                          std::string (*statusCallback)(), bool closeTerminal);

    /// Reports a clean end: the signals have their default effect again, and the system's log gets
    /// no line about an end that nobody announced. Nothing when the process was never detached.
    static void setDone();
};
