#pragma once

#include <QByteArray>
#include <QString>

// The configuration's scrambled form: every character keeps its high bits and
// has its low byte replaced by 255 minus that byte. There is no key and the
// rule is its own inverse, so one routine both scrambles and unscrambles.
// On disk the scrambled text is stored as UTF-8 like any other text.
//
// Everything that reads or writes a .cfg goes through here: the tree reader,
// the save command, the run-parameter tail and the users block.
class CScrambler
{
public:
    // The rule for one character (a UTF-16 code unit or a whole code point).
    static constexpr char32_t Char(char32_t c) { return (c & ~char32_t(0xFF)) | (0xFF - (c & 0xFF)); }
    // The rule applied to the UTF-16 form of a code point, as the tree reader
    // and the save command see the text: outside the Basic Multilingual Plane
    // each half of the surrogate pair changes on its own.
    static char32_t CharOfUtf16(char32_t c);

    // Applies the rule to every UTF-16 code unit of the text.
    static void Apply(QString& text);
    static QString Applied(QString text);

    // Bytes of a .cfg to clear text, and clear text to the bytes of a .cfg.
    static QString Decode(const QByteArray& disk);
    static QByteArray Encode(const QString& clear);

    // Whole-file forms of Decode and Encode. ReadFile answers false when the
    // file can't be opened; WriteFile when it can't be written completely, and
    // then the file is left as it was.
    static bool ReadFile(const QString& path, QString& clear);
    static bool WriteFile(const QString& path, const QString& clear);
};
