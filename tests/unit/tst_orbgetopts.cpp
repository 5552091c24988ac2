#include "liborb/orbgetopts.h"

#include <QTest>

class TestOrbGetOpts : public QObject
{
    Q_OBJECT

private slots:
    void options_data();
    void options();
    void settingStartsOver();
    void theDefaultParserHasNothing();
    void onlyTheFirstErrorIsKept();
    void endedOptionsStayEnded();
};

/// The options as one text: letters, arguments in brackets.
static QString transcript(OrbGetOpts &opts, const char *letters)
{
    QString text;
    while (opts.getopt(letters) && text.size() < 200) {
        text += QLatin1Char(opts.opt());
        if (!opts.optarg().isNull())
            text += '[' + opts.optarg() + ']';
    }
    return text;
}

void TestOrbGetOpts::options_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<QString>("options");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QStringList>("rest");
    const QStringList none;
    QTest::newRow("nothing") << none << "" << "" << none;
    QTest::newRow("single") << QStringList{"-d"} << "d" << "" << none;
    QTest::newRow("several") << QStringList{"-d", "-D", "-s"} << "dDs" << "" << none;
    QTest::newRow("combined") << QStringList{"-dl"} << "dl" << "" << none;
    QTest::newRow("argument in the next word")
        << QStringList{"-c", "/media/a.mov", "-l"} << "c[/media/a.mov]l" << "" << none;
    QTest::newRow("argument in the same word")
        << QStringList{"-c/media/a.mov", "-l"} << "c[/media/a.mov]l" << "" << none;
    QTest::newRow("argument after combined letters")
        << QStringList{"-dlc", "x"} << "dlc[x]" << "" << none;
    QTest::newRow("argument that looks like an option")
        << QStringList{"-c", "-l"} << "c[-l]" << "" << none;
    QTest::newRow("empty argument") << QStringList{"-c", ""} << "c[]" << "" << none;
    QTest::newRow("missing argument")
        << QStringList{"-l", "-c"} << "l?" << "option '-c' needs an argument" << none;
    QTest::newRow("unknown letter")
        << QStringList{"-x", "-l"} << "xl" << "unknown option '-x'" << none;
    QTest::newRow("unknown among known")
        << QStringList{"-dxl"} << "dxl" << "unknown option '-x'" << none;
    QTest::newRow("colon is no letter")
        << QStringList{"-:"} << ":" << "unknown option '-:'" << none;
    QTest::newRow("letter outside Latin")
        << QStringList{QStringLiteral("-\u4e2d")} << "?"
        << QStringLiteral("unknown option '-\u4e2d'") << none;
    QTest::newRow("long word")
        << QStringList{"--help", "-l"} << "-l" << "unknown option '--help'" << none;
    QTest::newRow("end of options") << QStringList{"-d", "--", "-l", "x"} << "d" << ""
                                    << QStringList{"-l", "x"};
    QTest::newRow("ordinary word ends") << QStringList{"-d", "x", "-l"} << "d" << ""
                                        << QStringList{"x", "-l"};
    QTest::newRow("a dash is an ordinary word") << QStringList{"-", "-l"} << "" << ""
                                                << QStringList{"-", "-l"};
    QTest::newRow("empty word ends") << QStringList{"", "-l"} << "" << "" << QStringList{"", "-l"};
}

void TestOrbGetOpts::options()
{
    QFETCH(QStringList, words);
    QFETCH(QString, error);
    OrbGetOpts opts(QStringList{"rvd"} + words);
    QTEST(transcript(opts, "phbsdDlc:"), "options");
    QCOMPARE(opts.hasError(), !error.isEmpty());
    QCOMPARE(opts.errorString(), error);
    QTEST(opts.rest(), "rest");
}

void TestOrbGetOpts::settingStartsOver()
{
    OrbGetOpts opts(QStringList{"rvd", "-x", "--", "-l"});
    transcript(opts, "l");
    QVERIFY(opts.hasError());
    opts.set({"rvd", "-l"});
    QVERIFY(!opts.hasError());
    QCOMPARE(transcript(opts, "l"), QStringLiteral("l"));
}

void TestOrbGetOpts::theDefaultParserHasNothing()
{
    OrbGetOpts opts;
    QVERIFY(!opts.getopt("l"));
    QVERIFY(!opts.hasError());
    QVERIFY(opts.rest().isEmpty());
    opts.set({});
    QVERIFY(!opts.getopt("l"));
}

void TestOrbGetOpts::onlyTheFirstErrorIsKept()
{
    OrbGetOpts opts(QStringList{"rvd", "-x", "-y"});
    QCOMPARE(transcript(opts, "l"), QStringLiteral("xy"));
    QCOMPARE(opts.errorString(), QStringLiteral("unknown option '-x'"));
}

void TestOrbGetOpts::endedOptionsStayEnded()
{
    OrbGetOpts opts(QStringList{"rvd", "--", "-l"});
    QVERIFY(!opts.getopt("l"));
    QVERIFY(!opts.getopt("l"));
    QCOMPARE(opts.rest(), QStringList{"-l"});
}

QTEST_APPLESS_MAIN(TestOrbGetOpts)
#include "tst_orbgetopts.moc"
