#pragma once

#include <QtGlobal>

// What an application says of its selection through accessibility at a capture.
enum class AccessibleSelection {
    Shown,     // its element or focused element has selected text
    NoneShown, // its focused element speaks Text and has nothing selected
    Unknown,   // it reports no focused element with Text
    NoTree,    // it has no accessibility tree to ask
};

// Whether the PRIMARY selection may stand for an application's selection. Many toolkits keep
// owning PRIMARY, with the old text, after the user's selection is gone, so PRIMARY counts
// only when it is fresh: changed hands since the last capture (which is also the last time
// an application could say it has no selection). An application that says it has a
// selection (its own answer wins) or has none is never overruled; one without an
// accessibility tree has nothing else to offer, so its PRIMARY counts whenever it owns it.
// Asked once per capture, which is what marks "the last capture". Main thread only.
class PrimarySelectionRule
{
public:
    // `changes` counts PRIMARY's changes of hand since watching began (the count before the
    // first capture is the mark: a selection older than Tolkaro's start is not fresh).
    bool isFresh(AccessibleSelection answer, quint64 changes);

private:
    quint64 m_changesAtLastCapture = 0;
};
