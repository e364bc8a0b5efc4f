#include "languages/LanguageTable.h"

#include "common/Log.h"
#include "settings/Preferences.h"

#include <QLocale>

namespace {

// A flag emoji is the pair of regional-indicator symbols spelling the region's two
// letters; each symbol lies outside the BMP, so a flag is four UTF-16 code units.
QString flagForRegion(const char (&region)[3])
{
    constexpr char32_t kRegionalIndicatorA = 0x1F1E6;
    const char32_t symbols[2] = {kRegionalIndicatorA + char32_t(region[0] - 'A'),
                                 kRegionalIndicatorA + char32_t(region[1] - 'A')};
    return QString::fromUcs4(symbols, 2);
}

struct TableRow
{
    const char *code;
    const char *name;
    char region[3];
};

// Some regions look odd but are chosen on purpose: Arabic shows PS, Catalan and Spanish
// share ES, both Chinese variants share CN. Hebrew and Norwegian use the old codes the
// endpoint still takes.
constexpr TableRow kTableRows[] = {
    {"ar", "Arabic", "PS"},
    {"bg", "Bulgarian", "BG"},
    {"ca", "Catalan", "ES"},
    {"zh-CN", "Chinese (Simplified)", "CN"},
    {"zh-TW", "Chinese (Traditional)", "CN"},
    {"hr", "Croatian", "HR"},
    {"cs", "Czech", "CZ"},
    {"da", "Danish", "DK"},
    {"nl", "Dutch", "NL"},
    {"en", "English", "GB"},
    {"et", "Estonian", "EE"},
    {"fi", "Finnish", "FI"},
    {"fr", "French", "FR"},
    {"de", "German", "DE"},
    {"el", "Greek", "GR"},
    {"iw", "Hebrew", "IL"},
    {"hi", "Hindi", "IN"},
    {"hu", "Hungarian", "HU"},
    {"id", "Indonesian", "ID"},
    {"it", "Italian", "IT"},
    {"ja", "Japanese", "JP"},
    {"ko", "Korean", "KR"},
    {"lv", "Latvian", "LV"},
    {"lt", "Lithuanian", "LT"},
    {"no", "Norwegian", "NO"},
    {"pl", "Polish", "PL"},
    {"pt", "Portuguese", "PT"},
    {"ro", "Romanian", "RO"},
    {"ru", "Russian", "RU"},
    {"sr", "Serbian", "RS"},
    {"sk", "Slovak", "SK"},
    {"sl", "Slovenian", "SI"},
    {"es", "Spanish", "ES"},
    {"sv", "Swedish", "SE"},
    {"th", "Thai", "TH"},
    {"tr", "Turkish", "TR"},
    {"uk", "Ukrainian", "UA"},
    {"vi", "Vietnamese", "VN"},
};

const QString kEnglishCode = QStringLiteral("en");

template <typename Field>
std::optional<LanguageEntry> singleMatch(const QString &value, Field field)
{
    std::optional<LanguageEntry> match;
    int matches = 0;
    for (const LanguageEntry &entry : LanguageTable::entries()) {
        if (entry.*field == value) {
            match = entry;
            ++matches;
        }
    }
    if (matches != 1)
        return std::nullopt;
    return match;
}

} // namespace

const QList<LanguageEntry> &LanguageTable::entries()
{
    static const QList<LanguageEntry> table = [] {
        QList<LanguageEntry> built;
        built.reserve(std::size(kTableRows));
        for (const TableRow &row : kTableRows)
            built.append({QString::fromLatin1(row.code), QString::fromLatin1(row.name),
                          flagForRegion(row.region)});
        return built;
    }();
    return table;
}

std::optional<LanguageEntry> LanguageTable::languageWithCode(const QString &code)
{
    return singleMatch(code, &LanguageEntry::code);
}

std::optional<LanguageEntry> LanguageTable::languageWithName(const QString &name)
{
    return singleMatch(name, &LanguageEntry::name);
}

int LanguageTable::indexOf(const LanguageEntry &entry)
{
    return int(entries().indexOf(entry));
}

LanguageSelection::LanguageSelection(Preferences &preferences, QObject *parent)
    : QObject(parent), m_preferences(preferences)
{
}

LanguageEntry
LanguageSelection::getPreviouslyUsedLanguage(const QStringList &preferredSystemLanguages) const
{
    // A stored code that names no entry can only come from a hand-edited store; the
    // system language decides then, as on a first start.
    if (const std::optional<QString> stored = m_preferences.previouslyUsedLanguageCode()) {
        if (const std::optional<LanguageEntry> entry = LanguageTable::languageWithCode(*stored))
            return *entry;
    }

    // Whole-string match only: "en-GB" is not English here.
    const QString systemCode =
        preferredSystemLanguages.isEmpty() ? QString() : preferredSystemLanguages.first();
    if (const std::optional<LanguageEntry> entry = LanguageTable::languageWithCode(systemCode))
        return *entry;

    tolkaro::logLine(QStringLiteral("Bing doesnt support system language code %1").arg(systemCode));
    return *LanguageTable::languageWithCode(kEnglishCode);
}

LanguageEntry LanguageSelection::getPreviouslyUsedLanguage2() const
{
    // The alternative language starts as English at every launch; the stored key is not
    // consulted on purpose.
    return *LanguageTable::languageWithCode(kEnglishCode);
}

void LanguageSelection::setLanguage(const LanguageEntry &entry)
{
    m_currentDstLanguageCode = entry.code;
    m_preferences.setPreviouslyUsedLanguageCode(m_currentDstLanguageCode);
    m_preferences.synchronize();
    emit languageChanged(entry, LanguageTable::indexOf(entry));
}

void LanguageSelection::setLanguage2(const LanguageEntry &entry)
{
    m_currentDstLanguageCode2 = entry.code;
    // The second key deliberately receives the destination's code, not the alternative's;
    // nothing reads it back, since the alternative starts as English at every launch.
    m_preferences.setPreviouslyUsedLanguageCode2(m_currentDstLanguageCode);
    m_preferences.synchronize();
    emit language2Changed(entry, LanguageTable::indexOf(entry));
}

QStringList LanguageSelection::systemPreferredLanguages()
{
    return QLocale::system().uiLanguages();
}
