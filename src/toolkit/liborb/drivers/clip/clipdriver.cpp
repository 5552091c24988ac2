#include "liborb/drivers/clip/clipdriver.h"

#include "liborb/drivers/clip/clipsource.h"
#include "liborb/drivers/clip/playlistsource.h"
#include "liborb/drivers/clip/readdriver.h"
#include "liborb/drivers/clip/writedriver.h"

namespace {

bool isPath(const QVariant &desc)
{
    return desc.metaType() == QMetaType::fromType<QString>() && !desc.toString().isEmpty();
}

bool isPlayList(const QVariant &desc)
{
    return desc.metaType() == QMetaType::fromType<OrbPlayList>();
}

bool isClipType(const OrbId &type)
{
    return !type.isValid() || type == OrbId(OrbIdStreamTypeRecord);
}

std::shared_ptr<FrameSource> sourceOf(const QVariant &desc)
{
    if (isPlayList(desc))
        return std::make_shared<PlayListSource>(desc.value<OrbPlayList>());
    return std::make_shared<ClipSource>(desc.toString());
}

/// Reads or writes, which is known when it is opened.
class FileDriver : public OrbMediaDriver
{
public:
    explicit FileDriver(OrbMediaDriverHost *host) : _host(host) {}

    void open(const QVariant &desc, OrbAccess access, const OrbStreamInfo &info) override
    {
        if (access == OrbAccess::Write) {
            _writer = std::make_unique<WriteDriver>(_host);
            _writer->open(desc.toString(), info);
        } else {
            _reader = std::make_unique<ReadDriver>(_host, sourceOf(desc));
            _reader->open();
        }
    }

    void read(int frame, void *context) override
    {
        if (_reader)
            _reader->read(frame, context);
    }

    void write(const OrbFrame &frame) override
    {
        if (_writer)
            _writer->write(frame);
    }

    void flush() override
    {
        if (_writer)
            _writer->flush();
    }

    void close() override
    {
        if (_reader)
            _reader->close();
        if (_writer)
            _writer->close();
    }

private:
    OrbMediaDriverHost *_host;
    std::unique_ptr<ReadDriver> _reader;
    std::unique_ptr<WriteDriver> _writer;
};

} // namespace

bool clipDriverAccepts(const QVariant &desc, OrbAccess access, const OrbId &type)
{
    return access != OrbAccess::None && isPath(desc) && isClipType(type);
}

std::unique_ptr<OrbMediaDriver> createClipDriver(OrbMediaDriverHost *host)
{
    return std::make_unique<FileDriver>(host);
}

bool playListDriverAccepts(const QVariant &desc, OrbAccess access, const OrbId &type)
{
    return access == OrbAccess::Read && isPlayList(desc) && !type.isValid();
}

std::unique_ptr<OrbMediaDriver> createPlayListDriver(OrbMediaDriverHost *host)
{
    return std::make_unique<FileDriver>(host);
}
