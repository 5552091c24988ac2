#pragma once

// An open file handed to another process, in a message of one byte.

/// Sends \a descriptor, which stays the caller's, over the socket of local processes \a socket, and with it what is
/// wanted. False when nobody is there to take it.
bool passDescriptor(int socket, int descriptor, char wanted = 0);

/// The file that the next message on \a socket brings; the caller's from then on. Waits for it; -1 when there is none
/// to come, or the message brings none.
int takeDescriptor(int socket, char &wanted);
