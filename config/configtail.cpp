#include "config/configtail.h"

const QString CConfigTail::IniMarker = QStringLiteral("INIFILE\n\n");
const QString CConfigTail::UsersMarker = QStringLiteral("USERS\n\n");
const QString CConfigTail::UsersHeader = QStringLiteral("[users]\nusers = ");

bool CConfigTail::Cut(const QString& clear, QString& tree, QString& users)
{
    const qsizetype ini = clear.indexOf(IniMarker);
    const qsizetype user = clear.indexOf(UsersMarker);
    if (ini >= 0 && user >= 0 && user < ini)
        return false;
    users = user >= 0 ? clear.mid(user) : QString();
    tree = clear.left(ini >= 0 ? ini : user >= 0 ? user : clear.size());
    return true;
}

QString CConfigTail::UsersList(const QString& clear)
{
    const qsizetype user = clear.indexOf(UsersMarker);
    if (user < 0)
        return QString();
    return clear.mid(user + UsersMarker.size() + UsersHeader.size());
}
