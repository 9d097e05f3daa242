#include "examplegateway.h"

#include "config/scrambler.h"

#include <QFile>

QString writeEmulatedExample(const QString& folder)
{
    QFile plain(QString(VELMORA_TEST_DATA) + "/worked_example.csv");
    if (!plain.open(QIODevice::ReadOnly))
        return QString();
    QString text = QString::fromUtf8(plain.readAll());
    // Device columns: name, address, emulation, ...
    text.replace(";Device_0;1;Нет;", ";Device_0;1;Да;");
    const QString path = folder + "/emulated_example.cfg";
    return CScrambler::WriteFile(path, text) ? path : QString();
}
