#include "liborb/drivers/software/input.h"

#include "liborb/drivers/software/businput.h"
#include "liborb/drivers/software/ffmpeginput.h"

namespace ferin {

namespace {

/// No signal, ever.
class NoInput : public Input
{
public:
    void start(const StatusHandler &) override {}
    bool take(InputFrame &) override { return false; }
    int waiting() const override { return 0; }
    quint64 overruns() const override { return 0; }
    bool isPaced() const override { return false; }
};

} // namespace

std::unique_ptr<Input> createInput(const QString &source)
{
    if (source.isEmpty() || source == QLatin1String("none"))
        return std::make_unique<NoInput>();
    if (source.startsWith(QLatin1String("bus:")))
        return createBusInput(source.mid(4));
    if (source.startsWith(QLatin1String("file:")))
        return createFfmpegInput(source.mid(5), true);
    return createFfmpegInput(source, !source.contains(QLatin1String("://")));
}

} // namespace ferin
