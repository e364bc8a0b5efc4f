#include "typing/TypingModeRules.h"

namespace TypingModeRules {

int panelHeight(int inputHeight, int detailsHeight, bool isExpanded)
{
    const int collapsed = inputHeight + kPanelMargin + kPanelMargin;
    return isExpanded ? collapsed + detailsHeight + kPanelMargin : collapsed;
}

} // namespace TypingModeRules
