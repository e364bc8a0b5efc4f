// A command-line probe of text capture, for trying an application by hand and for
// measuring: moves the pointer, captures, and prints what came back and how long it took.
//
//   tolkaro-capture-probe --capture-at X,Y        the text under the pointer at X,Y
//   tolkaro-capture-probe --describe-at X,Y       the full report of the element at X,Y
//   tolkaro-capture-probe --paste-into PID TEXT   pastes TEXT into the application PID
//   tolkaro-capture-probe --paste-at X,Y TEXT     captures at X,Y, then pastes TEXT where a
//                                                 translation would go, and prints the
//                                                 clipboard as it was left
//
// Coordinates are screen pixels. Exit status 1 when nothing was captured.

#include "capture/AccessibilityManager.h"
#include "platform/TextCaptureBackend.h"
#include "platform/atspi/UIElementHitTest.h"
#include "platform/atspi/UIElementUtilities.h"
#include "UIElementDescription.h"

#include <QClipboard>
#include <QCursor>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QStringList>
#include <QTextStream>

#include <cstdio>

namespace {

QPoint parsePoint(const QString &text)
{
    const QStringList parts = text.split(u',');
    return parts.size() == 2 ? QPoint(parts[0].toInt(), parts[1].toInt()) : QPoint();
}

void moveTo(const QPoint &point)
{
    QCursor::setPos(point);
    // Let the warp reach the server before anything asks where the pointer is.
    QCoreApplication::processEvents();
}

} // namespace

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    const QStringList args = app.arguments();
    QTextStream out(stdout);
    if (args.size() >= 3 && args[1] == u"--capture-at") {
        moveTo(parsePoint(args[2]));
        QElapsedTimer timer;
        timer.start();
        const std::optional<QString> text = AccessibilityManager::getStringForCurrentUIElement().text;
        const double ms = timer.nsecsElapsed() / 1e6;
        out << (text ? QStringLiteral("TEXT %1").arg(*text) : QStringLiteral("NONE")) << "\n"
            << QStringLiteral("MS %1").arg(ms, 0, 'f', 2) << "\n";
        return text ? 0 : 1;
    }
    if (args.size() >= 3 && args[1] == u"--describe-at") {
        const QPoint point = parsePoint(args[2]);
        TextCaptureBackend &backend = TextCaptureBackend::instance();
        const TextCaptureBackend::WindowAtPoint window = backend.windowAtPoint(point);
        const UIElement application = UIElementUtilities::applicationElementForProcess(window.pid);
        const UIElement element =
            UIElementHitTest::elementAtScreenPoint(application, point, window.origin);
        out << stringDescriptionOfUIElement(element);
        return element ? 0 : 1;
    }
    if (args.size() >= 4 && args[1] == u"--paste-into") {
        const UIElement application =
            UIElementUtilities::applicationElementForProcess(args[2].toLongLong());
        AccessibilityManager::clickPasteMenuCommandForApplicationAXElement(application, args[3]);
        return application ? 0 : 1;
    }
    if (args.size() >= 4 && args[1] == u"--paste-at") {
        moveTo(parsePoint(args[2]));
        const CapturedText captured = AccessibilityManager::getStringForCurrentUIElement();
        const std::optional<QString> &text = captured.text;
        out << (text ? QStringLiteral("TEXT %1").arg(*text) : QStringLiteral("NONE")) << "\n";
        QElapsedTimer timer;
        timer.start();
        AccessibilityManager::clickPasteMenuCommandForApplicationThatContainsAXElement(
            captured.target, args[3]);
        out << QStringLiteral("PASTE MS %1").arg(timer.nsecsElapsed() / 1e6, 0, 'f', 2) << "\n"
            << QStringLiteral("CLIPBOARD %1").arg(QGuiApplication::clipboard()->text()) << "\n";
        return text ? 0 : 1;
    }
    std::fprintf(stderr,
                 "usage: %s --capture-at X,Y | --describe-at X,Y | --paste-into PID TEXT | "
                 "--paste-at X,Y TEXT\n",
                 argv[0]);
    return 2;
}
