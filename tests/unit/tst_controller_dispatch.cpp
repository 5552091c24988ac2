#include "controllerrig.h"

#include <functional>

/// Every row of the dispatch table with every kind of value: what is logged, and what the engine or
/// the media manager is told, line by line.
class TestControllerDispatch : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase() { _rig.reset(); }
    void everyRowWithEveryKindOfValue_data();
    void everyRowWithEveryKindOfValue();
    void everyParameterOfTheTableHasBeenTried();

private:
    std::optional<ControllerRig> _rig;
    QSet<quint32> _tried;
};

namespace
{

/// A value as it may arrive, and what a row that takes a number, a flag or a text makes of it.
struct Value {
    const char *name;
    QVariant arrives;
    int number;
    int unsignedNumber; ///< of a row that takes an unsigned number, as a signed one
    bool flag;
    QString text;
};

struct Row {
    quint32 id;
    const char *name;
    /// Set first, so that \a Value changes something.
    std::function<QVariant(const Value &)> before;
    std::function<QStringList(const Value &)> lines;
};

} // namespace

Q_DECLARE_METATYPE(Value)
Q_DECLARE_METATYPE(Row)

namespace
{

QList<Value> values()
{
    QList<Value> list;
    const auto add = [&list](const char *name, const QVariant &arrives, int number,
                             int unsignedNumber, bool flag, const QString &text) {
        list << Value{name, arrives, number, unsignedNumber, flag, text};
    };
    static const char *const numbers[] = {"0",  "1",  "2",  "3",  "4",  "5",  "6",
                                          "7",  "8",  "9",  "10", "11", "12", "13",
                                          "14", "15", "16", "17", "72", "73"};
    for (const char *n : numbers) {
        const int i = QByteArray(n).toInt();
        add(n, quint32(i), i, i, i != 0, QString::fromLatin1(n));
    }
    // clang-format off
    // name              arrives                          number       unsigned     flag   text
    add("4000000000",    quint32(4000000000u),            -294967296,  -294967296,  true,  "4000000000");
    add("highest",       quint32(4294967295u),            -1,          -1,          true,  "4294967295");
    add("int 3",         int(3),                          3,           3,           true,  "3");
    add("int -1",        int(-1),                         -1,          -1,          true,  "-1");
    add("int -7",        int(-7),                         -7,          -7,          true,  "-7");
    add("lowest",        int(-2147483647 - 1),            -2147483647 - 1, -2147483647 - 1, true, "-2147483648");
    add("false",         false,                           0,           0,           false, "false");
    add("true",          true,                            1,           1,           true,  "true");
    add("double 5",      5.0,                             5,           5,           true,  "5");
    add("text 6",        QStringLiteral("6"),             6,           6,           true,  "6");
    add("text 007",      QStringLiteral("007"),           7,           7,           true,  "007");
    // Where a row that takes an unsigned number and one that takes a signed one part.
    add("text -1",       QStringLiteral("-1"),            -1,          0,           true,  "-1");
    add("text highest",  QStringLiteral("4294967295"),    -1,          -1,          true,  "4294967295");
    add("a word",        QStringLiteral("seven"),         0,           0,           true,  "seven");
    add("empty text",    QString(),                       0,           0,           false, "");
    add("data 2",        QByteArray("2"),                 2,           2,           true,  "2");
    add("binary data",   QByteArray("\1\2", 2),           0,           0,           true,  "\1\2");
    add("no value",      QVariant(),                      0,           0,           false, "");
    add("a list",        QVariant(QStringList{"a", "b"}), 0,           0,           false, "");
    // clang-format on
    return list;
}

QString line(int level, const char *file, const QString &text)
{
    return QStringLiteral("%1 %2 ").arg(level).arg(QLatin1String(file)) + text;
}
QString controller(int level, const QString &text)
{
    return line(level, "mainobject.cpp", text);
}
QString engine(int level, const QString &text)
{
    return line(level, "vtrobject.cpp", text);
}
QString enabled(bool on)
{
    return on ? QStringLiteral("Enabled") : QStringLiteral("Disabled");
}

/// A switch to an identifier and the engine's setter behind it.
struct IdSwitch {
    const char *setter;            ///< its name in the engine's log
    QMap<int, int> ids;            ///< by value
    QString unsupported;           ///< logged with a value that has no row; empty is silent
    const char *refusal = nullptr; ///< logged by a setter that takes no invalid identifier
    bool isUnsigned = false;

