#include "liborb/orbcrypto.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

constexpr int emptyKeyLength = 16;

struct KeyFields {
    bool set = false;
    std::array<unsigned char, OrbCryptoKey::maxLength> bytes{};
    qint32 length = 0;

    bool operator==(const KeyFields &) const = default;
};

struct DescFields {
    bool encrypted = false;
    qint32 reserved1 = 0;
    qint32 reserved2 = 0;
    std::array<OrbCryptoKey, 2> keys{OrbCryptoKey(emptyKeyLength), OrbCryptoKey(emptyKeyLength)};
    bool reservedFlag = false;
    QByteArray reservedBytes1;
    QByteArray reservedBytes2;

    bool operator==(const DescFields &) const = default;
};

} // namespace

class OrbCryptoKeyData : public QSharedData
{
public:
    KeyFields f;
};

class OrbCryptoDescData : public QSharedData
{
public:
    DescFields f;
};

OrbCryptoKey::OrbCryptoKey(int length) : _d(new OrbCryptoKeyData)
{
    _d->f.length = std::clamp(length, 0, maxLength);
}

OrbCryptoKey::OrbCryptoKey(const OrbCryptoKey &) = default;
OrbCryptoKey &OrbCryptoKey::operator=(const OrbCryptoKey &) = default;
OrbCryptoKey::~OrbCryptoKey() = default;

bool OrbCryptoKey::isSet() const { return _d->f.set; }
int OrbCryptoKey::length() const { return _d->f.length; }
const unsigned char *OrbCryptoKey::bytes() const { return _d->f.bytes.data(); }

void OrbCryptoKey::set(const unsigned char *bytes, int length)
{
    KeyFields key;
    if (bytes != nullptr) {
        key.set = true;
        key.length = std::clamp(length, 0, maxLength);
        std::memcpy(key.bytes.data(), bytes, static_cast<size_t>(key.length));
    }
    _d->f = key;
}

bool OrbCryptoKey::operator==(const OrbCryptoKey &other) const
{
    return _d == other._d || _d->f == other._d->f;
}

OrbCryptoDesc::OrbCryptoDesc() : _d(new OrbCryptoDescData) {}
OrbCryptoDesc::OrbCryptoDesc(const OrbCryptoDesc &) = default;
OrbCryptoDesc &OrbCryptoDesc::operator=(const OrbCryptoDesc &) = default;
OrbCryptoDesc::~OrbCryptoDesc() = default;

bool OrbCryptoDesc::isEncrypted() const { return _d->f.encrypted; }

const OrbCryptoKey &OrbCryptoDesc::key(int index) const
{
    return _d->f.keys[index == 1 ? 1 : 0];
}

bool OrbCryptoDesc::operator==(const OrbCryptoDesc &other) const
{
    return _d == other._d || _d->f == other._d->f;
}
