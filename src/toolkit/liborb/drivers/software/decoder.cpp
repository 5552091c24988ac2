#include "liborb/drivers/software/decoder.h"

#include "liborb/drivers/software/picturedecoder.h"
#include "liborb/drivers/software/workqueue.h"
#include "liborb/orbthread.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace ferin {

namespace {

constexpr std::size_t decodersKept = 3;  ///< formats a worker has a decoder ready for
constexpr std::size_t poolsKept = 2;     ///< rasters that pictures are kept for
constexpr std::size_t poolBytes = 320'000'000;
constexpr int fewestPictures = 12;
constexpr int mostPictures = 48;
constexpr int waitSliceMs = 20;
constexpr int longestWaitMs = 2000; ///< for somebody to give a picture back

class Job : public DecodeJob
{
public:
    explicit Job(const OrbImage &image) : _image(image) {}

    bool isDone() const override
    {
        const std::lock_guard lock(_mutex);
        return _done;
    }

    bool wait(int timeoutMs) override
    {
        std::unique_lock lock(_mutex);
        return _ended.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return _done; });
    }

    RawPictureRef picture() const override
    {
        const std::lock_guard lock(_mutex);
        return _picture;
    }

    void cancel() override
    {
        _cancelled = true;
        end(nullptr);
    }

    bool isCancelled() const { return _cancelled; }

    /// What is to be decoded; asked for once, by the worker.
    OrbImage takeImage() { return std::exchange(_image, OrbImage()); }

    /// The first end counts.
    void end(const RawPictureRef &picture)
    {
        {
            const std::lock_guard lock(_mutex);
            if (_done)
                return;
            _done = true;
            _picture = picture;
        }
        _ended.notify_all();
    }

private:
    mutable std::mutex _mutex;
    std::condition_variable _ended;
    std::atomic<bool> _cancelled = false;
    bool _done = false;     // guarded
    RawPictureRef _picture; // guarded
    OrbImage _image;        // the worker's
};

/// A worker's decoders, the one used last in front.
class DecoderShelf
{
public:
    explicit DecoderShelf(ProResBy proRes) : _proRes(proRes) {}

    PictureDecoder *decoderFor(const OrbImageDesc &desc)
    {
        const auto found = std::ranges::find_if(_rows, [&desc](const Row &row) {
            return row.desc.dataType() == desc.dataType() && row.desc.size() == desc.size()
                   && row.desc.isInterlaced() == desc.isInterlaced();
        });
        if (found != _rows.end()) {
            std::rotate(_rows.begin(), found, found + 1);
            return _rows.front().decoder.get();
        }
        std::unique_ptr<PictureDecoder> decoder = PictureDecoder::create(desc, _proRes);
        if (!decoder)
            return nullptr;
        if (_rows.size() == decodersKept)
            _rows.pop_back();
        _rows.push_front({desc, std::move(decoder)});
        return _rows.front().decoder.get();
    }

private:
    struct Row {
        OrbImageDesc desc;
        std::unique_ptr<PictureDecoder> decoder;
    };
    const ProResBy _proRes;
    std::deque<Row> _rows;
};

} // namespace

struct DecoderPool::Private {
    struct Pool {
        QSize raster;
        std::shared_ptr<RawPicturePool> pictures;
    };

    WorkQueue<std::shared_ptr<Job>> queue;
    std::mutex mutex;
    std::deque<Pool> pools; // guarded; the one used last in front
    std::atomic<bool> ending = false;
    std::vector<std::thread> workers;

    void work(ProResBy proRes);
    RawPictureRef decode(const Job &job, const OrbImage &image, DecoderShelf &shelf);
    std::shared_ptr<RawPicturePool> poolFor(const QSize &raster);
    RawPictureRef takePicture(const Job &job, const QSize &raster);
};

void DecoderPool::Private::work(ProResBy proRes)
{
    DecoderShelf shelf(proRes);
    std::shared_ptr<Job> job;
    while (queue.pop(job)) {
        const OrbImage image = job->takeImage();
        if (!job->isCancelled())
            job->end(decode(*job, image, shelf));
        job.reset();
    }
}

RawPictureRef DecoderPool::Private::decode(const Job &job, const OrbImage &image, DecoderShelf &shelf)
{
    const OrbBuffer bits = image.buffer();
    PictureDecoder *decoder = shelf.decoderFor(image.desc());
    if (decoder == nullptr || !bits.wait())
        return nullptr;
    const RawPictureRef picture = takePicture(job, image.desc().size());
    if (!picture || !decoder->decode(bits.data(), bits.size(), picture))
        return nullptr;
    return picture;
}

std::shared_ptr<RawPicturePool> DecoderPool::Private::poolFor(const QSize &raster)
{
    const std::lock_guard lock(mutex);
    const auto found = std::ranges::find(pools, raster, &Pool::raster);
    if (found != pools.end()) {
        std::rotate(pools.begin(), found, found + 1);
        return pools.front().pictures;
    }
    const std::size_t each = std::max<std::size_t>(picture::bytesFor(raster.width(), raster.height()), 1);
    const int count = static_cast<int>(std::clamp<std::size_t>(poolBytes / each, fewestPictures,
                                                               mostPictures));
    if (pools.size() == poolsKept)
        pools.pop_back();
    pools.push_front({raster, std::make_shared<RawPicturePool>(raster.width(), raster.height(), count)});
    return pools.front().pictures;
}

/// Waits for a picture: those that are out belong to earlier jobs, so whoever shows them gives them back.
RawPictureRef DecoderPool::Private::takePicture(const Job &job, const QSize &raster)
{
    const std::shared_ptr<RawPicturePool> pictures = poolFor(raster);
    for (int waited = 0; waited < longestWaitMs; waited += waitSliceMs) {
        if (RawPictureRef picture = pictures->take(waitSliceMs))
            return picture;
        if (ending || job.isCancelled())
            break;
    }
    return nullptr;
}

DecoderPool::DecoderPool(int workers, ProResBy proRes) : _d(std::make_shared<Private>())
{
    for (int i = workerCount(workers); i > 0; --i)
        _d->workers.emplace_back([d = _d.get(), proRes] {
            orbNameThread("decoder");
            orbRankThread(OrbWork::Coding);
            d->work(proRes);
        });
}

DecoderPool::~DecoderPool()
{
    _d->ending = true;
    const std::deque<std::shared_ptr<Job>> left = _d->queue.close();
    for (std::thread &worker : _d->workers)
        worker.join();
    for (const std::shared_ptr<Job> &job : left)
        job->end(nullptr);
}

std::shared_ptr<DecodeJob> DecoderPool::decode(const OrbImage &image)
{
    auto job = std::make_shared<Job>(image);
    if (!_d->queue.push(std::shared_ptr<Job>(job)))
        job->end(nullptr);
    return job;
}

} // namespace ferin
