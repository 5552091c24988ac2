#include "liborb/drivers/clip/readdriver.h"

#include <cerrno>
#include <utility>

namespace {

constexpr size_t maxRequests = 256;
constexpr std::chrono::milliseconds patienceAtEnd(50);
constexpr std::chrono::milliseconds looksApart(250);

} // namespace

ReadDriver::ReadDriver(OrbMediaDriverHost *host, std::shared_ptr<FrameSource> source)
    : _host(host), _source(std::move(source))
{
    _lookTimer.setSingleShot(true);
    _lookTimer.setTimerType(Qt::PreciseTimer);
    _lookTimer.setInterval(looksApart);
    QObject::connect(&_lookTimer, &QTimer::timeout, &_lookTimer, [this] { lookAgain(); });
}

ReadDriver::~ReadDriver()
{
    _answers.close();
    _worker.discard();
    _worker.post([source = std::move(_source)] { });
    _worker.finish(patienceAtEnd);
}

void ReadDriver::open()
{
    if (!_worker.start()) {
        _answers.post([this] { answerOpen(OrbError(EAGAIN), OrbStreamInfo()); });
        return;
    }
    _worker.post([this, source = _source, answers = _answers] {
        OrbStreamInfo info;
        const OrbError error = source->open(info);
        answers.post([this, error, info] { answerOpen(error, info); });
    });
    _worker.setIdleJob([source = _source] { source->prepare(); });
}

void ReadDriver::answerOpen(const OrbError &error, const OrbStreamInfo &info)
{
    if (_isClosing)
        return;
    if (!error.isError() && info.isGrowing())
        _lookTimer.start();
    _host->driverOpened(error, info);
}

void ReadDriver::lookAgain()
{
    _worker.post([this, source = _source, answers = _answers] {
        OrbStreamInfo info;
        const bool isNews = source->lookAgain(info);
        answers.post([this, isNews, info] { answerLook(isNews, info); });
    });
}

void ReadDriver::answerLook(bool isNews, const OrbStreamInfo &info)
{
    if (_isClosing)
        return;
    if (info.isGrowing())
        _lookTimer.start();
    if (isNews)
        _host->driverGrew(info);
}

void ReadDriver::read(int frame, void *context)
{
    // More than any reader asks for at a time: it is told, after those before.
    const bool isTooMuch = _requests.size() >= maxRequests;
    _requests.push_back({frame, context});
    _worker.post([=, this, source = _source, answers = _answers] {
        OrbFrame data;
        const OrbError error = isTooMuch ? OrbError(ENOBUFS) : source->read(frame, data);
        answers.post([this, data, error] { answerRead(data, error); });
    });
}

void ReadDriver::answerRead(const OrbFrame &frame, const OrbError &error)
{
    if (_requests.empty())
        return;
    const Request request = _requests.front();
    _requests.pop_front();
    _host->driverFrameRead(request.frame, error.isError() ? OrbFrame() : frame, error,
                           request.context);
}

void ReadDriver::close()
{
    if (std::exchange(_isClosing, true))
        return;
    _lookTimer.stop();
    _worker.discard();
    _answers.post([this] { answerClose(); });
}

void ReadDriver::answerClose()
{
    while (!_requests.empty())
        answerRead(OrbFrame(), OrbError(ECANCELED));
    _host->driverClosed();
}