    int idOf(const Value &v) const { return ids.value(isUnsigned ? v.unsignedNumber : v.number); }
    QStringList lines(const Value &v) const
    {
        const int number = isUnsigned ? v.unsignedNumber : v.number;
        QStringList list;
        if (!unsupported.isEmpty() && !ids.contains(number))
            list << controller(2, QStringLiteral("%1: %2").arg(unsupported).arg(number));
        if (refusal && idOf(v) == 0)
            list << engine(1, QStringLiteral("%1 is invalid").arg(QLatin1String(refusal)));
        else
            list << engine(3, QStringLiteral("Set %1: ").arg(QLatin1String(setter)) +
                                  OrbId(idOf(v)).name());
        return list;
    }
};

Row idRow(quint32 id, const char *name, const IdSwitch &s)
{
    const auto before = [s](const Value &v) {
        // Two values with identifiers of their own; the one that is not that of the value itself.
        const int first = s.ids.firstKey();
        const int last = s.ids.lastKey();
        return QVariant(s.idOf(v) == s.ids.value(first) ? last : first);
    };
    return {id, name, before, [s](const Value &v) { return s.lines(v); }};
}

/// A setter that takes a flag, which \a on makes of the value.
Row flagRow(quint32 id, const char *name, const std::function<bool(const Value &)> &on,
            const QVariant &makesTrue, const QVariant &makesFalse, const QString &text)
{
    return {id, name, [=](const Value &v) { return on(v) ? makesFalse : makesTrue; },
            [=](const Value &v) { return QStringList{engine(3, text + enabled(on(v)))}; }};
}

/// A row whose outcome does not depend on what was before.
Row plainRow(quint32 id, const char *name, const std::function<QStringList(const Value &)> &lines,
             const QVariant &before = QVariant(-99))
{
    return {id, name, [before](const Value &) { return before; }, lines};
}

QStringList clipLines()
{
    return {controller(3, "Updated all clips list.  0 entries"),
            controller(3, "Updated play list.  0 entries")};
}

QList<Row> switchRows()
{
    const QString unsupported = QStringLiteral("Unsupported value");
    const QMap<int, int> encodes = {{0, 202}, {1, 203}, {2, 204}, {3, 205},
                                    {7, 206}, {8, 230}, {9, 231}};
    const QMap<int, int> inputs = {{0, 601},  {6, 602},  {8, 603},  {7, 604},  {9, 631},
                                   {11, 632}, {10, 633}, {12, 661}, {14, 662}, {13, 663}};
    const QMap<int, int> outputs = {{5, 603}, {4, 604}, {3, 632}, {2, 633}, {1, 662}, {0, 663}};
    QMap<int, int> cameras;
    for (int i = 1; i <= 9; ++i)
        cameras[i] = 999 + i;
    // clang-format off
    return {
        idRow(0x0d01000a, "camera input",    {"Camera Input", cameras, ""}),
        idRow(0x0e01000a, "encode type",     {"Encode Format", encodes, "Unsupported encode type", "Encode format", true}),
        idRow(0x2902000a, "video generator", {"VSG Mode", {{1, 800}, {2, 801}, {3, 802}}, ""}),
        idRow(0x2903000a, "audio generator", {"ASG Mode", {{1, 900}, {2, 901}}, ""}),
        idRow(0x0106000a, "video output",    {"Video Output Type", outputs, "Unsupported video output"}),
        idRow(0x0104000a, "input convert",   {"Video In Convert", {{4, 1200}, {6, 1201}}, ""}),
        idRow(0x0105000a, "output convert",  {"Video Out Convert", {{4, 1200}, {6, 1202}}, ""}),
        idRow(0x0109000a, "super out",       {"Super Out", {{0, 0}, {1, 1300}, {5, 1301}, {6, 1302}}, unsupported}),
        idRow(0x0201000a, "video input",     {"Video Input Source", inputs, "Unsupported video input", "Video input source", true}),
        idRow(0x0202000a, "audio input",     {"Audio Input Source", {{0, 52}, {2, 690}}, "Unsupported audio input", "Audio input source", true}),
        idRow(0x0108000a, "output route",    {"Video Output Route", {{0, 51}, {1, 53}}, unsupported}),
        idRow(0x0601000a, "sync source",     {"Sync Source", {{0, 501}, {2, 502}, {3, 503}}, "Unsupported sync source", "Sync source", true}),
        idRow(0x04010000, "audio level",     {"Audio Input Level", {{0, 1400}, {1, 1401}, {2, 1402}, {3, 1403}}, unsupported, "Audio input level"}),
        idRow(0x0800020a, "timecode source", {"TCG Source", {{0, 1500}, {1, 1520}, {3, 1510}, {5, 1501}}, unsupported}),
    };
    // clang-format on
}

QList<Row> settingRows()
{
    const auto flag = [](const Value &v) { return v.flag; };
    const auto inverse = [](const Value &v) { return !v.flag; };
    const auto isZero = [](const Value &v) { return v.number == 0; };
    const auto isOne = [](const Value &v) { return v.number == 1; };
    const auto scanMode = [](const Value &v) {
        // From 1 and 2, which set one flag each, to whatever the value sets.
        QStringList list{engine(3, "Set Force PSF Encode: " + enabled(v.number == 1))};
        if (v.number == 2)
            list << engine(3, "Set VFR: Enabled");
        return v.number == 1 ? list << engine(3, "Set VFR: Disabled") : list;
    };
    const auto channels = [](const Value &v) {
        const int n = v.number == 0 ? 2 : v.number == 1 ? 8 : 0;
        QStringList list;
        if (n == 0)
            list << engine(2, "Failed to set audio channels to 0.  Unsupported number of channels");
        return list << engine(3, QStringLiteral("Set Audio Channels: %1").arg(n));
    };
    const auto setNumber = [](const QString &text) {
        return [text](const Value &v) {
            return QStringList{engine(3, text + QString::number(v.number))};
        };
    };
    const auto reel = [](const Value &v) {
        return QStringList{
            engine(3, "Reel Name: " + QString(3 - v.text.size(), QLatin1Char('0')) + v.text)};
    };
    const auto hour = [](const Value &v) {
        // An hour that is none shows as the engine's timecode shows it.
        const QString shown = QStringLiteral("%1:00:00:00").arg(v.number, 2, 10, QLatin1Char('0'));
        const bool isHour = v.number >= 0 && v.number < 24;
        return QStringList{engine(3, "Set TC value: " + (isHour ? shown : QStringLiteral("*")))};
    };
    // clang-format off
    return {
        flagRow(0x2000000a, "loss of video, the inverse deliberately", inverse, 0, 1, "Set Stop On Loss Of Video: "),
        flagRow(0x0f04000a, "frame drop", flag, 1, 0, "Set Stop On Frame Drop: "),
        flagRow(0x0103000a, "psf output, true for 0 deliberately", isZero, 0, 1, "Set Force PSF Output: "),
        flagRow(0x0802000a, "drop frame", isOne, 1, 0, "Set TC Drop Frame: "),
        flagRow(0x0900000a, "interval record", flag, 1, 0, "Set Interval Record: "),
        flagRow(0x0803000a, "running timecode, true for 0 deliberately", isZero, 0, 1, "Record on Running Timecode: "),
        {0x0101000a, "scan mode, which drives both", [](const Value &v) { return v.number == 1 ? 2 : 1; }, scanMode},
        {0x02030000, "audio channels", [](const Value &v) { return v.number == 0 ? 1 : 0; }, channels},
        plainRow(0x0901000a, "interval", setNumber("Set Record Interval: ")),
        plainRow(0x0902000a, "interval time", setNumber("Set Record Interval Time: ")),
        plainRow(0x1100000a, "reel name", reel, QStringLiteral("before")),
        plainRow(0x0801000a, "timecode value", hour),
    };
    // clang-format on
}

QList<Row> otherRows()
{
    const auto lut = [](const Value &) {
        return QStringList{controller(3, "LUT Enabled 0, LUT path ''")};
    };
    const auto manager = [](const QString &text) { return line(3, "mediamanager.cpp", text); };
    const auto rolloverPath = [=](const Value &v) {
        return QStringList{manager("Rollover Media Path: " + v.text)};
    };
    const auto activePath = [=](const Value &v) {
        const QStringList list{manager("Active Media Path: " + v.text)};
        return v.text.isEmpty() ? list : list + clipLines();
    };
    const auto clipName = [](const Value &v) {
        return QStringList{
            controller(1, QStringLiteral("Can't goto clip: '%1' not found").arg(v.text))};
    };
    const auto clipIndex = [](const Value &v) {
        const QString text =
            QStringLiteral("Go to playlist index %1 failed: Entry invalid").arg(v.number);
        return QStringList{controller(1, text)};
    };
    const auto playMedia = [](const Value &v) {
        return QStringList{controller(3, QStringLiteral("Play Media: %1").arg(v.number))};
    };
    const auto sigGen = [](const Value &v) -> QStringList {
        // Silent on a value that it does not know: the engine gets no format.
        const bool isKnown = v.number >= 2 && v.number <= 72;
        const QString desc = isKnown ? QStringLiteral("?*") : OrbImageDesc().toString();
        return {engine(3, "Set VSG Format: " + desc)};
    };
    const auto enabledText = [=](const Value &v) {
        return QStringList{manager("Rollover " + enabled(v.flag))};
    };
    // clang-format off
    return {
        plainRow(0x0f01000a, "play media", playMedia),
        plainRow(0x0d03000a, "lut mode", lut),
        plainRow(0x0d04000a, "lut file", lut),
        {0x0f02000a, "looped playback", [](const Value &v) { return v.flag ? 0 : 1; }, [](const Value &) { return QStringList(); }},
        plainRow(0x0f03000a, "play list", [](const Value &) { return clipLines().mid(1); }),
        plainRow(0x7b010a0a, "rollover path", rolloverPath, "/before"),
        plainRow(0x7d01120a, "clip name", clipName),
        plainRow(0x7d01140a, "clip index", clipIndex),
        plainRow(0x7d06000a, "media updated", [](const Value &) { return QStringList{controller(3, "Media has been updated...")} + clipLines(); }),
        plainRow(0x7b03070a, "media loading", [](const Value &) { return QStringList{controller(3, "Media is loading...")}; }),
        {0x2901000a, "generator format", [](const Value &v) { return v.number == 2 ? 3 : 2; }, sigGen},
        plainRow(0x7b01010a, "active path", activePath, "/before"),
        {0x0c020000, "rollover enable", [](const Value &v) { return v.flag ? 0 : 1; }, enabledText},
    };
    // clang-format on
}

QList<Row> rows()
{
    return switchRows() + settingRows() + otherRows();
}

bool matches(const QString &seen, const QString &wanted)
{
    if (wanted.endsWith(QLatin1String("?*")))
        return seen.size() > wanted.size() - 2 && seen.startsWith(wanted.chopped(2));
    return wanted.endsWith(QLatin1Char('*')) ? seen.startsWith(wanted.chopped(1)) : seen == wanted;
}

} // namespace

