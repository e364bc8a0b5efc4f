#include "text/CandidateTexts.h"

#include "text/StringHelpers.h"

std::optional<QString> longestTextWithLetters(const QList<std::optional<QString>> &candidates)
{
    std::optional<QString> choice;
    for (const std::optional<QString> &candidate : candidates) {
        if (!candidate || !StringHelpers::containsLetters(*candidate))
            continue;
        if (!choice || candidate->size() > choice->size())
            choice = candidate;
    }
    return choice;
}
