#pragma once

#include <QtGlobal>

#include <chrono>
#include <functional>
#include <memory>

/// The way back to the event loop for whoever works on another thread: what is posted runs there in
/// order, until the box is closed. Copies share one box.
class AnswerBox
{
public:
    using Answer = std::function<void()>;

    /// On the event-loop thread.
    AnswerBox();
    /// Has \a answer run on the event-loop thread; drops it when the box is closed. Any thread.
    void post(Answer answer) const;
    /// Nothing runs any more, whatever was posted. On the event-loop thread.
    void close();

private:
    struct State;
    std::shared_ptr<State> _state;
};

/// One thread that carries out jobs in order. A job may wait for a medium as long as the medium
/// likes; what it needs it must own, because a worker whose medium hangs is left behind. All calls
/// on the event-loop thread.
class IoWorker
{
public:
    using Job = std::function<void()>;

    IoWorker();
    /// As finish() with nothing to wait for.
    ~IoWorker();
    IoWorker(const IoWorker &) = delete;
    IoWorker &operator=(const IoWorker &) = delete;

    /// False when the system has no thread to give.
    bool start();
    void post(Job job);
    /// Runs whenever there is nothing else to do after a job.
    void setIdleJob(Job job);
    /// Jobs not begun yet are dropped; they are destroyed on the worker's thread.
    void discard();
    /// Jobs that are over: grows as long as the medium answers.
    quint64 jobsDone() const;
    /// Takes no more jobs and does those there are.
    void stop();
    /// A worker that was stopped has done its last job.
    bool isOver() const;
    /// Takes no more jobs, does those there are, and waits for that as long as \a patience. False
    /// when the worker was left behind with its work.
    bool finish(std::chrono::milliseconds patience);
    /// Workers of the process that were left behind and have not come back. Any thread.
    static int leftBehind();

private:
    struct State;
    std::shared_ptr<State> _state;
};
