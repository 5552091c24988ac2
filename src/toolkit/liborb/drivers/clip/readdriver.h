#pragma once

#include "liborb/drivers/clip/framesource.h"
#include "liborb/drivers/clip/ioworker.h"
#include "liborb/ifaces/mediadriver.h"

#include <QTimer>

#include <deque>
#include <memory>

/// Reads a source on an I/O thread of its own. close() does not wait for the medium: reads under
/// way are answered with ECANCELED and the thread ends when its medium lets it. While a source grows
/// it is looked at again and again, and the host is told what came.
class ReadDriver
{
public:
    ReadDriver(OrbMediaDriverHost *host, std::shared_ptr<FrameSource> source);
    ~ReadDriver();

    void open();
    void read(int frame, void *context);
    void close();

private:
    struct Request
    {
        int frame;
        void *context;
    };

    void answerOpen(const OrbError &error, const OrbStreamInfo &info);
    void answerRead(const OrbFrame &frame, const OrbError &error);
    void answerClose();
    void lookAgain();
    void answerLook(bool isNews, const OrbStreamInfo &info);

    OrbMediaDriverHost *_host;
    std::shared_ptr<FrameSource> _source; ///< used and destroyed on the worker's thread
    AnswerBox _answers;
    IoWorker _worker;
    std::deque<Request> _requests; ///< not answered yet, in order
    QTimer _lookTimer;  ///< runs while the source grows and no look is under way
    bool _isClosing = false;
};
