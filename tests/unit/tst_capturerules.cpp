// The rules of text capture that need no other application.

#include "DataRows.h"

#include "platform/atspi/AccessibilityBusWatcher.h"
#include "platform/atspi/MenuKeyBinding.h"
#include "platform/atspi/UIElementUtilities.h"
#include "platform/x11/SyntheticKeyEvents.h"
#include "pointing/ChildAtPoint.h"
#include "text/CandidateTexts.h"
#include "text/Paragraphs.h"
#include "text/PrimarySelectionRule.h"

#include <QGuiApplication>
#include <QScreen>
#include <QtTest>

using Candidates = QList<std::optional<QString>>;
Q_DECLARE_METATYPE(Candidates)
Q_DECLARE_METATYPE(std::optional<QString>)
Q_DECLARE_METATYPE(std::optional<MenuKeyBinding>)
using Children = QList<ChildAtPoint::Child>;
Q_DECLARE_METATYPE(Children)

namespace QTest {
template <> char *toString(const std::optional<QString> &value)
{
    return qstrdup(value ? qPrintable(QStringLiteral("\"%1\"").arg(*value)) : "nullopt");
}
template <> char *toString(const std::optional<MenuKeyBinding> &value)
{
    return qstrdup(
        value ? qPrintable(QStringLiteral("%1 modifiers %2").arg(value->key).arg(value->modifiers))
              : "nullopt");
}
} // namespace QTest

class TestCaptureRules : public QObject
{
    Q_OBJECT

private slots:
    void longestTextWithLetters_data()
    {
        DataRows::addColumns<Candidates, std::optional<QString>>("candidates", "expected");

        const std::optional<QString> none;
        QTest::newRow("help text longer than the title")
            << Candidates{none, QStringLiteral("OK"), QStringLiteral("Click to confirm"), none}
            << std::optional<QString>(QStringLiteral("Click to confirm"));
        QTest::newRow("equal lengths: the value first")
            << Candidates{QStringLiteral("abc"), QStringLiteral("xyz"), none, none}
            << std::optional<QString>(QStringLiteral("abc"));
        QTest::newRow("digits only lose to a shorter word")
            << Candidates{QStringLiteral("1234567890"), none, none, QStringLiteral("Volume")}
            << std::optional<QString>(QStringLiteral("Volume"));
        QTest::newRow("punctuation and symbols only: nothing")
            << Candidates{QStringLiteral("42 % — 3.5"), QStringLiteral("++"), none, QString()}
            << none;
        QTest::newRow("lengths in UTF-16 units: an emoji counts two")
            << Candidates{QStringLiteral("ab🙂"), QStringLiteral("abcd"), none, none}
            << std::optional<QString>(QStringLiteral("ab🙂"));
        QTest::newRow("a letter outside the BMP is one; emoji are none")
            << Candidates{QStringLiteral("😀👍"), QStringLiteral("\U0001D400"), none, none}
            << std::optional<QString>(QStringLiteral("\U0001D400"));
    }

    void longestTextWithLetters()
    {
        auto [candidates, expected] =
            DataRows::fetch<Candidates, std::optional<QString>>("candidates", "expected");
        QCOMPARE(::longestTextWithLetters(candidates), expected);
    }

    void childSearchOrder_data()
    {
        DataRows::addColumns<Children, QList<int>>("children", "expected");

        // The point is (50, 50).
        const auto shownAt = [](QRect extents) {
            return ChildAtPoint::Child{true, ChildAtPoint::fromReportedExtents(extents)};
        };
        const ChildAtPoint::Child hidden{false, QRect(0, 0, 100, 100)};
        const QRect view(0, 0, 200, 200);
        QTest::newRow("a hidden first child over the view is left out")
            << Children{hidden, shownAt(view)} << QList<int>{1};
        QTest::newRow("the smallest that contains the point first; of equal ones the later")
            << Children{shownAt(view), shownAt({40, 40, 20, 20}), shownAt({40, 40, 20, 20})}
            << QList<int>{2, 1, 0};
        QTest::newRow("a tab at (-1, -1, -1, -1) after those that contain the point")
            << Children{shownAt({-1, -1, -1, -1}), shownAt(view)} << QList<int>{1, 0};
        QTest::newRow("no extents, or extents elsewhere: left out")
            << Children{shownAt({50, 50, 0, 0}), shownAt({300, 0, 50, 50}), {true, QRect()}}
            << QList<int>{};
    }

