#include "liborb/drivers/software/encoder.h"

#include "liborb/drivers/software/picturecoder.h"
#include "liborb/drivers/software/workqueue.h"
#include "liborb/orblog.h"
#include "liborb/orbthread.h"

#include <QSet>

#include <algorithm>
#include <chrono>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace ferin {

namespace {

constexpr const char *logFile = "encoder.cpp";
constexpr std::size_t codersKept = 3; ///< formats a worker has a coder ready for

struct Request {
    RawPictureRef raw;
    OrbImageDesc desc;
    OrbBuffer buffer;
};

/// A worker's coders, the one used last in front.
class CoderShelf
{
public:
    PictureCoder *coderFor(const OrbImageDesc &desc, QString &problem)
    {
        const auto found = std::ranges::find(_rows, desc, &Row::desc);
        if (found != _rows.end()) {
            std::rotate(_rows.begin(), found, found + 1);
            return _rows.front().coder.get();
        }
        std::unique_ptr<PictureCoder> coder = createFfmpegCoder(desc, problem);
        if (!coder)
            return nullptr;
        if (_rows.size() == codersKept)
            _rows.pop_back();
        _rows.push_front({desc, std::move(coder)});
        return _rows.front().coder.get();
    }

    /// After a failure nothing is known about a coder: the next picture gets a new one.
    void discard(const OrbImageDesc &desc)
    {
        std::erase_if(_rows, [&desc](const Row &row) { return row.desc == desc; });
    }

private:
    struct Row {
        OrbImageDesc desc;
        std::unique_ptr<PictureCoder> coder;
    };
    std::deque<Row> _rows;
};

} // namespace

struct EncoderPool::Private {
    WorkQueue<Request> queue;
    mutable std::mutex mutex;
    quint64 coded = 0;               // guarded
    quint64 failed = 0;              // guarded
    std::chrono::nanoseconds spent {}; // guarded; on coded pictures
    QSet<QString> reported;          // guarded; formats whose failure stands in the log
    std::vector<std::thread> workers;

    void work();
    void fail(const Request &request, const QString &problem);
    void succeeded(std::chrono::nanoseconds time);
};

void EncoderPool::Private::work()
{
    CoderShelf shelf;
    Request request;
    while (queue.pop(request)) {
        const auto begun = std::chrono::steady_clock::now();
        QString problem;
        CodedPicture bits;
        PictureCoder *coder = shelf.coderFor(request.desc, problem);
        if (coder != nullptr && coder->code(request.raw, bits, problem)) {
            request.raw.reset();
            succeeded(std::chrono::steady_clock::now() - begun);
            request.buffer.fulfil(bits.bytes, bits.size, std::move(bits.release));
        } else {
            shelf.discard(request.desc);
            fail(request, problem);
        }
        request = Request(); // nothing is kept while the worker waits
    }
}

void EncoderPool::Private::fail(const Request &request, const QString &problem)
{
    const QString format = request.desc.toString();
    bool isNew = false;
    {
        const std::lock_guard lock(mutex);
        ++failed;
        isNew = !reported.contains(format);
        reported.insert(format);
    }
    if (isNew)
        orbLogOutput(1, logFile, __LINE__, "Coder: %s cannot be coded: %s\n", qPrintable(format),
                     qPrintable(problem));
    request.buffer.fail();
}

void EncoderPool::Private::succeeded(std::chrono::nanoseconds time)
{
    const std::lock_guard lock(mutex);
    ++coded;
    spent += time;
}

namespace {

/// Hands the raw picture to the pool when somebody wants the bytes.
template <typename Pool>
class CodingPromise : public OrbBufferPromise
{
public:
    CodingPromise(std::weak_ptr<Pool> pool, RawPictureRef raw, const OrbImageDesc &desc)
        : _pool(std::move(pool)), _raw(std::move(raw)), _desc(desc)
    {
    }

    void start(const OrbBuffer &buffer) override
    {
        const std::shared_ptr<Pool> pool = _pool.lock();
        if (!pool || !pool->queue.push({std::exchange(_raw, nullptr), _desc, buffer}))
            buffer.fail();
    }

private:
    std::weak_ptr<Pool> _pool;
    RawPictureRef _raw;
    OrbImageDesc _desc;
};

} // namespace

EncoderPool::EncoderPool(int workers) : _d(std::make_shared<Private>())
{
    for (int i = workerCount(workers); i > 0; --i)
        _d->workers.emplace_back([d = _d.get()] {
            orbNameThread("coder");
            d->work();
        });
}

EncoderPool::~EncoderPool()
{
    const std::deque<Request> left = _d->queue.close();
    for (std::thread &worker : _d->workers)
        worker.join();
    for (const Request &request : left)
        request.buffer.fail();
}

bool EncoderPool::canCode(const OrbImageDesc &desc)
{
    return ffmpegCanCode(desc);
}

QString EncoderPool::codecName(const OrbId &dataType) const
{
    OrbImageDesc any;
    any.setSize(1920, 1080);
    any.setDataType(dataType);
    return canCode(any) ? QStringLiteral("ffmpeg") : QString();
}

OrbBuffer EncoderPool::promise(const RawPictureRef &raw, const OrbImageDesc &desc)
{
    if (!raw)
        return OrbBuffer();
    return OrbBuffer(std::make_shared<CodingPromise<Private>>(_d, raw, desc));
}

EncoderStats EncoderPool::stats() const
{
    EncoderStats stats;
    stats.waiting = _d->queue.size();
    const std::lock_guard lock(_d->mutex);
    stats.coded = _d->coded;
    stats.failed = _d->failed;
    if (stats.coded > 0)
        stats.meanMs = std::chrono::duration<double, std::milli>(_d->spent).count()
                       / static_cast<double>(stats.coded);
    return stats;
}

} // namespace ferin
