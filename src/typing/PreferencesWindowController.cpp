#include "typing/PreferencesWindowController.h"

#include "common/Log.h"
#include "common/NotificationCenter.h"
#include "platform/GlobalHotKey.h"
#include "platform/Platform.h"
#include "typing/ShortcutRecorder.h"
#include "typing/TypingShortcut.h"

#include <QFormLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QVBoxLayout>
#include <QWidget>

using namespace TypingShortcut;

PreferencesWindowController::PreferencesWindowController(Preferences &preferences, QObject *parent)
    : QObject(parent), m_preferences(preferences)
{
}

PreferencesWindowController::~PreferencesWindowController()
{
    delete m_window;
}

QWidget *PreferencesWindowController::window()
{
    if (!m_window) {
        m_window = new QWidget(nullptr, Qt::Dialog);
        m_window->setObjectName(QStringLiteral("PreferencesWindow"));
        m_window->setWindowTitle(QStringLiteral("Keyboard Preferences"));
        m_window->setAttribute(Qt::WA_QuitOnClose, false);
        auto *form = new QFormLayout;
        m_typingModeShortcutView = new ShortcutRecorder(m_window);
        m_typingModeShortcutView->setObjectName(QStringLiteral("typingModeShortcutView"));
        form->addRow(QStringLiteral("Typing mode:"), m_typingModeShortcutView);
        auto *hint = new QLabel(
            QStringLiteral("Opens a panel where you type text and see its translation; Return "
                           "pastes the translation into the application you were in."),
            m_window);
        hint->setWordWrap(true);
        auto *column = new QVBoxLayout(m_window);
        column->addLayout(form);
        column->addWidget(hint);
        column->addWidget(servicesSection());
        m_window->resize(420, m_window->sizeHint().height());
        windowDidLoad();
    }
    return m_window;
}

QWidget *PreferencesWindowController::servicesSection()
{
    auto *section = new QGroupBox(QStringLiteral("Services"), m_window);
    section->setObjectName(QStringLiteral("servicesSection"));
    auto *form = new QFormLayout(section);
    // One field per setting; an emptied field removes the setting.
    auto addField = [this, form, section](const QString &label,
                                          QString (Preferences::*load)() const,
                                          const QString &placeholder, bool secret,
                                          void (Preferences::*store)(const QString &)) {
        auto *field = new QLineEdit(section);
        m_serviceFields.emplace_back(field, load);
        field->setPlaceholderText(placeholder);
        if (secret)
            field->setEchoMode(QLineEdit::PasswordEchoOnEdit);
        connect(field, &QLineEdit::editingFinished, this, [this, field, store] {
            (m_preferences.*store)(field->text());
            emit translationServicesChanged();
        });
        form->addRow(label, field);
    };
    addField(QStringLiteral("DeepL API key:"), &Preferences::deepLAPIKey,
             QStringLiteral("free keys end in :fx"), true, &Preferences::setDeepLAPIKey);
    addField(QStringLiteral("LibreTranslate URL:"), &Preferences::libreTranslateURL,
             QStringLiteral("https://libretranslate.example"), false,
             &Preferences::setLibreTranslateURL);
    addField(QStringLiteral("LibreTranslate API key:"), &Preferences::libreTranslateAPIKey,
             QStringLiteral("optional"), true, &Preferences::setLibreTranslateAPIKey);
    addField(QStringLiteral("Apertium URL:"), &Preferences::apertiumURL,
             QStringLiteral("http://127.0.0.1:2737"), false, &Preferences::setApertiumURL);
    auto *hint = new QLabel(QStringLiteral("Choose the service in the tray menu's Translation "
                                           "Service; when it refuses, the next one is asked."),
                            section);
    hint->setWordWrap(true);
    form->addRow(hint);
    return section;
}

void PreferencesWindowController::loadServiceFields()
{
    for (const auto &[field, load] : m_serviceFields) {
        if (field)
            field->setText((m_preferences.*load)());
    }
}

void PreferencesWindowController::showWindow()
{
    window();
    loadServiceFields();
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
}

void PreferencesWindowController::windowDidLoad()
{
    setupShortcuts();
}

void PreferencesWindowController::setupShortcuts()
{
    m_typingModeShortcutView->setAssociatedPreferences(&m_preferences, defaultShortcut());
    m_hotKey = Platform::instance().createGlobalHotKey(this);
    if (!m_hotKey->isValid()) {
        m_typingModeShortcutView->setNote(QStringLiteral(
            "This session offers no system-wide shortcuts: bind \"tolkaro --typing-mode\" to a "
            "key in your desktop's keyboard settings."));
        return;
    }
    connect(m_hotKey.get(), &GlobalHotKey::activated, this, [] {
        NotificationCenter::defaultCenter().post(
            QLatin1String(NotificationNames::kOpenTypingModeNotification));
    });
    // While recording, the current shortcut must reach the recorder, not open the panel.
    connect(m_typingModeShortcutView, &ShortcutRecorder::recordingChanged, this,
            [this](bool recording) {
                if (recording)
                    m_hotKey->unbind();
                else
                    bindShortcutWithDefaultsKey();
            });
    connect(m_typingModeShortcutView, &ShortcutRecorder::shortcutValueChanged, this,
            [this] { bindShortcutWithDefaultsKey(); });
    bindShortcutWithDefaultsKey();
}

void PreferencesWindowController::bindShortcutWithDefaultsKey()
{
    const StoredShortcut wanted = effectiveShortcut(m_preferences);
    if (m_hotKey->boundShortcut() == wanted)
        return;
    GlobalHotKey::BindResult result = m_hotKey->bind(wanted);
    QString note;
    if (result == GlobalHotKey::BindResult::TakenByAnotherProgram && wanted != fallbackShortcut()) {
        const GlobalHotKey::BindResult fallbackResult = m_hotKey->bind(fallbackShortcut());
        if (fallbackResult == GlobalHotKey::BindResult::Bound) {
            note = QStringLiteral("%1 is used by another program; %2 opens the typing mode "
                                  "for now.")
                       .arg(displayText(wanted), displayText(fallbackShortcut()));
            result = fallbackResult;
        } else {
            note = QStringLiteral("%1 is used by another program.").arg(displayText(wanted));
        }
        if (!m_saidShortcutTaken) {
            m_saidShortcutTaken = true;
            tolkaro::logLine(QStringLiteral("Typing-mode shortcut: ") + note);
        }
    } else if (result == GlobalHotKey::BindResult::TakenByAnotherProgram) {
        note = QStringLiteral("%1 is used by another program.").arg(displayText(wanted));
    } else if (result == GlobalHotKey::BindResult::NoSuchKey) {
        note = QStringLiteral("No key on this keyboard types %1.").arg(displayText(wanted));
    }
    m_typingModeShortcutView->setNote(note);
    emit activeShortcutChanged(activeShortcut());
    emit shortcutFallbackChanged(
        activeShortcut() == fallbackShortcut() && wanted != fallbackShortcut() ? note : QString());
}

StoredShortcut PreferencesWindowController::activeShortcut() const
{
    return m_hotKey ? m_hotKey->boundShortcut() : StoredShortcut{};
}

bool PreferencesWindowController::canBindShortcuts() const
{
    return m_hotKey && m_hotKey->isValid();
}
