// Arbitrary answer bytes into the other services' parsers: the alternative Google client,
// DeepL, LibreTranslate and Apertium (pair list, language identification, translation).
// The first byte picks the parser and the HTTP status; the rest is the answer.
//
// Besides the sanitizers, two properties are checked on every input:
// - an error status (400 and up) is never read as a translation;
// - the identification only ever picks one of the candidates it was given.

#include "translation/ServiceProtocols.h"

#include <QByteArrayView>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr int kStatuses[] = {200, 400, 403, 429, 456, 503, 302, 201};

[[noreturn]] void fail(const char *what)
{
    std::fprintf(stderr, "property broken: %s\n", what);
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const int selector = data[0];
    const int status = kStatuses[(selector >> 3) & 7];
    const QByteArrayView body(reinterpret_cast<const char *>(data + 1), qsizetype(size - 1));

    ParsedAnswer answer;
    switch (selector & 7) {
    case 0:
        answer = GoogleAlternativeProtocol::parseAnswer(status, body);
        break;
    case 1:
        answer = DeepLProtocol::parseAnswer(status, body);
        break;
    case 2:
        answer = LibreTranslateProtocol::parseAnswer(status, body);
        break;
    case 3:
        answer = ApertiumProtocol::parseTranslation(status, body,
                                                    {QStringLiteral("eng"), QStringLiteral("spa")});
        break;
    case 4: {
        const std::optional<QList<ApertiumProtocol::Pair>> pairs =
            ApertiumProtocol::parsePairs(body);
        if (pairs)
            ApertiumProtocol::sourcesInto(*pairs, QStringLiteral("es"));
        return 0;
    }
    default: {
        const QStringList candidates{QStringLiteral("eng"), QStringLiteral("cat_valencia")};
        const QString source = ApertiumProtocol::identifiedSource(body, candidates);
        if (!source.isEmpty() && !candidates.contains(source))
            fail("identification picked a language that was not a candidate");
        return 0;
    }
    }
    if (status >= 400 && answer.end == TranslationEnd::Answered)
        fail("an error status was read as a translation");
    if (answer.end == TranslationEnd::Answered && answer.text.isNull())
        fail("an answer without text");
    return 0;
}
