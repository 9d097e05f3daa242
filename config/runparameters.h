#pragma once

#include <QList>
#include <QString>

// The gateway's run parameters, kept as the "INIFILE" block behind the tree
// rows of a .cfg. The start dialog and the main window both save them here.
class CRunParameters
{
public:
    enum Result
    {
        Saved = 0,
        // A users block stands in front of the parameter block: the file is left alone.
        TailOutOfOrder = 1,
        NotWritten = 2,
    };

    // args: configuration path, port, log level word, "true"/"false" for
    // anonymous access, certificate, key, trust folder. Rewrites the file with
    // the tree rows as they are, a new parameter block and the users block
    // that stood there before.
    static int Save(const QList<QString>& args);

    // The clear text of the parameter block for these arguments.
    static QString Block(const QList<QString>& args);
};
