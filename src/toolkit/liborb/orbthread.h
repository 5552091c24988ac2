#pragma once

/// Names the calling thread for debuggers and process lists; at most 15 characters.
void orbNameThread(const char *name);

/// Lets the calling thread go before all ordinary ones of the machine, for work that has a deadline every
/// frame and takes little of it. Threads that it starts are ordinary again. False without the right to it;
/// the thread then goes on as it was.
bool orbRaiseThread();

/// Work that goes after the event loop, by its nice value. What has the deeper queue before it goes later.
enum class OrbWork {
    Coding = -15,
    Background = -10, ///< reading and writing clips, finding memory
};

/// Gives the calling thread, and those that it starts, its place behind the event loop; never one before the process's
/// first thread, so that tools which do the same work stay as they are. A thread that one with real-time priority has
/// started is ordinary until then. False if the system refuses it.
bool orbRankThread(OrbWork work);
