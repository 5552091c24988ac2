// A load that is given up may still be answered: its read comes back before the stream is closed.
// Such answers are counted off, so that a new load never takes a frame of the file before.

#include "aux/singleframe.h"

#include "liborb/orbconnect.h"
#include "liborb/orberror.h"
#include "liborb/orbstream.h"

namespace {

constexpr char logFile[] = "singleframe.cpp";
constexpr int accessRead = 1;

} // namespace

SingleFrame::SingleFrame() : _stream(new OrbStream(this))
{
    ORB_TESTED(connect(_stream, SIGNAL(openIsDone(int, const OrbError &)), this,
                       SLOT(openIsDone(int, const OrbError &))));
    ORB_TESTED(connect(_stream, SIGNAL(readIsDone(int, const OrbFrame &, const OrbError &, void *)),
                       this, SLOT(readIsDone(int, const OrbFrame &, const OrbError &, void *))));
}

OrbFrame SingleFrame::frame() const
{
    return _frame;
}

void SingleFrame::clear()
{
    _frame = OrbFrame();
    _frameNumber = -1;
    ++_loads;
    _abandonedReads += _isReading ? 1 : 0;
    _isReading = false;
    if (!_stream->isClosed())
        _stream->close();
}

void SingleFrame::load(int fnum, const QString &file)
{
    clear();
    _frameNumber = fnum;
    _stream->setDesc(QVariant(file));
    if (_stream->open(accessRead))
        return;
    // Refused at once, told like every other failure: through the event loop.
    const auto tell = [this, refused = _loads] {
        if (refused == _loads)
            emit failed();
    };
    QMetaObject::invokeMethod(this, tell, Qt::QueuedConnection);
}

void SingleFrame::openIsDone(int, const OrbError &err)
{
    _abandonedReads = 0; // those of the opens before have been answered, or never will be
    if (err.isError()) {
        emit failed();
        return;
    }
    _isReading = true;
    _stream->read(_frameNumber, nullptr);
}

void SingleFrame::readIsDone(int, const OrbFrame &frame, const OrbError &err, void *)
{
    if (_abandonedReads > 0) {
        --_abandonedReads;
        return;
    }
    _isReading = false;
    _stream->close();
    if (err.isError()) {
        emit failed();
        return;
    }
    _frame = frame;
    emit ready();
}
