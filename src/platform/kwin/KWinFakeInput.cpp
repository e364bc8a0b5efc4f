#include "platform/kwin/KWinFakeInput.h"

#include "common/Log.h"
#include "fake-input-client.h"

#include <cstring>
#include <linux/input-event-codes.h>
#include <wayland-client.h>

namespace {

void announce(void *data, wl_registry *registry, uint32_t name, const char *interface,
              uint32_t version)
{
    auto **fakeInput = static_cast<org_kde_kwin_fake_input **>(data);
    // Version 4 brought keyboard keys.
    if (std::strcmp(interface, org_kde_kwin_fake_input_interface.name) == 0 && version >= 4)
        *fakeInput = static_cast<org_kde_kwin_fake_input *>(
            wl_registry_bind(registry, name, &org_kde_kwin_fake_input_interface, 4));
}

void withdraw(void *, wl_registry *, uint32_t) {}

const wl_registry_listener kRegistryListener = {announce, withdraw};

// The evdev codes of the letters A to Z, on the keys a US layout puts them.
constexpr uint32_t kLetterCodes[] = {
    KEY_A, KEY_B, KEY_C, KEY_D, KEY_E, KEY_F, KEY_G, KEY_H, KEY_I, KEY_J, KEY_K, KEY_L, KEY_M,
    KEY_N, KEY_O, KEY_P, KEY_Q, KEY_R, KEY_S, KEY_T, KEY_U, KEY_V, KEY_W, KEY_X, KEY_Y, KEY_Z};

} // namespace

KWinFakeInput::KWinFakeInput() = default;

KWinFakeInput::~KWinFakeInput()
{
    if (m_fakeInput)
        org_kde_kwin_fake_input_destroy(m_fakeInput);
    if (m_display)
        wl_display_disconnect(m_display);
}

bool KWinFakeInput::isValid()
{
    if (!m_tried) {
        m_tried = true;
        m_display = wl_display_connect(nullptr);
        if (!m_display)
            return false;
        wl_registry *registry = wl_display_get_registry(m_display);
        wl_registry_add_listener(registry, &kRegistryListener, &m_fakeInput);
        wl_display_roundtrip(m_display);
        wl_registry_destroy(registry);
        if (!m_fakeInput) {
            tolkaro::logLine(QStringLiteral(
                "KWin offers Tolkaro no fake input (its desktop file is not installed)"));
            return false;
        }
        org_kde_kwin_fake_input_authenticate(m_fakeInput, "Tolkaro",
                                             "Pastes translations where you type");
    }
    return m_fakeInput != nullptr;
}

bool KWinFakeInput::sendControlKeystroke(Qt::Key key)
{
    if (key < Qt::Key_A || key > Qt::Key_Z || !isValid())
        return false;
    const uint32_t letter = kLetterCodes[key - Qt::Key_A];
    org_kde_kwin_fake_input_keyboard_key(m_fakeInput, KEY_LEFTCTRL, 1);
    org_kde_kwin_fake_input_keyboard_key(m_fakeInput, letter, 1);
    org_kde_kwin_fake_input_keyboard_key(m_fakeInput, letter, 0);
    org_kde_kwin_fake_input_keyboard_key(m_fakeInput, KEY_LEFTCTRL, 0);
    return wl_display_roundtrip(m_display) >= 0;
}
