#pragma once

#include <QByteArray>
#include <QString>

// The bytes of a file; empty when it can't be read.
QByteArray readFile(const QString& path);
// Writes a file anew: its path, or empty when it couldn't be written whole.
QString writeFile(const QString& path, const QByteArray& bytes);
