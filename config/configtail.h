#pragma once

#include <QString>

// The clear text behind the tree rows of a .cfg: the run-parameter block that
// begins with "INIFILE" and the users block that begins with "USERS". The tree
// reader stops at either; these helpers find and cut them for the code that
// rewrites them.
class CConfigTail
{
public:
    static const QString IniMarker;   // "INIFILE\n\n"
    static const QString UsersMarker; // "USERS\n\n"
    static const QString UsersHeader; // "[users]\nusers = "

    // Splits clear text into what stands before the tail and the users block
    // (from its marker to the end; empty without one). The run-parameter block
    // is left out. false, with nothing changed, when the users block stands
    // before the run-parameter block.
    static bool Cut(const QString& clear, QString& tree, QString& users);

    // The users list, "login;password;" pairs: everything from the header's
    // end to the end of the text; empty without a users block.
    static QString UsersList(const QString& clear);
};
