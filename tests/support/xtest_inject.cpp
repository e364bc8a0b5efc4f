// tolkaro-xtest-inject: plays a script of keyboard and pointer events through XTest, as a
// user at the keyboard would, for the desktop tests and for trying things by hand.
//
//   tolkaro-xtest-inject [--display NAME] [--key-delay MS] STEP...
//   tolkaro-xtest-inject [--display NAME] [--key-delay MS] -    (steps from stdin, one a line)
//
// Steps, played in order; "@MS" runs a step MS milliseconds after the start of the script
// (steps without it follow the previous one at once):
//   KEY:down[@MS]  KEY:up[@MS]  KEY:tap[@MS]   KEY = X key code (37) or keysym name (Control_L)
//   move:X,Y[@MS]                              move the pointer to screen position X,Y
//   click[:X,Y][@MS]                           left button press and release (after a move)
//   button:N:down[@MS]  button:N:up[@MS]       pointer button N
//   sleep:MS                                   pause
//   waitfocus[:MS]                             wait (up to MS, default 2000) until the window
//                                              under the pointer has the keyboard focus: the
//                                              window manager gives it after a click, a little
//                                              later, and keys sent before then go elsewhere
//   type:TEXT                                  type TEXT (the rest of the step, spaces too);
//                                              characters no key produces are typed through
//                                              key codes without keys, mapped to them for good
// Key codes and not key names for modifiers: left and right Control, Alt and Shift differ
// only by key code, and that is what the key monitor sees.
// Exits 0 when every step went through, 2 on a bad step (found before anything is sent), 1
// when the X server refused an event or a focus wait ran out (the other steps still run).

#include "platform/x11/XTestKeySender.h"

#include <QString>
#include <QStringList>

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <chrono>
#include <cstdio>
#include <iostream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kDefaultFocusWaitMs = 2000;
constexpr auto kFocusPollInterval = std::chrono::milliseconds(5);

// One step of the script, checked before anything is sent: a script that stopped half way
// could leave a key held down for the rest of the session.
struct Step
{
    enum class Kind
    {
        Key,
        Move,
        Button,
        Sleep,
        WaitFocus,
        Type
    };
    Kind kind = Kind::Key;
    uint8_t keyCode = 0;
    bool press = true;
    bool tap = false;
    int x = -1, y = -1; // Move; Button when a click names a position
    int button = 1;
    int sleepMs = 0; // Sleep; WaitFocus: the bound
    QString text;
    std::optional<int> atMs;
};

[[noreturn]] void badStep(const QString &step, const char *why)
{
    std::fprintf(stderr, "tolkaro-xtest-inject: bad step \"%s\": %s\n", qPrintable(step), why);
    std::exit(2);
}

int number(const QString &step, const QString &text)
{
    bool ok = false;
    const int value = text.toInt(&ok);
    if (!ok || value < 0)
        badStep(step, "expected a number");
    return value;
}

bool isDown(const QString &step, const QString &text)
{
    if (text == QLatin1String("down"))
        return true;
    if (text != QLatin1String("up"))
        badStep(step, "expected down or up");
    return false;
}

void parsePosition(const QString &step, const QString &text, Step &parsed)
{
    const QStringList xy = text.split(QLatin1Char(','));
    if (xy.size() != 2)
        badStep(step, "expected X,Y");
    parsed.x = number(step, xy[0]);
    parsed.y = number(step, xy[1]);
}

uint8_t keyCodeOf(const QString &step, const QString &key, const XTestKeySender &sender)
{
    bool isNumber = false;
    const int code = key.toInt(&isNumber);
    if (isNumber) {
        if (code < 8 || code > 255)
            badStep(step, "key codes run from 8 to 255");
        return uint8_t(code);
    }
    const KeySym keysym = XStringToKeysym(key.toLatin1().constData());
    if (keysym == NoSymbol)
        badStep(step, "unknown keysym name");
    const uint8_t keyCode = sender.keyCodeForKeysym(uint32_t(keysym));
    if (keyCode == 0)
        badStep(step, "no key produces this keysym");
    return keyCode;
}

