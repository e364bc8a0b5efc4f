#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <optional>

class Preferences;

// One destination language: the endpoint's code, the English name shown in menus and one
// flag emoji. Compared by value.
struct LanguageEntry
{
    QString code;
    QString name;
    QString flag;
    bool operator==(const LanguageEntry &) const = default;
};

// The 38 destination languages in menu order. The order matters: a menu item maps back
// to its entry by position.
class LanguageTable
{
public:
    static const QList<LanguageEntry> &entries();

    // Exactly one match, else nothing (exact, case-sensitive).
    static std::optional<LanguageEntry> languageWithCode(const QString &code);
    static std::optional<LanguageEntry> languageWithName(const QString &name);

    // Position of an entry by value, or -1.
    static int indexOf(const LanguageEntry &entry);
};

// The current destination and alternative destination languages, kept in the
// preferences. The status menu binds to its signals. Main thread only.
class LanguageSelection : public QObject
{
    Q_OBJECT
public:
    explicit LanguageSelection(Preferences &preferences, QObject *parent = nullptr);

    // The destination at start-up: the stored code, else the first preferred system
    // language by exact match, else English (with a log line).
    LanguageEntry getPreviouslyUsedLanguage(const QStringList &preferredSystemLanguages) const;
    // The alternative destination at start-up: always English, whatever is stored.
    LanguageEntry getPreviouslyUsedLanguage2() const;

    void setLanguage(const LanguageEntry &entry);
    void setLanguage2(const LanguageEntry &entry);

    QString currentDstLanguageCode() const { return m_currentDstLanguageCode; }
    QString currentDstLanguageCode2() const { return m_currentDstLanguageCode2; }

    // The system's preferred languages, most preferred first (QLocale::uiLanguages()).
    static QStringList systemPreferredLanguages();

signals:
    // Emitted after the choice is stored; index is the entry's position in the table.
    void languageChanged(const LanguageEntry &entry, int index);
    void language2Changed(const LanguageEntry &entry, int index);

private:
    Preferences &m_preferences;
    QString m_currentDstLanguageCode;
    QString m_currentDstLanguageCode2;
};
