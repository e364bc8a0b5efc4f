#include "text/PrimarySelectionRule.h"

#include <utility>

bool PrimarySelectionRule::isFresh(AccessibleSelection answer, quint64 changes)
{
    const quint64 lastCapture = std::exchange(m_changesAtLastCapture, changes);
    switch (answer) {
    case AccessibleSelection::NoTree:
        return true;
    case AccessibleSelection::Shown:
    case AccessibleSelection::NoneShown:
        return false;
    case AccessibleSelection::Unknown:
        break;
    }
    return changes > lastCapture;
}