    void childSearchOrder()
    {
        auto [children, expected] = DataRows::fetch<Children, QList<int>>("children", "expected");
        QCOMPARE(ChildAtPoint::searchOrder(children, QPoint(50, 50)), expected);
    }

    void paragraphAround_data()
    {
        // offset in characters, as AT-SPI counts them
        DataRows::addColumns<QString, int, std::optional<QString>>("text", "offset", "expected");
        const auto row = [](const char *name, const QString &text, int offset,
                            const std::optional<QString> &expected) {
            QTest::newRow(name) << text << offset << expected;
        };

        const QString three = QStringLiteral("One.\nTwo words.\nThree.");
        row("inside the second of three", three, 7, std::optional<QString>("Two words."));
        row("on a line break: the paragraph it ends", three, 4, std::optional<QString>("One."));
        row("past the end: the last paragraph", three, 22, std::optional<QString>("Three."));
        row("CR LF is one break", QStringLiteral("One.\r\nTwo."), 5,
            std::optional<QString>("One."));
        row("a blank line: nothing", QStringLiteral("One.\n  \nTwo."), 6, std::optional<QString>());
        row("characters, not UTF-16 units: after an emoji", QStringLiteral("🙂 a\u2029b"), 4,
            std::optional<QString>("b"));
    }

    void paragraphAround()
    {
        auto [text, offset, expected] =
            DataRows::fetch<QString, int, std::optional<QString>>("text", "offset", "expected");
        const qsizetype position = Paragraphs::positionOfCharacter(text, offset).value_or(-1);
        const auto span = Paragraphs::paragraphAround(text, position);
        QCOMPARE(span ? std::optional<QString>(text.sliced(span->start, span->end - span->start))
                      : std::nullopt,
                 expected);
        if (span)
            QCOMPARE(Paragraphs::characterOfPosition(text, position), qsizetype(offset));
    }

    void menuKeyBinding_data()
    {
        DataRows::addColumns<QString, std::optional<MenuKeyBinding>>("keyBinding", "expected");

        const auto binding = [](const QString &key, int modifiers) {
            return std::optional<MenuKeyBinding>(MenuKeyBinding{key, modifiers});
        };
        const std::optional<MenuKeyBinding> none;
        QTest::newRow("GTK: mnemonic, path, accelerator")
            << "c;<Alt>e:c;<Primary>c" << binding(QStringLiteral("C"), 0);
        QTest::newRow("GTK: <Control> spelled out")
            << ";;<Control>c" << binding(QStringLiteral("C"), 0);
        QTest::newRow("GTK: Shift+Ctrl+C is not Copy")
            << ";;<Primary><Shift>c" << binding(QStringLiteral("C"), MenuKeyBinding::kShift);
        QTest::newRow("GTK: menu title with a mnemonic only") << "<Alt>e;<Alt>e;" << none;
        QTest::newRow("Qt: Ctrl+Shift+V")
            << "Ctrl+Shift+V" << binding(QStringLiteral("V"), MenuKeyBinding::kShift);
        QTest::newRow("Qt: Alt+E has no command modifier")
            << "Alt+E"
            << binding(QStringLiteral("E"), MenuKeyBinding::kAlt | MenuKeyBinding::kNoCommand);
        QTest::newRow("Qt: Ctrl++ is the plus key") << "Ctrl++" << binding(QStringLiteral("+"), 0);
        QTest::newRow("Qt: Ctrl+F5 keeps the key name")
            << "Ctrl+F5" << binding(QStringLiteral("F5"), 0);
        QTest::newRow("bare key is no accelerator") << "C" << none;
        QTest::newRow("unknown modifier") << "Hyper+C" << none;
    }

    void menuKeyBinding()
    {
        auto [keyBinding, expected] =
            DataRows::fetch<QString, std::optional<MenuKeyBinding>>("keyBinding", "expected");
        QCOMPARE(MenuKeyBinding::parse(keyBinding), expected);
    }

    void pointConversion_data()
    {
        DataRows::addColumns<QPointF, QPointF>("point", "expected");

        const QRect screen = QGuiApplication::primaryScreen()->geometry();
        QTest::newRow("inside: unchanged, nothing flips") << QPointF(100.5, 7) << QPointF(100.5, 7);
        QTest::newRow("right of every screen: (0, 0)")
            << QPointF(screen.right() + 50, 10) << QPointF(0, 0);
    }

