#include "config/scrambler.h"

#include "config/configwriter.h"

#include <QFile>

char32_t CScrambler::CharOfUtf16(char32_t c)
{
    if (c <= 0xFFFF)
        return Char(c);
    const char32_t high = Char(0xD800 + ((c - 0x10000) >> 10));
    const char32_t low = Char(0xDC00 + ((c - 0x10000) & 0x3FF));
    return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
}

void CScrambler::Apply(QString& text)
{
    char16_t* p = reinterpret_cast<char16_t*>(text.data());
    char16_t* const end = p + text.size();
    for (; p != end; ++p)
        *p = static_cast<char16_t>(Char(*p));
}

QString CScrambler::Applied(QString text)
{
    Apply(text);
    return text;
}

QString CScrambler::Decode(const QByteArray& disk)
{
    QString text = QString::fromUtf8(disk);
    Apply(text);
    return text;
}

QByteArray CScrambler::Encode(const QString& clear)
{
    return Applied(clear).toUtf8();
}

bool CScrambler::ReadFile(const QString& path, QString& clear)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    clear = Decode(file.readAll());
    return true;
}

bool CScrambler::WriteFile(const QString& path, const QString& clear)
{
    // A failed write never leaves half a file.
    const QByteArray bytes = Encode(clear);
    return CConfigWriter::Replace(path, [&bytes](QIODevice& device) {
               return device.write(bytes) == bytes.size();
           }) == CConfigWriter::Saved;
}
