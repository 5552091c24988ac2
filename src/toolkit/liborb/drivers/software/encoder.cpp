#include "liborb/drivers/software/encoder.h"

#include "liborb/drivers/software/latencies.h"
#include "liborb/drivers/software/workqueue.h"
#include "liborb/orblog.h"
#include "liborb/orbthread.h"
#include "libprores/workers.h"

#include <QSet>

#include <algorithm>
#include <chrono>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace ferin {

namespace {

constexpr const char *logFile = "encoder.cpp";
constexpr std::size_t codersKept = 3; ///< formats a worker has a coder ready for

struct Request {
    RawPictureRef raw; ///< none: pictures like desc are expected, or without one another stream begins
    OrbImageDesc desc;
    std::int64_t number = standalone;
    OrbBuffer buffer;
    std::chrono::steady_clock::time_point made;
};

/// A worker's coders, the one used last in front.
class CoderShelf
{
public:
    using Create = std::function<std::unique_ptr<PictureCoder>(const OrbImageDesc &, QString &)>;
    explicit CoderShelf(Create create) : _create(std::move(create)) {}

    PictureCoder *coderFor(const OrbImageDesc &desc, QString &problem)
    {
        const auto found = std::ranges::find(_rows, desc, &Row::desc);
        if (found != _rows.end()) {
            std::rotate(_rows.begin(), found, found + 1);
            return _rows.front().coder.get();
        }
        std::unique_ptr<PictureCoder> coder = _create(desc, problem);
        if (!coder)
            return nullptr;
        if (_rows.size() == codersKept)
            _rows.pop_back();
        _rows.push_front({desc, std::move(coder)});
        return _rows.front().coder.get();
    }

    void beginStream()
    {
        for (const Row &row : _rows)
            row.coder->expect(standalone);
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
    Create _create;
    std::deque<Row> _rows;
};

} // namespace

struct EncoderPool::Private {
    ProResBy proRes = ProResBy::Own;
    WorkQueue<Request> streams; // coded one by one, in order
    WorkQueue<Request> singles; // coded side by side
    mutable std::mutex mutex;
    quint64 coded = 0;               // guarded
    quint64 failed = 0;              // guarded
    std::chrono::nanoseconds spent {}; // guarded; on coded pictures
    Latencies latencies;             // guarded
    QSet<QString> reported;          // guarded; formats whose failure stands in the log
    std::vector<std::thread> workers;

