#pragma once

// The usage events Tolkaro can report.
namespace UsageEvents {
inline constexpr char kFirstLaunchEver[] = "firstLaunchEverAnalytics";
inline constexpr char kTranslationMade[] = "translationHasBeenMadeAnalytics";
inline constexpr char kTranslationError[] = "translationError";
inline constexpr char kTypingModeOpened[] = "typingModeOpened";
inline constexpr char kTypingModeTranslationMade[] = "typingModeTranslationMade";
inline constexpr char kTypingModeTranslationPasted[] = "typingModeTranslationPasted";
inline constexpr char kAccessibilityConsentGiven[] = "accessibilityConsentGiven";
inline constexpr char kAccessibilityConsentDeclined[] = "accessibilityConsentDeclined";
} // namespace UsageEvents
