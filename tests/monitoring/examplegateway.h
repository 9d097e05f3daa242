#pragma once

#include <QString>

// The worked example with its first device emulating, so that the gateway
// sends live values, and 29 more groups of three constant tags (1, 2, 3) behind
// its first group, written scrambled into `folder`. Returns the file's path,
// empty on failure.
QString writeEmulatedExample(const QString& folder);
