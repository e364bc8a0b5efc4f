#pragma once

// The usage events Tolkaro can report.
namespace UsageEvents {
inline constexpr char kFirstLaunchEver[] = "firstLaunchEverAnalytics";
inline constexpr char kTranslationMade[] = "translationHasBeenMadeAnalytics";
inline constexpr char kTranslationError[] = "translationError";
inline constexpr char kTypingModeOpened[] = "OpenedSpotlightTranslation";
inline constexpr char kTypingModeTranslationMade[] = "MadeSpotlightTranslation";
inline constexpr char kTypingModeTranslationPasted[] = "PastedSpotlightTranslation";
inline constexpr char kAccessibilityConsentGiven[] = "userAgreedToEnableAccessibility";
inline constexpr char kAccessibilityConsentDeclined[] = "userDeclinedToEnableAccessibility";
} // namespace UsageEvents
