#pragma once

#include <QByteArray>
#include <QSharedDataPointer>

class OrbCryptoKeyData;
class OrbCryptoDescData;

/// A key of at most 32 bytes, carried by every image and always empty here.
class OrbCryptoKey
{
public:
    static constexpr int maxLength = 32;

    OrbCryptoKey() : OrbCryptoKey(0) {}
    explicit OrbCryptoKey(int length);
    OrbCryptoKey(const OrbCryptoKey &);
    OrbCryptoKey &operator=(const OrbCryptoKey &);
    ~OrbCryptoKey();

    bool isSet() const;
    int length() const;
    const unsigned char *bytes() const;
    /// Copies \a length bytes (cut to maxLength); a null pointer clears the key.
    void set(const unsigned char *bytes, int length);
    bool operator==(const OrbCryptoKey &other) const;

private:
    QSharedDataPointer<OrbCryptoKeyData> _d;
};

/// How an image is encrypted: not at all, as it is only ever created here.
class OrbCryptoDesc
{
public:
    OrbCryptoDesc();
    OrbCryptoDesc(const OrbCryptoDesc &);
    OrbCryptoDesc &operator=(const OrbCryptoDesc &);
    ~OrbCryptoDesc();

    bool isEncrypted() const;
    const OrbCryptoKey &key(int index) const; ///< index 0 or 1; created empty with length 16
    bool operator==(const OrbCryptoDesc &other) const;

private:
    QSharedDataPointer<OrbCryptoDescData> _d;
};
