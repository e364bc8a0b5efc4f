#include "capture/AccessibilityManager.h"

#include "capture/ClipboardSnapshot.h"
#include "platform/TextCaptureBackend.h"
#include "platform/Platform.h"
#include "platform/PointerLocator.h"
#include "common/Log.h"
#include "platform/atspi/AtspiCall.h"
#include "platform/atspi/UIElementHitTest.h"
#include "platform/atspi/UIElementText.h"
#include "platform/atspi/UIElementUtilities.h"
#include "text/CandidateTexts.h"
#include "text/CopiedPassage.h"
#include "text/PrimarySelectionRule.h"
#include "text/StringHelpers.h"

#include <QClipboard>
#include <QCursor>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QGuiApplication>
#include <QMimeData>
#include <QTimer>

#include <chrono>
#include <memory>

using namespace std::chrono_literals;

namespace {

// Time given to another application to act on a menu press or keystroke.
constexpr auto kSettleDelay = 150ms;
// How much longer than the settle a copy waits for the target to take the clipboard.
constexpr auto kLateCopyWait = 350ms;
// How much longer than the settle a paste waits for the target to read the clipboard.
constexpr auto kLatePasteWait = 850ms;
// How long a synthetic paste waits for the user to let go of the modifier keys.
constexpr auto kModifierReleaseWait = 2000ms;
// How often the waits beyond the settle look again.
constexpr auto kPollInterval = 10ms;
// How many elements the search for menu bars looks at, and how deep menus nest.
constexpr int kMenuBarSearchBudget = 200;
constexpr int kMenuBarSearchDepth = 4;
constexpr int kMenuDepth = 4;

// The texts a capture chooses from, in their order of preference.
constexpr UIElementTextAttribute kTextAttributes[] = {
    UIElementTextAttribute::Value, UIElementTextAttribute::Title, UIElementTextAttribute::Help,
    UIElementTextAttribute::Description};

// Serves events until the condition holds or the wait is over.
void waitUntil(const std::function<bool()> &condition, std::chrono::milliseconds maxWait)
{
    QElapsedTimer waited;
    waited.start();
    while (!condition() && waited.elapsed() < maxWait.count()) {
        QEventLoop loop;
        QTimer::singleShot(kPollInterval, &loop, &QEventLoop::quit);
        loop.exec();
    }
}

bool clipboardHasData()
{
    const QMimeData *data = QGuiApplication::clipboard()->mimeData(QClipboard::Clipboard);
    return data && !data->formats().isEmpty();
}

bool isMatchingMenuItem(const UIElement &item, const QString &key)
{
    // Command key and modifiers first, then enabled: most items fail at the first test.
    const std::optional<MenuKeyBinding> binding = UIElementUtilities::menuKeyBindingOfUIElement(item);
    if (!binding || binding->key != key || binding->modifiers != 0)
        return false;
    return UIElementUtilities::statesOfUIElement(item).testFlag(UIElementState::Enabled);
}

void collectMenuItems(const UIElement &container, const QString &key, int depth,
                      QList<UIElement> &found)
{
    if (depth > kMenuDepth)
        return;
    for (const UIElement &child : UIElementUtilities::childrenOfUIElement(container)) {
        const UIElementRole role = UIElementUtilities::roleOfUIElement(child);
        if (role == UIElementRole::Menu) {
            collectMenuItems(child, key, depth + 1, found);
        } else if (role == UIElementRole::MenuItem) {
            // Qt puts a submenu under its menu-bar item; GTK makes that item the menu.
            if (isMatchingMenuItem(child, key))
                found.append(child);
            else
                collectMenuItems(child, key, depth + 1, found);
        }
    }
}

// The enabled menu-bar items of the application whose accelerator is Ctrl and the key.
// Linux menu bars have no fixed order of menus, so items are found by accelerator.
QList<UIElement> menuCommandsOf(const UIElement &application, const QString &key)
{
    return AtspiCall::run<QList<UIElement>>([=] {
        QList<UIElement> found;
        if (!UIElementUtilities::isApplicationUIElement(application))
            return found;
        // Menu bars sit inside the windows, a few levels down.
        QList<QPair<UIElement, int>> queue{{application, 0}};
        int budget = kMenuBarSearchBudget;
        while (!queue.isEmpty() && budget-- > 0 && !AtspiCall::gaveUpOnThisThread()) {
            const auto [element, depth] = queue.takeFirst();
            const UIElementRole role = UIElementUtilities::roleOfUIElement(element);
            if (role == UIElementRole::MenuBar) {
                collectMenuItems(element, key, 0, found);
                continue;
            }
            if (depth >= kMenuBarSearchDepth || role == UIElementRole::Menu ||
                role == UIElementRole::MenuItem)
                continue;
            for (const UIElement &child : UIElementUtilities::childrenOfUIElement(element))
                queue.append({child, depth + 1});
        }
        return found;
    });
}

std::optional<QString> clipboardText()
{
    const QMimeData *data = QGuiApplication::clipboard()->mimeData(QClipboard::Clipboard);
    if (!data || !data->hasText())
        return std::nullopt;
    // GTK writes text/plain with CRLF line ends, as the MIME type asks; the text itself has LF.
    return data->text().replace(QLatin1String("\r\n"), QLatin1String("\n"));
}

// What AT-SPI says about the application's selection.
struct SelectionAnswer
{
    std::optional<QString> text;
    // The application reports a focused element...
    bool focusReported = false;
    // ...that speaks the Text interface: its answer, even "no selection", is the truth.
    // PRIMARY may hold a selection the application has since dropped (GTK 4 keeps serving
    // it), and its Copy command would find nothing either.
    bool focusHasText = false;

