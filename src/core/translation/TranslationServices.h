#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

class Preferences;
class TranslationChain;
class Translator;

// What the services need from the settings: the order the user chose and each service's
// key or address. Read once per chain; the chain is made again when they change.
struct ServiceSettings
{
    QStringList order; // names as names() gives them, first asked first
    QString googleUrl;
    QString alternativeUrl;
    QString deepLAPIKey;
    QString deepLUrl; // the host the key belongs to, unless a test names another
    QString libreTranslateURL;
    QString libreTranslateAPIKey;
    QString apertiumURL;
};

// The translation services Tolkaro knows, by the names the user sees, and the chain made
// of them. Pure construction; no network until a service is asked.
namespace TranslationServices {

// Override the alternative client's and DeepL's addresses (tests point them at a loopback
// server).
inline constexpr char kAlternativeUrlEnvironmentVariable[] = "TOLKARO_ALTERNATIVE_TRANSLATE_URL";
inline constexpr char kDeepLUrlEnvironmentVariable[] = "TOLKARO_DEEPL_URL";

// Every service, in the order --list-services prints them.
QStringList names();
// "Google" then "Google (alternative client)".
QStringList defaultOrder();
// The order as stored, made usable: unknown names and repeats dropped; the default when
// nothing is left.
QStringList usableOrder(const QStringList &stored);

// Every service for a menu: the stored order first, then the ones not in it.
QStringList allInOrder(const QStringList &stored);
// The order after the user chose a service: that one first, the others as they were.
QStringList chosenFirst(const QStringList &stored, const QString &name);

// The settings of the services in the user's order; with allServices, every service's
// (an API key may be kept where reading it costs a call to the desktop's secret store).
ServiceSettings readSettings(const Preferences &preferences, bool allServices = false);
// One service by name; null for a name that is none of names().
Translator *create(const QString &name, const ServiceSettings &settings, QObject *parent = nullptr);
TranslationChain *createChain(const ServiceSettings &settings, QObject *parent = nullptr);
// The chain's services made again from new settings.
void refillChain(TranslationChain &chain, const ServiceSettings &settings);

} // namespace TranslationServices
