// Arbitrary answer bytes into the answer parse, through both entry points.
//
// Besides the sanitizers, three properties are checked on every input:
// - the text entry point and the UTF-8 one agree on text that is valid UTF-8, read the way
//   the client reads an answer;
// - the linear-time repair of empty slots gives what the plain two replace passes give:
//   an answer repaired beforehand by QByteArray::replace parses to the same outcome;
// - a translation is only ever read out of an answer that contains a JSON array.

#include "common/Log.h"
#include "translation/GoogleTranslateByURL.h"

#include <QByteArray>
#include <QStringDecoder>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct Outcome
{
    QString text;
    QString guessed;
};

[[noreturn]] void fail(const char *what, const Outcome &expected, const Outcome &actual)
{
    std::fprintf(stderr,
                 "property broken: %s\n  expected %s text \"%s\", language \"%s\"\n"
                 "  actual   %s text \"%s\", language \"%s\"\n",
                 what, expected.text.isNull() ? "null" : "non-null",
                 qPrintable(expected.text.left(200)), qPrintable(expected.guessed),
                 actual.text.isNull() ? "null" : "non-null", qPrintable(actual.text.left(200)),
                 qPrintable(actual.guessed));
    std::abort();
}

void requireSame(const char *what, const Outcome &expected, const Outcome &actual)
{
    if (expected.text != actual.text || expected.text.isNull() != actual.text.isNull() ||
        expected.guessed != actual.guessed || expected.guessed.isNull() != actual.guessed.isNull())
        fail(what, expected, actual);
}

Outcome parseUtf8(QByteArrayView bytes)
{
    Outcome outcome;
    outcome.text = GoogleTranslateByURL::parseGoogleJSONResponseUtf8(bytes, &outcome.guessed);
    return outcome;
}

bool isValidUtf8(QByteArrayView bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    // decode() is lazy: only the conversion to a QString reads the bytes.
    const QString text = decoder.decode(bytes);
    return !decoder.hasError();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    // Millions of parses would otherwise write millions of log lines.
    tolkaro::setLogSink([](const QString &) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArrayView bytes(reinterpret_cast<const char *>(data), qsizetype(size));

    // Whatever the bytes, the text entry point must survive them (invalid sequences become
    // replacement characters on the way in).
    Outcome fromText;
    fromText.text = GoogleTranslateByURL::parseGoogleJSONResponseIntoReadableString(
        QString::fromUtf8(bytes), &fromText.guessed);

    const Outcome fromUtf8 = parseUtf8(bytes);
    if (isValidUtf8(bytes)) {
        // Decoding drops a leading byte order mark; the client drops it from the bytes too.
        const QByteArrayView withoutMark =
            bytes.startsWith("\xEF\xBB\xBF") ? bytes.sliced(3) : bytes;
        requireSame("text and UTF-8 entry points disagree", fromText, parseUtf8(withoutMark));
    }

    QByteArray repaired = bytes.toByteArray();
    repaired.replace(",,", ",null,");
    repaired.replace(",,", ",null,");
    requireSame("linear repair differs from two replace passes", parseUtf8(repaired), fromUtf8);

    if (!fromUtf8.text.isNull() && !bytes.contains('['))
        fail("a translation out of an answer without an array", Outcome{}, fromUtf8);
    return 0;
}
