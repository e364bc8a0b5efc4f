#include "translation/GoogleTranslateByURL.h"

#include <QByteArray>

QString urlEncode(const QString &text)
{
    static constexpr char kHexDigits[] = "0123456789ABCDEF";

    QByteArray utf8 = text.toUtf8();
    // A NUL ends the text, as it would for a C string handed to the query.
    const qsizetype nul = utf8.indexOf('\0');
    if (nul >= 0)
        utf8.truncate(nul);

    QByteArray encoded;
    encoded.reserve(utf8.size() * 3);
    for (const char c : std::as_const(utf8)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte == ' ') {
            encoded.append('+');
        } else if ((byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
                   (byte >= '0' && byte <= '9') || byte == '-' || byte == '.' || byte == '_' ||
                   byte == '~') {
            encoded.append(c);
        } else {
            encoded.append('%');
            encoded.append(kHexDigits[byte >> 4]);
            encoded.append(kHexDigits[byte & 0x0F]);
        }
    }
    return QString::fromLatin1(encoded);
}
