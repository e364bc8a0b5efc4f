#include "typing/SpotlightWindowController.h"

#include "typing/SpotlightWindow.h"
#include "typing/TSTTextGrowth.h"
#include "typing/TypingModeRules.h"

#include <QEvent>
#include <QGuiApplication>
#include <QLabel>
#include <QPropertyAnimation>
#include <QScreen>
#include <QToolButton>

using TypingModeRules::kPanelMargin;

namespace {

constexpr int kToggleButtonSize = 22;
constexpr int kResizeAnimationMs = 120;
// Where the panel first opens: centred, a fifth of the way down the screen.
constexpr int kFirstPlacementDivisor = 5;

// Lays the fields out whenever the growing field asks for a new height, so that the
// panel's re-layout timer finds the new height already applied.
class LayoutRequestFilter : public QObject
{
public:
    LayoutRequestFilter(std::function<void()> onRequest, QObject *parent)
        : QObject(parent), m_onRequest(std::move(onRequest))
    {
    }

protected:
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::LayoutRequest || event->type() == QEvent::Resize)
            m_onRequest();
        return false;
    }

private:
    std::function<void()> m_onRequest;
};

} // namespace

SpotlightWindowController::SpotlightWindowController(Platform &platform, QObject *parent)
    : QObject(parent)
{
    m_window = new SpotlightWindow(platform);
    m_window->setObjectName(QStringLiteral("SpotlightWindow"));
    m_window->setWindowTitle(QStringLiteral("Tolkaro typing mode"));
    m_window->setCornerRadius(kCornerRadius);

    QPalette palette = m_window->palette();
    palette.setColor(QPalette::Base, Qt::transparent);
    palette.setColor(QPalette::Text, Qt::white);
    palette.setColor(QPalette::WindowText, Qt::white);
    palette.setColor(QPalette::Highlight, QColor(255, 255, 255, 90));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    m_window->setPalette(palette);

    m_inputTextField = new TSTTextGrowth(m_window);
    m_inputTextField->setObjectName(QStringLiteral("inputTextField"));
    m_inputTextField->setAutoFillBackground(false);
    m_inputTextField->viewport()->setAutoFillBackground(false);
    QFont inputFont = m_inputTextField->font();
    inputFont.setPointSizeF(inputFont.pointSizeF() * 1.4);
    m_inputTextField->setFont(inputFont);

    m_detailsTextField = new QLabel(m_window);
    m_detailsTextField->setObjectName(QStringLiteral("detailsTextField"));
    m_detailsTextField->setWordWrap(true);
    m_detailsTextField->setTextFormat(Qt::PlainText);
    m_detailsTextField->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    m_detailsTextField->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_detailsTextField->setFont(inputFont);
    // Lines up with the input's text, which sits inside its document margin.
    m_detailsTextField->setContentsMargins(2, 0, 2, 0);

    m_toggleButton = new QToolButton(m_window);
    m_toggleButton->setObjectName(QStringLiteral("toggleButton"));
    m_toggleButton->setAutoRaise(true);
    m_toggleButton->setArrowType(Qt::DownArrow);
    m_toggleButton->setFocusPolicy(Qt::NoFocus);
    m_toggleButton->setToolTip(QStringLiteral("Show or hide the translation"));

    m_resizeAnimation = new QPropertyAnimation(m_window, "geometry", this);
    m_resizeAnimation->setDuration(kResizeAnimationMs);

    m_window->setKeyReceiver(m_inputTextField);
    m_window->installEventFilter(new LayoutRequestFilter([this] { layoutFields(); }, this));

    connect(m_inputTextField, &TSTTextGrowth::textDidChange, this,
            &SpotlightWindowController::controlTextDidChange);
    connect(m_inputTextField, &TSTTextGrowth::returnPressed, this,
            &SpotlightWindowController::searchTextFieldEnterPressed);
    connect(m_toggleButton, &QToolButton::clicked, this, &SpotlightWindowController::toggleButton);
    connect(m_window, &SpotlightWindow::cancelOperation, this,
            &SpotlightWindowController::cancelOperation);
    connect(m_window, &SpotlightWindow::didResignKey, this,
            &SpotlightWindowController::windowDidResignKey);
    connect(m_window, &SpotlightWindow::shortcutPressed, this,
            &SpotlightWindowController::shortcutPressed);
    connect(&m_timers, &EditTimers::relayoutDue, this, &SpotlightWindowController::updateViewSize);
    connect(&m_timers, &EditTimers::editingFinished, this,
            &SpotlightWindowController::postEditingFinished);

    windowDidLoad();
}

SpotlightWindowController::~SpotlightWindowController()
{
    delete m_window;
}

void SpotlightWindowController::windowDidLoad()
{
    m_isExpanded = false;
    m_detailsTextField->clear();
    QRect frame(0, 0, kPanelWidth, 0);
    if (const QScreen *screen = QGuiApplication::primaryScreen()) {
        const QRect available = screen->availableGeometry();
        frame.moveTo(available.x() + (available.width() - kPanelWidth) / 2,
                     available.y() + available.height() / kFirstPlacementDivisor);
    }
    frame.setHeight(m_inputTextField->sizeHint().height() + 2 * kPanelMargin);
    m_window->setGeometry(frame);
    layoutFields();
    updateViewSize();
}

