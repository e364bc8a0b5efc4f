// The popover: where it stands for a pointer on a screen, its text field's size, and the
// cross-fade from one text to the next; the status menus as built, and as they follow the
// language choices.

#include "DataRows.h"

#include "languages/LanguageTable.h"
#include "presentation/PopoverPlacement.h"
#include "settings/Preferences.h"
#include "ui/AnimatedSetString.h"
#include "ui/PopoverTextField.h"
#include "ui/StatusMenu.h"

#include <QApplication>
#include <QGraphicsOpacityEffect>
#include <QLabel>
#include <QMenu>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace AnimatedSetString;
using namespace PopoverPlacement;

namespace {

qreal opacityOf(QLabel &field)
{
    auto *effect = qobject_cast<QGraphicsOpacityEffect *>(field.graphicsEffect());
    return effect ? effect->opacity() : 1.0;
}

} // namespace

class TestPopover : public QObject
{
    Q_OBJECT
private slots:
    void placePopover_data()
    {
        DataRows::addColumns<QPoint, QSize, QRect, QPoint, bool>("pointer", "size", "screen",
                                                                 "topLeft", "above");

        const QRect screen(0, 0, 1280, 800);
        // At the pointer in the open is the gesture desktop test's, the margin at every edge the
        // invariant's below; here, the boundaries and what does not fit.
        QTest::newRow("bottom edge exactly reached: still below")
            << QPoint(600, 800 - kScreenMargin - 50 - kGapBelowPointer) << QSize(200, 50) << screen
            << QPoint(500, 800 - kScreenMargin - 50) << false;
        QTest::newRow("one pixel too low: above")
            << QPoint(600, 800 - kScreenMargin - 50 - kGapBelowPointer + 1) << QSize(200, 50)
            << screen << QPoint(500, 800 - kScreenMargin - 50 - kGapBelowPointer + 1 - 6 - 50)
            << true;
        QTest::newRow("wider than the screen: starts at its left")
            << QPoint(600, 100) << QSize(2000, 50) << screen << QPoint(kScreenMargin, 118) << false;
        QTest::newRow("fits neither side, more room above: clamped to the top")
            << QPoint(600, 500) << QSize(200, 700) << screen << QPoint(500, kScreenMargin) << true;
        QTest::newRow("fits neither side, more room below: clamped to the bottom")
            << QPoint(600, 300) << QSize(200, 700) << screen
            << QPoint(500, 800 - kScreenMargin - 700) << false;
        QTest::newRow("taller than the screen: starts at its top")
            << QPoint(600, 300) << QSize(200, 900) << screen << QPoint(500, kScreenMargin) << false;
    }

    void placePopover()
    {
        auto [pointer, size, screen, topLeft, above] =
            DataRows::fetch<QPoint, QSize, QRect, QPoint, bool>("pointer", "size", "screen",
                                                                "topLeft", "above");

        const Placement placement = PopoverPlacement::placePopover(pointer, size, screen);
        QCOMPARE(placement.topLeft, topLeft);
        QCOMPARE(placement.abovePointer, above);
    }

    void staysOnScreen_data()
    {
        QTest::addColumn<QRect>("screen");
        QTest::newRow("primary") << QRect(0, 0, 1280, 800);
        QTest::newRow("above and left of the primary, odd-sized") << QRect(-1023, -574, 1023, 611);
    }

    // Every pointer position on the screen gives a popover wholly on that screen, inside its
    // margin, which never covers the pointer's hot spot when it fits.
    void staysOnScreen()
    {
        QFETCH(QRect, screen);
        const QSize size(300, 120);
        const QRect inside =
            screen.adjusted(kScreenMargin, kScreenMargin, -kScreenMargin, -kScreenMargin);
        for (int x = screen.left(); x <= screen.right(); x += 37) {
            for (int y = screen.top(); y <= screen.bottom(); y += 29) {
                const Placement placement =
                    PopoverPlacement::placePopover(QPoint(x, y), size, screen);
                const QRect popover(placement.topLeft, size);
                QVERIFY2(inside.contains(popover),
                         qPrintable(QStringLiteral("pointer %1,%2").arg(x).arg(y)));
                QVERIFY2(!popover.contains(QPoint(x, y)),
                         qPrintable(QStringLiteral("covers pointer %1,%2").arg(x).arg(y)));
            }
        }
    }

