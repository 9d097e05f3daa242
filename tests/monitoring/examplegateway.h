#pragma once

#include <QString>

// The worked example with its first device emulating, so that the gateway
// sends live values, written scrambled into `folder`. Returns the file's path,
// empty on failure.
QString writeEmulatedExample(const QString& folder);

// One emulating device with `groups` groups of three constant tags (1, 2, 3),
// written scrambled into `folder`. Returns the file's path, empty on failure.
QString writeConstantGroups(const QString& folder, int groups);
