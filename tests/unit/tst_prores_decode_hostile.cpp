#include "proresdecoding.h"

#include <QtTest>

#include <memory>

using namespace prorestest;

// Whatever the bytes are, nothing outside of the picture is written and nothing outside of the frame is read (which
// the sanitizers see); what is damaged is told, and concealed.
class ProresDecodeHostile : public QObject
{
    Q_OBJECT

private slots:
    void brokenFramesDoNoHarm_data();
    void brokenFramesDoNoHarm();
    void everyTruncationIsTold();
    void brokenSliceIsConcealedAlone_data();
    void brokenSliceIsConcealedAlone();
    void sliceWhoseAlphaEndsTooEarlyIsConcealed_data() { brokenSliceIsConcealedAlone_data(); }
    void sliceWhoseAlphaEndsTooEarlyIsConcealed();
    void missingFieldIsTold();
    void paddingUpToThreeBytesIsNoDamage();
    void whatBothCallSoundIsTheSame();
};

namespace {

QByteArray frameOf(const Format &format, int index = 4)
{
    Settings settings;
    settings.index = index;
    Encoder encoder(format, settings);
    return encode(encoder, naturalLike(format));
}

// Mostly a change or two, somewhere or among the headers; sometimes many, or another length.
QByteArray mutated(const QByteArray &plain, std::mt19937 &random)
{
    QByteArray frame = plain;
    const int changes = 1 << random() % 5;
    for (int i = 0; i < changes && !frame.isEmpty(); ++i) {
        const auto size = static_cast<unsigned>(frame.size());
        const unsigned head = std::min(size, 156 + 8 + 40u);
        const auto at = static_cast<qsizetype>(random() % (random() % 3 == 0 ? head : size));
        const unsigned kind = random() % 12;
        if (kind < 5)
            frame[at] = static_cast<char>(frame[at] ^ 1 << random() % 8);
        else if (kind < 8)
            frame[at] = static_cast<char>(random());
        else if (kind < 10)
            frame[at] = static_cast<char>(random() % 2 != 0 ? 0 : 255);
        else if (kind == 10)
            frame.remove(at, 1 + random() % 40);
        else
            frame.insert(at, frame.mid(static_cast<qsizetype>(random() % size), 1 + random() % 40));
    }
    return frame;
}

// Decodes from memory that ends with the frame.
DecodeReport decodeExactly(Decoder &decoder, const QByteArray &frame, DecodedPlanes &to)
{
    const auto size = static_cast<std::size_t>(frame.size());
    const auto bytes = std::make_unique_for_overwrite<std::uint8_t[]>(std::max<std::size_t>(size, 1));
    std::copy(frame.begin(), frame.end(), bytes.get());
    return decoder.decode(bytes.get(), size, to.picture);
}

} // namespace

void ProresDecodeHostile::brokenFramesDoNoHarm_data()
{
    QTest::addColumn<Format>("format");
    QTest::newRow("HQ") << formatOf(Profile::Hq, 176, 48);
    QTest::newRow("interlaced") << formatOf(Profile::Lt, 144, 66, Scan::TopFirst);
    QTest::newRow("4444") << formatOf(Profile::P4444, 144, 40);
    QTest::newRow("alpha") << formatOf(Profile::P4444, 133, 37, Scan::BottomFirst, true);
    QTest::newRow("small") << formatOf(Profile::Proxy, 18, 20);
}

void ProresDecodeHostile::brokenFramesDoNoHarm()
{
    QFETCH(const Format, format);
    const QByteArray plain = frameOf(format);
    const FrameInfo info = infoOf(plain);
    std::mt19937 random(11);
    int damaged = 0;
    int refused = 0;
    constexpr int rounds = 2500;
    for (int shift = 0; shift < 4; ++shift) {
        DecoderSettings settings;
        settings.reduction = static_cast<Reduction>(shift);
        Decoder decoder(settings);
        Decoder soundDecoder(settings);
        DecodedPlanes to(info, settings.reduction);
        const DecodeReport sound = decode(soundDecoder, plain, to);
        QVERIFY(sound.isSound());
        const auto expected = to.samples[0];
        for (int round = 0; round < rounds / (shift == 0 ? 1 : 5); ++round) {
            const DecodeReport report = decodeExactly(decoder, mutated(plain, random), to);
            damaged += report.damaged > 0 ? 1 : 0;
            refused += report.isFrame ? 0 : 1;
            if (report.isFrame)
                QVERIFY(report.damaged <= report.slices && report.slices > 0);
            if (round % 100 == 0)
                QVERIFY(to.isWithin());
        }
        QVERIFY(to.isWithin());
        QVERIFY(decode(decoder, plain, to).isSound()); // and nothing of it stays behind
        QVERIFY(to.samples[0] == expected);
    }
    QVERIFY(damaged > rounds / 4);
    QVERIFY(refused > 0);
}