    void colours()
    {
        QWidget window;
        QPalette palette = window.palette();
        palette.setColor(QPalette::WindowText, QColor(10, 20, 30));
        window.setPalette(palette);
        QLabel field(QStringLiteral("source"), &window);

        setAnimatedAttributedStringValue(&field,
                                         {QStringLiteral("Request timed out"), grayTextColor()});
        QTRY_COMPARE(field.text(), QStringLiteral("Request timed out"));
        QCOMPARE(field.palette().color(QPalette::WindowText), grayTextColor());

        // A plain change brings the window's own colour back.
        setAnimatedStringValue(&field, QStringLiteral("translation"));
        QTRY_COMPARE(field.text(), QStringLiteral("translation"));
        QCOMPARE(field.palette().color(QPalette::WindowText), QColor(10, 20, 30));
    }

    void lastChangeWins_data()
    {
        QTest::addColumn<bool>("secondAtOnce");

        QTest::newRow("second fade started during the first") << false;
        // A cancelled request's error must not land on the next gesture's text.
        QTest::newRow("value set at once during a fade") << true;
    }

    void lastChangeWins()
    {
        QFETCH(bool, secondAtOnce);

        QLabel field(QStringLiteral("a"));
        setAnimatedStringValue(&field, QStringLiteral("b"));
        QTest::qWait(100);
        if (secondAtOnce)
            setStringValue(&field, QStringLiteral("c"));
        else
            setAnimatedStringValue(&field, QStringLiteral("c"));
        QTRY_COMPARE(field.text(), QStringLiteral("c"));
        QTRY_COMPARE(opacityOf(field), 1.0);
        QTest::qWait(kFadeOutMilliseconds + kFadeInMilliseconds);
        QCOMPARE(field.text(), QStringLiteral("c"));
        QCOMPARE(opacityOf(field), 1.0);
    }

    void textFieldSize_data()
    {
        DataRows::addColumns<QString, bool>("text", "wraps");
        QTest::newRow("a short word: one line") << QStringLiteral("Hallo") << false;
        QTest::newRow("one long unbroken word: broken anywhere")
            << QStringLiteral("https://example.org/").append(QString(200, QLatin1Char('x')))
            << true;
    }

    void textFieldSize()
    {
        auto [text, wraps] = DataRows::fetch<QString, bool>("text", "wraps");
        PopoverTextField field;
        field.setMaximumTextWidth(200);
        field.setText(text);
        const QSize hint = field.sizeHint();
        const int lineSpacing = QFontMetrics(field.font()).lineSpacing();
        QVERIFY2(hint.width() <= 200 + 1, qPrintable(QString::number(hint.width())));
        QVERIFY(hint.height() >= lineSpacing);
        QCOMPARE(hint.height() > lineSpacing + 1, wraps);
    }

    void init()
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

    void cleanup()
    {
        m_menu.reset();
        m_languages.reset();
        m_preferences.reset();
        m_dir.reset();
    }

    // The trusted menu as the user meets it is read from the running tray in the tray desktop test.
    void untrustedMenuOffersTrustAndQuit()
    {
        m_menu->showMenuForTrust(false);
        QStringList titles;
        for (QAction *item : m_menu->attachedMenu()->actions())
            titles << item->text();
        QCOMPARE(titles, (QStringList{QStringLiteral("Make Tolkaro trusted"),
                                      QStringLiteral("Quit Tolkaro")}));
        m_menu->showMenuForTrust(true);
        QCOMPARE(m_menu->attachedMenu(), m_menu->statusItemMenuAppTrusted());
    }

    void choosingByCode_data()
    {
        DataRows::addColumns<bool, int, int, QString>("alternative", "position", "times", "code");

        QTest::newRow("Spanish, not Catalan, despite the same flag") << false << 32 << 1 << "es";
        QTest::newRow("Vietnamese, the last item, as alternative") << true << 37 << 1 << "vi";
        // A checkable item unchecks itself when triggered while checked; the choice puts it back.
        QTest::newRow("German twice stays checked") << false << 13 << 2 << "de";
    }

    void choosingByCode()
    {
        auto [alternative, position, times, code] =
            DataRows::fetch<bool, int, int, QString>("alternative", "position", "times", "code");

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
        QAction *other =
            alternative ? m_menu->destLanguageMenuItem() : m_menu->destLanguageMenuItem2();
        for (QAction *otherItem : other->menu()->actions())
            QVERIFY(!otherItem->isChecked());
    }

    void sessionLimitsAreToldAndReplaced()
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

private:
    // What the application controller does with a language item: the entry with the item's
    // code becomes the choice.
    void choose(const QString &code, bool alternative)
    {
        const std::optional<LanguageEntry> entry = LanguageTable::languageWithCode(code);
        QVERIFY(entry);
        if (alternative)
            m_languages->setLanguage2(*entry);
        else
            m_languages->setLanguage(*entry);
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Preferences> m_preferences;
    std::unique_ptr<LanguageSelection> m_languages;
    std::unique_ptr<StatusMenu> m_menu;
};

QTEST_MAIN(TestPopover)
#include "tst_popover.moc"
