#pragma once

#include "settings/Preferences.h"

#include <QObject>

// The global-shortcut seam: one system-wide shortcut; while bound, pressing it anywhere in
// the session emits activated(), whichever application has the focus. Binding another
// shortcut replaces the first. Main thread; activated() is delivered by the main event
// loop. Backends come from Platform; the null one binds nothing (isValid() is false).
class GlobalHotKey : public QObject
{
    Q_OBJECT

public:
    enum class BindResult
    {
        Bound,
        TakenByAnotherProgram, // another client holds a grab on that combination
        NoSuchKey,             // the keyboard has no key for the symbol
        Unavailable,           // no display to bind on
    };

    using QObject::QObject;
    ~GlobalHotKey() override = default;

    virtual bool isValid() const = 0;
    virtual BindResult bind(const StoredShortcut &shortcut) = 0;
    virtual void unbind() = 0;
    // The bound shortcut; keySym 0 when none.
    virtual StoredShortcut boundShortcut() const = 0;

signals:
    void activated();
};
