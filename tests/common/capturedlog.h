#pragma once

#include <QStringList>

// The program's log lines, kept instead of printed so that a test can read what was said. Any thread
// may log; the offscreen platform's own complaints are dropped.
namespace CapturedLog {

void install();
// The lines kept since the last take, warnings marked "W ", the rest "I ".
QStringList take();
// The warnings among them, unmarked.
QStringList takeWarnings();

} // namespace CapturedLog
