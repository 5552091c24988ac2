#pragma once

#include "libprores/encoder.h"
#include "libprores/slicecoder.h"
#include "libprores/tables.h"

#include <QByteArray>
#include <QString>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/bswap.h>
#include <libavutil/log.h>
}

// Pictures to code, FFmpeg's decoder as the judge, and a reconstruction in double precision.

namespace prorestest {

using namespace prores;

inline Format formatOf(Profile profile, int width, int height, Scan scan = Scan::Progressive, bool hasAlpha = false)
{
    Format format;
    format.profile = profile;
    format.width = width;
    format.height = height;
    format.scan = scan;
    format.hasAlpha = hasAlpha;
    return format;
}

/// A picture that owns its samples, packed plane after plane.
struct OwnPicture {
    std::vector<std::uint16_t> samples[4];
    int width[4] = {};
    int height = 0;

    explicit OwnPicture(const Format &format) : height(format.height)
    {
        for (int p = 0; p < (format.hasAlpha ? 4 : 3); ++p) {
            width[p] = format.is444() || p == 0 || p == 3 ? format.width : format.width / 2;
            samples[p].resize(static_cast<std::size_t>(width[p]) * static_cast<std::size_t>(height));
        }
    }

    std::uint16_t &at(int p, int x, int y) { return samples[p][static_cast<std::size_t>(y * width[p] + x)]; }
    std::uint16_t at(int p, int x, int y) const
    {
        return samples[p][static_cast<std::size_t>(y * width[p] + x)];
    }

    Picture view() const
    {
        Picture picture;
        for (int p = 0; p < 4 && !samples[p].empty(); ++p) {
            picture.plane[p] = samples[p].data();
            picture.stride[p] = width[p];
        }
        return picture;
    }
};

/// Slopes, edges and noise of \a noise code values (of 10 bit), moved on by \a frame; alpha with runs, steps and
/// noise.
inline OwnPicture naturalLike(const Format &format, int frame = 0, int noise = 12)
{
    OwnPicture picture(format);
    std::minstd_rand random(static_cast<unsigned>(frame + 1));
    const int up = format.bitDepth - 10;
    for (int p = 0; p < 3; ++p) {
        const double scale = picture.width[p] == format.width ? 1.0 : 2.0;
        for (int y = 0; y < picture.height; ++y) {
            for (int x = 0; x < picture.width[p]; ++x) {
                const double at = x * scale + frame * 3;
                double value = 512 + 180 * std::sin(at / 37 + p) * std::cos(y / 23.0) + 90 * std::sin(at * y / 4000);
                value += (static_cast<int>(at) / 50 + y / 40) % 3 == 0 ? 120 : 0;
                value += noise > 0 ? static_cast<int>(random() % static_cast<unsigned>(2 * noise)) - noise : 0;
                picture.at(p, x, y) = static_cast<std::uint16_t>(std::clamp(static_cast<int>(value), 4, 1019) << up);
            }
        }
    }
    const unsigned largest = (1u << format.bitDepth) - 1;
    for (std::size_t i = 0; i < picture.samples[3].size(); ++i) {
        const std::size_t kind = i / 300 % 4;
        picture.samples[3][i] = static_cast<std::uint16_t>(
            kind == 0 ? largest : kind == 1 ? i / 40 % largest : kind == 2 ? random() % (largest + 1) : 0);
    }
    return picture;
}

inline OwnPicture noise(const Format &format, unsigned seed)
{
    OwnPicture picture(format);
    std::mt19937 random(seed);
    for (auto &plane : picture.samples) {
        for (std::uint16_t &sample : plane)
            sample = static_cast<std::uint16_t>(random() & ((1u << format.bitDepth) - 1));
    }
    return picture;
}

inline QByteArray encode(Encoder &encoder, const OwnPicture &picture, FrameReport *report = nullptr)
{
    QByteArray frame(static_cast<qsizetype>(encoder.room()), Qt::Uninitialized);
    const FrameReport done = encoder.encode(picture.view(), reinterpret_cast<std::uint8_t *>(frame.data()),
                                            static_cast<std::size_t>(frame.size()));
    frame.resize(static_cast<qsizetype>(done.bytes));
    if (report != nullptr)
        *report = done;
    return frame;
}

/// FFmpeg's decoder; what it says is kept.
class Judge
{
public:
    explicit Judge(const Format &format)
    {
        said().clear();
        av_log_set_level(AV_LOG_WARNING);
        av_log_set_callback([](void *, int level, const char *text, va_list arguments) {
            if (level <= AV_LOG_WARNING)
                said() += QString::vasprintf(text, arguments);
        });
        _context = avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_PRORES));
        _context->thread_count = 1;
        _context->codec_tag = av_bswap32(fourCharacters(format.profile));
        _context->width = format.width; // as the container says
        _context->height = format.height;
        avcodec_open2(_context, _context->codec, nullptr);
        _frame = av_frame_alloc();
    }
    ~Judge()
    {
        av_frame_free(&_frame);
        avcodec_free_context(&_context);
        av_log_set_callback(av_log_default_callback);
    }
    Judge(const Judge &) = delete;
    Judge &operator=(const Judge &) = delete;

    /// Null when it does not decode.
    const AVFrame *decode(const QByteArray &frame)
    {
        AVPacket *packet = av_packet_alloc();
        if (av_new_packet(packet, static_cast<int>(frame.size())) < 0)
            return nullptr;
        std::copy(frame.begin(), frame.end(), packet->data);
        const bool isTaken = avcodec_send_packet(_context, packet) == 0;
        av_packet_free(&packet);
        return isTaken && avcodec_receive_frame(_context, _frame) == 0 ? _frame : nullptr;
    }

    static QString &said()
    {
        static QString text;
        return text;
    }