void TestControllerDispatch::initTestCase()
{
    _rig.emplace();
    _rig->change(0x2901000a, 12); // so that the generator has a format
}

void TestControllerDispatch::everyRowWithEveryKindOfValue_data()
{
    QTest::addColumn<Row>("row");
    QTest::addColumn<Value>("value");
    for (const Row &row : rows()) {
        for (const Value &value : values())
            QTest::addRow("%s: %s", row.name, value.name) << row << value;
    }
}

void TestControllerDispatch::everyRowWithEveryKindOfValue()
{
    QFETCH(Row, row);
    QFETCH(Value, value);
    _tried << row.id;
    _rig->change(row.id, row.before(value));
    _rig->log->clear();
    _rig->change(row.id, value.arrives);
    // What is published on the way comes back from the store, and is told of, too.
    QStringList lines;
    const QList<LogCollector::Record> &records = _rig->log->records();
    for (const LogCollector::Record &r : records) {
        const QStringList files = {"mainobject.cpp", "vtrobject.cpp", "mediamanager.cpp"};
        if (files.contains(r.file) && (lines.isEmpty() || !r.text.startsWith("Param Changed: ")))
            lines << QStringLiteral("%1 %2 ").arg(r.level).arg(r.file) + r.text;
    }
    const QString number = QString::number(row.id, 16);
    QVERIFY(!lines.isEmpty());
    QVERIFY2(lines.first().startsWith("3 mainobject.cpp Param Changed: [" + number + "] eParam"),
             qPrintable(lines.first()));
    const QStringList seen = lines.mid(1);
    QStringList wanted = row.lines(value);
    wanted.replaceInStrings("\1\2", "\\x01\\x02"); // as the log shows what cannot be printed
    const bool isRight =
        std::equal(seen.begin(), seen.end(), wanted.begin(), wanted.end(), matches);
    QVERIFY2(isRight, qPrintable("seen:\n" + seen.join('\n') + "\nwanted:\n" + wanted.join('\n')));
    if (row.id == 0x0f02000a)
        QCOMPARE(_rig->vtr->state().isLooping(), value.flag); // the one setter that says nothing
}

/// All but the transport command, which has its own tests.
void TestControllerDispatch::everyParameterOfTheTableHasBeenTried()
{
    QSet<quint32> numbers;
    for (const Row &row : rows())
        numbers << row.id;
    QCOMPARE(numbers.size(), 39);
    QCOMPARE(_tried, numbers);
}

QTEST_APPLESS_MAIN(TestControllerDispatch)
#include "tst_controller_dispatch.moc"
