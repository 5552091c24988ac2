#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QString>

#include <sys/mount.h>

/// A medium of \a kilobytes, as long as it lives.
class SmallMedium
{
public:
    SmallMedium(const QString &folder, int kilobytes) : _path(QFile::encodeName(folder))
    {
        QDir().mkpath(folder);
        const QByteArray options = "size=" + QByteArray::number(kilobytes) + 'k';
        _isMounted = ::mount("tmpfs", _path.constData(), "tmpfs", 0, options.constData()) == 0;
    }
    ~SmallMedium()
    {
        if (_isMounted)
            ::umount2(_path.constData(), MNT_DETACH);
    }
    bool isMounted() const { return _isMounted; }

private:
    QByteArray _path;
    bool _isMounted = false;
};
