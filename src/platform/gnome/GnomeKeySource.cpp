#include "platform/gnome/GnomeKeySource.h"

#include "platform/atspi/AtspiKeystrokeKeySource.h"
#include "platform/gnome/GnomeShellHelper.h"

#include <chrono>

namespace {

// The mask bit of the alternative-language key, by its name.
quint32 maskBitOf(const QString &keyName)
{
    using Bit = GnomeShellHelper::ModifierBit;
    if (keyName.startsWith(QLatin1String("Super_")))
        return Bit::Super;
    if (keyName.startsWith(QLatin1String("Shift_")))
        return Bit::Shift;
    return 0; // not a modifier: seen through the keystroke listener only
}

} // namespace

GnomeKeySource::GnomeKeySource(GnomeShellHelper &helper,
                               std::unique_ptr<ModifierKeyMonitor> keystrokes,
                               const QString &alternativeKey, QObject *parent)
    : ModifierKeyMonitor(parent), m_helper(helper), m_keystrokes(std::move(keystrokes))
{
    using Bit = GnomeShellHelper::ModifierBit;
    m_groups = {
        {Bit::Control, GestureKey::LeftControl | GestureKey::RightControl,
         GestureKey::LeftControl},
        {Bit::Alt, GestureKey::LeftAlt, GestureKey::LeftAlt},
        {Bit::AltGraph, GestureKey::RightAlt, GestureKey::RightAlt},
    };
    if (const quint32 bit = maskBitOf(alternativeKey))
        m_groups.append({bit, GestureKey::AlternativeLanguage, GestureKey::AlternativeLanguage});
    m_grace.setSingleShot(true);
    m_grace.setInterval(kSideGraceMs);
    connect(&m_grace, &QTimer::timeout, this, &GnomeKeySource::settleMask);
    if (m_keystrokes)
        connect(m_keystrokes.get(), &ModifierKeyMonitor::keyEvent, this, &GnomeKeySource::keystroke);
}

GnomeKeySource::~GnomeKeySource()
{
    remove();
}

bool GnomeKeySource::canInstall() const
{
    // Asked again while installed: a helper switched off takes the keys with it.
    return m_helper.isRunning();
}

QString GnomeKeySource::setupNeeded() const
{
    using State = GnomeShellHelper::State;
    const QString uuid = QString::fromLatin1(GnomeShellHelper::kUuid);
    switch (m_helper.state()) {
    case State::Running:
        return {};
    case State::NotInstalled:
        return QStringLiteral(
                   "On GNOME with Wayland only the desktop itself sees the Control key and the "
                   "pointer over other applications: Tolkaro needs its small GNOME Shell helper "
                   "(%1), which is not installed. Choose \"Switch it on\" to install it for you "
                   "(or run \"tolkaro --install-gnome-helper\"), then log out and in again: "
                   "GNOME Shell loads new helpers at login.")
            .arg(uuid);
    case State::Disabled:
        return QStringLiteral(
                   "On GNOME with Wayland only the desktop itself sees the Control key and the "
                   "pointer over other applications: Tolkaro needs its small GNOME Shell helper "
                   "(%1), which is switched off. Choose \"Switch it on\" (or run "
                   "\"gnome-extensions enable %1\").")
            .arg(uuid);
    case State::NeedsNewLogin:
        return QStringLiteral(
                   "Tolkaro's GNOME Shell helper (%1) was installed or switched on during this "
                   "session. GNOME Shell loads it at the next login: log out and in again.")
            .arg(uuid);
    }
    return {};
}

bool GnomeKeySource::runSetup()
{
    switch (m_helper.state()) {
    case GnomeShellHelper::State::NotInstalled: {
        QString message;
        return GnomeShellHelper::installForUser(&message);
    }
    case GnomeShellHelper::State::Disabled:
        return GnomeShellHelper::enable();
    default:
        return false;
    }
}

bool GnomeKeySource::install()
{
    if (m_installed)
        return true;
    if (!m_helper.isRunning())
        return false;
    connect(&m_helper, &GnomeShellHelper::modifiersChanged, this,
            &GnomeKeySource::modifiersChanged, Qt::UniqueConnection);
    // Without the listener every key counts as its left one; the helper is enough for that.
    if (m_keystrokes)
        m_keystrokes->install();
    if (const auto pointer = m_helper.pointer())
        m_mask = pointer->modifiers;
    m_installed = true;
    return true;
}

void GnomeKeySource::remove()
{
    if (!m_installed)
        return;
    disconnect(&m_helper, &GnomeShellHelper::modifiersChanged, this,
               &GnomeKeySource::modifiersChanged);
    if (m_keystrokes)
        m_keystrokes->remove();
    m_grace.stop();
    m_installed = false;
    m_held = {};
    m_mask = 0;
    m_pendingBits = 0;
}

void GnomeKeySource::emitChange(GestureKey key, bool pressed)
{
    if (m_held.testFlag(key) == pressed)
        return;
    m_held.setFlag(key, pressed);
    emit keyEvent(GestureKeyEvent{key, m_held, std::chrono::steady_clock::now()});
}

void GnomeKeySource::keystroke(const GestureKeyEvent &event)
{
    if (!m_installed)
        return;
    emitChange(event.key, event.isPress());
}

void GnomeKeySource::modifiersChanged(quint32 modifiers)
{
    if (!m_installed)
        return;
    const quint32 rising = modifiers & ~m_mask, falling = m_mask & ~modifiers;
    m_mask = modifiers;
    // Releases go out at once: a key the listener saw go down may be released in a window
    // it cannot see. Presses wait for the listener to name their side.
    for (const Group &group : std::as_const(m_groups)) {
        if (falling & group.maskBits) {
            // A tap shorter than the grace: it still counts, as its unknown side.
            if ((m_pendingBits & group.maskBits) && !(m_held & group.keys))
                emitChange(group.unknownSide, true);
            m_pendingBits &= ~group.maskBits;
            for (GestureKey key : {GestureKey::LeftControl, GestureKey::RightControl,
                                   GestureKey::LeftAlt, GestureKey::RightAlt,
                                   GestureKey::AlternativeLanguage}) {
                if (group.keys.testFlag(key))
                    emitChange(key, false);
            }
        } else if ((rising & group.maskBits) && !(m_held & group.keys)) {
            m_pendingBits |= group.maskBits;
            m_grace.start();
        }
    }
}

void GnomeKeySource::settleMask()
{
    const quint32 pending = m_pendingBits;
    m_pendingBits = 0;
    for (const Group &group : std::as_const(m_groups)) {
        if ((pending & group.maskBits) && (m_mask & group.maskBits) && !(m_held & group.keys))
            emitChange(group.unknownSide, true);
    }
}
