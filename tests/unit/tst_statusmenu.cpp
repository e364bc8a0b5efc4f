#include "languages/LanguageTable.h"
#include "settings/Preferences.h"
#include "ui/StatusMenu.h"

#include <QApplication>
#include <QTemporaryDir>
#include <QTest>

// The status menus as built, and as they follow the language choices.
class TestStatusMenu : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void fullMenuItems();
    void shortMenuItems();
    void languageSubmenus();
    void autostartMarkFollowsBuild_data();
    void autostartMarkFollowsBuild();
    void choosingByPosition_data();
    void choosingByPosition();
    void choosingTheSameLanguageTwice();
    void attachedMenuFollowsTrust();

private:
    // What the application controller does with a language item: the entry at the item's
    // position in its menu becomes the choice.
    void choose(QAction *item, bool alternative);

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
            [this](QAction *item) { choose(item, false); });
    connect(m_menu.get(), &StatusMenu::language2ItemTriggered, this,
            [this](QAction *item) { choose(item, true); });
}

void TestStatusMenu::cleanup()
{
    m_menu.reset();
    m_languages.reset();
    m_preferences.reset();
    m_dir.reset();
}

void TestStatusMenu::choose(QAction *item, bool alternative)
{
    const int position = StatusMenu::positionInMenu(item);
    QVERIFY(position >= 0);
    const LanguageEntry entry = LanguageTable::entries().at(position);
    if (alternative)
        m_languages->setLanguage2(entry);
    else
        m_languages->setLanguage(entry);
}

void TestStatusMenu::fullMenuItems()
{
    const QList<QAction *> items = m_menu->statusItemMenuAppTrusted()->actions();
    QCOMPARE(items.size(), 5);
    const QString gb = QString::fromUtf8("\U0001F1EC\U0001F1E7");
    QCOMPARE(items[0]->text(), QStringLiteral("My Tolkaro"));
    QCOMPARE(items[1]->text(), gb + QStringLiteral(" Destination Language"));
    // Before the first choice the alternative item reads with a small "destination".
    QCOMPARE(items[2]->text(), gb + QStringLiteral(" Alternative destination Language"));
    QVERIFY(items[3]->isSeparator());
    QCOMPARE(items[4]->text(), QStringLiteral("Quit Tolkaro"));
    QCOMPARE(items[1], m_menu->destLanguageMenuItem());
    QCOMPARE(items[2], m_menu->destLanguageMenuItem2());

    QVERIFY(items[0]->menu());
    QStringList mine;
    for (QAction *item : items[0]->menu()->actions())
        mine << item->text();
    QCOMPARE(mine, (QStringList{QStringLiteral("Check for updates..."),
                                QStringLiteral("Autostart when the desktop starts"),
                                QStringLiteral("Keyboard Preferences...")}));
    for (QAction *item : m_menu->statusItemMenuAppTrusted()->actions())
        QVERIFY(item->shortcut().isEmpty());
}

void TestStatusMenu::shortMenuItems()
{
    QStringList titles;
    for (QAction *item : m_menu->statusItemMenuAppNotTrusted()->actions())
        titles << item->text();
    QCOMPARE(titles,
             (QStringList{QStringLiteral("Make Tolkaro trusted"), QStringLiteral("Quit Tolkaro")}));
}

void TestStatusMenu::languageSubmenus()
{
    const QList<QAction *> destination = m_menu->destLanguageMenuItem()->menu()->actions();
    const QList<QAction *> alternative = m_menu->destLanguageMenuItem2()->menu()->actions();
    QCOMPARE(destination.size(), 38);
    QCOMPARE(alternative.size(), 38);
    for (int i = 0; i < 38; ++i) {
        const LanguageEntry &entry = LanguageTable::entries().at(i);
        QCOMPARE(destination[i]->text(), entry.flag + QLatin1Char(' ') + entry.name);
        QCOMPARE(alternative[i]->text(), destination[i]->text());
        QVERIFY(destination[i]->isCheckable());
        QVERIFY(!destination[i]->isChecked());
    }
    // Catalan and Spanish share a flag; only their names tell them apart.
    QCOMPARE(destination[2]->text().left(4), destination[32]->text().left(4));
}

