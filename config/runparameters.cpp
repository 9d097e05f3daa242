#include "config/runparameters.h"

#include "config/configtail.h"
#include "config/scrambler.h"

QString CRunParameters::Block(const QList<QString>& args)
{
    return CConfigTail::IniMarker + "[options]\n" + "port = " + args.value(1) + "\n" +
           "log = " + args.value(2) + "\n" + "allowanonimus = " + args.value(3) + "\n" +
           "derFile = " + args.value(4) + "\n" + "pemFile = " + args.value(5) + "\n" +
           "trustFolder = " + args.value(6) + "\n";
}

int CRunParameters::Save(const QList<QString>& args)
{
    const QString path = args.value(0);
    // A file that can't be read counts as empty: the block alone is written.
    QString clear;
    CScrambler::ReadFile(path, clear);

    QString tree;
    QString users;
    if (!CConfigTail::Cut(clear, tree, users))
        return TailOutOfOrder;
    return CScrambler::WriteFile(path, tree + Block(args) + users) ? Saved : NotWritten;
}
