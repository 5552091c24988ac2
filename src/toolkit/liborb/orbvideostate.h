#pragma once

#include "liborb/orbid.h"
#include "liborb/orbimagedesc.h"

#include <QMetaType>
#include <QSharedDataPointer>
#include <QString>

class OrbVideoStateData;

/// What the device sees on one input. Implicitly shared.
class OrbVideoState
{
public:
    OrbVideoState();
    OrbVideoState(const OrbVideoState &);
    OrbVideoState(OrbVideoState &&) noexcept;
    OrbVideoState &operator=(const OrbVideoState &);
    OrbVideoState &operator=(OrbVideoState &&) noexcept;
    ~OrbVideoState();

    bool isValid() const;
    bool isPresent() const;
    OrbId recInhibit() const;              ///< why this input cannot be recorded; invalid when it can
    OrbImageDesc inputImageDesc() const;   ///< the format on the wire
    OrbImageDesc captureImageDesc() const; ///< the format that capture would produce

    void setValid(bool on);
    void setPresent(bool on);
    void setRecInhibit(const OrbId &reason);
    void setInputImageDesc(const OrbImageDesc &desc);
    void setCaptureImageDesc(const OrbImageDesc &desc);

    /// For logs, such as "valid 1920x1080i 25/1"; "invalid" or "not present".
    QString toString() const;
    bool operator==(const OrbVideoState &other) const;
    bool operator!=(const OrbVideoState &other) const { return !(*this == other); }

private:
    QSharedDataPointer<OrbVideoStateData> _d;
};

/// The state of one reference input.
class OrbVideoRefState
{
public:
    OrbVideoRefState() = default;
    OrbVideoRefState(bool present, bool locked) : _locked(locked), _present(present) {}

    bool locked() const { return _locked; }
    bool present() const { return _present; }
    OrbImageDesc imageDesc() const { return _imageDesc; }
    OrbId source() const { return _source; }
    void setLocked(bool on) { _locked = on; }
    void setPresent(bool on) { _present = on; }
    void setImageDesc(const OrbImageDesc &desc) { _imageDesc = desc; }
    void setSource(const OrbId &source) { _source = source; }
    bool operator==(const OrbVideoRefState &) const = default;

private:
    OrbImageDesc _imageDesc;
    OrbId _source;
    bool _locked = false;
    bool _present = false;
};

Q_DECLARE_METATYPE(OrbVideoState)
Q_DECLARE_METATYPE(OrbVideoRefState)