void TestStatusMenu::autostartMarkFollowsBuild_data()
{
    QTest::addColumn<bool>("launchAtLogin");
    QTest::newRow("set to start at login") << true;
    QTest::newRow("not set") << false;
}

void TestStatusMenu::autostartMarkFollowsBuild()
{
    QFETCH(bool, launchAtLogin);
    StatusMenu menu;
    menu.addStatusBarItem(launchAtLogin);
    QVERIFY(menu.autostartMenuItem()->isCheckable());
    QCOMPARE(menu.autostartMenuItem()->isChecked(), launchAtLogin);
}

void TestStatusMenu::choosingByPosition_data()
{
    QTest::addColumn<bool>("alternative");
    QTest::addColumn<int>("position");
    QTest::addColumn<QString>("code");
    QTest::addColumn<QString>("title");

    QTest::newRow("German as destination")
        << false << 13 << QStringLiteral("de")
        << QString::fromUtf8("\U0001F1E9\U0001F1EA Destination Language");
    QTest::newRow("Spanish, not Catalan, despite the same flag")
        << false << 32 << QStringLiteral("es")
        << QString::fromUtf8("\U0001F1EA\U0001F1F8 Destination Language");
    QTest::newRow("French as destination")
        << false << 12 << QStringLiteral("fr")
        << QString::fromUtf8("\U0001F1EB\U0001F1F7 Destination Language");
    QTest::newRow("Thai as alternative")
        << true << 34 << QStringLiteral("th")
        << QString::fromUtf8("\U0001F1F9\U0001F1ED Alternative Destination Language");
    QTest::newRow("Vietnamese, the last item, as alternative")
        << true << 37 << QStringLiteral("vi")
        << QString::fromUtf8("\U0001F1FB\U0001F1F3 Alternative Destination Language");
}

void TestStatusMenu::choosingByPosition()
{
    QFETCH(bool, alternative);
    QFETCH(int, position);
    QFETCH(QString, code);
    QFETCH(QString, title);

    QAction *parent =
        alternative ? m_menu->destLanguageMenuItem2() : m_menu->destLanguageMenuItem();
    QAction *item = parent->menu()->actions().at(position);
    item->trigger();

    QCOMPARE(alternative ? m_languages->currentDstLanguageCode2()
                         : m_languages->currentDstLanguageCode(),
             code);
    QCOMPARE(parent->text(), title);
    const QList<QAction *> items = parent->menu()->actions();
    for (int i = 0; i < items.size(); ++i)
        QCOMPARE(items[i]->isChecked(), i == position);
    // The other submenu is left alone.
    QAction *other = alternative ? m_menu->destLanguageMenuItem() : m_menu->destLanguageMenuItem2();
    for (QAction *otherItem : other->menu()->actions())
        QVERIFY(!otherItem->isChecked());
}

void TestStatusMenu::choosingTheSameLanguageTwice()
{
    QAction *german = m_menu->destLanguageMenuItem()->menu()->actions().at(13);
    german->trigger();
    // A checkable item unchecks itself when triggered while checked; the choice puts it back.
    german->trigger();
    int checked = 0;
    for (QAction *item : m_menu->destLanguageMenuItem()->menu()->actions())
        checked += item->isChecked() ? 1 : 0;
    QCOMPARE(checked, 1);
    QVERIFY(german->isChecked());
    QCOMPARE(m_preferences->previouslyUsedLanguageCode(),
             std::optional<QString>(QStringLiteral("de")));
}

void TestStatusMenu::attachedMenuFollowsTrust()
{
    QCOMPARE(m_menu->attachedMenu(), m_menu->statusItemMenuAppTrusted());
    m_menu->showMenuForTrust(false);
    QCOMPARE(m_menu->attachedMenu(), m_menu->statusItemMenuAppNotTrusted());
    m_menu->showMenuForTrust(true);
    QCOMPARE(m_menu->attachedMenu(), m_menu->statusItemMenuAppTrusted());
}

QTEST_MAIN(TestStatusMenu)
#include "tst_statusmenu.moc"
