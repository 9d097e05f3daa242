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
    QString groups;
    for (int g = 1; g < 30; ++g) {
        groups +=
            QString("GROUP;1;2;3\n;Group_%1;100;мс\nTAG;1;2;3;4;5;6;7;8;9;10;11;12;13;14;15;16;17\n").arg(g);
        for (int t = 1; t <= 3; ++t)
            groups += QString(";Тег_%1;Входной регистр;%2;0;0;Да;;;Вещ32;BA DC;Нет;;;;;Константа;%1\n")
                          .arg(t)
                          .arg(t * 2);
    }
    text.insert(text.indexOf("CHANNEL", 1), groups);
    const QString path = folder + "/emulated_example.cfg";
    return CScrambler::WriteFile(path, text) ? path : QString();
}
