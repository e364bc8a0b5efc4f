#include "AtspiKeystrokeKeySource.h"

#include "AtspiThread.h"
#include "common/Log.h"

#include <QCoreApplication>

#include <chrono>

#include <atspi/atspi.h>

namespace {

// Keysyms (X11/keysymdef.h) and evdev hardware codes (+8) of the gesture's keys.
struct KnownKey
{
    const char *name;
    quint32 keysym;
    quint32 hardwareCode; // 0: found by keysym only
    std::optional<GestureKey> role;
};
constexpr KnownKey kKnownKeys[] = {
    {"Control_L", 0xffe3, 37, GestureKey::LeftControl},
    {"Control_R", 0xffe4, 105, GestureKey::RightControl},
    {"Alt_L", 0xffe9, 64, GestureKey::LeftAlt},
    {"Meta_L", 0xffe7, 0, GestureKey::LeftAlt},
    {"Alt_R", 0xffea, 108, GestureKey::RightAlt},
    {"Meta_R", 0xffe8, 0, GestureKey::RightAlt},
    {"ISO_Level3_Shift", 0xfe03, 0, GestureKey::RightAlt},
    // Keys the alternative language may be put on.
    {"Super_L", 0xffeb, 133, std::nullopt},
    {"Super_R", 0xffec, 134, std::nullopt},
    {"Shift_L", 0xffe1, 50, std::nullopt},
    {"Shift_R", 0xffe2, 62, std::nullopt},
    {"Hyper_L", 0xffed, 0, std::nullopt},
    {"Hyper_R", 0xffee, 0, std::nullopt},
    {"Caps_Lock", 0xffe5, 66, std::nullopt},
    {"Menu", 0xff67, 135, std::nullopt},
};

// The registry passes a key to a listener only when the modifiers held match the mask it
// was registered with exactly: one registration per combination of the eight modifiers.
constexpr int kModifierCombinations = 256;

} // namespace

struct AtspiKeystrokeKeySource::Listener
{
    AtspiDeviceListener *listener = nullptr;
    // Read and written on the main thread only.
    AtspiKeystrokeKeySource *owner = nullptr;
    std::weak_ptr<Listener> self;
};

AtspiKeystrokeKeySource::AtspiKeystrokeKeySource(const QString &alternativeKey, QObject *parent)
    : ModifierKeyMonitor(parent), m_alternativeKeysym(keysymForName(alternativeKey))
{
}

AtspiKeystrokeKeySource::~AtspiKeystrokeKeySource()
{
    remove();
}

quint32 AtspiKeystrokeKeySource::keysymForName(const QString &name)
{
    for (const KnownKey &key : kKnownKeys) {
        if (name == QLatin1String(key.name))
            return key.keysym;
    }
    return 0;
}

std::optional<GestureKey> AtspiKeystrokeKeySource::roleOf(quint32 keysym, quint32 hardwareCode,
                                                          quint32 alternativeKeysym)
{
    if (keysym != 0 && keysym == alternativeKeysym)
        return GestureKey::AlternativeLanguage;
    for (const KnownKey &key : kKnownKeys) {
        if (key.keysym == keysym)
            return key.role;
    }
    // Some toolkits send their own key codes in place of keysyms: the hardware code decides.
    for (const KnownKey &key : kKnownKeys) {
        if (key.hardwareCode != 0 && key.hardwareCode == hardwareCode)
            return key.keysym == alternativeKeysym ? std::optional(GestureKey::AlternativeLanguage)
                                                   : key.role;
    }
    return std::nullopt;
}

bool AtspiKeystrokeKeySource::canInstall() const
{
    return isInstalled() || AtspiThread::instance().isValid();
}

