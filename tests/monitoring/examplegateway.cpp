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

QString writeConstantGroups(const QString& folder, int groups)
{
    QString text = "CHANNEL;1;2;3;4;5;6;7;8;9;10;11;12;13;14\n"
                   ";Линия;COM-порт;MODBUS RTU;500;3;0;1;9600;8;1;Нет;Нет;Нет;Нет\n"
                   "DEVICE;1;2;3;4;5;6;7\n;Прибор;1;Да;125;2000;0;Да\n";
    for (int g = 0; g < groups; ++g) {
        text += QString("GROUP;1;2;3\n;Группа_%1;100;мс\nTAG;1;2;3;4;5;6;7;8;9;10;11;12;13;14;15;16;17\n")
                    .arg(g, 2, 10, QChar('0'));
        for (int t = 1; t <= 3; ++t)
            text += QString(";Тег_%1;Входной регистр;%2;0;0;Да;;;Вещ32;BA DC;Нет;;;;;Константа;%1\n")
                        .arg(t)
                        .arg(t * 2);
    }
    const QString path = folder + "/constant_groups.cfg";
    return CScrambler::WriteFile(path, text) ? path : QString();
}