void ProresDecodeHostile::everyTruncationIsTold()
{
    const QByteArray plain = frameOf(formatOf(Profile::Hq, 130, 36), 9);
    const FrameInfo info = infoOf(plain);
    Decoder decoder;
    DecodedPlanes to(info);
    for (qsizetype size = 0; size < plain.size(); ++size)
        QVERIFY(!decodeExactly(decoder, plain.left(size), to).isSound());
    QVERIFY(decodeExactly(decoder, plain, to).isSound());
    QVERIFY(to.isWithin());
}

void ProresDecodeHostile::brokenSliceIsConcealedAlone_data()
{
    QTest::addColumn<Concealment>("concealment");
    QTest::newRow("grey") << Concealment::Grey;
    QTest::newRow("as before") << Concealment::Keep;
}

// The third slice of the second row says that its Y has more bytes than the slice.
void ProresDecodeHostile::brokenSliceIsConcealedAlone()
{
    QFETCH(const Concealment, concealment);
    const Format format = formatOf(Profile::Hq, 512, 64);
    QByteArray frame = frameOf(format);
    const FrameInfo info = infoOf(frame);
    DecodedPlanes sound(info);
    Decoder plainDecoder;
    QVERIFY(decode(plainDecoder, frame, sound).isSound());
    constexpr int broken = 6; // of 16, four a row
    qsizetype at = 156 + 8 + 2 * 16;
    for (int i = 0; i < broken; ++i)
        at += static_cast<std::uint8_t>(frame[164 + 2 * i]) << 8 | static_cast<std::uint8_t>(frame[165 + 2 * i]);
    frame[at + 2] = static_cast<char>(255);
    DecoderSettings settings;
    settings.concealment = concealment;
    Decoder decoder(settings);
    DecodedPlanes to(info);
    for (int p = 0; p < 3; ++p)
        std::ranges::fill(to.samples[p], std::uint16_t {77});
    const DecodeReport report = decode(decoder, frame, to);
    QVERIFY(report.isFrame);
    QCOMPARE(report.slices, 16);
    QCOMPARE(report.damaged, 1);
    for (int p = 0; p < 3; ++p) {
        const int unit = p == 0 ? 128 : 64;
        for (int y = 0; y < 64; ++y) {
            for (int x = 0; x < to.width[p]; ++x) {
                const bool isBroken = y / 16 == 1 && x / unit == 2;
                const int expected = !isBroken ? sound.at(p, x, y) : concealment == Concealment::Grey ? 512 : 77;
                QCOMPARE(int {to.at(p, x, y)}, expected);
            }
        }
    }
}

// The only slice loses its last bytes, which are those of alpha.
void ProresDecodeHostile::sliceWhoseAlphaEndsTooEarlyIsConcealed()
{
    QFETCH(const Concealment, concealment);
    const Format format = formatOf(Profile::P4444, 128, 16, Scan::Progressive, true);
    Encoder encoder(format, {});
    QByteArray frame = encode(encoder, noise(format, 3));
    auto *table = reinterpret_cast<std::uint8_t *>(frame.data()) + 156 + 8;
    const int bytes = table[0] << 8 | table[1];
    QCOMPARE(static_cast<int>(frame.size()), 156 + 8 + 2 + bytes);
    table[0] = static_cast<std::uint8_t>((bytes - 9) >> 8);
    table[1] = static_cast<std::uint8_t>(bytes - 9);
    Decoder decoder({Reduction::None, concealment, Path::Best});
    DecodedPlanes to(infoOf(frame));
    const DecodeReport report = decode(decoder, frame, to);
    QVERIFY(report.isFrame);
    QCOMPARE(report.damaged, 1);
    const bool isGrey = concealment == Concealment::Grey;
    for (int p = 0; p < 4; ++p) {
        for (int y = 0; y < 16; ++y) {
            for (int x = 0; x < 128; ++x)
                QCOMPARE(to.at(p, x, y), isGrey ? std::uint16_t(p == 3 ? 1023 : 512) : untouched);
        }
    }
}