private:
    AVCodecContext *_context = nullptr;
    AVFrame *_frame = nullptr;
};

inline int decodedAt(const AVFrame &frame, int p, int x, int y)
{
    return reinterpret_cast<const std::uint16_t *>(frame.data[p] + y * frame.linesize[p])[x];
}

/// What the format's rules make of an encoder's levels, in double precision.
class Reconstruction
{
public:
    Reconstruction(const Format &format, const OwnPicture &picture, int index, const Kernels &kernels)
        : _format(format), _depth(format.is444() ? 12 : 10), _result(format)
    {
        const SliceCoder coder(format, kernels);
        const auto scratch = std::make_unique<SliceScratch>();
        for (int i = 0; i < picturesIn(format); ++i) {
            const Lines lines(format, picture.view(), i);
            const int first = format.isInterlaced() && (i == 0) != (format.scan == Scan::TopFirst) ? 1 : 0;
            for (int s = 0; s < lines.geometry.slices(); ++s) {
                const SlicePlace place = lines.geometry.slice(s);
                coder.quantise(lines, place, index, *scratch);
                for (int p = 0; p < 3; ++p)
                    plane(scratch->levels[p], p, place, lines.geometry, first, index);
            }
        }
    }

    /// The largest difference to what was decoded.
    int farthest(const AVFrame &frame) const
    {
        int most = 0;
        for (int p = 0; p < 3; ++p) {
            for (int y = 0; y < _result.height; ++y) {
                for (int x = 0; x < _result.width[p]; ++x)
                    most = std::max(most, std::abs(decodedAt(frame, p, x, y) - _result.at(p, x, y)));
            }
        }
        return most;
    }

private:
    void plane(const Levels &levels, int p, SlicePlace place, const Geometry &geometry, int firstLine, int index)
    {
        const bool isHalf = !_format.is444() && p > 0;
        const auto &order = scanOrder(_format.isInterlaced());
        const Matrix &matrix = p == 0 ? lumaMatrix(_format.profile) : chromaMatrix(_format.profile);
        std::vector<double> coefficients(static_cast<std::size_t>(levels.blocks) * 64);
        const double unit = scaleOf(index) / 8.0;
        for (int b = 0; b < levels.blocks; ++b)
            coefficients[static_cast<std::size_t>(b) * 64] = levels.dc[b] * matrix[0] * unit;
        for (int i = Levels::lead; i < Levels::lead + levels.count; ++i) {
            const int block = levels.position[i] % levels.blocks;
            const int raster = order[static_cast<std::size_t>(levels.position[i] / levels.blocks)];
            const int level = levels.level[i] % 2 != 0 ? -(levels.level[i] / 2) : levels.level[i] / 2;
            coefficients[static_cast<std::size_t>(block * 64 + raster)]
                = level * matrix[static_cast<std::size_t>(raster)] * unit;
        }
        for (int b = 0; b < levels.blocks; ++b) {
            int column = 0;
            int row = 0;
            if (p == 0) {
                column = b / 4 * 2 + b % 2;
                row = b / 2 % 2;
            } else {
                column = b / 2;
                row = b % 2;
            }
            const int left = place.column * (isHalf ? 8 : 16) + column * 8;
            block(&coefficients[static_cast<std::size_t>(b) * 64], p, left, place.row * 16 + row * 8, geometry,
                  firstLine);
        }
    }

