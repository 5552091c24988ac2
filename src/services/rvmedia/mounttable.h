#pragma once

#include <QObject>
#include <QSocketNotifier>

#include <memory>
#include <set>
#include <string>

/// The folders that a mount table in the system's format names, octal escapes undone.
std::set<std::string> mountPointsIn(const std::string &table);
/// Whether the system has given up writing to what is mounted at \a point, last if more than once, after an error.
bool isGivenUpIn(const std::string &table, const std::string &point);
/// The mount table of this process. Asks the kernel, never a medium.
std::string mountTable();

/// Tells when something is mounted or unmounted anywhere. The kernel says so; nothing is asked again and again.
class MountTable : public QObject
{
    Q_OBJECT
public:
    explicit MountTable(QObject *parent = nullptr);
    ~MountTable() override;

    /// Begins to watch; false when the system does not let.
    bool watch();
    /// Every folder on which something is mounted now. Asks the kernel, never a medium.
    std::set<std::string> mountPoints() const;

signals:
    /// The table is another one than before.
    void changed();

private:
    int _descriptor = -1;
    std::unique_ptr<QSocketNotifier> _notifier;
};
