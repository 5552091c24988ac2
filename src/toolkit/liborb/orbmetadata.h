#pragma once

#include "liborb/orbid.h"

#include <QHash>
#include <QMetaType>
#include <QVariant>

/// One identified value that travels with a frame.
class OrbMetadata
{
public:
    OrbMetadata() = default;
    OrbMetadata(const OrbId &id, const QVariant &value) : _id(id), _value(value) {}

    bool isValid() const { return _id.isValid(); }
    OrbId id() const { return _id; }
    QVariant value() const { return _value; }
    bool operator==(const OrbMetadata &) const = default;

private:
    OrbId _id;
    QVariant _value;
};

/// The metadata of one frame by identifier.
class OrbMetadataHash : public QHash<OrbId, OrbMetadata>
{
public:
    /// Keyed by its identifier; replaces an earlier entry.
    void insert(const OrbMetadata &item) { QHash::insert(item.id(), item); }
    void insert(const OrbId &id, const QVariant &value) { QHash::insert(id, OrbMetadata(id, value)); }
    /// The value stored under \a id, an invalid variant when there is none.
    QVariant valueFor(const OrbId &id) const { return value(id).value(); }
};

Q_DECLARE_METATYPE(OrbMetadata)
Q_DECLARE_METATYPE(OrbMetadataHash)