Step parseStep(const QString &text, const XTestKeySender &sender)
{
    Step step;
    if (text.startsWith(QLatin1String("type:"))) {
        step.kind = Step::Kind::Type;
        step.text = text.mid(5);
        return step;
    }
    QString action = text;
    const qsizetype at = text.lastIndexOf(QLatin1Char('@'));
    if (at >= 0) {
        step.atMs = number(text, text.mid(at + 1));
        action = text.left(at);
    }
    const QStringList parts = action.split(QLatin1Char(':'));
    const QString &head = parts.first();
    if (head == QLatin1String("sleep") && parts.size() == 2) {
        step.kind = Step::Kind::Sleep;
        step.sleepMs = number(text, parts[1]);
    } else if (head == QLatin1String("waitfocus") && parts.size() <= 2) {
        step.kind = Step::Kind::WaitFocus;
        step.sleepMs = parts.size() == 2 ? number(text, parts[1]) : kDefaultFocusWaitMs;
    } else if (head == QLatin1String("move") && parts.size() == 2) {
        step.kind = Step::Kind::Move;
        parsePosition(text, parts[1], step);
    } else if (head == QLatin1String("click") && parts.size() <= 2) {
        step.kind = Step::Kind::Button;
        step.tap = true;
        if (parts.size() == 2)
            parsePosition(text, parts[1], step);
    } else if (head == QLatin1String("button") && parts.size() == 3) {
        step.kind = Step::Kind::Button;
        step.button = number(text, parts[1]);
        step.press = isDown(text, parts[2]);
    } else if (parts.size() == 2) {
        step.kind = Step::Kind::Key;
        step.keyCode = keyCodeOf(text, head, sender);
        step.tap = parts[1] == QLatin1String("tap");
        if (!step.tap)
            step.press = isDown(text, parts[1]);
    } else {
        badStep(text, "expected KEY:down, KEY:up, KEY:tap, move:, click, button:, sleep: or type:");
    }
    return step;
}

// Types characters that no key of the current mapping produces through key codes that have no
// keys (no keysyms), each such character getting one of its own. The mapping is left in place
// afterwards: an application reads the new mapping when the change notification reaches it,
// which under load can be well after the change; a key code changed again (or put back) by
// then would give it another character. Key codes without keys are never pressed by anyone
// else, so what stays behind is harmless, and the next run finds those characters mapped.
class SpareKeys
{
public:
    explicit SpareKeys(Display *display) : m_display(display) {}

    bool type(KeySym keysym)
    {
        const KeyCode keyCode = keyCodeFor(keysym);
        if (keyCode == 0)
            return false;
        XTestFakeKeyEvent(m_display, keyCode, True, CurrentTime);
        XTestFakeKeyEvent(m_display, keyCode, False, CurrentTime);
        XSync(m_display, False);
        return true;
    }

private:
    KeyCode keyCodeFor(KeySym keysym)
    {
        for (const auto &[mapped, keyCode] : m_mapped) {
            if (mapped == keysym)
                return keyCode;
        }
        if (m_free.empty() && m_mapped.empty())
            findFreeKeyCodes();
        KeyCode keyCode = 0;
        if (!m_free.empty()) {
            keyCode = m_free.back();
            m_free.pop_back();
        } else if (!m_mapped.empty()) {
            // More characters than free key codes: take back the oldest, and give
            // applications time to read the mapping before it changes again.
            keyCode = m_mapped.front().second;
            m_mapped.erase(m_mapped.begin());
            std::this_thread::sleep_for(kRemapPause);
        } else {
            return 0;
        }
        std::vector<KeySym> syms(size_t(m_symsPerCode), NoSymbol);
        syms[0] = keysym;
        if (m_symsPerCode > 1)
            syms[1] = keysym;
        XChangeKeyboardMapping(m_display, keyCode, m_symsPerCode, syms.data(), 1);
        XSync(m_display, False);
        m_mapped.emplace_back(keysym, keyCode);
        return keyCode;
    }

