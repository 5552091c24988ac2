// rvstock makes the clips that the recorder shows when its input is lost.

#include "stockclips.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>

#include <cstdio>

int main(int argc, char **argv)
{
    const QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("rvstock"));
    QCommandLineParser options;
    options.setApplicationDescription(
        QStringLiteral("Makes the clips that stand in for a lost input, one a format."));
    options.addHelpOption();
    const QCommandLineOption missing(QStringLiteral("missing"),
                                     QStringLiteral("Make only those that are not there."));
    options.addOption(missing);
    options.addPositionalArgument(QStringLiteral("folder"), QStringLiteral("Where they go."));
    options.process(app);
    if (options.positionalArguments().size() != 1)
        options.showHelp(2);

    const QString folder = options.positionalArguments().constFirst();
    int failures = 0;
    for (const LossOfVideoClip &stock : lossOfVideoClips) {
        const QString path = folder + QLatin1Char('/') + QString::fromLatin1(stock.file);
        if (options.isSet(missing) && QFile::exists(path))
            continue;
        if (const clip::Error error = makeStockClip(stock, folder.toStdString())) {
            std::fprintf(stderr, "rvstock: %s: %s\n", qPrintable(path), error.text.c_str());
            ++failures;
        }
    }
    return failures == 0 ? 0 : 1;
}