bool AtspiKeystrokeKeySource::install()
{
    if (m_listener)
        return true;
    if (!AtspiThread::instance().isValid())
        return false;
    auto state = std::make_shared<Listener>();
    state->owner = this;
    state->self = state;
    const bool registered =
        AtspiThread::instance()
            .call<bool>([state, alternative = m_alternativeKeysym] {
                auto callback = [](AtspiDeviceEvent *event, void *data) -> gboolean {
                    // The state is shared with the main thread, which alone reads its owner.
                    auto state = static_cast<Listener *>(data)->self.lock();
                    const bool pressed = event->type == ATSPI_KEY_PRESSED_EVENT;
                    const quint32 keysym = event->id, code = event->hw_code;
                    g_boxed_free(ATSPI_TYPE_DEVICE_EVENT, event);
                    if (state && QCoreApplication::instance())
                        QMetaObject::invokeMethod(
                            QCoreApplication::instance(),
                            [state, pressed, keysym, code] {
                                if (state->owner)
                                    state->owner->handleKey(pressed, keysym, code);
                            },
                            Qt::QueuedConnection);
                    return FALSE; // never consumed: the application gets every key
                };
                // The listener holds the state by a plain pointer: remove() frees the listener
                // on this thread before the state goes.
                state->listener = atspi_device_listener_new(callback, state.get(), nullptr);
                GArray *keys = g_array_new(FALSE, TRUE, sizeof(AtspiKeyDefinition));
                for (const KnownKey &key : kKnownKeys) {
                    if (!key.role && key.keysym != alternative)
                        continue;
                    AtspiKeyDefinition definition{};
                    definition.keycode = gint(key.hardwareCode ? key.hardwareCode : key.keysym);
                    definition.keysym = gint(key.keysym);
                    definition.keystring = const_cast<gchar *>(key.name);
                    g_array_append_val(keys, definition);
                }
                const AtspiKeyEventMask types =
                    (1 << ATSPI_KEY_PRESSED_EVENT) | (1 << ATSPI_KEY_RELEASED_EVENT);
                bool any = false;
                for (int mask = 0; mask < kModifierCombinations; ++mask) {
                    // at-spi2-core 2.46 answers false to a registration it keeps: only an
                    // error means no.
                    GError *error = nullptr;
                    atspi_register_keystroke_listener(state->listener, keys, mask, types,
                                                      ATSPI_KEYLISTENER_NOSYNC, &error);
                    any |= error == nullptr;
                    if (error)
                        g_error_free(error);
                }
                g_array_free(keys, TRUE);
                if (!any) {
                    g_object_unref(state->listener);
                    state->listener = nullptr;
                }
                return any;
            },
                        std::chrono::milliseconds(5000))
            .value_or(false);
    if (!registered) {
        tolkaro::logLine(QStringLiteral("Key monitor: the accessibility registry refused a "
                                        "keystroke listener"));
        return false;
    }
    m_listener = std::move(state);
    return true;
}

void AtspiKeystrokeKeySource::remove()
{
    if (!m_listener)
        return;
    m_listener->owner = nullptr;
    // Deregistered and freed on the thread that dispatches it; the state goes with it.
    AtspiThread::instance().post([state = std::move(m_listener)] {
        if (!state->listener)
            return;
        for (int mask = 0; mask < kModifierCombinations; ++mask)
            atspi_deregister_keystroke_listener(state->listener, nullptr, mask,
                                                (1 << ATSPI_KEY_PRESSED_EVENT) |
                                                    (1 << ATSPI_KEY_RELEASED_EVENT),
                                                nullptr);
        g_object_unref(state->listener);
    });
    m_listener.reset();
    m_held = {};
}

void AtspiKeystrokeKeySource::handleKey(bool pressed, quint32 keysym, quint32 hardwareCode)
{
    if (!m_listener)
        return;
    const std::optional<GestureKey> key = roleOf(keysym, hardwareCode, m_alternativeKeysym);
    if (!key)
        return;
    // Auto-repeat sends presses of a held key again: only changes go out.
    if (pressed == m_held.testFlag(*key))
        return;
    m_held.setFlag(*key, pressed);
    emit keyEvent(GestureKeyEvent{*key, m_held, std::chrono::steady_clock::now()});
}