    void findFreeKeyCodes()
    {
        int minKeyCode = 0, maxKeyCode = 0;
        XDisplayKeycodes(m_display, &minKeyCode, &maxKeyCode);
        int symsPerCode = 0;
        KeySym *map = XGetKeyboardMapping(m_display, KeyCode(minKeyCode),
                                          maxKeyCode - minKeyCode + 1, &symsPerCode);
        if (!map)
            return;
        for (int keyCode = minKeyCode; keyCode <= maxKeyCode; ++keyCode) {
            const KeySym *syms = map + (keyCode - minKeyCode) * symsPerCode;
            bool empty = true;
            for (int i = 0; i < symsPerCode; ++i)
                empty = empty && syms[i] == NoSymbol;
            if (empty)
                m_free.push_back(KeyCode(keyCode));
        }
        XFree(map);
        m_symsPerCode = symsPerCode;
    }

    static constexpr auto kRemapPause = std::chrono::milliseconds(100);

    Display *m_display;
    std::vector<KeyCode> m_free;                      // taken from the back: the highest first
    std::vector<std::pair<KeySym, KeyCode>> m_mapped; // oldest first
    int m_symsPerCode = 0;
};

KeySym keysymForCharacter(char32_t c)
{
    if (c == U'\n')
        return XK_Return;
    if (c == U'\t')
        return XK_Tab;
    // Latin-1 keysyms are the code points; the rest of Unicode is offset by 0x1000000.
    if ((c >= 0x20 && c <= 0x7e) || (c >= 0xa0 && c <= 0xff))
        return KeySym(c);
    return KeySym(0x1000000 + c);
}

class Player
{
public:
    Player(XTestKeySender &sender, int keyDelayMs)
        : m_sender(sender), m_display(sender.display()), m_spareKeys(sender.display()),
          m_keyDelayMs(keyDelayMs)
    {
    }

    bool play(const std::vector<Step> &steps)
    {
        const Clock::time_point start = Clock::now();
        bool sent = true;
        for (const Step &step : steps) {
            if (step.atMs)
                std::this_thread::sleep_until(start + std::chrono::milliseconds(*step.atMs));
            sent = run(step) && sent;
        }
        m_sender.sync();
        return sent;
    }

private:
    bool run(const Step &step)
    {
        switch (step.kind) {
        case Step::Kind::Key:
            if (step.tap)
                return m_sender.pressKeyCode(step.keyCode) && m_sender.releaseKeyCode(step.keyCode);
            return step.press ? m_sender.pressKeyCode(step.keyCode)
                              : m_sender.releaseKeyCode(step.keyCode);
        case Step::Kind::Move:
            return moveTo(step.x, step.y);
        case Step::Kind::Button:
            if (step.x >= 0 && !moveTo(step.x, step.y))
                return false;
            if (step.tap)
                return button(step.button, true) && button(step.button, false);
            return button(step.button, step.press);
        case Step::Kind::Sleep:
            std::this_thread::sleep_for(std::chrono::milliseconds(step.sleepMs));
            return true;
        case Step::Kind::WaitFocus:
            return waitForFocusUnderPointer(std::chrono::milliseconds(step.sleepMs));
        case Step::Kind::Type:
            return typeText(step.text);
        }
        return false;
    }

    bool moveTo(int x, int y)
    {
        const bool sent = XTestFakeMotionEvent(m_display, -1, x, y, CurrentTime);
        XFlush(m_display);
        return sent;
    }

    bool button(int number, bool press)
    {
        const bool sent = XTestFakeButtonEvent(m_display, unsigned(number), press, CurrentTime);
        XFlush(m_display);
        return sent;
    }

    bool waitForFocusUnderPointer(std::chrono::milliseconds bound)
    {
        const Clock::time_point deadline = Clock::now() + bound;
        while (!focusIsUnderPointer()) {
            if (Clock::now() >= deadline) {
                std::fprintf(stderr,
                             "tolkaro-xtest-inject: the window under the pointer did "
                             "not get the focus within %lld ms\n",
                             static_cast<long long>(bound.count()));
                return false;
            }
            std::this_thread::sleep_for(kFocusPollInterval);
        }
        return true;
    }

