#include "typing/ShortcutRecorder.h"

#include "typing/TypingShortcut.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

using namespace TypingShortcut;

ShortcutRecorder::ShortcutRecorder(QWidget *parent) : QWidget(parent)
{
    setFocusPolicy(Qt::StrongFocus);
    m_button = new QPushButton(this);
    m_button->setObjectName(QStringLiteral("recordButton"));
    m_button->setMinimumWidth(180);
    m_button->setFocusPolicy(Qt::NoFocus);
    m_clearButton = new QToolButton(this);
    m_clearButton->setObjectName(QStringLiteral("clearButton"));
    m_clearButton->setText(QStringLiteral("×"));
    m_clearButton->setToolTip(QStringLiteral("Use the default shortcut"));
    m_clearButton->setFocusPolicy(Qt::NoFocus);
    m_note = new QLabel(this);
    m_note->setObjectName(QStringLiteral("note"));
    m_note->setWordWrap(true);
    m_note->hide();

    auto *row = new QHBoxLayout;
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(m_button, 1);
    row->addWidget(m_clearButton);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->addLayout(row);
    column->addWidget(m_note);

    connect(m_button, &QPushButton::clicked, this, [this] { setRecording(!m_recording); });
    connect(m_clearButton, &QToolButton::clicked, this, [this] {
        setRecording(false);
        store(std::nullopt);
    });
    refresh();
}

void ShortcutRecorder::setAssociatedPreferences(Preferences *preferences,
                                                const StoredShortcut &fallback)
{
    m_preferences = preferences;
    m_fallback = fallback;
    refresh();
}

StoredShortcut ShortcutRecorder::shortcutValue() const
{
    if (m_preferences) {
        if (const std::optional<StoredShortcut> stored =
                m_preferences->typingModeKeyboardShortcut())
            return *stored;
    }
    return m_fallback;
}

void ShortcutRecorder::setRecording(bool recording)
{
    if (recording == m_recording)
        return;
    m_recording = recording;
    if (m_recording) {
        setFocus(Qt::MouseFocusReason);
        grabKeyboard();
    } else {
        releaseKeyboard();
    }
    refresh();
    emit recordingChanged(m_recording);
}

void ShortcutRecorder::setNote(const QString &note)
{
    m_note->setText(note);
    m_note->setVisible(!note.isEmpty());
}

void ShortcutRecorder::keyPressEvent(QKeyEvent *event)
{
    if (!m_recording) {
        if (event->key() == Qt::Key_Space || event->key() == Qt::Key_Return) {
            setRecording(true);
            return;
        }
        QWidget::keyPressEvent(event);
        return;
    }
    const quint32 keySym = event->nativeVirtualKey();
    const quint32 modifiers = significantModifiers(event->modifiers());
    switch (decideRecordedKey(keySym, modifiers)) {
    case RecordedKey::Ignore:
        return;
    case RecordedKey::Cancel:
        setRecording(false);
        return;
    case RecordedKey::Clear:
        setRecording(false);
        store(std::nullopt);
        return;
    case RecordedKey::Reject:
        setNote(QStringLiteral("Hold Ctrl, Alt or Super with the key (function keys work alone)."));
        return;
    case RecordedKey::Accept:
        setRecording(false);
        setNote(QString());
        store(StoredShortcut{normalizedKeySym(keySym), modifiers});
        return;
    }
}

void ShortcutRecorder::focusOutEvent(QFocusEvent *event)
{
    setRecording(false);
    QWidget::focusOutEvent(event);
}

void ShortcutRecorder::store(const std::optional<StoredShortcut> &shortcut)
{
    if (m_preferences) {
        if (shortcut)
            m_preferences->setTypingModeKeyboardShortcut(*shortcut);
        else
            m_preferences->settings().remove(
                QLatin1String(PreferenceKeys::kTypingModeKeyboardShortcut));
        m_preferences->synchronize();
    }
    refresh();
    emit shortcutValueChanged(shortcut);
}

void ShortcutRecorder::refresh()
{
    m_button->setText(m_recording ? QStringLiteral("Type the shortcut…")
                                  : displayText(shortcutValue()));
    m_button->setDown(m_recording);
    m_clearButton->setEnabled(m_preferences && m_preferences->typingModeKeyboardShortcut());
}