    AccessibleSelection shown() const
    {
        return text           ? AccessibleSelection::Shown
               : focusHasText ? AccessibleSelection::NoneShown
                              : AccessibleSelection::Unknown;
    }
};

SelectionAnswer accessibleSelection(const UIElement &application, const UIElement &element)
{
    return AtspiCall::run<SelectionAnswer>([=] {
        SelectionAnswer answer;
        answer.text = UIElementText::selectedText(element);
        if (answer.text)
            return answer;
        const UIElement focused = UIElementUtilities::focusedUIElementOfApplication(application);
        if (!focused)
            return answer;
        answer.focusReported = true;
        answer.focusHasText = UIElementText::characterCount(focused).has_value();
        answer.text = UIElementText::selectedText(focused);
        return answer;
    });
}

// Whether PRIMARY stands for the selection the application shows now; kept across captures.
bool primaryIsFresh(AccessibleSelection answer)
{
    static PrimarySelectionRule rule;
    return rule.isFresh(answer, TextCaptureBackend::instance().primarySelectionChanges());
}

// PRIMARY's text when the application (its process, or the window under the point) owns it.
std::optional<QString> primarySelectionOf(qint64 pid, const QPoint &screenPoint)
{
    TextCaptureBackend &backend = TextCaptureBackend::instance();
    if ((pid == 0 || backend.primarySelectionOwnerProcess() != pid) &&
        !backend.primarySelectionOwnedAt(screenPoint))
        return std::nullopt;
    // Read on the backend's own connection: Qt's asks with the time of the last event it saw,
    // which Xt programs (xterm) refuse as older than their selection.
    std::optional<QString> primary = backend.primarySelectionText();
    if (!primary)
        primary = QGuiApplication::clipboard()->text(QClipboard::Selection);
    return primary->isEmpty() ? std::nullopt : primary;
}

// The application's selection, by the first of its sources that answers.
std::optional<QString> applicationSelection(const UIElement &application, const UIElement &element,
                                            const QPoint &screenPoint)
{
    const SelectionAnswer answer = accessibleSelection(application, element);
    if (AtspiCall::gaveUp())
        return answer.text;
    const qint64 pid = UIElementUtilities::processIdentifierOfUIElement(application);
    const bool primaryFresh = primaryIsFresh(answer.shown());
    if (answer.text || answer.focusHasText)
        return answer.text;
    if (primaryFresh) {
        if (std::optional<QString> primary = primarySelectionOf(pid, screenPoint))
            return primary;
    }
    // Without a reported focus, Copy would act blind: a window the user is not in has none,
    // and GTK 3 stops reporting it after a menu command was pressed through AT-SPI (until the
    // focus moves) while the keyboard stays where it was.
    if (!answer.focusReported)
        return std::nullopt;
    return AccessibilityManager::clickCopyMenuCommandForApplicationThatContainsAXElement(element);
}

// The four attribute texts, in order, the element's text being what lies under the pointer:
// the paragraph there, or the whole text when it is one paragraph. A paragraph of several
// is what the user points at, and stands alone: a view's name must not win over it for
// being longer.
QList<std::optional<QString>> attributeTexts(const UIElement &element, const QPoint &screenPoint,
                                             const TextCaptureBackend::WindowAtPoint &window)
{
    return AtspiCall::run<QList<std::optional<QString>>>([=] {
        QList<std::optional<QString>> texts;
        for (const UIElementTextAttribute attribute : kTextAttributes) {
            if (attribute == UIElementTextAttribute::Value) {
                if (const auto pointed =
                        UIElementText::textAtScreenPoint(element, screenPoint, window.origin,
                                                         window.windowRelative)) {
                    if (pointed->paragraphOfSeveral && pointed->text &&
                        StringHelpers::containsLetters(*pointed->text))
                        return QList<std::optional<QString>>{pointed->text};
                    texts.append(pointed->text);
                    continue;
                }
            }
            texts.append(UIElementUtilities::descriptionForUIElement(element, attribute));
        }
        return texts;
    });
}

// The text to paste, as served to the target: it tells when the target has read it.
class ServedText : public QMimeData
{
public:
    explicit ServedText(std::shared_ptr<bool> read) : m_read(std::move(read)) {}

protected:
    QVariant retrieveData(const QString &format, QMetaType type) const override
    {
        *m_read = true;
        return QMimeData::retrieveData(format, type);
    }

private:
    std::shared_ptr<bool> m_read;
};

void pasteThroughClipboard(const QString &text, const std::function<void()> &press)
{
    const ClipboardSnapshot saved = ClipboardSnapshot::save();
    ClipboardSnapshot::clearContents();
    auto read = std::make_shared<bool>(false);
    auto *served = new ServedText(read);
    served->setText(text);
    QGuiApplication::clipboard()->setMimeData(served, QClipboard::Clipboard);
    // A paste before the hand-over would read the cleared clipboard.
    if (const auto handOver = TextCaptureBackend::instance().clipboardHandOverDelay();
        handOver.count() > 0)
        waitUntil([] { return false; }, handOver);
    press();
    AccessibilityManager::settle();
    // X11 applications read the clipboard asynchronously, and a busy one may ask after the
    // settle: restoring then would paste the user's own clipboard into their document.
    waitUntil([read] { return *read; }, kLatePasteWait);
    saved.restore();
}

} // namespace