void ProresDecodeHostile::missingFieldIsTold()
{
    const Format format = formatOf(Profile::Hq, 256, 64, Scan::TopFirst);
    const QByteArray frame = frameOf(format);
    const QByteArray first = frame.left(
        156 + static_cast<qsizetype>(readBig32(reinterpret_cast<const std::uint8_t *>(frame.constData()) + 157)));
    Decoder decoder;
    DecodedPlanes to(infoOf(frame));
    const DecodeReport report = decodeExactly(decoder, first, to);
    QVERIFY(report.isFrame);
    QVERIFY(report.damaged > 0 && report.damaged < report.slices);
    for (int x = 0; x < 256; ++x)
        QCOMPARE(int {to.at(0, x, 1)}, 512);
    QVERIFY(to.isWithin());
}

// Between the planes' bits and what follows: up to 31 zeros end a plane, and more are a code of no length.
void ProresDecodeHostile::paddingUpToThreeBytesIsNoDamage()
{
    const Format format = formatOf(Profile::Hq, 128, 16); // one slice, whose Cr takes the rest
    const QByteArray plain = frameOf(format);
    for (int padding = 0; padding < 5; ++padding) {
        QByteArray frame = plain + QByteArray(padding, '\0');
        const auto big16 = [&frame](qsizetype at, qsizetype value) {
            frame[at] = static_cast<char>(value >> 8);
            frame[at + 1] = static_cast<char>(value);
        };
        const qsizetype slice = frame.size() - 166;
        big16(2, frame.size());
        big16(159, frame.size() - 156);
        big16(164, slice);
        Decoder decoder;
        DecodedPlanes to(infoOf(frame));
        QCOMPARE(decodeExactly(decoder, frame, to).isSound(), padding < 4);
        Judge judge = tenBitJudge(infoOf(frame));
        const AVFrame *judged = judge.decode(frame);
        QCOMPARE(judged != nullptr && judged->decode_error_flags == 0, padding < 4);
    }
}

// Here the bits of a plane end where it ends, so that a little more is damaged. Where neither finds anything,
// all samples are the same.
void ProresDecodeHostile::whatBothCallSoundIsTheSame()
{
    std::mt19937 random(5);
    int both = 0;
    int onlyOwn = 0;
    int onlyTheirs = 0;
    for (const Format &format : {formatOf(Profile::Hq, 176, 48), formatOf(Profile::Lt, 144, 66, Scan::TopFirst),
                                 formatOf(Profile::P4444, 144, 40)}) {
        const QByteArray plain = frameOf(format, 12);
        const FrameInfo info = infoOf(plain);
        Decoder decoder;
        Judge judge = tenBitJudge(info);
        for (int round = 0; round < 700; ++round) {
            const QByteArray frame = mutated(plain, random);
            const FrameInfo now = infoOf(frame);
            if (now.width != info.width || now.height != info.height || now.is444 != info.is444 || now.alphaBits != 0)
                continue;
            DecodedPlanes own(info);
            const bool isSound = decodeExactly(decoder, frame, own).isSound();
            const AVFrame *judged = judge.decode(frame);
            const bool isTheirs = judged != nullptr && judged->decode_error_flags == 0;
            if (isSound && isTheirs)
                QCOMPARE(farthest(own, *judged, info), 0);
            both += isSound && isTheirs ? 1 : 0;
            onlyOwn += isSound && !isTheirs ? 1 : 0;
            onlyTheirs += !isSound && isTheirs ? 1 : 0;
        }
    }
    QCOMPARE(onlyOwn, 0); // what it finds is found here, too
    QVERIFY(both > 100 && onlyTheirs < both / 4);
}

QTEST_APPLESS_MAIN(ProresDecodeHostile)
#include "tst_prores_decode_hostile.moc"
