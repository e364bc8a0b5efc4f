#pragma once

#include <QList>
#include <QString>

#include <optional>

// The choice among an element's candidate texts (value, title, help, description, in that
// order): only texts with a letter take part, and the longest wins; a later text replaces
// the choice only when strictly longer, so of equal lengths the earlier one stays. Lengths
// are in UTF-16 code units. nullopt when no candidate has a letter.
std::optional<QString> longestTextWithLetters(const QList<std::optional<QString>> &candidates);
