#include "languages/LanguageTable.h"
#include "settings/Preferences.h"
#include "ui/StatusMenu.h"

#include <QApplication>
#include <QMenu>
#include <QTemporaryDir>
#include <QTest>

// The status menus as built, and as they follow the language choices.
class TestStatusMenu : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void untrustedMenuOffersTrustAndQuit();
    void choosingByCode_data();
    void choosingByCode();
    void sessionLimitsAreToldAndReplaced();

private:
    // What the application controller does with a language item: the entry with the item's
    // code becomes the choice.
    void choose(const QString &code, bool alternative);

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Preferences> m_preferences;
    std::unique_ptr<LanguageSelection> m_languages;
    std::unique_ptr<StatusMenu> m_menu;
};

void TestStatusMenu::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_preferences = std::make_unique<Preferences>(m_dir->filePath(QStringLiteral("t.ini")));
    m_languages = std::make_unique<LanguageSelection>(*m_preferences);
    m_menu = std::make_unique<StatusMenu>();
    m_menu->addStatusBarItem(false);
    connect(m_languages.get(), &LanguageSelection::languageChanged, m_menu.get(),
            &StatusMenu::showDestinationLanguage);
    connect(m_languages.get(), &LanguageSelection::language2Changed, m_menu.get(),
            &StatusMenu::showAlternativeDestinationLanguage);
    connect(m_menu.get(), &StatusMenu::languageItemTriggered, this,
            [this](const QString &code) { choose(code, false); });
    connect(m_menu.get(), &StatusMenu::language2ItemTriggered, this,
            [this](const QString &code) { choose(code, true); });
}

void TestStatusMenu::cleanup()
{
    m_menu.reset();
    m_languages.reset();
    m_preferences.reset();
    m_dir.reset();
}

void TestStatusMenu::choose(const QString &code, bool alternative)
{
    const std::optional<LanguageEntry> entry = LanguageTable::languageWithCode(code);
    QVERIFY(entry);
    if (alternative)
        m_languages->setLanguage2(*entry);
    else
        m_languages->setLanguage(*entry);
}

// The trusted menu as the user meets it is read from the running tray in the tray desktop test.
void TestStatusMenu::untrustedMenuOffersTrustAndQuit()
{
    m_menu->showMenuForTrust(false);
    QStringList titles;
    for (QAction *item : m_menu->attachedMenu()->actions())
        titles << item->text();
    QCOMPARE(titles,
             (QStringList{QStringLiteral("Make Tolkaro trusted"), QStringLiteral("Quit Tolkaro")}));
    m_menu->showMenuForTrust(true);
    QCOMPARE(m_menu->attachedMenu(), m_menu->statusItemMenuAppTrusted());
}

void TestStatusMenu::choosingByCode_data()
{
    QTest::addColumn<bool>("alternative");
    QTest::addColumn<int>("position");
    QTest::addColumn<int>("times");
    QTest::addColumn<QString>("code");

    QTest::newRow("Spanish, not Catalan, despite the same flag") << false << 32 << 1 << "es";
    QTest::newRow("Vietnamese, the last item, as alternative") << true << 37 << 1 << "vi";
    // A checkable item unchecks itself when triggered while checked; the choice puts it back.
    QTest::newRow("German twice stays checked") << false << 13 << 2 << "de";
}

void TestStatusMenu::choosingByCode()
{
    QFETCH(bool, alternative);
    QFETCH(int, position);
    QFETCH(int, times);
    QFETCH(QString, code);

    QAction *parent =
        alternative ? m_menu->destLanguageMenuItem2() : m_menu->destLanguageMenuItem();
    for (int i = 0; i < times; ++i)
        parent->menu()->actions().at(position)->trigger();

    QCOMPARE(alternative ? m_languages->currentDstLanguageCode2()
                         : m_languages->currentDstLanguageCode(),
             code);
    const QList<QAction *> items = parent->menu()->actions();
    for (int i = 0; i < items.size(); ++i)
        QCOMPARE(items[i]->isChecked(), i == position);
    // The other submenu is left alone.
    QAction *other = alternative ? m_menu->destLanguageMenuItem() : m_menu->destLanguageMenuItem2();
    for (QAction *otherItem : other->menu()->actions())
        QVERIFY(!otherItem->isChecked());
}

void TestStatusMenu::sessionLimitsAreToldAndReplaced()
{
    QMenu *menu = m_menu->statusItemMenuAppTrusted();
    const int itemsBefore = int(menu->actions().size());
    m_menu->showSessionLimits({QStringLiteral("no gesture"), QStringLiteral("no capture")});
    QCOMPARE(menu->actions().at(0)->text(), QStringLiteral("no gesture"));
    QVERIFY(!menu->actions().at(0)->isEnabled());
    QVERIFY(menu->actions().at(2)->isSeparator());
    m_menu->showSessionLimits({});
    QCOMPARE(menu->actions().size(), itemsBefore);

    QAction *preferences = m_menu->keyboardPreferencesMenuItem();
    StatusMenu::showUnavailable(preferences, QStringLiteral("why"));
    QVERIFY(!preferences->isEnabled());
    QCOMPARE(preferences->toolTip(), QStringLiteral("why"));
}

QTEST_MAIN(TestStatusMenu)
#include "tst_statusmenu.moc"
