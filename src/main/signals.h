#pragma once

#include <csignal>
#include <span>

/// The signals that debug mode handles, in the order in which they are installed; two stand twice.
std::span<const int> handledSignals();

/// Installs signalAction() for each of them, with an empty mask and deliberately without the flag
/// that asks for the info record.
void setupSignals();

/// Fatal signals: log, print, back-trace, abort. Exit signals: the first ends the event loop with
/// status 0, the second the process with status 1. Any other: a log line.
void signalAction(int sig, siginfo_t *info, void *context);

/// The daemonizer's callback: asks the event loop to exit with status 0.
void handleDaemonizerSignal(int sig);
