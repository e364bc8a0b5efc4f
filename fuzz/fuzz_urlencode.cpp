// Arbitrary text into urlEncode. Input starting with the byte 0xFF (never part of UTF-8)
// is read as raw UTF-16 code units, so lone surrogates reach the encoder too; any other
// input is read as UTF-8.
//
// Properties checked on every input:
// - the result holds only A-Z a-z 0-9 - . _ ~ + and %XX with upper-case hex digits;
// - decoding it ('+' to space, %XX to the byte) gives back the text's UTF-8 up to the
//   first NUL;
// - a strict URL parse keeps it byte for byte as the query value, as the request needs.

#include "translation/GoogleTranslateByURL.h"

#include <QByteArray>
#include <QUrl>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

[[noreturn]] void fail(const char *what, const QString &encoded)
{
    std::fprintf(stderr, "property broken: %s\n  encoded: %s\n", what,
                 qPrintable(encoded.left(400)));
    std::abort();
}

bool isUnreserved(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~';
}

int upperHexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

QString textFromInput(const uint8_t *data, size_t size)
{
    if (size > 0 && data[0] == 0xFF) {
        const size_t units = (size - 1) / 2;
        QString text(qsizetype(units), Qt::Uninitialized);
        std::memcpy(text.data(), data + 1, units * 2);
        return text;
    }
    return QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text = textFromInput(data, size);
    const QString encoded = urlEncode(text);

    QByteArray expected = text.toUtf8();
    const qsizetype nul = expected.indexOf('\0');
    if (nul >= 0)
        expected.truncate(nul);

    QByteArray decoded;
    for (qsizetype i = 0; i < encoded.size(); ++i) {
        const QChar ch = encoded.at(i);
        if (ch.unicode() > 0x7F)
            fail("non-ASCII character in the result", encoded);
        const char c = char(ch.unicode());
        if (c == '+') {
            decoded.append(' ');
        } else if (isUnreserved(c)) {
            decoded.append(c);
        } else if (c == '%') {
            if (i + 2 >= encoded.size())
                fail("percent sign without two digits", encoded);
            const int high = upperHexValue(char(encoded.at(i + 1).unicode()));
            const int low = upperHexValue(char(encoded.at(i + 2).unicode()));
            if (high < 0 || low < 0 || encoded.at(i + 1).unicode() > 0x7F ||
                encoded.at(i + 2).unicode() > 0x7F)
                fail("percent sign not followed by two upper-case hex digits", encoded);
            const char byte = char(high * 16 + low);
            if (isUnreserved(byte) || byte == ' ')
                fail("a byte that needs no encoding was encoded", encoded);
            decoded.append(byte);
            i += 2;
        } else {
            fail("character outside the form-encoding alphabet", encoded);
        }
    }
    if (decoded != expected)
        fail("decoding does not give the text's UTF-8 up to the first NUL", encoded);

    const QString query = QStringLiteral("client=gtx&sl=auto&tl=en&dt=t&q=") + encoded;
    const QUrl url(QStringLiteral("http://127.0.0.1/translate_a/single?") + query,
                   QUrl::StrictMode);
    if (!url.isValid())
        fail("a strict URL parse refuses the result", encoded);
    if (url.query(QUrl::FullyEncoded) != query)
        fail("the URL does not keep the result byte for byte", encoded);
    return 0;
}