    bool isOwn(const OrbId &dataType) const { return proRes == ProResBy::Own && isProRes(dataType); }
    WorkQueue<Request> &queueOf(const OrbId &dataType) { return isOwn(dataType) ? streams : singles; }
    bool submit(Request &&request);
    void work(WorkQueue<Request> &queue, CoderShelf &&shelf);
    void workOnStreams(int sharers);
    void fail(const Request &request, const QString &problem);
    void succeeded(const Request &request, std::chrono::steady_clock::time_point begun);
};

bool EncoderPool::Private::submit(Request &&request)
{
    request.made = std::chrono::steady_clock::now();
    return queueOf(request.desc.dataType()).push(std::move(request));
}

void EncoderPool::Private::work(WorkQueue<Request> &queue, CoderShelf &&shelf)
{
    Request request;
    while (queue.pop(request)) {
        QString problem;
        if (!request.raw) {
            if (request.desc.isValid())
                shelf.coderFor(request.desc, problem); // what is wrong shows with the first picture
            else
                shelf.beginStream();
            continue;
        }
        const auto begun = std::chrono::steady_clock::now();
        CodedPicture bits;
        PictureCoder *coder = shelf.coderFor(request.desc, problem);
        if (coder != nullptr)
            coder->expect(request.number);
        if (coder != nullptr && coder->code(request.raw, bits, problem)) {
            request.raw.reset();
            succeeded(request, begun);
            request.buffer.fulfil(bits.bytes, bits.size, std::move(bits.release));
        } else {
            shelf.discard(request.desc);
            fail(request, problem);
        }
        request = Request(); // nothing is kept while the worker waits
    }
}

/// The threads that share slices are named like this one, which starts them.
void EncoderPool::Private::workOnStreams(int sharers)
{
    prores::ThreadPool pool(sharers);
    work(streams, CoderShelf([&pool](const OrbImageDesc &desc, QString &problem) {
             return createProResCoder(desc, &pool, problem);
         }));
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

void EncoderPool::Private::succeeded(const Request &request, std::chrono::steady_clock::time_point begun)
{
    const auto now = std::chrono::steady_clock::now();
    const std::lock_guard lock(mutex);
    ++coded;
    spent += now - begun;
    latencies.add(now, now - request.made);
}

namespace {

/// Hands the raw picture to the pool when somebody wants the bytes.
template <typename Pool>
class CodingPromise : public OrbBufferPromise
{
public:
    CodingPromise(std::weak_ptr<Pool> pool, RawPictureRef raw, const OrbImageDesc &desc, std::int64_t number)
        : _pool(std::move(pool)), _raw(std::move(raw)), _desc(desc), _number(number)
    {
    }

    void start(const OrbBuffer &buffer) override
    {
        const std::shared_ptr<Pool> pool = _pool.lock();
        if (!pool || !pool->submit({std::exchange(_raw, nullptr), _desc, _number, buffer, {}}))
            buffer.fail();
    }

private:
    std::weak_ptr<Pool> _pool;
    RawPictureRef _raw;
    OrbImageDesc _desc;
    std::int64_t _number;
};

} // namespace

EncoderPool::EncoderPool(int workers, ProResBy proRes) : _d(std::make_shared<Private>())
{
    _d->proRes = proRes;
    const int count = workerCount(workers);
    for (int i = 0; i < count; ++i) {
        _d->workers.emplace_back([d = _d.get()] {
            orbNameThread("coder");
            orbRankThread(OrbWork::Coding);
            d->work(d->singles, CoderShelf(createFfmpegCoder));
        });
    }
    if (proRes == ProResBy::Ffmpeg)
        return;
    _d->workers.emplace_back([d = _d.get(), count] {
        orbNameThread("coder");
        orbRankThread(OrbWork::Coding);
        d->workOnStreams(count);
    });
}

EncoderPool::~EncoderPool()
{
    const std::deque<Request> left[] = {_d->streams.close(), _d->singles.close()};
    for (std::thread &worker : _d->workers)
        worker.join();
    for (const std::deque<Request> &requests : left) {
        for (const Request &request : requests)
            request.buffer.fail();
    }
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
    if (!canCode(any))
        return QString();
    return _d->isOwn(dataType) ? QStringLiteral("own") : QStringLiteral("ffmpeg");
}

OrbBuffer EncoderPool::promise(const RawPictureRef &raw, const OrbImageDesc &desc, std::int64_t number)
{
    if (!raw)
        return OrbBuffer();
    return OrbBuffer(std::make_shared<CodingPromise<Private>>(_d, raw, desc, number));
}

bool EncoderPool::keepsRate(const OrbId &dataType) const
{
    return _d->isOwn(dataType);
}

void EncoderPool::expect(const OrbImageDesc &desc)
{
    if (_d->isOwn(desc.dataType()))
        _d->submit({nullptr, desc, standalone, OrbBuffer(), {}});
}

void EncoderPool::beginStream()
{
    if (_d->proRes == ProResBy::Own)
        _d->streams.push({});
}

EncoderStats EncoderPool::stats() const
{
    EncoderStats stats;
    stats.waiting = _d->streams.size() + _d->singles.size();
    const std::lock_guard lock(_d->mutex);
    _d->latencies.read(std::chrono::steady_clock::now(), stats.medianMs, stats.worstMs);
    stats.coded = _d->coded;
    stats.failed = _d->failed;
    if (stats.coded > 0)
        stats.meanMs = std::chrono::duration<double, std::milli>(_d->spent).count()
                       / static_cast<double>(stats.coded);
    return stats;
}

} // namespace ferin