CapturedText AccessibilityManager::getStringForCurrentUIElement()
{
    TextCaptureBackend &backend = TextCaptureBackend::instance();
    if (!backend.isValid()) {
        tolkaro::logLine(QStringLiteral("element is nil"));
        return {};
    }
    AtspiCall::beginWork();
    // Qt's own idea of the pointer goes stale over Wayland windows: the session's is asked.
    const QPoint pointer =
        Platform::instance().pointerLocator().pointerPosition().value_or(QCursor::pos());
    const QPoint screenPoint =
        UIElementUtilities::carbonScreenPointFromCocoaScreenPoint(pointer).toPoint();
    const TextCaptureBackend::WindowAtPoint window = backend.windowAtPoint(screenPoint);
    UIElement application = UIElementUtilities::applicationElementForProcess(window.pid);
    // A program without accessibility (xterm, Xt and Motif programs) gives its selection.
    if (!application && window.pid != 0 && !AtspiCall::gaveUp()) {
        const std::optional<QString> selection = primarySelectionOf(0, screenPoint);
        if (selection && StringHelpers::containsLetters(*selection) &&
            primaryIsFresh(AccessibleSelection::NoTree))
            return {selection, {}};
    }
    UIElement element =
        UIElementHitTest::elementAtScreenPoint(application, screenPoint, window.origin,
                                               window.windowRelative);
    if (!element && !AtspiCall::gaveUp()) {
        application = getActiveApplicationElement();
        element = UIElementUtilities::focusedWindowOfApplication(application);
        if (element)
            tolkaro::logLine(QStringLiteral("At least we found a focused window "));
    }
    if (!element) {
        tolkaro::logLine(QStringLiteral("element is nil"));
        return {};
    }

    std::optional<QString> selection = applicationSelection(application, element, screenPoint);
    if (selection && !StringHelpers::containsLetters(*selection))
        selection.reset();
    const QList<std::optional<QString>> texts = attributeTexts(element, screenPoint, window);
    return {selection ? selection : longestTextWithLetters(texts), element};
}

