#include "prorestools.h"

#include "libprores/v210.h"

#include <QTest>

// v210 on its way in: FFmpeg's decoder says what it holds.

using namespace prorestest;

namespace {

/// Lines of random words, their unused bits too.
std::vector<std::uint8_t> randomLines(std::ptrdiff_t stride, int lines, unsigned seed)
{
    std::mt19937 random(seed);
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(stride) * static_cast<std::size_t>(lines));
    std::ranges::generate(bytes, [&random] { return static_cast<std::uint8_t>(random()); });
    return bytes;
}

/// What FFmpeg makes of lines padded as usual.
bool decode(const std::vector<std::uint8_t> &lines, OwnPicture &picture)
{
    AVCodecContext *context = avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_V210));
    context->width = picture.width[0];
    context->height = picture.height;
    AVFrame *frame = av_frame_alloc();
    AVPacket *packet = av_packet_alloc();
    bool isDone = avcodec_open2(context, nullptr, nullptr) == 0
                  && av_new_packet(packet, static_cast<int>(lines.size())) == 0;
    if (isDone) {
        std::copy(lines.begin(), lines.end(), packet->data);
        isDone = avcodec_send_packet(context, packet) == 0 && avcodec_receive_frame(context, frame) == 0
                 && frame->format == AV_PIX_FMT_YUV422P10;
    }
    for (int p = 0; isDone && p < 3; ++p) {
        for (int y = 0; y < picture.height; ++y) {
            for (int x = 0; x < picture.width[p]; ++x)
                picture.at(p, x, y) = static_cast<std::uint16_t>(decodedAt(*frame, p, x, y));
        }
    }
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&context);
    return isDone;
}

} // namespace

class ProresV210 : public QObject
{
    Q_OBJECT
private slots:
    void everyWidthUnpacksAsFfmpegDoesIt();
    void nothingIsWrittenBeyondTheSlack();
    void v210GivesTheFrameOfItsPlanes_data();
    void v210GivesTheFrameOfItsPlanes();
    void v210IsRefusedWhereItIsNotMeant();
};

void ProresV210::everyWidthUnpacksAsFfmpegDoesIt()
{
    std::vector<UnpackV210> ways = {unpackV210Portable};
    if (unpackV210Avx2() != nullptr)
        ways.push_back(unpackV210Avx2());
    for (int width = 2; width <= 130; width += 2) {
        constexpr int height = 4; // of fewer lines FFmpeg decodes none
        const auto lines = randomLines(v210Stride(width), height, static_cast<unsigned>(width));
        OwnPicture expected(formatOf(Profile::Hq, width, height));
        QVERIFY(decode(lines, expected));
        const int groups = v210Groups(width);
        const std::ptrdiff_t strides[3] = {groups * 6 + v210Slack, groups * 3 + v210Slack, groups * 3 + v210Slack};
        for (const UnpackV210 unpack : ways) {
            std::vector<std::uint16_t> memory[3];
            std::uint16_t *planes[3] = {};
            for (int p = 0; p < 3; ++p) {
                memory[p].resize(static_cast<std::size_t>(strides[p] * height));
                planes[p] = memory[p].data();
            }
            for (int y = 0; y < height; ++y) {
                unpack(lines.data() + y * v210Stride(width), groups, planes[0] + y * strides[0],
                       planes[1] + y * strides[1], planes[2] + y * strides[2]);
            }
            for (int p = 0; p < 3; ++p) {
                for (int y = 0; y < height; ++y) {
                    for (int x = 0; x < expected.width[p]; ++x)
                        QVERIFY2(planes[p][y * strides[p] + x] == expected.at(p, x, y),
                                 qPrintable(QStringLiteral("width %1, plane %2").arg(width).arg(p)));
                }
            }
        }
    }
}

void ProresV210::nothingIsWrittenBeyondTheSlack()
{
    std::vector<UnpackV210> ways = {unpackV210Portable};
    if (unpackV210Avx2() != nullptr)
        ways.push_back(unpackV210Avx2());
    for (const UnpackV210 unpack : ways) {
        for (int groups = 1; groups < 6; ++groups) {
            const auto line = randomLines(groups * v210Bytes, 1, 3);
            std::vector<std::uint16_t> samples[3];
            for (auto &plane : samples)
                plane.assign(100, 0xabcd);
            unpack(line.data(), groups, samples[0].data(), samples[1].data(), samples[2].data());
            for (int p = 0; p < 3; ++p) {
                const int end = groups * (p == 0 ? 6 : 3) + v210Slack;
                for (int i = end; i < 100; ++i)
                    QCOMPARE(samples[p][static_cast<std::size_t>(i)], std::uint16_t {0xabcd});
            }
        }
    }
}

void ProresV210::v210GivesTheFrameOfItsPlanes_data()
{
    QTest::addColumn<Format>("format");
    QTest::newRow("whole slices") << formatOf(Profile::Hq, 1920, 48);
    QTest::newRow("an odd raster") << formatOf(Profile::Hq, 1366, 50);
    QTest::newRow("one macroblock") << formatOf(Profile::Hq, 14, 10);
    QTest::newRow("fields") << formatOf(Profile::Hq, 720, 486, Scan::BottomFirst);
    QTest::newRow("fields of an odd raster") << formatOf(Profile::Hq, 274, 70, Scan::TopFirst);
}

void ProresV210::v210GivesTheFrameOfItsPlanes()
{
    QFETCH(const Format, format);
    const auto lines = randomLines(v210Stride(format.width), format.height, 5);
    OwnPicture planes(format);
    QVERIFY(decode(lines, planes));
    Picture packed;
    packed.v210 = lines.data();
    packed.v210Stride = v210Stride(format.width);
    ThreadPool pool(3);
    for (const Path path : {Path::Portable, Path::Avx2, Path::Avx512}) {
        Settings settings;
        settings.path = path;
        Encoder fromPlanes(format, settings);
        Encoder fromPacked(format, settings, &pool);
        for (int i = 0; i < 3; ++i) {
            QByteArray frame(static_cast<qsizetype>(fromPacked.room()), '\0');
            frame.resize(static_cast<qsizetype>(
                fromPacked.encode(packed, reinterpret_cast<std::uint8_t *>(frame.data()), fromPacked.room()).bytes));
            QVERIFY(!frame.isEmpty());
            QCOMPARE(frame, encode(fromPlanes, planes));
        }
    }
}

void ProresV210::v210IsRefusedWhereItIsNotMeant()
{
    Format format = formatOf(Profile::Hq, 64, 32);
    format.profile = Profile::P4444;
    const auto lines = randomLines(v210Stride(64), 32, 1);
    Picture packed;
    packed.v210 = lines.data();
    packed.v210Stride = v210Stride(64);
    Encoder encoder(format);
    std::vector<std::uint8_t> to(encoder.room());
    QCOMPARE(encoder.encode(packed, to.data(), to.size()).bytes, std::size_t {0});
}

QTEST_APPLESS_MAIN(ProresV210)
#include "tst_prores_v210.moc"