    void block(const double *coefficients, int p, int left, int top, const Geometry &geometry, int firstLine)
    {
        static const auto cosine = [] {
            std::array<std::array<double, 8>, 8> table {};
            for (std::size_t k = 0; k < 8; ++k) {
                for (std::size_t i = 0; i < 8; ++i)
                    table[k][i] = (k == 0 ? std::sqrt(0.125) : 0.5)
                        * std::cos((2.0 * static_cast<double>(i) + 1) * static_cast<double>(k) * std::numbers::pi / 16);
            }
            return table;
        }();
        double half[8][8] = {};
        for (std::size_t v = 0; v < 8; ++v) {
            for (std::size_t x = 0; x < 8; ++x) {
                for (std::size_t u = 0; u < 8; ++u)
                    half[v][x] += coefficients[v * 8 + u] * cosine[u][x];
            }
        }
        for (std::size_t y = 0; y < 8; ++y) {
            for (std::size_t x = 0; x < 8; ++x) {
                double sample = 0;
                for (std::size_t v = 0; v < 8; ++v)
                    sample += half[v][x] * cosine[v][y];
                put(p, left + static_cast<int>(x), top + static_cast<int>(y), sample, geometry, firstLine);
            }
        }
    }

    void put(int p, int x, int y, double value, const Geometry &geometry, int firstLine)
    {
        if (x >= _result.width[p] || y >= geometry.height)
            return;
        constexpr int least = 4; // where FFmpeg's decoder stops, at both depths
        const int sample = static_cast<int>(std::lround(value * (1 << (_depth - 9)))) + (1 << (_depth - 1));
        const int line = _format.isInterlaced() ? y * 2 + firstLine : y;
        _result.at(p, x, line) = static_cast<std::uint16_t>(std::clamp(sample, least, (1 << _depth) - least - 1));
    }

    Format _format;
    int _depth;
    OwnPicture _result;
};

/// Levels that a transform may give, with runs of up to \a longestRun positions now and then, and the ends of every
/// table.
inline void fill(Levels &levels, std::mt19937 &random, int blocks, unsigned longestRun)
{
    levels.begin(blocks);
    const unsigned density = 1 + random() % 100;
    const unsigned size = 1 + random() % 13;
    for (int i = 0; i < blocks; ++i)
        levels.dc[i] = static_cast<std::int16_t>(static_cast<int>(random() % (2u << size)) - (1 << size));
    for (int at = blocks; at < 64 * blocks; ++at) {
        if (random() % 100 >= density)
            continue;
        if (density < 20 && random() % 30 == 0)
            at += static_cast<int>(random() % longestRun);
        if (at >= 64 * blocks)
            break;
        const unsigned magnitude = 1 + random() % (random() % 3 == 0 ? 1u << size : 4u);
        levels.position[Levels::lead + levels.count] = static_cast<std::uint16_t>(at);
        levels.level[Levels::lead + levels.count++] = static_cast<std::uint16_t>(magnitude * 2 + random() % 2);
    }
}

} // namespace prorestest
