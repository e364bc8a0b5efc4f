#pragma once

#include "translation/Translator.h"
#include "translation/WebTranslator.h"

#include <QByteArrayView>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

// The request builders and answer parsers of the services beside the default one. Pure
// functions of their inputs (no network, no state), so that every byte a service sends
// back can be fuzzed; the engines in ServiceTranslators send what these build.

// What one answer of a service said.
struct ParsedAnswer
{
    TranslationEnd end = TranslationEnd::Unreadable;
    QString text;     // the translation when end is Answered
    QString detected; // the detected source language, in the table's codes; may be null
    QString reason;   // why not, for the log and the error text
};

// Whether an answer is a service turning the client away (429, 503, or a page of HTML
// where JSON belongs) rather than a translation gone wrong.
bool isRefusalPage(int status, QByteArrayView body);

// An answer with an HTTP error status: a refusal, with the service's own words for it
// when it gave any (a JSON "message" or "error"), else the status.
ParsedAnswer refusalOf(int status, QByteArrayView body);

// "Google (alternative client)": the same service's browser-extension client on another
// host, GET /translate_a/t?client=dict-chrome-ex&sl=auto&tl=..&q=..
namespace GoogleAlternativeProtocol {
inline constexpr char kServiceName[] = "Google (alternative client)";
inline constexpr char kDefaultUrl[] = "https://clients5.google.com";
inline constexpr qsizetype kMaximumTextLength = 5000;
std::optional<WebRequest> buildRequest(const QString &baseUrl, const QString &text,
                                       const QString &targetLanguage);
// Reads [["translation","en"]], ["translation"] and {"sentences":[{"trans":..}],"src":..}.
ParsedAnswer parseAnswer(int status, QByteArrayView body);
} // namespace GoogleAlternativeProtocol

// "DeepL": POST {base}/v2/translate with the key in the Authorization header.
namespace DeepLProtocol {
inline constexpr char kServiceName[] = "DeepL";
inline constexpr char kFreeUrl[] = "https://api-free.deepl.com";
inline constexpr char kProUrl[] = "https://api.deepl.com";
// The service takes up to 128 KiB of request body; this many UTF-16 units always fit.
inline constexpr qsizetype kMaximumTextLength = 30000;
// Free keys end in ":fx" and have their own host.
QString baseUrlForKey(const QString &apiKey);
// DeepL's target code for a code of the language table; null when it has none.
QString targetLanguage(const QString &tableCode);
std::optional<WebRequest> buildRequest(const QString &baseUrl, const QString &apiKey,
                                       const QString &text, const QString &tableCode);
ParsedAnswer parseAnswer(int status, QByteArrayView body);
} // namespace DeepLProtocol

// "LibreTranslate": POST {instance}/translate with a JSON body, an optional key.
namespace LibreTranslateProtocol {
inline constexpr char kServiceName[] = "LibreTranslate";
// The limit public instances set; a private instance's is usually none at all.
inline constexpr qsizetype kMaximumTextLength = 5000;
QString targetLanguage(const QString &tableCode);
std::optional<WebRequest> buildRequest(const QString &instanceUrl, const QString &apiKey,
                                       const QString &text, const QString &tableCode);
ParsedAnswer parseAnswer(int status, QByteArrayView body);
} // namespace LibreTranslateProtocol

// "Apertium (offline)": an APY server's /listPairs, /identifyLang and /translate.
namespace ApertiumProtocol {
inline constexpr char kServiceName[] = "Apertium (offline)";
inline constexpr char kDefaultUrl[] = "http://127.0.0.1:2737";
// The text goes in the query of a GET; longer ones are cut to keep the URL short.
inline constexpr qsizetype kMaximumTextLength = 2000;

struct Pair
{
    QString source; // three-letter codes, perhaps with a variant: "eng", "por_BR"
    QString target;
    bool operator==(const Pair &) const = default;
};

// The table's code for Apertium's three-letter one ("eng" -> "en"), and back; null when
// the language is not in the table.
QString tableCode(const QString &apertiumCode);
QString apertiumCode(const QString &tableCode);

WebRequest pairsRequest(const QString &baseUrl);
std::optional<QList<Pair>> parsePairs(QByteArrayView body);
// The sources of the pairs that lead into a table language.
QStringList sourcesInto(const QList<Pair> &pairs, const QString &tableCode);

WebRequest identificationRequest(const QString &baseUrl, const QString &text);
// The most likely of the candidate sources according to the server's identification
// ({"eng": 0.9, "spa": 0.1}); null when none of them is named.
QString identifiedSource(QByteArrayView body, const QStringList &candidates);

WebRequest translationRequest(const QString &baseUrl, const Pair &pair, const QString &text);
ParsedAnswer parseTranslation(int status, QByteArrayView body, const Pair &pair);
} // namespace ApertiumProtocol
