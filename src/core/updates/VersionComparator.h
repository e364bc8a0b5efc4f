#pragma once

#include <QString>

// Orders version strings the way people write them: "1.10" is newer than "1.9", "1.0" and
// "1.0.0" are the same, "1.0b2" and "1.0-rc1" come before "1.0", a leading "v" and build
// metadata after "+" are ignored. Numbers compare by value, words without letter case
// ("alpha" < "beta" < "rc"), and a number is newer than a word in the same place.
namespace VersionComparator {

// Negative when a is older than b, zero when they are the same version, positive when newer.
int compareVersions(const QString &a, const QString &b);

} // namespace VersionComparator
