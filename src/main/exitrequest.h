#pragma once

class QObject;

/// The way from a signal handler to the event loop: a byte through a pipe, so that the handler
/// itself does nothing that could meet the interrupted code halfway.
namespace exitrequest {

/// Opens the pipe; before any signal may ask.
void prepare();
/// Asks the event loop to exit with status 0. Safe in a signal handler, before the loop runs too.
void ask();
/// Obeys requests from now on; \a owner owns what watches.
void watch(QObject *owner);
/// Repeats, once the loop runs, a request that came while there was none.
void repeatEarly();

} // namespace exitrequest