    void pointConversion()
    {
        auto [point, expected] = DataRows::fetch<QPointF, QPointF>("point", "expected");
        QCOMPARE(UIElementUtilities::carbonScreenPointFromCocoaScreenPoint(point), expected);
    }

    // The bus is told by its GUID: a restarted bus has the same path and a new GUID.
    void busServerId_data()
    {
        DataRows::addColumns<QString, QString>("address", "expected");
        QTest::newRow("path, then guid") << "unix:path=/run/user/1000/at-spi/bus_0,guid=0a1b2c"
                                         << "0a1b2c";
        QTest::newRow("guid first") << "unix:guid=0a1b2c,path=/tmp/bus"
                                    << "0a1b2c";
        QTest::newRow("guid in the second transport")
            << "unix:path=/gone;tcp:host=localhost,port=1,guid=ff"
            << "ff";
        QTest::newRow("no guid") << "unix:path=/tmp/bus" << QString();
        QTest::newRow("a path that holds the word") << "unix:path=/tmp/guid=x" << QString();
    }

    void busServerId()
    {
        auto [address, expected] = DataRows::fetch<QString, QString>("address", "expected");
        QCOMPARE(AccessibilityBusWatcher::serverIdOfAddress(address), expected);
    }

    // Captures in order, each "<answer><changes so far>": S shown, N none shown, U unknown, T no
    // tree; the expected freshness of each, + or -.
    void primarySelectionFreshness_data()
    {
        DataRows::addColumns<QString, QString>("captures", "expected");
        const auto row = [](const char *name, const QString &captures, const QString &expected) {
            QTest::newRow(name) << captures << expected;
        };

        row("set before the first capture", "U0", "-");
        row("kept since the last capture: a cleared selection", "S1 U1", "--");
        row("the application said none, then a new selection", "N3 U3 U4", "--+");
        row("no accessibility tree: whenever owned", "T1 T1 U1", "++-");
    }

    void primarySelectionFreshness()
    {
        auto [captures, expected] = DataRows::fetch<QString, QString>("captures", "expected");
        static const QString kAnswers = QStringLiteral("SNUT");
        PrimarySelectionRule rule;
        QString fresh;
        for (const QString &capture : captures.split(u' '))
            fresh += rule.isFresh(AccessibleSelection(kAnswers.indexOf(capture[0])),
                                  capture.mid(1).toULongLong())
                         ? u'+'
                         : u'-';
        QCOMPARE(fresh, expected);
    }

    // Steps: "a+37" announces a press of key code 37, "e-37" is an XTest release arriving, "m"
    // marks, "x" expires (up to the mark, if any); each arriving event is passed over (P) or
    // reported (R).
    void ownSyntheticKeys_data()
    {
        DataRows::addColumns<QString, QString>("steps", "expected");
        const auto row = [](const char *name, const QString &steps, const QString &expected) {
            QTest::newRow(name) << steps << expected;
        };

        row("own Ctrl+V", "a+37 a+55 a-55 a-37 e+37 e+55 e-55 e-37", "PPPP");
        row("another client's Control release after ours", "a+37 a-37 e+37 e-37 e-37", "PPR");
        row("a look-alike takes ours, ours is reported in its place", "a-37 e-37 e-37", "PR");
        row("a press the server dropped expires; key and direction count",
            "a+37 a-37 e-37 x e+37 a+37 e-37 e+105", "PRRR");
        row("a later batch outlives the expiry of an earlier one", "a+37 m a-37 x e+37 e-37", "RP");
    }

    void ownSyntheticKeys()
    {
        auto [steps, expected] = DataRows::fetch<QString, QString>("steps", "expected");
        SyntheticKeyFilter filter;
        std::optional<quint64> mark;
        QString seen;
        for (const QString &step : steps.split(u' ')) {
            const bool press = step.mid(1, 1) == u"+";
            const auto keyCode = quint8(step.mid(2).toUInt());
            if (step[0] == u'a')
                filter.announce(keyCode, press);
            else if (step[0] == u'e')
                seen += filter.passOver(keyCode, press) ? u'P' : u'R';
            else if (step[0] == u'm')
                mark = filter.mark();
            else
                filter.expire(mark);
        }
        QCOMPARE(seen, expected);
    }
};

QTEST_MAIN(TestCaptureRules)
#include "tst_capturerules.moc"