    // Whether the focus window lies in the top-level window (the frame, with a window manager)
    // that the pointer is over.
    bool focusIsUnderPointer()
    {
        const Window root = DefaultRootWindow(m_display);
        Window pointerRoot = 0, topLevel = 0;
        int rootX = 0, rootY = 0, x = 0, y = 0;
        unsigned int mask = 0;
        if (!XQueryPointer(m_display, root, &pointerRoot, &topLevel, &rootX, &rootY, &x, &y,
                           &mask) ||
            topLevel == None)
            return false;
        Window focus = None;
        int revertTo = 0;
        XGetInputFocus(m_display, &focus, &revertTo);
        if (focus == None || focus == PointerRoot)
            return false;
        for (Window window = focus;;) {
            Window treeRoot = 0, parent = 0, *children = nullptr;
            unsigned int count = 0;
            if (!XQueryTree(m_display, window, &treeRoot, &parent, &children, &count))
                return false;
            if (children)
                XFree(children);
            if (parent == treeRoot || parent == None)
                return window == topLevel;
            window = parent;
        }
    }

    bool typeText(const QString &text)
    {
        for (char32_t c : text.toUcs4()) {
            const KeySym keysym = keysymForCharacter(c);
            const bool sent = m_sender.keyCodeForKeysym(uint32_t(keysym))
                                  ? m_sender.tapKeysym(uint32_t(keysym))
                                  : m_spareKeys.type(keysym);
            if (!sent)
                return false;
            if (m_keyDelayMs > 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(m_keyDelayMs));
        }
        return true;
    }

    XTestKeySender &m_sender;
    Display *m_display;
    SpareKeys m_spareKeys;
    int m_keyDelayMs;
};

} // namespace

int main(int argc, char **argv)
{
    QString displayName;
    int keyDelayMs = 2;
    QStringList stepTexts;
    bool fromStdin = false;
    for (int i = 1; i < argc; ++i) {
        const QString arg = QString::fromLocal8Bit(argv[i]);
        if ((arg == QLatin1String("--display") || arg == QLatin1String("--key-delay")) &&
            i + 1 < argc) {
            const QString value = QString::fromLocal8Bit(argv[++i]);
            if (arg == QLatin1String("--display"))
                displayName = value;
            else
                keyDelayMs = value.toInt();
        } else if (arg == QLatin1String("-")) {
            fromStdin = true;
        } else if (arg == QLatin1String("-h") || arg == QLatin1String("--help")) {
            std::fprintf(stderr, "usage: tolkaro-xtest-inject [--display NAME] [--key-delay MS] "
                                 "STEP... | -\n(see the top of tests/support/xtest_inject.cpp)\n");
            return 0;
        } else {
            stepTexts.append(arg);
        }
    }
    if (fromStdin || stepTexts.isEmpty()) {
        std::string line;
        while (std::getline(std::cin, line)) {
            const QString text = QString::fromStdString(line);
            const QString trimmed = text.trimmed();
            if (trimmed.isEmpty() || trimmed.startsWith(QLatin1Char('#')))
                continue;
            // A typed text keeps its spaces; other lines may hold several steps.
            if (trimmed.startsWith(QLatin1String("type:")))
                stepTexts.append(text.mid(text.indexOf(QLatin1String("type:"))));
            else
                stepTexts.append(trimmed.split(QLatin1Char(' '), Qt::SkipEmptyParts));
        }
    }

    XTestKeySender sender(displayName);
    // These keystrokes are the user's, whoever watches them.
    sender.setAnnouncesToKeyMonitor(false);
    if (!sender.isValid()) {
        std::fprintf(
            stderr, "tolkaro-xtest-inject: cannot open X display \"%s\" with XTest\n",
            qPrintable(displayName.isEmpty() ? qEnvironmentVariable("DISPLAY") : displayName));
        return 1;
    }

    std::vector<Step> steps;
    int lastMs = 0;
    for (const QString &text : stepTexts) {
        steps.push_back(parseStep(text, sender));
        if (steps.back().atMs) {
            if (*steps.back().atMs < lastMs)
                badStep(text, "times must not go back");
            lastMs = *steps.back().atMs;
        }
    }

    Player player(sender, keyDelayMs);
    if (!player.play(steps)) {
        std::fprintf(stderr, "tolkaro-xtest-inject: not every step went through\n");
        return 1;
    }
    return 0;
}
