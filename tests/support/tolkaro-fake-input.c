// The user's keyboard and pointer in a KWin Wayland test desktop: types through KWin's
// fake-input protocol, which KWin grants only to a program whose desktop file lists the
// interface (the test desktop writes one). Understands the xdotool commands the desktop
// tests use, with X key codes (evdev + 8): keydown/keyup/key CODE|Return|Escape...,
// type TEXT (lower-case letters, digits, space), sleep SECONDS, mousemove X Y, click N.
// With no arguments it reads commands from stdin, a line at a time, each sent at once (a
// benchmark's keys then cost no process start).
#include "fake-input-client.h"

#include <linux/input-event-codes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <wayland-client.h>

static struct org_kde_kwin_fake_input *fake;

static void global(void *data, struct wl_registry *registry, uint32_t name, const char *interface,
                   uint32_t version)
{
    (void)data;
    if (strcmp(interface, org_kde_kwin_fake_input_interface.name) == 0 && version >= 4)
        fake = wl_registry_bind(registry, name, &org_kde_kwin_fake_input_interface, 4);
}

static void global_remove(void *data, struct wl_registry *registry, uint32_t name)
{
    (void)data, (void)registry, (void)name;
}

static const struct wl_registry_listener registry_listener = {global, global_remove};

// The evdev key typing a character on a US layout; -1 when not handled.
static int char_code(char c)
{
    static const char *rows[] = {"1234567890", "qwertyuiop", "asdfghjkl", "zxcvbnm"};
    static const int starts[] = {KEY_1, KEY_Q, KEY_A, KEY_Z};
    if (c == ' ')
        return KEY_SPACE;
    for (int r = 0; r < 4; ++r) {
        const char *at = strchr(rows[r], c);
        if (at)
            return starts[r] + (int)(at - rows[r]);
    }
    return -1;
}

// An evdev key code for a key name or an X key code; -1 when unknown.
static int key_code(const char *name)
{
    static const struct { const char *name; int code; } named[] = {
        {"Return", KEY_ENTER}, {"Escape", KEY_ESC}, {"BackSpace", KEY_BACKSPACE},
        {"Tab", KEY_TAB}, {"space", KEY_SPACE}, {"Control_L", KEY_LEFTCTRL},
        {"Control_R", KEY_RIGHTCTRL}, {"Alt_L", KEY_LEFTALT}, {"Alt_R", KEY_RIGHTALT},
        {"Shift_L", KEY_LEFTSHIFT}, {"Super_L", KEY_LEFTMETA}, {"ctrl", KEY_LEFTCTRL},
        {"alt", KEY_LEFTALT}, {"shift", KEY_LEFTSHIFT}, {"super", KEY_LEFTMETA}};
    for (size_t i = 0; i < sizeof named / sizeof *named; ++i)
        if (strcmp(name, named[i].name) == 0)
            return named[i].code;
    if (name[0] >= 'a' && name[0] <= 'z' && name[1] == '\0')
        return char_code(name[0]);
    char *end;
    const long x = strtol(name, &end, 10);
    return *end == '\0' && x > 8 && x < 264 ? (int)x - 8 : -1;
}

static void key(int code, int pressed)
{
    org_kde_kwin_fake_input_keyboard_key(fake, (uint32_t)code, pressed);
}

static int run(struct wl_display *display, int argc, char **argv);

int main(int argc, char **argv)
{
    struct wl_display *display = wl_display_connect(NULL);
    if (!display) {
        fprintf(stderr, "tolkaro-fake-input: no Wayland display\n");
        return 1;
    }
    wl_registry_add_listener(wl_display_get_registry(display), &registry_listener, NULL);
    wl_display_roundtrip(display);
    if (!fake) {
        fprintf(stderr, "tolkaro-fake-input: KWin offers no org_kde_kwin_fake_input v4 "
                        "(is the desktop file that grants it installed?)\n");
        return 1;
    }
    org_kde_kwin_fake_input_authenticate(fake, "Tolkaro tests", "desktop tests");
    if (argc == 1) {
        char line[256];
        while (fgets(line, sizeof line, stdin)) {
            char *words[16] = {argv[0]};
            int count = 1;
            for (char *word = strtok(line, " \t\n"); word && count < 16; word = strtok(NULL, " \t\n"))
                words[count++] = word;
            if (run(display, count, words) != 0)
                return 2;
            wl_display_flush(display);
        }
        return 0;
    }
    return run(display, argc, argv);
}

static int run(struct wl_display *display, int argc, char **argv)
{
    for (int i = 1; i < argc; ++i) {
        const char *command = argv[i];
        const char *arg = i + 1 < argc ? argv[i + 1] : NULL;
        int code;
        if (strcmp(command, "sleep") == 0 && arg) {
            wl_display_roundtrip(display);
            const double seconds = atof(argv[++i]);
            struct timespec delay = {(time_t)seconds, (long)((seconds - (time_t)seconds) * 1e9)};
            nanosleep(&delay, NULL);
        } else if ((strcmp(command, "keydown") == 0 || strcmp(command, "keyup") == 0 ||
                    strcmp(command, "key") == 0) && arg) {
            // Several keys in a row ("keyup 64 37") until the next command word; "key
            // ctrl+alt+space" presses the keys in order and releases them in reverse.
            while (i + 1 < argc) {
                int codes[4], count = 0;
                char name[64];
                snprintf(name, sizeof name, "%s", argv[i + 1]);
                for (char *part = strtok(name, "+"); part && count < 4; part = strtok(NULL, "+"))
                    if ((codes[count++] = key_code(part)) < 0)
                        break;
                if (count == 0 || codes[count - 1] < 0)
                    break;
                ++i;
                for (int k = 0; k < count && command[3] != 'u'; ++k)
                    key(codes[k], 1);
                for (int k = count - 1; k >= 0 && command[3] != 'd'; --k)
                    key(codes[k], 0);
            }
        } else if (strcmp(command, "type") == 0 && arg) {
            for (const char *c = argv[++i]; *c; ++c) {
                if ((code = char_code(*c)) < 0) {
                    fprintf(stderr, "tolkaro-fake-input: cannot type '%c'\n", *c);
                    return 2;
                }
                key(code, 1);
                key(code, 0);
            }
        } else if (strcmp(command, "mousemove") == 0 && i + 2 < argc) {
            org_kde_kwin_fake_input_pointer_motion_absolute(
                fake, wl_fixed_from_int(atoi(argv[i + 1])), wl_fixed_from_int(atoi(argv[i + 2])));
            i += 2;
        } else if (strcmp(command, "click") == 0 && arg) {
            static const int buttons[] = {0, BTN_LEFT, BTN_MIDDLE, BTN_RIGHT};
            const int n = atoi(argv[++i]);
            if (n >= 1 && n <= 3) {
                org_kde_kwin_fake_input_button(fake, (uint32_t)buttons[n], 1);
                org_kde_kwin_fake_input_button(fake, (uint32_t)buttons[n], 0);
            } else if (n == 4 || n == 5) {
                org_kde_kwin_fake_input_axis(fake, WL_POINTER_AXIS_VERTICAL_SCROLL,
                                             wl_fixed_from_int(n == 4 ? -15 : 15));
            }
        } else {
            fprintf(stderr, "tolkaro-fake-input: cannot do '%s'\n", command);
            return 2;
        }
    }
    wl_display_roundtrip(display);
    return 0;
}