void SpotlightWindowController::setShortcutSource(std::function<StoredShortcut()> source)
{
    m_window->setShortcutSource(std::move(source));
}

bool SpotlightWindowController::isVisible() const
{
    return m_window && m_window->isVisible();
}

void SpotlightWindowController::toggle()
{
    if (!m_window->isVisible()) {
        m_inputTextField->selectText();
        shrinkDetails();
        m_window->makeKeyAndOrderFront();
    } else {
        close();
    }
}

void SpotlightWindowController::close()
{
    if (m_window && m_window->isVisible())
        closeWindow();
}

void SpotlightWindowController::closeWindow()
{
    m_window->orderOut();
}

void SpotlightWindowController::expandWithDetailsText(const QString &text)
{
    m_isExpanded = true;
    m_detailsTextField->setText(text);
    updateViewSize();
}

void SpotlightWindowController::setServiceNote(const QString &note)
{
    if (!m_serviceNoteField) {
        m_serviceNoteField = new QLabel(m_window);
        m_serviceNoteField->setObjectName(QStringLiteral("serviceNote"));
        m_serviceNoteField->setStyleSheet(QStringLiteral("color: gray; font-size: small;"));
    }
    m_serviceNoteField->setText(note);
    m_serviceNoteField->setVisible(!note.isEmpty());
    updateViewSize();
}

void SpotlightWindowController::shrinkDetails()
{
    m_isExpanded = false;
    m_detailsTextField->clear();
    if (m_serviceNoteField)
        m_serviceNoteField->clear();
    updateViewSize();
}

void SpotlightWindowController::layoutFields()
{
    const int width = m_window->width();
    const int inputHeight = m_inputTextField->sizeHint().height();
    const int inputWidth = width - 3 * kPanelMargin - kToggleButtonSize;
    m_inputTextField->setGeometry(kPanelMargin, kPanelMargin, inputWidth, inputHeight);
    m_toggleButton->setGeometry(width - kPanelMargin - kToggleButtonSize, kPanelMargin,
                                kToggleButtonSize, kToggleButtonSize);
    const int detailsWidth = width - 2 * kPanelMargin;
    const int detailsHeight =
        m_detailsTextField->text().isEmpty() ? 0 : m_detailsTextField->heightForWidth(detailsWidth);
    m_detailsTextField->setGeometry(kPanelMargin, kPanelMargin + inputHeight + kPanelMargin,
                                    detailsWidth, detailsHeight);
    if (m_serviceNoteField) {
        const bool noted = m_isExpanded && !m_serviceNoteField->text().isEmpty();
        m_serviceNoteField->setGeometry(kPanelMargin, m_detailsTextField->geometry().bottom() + 1,
                                        detailsWidth,
                                        noted ? m_serviceNoteField->sizeHint().height() : 0);
    }
    m_toggleButton->setArrowType(m_isExpanded ? Qt::UpArrow : Qt::DownArrow);
}

void SpotlightWindowController::updateViewSize()
{
    layoutFields();
    const int noteHeight = m_serviceNoteField ? m_serviceNoteField->height() : 0;
    const int newHeight = TypingModeRules::panelHeight(
        m_inputTextField->height(), m_detailsTextField->height() + noteHeight, m_isExpanded);
    // Screen y grows downwards here: keeping the top edge is keeping y.
    // A resize still under way is replaced: the new one starts where that one got to.
    m_resizeAnimation->stop();
    const QRect oldFrame = m_window->geometry();
    const QRect newFrame(oldFrame.x(), oldFrame.y(), oldFrame.width(), newHeight);
    if (newFrame == oldFrame)
        return;
    if (!m_window->isVisible()) {
        m_window->setGeometry(newFrame);
        return;
    }
    m_resizeAnimation->setStartValue(oldFrame);
    m_resizeAnimation->setEndValue(newFrame);
    m_resizeAnimation->start();
}

void SpotlightWindowController::toggleButton()
{
    m_isExpanded = !m_isExpanded;
    updateViewSize();
}

void SpotlightWindowController::controlTextDidChange()
{
    m_timers.textDidChange();
}

void SpotlightWindowController::postEditingFinished()
{
    emit editingFinished(m_inputTextField->stringValue());
    controlTextDidEndEditing();
}

void SpotlightWindowController::searchTextFieldEnterPressed()
{
    const QString translation = m_detailsTextField->text();
    if (!translation.isEmpty()) {
        emit enterPressed(translation);
        return;
    }
    // Nothing to paste yet: ask for the translation now. A pending countdown still runs.
    emit editingFinished(m_inputTextField->stringValue());
}

void SpotlightWindowController::cancelOperation()
{
    closeWindow();
}

void SpotlightWindowController::windowDidResignKey()
{
    closeWindow();
}

void SpotlightWindowController::returnActivation()
{
    m_window->returnActivation();
}