UIElement AccessibilityManager::getActiveApplicationElement()
{
    return UIElementUtilities::applicationElementForProcess(
        TextCaptureBackend::instance().activeWindowProcess());
}

std::optional<QString>
AccessibilityManager::clickCopyMenuCommandForApplicationThatContainsAXElement(const UIElement &element)
{
    const UIElement application = UIElementUtilities::applicationOfUIElement(element);
    std::optional<QString> result;
    for (const UIElement &item : menuCommandsOf(application, QStringLiteral("C"))) {
        const ClipboardSnapshot saved = ClipboardSnapshot::save();
        ClipboardSnapshot::clearContents();
        UIElementUtilities::performAction(UIElementAction::Press, item);
        settle();
        // A busy application copies late; its taking the clipboard says it has.
        waitUntil(clipboardHasData, kLateCopyWait);
        if (std::optional<QString> copied = clipboardText())
            result = copied;
        saved.restore();
    }
    return result;
}

void AccessibilityManager::clickPasteMenuCommandForApplicationThatContainsAXElement(
    const UIElement &element, const QString &text)
{
    AtspiCall::beginWork();
    clickPasteMenuCommandForApplicationAXElement(UIElementUtilities::applicationOfUIElement(element),
                                                 text);
}

void AccessibilityManager::clickPasteMenuCommandForApplicationAXElement(
    const UIElement &applicationElement, const QString &text)
{
    AtspiCall::beginWork();
    if (!UIElementUtilities::isApplicationUIElement(applicationElement))
        return;
    const bool clipboardReaches = TextCaptureBackend::instance().clipboardReachesActiveWindow();
    const QList<UIElement> items = clipboardReaches
                                       ? menuCommandsOf(applicationElement, QStringLiteral("V"))
                                       : QList<UIElement>();
    if (!items.isEmpty()) {
        for (const UIElement &item : items)
            pasteThroughClipboard(text, [&] {
                UIElementUtilities::performAction(UIElementAction::Press, item);
            });
        return;
    }
    const UIElement focused = UIElementUtilities::focusedUIElementOfApplication(applicationElement);
    if (UIElementText::replaceSelectedText(focused, text) || !clipboardReaches)
        return;
    // In a terminal Ctrl+V reaches the program as a control character, not as a paste.
    if (AtspiCall::gaveUp() ||
        UIElementUtilities::roleOfUIElement(focused) == UIElementRole::Terminal)
        return;
    // A synthetic Ctrl+V while the user still holds Ctrl+Alt would arrive as Ctrl+Alt+V.
    TextCaptureBackend &backend = TextCaptureBackend::instance();
    waitUntil([&backend] { return !backend.modifierKeysDown(); }, kModifierReleaseWait);
    pasteThroughClipboard(text, [&] { backend.sendControlKeystroke(Qt::Key_V); });
}

bool AccessibilityManager::isBooksAppActive(const QStringList &keystrokeCaptureApplications)
{
    const QString windowClass = TextCaptureBackend::instance().activeWindowClass();
    return !windowClass.isEmpty() && keystrokeCaptureApplications.contains(windowClass);
}

std::optional<QString> AccessibilityManager::getStringForBooksApp()
{
    TextCaptureBackend &backend = TextCaptureBackend::instance();
    // No Ctrl+Escape first: desktops bind it to their menu or task manager, which would take
    // the keyboard away from the reader before the Ctrl+C arrives.
    backend.releaseHeldModifiers();
    const ClipboardSnapshot saved = ClipboardSnapshot::save();
    ClipboardSnapshot::clearContents();
    backend.sendControlKeystroke(Qt::Key_C);
    settle();
    const std::optional<QString> copied = clipboardText();
    saved.restore();
    if (!copied)
        return std::nullopt;
    return cleanUpCopiedPassage(*copied);
}

void AccessibilityManager::settle()
{
    QEventLoop loop;
    QTimer::singleShot(kSettleDelay, &loop, &QEventLoop::quit);
    loop.exec();
}
