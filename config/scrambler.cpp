#include "config/scrambler.h"

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
    return WriteBytes(path, Encode(clear));
}

bool CScrambler::ScrambleFile(const QString& path)
{
    QString text;
    {
        QFile in(path);
        if (!in.open(QIODevice::ReadOnly))
            return false;
        text = QString::fromUtf8(in.readAll());
        in.close();
        in.remove();
    }
    text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    Apply(text);
    return WriteBytes(path, text.toUtf8());
}

bool CScrambler::WriteBytes(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    // QFile buffers: a full disk shows only when the buffer goes out.
    const bool written = file.write(bytes) == bytes.size() && file.flush();
    file.close();
    return written && file.error() == QFileDevice::NoError;
}
