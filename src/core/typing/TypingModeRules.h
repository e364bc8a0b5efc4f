#pragma once

// The typing panel's height rule, shared by the panel and its tests. (The cut of typed
// text is cutText() with kTypingTextLimit, in text/TextCut.h.)
namespace TypingModeRules {

// Fixed margin around and between the panel's two fields.
inline constexpr int kPanelMargin = 10;

// The panel's height for the given field heights: the details field counts only while
// the panel is expanded.
int panelHeight(int inputHeight, int detailsHeight, bool isExpanded);

} // namespace TypingModeRules
