#pragma once

#include <QList>
#include <QMetaType>
#include <QString>
#include <QVariant>

/// One clip of a play list.
class OrbPlayListEntry
{
public:
    QString name() const { return _name; }
    QVariant desc() const { return _desc; } ///< the clip's stream descriptor
    int length() const { return _length; }  ///< frames
    void setName(const QString &name) { _name = name; }
    void setDesc(const QVariant &desc) { _desc = desc; }
    void setLength(int frames) { _length = frames; }

    /// The name is not empty, the descriptor valid and the length greater than 0.
    bool isValid() const { return !_name.isEmpty() && _desc.isValid() && _length > 0; }
    bool operator==(const OrbPlayListEntry &) const = default;

private:
    QString _name;
    QVariant _desc;
    int _length = 0;
};

/// Clips played one after the other as one stream.
class OrbPlayList : public QList<OrbPlayListEntry>
{
public:
    using QList<OrbPlayListEntry>::QList;

    /// The frame of the joined stream at which entry \a index begins: the lengths of the entries before it.
    /// -1 when there is no such entry or it is not valid. Entries that are not valid take no frames.
    int firstFrameOfEntry(int index) const;
    /// Frames of all valid entries.
    int frameCount() const;
    /// The entry that frame \a frame of the joined stream lies in; -1 outside.
    int entryOfFrame(int frame) const;
};

/// A position in a play list.
class OrbPlayListIndex
{
public:
    OrbPlayListIndex() = default;
    OrbPlayListIndex(const OrbPlayList &list, int entryIndex, int frame);

    OrbPlayList playList() const { return _playList; }
    OrbPlayListEntry entry() const { return _entry; }
    int entryIndex() const { return _entryIndex; }
    int frame() const { return _frame; } ///< within the entry
    /// Both numbers are not negative, the entry is valid and the play list not empty.
    bool isValid() const;
    bool operator==(const OrbPlayListIndex &) const = default;

private:
    OrbPlayList _playList;
    OrbPlayListEntry _entry;
    int _entryIndex = -1;
    int _frame = -1;
};

Q_DECLARE_METATYPE(OrbPlayListEntry)
Q_DECLARE_METATYPE(OrbPlayList)
Q_DECLARE_METATYPE(OrbPlayListIndex)
